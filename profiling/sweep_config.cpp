#include "profiling/sweep_config.h"

#include <array>
#include <cmath>

namespace qv {

namespace {

// Sweep time, packets and packet bytes of each row; every other column follows.
struct RowShape {
    std::int32_t sweepTimeUsec;
    std::int32_t packets;
    std::int32_t packetBytes;
};

constexpr RowShape kRowShapes[kSweepRows] = {
    {10, 96, 512},          {20, 96, 512},           {50, 96, 512},
    {100, 96, 512},         {200, 96, 512},          {500, 48, 1024},
    {1000, 24, 2048},       {2000, 24, 4096},        {5000, 24, 10240},
    {10000, 24, 20480},     {20000, 12, 40448},      {50000, 6, 100352},
    {100000, 2, 200192},    {200000, 1, 400384},     {500000, 1, 1000448},
    {1000000, 1, 2000384},  {1200, 96, 2560},        {5200, 96, 10752},
    {10200, 96, 20480},     {10500, 48, 20992},      {20000, 24, 40448},
    {30000, 12, 60416},     {50000, 6, 120320},      {100000, 1, 200192},
    {200000, 1, 400384},    {500000, 1, 1000448},    {1000000, 1, 2000384},
    {2000000, 1, 4000768},
};

// pi cut after its twelfth decimal place, as the sensor's filter was designed with.
constexpr double kFilterPi = 3.141592653589;

constexpr double kFilterBandwidthsHz[kFilterSets] = {100e3, 100e3, 200e3, 300e3, 500e3,
                                                     1e6,   2e6,   3e6,   5e6,   10e6};

std::array<SweepConfig, kSweepRows> BuildSweepConfigTable() {
    std::array<SweepConfig, kSweepRows> table {};
    for (int row = 0; row < kSweepRows; ++row) {
        const RowShape& s = kRowShapes[row];
        SweepConfig& c = table[row];
        c.sweepTimeUsec = s.sweepTimeUsec;
        c.packets = s.packets;
        c.packetBytes = s.packetBytes;
        c.totalBytes = s.packets * s.packetBytes;
        c.samplesPerPacket = (s.packetBytes - 8) / 4;
        c.commandValue = (s.packetBytes - 8) / 2;
        c.commandBytes[0] = static_cast<std::uint8_t>((c.commandValue >> 16) & 0xFF);
        c.commandBytes[1] = static_cast<std::uint8_t>((c.commandValue >> 8) & 0xFF);
        c.commandBytes[2] = static_cast<std::uint8_t>(c.commandValue & 0xFF);
        const std::int32_t halfTime = s.sweepTimeUsec / 2;
        const std::int32_t length =
            (row < kUserSweepRows ? halfTime : halfTime + 1) * s.packets;
        c.traceLength = length < 10000 ? length : 10000;
        c.samplesPerUsec = s.packets * kBaseSamplesPerUsec;
        if (row < kUserSweepRows) {
            for (int set = 0; set < kFilterSets; ++set)
                c.filters[set] = ComputeFilterCoefficients(kFilterBandwidthsHz[set],
                                                           c.sweepTimeUsec, c.traceLength);
        }
    }
    return table;
}

// Built while the library is loaded, in every process that loads it (the
// library's static initialisation, the same on every platform): nothing but
// arithmetic, so it is safe wherever the loader runs it, and no call can see
// the table half built. Nothing reads it during static initialisation.
const std::array<SweepConfig, kSweepRows> kSweepConfigTable = BuildSweepConfigTable();

}  // namespace

const SweepConfig& SweepConfigRow(int row) { return kSweepConfigTable[row]; }

double FilterSetBandwidthHz(int set) { return kFilterBandwidthsHz[set]; }

FilterCoefficients ComputeFilterCoefficients(double bandwidthHz, std::int32_t sweepTimeUsec,
                                             std::int32_t traceLength) {
    const double dt = sweepTimeUsec * 1e-6 / traceLength;
    const double tau = bandwidthHz <= 1.0 ? 1.0 : 1.0 / (2.0 * kFilterPi * bandwidthHz);
    const double b = std::exp(-dt / tau);
    const double a = 1.0 - b;
    FilterCoefficients f {};
    f.bandwidthHz = bandwidthHz;
    f.onePole[0] = a;
    f.onePole[1] = b;
    f.twoPole[0] = a * a;
    f.twoPole[1] = 2.0 * b;
    f.twoPole[2] = -b * b;
    f.fourPole[0] = a * a * a * a;
    f.fourPole[1] = 4.0 * b;
    f.fourPole[2] = -6.0 * b * b;
    f.fourPole[3] = 4.0 * b * b * b;
    f.fourPole[4] = -b * b * b * b;
    return f;
}

}  // namespace qv
