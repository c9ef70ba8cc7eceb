// The pulse reading: pulse power (the mean while the pulse is on), peak,
// average and duty cycle, each path on its own, merged across the crossover
// band; large averaging counts split and refined from the shared histograms.
#include <algorithm>
#include <cmath>

#include "device/transport.h"
#include "frame/shared_table.h"
#include "measure/acquisition.h"
#include "measure/conversion.h"
#include "measure/corrections.h"
#include "measure/measure.h"
#include "measure/smoothing.h"
#include "settings/limits.h"
#include "settings/recorder.h"
#include "settings/units.h"

namespace qv {

namespace {

constexpr double kDefaultCriteria = 3.0;  // dB
constexpr double kNoPulse = -70.0;        // dBm of a path with at most one sample on
constexpr double kFailedPower = -999.0;   // dBm, when the trigger output could not be put back
constexpr double kFloorModel1 = -37.0;    // dBm
constexpr std::int32_t kMeasModePulse = 3;
constexpr std::int32_t kMeasModePulseLimits = 4;

// One acquisition's results, per path; the average is the merged one on both.
struct PulseCoreResult {
    double hiPulse, hiPeak, hiAvg, hiDC;
    double loPulse, loPeak, loAvg, loDC;
};

// Pulse, peak and duty cycle of one path from its samples above `criteria`
// below its peak, counted into the path's histogram.
struct PathPulse {
    double pulse;
    double dutyCycle;
    SamplesAbove above;
};

PathPulse AnalysePath(const double* values, std::int32_t samples, double peak, double criteria,
                      float* histogram) {
    PathPulse p {kNoPulse, 0.0, CountSamplesAbove(values, samples, peak - criteria, true, histogram)};
    if (p.above.count > 1) {
        p.pulse = WattsToDbm(p.above.sumW / p.above.count);
        p.dutyCycle = static_cast<double>(p.above.count) / samples;
    }
    return p;
}

// Conversion and analysis of n parsed blocks in the slot's buffers.
PulseCoreResult AnalysePulseBlocks(std::int32_t slot, std::int32_t n, double criteria) {
    SampleBuffers& b = Slot(slot).samples;
    const std::int32_t samples = kSamplesPerBlock * n;
    // Every sample of a pulse is converted on its own segment line: no cap
    // below the lowest hs level.
    ConvertSlotSamples(slot, n, false);
    const CrossoverBand band = SlotCrossoverBand(slot);
    const double rawAverageW =
        MergedMeanWatts(b.hiPwrCnt, b.loPwrCnt, samples, band, AboveBandHs::kTakeHs);

    PulseCoreResult c {};
    c.hiPeak = LargestValue(b.hiPwrCnt, samples);
    c.loPeak = LargestValue(b.loPwrCnt, samples);
    if (c.hiPeak <= -100.0) c.hiPeak = kNoPulse;
    if (c.loPeak <= -70.0) c.loPeak = kNoPulse;
    const PathPulse hi = AnalysePath(b.hiPwrCnt, samples, c.hiPeak, criteria, tableView->histogramHi);
    const PathPulse lo = AnalysePath(b.loPwrCnt, samples, c.loPeak, criteria, tableView->histogramLo);

    const std::int32_t k = PeakShareSamples(std::max(hi.above.runs, lo.above.runs),
                                            std::max(hi.above.count, lo.above.count));
    const double peak = MergeSample(c.hiPeak, c.loPeak, band, AboveBandHs::kTakeHs);
    c.hiAvg = c.loAvg = WithPeakShare(rawAverageW, samples, k, peak);
    c.hiPulse = hi.pulse;
    c.hiDC = hi.dutyCycle;
    c.loPulse = lo.pulse;
    c.loDC = lo.dutyCycle;
    return c;
}

// 1; -1 serial not in the table; -13 the pipe brought nothing; -2 the data
// could not be split.
std::int32_t PulseCore(const char* serial, PulseCoreResult* out, double criteria) {
    const std::int32_t slot = SlotBySerial(serial);
    if (slot == kNoSlot) return -1;
    FollowFrequency(slot);
    DeviceRecord& r = Slot(slot);
    const std::int32_t n = r.current.Averages;
    if (n < 1) return kCoreParseFailed;  // no block to take (only a restored state holds this)
    const std::int32_t acquired = AcquirePulseBlocks(slot, n);
    if (acquired < 1) return acquired;
    SampleBuffers& b = r.samples;
    std::int32_t loTmp = kTempSampleCapacity, hiTmp = kTempSampleCapacity;
    std::int32_t loPwr = kPowerSampleCapacity, hiPwr = kPowerSampleCapacity;
    if (ParseRawBlocks(b.raw, n * kBlockBytes, b.loTmpCnt, b.hiTmpCnt, b.loPwrCnt, b.hiPwrCnt,
                       &loTmp, &hiTmp, &loPwr, &hiPwr) < 0)
        return kCoreParseFailed;
    *out = AnalysePulseBlocks(slot, n, criteria);
    return 1;
}

// A path's pulse power and duty cycle taken again from its histogram, which
// holds every sample above the threshold of every run.
void RefineFromHistogram(const float* histogram, double peak, double criteria,
                         std::int32_t samples, double* pulse, double* dutyCycle) {
    const std::int32_t top = HistogramBin(peak);
    const std::int32_t low = HistogramBin(peak - criteria);
    double hc = 0.0, sw = 0.0;
    for (std::int32_t bin = low; bin <= std::min(top + 1, kHistogramBins - 1); ++bin) {
        hc += histogram[bin];
        sw += histogram[bin] * DbmToWatts(HistogramBinCentre(bin));
    }
    if (hc > 0.0 && sw > 0.0) {
        *pulse = std::min(WattsToDbm(sw / hc), peak);
        *dutyCycle = hc / samples;
    }
}

// Averages above 100: N runs of n' blocks, combined, then refined from the
// histograms (cleared first). Averages is the caller's again on every path out.
std::int32_t AcquireSplitPulse(DeviceRecord& r, double criteria, PulseCoreResult* c) {
    InstrumentState& s = r.current;
    std::fill(std::begin(tableView->histogramHi), std::end(tableView->histogramHi), 0.0f);
    std::fill(std::begin(tableView->histogramLo), std::end(tableView->histogramLo), 0.0f);
    const AveragingSplit split = SplitAverages(s.Averages);
    AveragesOverride runAverages(s, split.blocks);
    PulseCoreResult sum {0.0, -9999.0, 0.0, 0.0, 0.0, -9999.0, 0.0, 0.0};
    for (std::int32_t run = 0; run < split.runs; ++run) {
        PulseCoreResult one {};
        const std::int32_t rc = PulseCore(r.serial, &one, criteria);
        if (rc < 1) return rc;
        sum.hiPulse += DbmToWatts(one.hiPulse);
        sum.loPulse += DbmToWatts(one.loPulse);
        sum.hiAvg += DbmToWatts(one.hiAvg);
        sum.loAvg += DbmToWatts(one.loAvg);
        sum.hiPeak = std::max(sum.hiPeak, one.hiPeak);
        sum.loPeak = std::max(sum.loPeak, one.loPeak);
        sum.hiDC += one.hiDC;
        sum.loDC += one.loDC;
    }
    const double runs = split.runs;
    *c = {WattsToDbm(sum.hiPulse / runs), sum.hiPeak, WattsToDbm(sum.hiAvg / runs), sum.hiDC / runs,
          WattsToDbm(sum.loPulse / runs), sum.loPeak, WattsToDbm(sum.loAvg / runs), sum.loDC / runs};
    const std::int32_t samples = split.blocks * split.runs * kSamplesPerBlock;
    RefineFromHistogram(tableView->histogramHi, c->hiPeak, criteria, samples, &c->hiPulse, &c->hiDC);
    RefineFromHistogram(tableView->histogramLo, c->loPeak, criteria, samples, &c->loPulse, &c->loDC);
    return 1;
}

double Blend(double hiDbm, double loDbm, double w) {
    return WattsToDbm(w * DbmToWatts(hiDbm) + (1.0 - w) * DbmToWatts(loDbm));
}

// hs weight of a blend across the band: falls linearly in watts from 1 at
// its lower edge to 0 at its upper edge.
double HsWeight(double hiDbm, const CrossoverBand& band) {
    return (band.upperW - DbmToWatts(hiDbm)) / (band.upperW - band.lowerW);
}

enum class PathChoice { kHs, kLs, kBlend };

PathChoice Choose(double hi, double lo, const CrossoverBand& band) {
    if (hi < band.lower) return PathChoice::kHs;
    if (lo > band.upper) return PathChoice::kLs;
    if (hi > band.upper || lo < band.lower) return PathChoice::kHs;
    return PathChoice::kBlend;
}

PulseReadings MergePaths(const PulseCoreResult& c, const CrossoverBand& band) {
    PulseReadings out {};
    const double w = HsWeight(c.hiPulse, band);
    switch (Choose(c.hiPulse, c.loPulse, band)) {
        case PathChoice::kHs: out.pulse = c.hiPulse, out.dutyCycle = c.hiDC; break;
        case PathChoice::kLs: out.pulse = c.loPulse, out.dutyCycle = c.loDC; break;
        case PathChoice::kBlend:
            out.pulse = Blend(c.hiPulse, c.loPulse, w);
            out.dutyCycle = w * c.hiDC + (1.0 - w) * c.loDC;
            break;
    }
    switch (Choose(c.hiPeak, c.loPeak, band)) {
        case PathChoice::kHs: out.peak = c.hiPeak; break;
        case PathChoice::kLs: out.peak = c.loPeak; break;
        case PathChoice::kBlend: {
            // An ls peak a little above the hs one gets more weight: the hs
            // path is compressing there.
            double g = 1.0 - HsWeight(c.hiPeak, band);
            const double d = c.loPeak - c.hiPeak;
            if (c.hiPeak < c.loPeak && d >= 0.5 && d <= 5.0) {
                double m = ((1.0 - g) / 4.5) * (d - 0.5) + g;
                if (g == 1.0 || m < 0.0) m = 1.0;
                g *= m;
            }
            out.peak = Blend(c.hiPeak, c.loPeak, 1.0 - g);
            break;
        }
    }
    const int a = c.loAvg < band.lower ? 0 : c.loAvg <= band.upper ? 1 : 2;
    const int b = c.hiAvg < band.lower ? 0 : c.hiAvg <= band.upper ? 3 : 6;
    switch (a + b) {
        case 0:
            // Both averages below the band, yet a peak above it: the pulse
            // is on the ls path, and the average follows from its duty cycle.
            // (No duty cycle at all leaves the hs average.)
            out.average = (out.peak <= band.upper || !(out.dutyCycle > 0.0))
                              ? c.hiAvg
                              : out.peak + 10.0 * std::log10(out.dutyCycle);
            break;
        case 4: out.average = Blend(c.hiAvg, c.loAvg, w); break;
        case 3: case 6: case 7: out.average = c.hiAvg; break;
        default: out.average = c.loAvg; break;  // 1, 2, 5, 8
    }
    return out;
}

// Floor, 75 ohm, offset, frequency response and unit of the three powers.
void CorrectPulse(std::int32_t slot, PulseReadings& p) {
    const DeviceRecord& r = Slot(slot);
    const InstrumentState& s = r.current;
    if (r.identity.ModelIndex == 1) {
        if (p.pulse < kFloorModel1) p.pulse = kFloorModel1, p.dutyCycle = 1.0;
        p.peak = std::max(p.peak, kFloorModel1);
        p.average = std::max(p.average, kFloorModel1);
    }
    double add = 0.0;
    if (s.Enabled75Ohms == 1) add += 5.72;  // whatever the unit
    if (s.OffsetEnabled == 1) add += s.Offset_DB;
    if (s.ResponseEnabled == 1) add += ResponseCorrection(slot, s.Freq);
    p.pulse += add;
    p.peak += add;
    p.average += add;
    if (s.PowerUnits == QV_UNIT_DB_REL) {
        p.pulse -= UnitsToDbm(s.PlsRefPulse, s.PulseRefUnits);
        p.peak -= UnitsToDbm(s.PlsRefPeak, s.PulseRefUnits);
        p.average -= UnitsToDbm(s.PlsRefAvg, s.PulseRefUnits);
        p.dutyCycle -= s.PlsRefDC / 100.0;
    } else {
        p.pulse = DbmToUnits(p.pulse, s.PowerUnits);
        p.peak = DbmToUnits(p.peak, s.PowerUnits);
        p.average = DbmToUnits(p.average, s.PowerUnits);
    }
}

}  // namespace

std::int32_t MeasurePulse(std::int32_t address, double* pulse, double* peak, double* average,
                          double* dutyCycle) {
    if (!pulse || !peak || !average || !dutyCycle) return -1;
    const std::int32_t slot = OwnedMeasurementSlot(address);
    if (slot == kNoSlot) return -1;
    DeviceRecord& r = Slot(slot);
    InstrumentState& s = r.current;
    s.MeasMode = kMeasModePulse;
    const double criteria = (s.PulseCriteria_DB > 0.0 && s.AutoPulseCriteriaEnabled == 0)
                                ? s.PulseCriteria_DB
                                : kDefaultCriteria;

    const bool pulseTrigger = PulsesTriggerOutput(s);
    if (pulseTrigger) FlipTriggerOutput(address, s);
    PulseCoreResult c {};
    const std::int32_t acquired = s.Averages <= kMaxBlocksPerRun
                                      ? PulseCore(r.serial, &c, criteria)
                                      : AcquireSplitPulse(r, criteria, &c);
    if (acquired < 1) return acquired;
    std::int32_t status = 1;
    if (pulseTrigger) status = FlipTriggerOutput(address, s);  // back as it was

    PulseReadings p {kFailedPower, kFailedPower, kFailedPower, 1.0};
    if (status >= 1) p = MergePaths(c, SlotCrossoverBand(slot));
    UpdatePulseSmoothing(s, p);
    CorrectPulse(slot, p);
    // The recorder output shows CW readings; after a pulse acquisition it
    // would hold a stale one, so it is switched off (visible through
    // QV_GetRecorderOutEnabled).
    if (IsHandle(r.deviceHandle) && s.RecorderOutEnabled == 1)
        status = RecorderOutOff(r.deviceHandle, slot);
    *pulse = p.pulse;
    *peak = p.peak;
    *average = p.average;
    *dutyCycle = p.dutyCycle;
    return status;
}

std::int32_t MeasurePulse_PF(std::int32_t address, double* pulse, double* peak, double* average,
                             double* dutyCycle, std::int32_t* passFail) {
    if (!passFail) return -1;
    if (MeasurePulse(address, pulse, peak, average, dutyCycle) < 1) return -1;
    const std::int32_t slot = OwnedMeasurementSlot(address);
    if (slot == kNoSlot) return -1;
    Slot(slot).current.MeasMode = kMeasModePulseLimits;
    *passFail = LimitVerdict(slot, PulseReadingToDbm(slot, *pulse));
    return 1;
}

}  // namespace qv
