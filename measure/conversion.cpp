#include "measure/conversion.h"

#include <algorithm>

#include "calibration/cal_tables.h"

namespace qv {

namespace {

constexpr double kHighestPower = 26.0;   // dBm
constexpr double kLowestPower = -200.0;  // dBm
constexpr double kPeakShareWeight = 0.08;
constexpr double kHistogramFloor = -70.0;  // dBm
constexpr double kHistogramCeiling = 25.0;
constexpr double kHistogramBinWidth = 0.01;  // dB

std::uint16_t Word(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] | p[1] << 8);  // least significant byte first
}

// Segment j of count q: the first entry whose count lies below q, less one,
// held within 0..24 (beyond the lowest level: 0; beyond the highest: 24).
std::int32_t FindSegment(const CalSegment* e, double q) {
    std::int32_t first = kCalLevels;
    for (std::int32_t j = 0; j < kCalLevels; ++j) {
        if (e[j].count < q) {
            first = j;
            break;
        }
    }
    return std::clamp(first - 1, 0, kCalLevels - 2);
}

}  // namespace

std::int32_t ParseRawBlocks(const std::uint8_t* raw, std::int32_t byteCount, double* loTmpCnt,
                            double* hiTmpCnt, double* loPwrCnt, double* hiPwrCnt,
                            std::int32_t* loTmpCount, std::int32_t* hiTmpCount,
                            std::int32_t* loPwrCount, std::int32_t* hiPwrCount) {
    if (!raw || !loTmpCnt || !hiTmpCnt || !loPwrCnt || !hiPwrCnt || !loTmpCount || !hiTmpCount ||
        !loPwrCount || !hiPwrCount || byteCount < 0)
        return -1;
    const std::int32_t n = byteCount / kBlockBytes;
    const std::int32_t temps = kTempCountsPerBlock * n;
    const std::int32_t samples = kSamplesPerBlock * n;
    if (*loTmpCount < temps || *hiTmpCount < temps || *loPwrCount < samples ||
        *hiPwrCount < samples)
        return -1;
    for (std::int32_t k = 0; k < n; ++k) {
        const std::uint8_t* block = raw + static_cast<std::ptrdiff_t>(kBlockBytes) * k;
        loTmpCnt[2 * k] = Word(block + 0);
        hiTmpCnt[2 * k] = Word(block + 2);
        loTmpCnt[2 * k + 1] = Word(block + 508);
        hiTmpCnt[2 * k + 1] = Word(block + 510);
        double* lo = loPwrCnt + kSamplesPerBlock * k;
        double* hi = hiPwrCnt + kSamplesPerBlock * k;
        for (std::int32_t i = 0; i < kSamplesPerBlock; ++i) {
            lo[i] = Word(block + 4 + 4 * i);
            hi[i] = Word(block + 6 + 4 * i);
        }
    }
    *loTmpCount = *hiTmpCount = temps;
    *loPwrCount = *hiPwrCount = samples;
    return samples;
}

double MeanTemperature(const double* counts, std::int32_t n) {
    if (n < 1) return 0.0;
    double sum = 0.0;
    for (std::int32_t i = 0; i < n; ++i) sum += counts[i];
    return sum / n;
}

