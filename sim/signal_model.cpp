#include "signal_model.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qvsim {

namespace {

constexpr double kPi = 3.14159265358979323846;

// A counter-based generator: the draw for (seed, n) needs no state, so a block
// can be made again, or skipped, without disturbing the others.
std::uint64_t Mix(std::uint64_t z) {
    z += 0x9E3779B97F4A7C15ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

double Uniform01(std::uint64_t bits) { return (static_cast<double>(bits >> 11) + 0.5) * 0x1.0p-53; }

void PutCount(std::uint8_t* at, double count) {
    const long value = std::lround(std::clamp(count, 0.0, 65535.0));
    at[0] = static_cast<std::uint8_t>(value & 0xFF);
    at[1] = static_cast<std::uint8_t>(value >> 8);
}

}  // namespace

SignalModel DefaultSignal() {
    SignalModel signal{};
    signal.kind = kSignalCw;
    signal.cwDbm = 0.0;
    signal.periodUs = 1000.0;
    signal.widthUs = 100.0;
    signal.onDbm = 0.0;
    signal.offDbm = -60.0;
    signal.freqHz = 1.0e9;
    return signal;
}

double SignalPowerDbm(const SignalModel& signal, std::uint64_t timeNs) {
    if (signal.kind != kSignalPulse) return signal.cwDbm;
    const double phaseUs = std::fmod(static_cast<double>(timeNs) / 1000.0, signal.periodUs);
    return phaseUs < signal.widthUs ? signal.onDbm : signal.offDbm;
}

double SampleNoiseDb(const SignalModel& signal, std::uint64_t sample) {
    if (signal.noiseDb <= 0.0) return 0.0;
    // Box-Muller from two independent draws of this sample.
    const std::uint64_t key = Mix(static_cast<std::uint64_t>(signal.seed) << 32 ^ 0x5157534Eull) ^ (sample * 2);
    const double u1 = Uniform01(Mix(key));
    const double u2 = Uniform01(Mix(key + 1));
    return signal.noiseDb * std::sqrt(-2.0 * std::log(u1)) * std::cos(2.0 * kPi * u2);
}

void FillMeasurementBlock(const DetectorModel& detector, const SignalModel& signal, double temperature,
                          std::uint64_t startNs, std::uint8_t* block) {
    // The sensor reads its temperature before and after the samples; it does not
    // change within 252 us.
    for (int offset : {0, 508}) {
        PutCount(block + offset, temperature);
        PutCount(block + offset + 2, temperature);
    }
    const std::uint64_t firstSample = startNs / kSampleIntervalNs;
    // Without noise a block holds one or two powers: each is put through the
    // detector once, which keeps a streaming block far below its 252 us.
    double lastDbm = std::numeric_limits<double>::quiet_NaN(), ls = 0.0, hs = 0.0;
    for (int k = 0; k < kSamplesPerBlock; ++k) {
        const std::uint64_t timeNs = startNs + static_cast<std::uint64_t>(k) * kSampleIntervalNs;
        // Noise belongs to the signal, so both paths see the same sample power.
        const double dbm = SignalPowerDbm(signal, timeNs) + SampleNoiseDb(signal, firstSample + k);
        if (dbm != lastDbm) {
            ls = DetectorCount(detector, kPathLs, dbm, signal.freqHz, temperature);
            hs = DetectorCount(detector, kPathHs, dbm, signal.freqHz, temperature);
            lastDbm = dbm;
        }
        PutCount(block + 4 + 4 * k, ls);
        PutCount(block + 6 + 4 * k, hs);
    }
}

}  // namespace qvsim
