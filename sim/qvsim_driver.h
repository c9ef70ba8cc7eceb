/* The twelve driver functions as libqvsim_usbdrvd exports them, for code that links
 * the simulator directly (its own tests). QV_API2 itself loads them by name. */
#ifndef QVSIM_DRIVER_H
#define QVSIM_DRIVER_H

#include "device/driver_abi.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#define QVSIM_DRIVER_API __declspec(dllexport)
#else
#define QVSIM_DRIVER_API __attribute__((visibility("default")))
#endif

QVSIM_DRIVER_API int32_t QV_USBDRVD_GetDevCount(const QvGuid* classGuid);
QVSIM_DRIVER_API int32_t QV_USBDRVD_GetDevicePath(int32_t index0, const QvGuid* classGuid,
                                                  QvWideChar* path, int32_t pathChars);
QVSIM_DRIVER_API QvDrvHandle QV_USBDRVD_OpenDevHandle(int32_t index0, int32_t flags,
                                                      const QvGuid* classGuid);
QVSIM_DRIVER_API int32_t QV_USBDRVD_CloseDevHandle(QvDrvHandle device);
QVSIM_DRIVER_API QvDrvHandle QV_USBDRVD_OpenWinUSBHandle(QvDrvHandle device);
QVSIM_DRIVER_API int32_t QV_USBDRVD_CloseWinUSBHandle(QvDrvHandle winusb);
QVSIM_DRIVER_API int32_t QV_USBDRVD_GetStringDescriptorLengthA(QvDrvHandle winusb, int32_t arg27,
                                                               int32_t stringIndex);
QVSIM_DRIVER_API int32_t QV_USBDRVD_GetStringDescriptorA(QvDrvHandle winusb, int32_t arg27,
                                                         int32_t stringIndex, int32_t length,
                                                         char* buffer);
QVSIM_DRIVER_API int32_t QV_USBDRVD_VendorOrClassRequestOut(QvDrvHandle winusb, int32_t requestType,
                                                            int32_t recipient, int32_t request,
                                                            int32_t value, int32_t index,
                                                            uint8_t* buffer, int32_t length);
QVSIM_DRIVER_API int32_t QV_USBDRVD_VendorOrClassRequestIn(QvDrvHandle winusb, int32_t requestType,
                                                           int32_t recipient, int32_t request,
                                                           int32_t value, int32_t index,
                                                           uint8_t* buffer, int32_t length);
QVSIM_DRIVER_API int32_t QV_USBDRVD_PipeReadTimeout(QvDrvHandle winusb, int32_t pipe, uint8_t* buffer,
                                                    uint32_t length, uint32_t* transferred,
                                                    uint32_t timeoutMs);
QVSIM_DRIVER_API int32_t QV_USBDRVD_PipeWriteTimeout(QvDrvHandle winusb, int32_t pipe, uint8_t* buffer,
                                                     uint32_t length, uint32_t* transferred,
                                                     uint32_t timeoutMs);

#ifdef __cplusplus
}
#endif

#endif
