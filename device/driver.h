// Binding to the sensor driver library QVUSBDRVD, loaded at run time.
//
// Each wrapper calls one of the twelve driver functions. A driver that is
// missing (library or function not found) or that fails abnormally (throws)
// makes the wrapper throw DriverFault; the device operations catch it and
// answer with their own failure code, so nothing escapes to the caller.
#pragma once

#include <cstdint>
#include <string>

#include "device/driver_abi.h"

namespace qv {

// The device-interface class of the sensors.
extern const QvGuid kSensorClassGuid;

struct DriverFault {};

namespace driver {

std::int32_t GetDevCount();
// Device-interface path of device `index0` (0-based), narrowed to 8-bit text.
std::string GetDevicePath(std::int32_t index0);
QvDrvHandle OpenDevHandle(std::int32_t index0);
void CloseDevHandle(QvDrvHandle device);
QvDrvHandle OpenWinUSBHandle(QvDrvHandle device);
void CloseWinUSBHandle(QvDrvHandle winusb);
std::int32_t GetStringDescriptorLength(QvDrvHandle winusb, std::int32_t stringIndex);
std::int32_t GetStringDescriptor(QvDrvHandle winusb, std::int32_t stringIndex,
                                 std::int32_t length, char* buffer);
std::int32_t RequestOut(QvDrvHandle winusb, std::int32_t requestType, std::int32_t request,
                        std::uint8_t* buffer, std::int32_t length);
std::int32_t RequestIn(QvDrvHandle winusb, std::int32_t requestType, std::int32_t request,
                       std::uint8_t* buffer, std::int32_t length);
std::int32_t PipeRead(QvDrvHandle winusb, std::uint8_t* buffer, std::uint32_t length,
                      std::uint32_t* transferred, std::uint32_t timeoutMs);
std::int32_t PipeWrite(QvDrvHandle winusb, std::uint8_t* buffer, std::uint32_t length,
                       std::uint32_t* transferred, std::uint32_t timeoutMs);

}  // namespace driver

// True once the driver library and all twelve functions were found. Loads it
// on first use (never from the load notification: loading a library there is
// not allowed on every platform).
bool DriverAvailable();

// Forgets the driver library of this process; called at process detach.
void UnloadDriver();

}  // namespace qv
