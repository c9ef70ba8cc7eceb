// Finding sensors on the bus and reading their addresses.
#pragma once

#include <cstdint>

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
