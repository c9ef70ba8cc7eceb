// Peak search on the analysis trace or a caller's trace, in record and
// parallel-array layouts.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "profiling/analysis.h"
#include "profiling/pairs.h"

namespace qv {

namespace {

// Next peak from start index s: a rise of the excursion above the lowest
// point since s, then a fall of the excursion below the highest point since
// that rise; -1 when there is none (a final rise that never falls back is not
// a peak). The walks start after s, so that an excursion of 0 or less (or a
// trace of infinities) still moves on and never reports one peak twice.
// `t` compares points in dBm (see DbmPoints and WattPoints).
template <class Points>
int NextPeak(Points& t, int n, int s) {
    if (s >= n - 2) return -1;
    t.SetValley(s);
    int i = s + 1;
    for (; i < n; ++i) {
        // Four points at a time while none of them rises or is a new valley.
        while (i + 4 <= n && t.QuietInValley(i)) i += 4;
        if (i >= n) break;
        if (t.RisesFromValley(i)) break;
        if (t.BelowValley(i)) t.SetValley(i);
    }
    if (i >= n) return -1;
    int k = i;
    t.SetTop(i);
    for (++i; i < n; ++i) {
        while (i + 4 <= n && t.QuietOnTop(i)) i += 4;
        if (i >= n) break;
        if (t.FallsFromTop(i)) return k;
        if (t.AboveTop(i)) {
            k = i;
            t.SetTop(i);
        }
    }
    return -1;
}

// Whether `test` holds for all four points from p.
template <class Test>
bool AllFour(const double* p, Test test) {
    const auto in = test(LoadPair(p)) & test(LoadPair(p + 2));
    return (in[0] & in[1]) != 0;
}

// A trace of dBm values, compared as they stand.
struct DbmPoints {
    const double* x;
    double e;
    double valley = 0.0, top = 0.0;
    Pair valleyLo {}, valleyHi {}, topLo {}, topHi {};
    void SetValley(int i) {
        valley = x[i];
        valleyLo = Both(valley);
        valleyHi = Both(valley + e);
    }
    void SetTop(int i) {
        top = x[i];
        topLo = Both(top - e);
        topHi = Both(top);
    }
    // Points in [valley, valley + e) neither rise nor lower the valley;
    // points in (top - e, top] neither fall nor raise the top.
    bool QuietInValley(int i) const {
        return AllFour(x + i, [this](Pair v) { return (v >= valleyLo) & (v < valleyHi); });
    }
    bool QuietOnTop(int i) const {
        return AllFour(x + i, [this](Pair v) { return (v > topLo) & (v <= topHi); });
    }
    bool RisesFromValley(int i) const { return x[i] >= valley + e; }
    bool BelowValley(int i) const { return x[i] < valley; }
    bool FallsFromTop(int i) const { return x[i] <= top - e; }
    bool AboveTop(int i) const { return x[i] > top; }
    double Dbm(int i) const { return x[i]; }
};

// A trace of watts, compared as its dBm values would compare without taking
// a logarithm per point: as ratios where the two sides differ by more than a
// millionth (four millionths of a dB, far beyond the rounding of a dBm
// value), and on the dBm values themselves where they do not, or where a side
// is not a positive, finite number of watts. The search thus finds what the
// same search on the converted trace finds, to the bit.
struct WattPoints {
    static constexpr double kMargin = 1e-6;
    const double* w;
    double e;
    double ratio, inverse;  // the excursion as a power ratio, and 1 / it
    bool byRatio;           // false: the excursion itself is out of range
    int valley = 0, top = 0;
    // A comparison with the valley or top is settled by ratio for a point
    // outside [lo, hi] of it (NaN bounds settle nothing).
    double riseLo = 0.0, riseHi = 0.0, belowLo = 0.0, belowHi = 0.0;
    double fallLo = 0.0, fallHi = 0.0, aboveLo = 0.0, aboveHi = 0.0;

    WattPoints(const double* watts, double excursionDb) : w(watts), e(excursionDb) {
        ratio = std::pow(10.0, e / 10.0);
        inverse = 1.0 / ratio;
        byRatio = e >= -500.0 && e <= 500.0;
    }
    static bool Plain(double v) { return v >= 1e-200 && v <= 1e200; }
    double Dbm(int i) const { return AnalysisDbm(w[i]); }

