#include "signal_model.h"

#include <algorithm>
#include <cmath>
#include <cstring>
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

double SignalPowerAtNs(const SignalModel& signal, double timeNs) {
    if (signal.kind != kSignalPulse && signal.kind != kSignalBurst) return signal.cwDbm;
    const double period = signal.periodUs, width = signal.widthUs;
    const double firstUs = signal.kind == kSignalBurst ? signal.startUs : 0.0;
    double u = std::fmod(timeNs / 1000.0 - firstUs, period);
    if (u < 0.0) u += period;
    // d: time from the 50 % rising point, negative in the half of the gap before it.
    const double d = u <= width + (period - width) / 2.0 ? u : u - period;
    // Full ramp lengths whose 10 %..90 % part takes the edge time.
    const double riseRamp = signal.riseUs / 0.8, fallRamp = signal.fallUs / 0.8;
    const double rising = riseRamp > 0.0 ? std::clamp(0.5 + d / riseRamp, 0.0, 1.0) : (d >= 0.0 ? 1.0 : 0.0);
    const double falling =
        fallRamp > 0.0 ? std::clamp(0.5 - (d - width) / fallRamp, 0.0, 1.0) : (d < width ? 1.0 : 0.0);
    const double fraction = std::min(rising, falling);
    if (fraction <= 0.0) return signal.offDbm;
    double topDbm = signal.onDbm;
    if (width > 0.0) topDbm -= signal.droopDb * std::clamp(d / width, 0.0, 1.0);
    const double afterRiseUs = d - riseRamp / 2.0;
    if (signal.overshootDb > 0.0 && afterRiseUs > 0.0) {
        // A bump that starts once the rise is complete (so the edge times hold against
        // the on power) and peaks at the overshoot tau later.
        const double tauUs = std::max(signal.riseUs / 2.0, 0.05);
        topDbm += signal.overshootDb * (afterRiseUs / tauUs) * std::exp(1.0 - afterRiseUs / tauUs);
    }
    if (fraction >= 1.0) return topDbm;
    const double offW = std::pow(10.0, signal.offDbm / 10.0), topW = std::pow(10.0, topDbm / 10.0);
    return 10.0 * std::log10(offW + fraction * (topW - offW));
}

double SignalPowerDbm(const SignalModel& signal, std::uint64_t timeNs) {
    return SignalPowerAtNs(signal, static_cast<double>(timeNs));
}

double NextLevelCrossingNs(const SignalModel& signal, double fromNs, double levelDbm, bool rising) {
    if (signal.kind != kSignalPulse && signal.kind != kSignalBurst) return -1.0;
    // The signal repeats, so one period holds its first crossing if it has one. Scan
    // it in steps finer than its shortest feature, then close in on the change.
    const double periodNs = signal.periodUs * 1000.0;
    const double shortestNs = std::max(std::min(signal.widthUs, signal.periodUs - signal.widthUs) * 1000.0, 1.0);
    const double steps = std::clamp(std::ceil(periodNs / shortestNs) * 8.0, 4096.0, 1.0e6);
    const double stepNs = periodNs / steps;
    const auto above = [&](double t) { return SignalPowerAtNs(signal, t) > levelDbm; };
    bool was = above(fromNs);
    for (double i = 1.0; i <= steps + 1.0; i += 1.0) {
        const double t = fromNs + i * stepNs;
        const bool now = above(t);
        if (now != was && now == rising) {
            double lo = t - stepNs, hi = t;
            for (int k = 0; k < 60 && hi - lo > 1e-3; ++k) {
                const double mid = (lo + hi) / 2.0;
                (above(mid) == rising ? hi : lo) = mid;
            }
            return hi;
        }
        was = now;
    }
    return -1.0;
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


void FillSweepBytes(const DetectorModel& detector, const SignalModel& signal, double temperature,
                    const SweepPacket& packet, std::uint32_t offset, std::uint8_t* out, std::uint32_t length) {
    const std::uint32_t samples = (packet.packetBytes - 8) / 4;
    const double firstNs = static_cast<double>(packet.startNs) +
                           static_cast<double>(packet.phase) * static_cast<double>(kSampleIntervalNs) / kSweepPhases;
    // Each repetition of the sweep has noise of its own.
    const std::uint64_t noiseBase = Mix(packet.startNs * kSweepPhases + static_cast<std::uint64_t>(packet.phase));
    double lastDbm = std::numeric_limits<double>::quiet_NaN(), ls = 0.0, hs = 0.0;
    std::uint8_t group[4];
    // The packet in 4-byte groups: temperatures, the samples, the unused tail.
    for (std::uint32_t g = offset / 4; g * 4 < offset + length; ++g) {
        if (g == 0) {
            PutCount(group, temperature);
            PutCount(group + 2, temperature);
        } else if (g <= samples) {
            const std::uint32_t k = g - 1;
            const double dbm = SignalPowerAtNs(signal, firstNs + static_cast<double>(k) * kSampleIntervalNs) +
                               SampleNoiseDb(signal, noiseBase + k);
            if (dbm != lastDbm) {
                ls = DetectorCount(detector, kPathLs, dbm, signal.freqHz, temperature);
                hs = DetectorCount(detector, kPathHs, dbm, signal.freqHz, temperature);
                lastDbm = dbm;
            }
            PutCount(group, ls);
            PutCount(group + 2, hs);
        } else {
            std::memset(group, 0, sizeof group);
        }
        for (std::uint32_t i = 0; i < 4; ++i) {
            const std::uint32_t at = g * 4 + i;
            if (at >= offset && at < offset + length) out[at - offset] = group[i];
        }
    }
}

}  // namespace qvsim
