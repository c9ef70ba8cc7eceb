// Acquisition: commanding a sensor to measure and reading its blocks of raw
// counts from pipe 0x82 into the slot's raw buffer, in the three modes
// (recorder, triggered, free-running) with their stream flags, retries and
// time-outs; the CW acquisition core; and what the CW and pulse measurements
// share around an acquisition (the trigger-output pulse, the split of large
// averaging counts).
#pragma once

#include <cstdint>

#include "frame/shared_table.h"

namespace qv {

// Codes of the acquisition cores.
inline constexpr std::int32_t kCoreNoSlot = -15;      // CW core: serial not in the table
inline constexpr std::int32_t kCoreReadFailed = -13;  // the pipe brought no data
inline constexpr std::int32_t kCoreStartFailed = -33; // the start request was refused
inline constexpr std::int32_t kCoreParseFailed = -2;  // the data could not be split

// Largest number of blocks of one acquisition; larger averaging counts are split.
inline constexpr std::int32_t kMaxBlocksPerRun = 100;

// Index of the first of the 13 slots whose serial matches `serial` in six
// characters without regard to case (in use or not); kNoSlot if none.
std::int32_t SlotBySerial(const char* serial);

// Rebuilds the slot's calibration rows when its frequency setting has moved
// more than 20 kHz from the frequency they were built for.
void FollowFrequency(std::int32_t slot);

// One CW acquisition of the sensor `serial`: Averages blocks read, both paths
// converted and merged; the reading in dBm goes to both outputs. 1; -15 serial
// not in the table, -13 the pipe brought nothing, -33 the start request was
// refused, -2 the data could not be split, -1 the device could not be reopened.
std::int32_t MeasureCWCore(const char* serial, double* hsValue, double* lsValue);

// The pulse measurement's acquisition of n blocks into the slot's raw buffer
// over its own sequence: 1, -13.
std::int32_t AcquirePulseBlocks(std::int32_t slot, std::int32_t n);

// Whether a measurement pulses the trigger output around its acquisition:
// the output is on, the input off and the recorder output off.
bool PulsesTriggerOutput(const InstrumentState& s);
// Flips the trigger output's inversion (as QV_SetTTLTriggerOutInverted): the
// setter's result.
std::int32_t FlipTriggerOutput(std::int32_t address, const InstrumentState& s);

// An averaging count above 100 runs as `runs` acquisitions of `blocks` each.
struct AveragingSplit {
    std::int32_t runs;
    std::int32_t blocks;
};
AveragingSplit SplitAverages(std::int32_t averages);

// Sets Averages of a current state for the life of the object and puts the
// caller's value back on every path out.
class AveragesOverride {
public:
    AveragesOverride(InstrumentState& state, std::int32_t averages)
        : state_(state), saved_(state.Averages) {
        state_.Averages = averages;
    }
    ~AveragesOverride() { state_.Averages = saved_; }
    AveragesOverride(const AveragesOverride&) = delete;
    AveragesOverride& operator=(const AveragesOverride&) = delete;

private:
    InstrumentState& state_;
    std::int32_t saved_;
};

}  // namespace qv
