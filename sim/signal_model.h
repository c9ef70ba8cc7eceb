// What arrives at a simulated sensor's RF input and what the sensor makes of it:
// the signal (CW or a pulse train, optional Gaussian noise, its carrier frequency)
// and the 512-byte measurement blocks the sensor samples from it through its
// detector. Pure functions of their arguments: a block depends only on the signal,
// the detector, the temperature and the time of its first sample, so any block can
// be made again.
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
};
static_assert(sizeof(SignalModel) == 64, "bus file layout");

// CW at 0 dBm, 1 GHz, no noise.
SignalModel DefaultSignal();

// Input power in dBm at time timeNs (model time), without noise.
double SignalPowerDbm(const SignalModel& signal, std::uint64_t timeNs);

// The noise in dB added to sample number `sample`: Gaussian, standard deviation
// noiseDb, a fixed function of the seed and the sample number.
double SampleNoiseDb(const SignalModel& signal, std::uint64_t sample);

// One measurement block whose first sample is taken at startNs: temperature counts
// of both paths first and last, 126 samples of both paths between, all 16-bit
// little-endian, counts rounded and held within the ADC's 0..65535.
void FillMeasurementBlock(const DetectorModel& detector, const SignalModel& signal, double temperature,
                          std::uint64_t startNs, std::uint8_t* block);

}  // namespace qvsim

#endif
