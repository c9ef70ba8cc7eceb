// Trace acquisition: the delayed path's row, span and start over every sweep
// row and a range of delays; every PP_GetTrace result code reachable with a
// simulated sensor whose pipe carries crafted packets; whole traces through
// the direct and delayed paths with each trigger source.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "profiling/profiling_fixture.h"
#include "profiling/sweep_protocol.h"
#include "profiling/trace_acquisition.h"
#include "profiling/trace_conversion.h"
#include "support/peer_process.h"

using namespace qv;
using qv::test::HiCount;
using qv::test::kAddr;
using qv::test::Packets;
using qv::test::ProfilingTest;
using qv::test::Record;
using qv::test::Trace;
using Strings = std::vector<std::string>;

namespace {

// ---------------------------------------------------------------- delayed path plan

TEST(DelayedPlan, RowChoiceAtTheBoundaries) {
    struct Case {
        int u, delay, undersampling, row;
    };
    const Case cases[] = {
        {0, 1000, 0, 16},   {4, 1001, 0, 17},    {2, 5000, 0, 17},     {3, 5001, 0, 18},
        {5, 10000, 0, 19},  {6, 0, 0, 20},       {9, 10000, 0, 20},    {10, 10000, 0, 21},
        {11, 0, 0, 22},     {10, 10001, 0, 23},  {10, 0, 1, 23},       {11, 50000, 0, 23},
        {11, 50001, 0, 24}, {12, 0, 1, 24},      {12, 100001, 0, 25},  {13, 300000, 0, 25},
        {14, 500000, 0, 26}, {15, 0, 0, 26},     {15, 1, 0, 27},       {16, 0, 0, kDelayedRowAboveUser},
    };
    for (const Case& c : cases)
        EXPECT_EQ(PlanDelayed(c.u, c.delay, c.undersampling, 10000).acqRow, c.row)
            << c.u << " " << c.delay << " " << c.undersampling;
}

TEST(DelayedPlan, TheSpanCoversTheSweepTimeFromTheDelayInsideTheAcquisition) {
    for (int u = 0; u < kUserSweepRows; ++u) {
        const SweepConfig& user = SweepConfigRow(u);
        const int maxDelay = u <= 9 ? 10000 : 4999000;
        for (int delay : {0, 1, 999, 1000, 1001, 4999, 5001, 9999, 10000, 10001, 30000, 99999,
                          150000, 400000, 999999, 1000000, 1990000, 4999000}) {
            if (delay > maxDelay) continue;
            for (int undersampling : {0, 1}) {
                const DelayedPlan plan = PlanDelayed(u, delay, undersampling, user.traceLength);
                const SweepConfig& a = SweepConfigRow(plan.acqRow);
                const double rate = plan.undersampled ? 0.5 : a.samplesPerUsec;
                const std::string where = std::to_string(u) + " " + std::to_string(delay) + " " +
                                          std::to_string(undersampling);
                // Start at the delay, span the sweep (plus one base sample at full rate).
                EXPECT_NEAR(plan.startPoint / rate, delay, 1.0 / rate) << where;
                const double spanUsec = plan.spanPoints / rate;
                EXPECT_NEAR(spanUsec, user.sweepTimeUsec + (plan.undersampled ? 0 : 2), 1e-9) << where;
                EXPECT_TRUE(!plan.undersampled || u >= 10) << where;
                // The record holds the whole span, up to 2 s of delay and sweep; only
                // the 500 us sweep at delays above 9990 us loses its last 10 us (0 counts).
                if (delay + user.sweepTimeUsec <= 2000000) {
                    const double missing =
                        (plan.startPoint + plan.spanPoints - RecordPoints(a)) / rate;
                    EXPECT_LE(missing, u == 5 ? 10.0 : 0.0) << where;
                }
            }
        }
    }
}

// ---------------------------------------------------------------- crafted traces

// A record of row `row` whose high sense steps from -50 to -40 dBm at record point `step`.
std::vector<std::uint8_t> StepRecord(int row, long long step) {
    const int packets = SweepConfigRow(row).packets;
    const int low = static_cast<int>(HiCount(-50.0)), high = static_cast<int>(HiCount(-40.0));
    return Packets(row, packets, [&](int p, int k) {
        return std::pair {static_cast<long long>(k) * packets + p < step ? low : high, 60000};
    });
}

void ExpectStep(const std::vector<double>& trace, int step, double shift = 0.0) {
    for (int i = 0; i < static_cast<int>(trace.size()); ++i)
        ASSERT_NEAR(trace[i], (i < step ? -50.0 : -40.0) + shift, 0.05) << i;
}

class Acquisition : public ProfilingTest {
protected:
    static void Sweep(int usec, int source) {
        ASSERT_EQ(PP_SetSweepTime(kAddr, usec), 1);
        ASSERT_EQ(PP_SetTriggerSoure(kAddr, source), 1);
    }
    // A trace of `n` points taken from `address`, which answers `code`.
    static std::vector<double> Take(int n, int code = 1, int address = kAddr) {
        std::vector<double> trace(static_cast<std::size_t>(n));
        std::int32_t count = 0;
        EXPECT_EQ(PP_GetTrace(address, trace.data(), n, &count), code);
        EXPECT_EQ(count, code == 1 ? n : 0);
        return trace;
    }
};

TEST_F(Acquisition, OffsetIsAddedOnceOnTheDirectAndTheDelayedPath) {
    Sweep(10, 2);
    Record().current.OffsetEnabled = 1;
    Record().current.Offset_DB = 3.0;
    Queue(StepRecord(0, 240));
    ExpectStep(Take(480), 240, 3.0);
    // Delay mode, 2 us: row 16 from its 96th point on.
    ASSERT_EQ(PP_SetSweepDelayMode(kAddr, 1), 1);
    ASSERT_EQ(PP_SetSweepDelay(kAddr, 2), 1);
    Queue(StepRecord(16, 96 + 240));
    ExpectStep(Take(480), 240, 3.0);
}

// A search packet (row 11) whose high sense pulses to -40 dBm, or stays flat.
std::vector<std::uint8_t> SearchPacket(bool pulse) {
    const int low = static_cast<int>(HiCount(-55.0)), high = static_cast<int>(HiCount(-40.0));
    return Packets(11, 1, [&](int, int k) {
        return std::pair {pulse && k % 100 < 30 ? high : low, 60000};
    });
}

// The mode bytes of the sweep commands sent, and whether thresholds went out.
std::pair<std::vector<int>, int> Commands(const Strings& t) {
    std::vector<int> modes;
    int thresholds = 0;
    for (const std::string& s : t) {
        if (s.rfind("OUT 177 ", 0) == 0) modes.push_back(std::stoi(s.substr(8)));
        if (s.rfind("OUT 212 ", 0) == 0) ++thresholds;
    }
    return {modes, thresholds};
}

TEST_F(Acquisition, TriggerSourcesPrepareTheSweepTheirOwnWay) {
    ASSERT_EQ(PP_SetSweepTime(kAddr, 10), 1);
    // Automatic level found: a free-running search sweep, then a triggered one.
    Queue(SearchPacket(true));
    Queue(StepRecord(0, 240));
    qvsim_transcript_clear(id_);
    Take(480);
    EXPECT_EQ(Trace().autoTrgLevelSet, 1);
    EXPECT_NEAR(Trace().autoTrgLevel, -41.0, 0.01);
    EXPECT_EQ(Trace().trgLevelEff, Trace().autoTrgLevel);
    EXPECT_EQ(Commands(Transfers(true)), (std::pair {std::vector<int> {0x6A, 0x2B}, 2}));
    EXPECT_EQ(Trace().sweepTimeIdx, 0);
    // Nothing found: the trace's sweep runs free.
    Queue(SearchPacket(false));
    Queue(StepRecord(0, 240));
    Trace().autoTrgLevelSet = 0;
    Trace().trgLevelEff = -30.0;
    qvsim_transcript_clear(id_);
    Take(480);
    EXPECT_EQ(Trace().autoTrgLevelSet, 0);
    EXPECT_EQ(Commands(Transfers(true)), (std::pair {std::vector<int> {0x6A, 0x6A}, 2}));
    // Internal level: thresholds, then a triggered sweep; no search.
    ASSERT_EQ(PP_SetTriggerSoure(kAddr, 1), 1);
    ASSERT_EQ(PP_SetTriggerLevel(kAddr, -5.0), 1);
    Queue(StepRecord(0, 240));
    qvsim_transcript_clear(id_);
    const std::vector<double> trace = Take(480);
    EXPECT_EQ(Commands(Transfers(true)), (std::pair {std::vector<int> {0x29}, 2}));
    ExpectStep(trace, 240);
}

// ---------------------------------------------------------------- result codes

struct Code {
    const char* name;
    std::function<void()> prepare;
    int queueRow;  // row whose packets are on the pipe; -1 none
    std::int32_t length;
    std::int32_t result;
    std::int32_t address = kAddr;
};

const Code kCodes[] = {
    {"AddressOutside", [] {}, -1, 10000, -5, 256},
    {"NotOwned", [] {}, -1, 10000, -1, kAddr + 1},
    {"SlotNotFound", [] { Record().inUse = 2; }, -1, 10000, -6},
    {"NoDeviceIndex", [] { Record().devId = 0; }, -1, 10000, -7},
    {"CalibrationFailed",
     [] {
         Record().calPoints[1].freq = 1e12;
         Record().current.Freq = 5e9;
     },
     -1, 10000, -10},
    {"NoSweepTime", [] { Trace().sweepTimeIdx = -1; }, -1, 10000, -11},
    {"NoSweepTimeDelayed", [] { Trace().sweepTimeIdx = -1, Trace().sweepDelayMode = 1; }, -1, 10000, -36},
    {"BufferShort", [] {}, -1, 9999, -12},
    {"BufferShortDelayed", [] { Trace().sweepDelayMode = 1; }, -1, 9999, -35},
    {"SweepTimeInconsistent", [] { Trace().sweepTimeUsec = 999; }, -1, 10000, -13},
    {"SweepTimeInconsistentDelayed", [] { Trace().sweepTimeUsec = 999, Trace().sweepDelayMode = 1; },
     -1, 10000, -34},
    {"NoHandle", [] { Record().deviceHandle = -2; }, -1, 10000, -14},
    {"NoHandleDelayed", [] { Record().deviceHandle = -2, Trace().sweepDelayMode = 1; }, -1, 10000, -33},
    {"NothingRead", [] {}, -1, 10000, -100},
    {"NothingReadDelayed", [] { Trace().sweepDelayMode = 1; }, -1, 10000, -1002},
    {"IndexAboveUserRows",
     [] { Trace().sweepTimeIdx = 16, Trace().sweepTimeUsec = 1200, Trace().sweepDelayMode = 1; }, -1,
     10000, -1000},
    {"ResampleFailed", [] {}, 6, 20000, -102},
    {"FilterFailed", [] { Trace().filter = 3, Trace().poles = 5; }, 6, 10000, -105},
    {"ResampleFailedDelayed", [] { PP_SetSweepTime(kAddr, 10), Trace().sweepDelayMode = 1; }, 16, 600, 0},
    {"SpanBeyondTheRecord",
     [] { PP_SetSweepTime(kAddr, 20000), PP_SetUndersampling20ms_50ms_100ms(kAddr, 1); }, 23, 50047, 0},
    {"FilterFailedDelayed",
     [] { PP_SetSweepTime(kAddr, 10), Trace().sweepDelayMode = 1, Trace().filter = 3, Trace().poles = 5; },
     16, 480, -1},
};

class Codes : public ProfilingTest, public ::testing::WithParamInterface<Code> {};

TEST_P(Codes, GetTraceAnswersAndLeavesTheAverageAlone) {
    const Code& c = GetParam();
    Trace().trgSource = 2;
    c.prepare();
    Trace().avgMode = 1;
    Trace().avgRestart = 0;
    Trace().avgCount = 3;
    Record().avgTrace[0] = 1e-3;
    if (c.queueRow >= 0) Queue(StepRecord(c.queueRow, 0));
    const std::int64_t handle = Record().deviceHandle;
    std::vector<double> trace(60000, 7.0);
    std::int32_t count = -3;
    EXPECT_EQ(PP_GetTrace(c.address, trace.data(), c.length, &count), c.result);
    EXPECT_EQ(count, -3);
    EXPECT_EQ(Trace().avgCount, 3);
    EXPECT_EQ(Record().avgTrace[0], 1e-3);
    EXPECT_TRUE(c.queueRow >= 0 || trace[0] == 7.0);
    Record().deviceHandle = handle;
    Record().inUse = 1;
}

INSTANTIATE_TEST_SUITE_P(Profiling, Codes, ::testing::ValuesIn(kCodes),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(Acquisition, TraceLengthOfEverySweepTime) {
    for (int row = 0; row < kUserSweepRows; ++row) {
        ASSERT_EQ(PP_SetSweepTime(kAddr, SweepConfigRow(row).sweepTimeUsec), 1);
        EXPECT_EQ(PP_GetTraceLength(kAddr), SweepConfigRow(row).traceLength);
    }
    Record().inUse = 2;
    EXPECT_EQ(PP_GetTraceLength(kAddr), 0);
    Record().inUse = 1;
}

TEST_F(Acquisition, ATraceIsTakenWhileAnotherProcessHoldsItsOwnTraceSensor) {
    AddSensor("PRO002", 10, "QV442A");
    qv::test::PeerProcess peer;
    ASSERT_TRUE(peer.Started());
    ASSERT_GE(std::stoi(peer.Ask("init PRO002")), 1);
    ASSERT_EQ(Slot(1).ownerPid, static_cast<std::uint32_t>(peer.Pid()));
    Sweep(10, 2);
    Queue(StepRecord(0, 240));
    ExpectStep(Take(480), 240);
    // The other process's sensor: refused, its settings as they were.
    EXPECT_EQ(PP_SetTriggerSoure(10, 1), -1);
    EXPECT_EQ(PP_SetSweepTime(10, 10), 0);
    Take(480, -1, 10);
    EXPECT_EQ(PP_GetTraceLength(10), -1);
    const TraceSettings& other = Slot(1).trace;
    EXPECT_EQ(other.trgSource, 0);
    EXPECT_EQ(other.sweepTimeUsec, 1000);
    EXPECT_EQ(peer.Exit(), 0);
}

}  // namespace
