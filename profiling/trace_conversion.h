// Trace conversion: a raw record of high-sense and low-sense counts becomes
// the caller's trace. Linearise each path to dBm through the temperature row
// of its reading, merge the paths, reshape the edges of sweeps of 200 us and
// less, add offset and response correction, resample to the caller's number
// of points, filter with the chosen video bandwidth and average with the
// previous traces. Plus the unit conversion of PP_CnvtTrace.
//
// Steps work in place on the caller's arrays and allocate nothing. Between
// resampling and averaging a trace is held in watts (every step there
// averages powers); the last step brings it back to dBm.
#pragma once

#include <cmath>
#include <cstdint>

#include "frame/shared_table.h"

namespace qv {

// exp and log rather than pow and log10: the same values to the last bit or
// two, at a third of the cost, on a path that converts every record point.
inline double DbmToWatts(double dbm) { return 0.001 * std::exp(dbm * 0.23025850929940458); }
inline double WattsToDbm(double w) { return 4.3429448190325175 * std::log(w / 0.001); }

// Steps 1 to 4 on n points: `hi` and `lo` hold counts on entry, `hi` the
// merged, corrected trace on return (`lo` is used as scratch): in dBm, or in
// watts when the answer is true (sweeps without edge correction, which go
// straight on to resampling in watts). Updates lastTmpRowHi and lastTmpRowLo.
bool LineariseMergeCorrect(int slot, double* hi, double* lo, std::int64_t n, std::int32_t tmpHi,
                           std::int32_t tmpLo);
// The same from 16-bit counts as the split gives them, into `out`.
bool LineariseMergeCorrect(int slot, const std::uint16_t* hiCounts, const std::uint16_t* loCounts,
                           double* out, std::int64_t n, std::int32_t tmpHi, std::int32_t tmpLo);

// The single steps, for the tests and the benchmark.
void Linearise(int slot, double* hi, double* lo, std::int64_t n, std::int32_t tmpHi,
               std::int32_t tmpLo);
void MergePaths(int slot, double* hi, const double* lo, std::int64_t n);
// The level below which points are left alone by the edge correction.
double EdgeCorrectionLevel(int slot);
void EdgeCorrection(double level, double* x, std::int64_t n);
void OffsetAndResponse(int slot, double* x, std::int64_t n);

// Record points spanning the sweep of user row `row` (0..15).
std::int64_t SweepSpanPoints(int row);

// Interval resampling of the record `x` (dBm, or watts with `inWatts`;
// recordLength points, only the first `span` are used) into `out` (watts, L
// points). False when L is not below recordLength.
bool IntervalResample(const double* x, std::int64_t recordLength, std::int64_t span, double* out,
                      std::int32_t L, bool inWatts = false);
// Slow decimation for user rows 10..15 (factor 1, 2.5, 5, 10, 25, 50) into
// `out` in watts. False unless L >= 10000 and the record holds L x factor points.
bool SlowDecimate(int userRow, const double* x, std::int64_t recordLength, double* out,
                  std::int32_t L, bool inWatts = false);
// Plain copy in watts.
void CopyToWatts(const double* x, double* out, std::int32_t L, bool inWatts = false);

// The trace filter on L points in watts, in place, with the coefficient sets
// of user row `row`: 1; -1 for a pole setting outside 0..2.
std::int32_t FilterTrace(int row, std::int32_t filter, std::int32_t poles, double* w,
                         std::int32_t L);

// Trace averaging of L points in watts with the slot's average (avgTrace,
// avgCount, avgRestart), then the caller's trace in dBm. Always 1.
std::int32_t AverageTrace(int slot, double* w, std::int32_t L);

// One value converted between power unit codes through dBm; -9999.99 for a
// code outside 0..7, -9999.999 for dBmV and dBV, which traces do not use.
double ConvertTraceValue(double value, std::int32_t fromUnit, std::int32_t toUnit);
// PP_CnvtTrace: 1; -1 null arrays, negative n, sensor not the caller's.
std::int32_t CnvtTrace(std::int32_t address, const double* in, std::int32_t n, double* out,
                       std::int32_t fromUnit, std::int32_t toUnit);

}  // namespace qv
