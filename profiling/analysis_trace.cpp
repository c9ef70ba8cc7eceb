// The analysis trace and the gate settings.
#include <cmath>
#include <cstdint>

#include "frame/lookups.h"
#include "profiling/analysis.h"
#include "profiling/sweep_config.h"
#include "settings/units.h"

namespace qv {

std::int32_t AnalysisSlot(std::int32_t address) {
    if (address < 0 || address > 255) return kNoSlot;
    if (IsDeviceMine_Addr(address) != 1) return kNoSlot;
    return GetOwnedSlot_Addr(address);
}

double GateTimeOfPosition(const AnalysisTrace& a, std::int32_t pos) {
    if (a.analysisLastIdx <= 0) return 0.0;
    return static_cast<double>(pos) * a.analysisSweepTime / a.analysisLastIdx;
}

std::int32_t GatePositionOfTime(const AnalysisTrace& a, double usec) {
    if (a.analysisSweepTime <= 0) return 0;
    // Callers keep usec within 0..sweep time, so the position is within 0..last index.
    return static_cast<std::int32_t>(usec * a.analysisLastIdx / a.analysisSweepTime + 0.5);
}

double PulseTimeScalePoints(std::int32_t sweepTimeUsec) {
    switch (sweepTimeUsec) {
        case 10: return 480.0;
        case 20: return 960.0;
        case 50: return 2400.0;
        case 100: return 4800.0;
        case 200: return 9600.0;
        default: return 10000.0;
    }
}

bool AnalysisPointToWatts(double value, std::int32_t unit, double* watts) {
    double w;
    switch (unit) {
        case QV_UNIT_DBM: case QV_UNIT_DBW: case QV_UNIT_DBKW: case QV_UNIT_DBUV:
            w = AnalysisWatts(UnitsToDbm(value, unit));
            break;
        case QV_UNIT_W:
            if (!(value > 0.0)) return false;
            w = value;
            break;
        case QV_UNIT_V:
            if (!(value > 0.0)) return false;
            w = value * value / 50.0;
            break;
        default:
            return false;  // dBmV and dBV are not taken for analysis traces
    }
    // A NaN or infinite point would poison every average over the trace.
    if (!std::isfinite(w)) return false;
    *watts = w;
    return true;
}

// ---------------------------------------------------------------- analysis trace

std::int32_t CurrTrace2AnalysisTrace(std::int32_t address, double* out, std::int32_t n) {
    const std::int32_t slot = AnalysisSlot(address);
    if (slot == kNoSlot) return -1;
    DeviceRecord& r = Slot(slot);
    const std::int32_t row = r.trace.sweepTimeIdx;
    // Without a user sweep time the current trace has no length to copy.
    if (row < 0 || row >= kUserSweepRows) return -1;
    const std::int32_t length = SweepConfigRow(row).traceLength;
    AnalysisTrace& a = r.analysis;
    for (std::int32_t i = 0; i < length; ++i) a.analysisTrace[i] = r.avgTrace[i];
    a.analysisLastIdx = length - 1;
    a.analysisFreq = r.current.Freq;
    a.analysisSweepTime = r.trace.sweepTimeUsec;
    a.analysisUnit = 0;
    a.analysisValid = 1;
    if (out && n >= 1 && n >= length)
        for (std::int32_t i = 0; i < length; ++i) out[i] = AnalysisDbm(a.analysisTrace[i]);
    return 1;
}

std::int32_t SetAnalysisTrace(std::int32_t address, double freq, double sweepTime,
                              const double* trace, std::int32_t n, std::int32_t unit) {
    // An empty trace or a sweep time below 1 µs leaves nothing to place in time.
    if (!trace || n < 1 || n > kTraceCapacity) return -1;
    if (!(sweepTime >= 1.0 && sweepTime < 2147483648.0)) return -1;
    const std::int32_t slot = AnalysisSlot(address);
    if (slot == kNoSlot) return -1;
    AnalysisTrace& a = Slot(slot).analysis;
    double previous = 0.0;
    for (std::int32_t i = 0; i < n; ++i) {
        double w;
        if (!AnalysisPointToWatts(trace[i], unit, &w)) w = previous;
        a.analysisTrace[i] = w;
        previous = w;
    }
    for (std::int32_t i = n; i < kTraceCapacity; ++i) a.analysisTrace[i] = 0.0;
    a.analysisFreq = freq;
    a.analysisSweepTime = static_cast<std::int32_t>(sweepTime);
    a.analysisUnit = unit;
    a.analysisLastIdx = n - 1;
    return 1;
}

std::int32_t GetAnalysisTrace(std::int32_t address, double* freq, double* sweepTime,
                              double* trace, std::int32_t* n, std::int32_t unit) {
    if (!freq || !sweepTime || !trace || !n) return -1;
    const std::int32_t slot = AnalysisSlot(address);
    if (slot == kNoSlot) return -1;
    const AnalysisTrace& a = Slot(slot).analysis;
    const std::int32_t length = a.analysisLastIdx + 1;
    if (length < 1 || length > kTraceCapacity || *n < length) return -1;
    for (std::int32_t i = 0; i < length; ++i) {
        const double w = a.analysisTrace[i];
        if (!(w > 0.0)) continue;  // no level to report: the caller's value stays
        trace[i] = unit == QV_UNIT_W ? w : DbmToUnits(AnalysisDbm(w), unit);
    }
    for (std::int32_t i = length; i < *n; ++i) trace[i] = 0.0;
    *freq = a.analysisFreq;
    *sweepTime = a.analysisSweepTime;
    *n = length;
    return 1;
}

std::int32_t GetAnalysisTraceLength(std::int32_t address) {
    if (address < 0 || address > 255 || IsDeviceMine_Addr(address) != 1) return -1;
    const std::int32_t slot = GetOwnedSlot_Addr(address);
    if (slot == kNoSlot) return 0;
    const AnalysisTrace& a = Slot(slot).analysis;
    return a.analysisValid == 1 ? a.analysisLastIdx + 1 : -1;
}

std::int32_t AnalysisTraceIsValid(std::int32_t address) {
    if (address < 0 || address > 255 || IsDeviceMine_Addr(address) != 1) return -1;
    const std::int32_t slot = GetOwnedSlot_Addr(address);
    if (slot == kNoSlot) return 0;
    return Slot(slot).analysis.analysisValid == 1 ? 1 : 0;
}

// ---------------------------------------------------------------- gate settings

namespace {

// The slot's gate when the caller owns the sensor, the gate index is 0..9 and,
// unless `anyMode`, the analysis trace is valid and the gate on.
struct GateRef {
    AnalysisTrace* trace = nullptr;
    GateRecord* gate = nullptr;
    explicit operator bool() const { return gate != nullptr; }
};

GateRef FindGate(std::int32_t address, std::int32_t gate, bool anyMode = false) {
    if (gate < 0 || gate >= kGateCount) return {};
    const std::int32_t slot = AnalysisSlot(address);
    if (slot == kNoSlot) return {};
    DeviceRecord& r = Slot(slot);
    GateRecord& g = r.analysisSetup.gates[gate];
    if (!anyMode && (r.analysis.analysisValid != 1 || g.mode != 1)) return {};
    return {&r.analysis, &g};
}

void PlaceStart(GateRef g, std::int32_t pos) {
    g.gate->startPos = pos;
    g.gate->startTime = g.gate->startPosTime = GateTimeOfPosition(*g.trace, pos);
}

void PlaceEnd(GateRef g, std::int32_t pos) {
    g.gate->endPos = pos;
    g.gate->endTime = g.gate->endPosTime = GateTimeOfPosition(*g.trace, pos);
}

void TimeStart(GateRef g, double usec) {
    g.gate->startTime = usec;
    g.gate->startPos = GatePositionOfTime(*g.trace, usec);
    g.gate->startPosTime = GateTimeOfPosition(*g.trace, g.gate->startPos);
}

void TimeEnd(GateRef g, double usec) {
    g.gate->endTime = usec;
    g.gate->endPos = GatePositionOfTime(*g.trace, usec);
    g.gate->endPosTime = GateTimeOfPosition(*g.trace, g.gate->endPos);
}

}  // namespace

std::int32_t SetGateMode(std::int32_t address, std::int32_t gate, std::int32_t mode) {
    if (mode != 0 && mode != 1) return -1;
    GateRef g = FindGate(address, gate, true);
    if (!g) return -1;
    g.gate->mode = mode;
    return 1;
}

std::int32_t GetGateMode(std::int32_t address, std::int32_t gate, std::int32_t* mode) {
    if (!mode) return -1;
    GateRef g = FindGate(address, gate, true);
    if (!g) return -1;
    *mode = g.gate->mode;
    return 1;
}

std::int32_t SetGateStartEndPosition(std::int32_t address, std::int32_t gate, std::int32_t start,
                                     std::int32_t end) {
    GateRef g = FindGate(address, gate);
    if (!g || !(0 <= start && start <= end && end <= g.trace->analysisLastIdx)) return -1;
    PlaceStart(g, start);
    PlaceEnd(g, end);
    return 1;
}

std::int32_t SetGateStartPosition(std::int32_t address, std::int32_t gate, std::int32_t start) {
    GateRef g = FindGate(address, gate);
    if (!g || !(0 <= start && start <= g.gate->endPos)) return -1;
    PlaceStart(g, start);
    return 1;
}

std::int32_t SetGateEndPosition(std::int32_t address, std::int32_t gate, std::int32_t end) {
    GateRef g = FindGate(address, gate);
    // A gate without a start (-1 after the reset) cannot take an end below 0 either.
    if (!g || !(0 <= end && g.gate->startPos <= end && end <= g.trace->analysisLastIdx)) return -1;
    PlaceEnd(g, end);
    return 1;
}

std::int32_t GetGateStartEndPosition(std::int32_t address, std::int32_t gate, std::int32_t* start,
                                     std::int32_t* end) {
    if (!start || !end) return -1;
    GateRef g = FindGate(address, gate);
    if (!g) return -1;
    *start = g.gate->startPos;
    *end = g.gate->endPos;
    return 1;
}

std::int32_t GetGateStartPosition(std::int32_t address, std::int32_t gate, std::int32_t* start) {
    if (!start) return -1;
    GateRef g = FindGate(address, gate);
    if (!g) return -1;
    *start = g.gate->startPos;
    return 1;
}

std::int32_t GetGateEndPosition(std::int32_t address, std::int32_t gate, std::int32_t* end) {
    if (!end) return -1;
    GateRef g = FindGate(address, gate);
    if (!g) return -1;
    *end = g.gate->endPos;
    return 1;
}

std::int32_t GetGateStartEndPositionTime(std::int32_t address, std::int32_t gate,
                                         std::int32_t* startPos, double* startTime,
                                         std::int32_t* endPos, double* endTime) {
    if (!startPos || !startTime || !endPos || !endTime) return -1;
    GateRef g = FindGate(address, gate);
    if (!g) return -1;
    *startPos = g.gate->startPos;
    *startTime = g.gate->startPosTime;
    *endPos = g.gate->endPos;
    *endTime = g.gate->endPosTime;
    return 1;
}

std::int32_t SetGateStartEndTime(std::int32_t address, std::int32_t gate, double start, double end) {
    GateRef g = FindGate(address, gate);
    if (!g || !(0.0 <= start && start <= end && end <= g.trace->analysisSweepTime)) return -1;
    TimeStart(g, start);
    TimeEnd(g, end);
    return 1;
}

std::int32_t SetGateStartTime(std::int32_t address, std::int32_t gate, double start) {
    GateRef g = FindGate(address, gate);
    if (!g || !(0.0 <= start && start <= g.trace->analysisSweepTime)) return -1;
    TimeStart(g, start);
    // The end position stays where it was: only the end time follows.
    if (start > g.gate->endTime) g.gate->endTime = start;
    return 1;
}

std::int32_t SetGateEndTime(std::int32_t address, std::int32_t gate, double end) {
    GateRef g = FindGate(address, gate);
    if (!g || !(end >= 0.0 && g.gate->startTime <= end && end <= g.trace->analysisSweepTime))
        return -1;
    TimeEnd(g, end);
    return 1;
}

std::int32_t GetGateStartEndTime(std::int32_t address, std::int32_t gate, double* start,
                                 double* end) {
    if (!start || !end) return -1;
    GateRef g = FindGate(address, gate);
    if (!g) return -1;
    *start = g.gate->startTime;
    *end = g.gate->endTime;
    return 1;
}

std::int32_t GetGateStartTime(std::int32_t address, std::int32_t gate, double* start) {
    if (!start) return -1;
    GateRef g = FindGate(address, gate);
    if (!g) return -1;
    *start = g.gate->startTime;
    return 1;
}

std::int32_t GetGateEndTime(std::int32_t address, std::int32_t gate, double* end) {
    if (!end) return -1;
    GateRef g = FindGate(address, gate);
    if (!g) return -1;
    *end = g.gate->endTime;
    return 1;
}

std::int32_t GatePositionIsValid(std::int32_t address, std::int32_t gate, std::int32_t* valid) {
    if (!valid) return -1;
    *valid = 0;
    GateRef g = FindGate(address, gate);
    if (!g) return -1;
    const GateRecord& r = *g.gate;
    *valid = (0 <= r.startPos && r.startPos <= r.endPos && r.endPos <= g.trace->analysisLastIdx)
                 ? 1 : 0;
    return 1;
}

std::int32_t SetMeasurementThreshold(std::int32_t address, double dbm) {
    const std::int32_t slot = AnalysisSlot(address);
    if (slot == kNoSlot) return -1;
    Slot(slot).analysisSetup.measThreshold = dbm;
    return 1;
}

std::int32_t GetMeasurementThreshold(std::int32_t address, double* dbm) {
    if (!dbm) return -1;
    const std::int32_t slot = AnalysisSlot(address);
    if (slot == kNoSlot) return -1;
    *dbm = Slot(slot).analysisSetup.measThreshold;
    return 1;
}

}  // namespace qv
