// Trace acquisition: the checks of PP_GetTrace, the choice between the
// direct path (the user's sweep as it is) and the delayed path (a longer
// acquisition span cut after the sweep delay, also used to undersample 20, 50
// and 100 ms sweeps), the sweep itself and the conversion of its packets.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/shared_table.h"

namespace qv {

// Result codes of PP_GetTrace.
inline constexpr std::int32_t kTraceAddressOutOfRange = -5;
inline constexpr std::int32_t kTraceNotOwned = -1;
inline constexpr std::int32_t kTraceNoSlot = -6;
inline constexpr std::int32_t kTraceNoDeviceIndex = -7;
inline constexpr std::int32_t kTraceCalibrationFailed = -10;
inline constexpr std::int32_t kTraceNoSweepTime = -11;
inline constexpr std::int32_t kTraceBufferShort = -12;
inline constexpr std::int32_t kTraceSweepTimeInconsistent = -13;
inline constexpr std::int32_t kTraceNoDeviceHandle = -14;
inline constexpr std::int32_t kTraceNothingRead = -100;
inline constexpr std::int32_t kTraceSizeMismatch = -101;
inline constexpr std::int32_t kTraceResampleFailed = -102;
inline constexpr std::int32_t kTraceCopyFailed = -104;
inline constexpr std::int32_t kTraceFilterFailed = -105;
inline constexpr std::int32_t kTraceAverageFailed = -107;
inline constexpr std::int32_t kDelayedNoSweepTime = -36;
inline constexpr std::int32_t kDelayedBufferShort = -35;
inline constexpr std::int32_t kDelayedSweepTimeInconsistent = -34;
inline constexpr std::int32_t kDelayedNoDeviceHandle = -33;
inline constexpr std::int32_t kDelayedNothingRead = -1002;
inline constexpr std::int32_t kDelayedSizeMismatch = -1003;
inline constexpr std::int32_t kDelayedRowAboveUser = -1000;

// True when the settings ask for the delayed path.
bool TakesDelayedPath(const TraceSettings& t);
// The delay D the delayed path uses: the sweep delay in delay mode, else 0.
std::int32_t EffectiveDelayUsec(const TraceSettings& t);

// How the delayed path cuts the trace of user row `userRow` out of a longer
// acquisition.
struct DelayedPlan {
    int acqRow;                // the acquisition row a (16..27); -1000 above row 15
    bool undersampled;         // a is one of the 2 us rows 23..27
    std::int64_t spanPoints;   // W
    std::int64_t startPoint;   // s
};
DelayedPlan PlanDelayed(int userRow, std::int32_t delayUsec, std::int32_t undersampling,
                        std::int32_t length);

// Arrays of one acquisition: the counts of the two paths of the record or
// span, and the converted trace before resampling.
struct TraceScratch {
    std::vector<std::uint16_t> hi;
    std::vector<std::uint16_t> lo;
    std::vector<double> converted;
};

// Conversion of the packets of a direct-path sweep of user row `row` into the
// caller's `length` points (dBm): 1, -102, -104, -105, -107.
std::int32_t ConvertDirect(int slot, int row, const std::uint8_t* raw, double* trace,
                           std::int32_t length, TraceScratch& scratch);
// The same for the delayed path: 1, 0 (resampling failed), -1 (filter failed).
std::int32_t ConvertDelayed(int slot, int userRow, const DelayedPlan& plan,
                            const std::uint8_t* raw, double* trace, std::int32_t length,
                            TraceScratch& scratch);

// The operations behind PP_GetTrace and PP_GetTraceLength.
std::int32_t GetTrace(std::int32_t address, double* trace, std::int32_t length,
                      std::int32_t* count);
std::int32_t GetTraceLength(std::int32_t address);

}  // namespace qv
