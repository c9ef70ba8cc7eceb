// Exports of the power measurements, extended averaging and max hold.
#include "frame/frame.h"
#include "measure/measure.h"

using namespace qv;

extern "C" {

QV_API int32_t QV_MeasureCW(int32_t address, double* reading) {
    return Enter([&] { return MeasureCW(address, reading); });
}

QV_API int32_t QV_MeasureCW_PF(int32_t address, double* reading, int32_t* passFail) {
    return Enter([&] { return MeasureCW_PF(address, reading, passFail); });
}

QV_API int32_t QV_MeasurePulse(int32_t address, double* pulse, double* peak, double* average,
                               double* dutyCycle) {
    return Enter([&] { return MeasurePulse(address, pulse, peak, average, dutyCycle); });
}

QV_API int32_t QV_MeasurePulse_PF(int32_t address, double* pulse, double* peak, double* average,
                                  double* dutyCycle, int32_t* passFail) {
    return Enter([&] { return MeasurePulse_PF(address, pulse, peak, average, dutyCycle, passFail); });
}

QV_API int32_t QV_GetExtendedAveragingEnabled(int32_t address, int32_t* enabled) {
    return Enter([&] { return GetExtendedAveragingEnabled(address, enabled); });
}

QV_API int32_t QV_SetExtendedAveragingEnabled(int32_t address, int32_t enabled) {
    return Enter([&] { return SetExtendedAveragingEnabled(address, enabled); });
}

QV_API int32_t QV_GetExtendedAveraging(int32_t address, int32_t* count) {
    return Enter([&] { return GetExtendedAveraging(address, count); });
}

QV_API int32_t QV_SetExtendedAveraging(int32_t address, int32_t count) {
    return Enter([&] { return SetExtendedAveraging(address, count); });
}

QV_API int32_t QV_ResetExtendedAveraging(int32_t address) {
    return Enter([&] { return ResetExtendedAveraging(address); });
}

QV_API int32_t QV_GetMaxHoldEnabled(int32_t address, int32_t* enabled) {
    return Enter([&] { return GetMaxHoldEnabled(address, enabled); });
}

QV_API int32_t QV_SetMaxHoldEnabled(int32_t address, int32_t enabled) {
    return Enter([&] { return SetMaxHoldEnabled(address, enabled); });
}

QV_API int32_t QV_ResetMaxHold(int32_t address) {
    return Enter([&] { return ResetMaxHold(address); });
}

}  // extern "C"
