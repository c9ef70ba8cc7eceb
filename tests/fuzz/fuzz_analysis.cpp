// Peak search, gate measurements, markers, pulse edges and trace statistics
// on arbitrary analysis traces and gate, marker and threshold settings.
#include <cmath>
#include <cstdlib>
#include <limits>

#include "fuzz/fuzz_sensor.h"
#include "profiling/analysis.h"

using namespace qv;
using namespace qv::test;

namespace {

using GateMeasure = std::int32_t (*)(std::int32_t, std::int32_t, double*);
constexpr GateMeasure kGateMeasures[] = {
    GetGateAveragePower, GetGatePeakPower, GetGateCrestFactor, GetGateDroop, GetGateOverShoot,
    GetGateRiseTime, GetGateFallTime, GetGatePulseWidth, GetGatePulsePower, GetGatePRT,
    GetGatePRF, GetGateDutyCycle};
using TraceMeasure = std::int32_t (*)(std::int32_t, double*);
constexpr TraceMeasure kTraceMeasures[] = {GetTraceAvgPower, GetTracePkPwr, GetTraceCrestFactor,
                                           GetTracePulsePower, GetTraceDC};
constexpr MarkerMove kMoves[] = {MarkerMove::kPk, MarkerMove::kLowestPk, MarkerMove::kFirstPk,
                                 MarkerMove::kLastPk, MarkerMove::kNextPk, MarkerMove::kPrevPk,
                                 MarkerMove::kPkHigher, MarkerMove::kPkLower};

// A point in dBm: mostly half-dB steps from -90 dBm, sometimes an edge value.
double Point(std::uint8_t b) {
    constexpr double kEdges[] = {std::numeric_limits<double>::quiet_NaN(),
                                 std::numeric_limits<double>::infinity(),
                                 -std::numeric_limits<double>::infinity(), -1e300, 1e300, 0.0};
    return b < 250 ? -90.0 + 0.5 * b : kEdges[b - 250];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Only a frozen trace makes the analysis trace valid; a caller's trace then replaces it.
    static const bool frozen = [] {
        FuzzSlot();
        std::vector<double> out(10000);
        PP_SetSweepTime(kArgsAddress, 10);
        return CurrTrace2AnalysisTrace(kArgsAddress, out.data(), 10000) == 1;
    }();
    if (!frozen) std::abort();
    ByteSource in(data, size);
    ExportArgs a(in);
    const double sweepTime = a.Real(), excursion = a.Real(), threshold = a.Real();
    const std::int32_t gate = in.Byte() % 11, marker = in.Byte() % 11, unit = in.Byte() % 9;
    const std::int32_t start = a.Int(), end = a.Int(), maxPeaks = a.Count() % 5000;
    std::vector<double> trace;
    while (!in.Empty() && trace.size() < 20000) trace.push_back(Point(in.Byte()));
    const auto n = static_cast<std::int32_t>(trace.size());

    std::vector<PP_Peak> peaks(static_cast<std::size_t>(std::max(maxPeaks, 0)));
    std::int32_t count = 0;
    GetPeaksFromTr(trace.data(), n, unit, excursion, threshold, PeakOrder::kValue, peaks.data(),
                   maxPeaks, &count);
    SetAnalysisTrace(kArgsAddress, 1e9, sweepTime, trace.data(), n, unit);
    SetMeasurementThreshold(kArgsAddress, threshold);
    SetGateStartEndPosition(kArgsAddress, gate, start, end);
    double value;
    for (GateMeasure m : kGateMeasures) m(kArgsAddress, gate, &value);
    for (TraceMeasure m : kTraceMeasures) m(kArgsAddress, &value);
    std::int32_t left, right;
    GetPulseEdgesPosition(kArgsAddress, start, &left, &right);
    GetPulseEdgesTime(kArgsAddress, excursion, &value, &value);
    GetPeaks(kArgsAddress, PeakOrder::kIndex, peaks.data(), maxPeaks, &count);
    SetMarkerPosition(kArgsAddress, marker, end);
    for (MarkerMove move : kMoves) MoveMarker(kArgsAddress, marker, move);
    GetMarkerDeltaAmp(kArgsAddress, marker, &value);
    return 0;
}
