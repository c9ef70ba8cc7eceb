// Exports of trace analysis: the analysis trace and its gates, markers and
// peak search, pulse edges and trace statistics.
#include "frame/frame.h"
#include "profiling/analysis.h"

using namespace qv;

namespace {

// PP_GetGateCrestFactor's frame: the crest factor writes the caller's
// variable; the result is the peak power's (its index), or -1 when either
// the average or the peak power gives 0 or less, a peak at index 0 included.
std::int32_t GateCrestFactorFrame(std::int32_t address, std::int32_t gate, double* db) {
    GetGateCrestFactor(address, gate, db);
    double average, peak;
    const std::int32_t averageResult = GetGateAveragePower(address, gate, &average);
    const std::int32_t peakResult = GetGatePeakPower(address, gate, &peak);
    if (averageResult <= 0 || peakResult <= 0) return -1;
    return peakResult;
}

}  // namespace

extern "C" {

QV_API int32_t PP_CurrTrace2AnalysisTrace(int32_t address, double* out, int32_t n) {
    return Enter([&] { return CurrTrace2AnalysisTrace(address, out, n); });
}

QV_API int32_t PP_SetAnalysisTrace(int32_t address, double freq, double sweepTime, const double* trace, int32_t n, int32_t unit) {
    return Enter([&] { return SetAnalysisTrace(address, freq, sweepTime, trace, n, unit); });
}

// The unit comes by pointer; the frame hands its value on.
QV_API int32_t PP_GetAnalysisTrace(int32_t address, double* freq, double* sweepTime, double* trace,
                                   int32_t* n, const int32_t* unit) {
    return Enter([&] { return unit ? GetAnalysisTrace(address, freq, sweepTime, trace, n, *unit) : -1; });
}

QV_API int32_t PP_GetAnalysisTraceLength(int32_t address) {
    return Enter([&] { return GetAnalysisTraceLength(address); });
}

QV_API int32_t PP_AnalysisTraceIsValid(int32_t address) {
    return Enter([&] { return AnalysisTraceIsValid(address); });
}

QV_API int32_t PP_SetGateMode(int32_t address, int32_t gate, int32_t mode) {
    return Enter([&] { return SetGateMode(address, gate, mode); });
}

QV_API int32_t PP_GetGateMode(int32_t address, int32_t gate, int32_t* mode) {
    return Enter([&] { return GetGateMode(address, gate, mode); });
}

QV_API int32_t PP_SetGateStartEndPosition(int32_t address, int32_t gate, int32_t start, int32_t end) {
    return Enter([&] { return SetGateStartEndPosition(address, gate, start, end); });
}

QV_API int32_t PP_SetGateStartPosition(int32_t address, int32_t gate, int32_t start) {
    return Enter([&] { return SetGateStartPosition(address, gate, start); });
}

QV_API int32_t PP_SetGateEndPosition(int32_t address, int32_t gate, int32_t end) {
    return Enter([&] { return SetGateEndPosition(address, gate, end); });
}

QV_API int32_t PP_GetGateStartEndPosition(int32_t address, int32_t gate, int32_t* start, int32_t* end) {
    return Enter([&] { return GetGateStartEndPosition(address, gate, start, end); });
}

QV_API int32_t PP_GetGateStartPosition(int32_t address, int32_t gate, int32_t* start) {
    return Enter([&] { return GetGateStartPosition(address, gate, start); });
}

QV_API int32_t PP_GetGateEndPosition(int32_t address, int32_t gate, int32_t* end) {
    return Enter([&] { return GetGateEndPosition(address, gate, end); });
}

QV_API int32_t PP_GetGateStartEndPositionTime(int32_t address, int32_t gate, int32_t* startPos, double* startTime, int32_t* endPos, double* endTime) {
    return Enter([&] { return GetGateStartEndPositionTime(address, gate, startPos, startTime, endPos, endTime); });
}

QV_API int32_t PP_SetGateStartEndTime(int32_t address, int32_t gate, double start, double end) {
    return Enter([&] { return SetGateStartEndTime(address, gate, start, end); });
}

QV_API int32_t PP_SetGateStartTime(int32_t address, int32_t gate, double start) {
    return Enter([&] { return SetGateStartTime(address, gate, start); });
}

QV_API int32_t PP_SetGateEndTime(int32_t address, int32_t gate, double end) {
    return Enter([&] { return SetGateEndTime(address, gate, end); });
}

QV_API int32_t PP_GetGateStartEndTime(int32_t address, int32_t gate, double* start, double* end) {
    return Enter([&] { return GetGateStartEndTime(address, gate, start, end); });
}

QV_API int32_t PP_GetGateStartTime(int32_t address, int32_t gate, double* start) {
    return Enter([&] { return GetGateStartTime(address, gate, start); });
}

QV_API int32_t PP_GetGateEndTime(int32_t address, int32_t gate, double* end) {
    return Enter([&] { return GetGateEndTime(address, gate, end); });
}

QV_API int32_t PP_GatePositionIsValid(int32_t address, int32_t gate, int32_t* valid) {
    return Enter([&] { return GatePositionIsValid(address, gate, valid); });
}

QV_API int32_t PP_SetMeasurementThreshold(int32_t address, double dbm) {
    return Enter([&] { return SetMeasurementThreshold(address, dbm); });
}

QV_API int32_t PP_GetMeasurementThreshold(int32_t address, double* dbm) {
    return Enter([&] { return GetMeasurementThreshold(address, dbm); });
}

QV_API int32_t PP_GetGateAveragePower(int32_t address, int32_t gate, double* dbm) {
    return Enter([&] { return GetGateAveragePower(address, gate, dbm); });
}

QV_API int32_t PP_GetGatePeakPower(int32_t address, int32_t gate, double* dbm) {
    return Enter([&] { return GetGatePeakPower(address, gate, dbm); });
}

// Under one lock: the crest factor into the caller's variable, then average
// and peak power into scratch values; the peak's index is the result.
QV_API int32_t PP_GetGateCrestFactor(int32_t address, int32_t gate, double* db) {
    return Enter([&] { return GateCrestFactorFrame(address, gate, db); });
}

QV_API int32_t PP_GetGateDroop(int32_t address, int32_t gate, double* db) {
    return Enter([&] { return GetGateDroop(address, gate, db); });
}

QV_API int32_t PP_GetGateOverShoot(int32_t address, int32_t gate, double* db) {
    return Enter([&] { return GetGateOverShoot(address, gate, db); });
}

QV_API int32_t PP_GetGateRiseTime(int32_t address, int32_t gate, double* usec) {
    return Enter([&] { return GetGateRiseTime(address, gate, usec); });
}

QV_API int32_t PP_GetGateFallTime(int32_t address, int32_t gate, double* usec) {
    return Enter([&] { return GetGateFallTime(address, gate, usec); });
}

QV_API int32_t PP_GetGatePulseWidth(int32_t address, int32_t gate, double* usec) {
    return Enter([&] { return GetGatePulseWidth(address, gate, usec); });
}

QV_API int32_t PP_GetGatePulsePower(int32_t address, int32_t gate, double* dbm) {
    return Enter([&] { return GetGatePulsePower(address, gate, dbm); });
}

QV_API int32_t PP_GetGatePRT(int32_t address, int32_t gate, double* usec) {
    return Enter([&] { return GetGatePRT(address, gate, usec); });
}

QV_API int32_t PP_GetGatePRF(int32_t address, int32_t gate, double* hz) {
    return Enter([&] { return GetGatePRF(address, gate, hz); });
}

QV_API int32_t PP_GetGateDutyCycle(int32_t address, int32_t gate, double* ratio) {
    return Enter([&] { return GetGateDutyCycle(address, gate, ratio); });
}

// ---------------------------------------------------------------- markers and peaks

QV_API int32_t PP_SetMarkerMode(int32_t address, int32_t marker, int32_t mode) {
    return Enter([&] { return SetMarkerMode(address, marker, mode); });
}

QV_API int32_t PP_GetMarkerMode(int32_t address, int32_t marker, int32_t* mode) {
    return Enter([&] { return GetMarkerMode(address, marker, mode); });
}

QV_API int32_t PP_SetMarkerPosition(int32_t address, int32_t marker, int32_t index) {
    return Enter([&] { return SetMarkerPosition(address, marker, index); });
}

QV_API int32_t PP_GetMarkerPosition(int32_t address, int32_t marker, int32_t* index) {
    return Enter([&] { return GetMarkerPosition(address, marker, index); });
}

QV_API int32_t PP_SetMarkerPositionTime(int32_t address, int32_t marker, double usec) {
    return Enter([&] { return SetMarkerPositionTime(address, marker, usec); });
}

QV_API int32_t PP_GetMarkerPositionTime(int32_t address, int32_t marker, double* usec) {
    return Enter([&] { return GetMarkerPositionTime(address, marker, usec); });
}

QV_API int32_t PP_SetMarkerDeltaTime(int32_t address, int32_t marker, double usec) {
    return Enter([&] { return SetMarkerDeltaTime(address, marker, usec); });
}

QV_API int32_t PP_GetMarkerDeltaTime(int32_t address, int32_t marker, double* usec) {
    return Enter([&] { return GetMarkerDeltaTime(address, marker, usec); });
}

QV_API int32_t PP_GetMarkerAmp(int32_t address, int32_t marker, double* dbm) {
    return Enter([&] { return GetMarkerAmp(address, marker, dbm); });
}

QV_API int32_t PP_GetMarkerDeltaAmp(int32_t address, int32_t marker, double* db) {
    return Enter([&] { return GetMarkerDeltaAmp(address, marker, db); });
}

QV_API int32_t PP_MarkerPosIsValid(int32_t address, int32_t marker, int32_t* valid) {
    return Enter([&] { return MarkerPosIsValid(address, marker, valid); });
}

QV_API int32_t PP_MarkerToPk(int32_t address, int32_t marker) {
    return Enter([&] { return MoveMarker(address, marker, MarkerMove::kPk); });
}

QV_API int32_t PP_MarkerToLowestPk(int32_t address, int32_t marker) {
    return Enter([&] { return MoveMarker(address, marker, MarkerMove::kLowestPk); });
}

QV_API int32_t PP_MarkerToFirstPk(int32_t address, int32_t marker) {
    return Enter([&] { return MoveMarker(address, marker, MarkerMove::kFirstPk); });
}

QV_API int32_t PP_MarkerToLastPk(int32_t address, int32_t marker) {
    return Enter([&] { return MoveMarker(address, marker, MarkerMove::kLastPk); });
}

QV_API int32_t PP_MarkerNextPk(int32_t address, int32_t marker) {
    return Enter([&] { return MoveMarker(address, marker, MarkerMove::kNextPk); });
}

QV_API int32_t PP_MarkerPrevPk(int32_t address, int32_t marker) {
    return Enter([&] { return MoveMarker(address, marker, MarkerMove::kPrevPk); });
}

QV_API int32_t PP_MarkerPkHigher(int32_t address, int32_t marker) {
    return Enter([&] { return MoveMarker(address, marker, MarkerMove::kPkHigher); });
}

QV_API int32_t PP_MarkerPkLower(int32_t address, int32_t marker) {
    return Enter([&] { return MoveMarker(address, marker, MarkerMove::kPkLower); });
}

QV_API int32_t PP_GetPeaks_Idx(int32_t address, PP_Peak* peaks, int32_t n, int32_t* count) {
    return Enter([&] { return GetPeaks(address, PeakOrder::kIndex, peaks, n, count); });
}

QV_API int32_t PP_GetPeaks_Val(int32_t address, PP_Peak* peaks, int32_t n, int32_t* count) {
    return Enter([&] { return GetPeaks(address, PeakOrder::kValue, peaks, n, count); });
}

// With n below 1: 0 at once, without the lock.
QV_API int32_t PP_GetPeaks_VEE_Idx(int32_t address, int32_t* indices, double* values, int32_t n,
                                   int32_t* count) {
    if (n < 1) return 0;
    return Enter([&] { return GetPeaksSplit(address, PeakOrder::kIndex, indices, values, n, count); });
}

QV_API int32_t PP_GetPeaks_Idx_Flat(int32_t address, int32_t* indices, double* values, int32_t n,
                                    int32_t* count) {
    return PP_GetPeaks_VEE_Idx(address, indices, values, n, count);
}

// With n below 1: 0 at once, without the lock.
QV_API int32_t PP_GetPeaks_VEE_Val(int32_t address, int32_t* indices, double* values, int32_t n,
                                   int32_t* count) {
    if (n < 1) return 0;
    return Enter([&] { return GetPeaksSplit(address, PeakOrder::kValue, indices, values, n, count); });
}

QV_API int32_t PP_GetPeaks_Val_Flat(int32_t address, int32_t* indices, double* values, int32_t n,
                                    int32_t* count) {
    return PP_GetPeaks_VEE_Val(address, indices, values, n, count);
}

QV_API int32_t PP_GetPeaksFromTr_Idx(const double* trace, int32_t length, int32_t unit, double excursion, double threshold, PP_Peak* peaks, int32_t n, int32_t* count) {
    return Enter([&] { return GetPeaksFromTr(trace, length, unit, excursion, threshold, PeakOrder::kIndex, peaks, n, count); });
}

QV_API int32_t PP_GetPeaksFromTr_Val(const double* trace, int32_t length, int32_t unit, double excursion, double threshold, PP_Peak* peaks, int32_t n, int32_t* count) {
    return Enter([&] { return GetPeaksFromTr(trace, length, unit, excursion, threshold, PeakOrder::kValue, peaks, n, count); });
}

QV_API int32_t PP_GetPeaksFromTr_Idx_Flat(const double* trace, int32_t length, int32_t unit, double excursion, double threshold, int32_t* indices, double* values, int32_t n, int32_t* count) {
    return Enter([&] { return GetPeaksFromTrSplit(trace, length, unit, excursion, threshold, PeakOrder::kIndex, indices, values, n, count); });
}

QV_API int32_t PP_GetPeaksFromTr_Val_Flat(const double* trace, int32_t length, int32_t unit, double excursion, double threshold, int32_t* indices, double* values, int32_t n, int32_t* count) {
    return Enter([&] { return GetPeaksFromTrSplit(trace, length, unit, excursion, threshold, PeakOrder::kValue, indices, values, n, count); });
}

// ---------------------------------------------------------------- edges and statistics

QV_API int32_t PP_GetTraceAvgPower(int32_t address, double* dbm) {
    return Enter([&] { return GetTraceAvgPower(address, dbm); });
}

QV_API int32_t PP_GetTracePkPwr(int32_t address, double* dbm) {
    return Enter([&] { return GetTracePkPwr(address, dbm); });
}

QV_API int32_t PP_GetTraceCrestFactor(int32_t address, double* db) {
    return Enter([&] { return GetTraceCrestFactor(address, db); });
}

QV_API int32_t PP_GetTracePulsePower(int32_t address, double* dbm) {
    return Enter([&] { return GetTracePulsePower(address, dbm); });
}

QV_API int32_t PP_GetTraceDC(int32_t address, double* ratio) {
    return Enter([&] { return GetTraceDC(address, ratio); });
}

QV_API int32_t PP_GetPulseEdgesPosition(int32_t address, int32_t peak, int32_t* left, int32_t* right) {
    return Enter([&] { return GetPulseEdgesPosition(address, peak, left, right); });
}

QV_API int32_t PP_GetPulseEdgesTime(int32_t address, double peakUsec, double* left, double* right) {
    return Enter([&] { return GetPulseEdgesTime(address, peakUsec, left, right); });
}

QV_API int32_t PP_GetTraceCDF(int32_t, double*, int32_t) {
    return EnterWithoutLock([] { return NoStatisticsEffect(); });
}

QV_API int32_t PP_GetTraceCCDF(int32_t, double*, int32_t) {
    return EnterWithoutLock([] { return NoStatisticsEffect(); });
}

QV_API int32_t PP_GetTracePwrDensity(int32_t, double*, int32_t) {
    return EnterWithoutLock([] { return NoStatisticsEffect(); });
}

}  // extern "C"
