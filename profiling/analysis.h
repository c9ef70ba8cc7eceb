// Trace analysis: the analysis trace a caller freezes (an acquired trace or
// one of its own), ten gates measured on it, ten markers, peak search on it
// or on any trace, pulse edges and whole-trace statistics.
//
// The analysis trace is held in watts; every average is taken in watts and
// reported in dBm (10·log10(W / 1 mW)) or, for ratios, in dB. The pure
// algorithms below work on plain arrays so that tests and benchmarks reach
// them without a sensor; the operations behind the exports follow them and
// take the address first. Outputs are written only on success; a null
// pointer gives -1.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "frame/shared_table.h"

namespace qv {

// exp and log rather than pow and log10: the same values to the last bit or
// two, at a fraction of the cost, on a path that converts whole traces.
inline double AnalysisWatts(double dbm) { return 0.001 * std::exp(dbm * 0.23025850929940458); }
inline double AnalysisDbm(double watts) { return 4.3429448190325175 * std::log(watts / 0.001); }

// ---------------------------------------------------------------- analysis trace and gates

// Slot of an analysis operation: address 0..255, initialised by the caller; else -1.
std::int32_t AnalysisSlot(std::int32_t address);
// Position <-> time on the analysis trace of `a` (µs). A one-point trace or a
// zero sweep time maps everything to 0.
double GateTimeOfPosition(const AnalysisTrace& a, std::int32_t pos);
std::int32_t GatePositionOfTime(const AnalysisTrace& a, double usec);

// Points per sweep that pulse width and PRT scale sample distances by.
double PulseTimeScalePoints(std::int32_t sweepTimeUsec);

// A unit value as watts; false when it cannot be converted (unit 4, 5, below
// 0 or above 7, a value <= 0 in W or V, or a result that is not finite).
bool AnalysisPointToWatts(double value, std::int32_t unit, double* watts);

std::int32_t CurrTrace2AnalysisTrace(std::int32_t address, double* out, std::int32_t n);
std::int32_t SetAnalysisTrace(std::int32_t address, double freq, double sweepTime,
                              const double* trace, std::int32_t n, std::int32_t unit);
std::int32_t GetAnalysisTrace(std::int32_t address, double* freq, double* sweepTime,
                              double* trace, std::int32_t* n, std::int32_t unit);
std::int32_t GetAnalysisTraceLength(std::int32_t address);
std::int32_t AnalysisTraceIsValid(std::int32_t address);

std::int32_t SetGateMode(std::int32_t address, std::int32_t gate, std::int32_t mode);
std::int32_t GetGateMode(std::int32_t address, std::int32_t gate, std::int32_t* mode);
std::int32_t SetGateStartEndPosition(std::int32_t address, std::int32_t gate, std::int32_t start,
                                     std::int32_t end);
std::int32_t SetGateStartPosition(std::int32_t address, std::int32_t gate, std::int32_t start);
std::int32_t SetGateEndPosition(std::int32_t address, std::int32_t gate, std::int32_t end);
std::int32_t GetGateStartEndPosition(std::int32_t address, std::int32_t gate, std::int32_t* start,
                                     std::int32_t* end);
std::int32_t GetGateStartPosition(std::int32_t address, std::int32_t gate, std::int32_t* start);
std::int32_t GetGateEndPosition(std::int32_t address, std::int32_t gate, std::int32_t* end);
std::int32_t GetGateStartEndPositionTime(std::int32_t address, std::int32_t gate,
                                         std::int32_t* startPos, double* startTime,
                                         std::int32_t* endPos, double* endTime);
std::int32_t SetGateStartEndTime(std::int32_t address, std::int32_t gate, double start, double end);
std::int32_t SetGateStartTime(std::int32_t address, std::int32_t gate, double start);
std::int32_t SetGateEndTime(std::int32_t address, std::int32_t gate, double end);
std::int32_t GetGateStartEndTime(std::int32_t address, std::int32_t gate, double* start,
                                 double* end);
std::int32_t GetGateStartTime(std::int32_t address, std::int32_t gate, double* start);
std::int32_t GetGateEndTime(std::int32_t address, std::int32_t gate, double* end);
std::int32_t GatePositionIsValid(std::int32_t address, std::int32_t gate, std::int32_t* valid);
std::int32_t SetMeasurementThreshold(std::int32_t address, double dbm);
std::int32_t GetMeasurementThreshold(std::int32_t address, double* dbm);

// Gate measurements on N points p (watts, already raised to the threshold
// where the measurement asks for it). False: no result (too few points, no
// pulse, no crossing, or a result that is not a finite number).
struct GateScale {
    double usecPerPoint;  // rise and fall: sweep time / last index
    double pulsePoints;   // pulse width and PRT: the L of the sweep time
    double sweepUsec;
    double criteriaDb;    // PulseCriteria_DB
};
// The largest point of a gate and the sum of its points (in four lanes,
// point i in lane i % 4), as the first-pulse finder takes them.
struct GateFigures {
    double max;
    double sum;
};
// out[i] = std::max(p[i], floor) for n points; the figures of out.
GateFigures RaiseToFloor(const double* p, int n, double floor, double* out);
bool GateAveragePower(const double* p, int n, double* dbm);
bool GateDroop(const double* p, int n, double* db);
bool GateOverShoot(const double* p, int n, double* db);
bool GateRiseTime(const double* p, int n, const GateScale& s, double* usec);
bool GateFallTime(const double* p, int n, const GateScale& s, double* usec);
struct FirstPulse {
    int rise;  // first point above the level
    int fall;  // first point after it below the level
};
// `figures`: those of p when the caller has them (from RaiseToFloor), else null.
bool FindFirstPulse(const double* p, int n, double criteriaDb, FirstPulse* pulse,
                    const GateFigures* figures = nullptr);
// The first pulse and the first pulse of the points from its falling index
// on (the repetition time's pair), both with indices of p.
bool FindPulsePair(const double* p, int n, double criteriaDb, FirstPulse* one, FirstPulse* two,
                   const GateFigures* figures = nullptr);
bool GatePulseWidth(const double* p, int n, const GateScale& s, double* usec,
                    const GateFigures* figures = nullptr);
bool GatePulsePower(const double* p, int n, const GateScale& s, double* dbm,
                    const GateFigures* figures = nullptr);
bool GatePRT(const double* p, int n, const GateScale& s, double* usec,
             const GateFigures* figures = nullptr);
bool GateDutyCycle(const double* p, int n, const GateScale& s, double* ratio,
                   const GateFigures* figures = nullptr);

std::int32_t GetGateAveragePower(std::int32_t address, std::int32_t gate, double* dbm);
std::int32_t GetGatePeakPower(std::int32_t address, std::int32_t gate, double* dbm);
std::int32_t GetGateCrestFactor(std::int32_t address, std::int32_t gate, double* db);
std::int32_t GetGateDroop(std::int32_t address, std::int32_t gate, double* db);
std::int32_t GetGateOverShoot(std::int32_t address, std::int32_t gate, double* db);
std::int32_t GetGateRiseTime(std::int32_t address, std::int32_t gate, double* usec);
std::int32_t GetGateFallTime(std::int32_t address, std::int32_t gate, double* usec);
std::int32_t GetGatePulseWidth(std::int32_t address, std::int32_t gate, double* usec);
std::int32_t GetGatePulsePower(std::int32_t address, std::int32_t gate, double* dbm);
std::int32_t GetGatePRT(std::int32_t address, std::int32_t gate, double* usec);
std::int32_t GetGatePRF(std::int32_t address, std::int32_t gate, double* hz);
std::int32_t GetGateDutyCycle(std::int32_t address, std::int32_t gate, double* ratio);

// ---------------------------------------------------------------- peaks and markers

// Up to this many peaks drive a marker move.
inline constexpr int kMarkerPeakLimit = 3000;

enum class PeakOrder { kIndex, kValue };
// Peak list of x (dBm, n points): index order takes peaks strictly above the
// threshold, value order those at or above it and sorts them highest first
// (equal values keep index order). At most `maxCount` peaks.
void FindPeaks(const double* x, int n, double excursionDb, double thresholdDbm, PeakOrder order,
               int maxCount, std::vector<PP_Peak>& peaks);
// The same search on a trace of watts: the peaks and values FindPeaks finds
// on its dBm values, without converting every point.
void FindPeaksInWatts(const double* w, int n, double excursionDb, double thresholdDbm,
                      PeakOrder order, int maxCount, std::vector<PP_Peak>& peaks);

std::int32_t GetPeaks(std::int32_t address, PeakOrder order, PP_Peak* peaks, std::int32_t maxCount,
                      std::int32_t* count);
std::int32_t GetPeaksFromTr(const double* trace, std::int32_t length, std::int32_t unit,
                            double excursionDb, double thresholdDbm, PeakOrder order,
                            PP_Peak* peaks, std::int32_t maxCount, std::int32_t* count);
// The parallel-array forms: 0 without searching when n < 1.
std::int32_t GetPeaksSplit(std::int32_t address, PeakOrder order, std::int32_t* indices,
                           double* values, std::int32_t n, std::int32_t* count);
std::int32_t GetPeaksFromTrSplit(const double* trace, std::int32_t length, std::int32_t unit,
                                 double excursionDb, double thresholdDbm, PeakOrder order,
                                 std::int32_t* indices, double* values, std::int32_t n,
                                 std::int32_t* count);

std::int32_t SetMarkerMode(std::int32_t address, std::int32_t marker, std::int32_t mode);
std::int32_t GetMarkerMode(std::int32_t address, std::int32_t marker, std::int32_t* mode);
std::int32_t SetMarkerPosition(std::int32_t address, std::int32_t marker, std::int32_t index);
std::int32_t GetMarkerPosition(std::int32_t address, std::int32_t marker, std::int32_t* index);
std::int32_t SetMarkerPositionTime(std::int32_t address, std::int32_t marker, double usec);
std::int32_t GetMarkerPositionTime(std::int32_t address, std::int32_t marker, double* usec);
std::int32_t SetMarkerDeltaTime(std::int32_t address, std::int32_t marker, double usec);
std::int32_t GetMarkerDeltaTime(std::int32_t address, std::int32_t marker, double* usec);
std::int32_t GetMarkerAmp(std::int32_t address, std::int32_t marker, double* dbm);
std::int32_t GetMarkerDeltaAmp(std::int32_t address, std::int32_t marker, double* db);
std::int32_t MarkerPosIsValid(std::int32_t address, std::int32_t marker, std::int32_t* valid);

enum class MarkerMove { kPk, kLowestPk, kFirstPk, kLastPk, kNextPk, kPrevPk, kPkHigher, kPkLower };
// The peak a move picks from `peaks` (index order for first, last, next and
// previous; value order, highest first, for the others) given the marker's
// current point and amplitude; -1 with no peaks.
int PickMarkerPeak(MarkerMove move, const std::vector<PP_Peak>& peaks, std::int32_t current,
                   double currentAmp);
std::int32_t MoveMarker(std::int32_t address, std::int32_t marker, MarkerMove move);

// ---------------------------------------------------------------- edges and statistics

std::int32_t GetTraceAvgPower(std::int32_t address, double* dbm);
std::int32_t GetTracePkPwr(std::int32_t address, double* dbm);
std::int32_t GetTraceCrestFactor(std::int32_t address, double* db);
std::int32_t GetTracePulsePower(std::int32_t address, double* dbm);
std::int32_t GetTraceDC(std::int32_t address, double* ratio);
// Edges of the pulse around peak k of p (watts, last index `lastIdx`).
bool FindPulseEdges(const double* p, std::int32_t lastIdx, std::int32_t k, double thresholdDbm,
                    double criteriaDb, std::int32_t* left, std::int32_t* right);
std::int32_t GetPulseEdgesPosition(std::int32_t address, std::int32_t peak, std::int32_t* left,
                                   std::int32_t* right);
std::int32_t GetPulseEdgesTime(std::int32_t address, double peakUsec, double* left, double* right);
// PP_GetTraceCDF, PP_GetTraceCCDF, PP_GetTracePwrDensity: no effect, 0.
std::int32_t NoStatisticsEffect();

}  // namespace qv
