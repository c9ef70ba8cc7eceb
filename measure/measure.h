// Power measurement: CW and pulse readings, extended averaging and max hold.
#pragma once

#include <cstdint>

namespace qv {

// One CW reading in the caller's unit, with every correction applied.
std::int32_t MeasureCW(std::int32_t address, double* reading);
std::int32_t MeasureCW_PF(std::int32_t address, double* reading, std::int32_t* passFail);

// One pulse reading: pulse, peak and average power, duty cycle as a fraction.
std::int32_t MeasurePulse(std::int32_t address, double* pulse, double* peak, double* average,
                          double* dutyCycle);
std::int32_t MeasurePulse_PF(std::int32_t address, double* pulse, double* peak, double* average,
                             double* dutyCycle, std::int32_t* passFail);

// Settings of extended averaging and max hold.
std::int32_t GetExtendedAveragingEnabled(std::int32_t address, std::int32_t* enabled);
std::int32_t SetExtendedAveragingEnabled(std::int32_t address, std::int32_t enabled);
std::int32_t GetExtendedAveraging(std::int32_t address, std::int32_t* count);
std::int32_t SetExtendedAveraging(std::int32_t address, std::int32_t count);
std::int32_t ResetExtendedAveraging(std::int32_t address);
std::int32_t GetMaxHoldEnabled(std::int32_t address, std::int32_t* enabled);
std::int32_t SetMaxHoldEnabled(std::int32_t address, std::int32_t enabled);
std::int32_t ResetMaxHold(std::int32_t address);

}  // namespace qv
