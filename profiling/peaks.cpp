// Peak search on the analysis trace or a caller's trace, in record and
// parallel-array layouts.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "profiling/analysis.h"

namespace qv {

namespace {

// Next peak from start index s: a rise of the excursion above the lowest
// point since s, then a fall of the excursion below the highest point since
// that rise; -1 when there is none (a final rise that never falls back is not
// a peak). The walks start after s, so that an excursion of 0 or less (or a
// trace of infinities) still moves on and never reports one peak twice.
int NextPeak(const double* x, int n, int s, double e) {
    if (s >= n - 2) return -1;
    double valley = x[s];
    int i = s + 1;
    for (; i < n; ++i) {
        if (x[i] >= valley + e) break;
        if (x[i] < valley) valley = x[i];
    }
    if (i >= n) return -1;
    int k = i;
    double top = x[i];
    for (++i; i < n; ++i) {
        if (x[i] <= top - e) return k;
        if (x[i] > top) {
            top = x[i];
            k = i;
        }
    }
    return -1;
}

}  // namespace

void FindPeaks(const double* x, int n, double excursionDb, double thresholdDbm, PeakOrder order,
               int maxCount, std::vector<PP_Peak>& peaks) {
    peaks.clear();
    if (maxCount < 1) return;
    for (int s = 0;;) {
        const int k = NextPeak(x, n, s, excursionDb);
        if (k < 0) break;
        s = k;
        const bool above = order == PeakOrder::kIndex ? x[k] > thresholdDbm : x[k] >= thresholdDbm;
        if (!above) continue;
        peaks.push_back(PP_Peak {k, 0, x[k]});
        if (static_cast<int>(peaks.size()) >= maxCount) break;
    }
    if (order == PeakOrder::kValue)
        std::stable_sort(peaks.begin(), peaks.end(),
                         [](const PP_Peak& a, const PP_Peak& b) { return a.Value > b.Value; });
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
    std::vector<double> dbm(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) dbm[i] = AnalysisDbm(a.analysisTrace[i]);
    FindPeaks(dbm.data(), n, r.current.PulseCriteria_DB, r.analysisSetup.measThreshold, order,
              maxCount, peaks);
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