void ConvertCounts(const CalSegment* e, double* values, std::int32_t n, bool capBelowLowest) {
    // Counts beyond either end of the table find their segment without a
    // search: beyond the lowest level's count it is 0, below every count 24.
    double smallestCount = e[0].count;
    for (std::int32_t k = 1; k < kCalLevels; ++k) smallestCount = std::min(smallestCount, e[k].count);
    std::int32_t j = -1;  // the first sample searches its segment
    for (std::int32_t i = 0; i < n; ++i) {
        const double q = values[i];
        // A count strictly inside the previous sample's segment keeps it.
        if (j >= 0 && q < e[j].count && q > e[j + 1].count) {
        } else if (q > e[0].count) {
            j = 0;
        } else if (q < smallestCount) {
            j = kCalLevels - 2;
        } else {
            j = FindSegment(e, q);
        }
        const double loADC = e[j].count;      // count at the segment's lower level
        const double hiADC = e[j + 1].count;  // count at its upper level
        double w;
        if (hiADC < loADC) {
            w = q >= loADC ? 1.0 : q <= hiADC ? 0.0 : (q - hiADC) / (loADC - hiADC);
        } else {
            w = q > loADC ? 0.0 : 1.0;
        }
        double p = w * (e[j].slope * q + e[j].intercept) +
                   (1.0 - w) * (e[j + 1].slope * q + e[j + 1].intercept);
        if (capBelowLowest && q > e[0].count) p = std::min(e[0].slope * q + e[0].intercept, e[1].level);
        values[i] = std::clamp(p, kLowestPower, kHighestPower);
    }
}

void ConvertSlotSamples(std::int32_t slot, std::int32_t blocks, bool capBelowLowest) {
    DeviceRecord& r = Slot(slot);
    SampleBuffers& b = r.samples;
    const std::int32_t temps = kTempCountsPerBlock * blocks;
    const std::int32_t samples = kSamplesPerBlock * blocks;
    const double hiT = MeanTemperature(b.hiTmpCnt, temps);
    const double loT = MeanTemperature(b.loTmpCnt, temps);
    r.currentCal.lastTemperature[0] = hiT;
    r.currentCal.lastTemperature[1] = loT;
    // A sensor colder or warmer than the table is measured with its end row.
    const CalTempRow& hiRow = r.tempRows[ClampTempRow(TempRowIndex(slot, hiT))];
    const CalTempRow& loRow = r.tempRows[ClampTempRow(TempRowIndex(slot, loT))];
    ConvertCounts(hiRow.hs, b.hiPwrCnt, samples, capBelowLowest);
    ConvertCounts(loRow.ls, b.loPwrCnt, samples, false);
}

CrossoverBand MakeCrossoverBand(double lower, double upper) {
    return {lower, upper, DbmToWatts(lower), DbmToWatts(upper)};
}

CrossoverBand SlotCrossoverBand(std::int32_t slot) {
    double hsLower = -30.0, hsUpper = -20.0, lsLower = -30.0, lsUpper = -20.0;
    CrossoverBounds(slot, Slot(slot).current.Freq, &hsLower, &hsUpper, &lsLower, &lsUpper);
    return MakeCrossoverBand(hsLower, hsUpper);
}

bool IsClassP(std::int32_t model) {
    switch (model) {
        case 0: case 1: case 2: case 3: case 7: case 8: case 66: case 67: case 68: case 71:
        case 76: case 77: case 78: case 81: case 95: case 101: case 102: case 103: case 104:
        case 110: case 111: case 112: case 113:
            return true;
        default:
            return false;
    }
}

namespace {

// The merge in watts; the table's cases by a (ls) + b (hs).
inline double MergeWatts(double h, double l, const CrossoverBand& band, AboveBandHs rule) {
    const int a = l < band.lower ? 0 : l <= band.upper ? 1 : 2;
    const int b = h < band.lower ? 0 : h <= band.upper ? 3 : 6;
    switch (a + b) {
        case 0: case 1: case 3: case 6:
            return DbmToWatts(h);
        case 4: {
            // hs weight falls linearly in watts across the band.
            const double ph = DbmToWatts(h);
            const double wh = (band.upperW - ph) / (band.upperW - band.lowerW);
            return ph * wh + DbmToWatts(l) * (1.0 - wh);
        }
        case 7:
            if (rule == AboveBandHs::kTakeHs) return DbmToWatts(h);
            return 0.05 * DbmToWatts(h) + 0.95 * DbmToWatts(l);
        default:  // 2, 5, 8
            return DbmToWatts(l);
    }
}

}  // namespace

double MergeSample(double h, double l, const CrossoverBand& band, AboveBandHs rule) {
    return WattsToDbm(MergeWatts(h, l, band, rule));
}

