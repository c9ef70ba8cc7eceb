// Unit codes of results, references, limits and the recorder output, and the
// frequency check by model.
#pragma once

#include <cstdint>

namespace qv {

// UnitCode: 0 dBm, 1 dBW, 2 dBkW, 3 dBuV, 4 dBmV, 5 dBV, 6 W, 7 V, 8 dB
// relative to the CW reference (results only).
inline constexpr std::int32_t kUnitDbm = 0;
inline constexpr std::int32_t kUnitRelative = 8;
// What both conversions give for code 8 and for codes outside 0..8.
inline constexpr double kNoConversion = -9999.999;

// A dBm value in unit `unit`.
double DbmToUnits(double dbm, std::int32_t unit);
// A value in unit `unit` back in dBm.
double UnitsToDbm(double value, std::int32_t unit);

// 1 when 1.0e7 Hz <= f <= the upper limit of the model of slot `slot`; 0 when
// not; -1 for a slot outside 0..12.
std::int32_t IsValidFrequency(std::int32_t slot, double f);

}  // namespace qv
