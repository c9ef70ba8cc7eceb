// Pulse-profiling settings of a slot: sweep time and delay, trigger source,
// level, edge and output, trace averaging, trace filter, read time-out and
// undersampling; the read time-out rule, the trigger output and the probe of
// the external trigger input.
//
// Every operation takes the sensor's address first. Values are checked before
// anything is looked up, so a refused value changes nothing; then the slot
// must hold an initialised sensor of the calling process. What a refusal
// answers differs by operation (0 or -1) and is given beside each. A null
// out-pointer gives -1. Getters write only on success.
#pragma once

#include <cstdint>

#include "frame/shared_table.h"

namespace qv {

// Pulse-profiling settings, gates and markers to their defaults; the gate
// modes and the analysis trace itself survive.
void ResetProfilingDefaults(DeviceRecord& record);

// The sixteen user sweep times, microseconds, and the index of `usec` among
// them (-1 when it is not one of them).
inline constexpr int kSweepTimeCount = 16;
std::int32_t SweepTimeIndex(std::int32_t usec);

// Longest sweep delay with sweeps up to 10 ms (index 9 and below) and with longer ones.
inline constexpr std::int32_t kMaxShortSweepDelayUsec = 10000;
inline constexpr std::int32_t kMaxLongSweepDelayUsec = 4999000;

// Index of the sweep the automatic trigger search runs (11..15), from the
// sweep time, delay and time-out settings.
std::int32_t SearchSweepIndex(const TraceSettings& t);
// Read time-out in milliseconds before the raise of the multi-packet read
// (below 101 ms to 120 ms) or of the single-packet search read (below 100 ms
// to 250 ms), which the reads apply themselves.
std::int32_t ReadTimeOutMs(const TraceSettings& t);

// Arms a restart of the trace average for the next trace.
inline void ArmAverageRestart(TraceSettings& t) {
    t.avgRestart = 1;
    t.avgCount = 0;
}

// ---------------------------------------------------------------- operations behind the exports

// 1; 0 not one of the sixteen sweep times; 0 unknown.
std::int32_t SetSweepTime(std::int32_t address, std::int32_t usec);
std::int32_t GetSweepTime(std::int32_t address, std::int32_t* usec);
// The chosen sweep time; 0 negative value; -1 unknown.
std::int32_t SetClosestSweepTimeUSEC(std::int32_t address, std::int32_t usec);
// 1; 0 out of range or unknown.
std::int32_t SetSweepDelay(std::int32_t address, std::int32_t usec);
std::int32_t GetSweepDelay(std::int32_t address, std::int32_t* usec);
std::int32_t SetSweepDelayMode(std::int32_t address, std::int32_t mode);
std::int32_t GetSweepDelayMode(std::int32_t address, std::int32_t* mode);
// No effect; always 0.
std::int32_t SetSweepHoldOff(std::int32_t address, std::int32_t value);
std::int32_t GetSweepHoldOff(std::int32_t address, std::int32_t* value);
// 1; 0 code outside 1..9 or unknown.
std::int32_t SetFilter(std::int32_t address, std::int32_t code);
std::int32_t GetFilter(std::int32_t address, std::int32_t* code);
// 1; 0 outside 0..2; -1 unknown.
std::int32_t SetPoles(std::int32_t address, std::int32_t poles);
std::int32_t GetPoles(std::int32_t address, std::int32_t* poles);
// Trigger checks: 0 address outside 0..255 or not found; -1 another process's.
std::int32_t SetTriggerSoure(std::int32_t address, std::int32_t source);
std::int32_t GetTriggerSoure(std::int32_t address, std::int32_t* source);
std::int32_t SetTriggerLevel(std::int32_t address, double dbm);
std::int32_t GetTriggerLevel(std::int32_t address, double* dbm);
std::int32_t SetTriggerEdge(std::int32_t address, std::int32_t edge);
std::int32_t GetTriggerEdge(std::int32_t address, std::int32_t* edge);
// 1 done; 0 refused (bad mode, model not trace-capable, sensor request
// failed); -1 not owned.
std::int32_t SetTriggerOut(std::int32_t address, std::int32_t mode);
std::int32_t GetTriggerOut(std::int32_t address, std::int32_t* mode);
// 1 two edges seen on the trigger input within 20 ms; 0 not seen or refused;
// -1 not owned.
std::int32_t CheckTrigger(std::int32_t address);
// Clamped into 10000..11000000 µs. 1; 0 unknown.
std::int32_t SetTimeOut(std::int32_t address, std::int32_t usec);
std::int32_t GetTimeOut(std::int32_t address, std::int32_t* usec);
// 1; 0 other value; -1 unknown (the getter: 0 unknown).
std::int32_t SetAutoTimeOutMode(std::int32_t address, std::int32_t mode);
std::int32_t GetAutoTimeOutMode(std::int32_t address, std::int32_t* mode);
// 1; 0 other value or unknown.
std::int32_t SetUndersampling(std::int32_t address, std::int32_t on);
std::int32_t GetUndersampling(std::int32_t address, std::int32_t* on);
// 1; 0 out of range; -1 unknown.
std::int32_t SetAvgMode(std::int32_t address, std::int32_t mode);
std::int32_t GetAvgMode(std::int32_t address, std::int32_t* mode);
std::int32_t SetTraceAvgs(std::int32_t address, std::int32_t count);
std::int32_t GetTraceAvgs(std::int32_t address, std::int32_t* count);
std::int32_t SetAvgResetSens(std::int32_t address, double sensitivity);
std::int32_t GetAvgResetSens(std::int32_t address, double* sensitivity);
std::int32_t ResetTraceAveraging(std::int32_t address);
// PP_SetState, PP_ResendState, PP_TakeSweep, PP_AcquireTrace: no effect, 0.
std::int32_t NoProfilingEffect();

}  // namespace qv
