// Calibration grid constants per model, interpolation at a frequency, the 350
// temperature rows of count-to-dBm segments, and the crossover band.
#pragma once

#include <cstdint>

namespace qv {

// Model constants of the sensor in slot `slot`; -1.0 for a slot outside 0..12.
double CalStartFrequency(std::int32_t slot);
double CalFrequencyStep(std::int32_t slot);
double CalMaximumFrequency(std::int32_t slot);
double CalTempTableStart(std::int32_t slot);
double CalTempStep(std::int32_t slot);
double CalFirstLevelHs(std::int32_t slot);
double CalFirstLevelLs(std::int32_t slot);
double CalLevelStep(std::int32_t slot);

// `f` limited to the model's start .. maximum frequency; 0.0 for a bad slot.
double ClampCalFrequency(std::int32_t slot, double f);

// Writes the frequencies and levels of the model's grid into the slot's
// calibration points (coefficients untouched).
void SetModelGrid(std::int32_t slot);

// 1; -1 slot outside 0..12; -5 or -6 frequency outside the calibrated grid.
std::int32_t BuildCalTables(std::int32_t slot, double f);

// Row of temperature count `t` (not clamped); -1 for a bad slot.
std::int32_t TempRowIndex(std::int32_t slot, double t);

// The nearest existing row (0..349) to a row index TempRowIndex gave: a
// temperature beyond the table is measured with the row at that end.
std::int32_t ClampTempRow(std::int32_t row);

// 1 with the crossover band in dBm; -1 for a bad slot.
std::int32_t CrossoverBounds(std::int32_t slot, double f, double* hsLower, double* hsUpper,
                             double* lsLower, double* lsUpper);

}  // namespace qv
