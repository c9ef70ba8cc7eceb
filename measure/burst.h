// Burst measurement: the largest, average and smallest power inside a time
// window of one trace, with the sweep chosen to cover the window.
#pragma once

#include <cstdint>

namespace qv {

// Points of the trace buffer of a burst measurement.
inline constexpr std::int32_t kBurstTracePoints = 10000;

// Sweep time (µs) covering a window that ends at `endUsec` (0..1000000).
std::int32_t BurstSweepTime(std::int64_t endUsec);

// First and last trace index of the window [start, start + length] on a
// trace of `points` points spanning `sweepUsec`.
struct BurstWindow {
    std::int32_t first;
    std::int32_t last;
};
BurstWindow BurstWindowIndices(std::int32_t start, std::int32_t length, std::int32_t sweepUsec,
                               std::int32_t points);

// The operation behind QV_MeasureBurst_DBM: 1, or -1 on any failure. It calls
// PP_SetSweepTime, PP_SetTriggerSoure and PP_SetTriggerEdge through their
// exports, so it must run under a lock the calling thread may take again.
std::int32_t MeasureBurst_DBM(std::int32_t address, std::int32_t start, std::int32_t length,
                              std::int32_t trigger, double* maximum, double* average,
                              double* minimum);

// What the export's frame runs under the lock: MeasureBurst_DBM with
// burstRunning set to 1, and back to 0 after it on every path.
std::int32_t MeasureBurstRunning(std::int32_t address, std::int32_t start, std::int32_t length,
                                 std::int32_t trigger, double* maximum, double* average,
                                 double* minimum);

}  // namespace qv
