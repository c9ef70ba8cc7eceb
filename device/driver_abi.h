/* Binary interface of the sensor maker's USB driver library (QVUSBDRVD).
 *
 * The library is closed; these are the twelve functions QV_API2 loads from it at
 * run time, with the argument and result types QV_API2 relies on. The simulated
 * sensors (sim/) export exactly the same functions, so nothing above the binding
 * can tell them from hardware.
 *
 * Plain C so that both the library and the simulator (and a C test) can include it.
 */
#ifndef QV_DRIVER_ABI_H
#define QV_DRIVER_ABI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Windows GUID layout. */
typedef struct QvGuid {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
} QvGuid;

/* Device-interface paths are UTF-16 on every platform (WCHAR on Windows). */
typedef uint16_t QvWideChar;

/* Handles are 64-bit. A device handle is valid when > 0 and not -1; a WinUSB
 * handle is -1 on failure. */
typedef int64_t QvDrvHandle;

#define QV_DRV_INVALID_HANDLE ((QvDrvHandle)-1)

/* Length of the buffer passed to GetDevicePath, in wide characters. */
#define QV_DRV_DEVICE_PATH_CHARS 600

/* The second argument of the string-descriptor functions, passed unchanged. */
#define QV_DRV_STRING_DESCRIPTOR_ARG 27

#define QV_DRV_STRING_PRODUCT 2
#define QV_DRV_STRING_SERIAL 3

#define QV_DRV_PIPE_IN 0x82
#define QV_DRV_PIPE_OUT 0x01

typedef int32_t (*QvDrv_GetDevCount)(const QvGuid* classGuid);
typedef int32_t (*QvDrv_GetDevicePath)(int32_t index0, const QvGuid* classGuid,
                                       QvWideChar* path, int32_t pathChars);
typedef QvDrvHandle (*QvDrv_OpenDevHandle)(int32_t index0, int32_t flags,
                                           const QvGuid* classGuid);
typedef int32_t (*QvDrv_CloseDevHandle)(QvDrvHandle device);
typedef QvDrvHandle (*QvDrv_OpenWinUSBHandle)(QvDrvHandle device);
typedef int32_t (*QvDrv_CloseWinUSBHandle)(QvDrvHandle winusb);
typedef int32_t (*QvDrv_GetStringDescriptorLengthA)(QvDrvHandle winusb, int32_t arg27,
                                                    int32_t stringIndex);
typedef int32_t (*QvDrv_GetStringDescriptorA)(QvDrvHandle winusb, int32_t arg27,
                                              int32_t stringIndex, int32_t length,
                                              char* buffer);
typedef int32_t (*QvDrv_VendorOrClassRequestOut)(QvDrvHandle winusb, int32_t requestType,
                                                 int32_t recipient, int32_t request,
                                                 int32_t value, int32_t index,
                                                 uint8_t* buffer, int32_t length);
typedef int32_t (*QvDrv_VendorOrClassRequestIn)(QvDrvHandle winusb, int32_t requestType,
                                                int32_t recipient, int32_t request,
                                                int32_t value, int32_t index,
                                                uint8_t* buffer, int32_t length);
typedef int32_t (*QvDrv_PipeReadTimeout)(QvDrvHandle winusb, int32_t pipe, uint8_t* buffer,
                                         uint32_t length, uint32_t* transferred,
                                         uint32_t timeoutMs);
typedef int32_t (*QvDrv_PipeWriteTimeout)(QvDrvHandle winusb, int32_t pipe, uint8_t* buffer,
                                          uint32_t length, uint32_t* transferred,
                                          uint32_t timeoutMs);

#ifdef __cplusplus
}
#endif

#endif
