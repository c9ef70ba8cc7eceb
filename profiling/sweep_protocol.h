// The sweep exchange with a trace-capable sensor: the sweep command, the
// packet reads from pipe 0x82, the split of the interleaved packets into the
// two detector paths, and the trigger preparation that runs before every
// sweep (internal-level ADC thresholds, automatic trigger level, sending the
// thresholds). All of it runs under the lock, inside a trace acquisition.
#pragma once

#include <cstdint>

#include "frame/shared_table.h"
#include "profiling/sweep_config.h"

namespace qv {

inline constexpr std::int32_t kMaxPipePiece = 65536;   // bytes per pipe read
inline constexpr std::uint8_t kTraceDataPipe = 0x82;

enum class SweepForm { kTriggered, kFreeRunning };

// The mode byte of request 177 for the trigger settings `t`.
std::uint8_t SweepModeByte(const TraceSettings& t, SweepForm form);

// 179 and 187, the edge request (202/203) with the external trigger, then 177
// with the mode byte and the row's three command-value bytes. The result of 177.
std::int32_t SendSweepCommand(std::int64_t h, const TraceSettings& t, int row, SweepForm form);

// Reads the row's P packets of B bytes into `buffer` (room for the row's
// total): the bytes read, 0 when nothing complete was read.
std::int64_t PacketRead(int slot, int row, std::uint8_t* buffer);
// One packet of the row (B bytes) for the automatic trigger search, on a
// WinUSB handle of its own: B, or 0.
std::int64_t SearchPacketRead(int slot, int row, std::uint8_t* buffer);

// The two temperature readings of a record, averaged over its packets.
struct RecordTemperatures {
    std::int32_t tmpHi;
    std::int32_t tmpLo;
};

// Splits `packets` packets of the row's layout, interleaved (sample k of
// packet p is point k x packets + p), into high-sense and low-sense counts.
// Only the points first .. first + count - 1 are written; points beyond the
// record are 0.0. Gives the averaged temperature readings.
RecordTemperatures SplitPackets(const std::uint8_t* buffer, const SweepConfig& row, int packets,
                                std::int64_t first, std::int64_t count, double* hi, double* lo);
// The same into 16-bit counts, as the conversion of a trace takes them.
RecordTemperatures SplitPackets(const std::uint8_t* buffer, const SweepConfig& row, int packets,
                                std::int64_t first, std::int64_t count, std::uint16_t* hi,
                                std::uint16_t* lo);

// Internal level to ADC thresholds: trgLevelEff, trgAdcHi, trgAdcLo of the slot.
void InternalLevelThresholds(int slot);

struct AutoLevel {
    bool found;
    double level;  // dBm; -80.0 when nothing was found
};
// Searches a trigger level on a short free-running sweep (the search index of
// the slot's settings, whatever `row` the caller is about to sweep) and sets
// trgAdcHi and trgAdcLo when a signal is seen. The slot's sweep index and time
// are the caller's again afterwards.
AutoLevel AutomaticTriggerLevel(int slot, int row);
// The same on one packet already read and split (the search's arithmetic).
AutoLevel AutoLevelFromSamples(int slot, const double* hi, const double* lo, int n,
                               RecordTemperatures temperatures);

// Request 212 for trgAdcLo (selector 3) and then trgAdcHi (selector 2).
void SendThresholds(int slot);

// dBm of `count` through the segment of a temperature row's 26 entries that
// covers it: the first entry from 25 down whose count is above it (entry 0
// when none).
double CountToDbm(const CalSegment (&entries)[kCalLevels], double count);

}  // namespace qv
