// Burst measurement: the sweep chosen at every boundary of the window end,
// the window's indices, and whole measurements on a simulated sensor whose
// pipe carries a crafted sweep (the settings exports entered again under
// the burst's own lock).
#include <gtest/gtest.h>

#include <vector>

#include "measure/burst.h"
#include "profiling/profiling_fixture.h"

using namespace qv;
using qv::test::kAddr;
using qv::test::Packets;
using qv::test::ProfilingTest;
using qv::test::Record;
using qv::test::Trace;

namespace {

TEST(BurstWindow, SweepTimeAtEveryBoundaryOfTheWindowEnd) {
    const std::pair<long long, int> cases[] = {
        {0, 1000},        {500, 1000},      {1000, 1000},     {1001, 2000},     {2000, 2000},
        {2001, 5000},     {5000, 5000},     {5001, 10000},    {10000, 10000},   {10001, 20000},
        {20000, 20000},   {20001, 100000},  {100000, 100000}, {100001, 500000}, {499999, 500000},
        {500000, 1000000}, {1000000, 1000000}};
    for (auto [end, sweep] : cases) EXPECT_EQ(BurstSweepTime(end), sweep) << end;
}

TEST(BurstWindow, IndicesOfTheWindowClampedIntoTheTrace) {
    struct Case {
        int start, length, sweep, points, first, last;
    };
    const Case cases[] = {
        {0, 0, 1000, 10000, 0, 0},            // one point
        {100, 400, 1000, 10000, 1000, 5000},
        {999, 1, 1000, 10000, 9990, 10000 - 1},
        {0, 1000, 1000, 10000, 0, 9999},      // the window's end lies one point beyond
        {100000, 0, 100000, 10000, 9999, 9999},
        {3, 4, 1000, 10000, 30, 70},
        {900, 200, 1000, 5000, 4500, 4999},   // a shorter trace: clamped to its last point
    };
    for (const Case& c : cases) {
        const BurstWindow w = BurstWindowIndices(c.start, c.length, c.sweep, c.points);
        EXPECT_EQ(w.first, c.first) << c.start << "+" << c.length;
        EXPECT_EQ(w.last, c.last) << c.start << "+" << c.length;
    }
}

class Burst : public ProfilingTest {
protected:
    // A 1 ms sweep whose high sense steps from about -50 to -40 dBm half-way.
    void QueueStep() {
        const SweepConfig& c = SweepConfigRow(6);
        const CalTempRow& row = Record().tempRows[140];
        const int low = static_cast<int>(row.hs[10].count), high = static_cast<int>(row.hs[15].count);
        const long long half = static_cast<long long>(c.packets) * c.samplesPerPacket / 2;
        Queue(Packets(6, c.packets, [&](int p, int k) {
            return std::pair {static_cast<long long>(k) * c.packets + p < half ? low : high, 60000};
        }));
    }
};

TEST_F(Burst, MeasuresTheWindowAndLeavesTheSettingsItMade) {
    ASSERT_EQ(PP_SetSweepTime(kAddr, 20), 1);
    ASSERT_EQ(PP_SetTriggerEdge(kAddr, 1), 1);
    double hi = 0, avg = 0, lo = 0;
    QueueStep();
    ASSERT_EQ(QV_MeasureBurst_DBM(kAddr, 100, 300, 1, &hi, &avg, &lo), 1);
    EXPECT_NEAR(hi, -50.0, 0.1);
    EXPECT_NEAR(lo, -50.0, 0.1);
    EXPECT_NEAR(avg, -50.0, 0.1);
    EXPECT_EQ(Trace().sweepTimeUsec, 1000);
    EXPECT_EQ(Trace().trgSource, 2);
    EXPECT_EQ(Trace().trgEdge, 0);
    EXPECT_EQ(tableView->burstRunning, 0u);
    QueueStep();
    ASSERT_EQ(QV_MeasureBurst_DBM(kAddr, 400, 200, 1, &hi, &avg, &lo), 1);  // across the step
    EXPECT_NEAR(hi, -40.0, 0.1);
    EXPECT_NEAR(lo, -50.0, 0.1);
    EXPECT_GT(avg, lo);
    EXPECT_LT(avg, hi);
}

TEST_F(Burst, RefusalsLeaveTheOutputs) {
    double hi = 1, avg = 2, lo = 3;
    EXPECT_EQ(QV_MeasureBurst_DBM(kAddr, 0, 1000001, 1, &hi, &avg, &lo), -1);
    EXPECT_EQ(QV_MeasureBurst_DBM(kAddr, -1, 10, 1, &hi, &avg, &lo), -1);
    EXPECT_EQ(QV_MeasureBurst_DBM(kAddr, 10, -1, 1, &hi, &avg, &lo), -1);
    EXPECT_EQ(QV_MeasureBurst_DBM(kAddr, 0, 10, 1, nullptr, &avg, &lo), -1);
    EXPECT_EQ(QV_MeasureBurst_DBM(kAddr + 1, 0, 10, 1, &hi, &avg, &lo), -1);
    EXPECT_EQ(Trace().sweepTimeUsec, 1000);  // refused before any setting
    // No sweep arrives: three tries, then -1; the settings made stay.
    EXPECT_EQ(QV_MeasureBurst_DBM(kAddr, 0, 1500, 1, &hi, &avg, &lo), -1);
    EXPECT_EQ(Trace().sweepTimeUsec, 2000);
    EXPECT_EQ(tableView->burstRunning, 0u);
    EXPECT_EQ(hi, 1);
    EXPECT_EQ(avg, 2);
    EXPECT_EQ(lo, 3);
}

}  // namespace
