// The sweep configuration table: one row per sweep the sensor can run, with
// its packet layout, the command value that starts it, the trace it yields
// and, for the sixteen user sweep times, the trace filter coefficient sets.
//
// The table is constant and the same for every sensor; each process builds
// its own copy once, while the library is being loaded (see sweep_config.cpp).
#pragma once

#include <cstdint>

namespace qv {

inline constexpr int kSweepRows = 28;        // rows 0..15 user sweeps, 16..27 acquisition spans
inline constexpr int kUserSweepRows = 16;
inline constexpr int kFilterSets = 10;       // filter code f uses set f; 9 means no filter
inline constexpr int kNoFilter = 9;
inline constexpr double kBaseSamplesPerUsec = 0.5;  // one ADC sample every 2 us

// b = exp(-dt / tau) of one filter set, with the terms the recursions use.
struct FilterCoefficients {
    double bandwidthHz;
    double onePole[2];   // 1 - b, b
    double twoPole[3];   // (1 - b)^2, 2b, -b^2
    double fourPole[5];  // (1 - b)^4, 4b, -6b^2, 4b^3, -b^4
};

struct SweepConfig {
    std::int32_t sweepTimeUsec;
    std::int32_t packets;           // P, interleaved repetitions
    std::int32_t packetBytes;       // B
    std::int32_t totalBytes;        // P x B
    std::int32_t samplesPerPacket;  // (B - 8) / 4
    std::int32_t commandValue;      // (B - 8) / 2
    std::uint8_t commandBytes[3];   // the command value, most significant byte first
    std::int32_t traceLength;       // points of the trace the row yields (at most 10000)
    double samplesPerUsec;          // equivalent sample rate, P x 0.5
    FilterCoefficients filters[kFilterSets];  // rows 0..15 only; zero elsewhere
};

// Row `row` (0..27) of the table; the caller checks the range.
const SweepConfig& SweepConfigRow(int row);

// Points of the record of `row`: P x samples per packet.
inline std::int32_t RecordPoints(const SweepConfig& c) { return c.packets * c.samplesPerPacket; }

// Bandwidth of filter set `set` (0..9): sets 0 and 1 are 100 kHz, 9 is 10 MHz.
double FilterSetBandwidthHz(int set);

// The coefficients of one filter set for a sweep of `sweepTimeUsec` and a
// trace of `traceLength` points.
FilterCoefficients ComputeFilterCoefficients(double bandwidthHz, std::int32_t sweepTimeUsec,
                                             std::int32_t traceLength);

}  // namespace qv
