// Trace conversion steps on crafted records: linearisation, path merge, edge
// correction, resampling, decimation, the filter codes and poles, averaging
// restarts in each mode, and PP_CnvtTrace for every unit pair.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <vector>

#include "profiling/profiling_fixture.h"
#include "profiling/sweep_protocol.h"
#include "profiling/trace_conversion.h"

using namespace qv;
using qv::test::kAddr;
using qv::test::kSlot;
using qv::test::kTemperature;
using qv::test::ProfilingTest;
using qv::test::Record;
using qv::test::Trace;

namespace {

using Conversion = ProfilingTest;

// ---------------------------------------------------------------- linearise and merge

TEST_F(Conversion, LinearisationFindsTheSegmentOfEveryCountInSoundAndDamagedRows) {
    std::vector<double> counts;
    for (int c = 0; c <= 65535; c += 7) counts.push_back(c);
    const int row = 140;
    for (bool damaged : {false, true}) {
        if (damaged) std::swap(Record().tempRows[row].hs[7].count, Record().tempRows[row].hs[12].count);
        std::vector<double> hi = counts, lo = counts;
        Linearise(kSlot, hi.data(), lo.data(), static_cast<long long>(counts.size()), kTemperature,
                  kTemperature);
        for (std::size_t i = 0; i < counts.size(); ++i) {
            const double h = CountToDbm(Record().tempRows[row].hs, counts[i]);
            ASSERT_EQ(hi[i], std::clamp(h, -120.0, 30.0)) << counts[i] << " damaged " << damaged;
            ASSERT_EQ(lo[i], CountToDbm(Record().tempRows[row].ls, counts[i])) << counts[i];
        }
    }
    EXPECT_EQ(Trace().lastTmpRowHi, row);
    double one = 1000.0, two = 1000.0;
    Linearise(kSlot, &one, &two, 1, 0, 100000);  // far outside the table: the end rows
    EXPECT_LT(Trace().lastTmpRowHi, 0);
    EXPECT_GT(Trace().lastTmpRowLo, 349);
    EXPECT_EQ(one, std::clamp(CountToDbm(Record().tempRows[0].hs, 1000.0), -120.0, 30.0));
}

TEST_F(Conversion, MergeKeepsBlendsOrSwitchesPathsAcrossTheCrossoverBand) {
    // QV442A: the band is -30..-20 dBm at any frequency.
    const double xw = DbmToWatts(-30.0), yw = DbmToWatts(-20.0);
    const double hw = DbmToWatts(-24.0), lw = DbmToWatts(-26.0);
    const double blend = WattsToDbm((yw - hw) / (yw - xw) * hw + (lw - xw) / (yw - xw) * lw);
    const std::vector<std::pair<double, double>> in = {
        {-30.0, 10.0}, {-35.0, -19.0}, {-25.0, -20.0}, {-19.0, -25.0}, {-25.0, -31.0}, {-24.0, -26.0}};
    const std::vector<double> expected = {-30.0, -35.0, -20.0, -19.0, -25.0, blend};
    std::vector<double> hi, lo;
    for (auto [h, l] : in) hi.push_back(h), lo.push_back(l);
    MergePaths(kSlot, hi.data(), lo.data(), static_cast<long long>(hi.size()));
    for (std::size_t i = 0; i < hi.size(); ++i) EXPECT_DOUBLE_EQ(hi[i], expected[i]) << i;
}

TEST_F(Conversion, OnePassToWattsAgreesWithTheStepsOneByOne) {
    Record().current.OffsetEnabled = 1;
    Record().current.Offset_DB = -2.5;
    Trace().sweepTimeIdx = 6;  // no edge correction: the one-pass conversion
    std::vector<double> hi, lo;
    for (long long i = 0; i < 40000; ++i) {
        hi.push_back((i * 7919) % 65536);
        lo.push_back((i * 104729) % 65536);
    }
    hi.push_back(1234.5);  // not a count the split gives
    lo.push_back(-3.0);
    std::vector<double> stepHi = hi, stepLo = lo;
    const long long n = static_cast<long long>(hi.size());
    ASSERT_TRUE(LineariseMergeCorrect(kSlot, hi.data(), lo.data(), n, kTemperature, kTemperature + 500));
    Linearise(kSlot, stepHi.data(), stepLo.data(), n, kTemperature, kTemperature + 500);
    MergePaths(kSlot, stepHi.data(), stepLo.data(), n);
    OffsetAndResponse(kSlot, stepHi.data(), n);
    for (long long i = 0; i < n; ++i)
        ASSERT_NEAR(hi[i], DbmToWatts(stepHi[i]), DbmToWatts(stepHi[i]) * 1e-12) << i;
    // Sweeps of 200 us and less: merged in dBm for the edge correction, which
    // leaves a trace under its level (-35 dBm) alone.
    Trace().sweepTimeIdx = 4;
    std::vector<double> quietHi(hi.size(), 40000.0), quietLo(hi.size(), 60000.0);
    std::vector<double> stepQuiet = quietHi, stepQuietLo = quietLo;
    ASSERT_FALSE(LineariseMergeCorrect(kSlot, quietHi.data(), quietLo.data(), n, kTemperature,
                                       kTemperature));
    Linearise(kSlot, stepQuiet.data(), stepQuietLo.data(), n, kTemperature, kTemperature);
    MergePaths(kSlot, stepQuiet.data(), stepQuietLo.data(), n);
    OffsetAndResponse(kSlot, stepQuiet.data(), n);
    ASSERT_LT(stepQuiet[0], -35.0 + Record().current.Offset_DB);
    EXPECT_EQ(quietHi, stepQuiet);
}

TEST(EdgeCorrection, LeavesLowAndFlatPartsAloneAndLiftsTheFirstStepsOfAFall) {
    std::vector<double> x = {-60, -60, -60, -10, -10, -10, -10, -60, -60};
    std::vector<double> y = x;
    EdgeCorrection(-35.0, y.data(), static_cast<long long>(y.size()));
    EXPECT_EQ(y, x);
    // A point just below the level after -10, -10 falls by 10 dB: the
    // correction adds a fifth of the power it lost.
    std::vector<double> fall = {-10, -10, -20, -40, -40};
    EdgeCorrection(-35.0, fall.data(), 5);
    EXPECT_NEAR(fall[2], WattsToDbm(DbmToWatts(-20.0) + 0.2 * (DbmToWatts(-10.0) - DbmToWatts(-20.0))),
                1e-12);
    EXPECT_EQ(fall[3], -40.0);
}

// ---------------------------------------------------------------- resampling

TEST(Resampling, TenMicrosecondSweepIsPointForPointAndLongerOnesAreOverlapWeightedMeans) {
    std::vector<double> record(12096);
    for (std::size_t j = 0; j < record.size(); ++j) record[j] = WattsToDbm(1e-6 * (1 + j % 97));
    std::vector<double> out(480);
    ASSERT_TRUE(IntervalResample(record.data(), 12096, SweepSpanPoints(0), out.data(), 480));
    for (int i = 0; i < 480; ++i) ASSERT_NEAR(out[i], DbmToWatts(record[i]), 1e-18);
    // 500 us: 12000 record points into 10000, each output the mean over 1.2 of them.
    std::vector<double> out5(10000);
    ASSERT_TRUE(IntervalResample(record.data(), 12192, SweepSpanPoints(5), out5.data(), 10000));
    auto w = [&](int j) { return DbmToWatts(record[j]); };
    EXPECT_NEAR(out5[0], (w(0) + 0.2 * w(1)) / 1.2, 1e-15);
    EXPECT_NEAR(out5[1], (0.8 * w(1) + 0.4 * w(2)) / 1.2, 1e-15);
    double total = 0.0, outTotal = 0.0;
    for (int j = 0; j < 12000; ++j) total += w(j);
    for (double v : out5) outTotal += v;
    EXPECT_NEAR(outTotal * 1.2, total, total * 1e-12);
    EXPECT_FALSE(IntervalResample(record.data(), 12192, SweepSpanPoints(5), out5.data(), 12192));
}

TEST(Resampling, SlowDecimationAveragesGroupsAndSharesTheMiddleOfFiveAt50ms) {
    std::vector<double> record(500000);
    for (std::size_t j = 0; j < record.size(); ++j) record[j] = WattsToDbm(1e-6 * (j + 1));
    std::vector<double> out(10000);
    ASSERT_TRUE(SlowDecimate(11, record.data(), 25000, out.data(), 10000));
    EXPECT_NEAR(out[0], 1e-6 * (1 + 2 + 0.5 * 3) / 2.5, 1e-15);
    EXPECT_NEAR(out[1], 1e-6 * (0.5 * 3 + 4 + 5) / 2.5, 1e-15);
    EXPECT_NEAR(out[9999], 1e-6 * (0.5 * 24998 + 24999 + 25000) / 2.5, 1e-12);
    ASSERT_TRUE(SlowDecimate(12, record.data(), 50000, out.data(), 10000));
    EXPECT_NEAR(out[3], 1e-6 * (16 + 17 + 18 + 19 + 20) / 5.0, 1e-15);
    EXPECT_FALSE(SlowDecimate(12, record.data(), 49999, out.data(), 10000));
    EXPECT_FALSE(SlowDecimate(12, record.data(), 500000, out.data(), 9999));
    EXPECT_FALSE(SlowDecimate(9, record.data(), 500000, out.data(), 10000));
}

// ---------------------------------------------------------------- filter

TEST(Filter, NoFilterCodeAndBadPoles) {
    std::vector<double> w(100, 1e-3), original = w;
    for (int poles : {0, 1, 2, 7}) EXPECT_EQ(FilterTrace(6, kNoFilter, poles, w.data(), 100), 1);
    EXPECT_EQ(w, original);
    EXPECT_EQ(FilterTrace(6, 5, 3, w.data(), 100), -1);
    EXPECT_EQ(FilterTrace(6, 5, -1, w.data(), 100), -1);
}

TEST(Filter, EveryCodeAndPoleCountPassesASteadyPowerAndWiderBandsSettleSooner) {
    for (int poles = 0; poles <= 2; ++poles) {
        int previousSettle = 1 << 30;
        for (int code = 1; code <= 8; ++code) {
            std::vector<double> w(10000, 1e-3);
            ASSERT_EQ(FilterTrace(6, code, poles, w.data(), 10000), 1);
            EXPECT_NEAR(w.back(), 1e-3, 1e-9) << code << " " << poles;
            const int settle = static_cast<int>(
                std::find_if(w.begin(), w.end(), [](double v) { return v > 0.99e-3; }) - w.begin());
            EXPECT_LE(settle, previousSettle) << code << " " << poles;
            previousSettle = settle;
        }
    }
}

TEST(Filter, OnePoleFollowsItsTimeConstantAndQuietTracesStopAtTheFloor) {
    // 1 ms sweep, 10000 points: 0.1 us a point; 1 MHz: tau = 1 / (2 pi 1e6).
    const double b = std::exp(-0.1e-6 * 2.0 * 3.141592653589 * 1e6);
    std::vector<double> w(50, 1e-3);
    ASSERT_EQ(FilterTrace(6, 5, 0, w.data(), 50), 1);
    EXPECT_NEAR(w[0], (1 - b) * 1e-3, 1e-15);
    EXPECT_NEAR(w[9], (1 - std::pow(b, 10)) * 1e-3, 1e-15);
    for (int poles = 0; poles <= 2; ++poles) {
        std::vector<double> zero(40, 0.0);
        FilterTrace(6, 5, poles, zero.data(), 40);
        EXPECT_EQ(zero.back(), 1e-11) << poles;
    }
}

// ---------------------------------------------------------------- averaging

std::vector<double> Flat(double watts, int n = 100) { return std::vector<double>(n, watts); }

TEST_F(Conversion, AveragingRestartsInEachMode) {
    struct Step {
        int mode;
        bool armed;
        double newWatts;
        bool restarts;
        int count;  // after the trace; it stops at traceAvgs (2)
    };
    const double p = 1e-3;
    const Step steps[] = {
        {0, false, p, true, 0},  {0, false, 2 * p, true, 0},        // mode 0: always the new trace
        {1, true, p, true, 0},                                      // restart requested
        {1, false, 1.02 * p, false, 1},                             // 2 %: continued
        {1, false, 1.04 * p, false, 2},  {1, false, 1.045 * p, false, 2},
        {1, false, 1.2 * p, true, 0},                               // 10 % and more: restarted
        {2, false, 3 * p, false, 1},     {2, false, 9 * p, false, 2},  // only on request
        {2, true, 5 * p, true, 0},
        {5, true, 7 * p, false, 1},                                 // any other mode: never
    };
    Trace().traceAvgs = 2;
    double previous = 0.0;
    for (const Step& s : steps) {
        Trace().avgMode = s.mode;
        if (s.armed) Trace().avgRestart = 1;
        std::vector<double> w = Flat(s.newWatts);
        ASSERT_EQ(AverageTrace(kSlot, w.data(), 100), 1);
        const double alpha = 2.0 / (s.count + 1);
        const double expected = s.restarts ? s.newWatts : alpha * s.newWatts + (1 - alpha) * previous;
        EXPECT_NEAR(DbmToWatts(w[50]), expected, 1e-12) << s.mode << " " << s.newWatts;
        EXPECT_NEAR(Record().avgTrace[50], expected, 1e-15);
        EXPECT_EQ(Trace().avgCount, s.count) << s.mode << " " << s.newWatts;
        if (s.mode == 1 || s.mode == 2) {
            EXPECT_EQ(Trace().avgRestart, 0);
        }
        previous = expected;
    }
}

TEST_F(Conversion, PointsThatAreNotFiniteTakeTheOtherTrace) {
    Trace().avgMode = 2;
    Trace().avgRestart = 0;
    Trace().traceAvgs = 10;
    Record().avgTrace[0] = 1e-3;
    Record().avgTrace[1] = NAN;
    Record().avgTrace[2] = 1e-3;
    std::vector<double> w = {NAN, 2e-3, 3e-3};
    AverageTrace(kSlot, w.data(), 3);
    EXPECT_NEAR(DbmToWatts(w[0]), 1e-3, 1e-15);
    EXPECT_NEAR(DbmToWatts(w[1]), 2e-3, 1e-15);
    EXPECT_NEAR(DbmToWatts(w[2]), 3e-3, 1e-15);  // first average: alpha 1
}

// ---------------------------------------------------------------- PP_CnvtTrace

TEST_F(Conversion, EveryUnitPairGoesThroughDbm) {
    const double dbm = -13.0;
    // The value -13 dBm in each unit code; 4 and 5 have no trace rule.
    const double inUnit[8] = {-13.0, -43.0, -73.0, -13.0 + 106.9897, 0, 0, 0.001 * std::pow(10.0, -1.3),
                              std::sqrt(0.05 * std::pow(10.0, -1.3))};
    for (int from = -1; from <= 9; ++from) {
        for (int to = -1; to <= 9; ++to) {
            const double in[2] = {from >= 0 && from <= 7 ? inUnit[from] : dbm, 1.0};
            double out[2] = {};
            ASSERT_EQ(PP_CnvtTrace(kAddr, in, 2, out, from, to), 1);
            double expected;
            if (from < 0 || from > 7 || to < 0 || to > 7) expected = -9999.99;
            else if (from == 4 || from == 5 || to == 4 || to == 5) expected = -9999.999;
            else expected = inUnit[to];
            EXPECT_NEAR(out[0], expected, std::fabs(expected) * 1e-12 + 1e-12) << from << " " << to;
        }
    }
    double value = 5.0;
    EXPECT_EQ(PP_CnvtTrace(kAddr, &value, 1, &value, 1, 0), 1);  // in place
    EXPECT_EQ(value, 35.0);
    EXPECT_EQ(PP_CnvtTrace(kAddr, nullptr, 1, &value, 0, 0), -1);
    EXPECT_EQ(PP_CnvtTrace(kAddr, &value, -1, &value, 0, 0), -1);
}

}  // namespace
