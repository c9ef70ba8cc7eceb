// Exports of pulse profiling: sweep, trigger and acquisition settings, trace
// acquisition and trace unit conversion.
#include "frame/frame.h"
#include "profiling/trace_acquisition.h"
#include "profiling/trace_conversion.h"
#include "profiling/trace_settings.h"

using namespace qv;

namespace {

// Exports without effect answer 0 without the lock: nothing of the table is touched.

// Addresses come in unsigned; every operation tests them as signed 0..255.
std::int32_t A(std::uint32_t address) { return static_cast<std::int32_t>(address); }

}  // namespace

extern "C" {

QV_API int32_t PP_SetSweepTime(uint32_t address, int32_t usec) {
    return Enter([&] { return SetSweepTime(A(address), usec); });
}

QV_API int32_t PP_GetSweepTime(uint32_t address, int32_t* usec) {
    return Enter([&] { return GetSweepTime(A(address), usec); });
}

QV_API int32_t PP_SetClosestSweepTimeUSEC(uint32_t address, int32_t usec) {
    return Enter([&] { return SetClosestSweepTimeUSEC(A(address), usec); });
}

QV_API int32_t PP_SetSweepDelay(uint32_t address, int32_t usec) {
    return Enter([&] { return SetSweepDelay(A(address), usec); });
}

QV_API int32_t PP_GetSweepDelay(uint32_t address, int32_t* usec) {
    return Enter([&] { return GetSweepDelay(A(address), usec); });
}

QV_API int32_t PP_SetSweepDelayMode(uint32_t address, int32_t mode) {
    return Enter([&] { return SetSweepDelayMode(A(address), mode); });
}

QV_API int32_t PP_GetSweepDelayMode(uint32_t address, int32_t* mode) {
    return Enter([&] { return GetSweepDelayMode(A(address), mode); });
}

QV_API int32_t PP_SetSweepHoldOff(uint32_t address, int32_t value) {
    return EnterWithoutLock([&] { return SetSweepHoldOff(A(address), value); });
}

QV_API int32_t PP_GetSweepHoldOff(uint32_t address, int32_t* value) {
    return EnterWithoutLock([&] { return GetSweepHoldOff(A(address), value); });
}

QV_API int32_t PP_SetFilter(uint32_t address, int32_t code) {
    return Enter([&] { return SetFilter(A(address), code); });
}

QV_API int32_t PP_GetFilter(uint32_t address, int32_t* code) {
    return Enter([&] { return GetFilter(A(address), code); });
}

QV_API int32_t PP_SetPoles(uint32_t address, int32_t poles) {
    return Enter([&] { return SetPoles(A(address), poles); });
}

QV_API int32_t PP_GetPoles(uint32_t address, int32_t* poles) {
    return Enter([&] { return GetPoles(A(address), poles); });
}

QV_API int32_t PP_SetTriggerSoure(uint32_t address, int32_t source) {
    return Enter([&] { return SetTriggerSoure(A(address), source); });
}

QV_API int32_t PP_GetTriggerSoure(uint32_t address, int32_t* source) {
    return Enter([&] { return GetTriggerSoure(A(address), source); });
}

QV_API int32_t PP_SetTriggerLevel(uint32_t address, double dbm) {
    return Enter([&] { return SetTriggerLevel(A(address), dbm); });
}

QV_API int32_t PP_GetTriggerLevel(uint32_t address, double* dbm) {
    return Enter([&] { return GetTriggerLevel(A(address), dbm); });
}

QV_API int32_t PP_SetTriggerEdge(uint32_t address, int32_t edge) {
    return Enter([&] { return SetTriggerEdge(A(address), edge); });
}

QV_API int32_t PP_GetTriggerEdge(uint32_t address, int32_t* edge) {
    return Enter([&] { return GetTriggerEdge(A(address), edge); });
}

QV_API int32_t PP_SetTriggerOut(uint32_t address, int32_t mode) {
    return Enter([&] { return SetTriggerOut(A(address), mode); });
}

QV_API int32_t PP_GetTriggerOut(uint32_t address, int32_t* mode) {
    return Enter([&] { return GetTriggerOut(A(address), mode); });
}

QV_API int32_t PP_CheckTrigger(uint32_t address) {
    return Enter([&] { return CheckTrigger(A(address)); });
}

QV_API int32_t PP_SetTimeOut(uint32_t address, int32_t usec) {
    return Enter([&] { return SetTimeOut(A(address), usec); });
}

QV_API int32_t PP_GetTimeOut(uint32_t address, int32_t* usec) {
    return Enter([&] { return GetTimeOut(A(address), usec); });
}

QV_API int32_t PP_SetAutoTimeOutMode(uint32_t address, int32_t mode) {
    return Enter([&] { return SetAutoTimeOutMode(A(address), mode); });
}

QV_API int32_t PP_GetAutoTimeOutMode(uint32_t address, int32_t* mode) {
    return Enter([&] { return GetAutoTimeOutMode(A(address), mode); });
}

QV_API int32_t PP_SetUndersampling20ms_50ms_100ms(uint32_t address, int32_t on) {
    return Enter([&] { return SetUndersampling(A(address), on); });
}

QV_API int32_t PP_GetUndersampling20ms_50ms_100ms(uint32_t address, int32_t* on) {
    return Enter([&] { return GetUndersampling(A(address), on); });
}

QV_API int32_t PP_SetAvgMode(uint32_t address, int32_t mode) {
    return Enter([&] { return SetAvgMode(A(address), mode); });
}

QV_API int32_t PP_GetAvgMode(uint32_t address, int32_t* mode) {
    return Enter([&] { return GetAvgMode(A(address), mode); });
}

QV_API int32_t PP_SetTraceAvgs(uint32_t address, int32_t count) {
    return Enter([&] { return SetTraceAvgs(A(address), count); });
}

QV_API int32_t PP_GetTraceAvgs(uint32_t address, int32_t* count) {
    return Enter([&] { return GetTraceAvgs(A(address), count); });
}

QV_API int32_t PP_SetAvgResetSens(uint32_t address, double sensitivity) {
    return Enter([&] { return SetAvgResetSens(A(address), sensitivity); });
}

QV_API int32_t PP_GetAvgResetSens(uint32_t address, double* sensitivity) {
    return Enter([&] { return GetAvgResetSens(A(address), sensitivity); });
}

QV_API int32_t PP_ResetTraceAveraging(uint32_t address) {
    return Enter([&] { return ResetTraceAveraging(A(address)); });
}

QV_API int32_t PP_SetState(uint32_t) {
    return EnterWithoutLock([] { return NoProfilingEffect(); });
}

QV_API int32_t PP_ResendState(uint32_t) {
    return EnterWithoutLock([] { return NoProfilingEffect(); });
}

QV_API int32_t PP_TakeSweep(uint32_t) {
    return EnterWithoutLock([] { return NoProfilingEffect(); });
}

QV_API int32_t PP_AcquireTrace(uint32_t) {
    return EnterWithoutLock([] { return NoProfilingEffect(); });
}

QV_API int32_t PP_GetTrace(int32_t address, double* trace, int32_t length, int32_t* count) {
    return Enter([&] { return GetTrace(address, trace, length, count); });
}

QV_API int32_t PP_GetTraceLength(int32_t address) {
    return Enter([&] { return GetTraceLength(address); });
}

QV_API int32_t PP_CnvtTrace(int32_t address, const double* in, int32_t n, double* out,
                            int32_t fromUnit, int32_t toUnit) {
    return Enter([&] { return CnvtTrace(address, in, n, out, fromUnit, toUnit); });
}

}  // extern "C"