double MergedMeanWatts(const double* hs, const double* ls, std::int32_t n,
                       const CrossoverBand& band, AboveBandHs rule) {
    if (n < 1) return 0.0;
    double sum = 0.0;
    for (std::int32_t i = 0; i < n; ++i) sum += MergeWatts(hs[i], ls[i], band, rule);
    return sum / n;
}

SamplesAbove CountSamplesAbove(const double* values, std::int32_t n, double threshold,
                               bool sumWatts, float* histogram) {
    SamplesAbove s {0, 0, 0.0};
    bool inRun = false;
    for (std::int32_t i = 0; i < n; ++i) {
        const double v = values[i];
        if (v > threshold) {
            ++s.count;
            if (!inRun) ++s.runs;
            inRun = true;
            if (sumWatts) s.sumW += DbmToWatts(v);
            if (histogram) histogram[HistogramBin(v)] += 1.0f;
        } else {
            inRun = false;
        }
    }
    return s;
}

double LargestValue(const double* values, std::int32_t n) {
    double largest = -9999.0;
    for (std::int32_t i = 0; i < n; ++i) largest = std::max(largest, values[i]);
    return largest;
}

std::int32_t PeakShareSamples(std::int32_t runs, std::int32_t above) {
    if (runs >= above) return runs;
    // In floating point, truncated at the end: in integers runs / 2 / above
    // would vanish whenever there are more samples than runs.
    const double share = runs * ((runs / 2.0) / above);
    return static_cast<std::int32_t>(share);
}

double WithPeakShare(double meanW, std::int32_t samples, std::int32_t k, double peakDbm) {
    const double total = samples * meanW + k * kPeakShareWeight * DbmToWatts(peakDbm);
    return WattsToDbm(total / samples);
}

std::int32_t HistogramBin(double dbm) {
    if (std::isnan(dbm)) return 0;
    const double held = std::min(std::max(dbm, kHistogramFloor), kHistogramCeiling);
    const auto bin = static_cast<std::int32_t>((held - kHistogramFloor) / kHistogramBinWidth);
    return std::clamp(bin, 0, kHistogramBins - 1);
}

double HistogramBinCentre(std::int32_t bin) {
    bin = std::clamp(bin, 0, kHistogramBins - 1);
    return kHistogramFloor + kHistogramBinWidth * bin + kHistogramBinWidth / 2.0;
}

double ConvertAndMergeCW(std::int32_t slot, std::int32_t n) {
    DeviceRecord& r = Slot(slot);
    SampleBuffers& b = r.samples;
    const std::int32_t samples = kSamplesPerBlock * n;
    ConvertSlotSamples(slot, n, true);
    const CrossoverBand band = SlotCrossoverBand(slot);
    const bool classP = IsClassP(r.identity.ModelIndex);
    const double meanW = MergedMeanWatts(b.hiPwrCnt, b.loPwrCnt, samples, band,
                                         classP ? AboveBandHs::kTakeHs : AboveBandHs::kBlend);
    if (!classP) return WattsToDbm(meanW);
    // Class P: pulses would be under-read by the mean alone; add a share of the peak.
    double maxH = LargestValue(b.hiPwrCnt, samples);
    const double maxL = LargestValue(b.loPwrCnt, samples);
    if (maxH <= -100.0) maxH = -70.0;
    const SamplesAbove hs =
        CountSamplesAbove(b.hiPwrCnt, samples, maxH - r.current.PulseCriteria_DB, false, nullptr);
    const SamplesAbove ls = CountSamplesAbove(b.loPwrCnt, samples, 0.0, false, nullptr);
    const std::int32_t k =
        PeakShareSamples(std::max(hs.runs, ls.runs), std::max(hs.count, ls.count));
    const double peak = MergeSample(maxH, maxL, band, AboveBandHs::kTakeHs);
    return WithPeakShare(meanW, samples, k, peak);
}

}  // namespace qv
