// Exports of the measurement settings, limits and response correction,
// trigger and recorder outputs.
#include "frame/frame.h"
#include "settings/limits.h"
#include "settings/recorder.h"
#include "settings/settings.h"
#include "settings/trigger.h"

using namespace qv;

extern "C" {

QV_API int32_t QV_GetFrequency(int32_t address, double* frequencyHz) {
    return Enter([&] { return GetFrequency(address, frequencyHz); });
}

QV_API int32_t QV_SetFrequency(int32_t address, double frequencyHz) {
    return Enter([&] { return SetFrequency(address, frequencyHz); });
}

QV_API int32_t QV_GetAverages(int32_t address, int32_t* averages) {
    return Enter([&] { return GetAverages(address, averages); });
}

QV_API int32_t QV_SetAverages(int32_t address, int32_t averages) {
    return Enter([&] { return SetAverages(address, averages); });
}

QV_API int32_t QV_GetOffset(int32_t address, double* offsetDb) {
    return Enter([&] { return GetOffset(address, offsetDb); });
}

QV_API int32_t QV_SetOffset(int32_t address, double offsetDb) {
    return Enter([&] { return SetOffset(address, offsetDb); });
}

QV_API int32_t QV_GetOffsetEnabled(int32_t address, int32_t* enabled) {
    return Enter([&] { return GetOffsetEnabled(address, enabled); });
}

QV_API int32_t QV_SetOffsetEnabled(int32_t address, int32_t enabled) {
    return Enter([&] { return SetOffsetEnabled(address, enabled); });
}

QV_API int32_t QV_GetDutyCycleEnabled(int32_t address, int32_t* enabled) {
    return Enter([&] { return GetDutyCycleEnabled(address, enabled); });
}

QV_API int32_t QV_SetDutyCycleEnabled(int32_t address, int32_t enabled) {
    return Enter([&] { return SetDutyCycleEnabled(address, enabled); });
}

QV_API int32_t QV_GetDutyCyclePerCent(int32_t address, double* perCent) {
    return Enter([&] { return GetDutyCyclePerCent(address, perCent); });
}

QV_API int32_t QV_SetDutyCyclePerCent(int32_t address, double perCent) {
    return Enter([&] { return SetDutyCyclePerCent(address, perCent); });
}

QV_API int32_t QV_GetMeasurementPowerUnits(int32_t address, int32_t* units) {
    return Enter([&] { return GetMeasurementPowerUnits(address, units); });
}

QV_API int32_t QV_SetMeasurementPowerUnits(int32_t address, int32_t units) {
    return Enter([&] { return SetMeasurementPowerUnits(address, units); });
}

QV_API int32_t QV_GetCWReference(int32_t address, double* value, int32_t* units) {
    return Enter([&] { return GetCWReference(address, value, units); });
}

QV_API int32_t QV_SetCWReference(int32_t address, double value, int32_t units) {
    return Enter([&] { return SetCWReference(address, value, units); });
}

QV_API int32_t QV_GetPulseReference(int32_t address, double* pulse, double* peak, double* average,
                                    double* duty, int32_t* units) {
    return Enter([&] { return GetPulseReference(address, pulse, peak, average, duty, units); });
}

QV_API int32_t QV_SetPulseReference(int32_t address, double pulse, double peak, double average,
                                    double duty, int32_t units) {
    return Enter([&] { return SetPulseReference(address, pulse, peak, average, duty, units); });
}

QV_API int32_t QV_GetPulseCriteria(int32_t address, double* criteriaDb) {
    return Enter([&] { return GetPulseCriteria(address, criteriaDb); });
}

QV_API int32_t QV_SetPulseCriteria(int32_t address, double criteriaDb) {
    return Enter([&] { return SetPulseCriteria(address, criteriaDb); });
}

QV_API int32_t QV_GetAutoPulseEnabled(int32_t address, int32_t* enabled) {
    return Enter([&] { return GetAutoPulseEnabled(address, enabled); });
}

QV_API int32_t QV_SetAutoPulseEnabled(int32_t address, int32_t enabled) {
    return Enter([&] { return SetAutoPulseEnabled(address, enabled); });
}

QV_API int32_t QV_GetAntiAliasingEnabled(int32_t address, int32_t* enabled) {
    return Enter([&] { return GetAntiAliasingEnabled(address, enabled); });
}

QV_API int32_t QV_SetAntiAliasingEnabled(int32_t address, int32_t enabled) {
    return Enter([&] { return SetAntiAliasingEnabled(address, enabled); });
}

QV_API int32_t QV_Get75OhmsEnabled(int32_t address, int32_t* enabled) {
    return Enter([&] { return Get75OhmsEnabled(address, enabled); });
}

QV_API int32_t QV_Set75OhmsEnabled(int32_t address, int32_t enabled) {
    return Enter([&] { return Set75OhmsEnabled(address, enabled); });
}

QV_API int32_t QV_SetSingleSidedLimit(int32_t address, double limit, int32_t units, int32_t rule) {
    return Enter([&] { return SetSingleSidedLimit(address, limit, units, rule); });
}

QV_API int32_t QV_GetSingleSidedLimit(int32_t address, double* limit, int32_t* units,
                                      int32_t* rule) {
    return Enter([&] { return GetSingleSidedLimit(address, limit, units, rule); });
}

QV_API int32_t QV_SetDoubleSidedLimit(int32_t address, double lower, double upper, int32_t units,
                                      int32_t rule) {
    return Enter([&] { return SetDoubleSidedLimit(address, lower, upper, units, rule); });
}

QV_API int32_t QV_GetDoubleSidedLimit(int32_t address, double* lower, double* upper, int32_t* units,
                                      int32_t* rule) {
    return Enter([&] { return GetDoubleSidedLimit(address, lower, upper, units, rule); });
}

QV_API int32_t QV_SetLimitEnabled(int32_t address, int32_t mode) {
    return Enter([&] { return SetLimitEnabled(address, mode); });
}

QV_API int32_t QV_GetLimitEnabled(int32_t address, int32_t* mode) {
    return Enter([&] { return GetLimitEnabled(address, mode); });
}

QV_API int32_t QV_SetResponse(int32_t address, const QV_ResponsePoint* points, int32_t count) {
    return Enter([&] { return SetResponse(address, points, count); });
}

QV_API int32_t QV_SetResponse_Flat(int32_t address, const double* frequencies,
                                   const double* amplitudes, int32_t count) {
    return Enter([&] { return SetResponse_Flat(address, frequencies, amplitudes, count); });
}

QV_API int32_t QV_GetResponse(int32_t address, QV_ResponsePoint* points, int32_t* count) {
    return Enter([&] { return GetResponse(address, points, count); });
}

QV_API int32_t QV_GetResponse_Flat(int32_t address, double* frequencies, double* amplitudes,
                                   int32_t* count) {
    return Enter([&] { return GetResponse_Flat(address, frequencies, amplitudes, count); });
}

QV_API int32_t QV_SetResponseEnabled(int32_t address, int32_t enabled) {
    return Enter([&] { return SetResponseEnabled(address, enabled); });
}

QV_API int32_t QV_GetResponseEnabled(int32_t address, int32_t* enabled) {
    return Enter([&] { return GetResponseEnabled(address, enabled); });
}

QV_API int32_t QV_SetTTLTriggerInEnabled(int32_t address, int32_t enabled) {
    return Enter([&] { return SetTTLTriggerInEnabled(address, enabled); });
}

QV_API int32_t QV_GetTTLTriggerInEnabled(int32_t address, int32_t* enabled) {
    return Enter([&] { return GetTTLTriggerInEnabled(address, enabled); });
}

QV_API int32_t QV_SetTTLTriggerInInverted(int32_t address, int32_t inverted) {
    return Enter([&] { return SetTTLTriggerInInverted(address, inverted); });
}

QV_API int32_t QV_GetTTLTriggerInInverted(int32_t address, int32_t* inverted) {
    return Enter([&] { return GetTTLTriggerInInverted(address, inverted); });
}

QV_API int32_t QV_SetTTLTriggerInTimeOut(int32_t address, int32_t milliseconds) {
    return Enter([&] { return SetTTLTriggerInTimeOut(address, milliseconds); });
}

QV_API int32_t QV_GetTTLTriggerInTimeOut(int32_t address, int32_t* milliseconds) {
    return Enter([&] { return GetTTLTriggerInTimeOut(address, milliseconds); });
}

QV_API int32_t QV_SetTTLTriggerOutEnabled(int32_t address, int32_t enabled) {
    return Enter([&] { return SetTTLTriggerOutEnabled(address, enabled); });
}

QV_API int32_t QV_GetTTLTriggerOutEnabled(int32_t address, int32_t* enabled) {
    return Enter([&] { return GetTTLTriggerOutEnabled(address, enabled); });
}

QV_API int32_t QV_SetTTLTriggerOutInverted(int32_t address, int32_t inverted) {
    return Enter([&] { return SetTTLTriggerOutInverted(address, inverted); });
}

QV_API int32_t QV_GetTTLTriggerOutInverted(int32_t address, int32_t* inverted) {
    return Enter([&] { return GetTTLTriggerOutInverted(address, inverted); });
}

QV_API int32_t QV_SetRecorderOutEnabled(int32_t address, int32_t enabled) {
    return Enter([&] { return SetRecorderOutEnabled(address, enabled); });
}

QV_API int32_t QV_GetRecorderOutEnabled(int32_t address, int32_t* enabled) {
    return Enter([&] { return GetRecorderOutEnabled(address, enabled); });
}

QV_API int32_t QV_SetRecorderOutSetup(int32_t address, double level0V, double level1V,
                                      int32_t units) {
    return Enter([&] { return SetRecorderOutSetup(address, level0V, level1V, units); });
}

QV_API int32_t QV_GetRecorderOutSetup(int32_t address, double* level0V, double* level1V,
                                      int32_t* units) {
    return Enter([&] { return GetRecorderOutSetup(address, level0V, level1V, units); });
}

}  // extern "C"
