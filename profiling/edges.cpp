// Whole-trace statistics of the analysis trace and the edges of a pulse
// around a given peak.
#include <cmath>
#include <cstdint>

#include "profiling/analysis.h"

namespace qv {

namespace {

// The slot's analysis trace when the caller owns the sensor and the trace is valid.
const DeviceRecord* ValidAnalysis(std::int32_t address) {
    const std::int32_t slot = AnalysisSlot(address);
    if (slot == kNoSlot) return nullptr;
    const DeviceRecord& r = Slot(slot);
    const std::int32_t last = r.analysis.analysisLastIdx;
    if (r.analysis.analysisValid != 1 || last < 0 || last >= kTraceCapacity) return nullptr;
    return &r;
}

struct TraceFigures {
    double average;  // W
    double peak;     // W
};

TraceFigures Figures(const AnalysisTrace& a) {
    const int n = a.analysisLastIdx + 1;
    double sum = 0.0, peak = a.analysisTrace[0];
    for (int i = 0; i < n; ++i) {
        sum += a.analysisTrace[i];
        if (a.analysisTrace[i] > peak) peak = a.analysisTrace[i];
    }
    return {sum / n, peak};
}

// Points at or above the pulse level (the criteria below the peak, 3 dB with
// automatic pulse criteria): their number and their sum in watts.
struct PulsePoints {
    int count = 0;
    double sum = 0.0;
};

PulsePoints PulseTop(const DeviceRecord& r) {
    const AnalysisTrace& a = r.analysis;
    const double criteria = r.current.AutoPulseCriteriaEnabled == 1 ? 3.0 : r.current.PulseCriteria_DB;
    const double level = AnalysisWatts(AnalysisDbm(Figures(a).peak) - criteria);
    PulsePoints top;
    for (int i = 0; i <= a.analysisLastIdx; ++i)
        if (a.analysisTrace[i] >= level) {
            ++top.count;
            top.sum += a.analysisTrace[i];
        }
    return top;
}

std::int32_t Report(double value, double* out) {
    if (!std::isfinite(value)) return -1;  // a trace of 0 W has no level in dBm
    *out = value;
    return 1;
}

}  // namespace

std::int32_t GetTraceAvgPower(std::int32_t address, double* dbm) {
    const DeviceRecord* r = dbm ? ValidAnalysis(address) : nullptr;
    if (!r) return -1;
    return Report(AnalysisDbm(Figures(r->analysis).average), dbm);
}

std::int32_t GetTracePkPwr(std::int32_t address, double* dbm) {
    const DeviceRecord* r = dbm ? ValidAnalysis(address) : nullptr;
    if (!r) return -1;
    return Report(AnalysisDbm(Figures(r->analysis).peak), dbm);
}

std::int32_t GetTraceCrestFactor(std::int32_t address, double* db) {
    const DeviceRecord* r = db ? ValidAnalysis(address) : nullptr;
    if (!r) return -1;
    const TraceFigures f = Figures(r->analysis);
    return Report(AnalysisDbm(f.peak) - AnalysisDbm(f.average), db);
}

std::int32_t GetTracePulsePower(std::int32_t address, double* dbm) {
    const DeviceRecord* r = dbm ? ValidAnalysis(address) : nullptr;
    if (!r) return -1;
    const PulsePoints top = PulseTop(*r);
    if (top.count == 0) return -1;
    return Report(AnalysisDbm(top.sum / top.count), dbm);
}

std::int32_t GetTraceDC(std::int32_t address, double* ratio) {
    const DeviceRecord* r = ratio ? ValidAnalysis(address) : nullptr;
    if (!r) return -1;
    *ratio = static_cast<double>(PulseTop(*r).count) / (r->analysis.analysisLastIdx + 1);
    return 1;
}

bool FindPulseEdges(const double* p, std::int32_t lastIdx, std::int32_t k, double thresholdDbm,
                    double criteriaDb, std::int32_t* left, std::int32_t* right) {
    // Compared as k < lastIdx - 3: any peak index a caller gives, up to
    // INT32_MAX, must not overflow.
    if (!(k > 3 && k < lastIdx - 3)) return false;
    const double peakDbm = AnalysisDbm(p[k]);
    if (peakDbm < thresholdDbm) return false;
    const double level = AnalysisWatts(peakDbm - criteriaDb);
    std::int32_t l = k - 1;
    while (l >= 0 && p[l] > level) --l;
    if (l < 0) return false;
    std::int32_t h = k + 1;
    while (h <= lastIdx && p[h] > level) ++h;
    if (h > lastIdx) return false;
    *left = l;
    *right = h;
    return true;
}

std::int32_t GetPulseEdgesPosition(std::int32_t address, std::int32_t peak, std::int32_t* left,
                                   std::int32_t* right) {
    const DeviceRecord* r = left && right ? ValidAnalysis(address) : nullptr;
    if (!r) return -1;
    std::int32_t l, h;
    if (!FindPulseEdges(r->analysis.analysisTrace, r->analysis.analysisLastIdx, peak,
                        r->analysisSetup.measThreshold, r->current.PulseCriteria_DB, &l, &h))
        return -1;
    *left = l;
    *right = h;
    return 1;
}

std::int32_t GetPulseEdgesTime(std::int32_t address, double peakUsec, double* left, double* right) {
    const DeviceRecord* r = left && right ? ValidAnalysis(address) : nullptr;
    if (!r) return -1;
    const AnalysisTrace& a = r->analysis;
    if (a.analysisSweepTime <= 0 || a.analysisLastIdx <= 0) return -1;
    // Truncated, not rounded; a time outside the trace has no peak index.
    const double k = std::trunc(peakUsec / a.analysisSweepTime * a.analysisLastIdx);
    if (!(k >= 0.0 && k <= a.analysisLastIdx)) return -1;
    std::int32_t l, h;
    if (!FindPulseEdges(a.analysisTrace, a.analysisLastIdx, static_cast<std::int32_t>(k),
                        r->analysisSetup.measThreshold, r->current.PulseCriteria_DB, &l, &h))
        return -1;
    *left = static_cast<double>(l) / a.analysisLastIdx * a.analysisSweepTime;
    *right = static_cast<double>(h) / a.analysisLastIdx * a.analysisSweepTime;
    return 1;
}

std::int32_t NoStatisticsEffect() { return 0; }

}  // namespace qv
