// Finding sensors on the bus and reading their addresses.
#pragma once

#include <cstdint>

#include "qv_api2.h"

namespace qv {

inline constexpr std::uint8_t kAddressRegion = 2;
inline constexpr std::uint16_t kAddressPosition = 31;

// Device count as the driver reports it; -2 when the driver fails.
std::int32_t DeviceCount();

// Reads the address stored in the sensor: 1, or the failing request's result.
std::int32_t ReadSensorAddress(std::int64_t h, std::int32_t* address);
// Writes the address: 1; -1 outside 1..255; -4 no 252 echo; -5 no 253 echo.
std::int32_t WriteSensorAddress(std::int64_t h, std::int32_t address);

// Six upper-case characters of device |index|'s serial, from its
// device-interface path (no terminator written): 1; -5 for an index beyond
// the count, index 0, or a path without the expected form.
std::int32_t SerialFromDevicePath(std::int32_t index, char* serial);

// The device index answering to `address`: the index, 0 when none, -1 for an
// address outside 0..255, -5 when a device could not be opened.
std::int32_t GetIndex_Addr(std::int32_t address);

}  // namespace qv

namespace qv {

// |index| for the exports that accept a negated device index; -1 for
// INT_MIN, whose magnitude has no 32-bit value (and is no device index).
std::int32_t DeviceIndexMagnitude(std::int32_t index);

// Validity rules of the names callers give.
bool IsValidSerialNumber(const char* serial);    // present, 5 or 6 characters (at most
                                                 // 7 bytes of it are read)
bool IsValidAddress(std::int32_t address);       // 1..255
bool IsValidDeviceIndex(std::int32_t index);     // 1..device count
bool IsByteAddress(std::int32_t address);        // 0..255

// Four LED flashes, one second in all: 1; -2 when an LED request fails.
std::int32_t BlinkLED(std::int64_t h);

// Operations behind the discovery exports.
std::int32_t SensorCnt();
std::int32_t SensorList(SensorListEntry* list, std::int32_t length);
std::int32_t GetIndex_SN(const char* serial);
std::int32_t GetSerNo_Addr(std::int32_t address, char* serial);
std::int32_t GetSerNo_Idx(std::int32_t index, char* serial);
std::int32_t GetAddress_SN(const char* serial);
std::int32_t GetAddress_Idx(std::int32_t index);
std::int32_t SetAddress_SN(const char* serial, std::int32_t address);
std::int32_t SetAddress_Idx(std::int32_t index, std::int32_t address);
std::int32_t ChangeAddress(std::int32_t oldAddress, std::int32_t newAddress);
std::int32_t AddressConflictExists();
std::int32_t WillAddressConflict(std::int32_t address);
std::int32_t IsSensorConnected_SN(const char* serial);
std::int32_t IsSensorConnected_Addr(std::int32_t address);
std::int32_t BlinkLED_SN(const char* serial);
std::int32_t BlinkLED_Addr(std::int32_t address);
std::int32_t BlinkLED_Idx(std::int32_t index);

}  // namespace qv
