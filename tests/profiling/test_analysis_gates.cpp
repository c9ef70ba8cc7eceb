// The analysis trace (units in and out, unconvertible points), gate
// positions and times, gate measurements on short gates, the first-pulse
// finder's level rule, crossings at exact levels, and the whole-trace
// statistics and pulse edges.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "profiling/analysis_fixture.h"

using namespace qv;
using qv::test::AnalysisTest;
using qv::test::ValueOf;
using qv::test::kAddr;
using qv::test::Pulses;
using qv::test::Record;
using qv::test::TraceValue;

namespace {

constexpr double kB = 1e-9;  // baseline between pulses, W

// ---------------------------------------------------------------- analysis trace

TEST_F(AnalysisTest, UnconvertiblePointsRepeatThePreviousStoredPoint) {
    struct Case {
        int unit;
        std::vector<double> in;
        std::vector<double> watts;
    };
    const Case cases[] = {
        {QV_UNIT_W, {0.0, 2e-3, -1.0, 0.0, 5e-3}, {0.0, 2e-3, 2e-3, 2e-3, 5e-3}},
        {QV_UNIT_V, {-0.5, 0.5, 0.0}, {0.0, 0.005, 0.005}},
        {QV_UNIT_DBW, {-30.0, NAN, -20.0}, {1e-3, 1e-3, 1e-2}},
        {QV_UNIT_DBUV, {106.9897}, {1e-3}},
        {QV_UNIT_DBMV, {0.0, 10.0}, {0.0, 0.0}},
        {QV_UNIT_DBV, {0.0}, {0.0}},
        {8, {0.0}, {0.0}},
        {-1, {0.0}, {0.0}},
    };
    for (const Case& c : cases) {
        Freeze(c.in, 1000.0, c.unit);
        for (std::size_t i = 0; i < c.watts.size(); ++i)
            EXPECT_NEAR(Analysis().analysisTrace[i], c.watts[i], c.watts[i] * 1e-9)
                << "unit " << c.unit << " point " << i;
        EXPECT_EQ(Analysis().analysisTrace[c.watts.size()], 0.0);  // beyond n
        EXPECT_EQ(Analysis().analysisUnit, c.unit);
    }
}

TEST_F(AnalysisTest, ReadsBackInAnyUnitLeavingPointsWithoutPowerToTheCaller) {
    Freeze({0.0, 1e-3, 1e-2}, 20.7);  // the first point cannot be taken: 0 W
    std::vector<double> out(5, 7.0);
    double freq = 0, sweep = 0;
    int n = 5;
    const int dbw = QV_UNIT_DBW, v = QV_UNIT_V, bad = 9;
    ASSERT_EQ(PP_GetAnalysisTrace(kAddr, &freq, &sweep, out.data(), &n, &dbw), 1);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(freq, 1e9);
    EXPECT_EQ(sweep, 20.0);  // truncated when frozen
    EXPECT_EQ(out[0], 7.0);  // 0 W: left as it was
    EXPECT_NEAR(out[1], -30.0, 1e-12);
    EXPECT_NEAR(out[2], -20.0, 1e-12);
    EXPECT_EQ(out[3], 0.0);
    EXPECT_EQ(out[4], 0.0);
    ASSERT_EQ(PP_GetAnalysisTrace(kAddr, &freq, &sweep, out.data(), &n, &v), 1);
    EXPECT_NEAR(out[1], std::sqrt(0.05), 1e-12);
    ASSERT_EQ(PP_GetAnalysisTrace(kAddr, &freq, &sweep, out.data(), &n, &bad), 1);
    EXPECT_EQ(out[1], -9999.999);
    n = 2;  // shorter than the trace
    EXPECT_EQ(PP_GetAnalysisTrace(kAddr, &freq, &sweep, out.data(), &n, &dbw), -1);
    EXPECT_EQ(n, 2);
    EXPECT_EQ(PP_GetAnalysisTrace(kAddr, &freq, &sweep, out.data(), &n, nullptr), -1);
}

TEST_F(AnalysisTest, RefusedFreezesChangeNothing) {
    Freeze({1e-3, 2e-3});
    const std::vector<double> big(kTraceCapacity + 1, 1e-3);
    EXPECT_EQ(PP_SetAnalysisTrace(kAddr, 1e9, 1000, big.data(), kTraceCapacity + 1, 6), -1);
    EXPECT_EQ(PP_SetAnalysisTrace(kAddr, 1e9, 1000, big.data(), 0, 6), -1);
    EXPECT_EQ(PP_SetAnalysisTrace(kAddr, 1e9, 0.5, big.data(), 3, 6), -1);
    EXPECT_EQ(PP_SetAnalysisTrace(kAddr, 1e9, 1000, nullptr, 3, 6), -1);
    EXPECT_EQ(PP_SetAnalysisTrace(kAddr + 1, 1e9, 1000, big.data(), 3, 6), -1);
    EXPECT_EQ(PP_GetAnalysisTraceLength(kAddr), 2);
    EXPECT_EQ(Analysis().analysisTrace[1], 2e-3);
}

TEST_F(AnalysisTest, TheAcquiredTraceIsCopiedWithItsSweepAndValidity) {
    Record().analysis.analysisValid = 0;
    EXPECT_EQ(PP_AnalysisTraceIsValid(kAddr), 0);
    EXPECT_EQ(PP_GetAnalysisTraceLength(kAddr), -1);
    ASSERT_EQ(PP_SetSweepTime(kAddr, 20), 1);
    for (int i = 0; i < 960; ++i) Record().avgTrace[i] = 1e-3 * (i + 1);
    std::vector<double> out(960, 5.0);
    ASSERT_EQ(PP_CurrTrace2AnalysisTrace(kAddr, out.data(), 959), 1);  // too short: not written
    EXPECT_EQ(out[0], 5.0);
    ASSERT_EQ(PP_CurrTrace2AnalysisTrace(kAddr, out.data(), 960), 1);
    EXPECT_NEAR(out[9], 10.0, 1e-12);
    EXPECT_EQ(PP_AnalysisTraceIsValid(kAddr), 1);
    EXPECT_EQ(PP_GetAnalysisTraceLength(kAddr), 960);
    EXPECT_EQ(Analysis().analysisSweepTime, 20);
    EXPECT_EQ(Analysis().analysisUnit, 0);
    EXPECT_EQ(PP_AnalysisTraceIsValid(kAddr + 1), -1);
}

// ---------------------------------------------------------------- gate settings

TEST_F(AnalysisTest, GatesNeedAValidTraceAndTheGateOn) {
    Record().analysis.analysisValid = 0;
    Freeze(std::vector<double>(10, 1e-3));
    EXPECT_EQ(PP_SetGateMode(kAddr, 0, 1), 1);  // mode needs no trace
    EXPECT_EQ(PP_SetGateStartEndPosition(kAddr, 0, 0, 5), -1);
    Record().analysis.analysisValid = 1;
    EXPECT_EQ(PP_SetGateStartEndPosition(kAddr, 0, 0, 5), 1);
    EXPECT_EQ(PP_SetGateMode(kAddr, 0, 0), 1);
    ValueOf(PP_GetGateAveragePower, 0, -1);
    EXPECT_EQ(PP_SetGateMode(kAddr, 0, 2), -1);
    EXPECT_EQ(PP_SetGateMode(kAddr, 10, 1), -1);
    int valid = 7;
    EXPECT_EQ(PP_GatePositionIsValid(kAddr, 0, &valid), -1);
    EXPECT_EQ(valid, 0);  // zeroed before refusing
}

TEST_F(AnalysisTest, GateTimesRoundToPositionsAndTheEndFollowsALateStart) {
    Freeze(std::vector<double>(960, 1e-3), 20.0);
    ASSERT_EQ(PP_SetGateMode(kAddr, 3, 1), 1);
    int s = -2, e = -2;
    ASSERT_EQ(PP_SetGateStartEndTime(kAddr, 3, 0.0, 20.0), 1);
    ASSERT_EQ(PP_GetGateStartEndPosition(kAddr, 3, &s, &e), 1);
    EXPECT_EQ(s, 0);
    EXPECT_EQ(e, 959);
    ASSERT_EQ(PP_SetGateEndTime(kAddr, 3, 5.0), 1);
    double st, et, spt, ept;
    ASSERT_EQ(PP_GetGateStartEndPositionTime(kAddr, 3, &s, &spt, &e, &ept), 1);
    EXPECT_EQ(e, 240);
    EXPECT_NEAR(ept, 240 * 20.0 / 959, 1e-12);
    ASSERT_EQ(PP_SetGateStartTime(kAddr, 3, 7.0), 1);
    ASSERT_EQ(PP_GetGateStartEndTime(kAddr, 3, &st, &et), 1);
    EXPECT_EQ(st, 7.0);
    EXPECT_EQ(et, 7.0);
    ASSERT_EQ(PP_GetGateStartEndPosition(kAddr, 3, &s, &e), 1);
    EXPECT_EQ(s, 336);
    EXPECT_EQ(e, 240);  // the end position stays
    int valid = -1;
    ASSERT_EQ(PP_GatePositionIsValid(kAddr, 3, &valid), 1);
    EXPECT_EQ(valid, 0);
    EXPECT_EQ(PP_SetGateEndTime(kAddr, 3, 6.0), -1);   // before the start
    EXPECT_EQ(PP_SetGateStartTime(kAddr, 3, 20.5), -1);  // after the sweep
    EXPECT_EQ(PP_SetGateStartEndPosition(kAddr, 3, 5, 960), -1);
    EXPECT_EQ(PP_SetGateStartEndPosition(kAddr, 3, 6, 5), -1);
    ASSERT_EQ(PP_SetGateStartEndPosition(kAddr, 3, 5, 10), 1);
    EXPECT_EQ(PP_SetGateStartPosition(kAddr, 3, 11), -1);
    EXPECT_EQ(PP_SetGateEndPosition(kAddr, 3, 4), -1);
    EXPECT_NEAR(ValueOf(PP_GetGateStartTime, 3), 5 * 20.0 / 959, 1e-12);
}

// ---------------------------------------------------------------- gate measurements

TEST_F(AnalysisTest, TwoPointGatesGiveAverageAndPeakOnly) {
    Freeze({4e-3, 1e-3, 1e-3, 1e-3, 1e-3, 1e-3});
    Gate(0, 0, 1);
    EXPECT_NEAR(ValueOf(PP_GetGateAveragePower, 0), 10 * std::log10(2.5), 1e-12);
    // Peak and crest factor answer with the peak's index: 0 here, which makes the crest factor -1.
    EXPECT_NEAR(ValueOf(PP_GetGatePeakPower, 0, 0), 10 * std::log10(4.0), 1e-12);
    EXPECT_NEAR(ValueOf(PP_GetGateCrestFactor, 0, -1), 10 * std::log10(4.0 / 2.5), 1e-12);
    for (auto get : {PP_GetGateDroop, PP_GetGateOverShoot, PP_GetGateRiseTime, PP_GetGateFallTime,
                     PP_GetGatePulseWidth, PP_GetGatePulsePower, PP_GetGatePRT, PP_GetGatePRF,
                     PP_GetGateDutyCycle})
        ValueOf(get, 0, -1);
    Gate(1, 1, 4);
    ValueOf(PP_GetGateCrestFactor, 1, 1);
}

TEST_F(AnalysisTest, ThreePointGatesMeasureDroopAndOvershootAndRaiseToTheThreshold) {
    Freeze({8e-3, 2e-3, 1e-9, 1e-3});
    ASSERT_EQ(PP_SetMeasurementThreshold(kAddr, 0.0), 1);  // 1 mW
    Gate(0, 0, 2);
    // Under 20 points head and tail are the second points.
    EXPECT_NEAR(ValueOf(PP_GetGateDroop, 0), 0.0, 1e-12);
    EXPECT_NEAR(ValueOf(PP_GetGateOverShoot, 0), 10 * std::log10(8.0 / ((8.0 + 2.0 + 1.0) / 3)), 1e-12);
}

TEST(GateAlgorithms, DroopWeighsTheFractionOfTheNextPoint) {
    std::vector<double> p(30, 1.0);
    p[0] = 4.0;           // head: w = 1.5, k = 1, f = 0.5: (p0 + 0.5 p2) / 1.5
    p[2] = 2.0;
    p[27] = 0.5;          // tail: (p29 + 0.5 p27) / 1.5
    double db;
    ASSERT_TRUE(GateDroop(p.data(), 30, &db));
    EXPECT_NEAR(db, 10 * std::log10((5.0 / 1.5) / (1.25 / 1.5)), 1e-12);
}

TEST(GateAlgorithms, RiseAndFallCrossingsAtExactLevels) {
    const GateScale s {2.0, 10000, 1000, 3.0};
    double t;
    // 90 % and 10 % of the last point fall exactly on samples.
    ASSERT_TRUE(GateRiseTime(std::vector<double> {0, 0.05, 0.1, 0.5, 0.9, 1.0}.data(), 6, s, &t));
    EXPECT_NEAR(t, (4.0 - 2.0) * 2.0, 1e-12);
    // No point strictly below 10 % before the 90 % point: no rise.
    EXPECT_FALSE(GateRiseTime(std::vector<double> {0, 0.1, 0.5, 0.9, 1.0}.data(), 5, s, &t));
    ASSERT_TRUE(GateFallTime(std::vector<double> {1.0, 0.9, 0.5, 0.1, 0.05, 0}.data(), 6, s, &t));
    EXPECT_NEAR(t, (3.0 - 1.0) * 2.0, 1e-12);
    // A gate that does not end on the top has no 90 % crossing to bracket.
    EXPECT_FALSE(GateRiseTime(std::vector<double> {0, 1.0, 1.0, 0.0}.data(), 4, s, &t));
}

TEST(GateAlgorithms, FirstPulseLevelFollowsTheDepthOfThePulse) {
    // Mean 1.24; upper group 1.5, 2.0, 1.5 lies 1.28 dB above it.
    const std::vector<double> p {1.0, 1.0, 1.2, 1.5, 2.0, 1.5, 1.2, 1.0, 1.0, 1.0};
    FirstPulse f;
    // Criteria 3 dB: shallow, the level is 3 dB below the maximum (1.002).
    ASSERT_TRUE(FindFirstPulse(p.data(), 10, 3.0, &f));
    EXPECT_EQ(f.rise, 2);
    EXPECT_EQ(f.fall, 7);
    // Criteria 1 dB: deep enough, the level is half-way between the groups (1.36).
    ASSERT_TRUE(FindFirstPulse(p.data(), 10, 1.0, &f));
    EXPECT_EQ(f.rise, 3);
    EXPECT_EQ(f.fall, 6);
    // Leading points above the level are skipped, and a flat trace has no pulse.
    const std::vector<double> late {1.0, 1.0, kB, kB, 1.0, 1.0, kB, kB};
    ASSERT_TRUE(FindFirstPulse(late.data(), 8, 3.0, &f));
    EXPECT_EQ(f.rise, 4);
    EXPECT_FALSE(FindFirstPulse(std::vector<double>(8, 1.0).data(), 8, 3.0, &f));
    EXPECT_FALSE(FindFirstPulse(late.data(), 5, 3.0, &f));  // fewer than 6 points
}

// The repetition time's second pulse comes from the first search's sums with
// the points between the gate's mean and the rest's mean moved across, and
// from the rest's own maximum: it must be the rest's first pulse.
TEST(GateAlgorithms, SecondPulseIsTheFirstPulseOfTheRest) {
    struct Case {
        std::vector<double> p;
        double criteria;
        FirstPulse one, two;
    };
    const Case cases[] = {
        {{2, 6, 2, 8, 5, 8, 5, 2}, 1.0, {1, 2}, {3, 4}},  // means 4.75 and 5: the 5s go low
        // Means 3.375 and 2.5: the 3s go high; sixteen points are one block.
        {{10, 2, 2, 10, 3, 5, 4, 3, 2, 6, 1, 1, 2, 1, 1, 1}, 1.0, {3, 4}, {9, 10}},
        // Shallow rest: its level is 3 dB below its own maximum (6), not the gate's (10).
        {{1, 3, 10, 3, 2, 4, 6, 3, 5, 2}, 3.0, {2, 3}, {5, 7}},
    };
    for (const Case& c : cases) {
        FirstPulse one {}, two {};
        ASSERT_TRUE(FindPulsePair(c.p.data(), static_cast<int>(c.p.size()), c.criteria, &one, &two));
        EXPECT_EQ(one.rise, c.one.rise);
        EXPECT_EQ(one.fall, c.one.fall);
        EXPECT_EQ(two.rise, c.two.rise) << c.p.size() << " points";
        EXPECT_EQ(two.fall, c.two.fall) << c.p.size() << " points";
    }
}

TEST_F(AnalysisTest, PulseWidthPeriodAndDutyCycleOfATrain) {
    // 1000 us over 10000 points: 0.1 us per point; pulses of 4 points every 8.
    Freeze(Pulses(24, kB, 1e-3, {{4, 8}, {12, 16}, {20, 24}}), 1000.0);
    Gate(0, 0, 19);
    const double top = 10 * std::log10(1.0);
    const double level = 1e-3 * std::pow(10.0, -0.3);
    const double crossing = (level - kB) / (1e-3 - kB);
    EXPECT_NEAR(ValueOf(PP_GetGatePulseWidth, 0), (7 + (1 - crossing) - (3 + crossing)) * 0.1, 1e-9);
    EXPECT_NEAR(ValueOf(PP_GetGatePRT, 0), 0.8, 1e-9);
    EXPECT_NEAR(ValueOf(PP_GetGatePRF, 0), 1e6 / 0.8, 1e-3);
    EXPECT_NEAR(ValueOf(PP_GetGateDutyCycle, 0), (4 + 1 - 2 * crossing) / 8, 1e-9);
    EXPECT_NEAR(ValueOf(PP_GetGatePulsePower, 0), top, 1e-9);
    Gate(1, 0, 10);  // one pulse: no repetition
    ValueOf(PP_GetGatePRT, 1, -1);
    ValueOf(PP_GetGatePulseWidth, 1, 1);
}

// ---------------------------------------------------------------- statistics and edges

TEST_F(AnalysisTest, AQuarterDutyTrainGivesItsDutyCycleAndTopPower) {
    Freeze(Pulses(40, kB, 2e-3, {{0, 5}, {20, 25}}));
    EXPECT_DOUBLE_EQ(TraceValue(PP_GetTraceDC), 0.25);
    EXPECT_NEAR(TraceValue(PP_GetTracePulsePower), 10 * std::log10(2.0), 1e-12);
    EXPECT_NEAR(TraceValue(PP_GetTracePkPwr), 10 * std::log10(2.0), 1e-12);
    EXPECT_NEAR(TraceValue(PP_GetTraceAvgPower), 10 * std::log10((10 * 2e-3 + 30 * kB) / 40 / 1e-3), 1e-12);
    EXPECT_NEAR(TraceValue(PP_GetTraceCrestFactor), 10 * std::log10(2e-3 / ((10 * 2e-3 + 30 * kB) / 40)),
                1e-12);
    // Criteria of 10 dB with automatic criteria on: still 3 dB.
    ASSERT_EQ(QV_SetPulseCriteria(kAddr, 10.0), 1);
    std::vector<double> w = Pulses(40, kB, 2e-3, {{0, 5}, {20, 25}});
    w[6] = 0.5e-3;  // 6 dB down: in at 10 dB, out at 3 dB
    Freeze(w);
    EXPECT_DOUBLE_EQ(TraceValue(PP_GetTraceDC), 11.0 / 40);
    ASSERT_EQ(QV_SetAutoPulseEnabled(kAddr, 1), 1);
    EXPECT_DOUBLE_EQ(TraceValue(PP_GetTraceDC), 0.25);
}

TEST_F(AnalysisTest, PulseEdgesAreTheFirstPointsAtOrBelowTheLevel) {
    const double level = AnalysisWatts(AnalysisDbm(1e-3) - 3.0);
    std::vector<double> w = Pulses(20, kB, 1e-3, {{6, 12}});
    w[5] = level;         // exactly on the level: the left edge
    w[12] = level * 1.01;  // just above: the edge is the next point
    Freeze(w, 19.0);
    int l = -1, r = -1;
    ASSERT_EQ(PP_GetPulseEdgesPosition(kAddr, 8, &l, &r), 1);
    EXPECT_EQ(l, 5);
    EXPECT_EQ(r, 13);
    double tl, tr;
    ASSERT_EQ(PP_GetPulseEdgesTime(kAddr, 8.9, &tl, &tr), 1);  // truncated to point 8
    EXPECT_DOUBLE_EQ(tl, 5.0);
    EXPECT_DOUBLE_EQ(tr, 13.0);
    EXPECT_EQ(PP_GetPulseEdgesPosition(kAddr, 3, &l, &r), -1);
    EXPECT_EQ(PP_GetPulseEdgesPosition(kAddr, 4, &l, &r), -1);  // accepted, but no left edge
    EXPECT_EQ(PP_GetPulseEdgesPosition(kAddr, 16, &l, &r), -1);  // k + 3 reaches the last index
    ASSERT_EQ(PP_SetMeasurementThreshold(kAddr, 0.5), 1);  // above the 0 dBm peak
    EXPECT_EQ(PP_GetPulseEdgesPosition(kAddr, 8, &l, &r), -1);
    EXPECT_EQ(PP_GetPulseEdgesTime(kAddr, 8.0, &tl, &tr), -1);
    EXPECT_EQ(l, 5);  // untouched by refusals
}

TEST(EdgeAlgorithm, TheSmallestPeakIndexIsFour) {
    // Points 3..5 on: index 3 has a left edge too, but lies below the smallest index.
    const std::vector<double> p = Pulses(12, kB, 1e-3, {{3, 6}});
    std::int32_t l, r;
    EXPECT_TRUE(FindPulseEdges(p.data(), 11, 4, -100.0, 3.0, &l, &r));
    EXPECT_EQ(l, 2);
    EXPECT_EQ(r, 6);
    EXPECT_FALSE(FindPulseEdges(p.data(), 11, 3, -100.0, 3.0, &l, &r));
}

TEST_F(AnalysisTest, InactiveStatisticsDoNothing) {
    double a[3] = {1, 2, 3};
    EXPECT_EQ(PP_GetTraceCDF(kAddr, a, 3), 0);
    EXPECT_EQ(PP_GetTraceCCDF(kAddr, a, 3), 0);
    EXPECT_EQ(PP_GetTracePwrDensity(kAddr, nullptr, -5), 0);
    EXPECT_EQ(a[0], 1);
    Record().analysis.analysisValid = 0;
    double v = 9;
    EXPECT_EQ(PP_GetTraceAvgPower(kAddr, &v), -1);
    EXPECT_EQ(v, 9);
}

}  // namespace
