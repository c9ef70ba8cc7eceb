/* libqvusbdrvd: the sensor driver library on libusb-1.0 (Linux).
 *
 * Exports the twelve QV_USBDRVD_ functions of device/driver_abi.h, which QV_API2
 * loads by name, and one function of its own for tools that want to tell a user
 * why no sensor shows up. Plain C. */
#ifndef QVUSBDRVD_H
#define QVUSBDRVD_H

#include "device/driver_abi.h"

#ifdef __cplusplus
extern "C" {
#endif

#define QVUSBDRVD_API __attribute__((visibility("default")))

QVUSBDRVD_API int32_t QV_USBDRVD_GetDevCount(const QvGuid* classGuid);
QVUSBDRVD_API int32_t QV_USBDRVD_GetDevicePath(int32_t index0, const QvGuid* classGuid, QvWideChar* path,
                                               int32_t pathChars);
QVUSBDRVD_API QvDrvHandle QV_USBDRVD_OpenDevHandle(int32_t index0, int32_t flags, const QvGuid* classGuid);
QVUSBDRVD_API int32_t QV_USBDRVD_CloseDevHandle(QvDrvHandle device);
QVUSBDRVD_API QvDrvHandle QV_USBDRVD_OpenWinUSBHandle(QvDrvHandle device);
QVUSBDRVD_API int32_t QV_USBDRVD_CloseWinUSBHandle(QvDrvHandle winusb);
QVUSBDRVD_API int32_t QV_USBDRVD_GetStringDescriptorLengthA(QvDrvHandle winusb, int32_t arg27, int32_t stringIndex);
QVUSBDRVD_API int32_t QV_USBDRVD_GetStringDescriptorA(QvDrvHandle winusb, int32_t arg27, int32_t stringIndex,
                                                      int32_t length, char* buffer);
QVUSBDRVD_API int32_t QV_USBDRVD_VendorOrClassRequestOut(QvDrvHandle winusb, int32_t requestType, int32_t recipient,
                                                         int32_t request, int32_t value, int32_t index,
                                                         uint8_t* buffer, int32_t length);
QVUSBDRVD_API int32_t QV_USBDRVD_VendorOrClassRequestIn(QvDrvHandle winusb, int32_t requestType, int32_t recipient,
                                                        int32_t request, int32_t value, int32_t index,
                                                        uint8_t* buffer, int32_t length);
QVUSBDRVD_API int32_t QV_USBDRVD_PipeReadTimeout(QvDrvHandle winusb, int32_t pipe, uint8_t* buffer, uint32_t length,
                                                 uint32_t* transferred, uint32_t timeoutMs);
QVUSBDRVD_API int32_t QV_USBDRVD_PipeWriteTimeout(QvDrvHandle winusb, int32_t pipe, uint8_t* buffer, uint32_t length,
                                                  uint32_t* transferred, uint32_t timeoutMs);

/* USB devices that could not be opened for lack of permission when the bus
 * was last searched (it is searched again first): a sensor among them stays
 * invisible until the udev rule gives access. */
QVUSBDRVD_API int32_t qvusbdrvd_denied_devices(void);

#ifdef __cplusplus
}
#endif

#endif
