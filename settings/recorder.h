// The sensor's analogue recorder output: switching it on and off, its two
// levels, and the value written to it after each CW result.
#pragma once

#include <cstdint>

namespace qv {

// Requests 179, 195, 187, 198, each a command that must be echoed: the fourth
// result, or -1 at the first that fails. On success it clears
// RecorderOutEnabled of slot `slot` (none for kNoSlot).
std::int32_t RecorderOutOff(std::int64_t h, std::int32_t slot);
// Requests 179, 195, 187, 200, 190, 196, 199 as commands: the last result, or
// -1 at the first that fails. Changes no field.
std::int32_t RecorderOutOn(std::int64_t h, std::int32_t slot);

// The 16-bit code (0 = 0 V .. 52428 = 1 V) that shows `value` (in the levels'
// unit) between the 0-V and 1-V levels.
std::int32_t RecorderCode(double value, double level0V, double level1V);
// Writes the code of `dbm` (converted to RecorderOutUnits) to pipe 0x01 over
// the slot's WinUSB handle: 1; -1 without a WinUSB handle or when the driver
// fails. `h` is the measurement's device handle (the write uses the WinUSB
// handle obtained from it).
std::int32_t RecorderOutputValue(std::int64_t h, std::int32_t slot, double dbm);

// Operations behind the exports.
std::int32_t SetRecorderOutEnabled(std::int32_t address, std::int32_t enabled);
std::int32_t GetRecorderOutEnabled(std::int32_t address, std::int32_t* enabled);
std::int32_t SetRecorderOutSetup(std::int32_t address, double level0V, double level1V,
                                 std::int32_t units);
std::int32_t GetRecorderOutSetup(std::int32_t address, double* level0V, double* level1V,
                                 std::int32_t* units);

}  // namespace qv
