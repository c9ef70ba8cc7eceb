// What arrives at a simulated sensor's RF input and what the sensor makes of it:
// the signal (CW, a pulse train or bursts with their edges, overshoot and droop,
// optional Gaussian noise, its carrier frequency), the 512-byte measurement blocks
// and the sweep packets the sensor samples from it through its detector. Pure
// functions of their arguments: a block or packet depends only on the signal, the
// detector, the temperature and the time of its first sample, so any of them can be
// made again.
#ifndef QVSIM_SIGNAL_MODEL_H
#define QVSIM_SIGNAL_MODEL_H

#include <cstdint>

#include "detector_model.h"

namespace qvsim {

inline constexpr int kBlockBytes = 512;
inline constexpr int kSamplesPerBlock = 126;
inline constexpr std::uint64_t kSampleIntervalNs = 2000;
inline constexpr std::uint64_t kBlockSamplingNs = kSamplesPerBlock * kSampleIntervalNs;  // 252 us

inline constexpr std::int32_t kSignalCw = 0;
inline constexpr std::int32_t kSignalPulse = 1;
inline constexpr std::int32_t kSignalBurst = 2;

// Equivalent-time sweeps: a packet's samples are 2 us apart, and its first sample
// lies (packet phase) / 96 of that interval after the sweep's trigger.
inline constexpr int kSweepPhases = 96;

// Stored in the bus file, so plain fields only.
struct SignalModel {
    std::int32_t kind;      // kSignalCw or kSignalPulse
    std::uint32_t seed;     // noise sequence
    double cwDbm;
    double periodUs;        // pulse train
    double widthUs;
    double onDbm;
    double offDbm;
    double noiseDb;         // standard deviation of each sample's power; 0: none
    double freqHz;          // carrier frequency the detector sees
    // Shape of pulses and bursts: 10 %..90 % edge times of a ramp linear in watts,
    // the top's overshoot (a bump after the rise that peaks tau = max(rise / 2,
    // 0.05 us) after it, x/tau e^(1 - x/tau)), its droop in dB, linear across the
    // width, and where a burst starts in its period.
    double riseUs;
    double fallUs;
    double overshootDb;
    double droopDb;
    double startUs;
};
static_assert(sizeof(SignalModel) == 104, "bus file layout");

// CW at 0 dBm, 1 GHz, no noise.
SignalModel DefaultSignal();

// Input power in dBm at time timeNs (model time), without noise. Pulses and bursts
// are on from their 50 % rising point (the period's start, or startUs into it for
// a burst) to their 50 % falling point widthUs later.
double SignalPowerDbm(const SignalModel& signal, std::uint64_t timeNs);
double SignalPowerAtNs(const SignalModel& signal, double timeNs);

// The first time at or after fromNs where the noiseless power crosses levelDbm
// upwards (rising) or downwards; negative when it never does.
double NextLevelCrossingNs(const SignalModel& signal, double fromNs, double levelDbm, bool rising);

// The noise in dB added to sample number `sample`: Gaussian, standard deviation
// noiseDb, a fixed function of the seed and the sample number.
double SampleNoiseDb(const SignalModel& signal, std::uint64_t sample);

// One measurement block whose first sample is taken at startNs: temperature counts
// of both paths first and last, 126 samples of both paths between, all 16-bit
// little-endian, counts rounded and held within the ADC's 0..65535.
void FillMeasurementBlock(const DetectorModel& detector, const SignalModel& signal, double temperature,
                          std::uint64_t startNs, std::uint8_t* block);

// Bytes [offset, offset + length) of a sweep packet of packetBytes bytes whose
// trigger came at startNs: ls and hs temperature counts, then for each sample k the
// ls and hs counts of the signal at startNs + (phase / 96 + k) x 2 us, then 4 unused
// (zero) bytes; 16-bit little-endian. Noise is drawn per packet and sample.
struct SweepPacket {
    std::uint64_t startNs;
    int phase;  // 0..95
    std::uint32_t packetBytes;
};
void FillSweepBytes(const DetectorModel& detector, const SignalModel& signal, double temperature,
                    const SweepPacket& packet, std::uint32_t offset, std::uint8_t* out, std::uint32_t length);

}  // namespace qvsim

#endif