    Pair riseLo2 {}, belowHi2 {}, valley2 {}, fallHi2 {}, aboveLo2 {}, top2 {};

    void SetValley(int i) {
        valley = i;
        const double v = w[i];
        const double nan = std::numeric_limits<double>::quiet_NaN();
        const bool plain = byRatio && Plain(v);
        riseLo = plain ? v * ratio * (1.0 - kMargin) : nan;
        riseHi = plain ? v * ratio * (1.0 + kMargin) : nan;
        belowLo = plain ? v * (1.0 - kMargin) : nan;
        belowHi = plain ? v * (1.0 + kMargin) : nan;
        riseLo2 = Both(riseLo);
        belowHi2 = Both(belowHi);
        valley2 = Both(v);
    }
    void SetTop(int i) {
        top = i;
        const double v = w[i];
        const double nan = std::numeric_limits<double>::quiet_NaN();
        const bool plain = byRatio && Plain(v);
        fallLo = plain ? v * inverse * (1.0 - kMargin) : nan;
        fallHi = plain ? v * inverse * (1.0 + kMargin) : nan;
        aboveLo = plain ? v * (1.0 - kMargin) : nan;
        aboveHi = plain ? v * (1.0 + kMargin) : nan;
        fallHi2 = Both(fallHi);
        aboveLo2 = Both(aboveLo);
        top2 = Both(v);
    }
    // What the single comparisons below settle as "neither" by ratio (or by
    // equal watts) for four points at once.
    bool QuietInValley(int i) const {
        return AllFour(w + i, [this](Pair v) {
            return (v < riseLo2) & ((v > belowHi2) | (v == valley2));
        });
    }
    bool QuietOnTop(int i) const {
        return AllFour(w + i, [this](Pair v) {
            return (v > fallHi2) & ((v < aboveLo2) | (v == top2));
        });
    }
    bool RisesFromValley(int i) const {
        if (w[i] > riseHi) return true;
        if (w[i] < riseLo) return false;
        return Dbm(i) >= Dbm(valley) + e;
    }
    bool BelowValley(int i) const {
        if (w[i] < belowLo && w[i] >= 0.0) return true;  // below 0 W: no dBm value
        if (w[i] > belowHi || w[i] == w[valley]) return false;
        return Dbm(i) < Dbm(valley);
    }
    bool FallsFromTop(int i) const {
        if (w[i] < fallLo && w[i] >= 0.0) return true;
        if (w[i] > fallHi) return false;
        return Dbm(i) <= Dbm(top) - e;
    }
    bool AboveTop(int i) const {
        if (w[i] > aboveHi) return true;
        if (w[i] < aboveLo || w[i] == w[top]) return false;
        return Dbm(i) > Dbm(top);
    }
};

template <class Points>
void Search(Points t, int n, double thresholdDbm, PeakOrder order, int maxCount,
            std::vector<PP_Peak>& peaks) {
    peaks.clear();
    if (maxCount < 1) return;
    for (int s = 0;;) {
        const int k = NextPeak(t, n, s);
        if (k < 0) break;
        s = k;
        const double x = t.Dbm(k);
        const bool above = order == PeakOrder::kIndex ? x > thresholdDbm : x >= thresholdDbm;
        if (!above) continue;
        peaks.push_back(PP_Peak {k, 0, x});
        if (static_cast<int>(peaks.size()) >= maxCount) break;
    }
    if (order == PeakOrder::kValue)
        std::stable_sort(peaks.begin(), peaks.end(),
                         [](const PP_Peak& a, const PP_Peak& b) { return a.Value > b.Value; });
}

}  // namespace

void FindPeaks(const double* x, int n, double excursionDb, double thresholdDbm, PeakOrder order,
               int maxCount, std::vector<PP_Peak>& peaks) {
    Search(DbmPoints {x, excursionDb}, n, thresholdDbm, order, maxCount, peaks);
}

void FindPeaksInWatts(const double* w, int n, double excursionDb, double thresholdDbm,
                      PeakOrder order, int maxCount, std::vector<PP_Peak>& peaks) {
    Search(WattPoints(w, excursionDb), n, thresholdDbm, order, maxCount, peaks);
}

namespace {

// Peaks of the slot's analysis trace, in dBm, with the pulse criteria as
// excursion and the measurement threshold.
bool AnalysisPeaks(std::int32_t address, PeakOrder order, int maxCount,
                   std::vector<PP_Peak>& peaks) {
    const std::int32_t slot = AnalysisSlot(address);
    if (slot == kNoSlot) return false;
    const DeviceRecord& r = Slot(slot);
    const AnalysisTrace& a = r.analysis;
    const int n = std::clamp(a.analysisLastIdx + 1, 0, kTraceCapacity);
    FindPeaksInWatts(a.analysisTrace, n, r.current.PulseCriteria_DB,
                     r.analysisSetup.measThreshold, order, maxCount, peaks);
    return true;
}

std::int32_t Deliver(const std::vector<PP_Peak>& found, PP_Peak* peaks, std::int32_t* count) {
    std::copy(found.begin(), found.end(), peaks);
    *count = static_cast<std::int32_t>(found.size());
    return 1;
}

}  // namespace

// A maximum below 1 finds nothing: count 0, result 1, records untouched.
std::int32_t GetPeaks(std::int32_t address, PeakOrder order, PP_Peak* peaks, std::int32_t maxCount,
                      std::int32_t* count) {
    if (!peaks || !count) return -1;
    std::vector<PP_Peak> found;
    if (!AnalysisPeaks(address, order, maxCount, found)) return -1;
    return Deliver(found, peaks, count);
}

// The unit argument is taken and not used: the trace is read as dBm.
std::int32_t GetPeaksFromTr(const double* trace, std::int32_t length, std::int32_t,
                            double excursionDb, double thresholdDbm, PeakOrder order,
                            PP_Peak* peaks, std::int32_t maxCount, std::int32_t* count) {
    if (!trace || !peaks || !count || length < 0) return -1;
    std::vector<PP_Peak> found;
    FindPeaks(trace, length, excursionDb, thresholdDbm, order, maxCount, found);
    return Deliver(found, peaks, count);
}

// The temporary pair array is zeroed and holds at most one pair per trace
// point; all of it is split, so the entries from the count found up to
// min(n, 10000) read index 0 and value 0.0 and those beyond stay untouched.
std::int32_t GetPeaksSplit(std::int32_t address, PeakOrder order, std::int32_t* indices,
                           double* values, std::int32_t n, std::int32_t* count) {
    if (n < 1) return 0;
    if (!indices || !values || !count) return -1;
    std::vector<PP_Peak> pairs(static_cast<std::size_t>(std::min(n, kTraceCapacity)), PP_Peak {});
    std::int32_t found = 0;
    const std::int32_t result =
        GetPeaks(address, order, pairs.data(), static_cast<std::int32_t>(pairs.size()), &found);
    if (result < 0) return -1;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        indices[i] = pairs[i].Index;
        values[i] = pairs[i].Value;
    }
    *count = found;
    return result;
}

std::int32_t GetPeaksFromTrSplit(const double* trace, std::int32_t length, std::int32_t unit,
                                 double excursionDb, double thresholdDbm, PeakOrder order,
                                 std::int32_t* indices, double* values, std::int32_t n,
                                 std::int32_t* count) {
    if (!indices || !values || !count || length < 0) return -1;
    // No trace of `length` points holds more peaks than points.
    const std::int32_t room = std::clamp(n, 0, length);
    std::vector<PP_Peak> pairs(static_cast<std::size_t>(std::max(room, 1)), PP_Peak {});
    const std::int32_t result = GetPeaksFromTr(trace, length, unit, excursionDb, thresholdDbm,
                                               order, pairs.data(), room, count);
    if (result >= 1)
        for (std::int32_t i = 0; i < *count; ++i) {
            indices[i] = pairs[i].Index;
            values[i] = pairs[i].Value;
        }
    return result;
}

}  // namespace qv
