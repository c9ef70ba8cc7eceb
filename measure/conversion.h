// From raw detector counts to power: splitting the sensor's 512-byte blocks,
// the count-to-dBm conversion of each detector path through one temperature
// row, and the merge of the two paths across the crossover band.
//
// This is the hot path of every reading: it works in place on the slot's own
// buffers and allocates nothing. Nothing here locks or talks to the sensor.
#pragma once

#include <cmath>
#include <cstdint>

#include "frame/shared_table.h"

namespace qv {

inline constexpr std::int32_t kBlockBytes = 512;
inline constexpr std::int32_t kSamplesPerBlock = 126;
// Temperature counts per path and block: one at each end.
inline constexpr std::int32_t kTempCountsPerBlock = 2;

// Splits the n = byteCount / 512 whole blocks of `raw` into the four arrays
// (temperature counts of the ls and hs paths, power counts of ls and hs) as
// floating-point counts. Each in/out count gives the room of its array and
// must be at least the need (2n, 2n, 126n, 126n), else -1 and nothing is
// written. On success the counts become 2n, 2n, 126n, 126n and 126n is
// returned.
std::int32_t ParseRawBlocks(const std::uint8_t* raw, std::int32_t byteCount, double* loTmpCnt,
                            double* hiTmpCnt, double* loPwrCnt, double* hiPwrCnt,
                            std::int32_t* loTmpCount, std::int32_t* hiTmpCount,
                            std::int32_t* loPwrCount, std::int32_t* hiPwrCount);

// The mean of n temperature counts; 0 for none (below every row).
double MeanTemperature(const double* counts, std::int32_t n);

// Replaces each of the n power counts in `values` by its dBm value through the
// 26 segment entries of one path of a temperature row: the blend of the
// sample's segment line with the next one, clamped to -200..26 dBm. With
// `capBelowLowest` (the CW measurement's hs path) a count beyond the lowest
// calibrated level takes the first segment's line, held at the second level.
void ConvertCounts(const CalSegment* entries, double* values, std::int32_t n, bool capBelowLowest);

// Converts both paths of the slot's n parsed blocks in place, each through the
// temperature row of its own mean temperature count (a temperature beyond the
// table takes the row at that end).
void ConvertSlotSamples(std::int32_t slot, std::int32_t blocks, bool capBelowLowest);

// The CW reading in dBm of the slot's n parsed blocks: both paths converted
// (hs with its cap below the lowest level), merged sample by sample and
// averaged in watts; class P models add their share of the peak.
double ConvertAndMergeCW(std::int32_t slot, std::int32_t blocks);

// The crossover band of the two paths, in dBm and in watts.
struct CrossoverBand {
    double lower;
    double upper;
    double lowerW;
    double upperW;
};
CrossoverBand MakeCrossoverBand(double lower, double upper);
// The slot's band at its measurement frequency.
CrossoverBand SlotCrossoverBand(std::int32_t slot);

// How the merge treats an ls sample in the band with an hs sample above it.
enum class AboveBandHs {
    kBlend,  // class S: 5 % hs, 95 % ls in watts
    kTakeHs  // class P models, and every pulse measurement
};

// Class P (the models whose merge keeps hs above the band and adds a peak share).
bool IsClassP(std::int32_t modelIndex);

// One sample's power in dBm from its hs value h and ls value l.
double MergeSample(double h, double l, const CrossoverBand& band, AboveBandHs rule);

// The mean in watts of the merged powers of n sample pairs.
double MergedMeanWatts(const double* hs, const double* ls, std::int32_t n,
                       const CrossoverBand& band, AboveBandHs rule);

// Samples of one path above a threshold: how many, in how many runs of
// consecutive samples, and their powers summed in watts.
struct SamplesAbove {
    std::int32_t count;
    std::int32_t runs;
    double sumW;
};
// The watts are summed only when asked for; `histogram` (may be null) gets 1
// added to the bin of each such sample.
SamplesAbove CountSamplesAbove(const double* values, std::int32_t n, double threshold,
                               bool sumWatts, float* histogram);

// The largest of n values, starting from -9999.0.
double LargestValue(const double* values, std::int32_t n);

// k, the number of peak-sized samples a reading's average is given for its
// pulses: runs when there are as many runs as samples above, else the integer
// part of runs x ((runs / 2) / above).
std::int32_t PeakShareSamples(std::int32_t runs, std::int32_t above);

// 10 log10 of the mean with k peak-sized samples' share of 0.08 added:
// ((samples x meanW + k x 0.08 x peakW) / samples) in dBm.
double WithPeakShare(double meanW, std::int32_t samples, std::int32_t k, double peakDbm);

// Bin of a dBm value in a pulse histogram (10,000 bins of 0.01 dB from -70 dBm)
// and the centre of a bin.
std::int32_t HistogramBin(double dbm);
double HistogramBinCentre(std::int32_t bin);

// 0.001 x 10^(x/10) in watts, by exp: equal to pow's to rounding and about
// three times cheaper (every sample of a reading goes through it).
inline double DbmToWatts(double dbm) { return 0.001 * std::exp(dbm * 0.23025850929940458); }
inline double WattsToDbm(double w) { return 10.0 * std::log10(w / 0.001); }

}  // namespace qv
