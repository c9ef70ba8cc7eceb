// Sweep, trigger and acquisition settings through the exports: range ends,
// the codes of unknown and foreign addresses, the closest sweep time, the
// read time-out rule and what the trigger output sends to the sensor.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "profiling/profiling_fixture.h"
#include "profiling/trace_settings.h"

using namespace qv;
using qv::test::kAddr;
using qv::test::ProfilingTest;
using qv::test::Trace;
using Strings = std::vector<std::string>;

namespace {

double Below(double v) { return std::nextafter(v, -1e300); }
double Above(double v) { return std::nextafter(v, 1e300); }
std::int32_t I(double v) { return static_cast<std::int32_t>(v); }

// ---------------------------------------------------------------- range ends

struct Range {
    const char* name;
    std::function<std::int32_t(double)> set;
    std::function<double()> stored;
    double lo, hi, below, above;
    std::function<void()> prepare = [] {};
};

const Range kRanges[] = {
    {"SweepDelayShortSweep", [](double v) { return PP_SetSweepDelay(kAddr, I(v)); },
     [] { return double(Trace().sweepDelayUsec); }, 0, 10000, -1, 10001},
    {"SweepDelayLongSweep", [](double v) { return PP_SetSweepDelay(kAddr, I(v)); },
     [] { return double(Trace().sweepDelayUsec); }, 0, 4999000, -1, 4999001,
     [] { PP_SetSweepTime(kAddr, 20000); }},
    {"Filter", [](double v) { return PP_SetFilter(kAddr, I(v)); },
     [] { return double(Trace().filter); }, 1, 9, 0, 10},
    {"Poles", [](double v) { return PP_SetPoles(kAddr, I(v)); },
     [] { return double(Trace().poles); }, 0, 2, -1, 3},
    {"TriggerSource", [](double v) { return PP_SetTriggerSoure(kAddr, I(v)); },
     [] { return double(Trace().trgSource); }, 0, 2, -1, 3},
    {"TriggerLevel", [](double v) { return PP_SetTriggerLevel(kAddr, v); },
     [] { return Trace().trgLevel; }, -200, 200, Below(-200), Above(200)},
    {"TriggerEdge", [](double v) { return PP_SetTriggerEdge(kAddr, I(v)); },
     [] { return double(Trace().trgEdge); }, 0, 1, -1, 2},
    {"AutoTimeOutMode", [](double v) { return PP_SetAutoTimeOutMode(kAddr, I(v)); },
     [] { return double(Trace().autoTimeOutMode); }, 0, 1, -1, 2},
    {"Undersampling", [](double v) { return PP_SetUndersampling20ms_50ms_100ms(kAddr, I(v)); },
     [] { return double(Trace().undersampling); }, 0, 1, -1, 2},
    {"AvgMode", [](double v) { return PP_SetAvgMode(kAddr, I(v)); },
     [] { return double(Trace().avgMode); }, 0, 2, -1, 3},
    {"TraceAvgs", [](double v) { return PP_SetTraceAvgs(kAddr, I(v)); },
     [] { return double(Trace().traceAvgs); }, 1, 100, 0, 101},
    {"AvgResetSens", [](double v) { return PP_SetAvgResetSens(kAddr, v); },
     [] { return Trace().avgResetSens; }, 0.0, 0.8, Below(0.0), Above(0.8)},
};

class Ranges : public ProfilingTest, public ::testing::WithParamInterface<Range> {};

TEST_P(Ranges, EndsAcceptedValuesJustOutsideRefusedWithZeroAndNothingStored) {
    const Range& r = GetParam();
    r.prepare();
    for (double v : {r.hi, r.lo}) {
        EXPECT_EQ(r.set(v), 1) << v;
        EXPECT_EQ(r.stored(), v);
    }
    for (double v : {r.below, r.above, std::nan("")}) {
        EXPECT_EQ(r.set(v), 0) << v;
        EXPECT_EQ(r.stored(), r.lo);
    }
}

INSTANTIATE_TEST_SUITE_P(Profiling, Ranges, ::testing::ValuesIn(kRanges),
                         [](const auto& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------- unknown and foreign addresses

struct AddressCodes {
    const char* name;
    std::function<std::int32_t(std::int32_t)> call;
    std::int32_t unknown;  // no sensor has the address
    std::int32_t foreign;  // another process's sensor
    std::int32_t outside;  // address 300
};

std::int32_t i32;
double f64;
double arr[10000];

const AddressCodes kAddressCodes[] = {
    {"SetSweepTime", [](std::int32_t a) { return PP_SetSweepTime(a, 1000); }, 0, 0, 0},
    {"GetSweepTime", [](std::int32_t a) { return PP_GetSweepTime(a, &i32); }, 0, 0, 0},
    {"SetClosest", [](std::int32_t a) { return PP_SetClosestSweepTimeUSEC(a, 10); }, -1, -1, -1},
    {"SetSweepDelay", [](std::int32_t a) { return PP_SetSweepDelay(a, 0); }, 0, 0, 0},
    {"GetSweepDelay", [](std::int32_t a) { return PP_GetSweepDelay(a, &i32); }, 0, 0, 0},
    {"SetDelayMode", [](std::int32_t a) { return PP_SetSweepDelayMode(a, 1); }, 0, 0, 0},
    {"GetDelayMode", [](std::int32_t a) { return PP_GetSweepDelayMode(a, &i32); }, 0, 0, 0},
    {"SetFilter", [](std::int32_t a) { return PP_SetFilter(a, 5); }, 0, 0, 0},
    {"GetFilter", [](std::int32_t a) { return PP_GetFilter(a, &i32); }, 0, 0, 0},
    {"SetPoles", [](std::int32_t a) { return PP_SetPoles(a, 1); }, -1, -1, -1},
    {"GetPoles", [](std::int32_t a) { return PP_GetPoles(a, &i32); }, -1, -1, -1},
    {"SetSource", [](std::int32_t a) { return PP_SetTriggerSoure(a, 1); }, 0, -1, 0},
    {"GetSource", [](std::int32_t a) { return PP_GetTriggerSoure(a, &i32); }, 0, -1, 0},
    {"SetLevel", [](std::int32_t a) { return PP_SetTriggerLevel(a, 0.0); }, 0, -1, 0},
    {"GetLevel", [](std::int32_t a) { return PP_GetTriggerLevel(a, &f64); }, 0, -1, 0},
    {"SetEdge", [](std::int32_t a) { return PP_SetTriggerEdge(a, 1); }, 0, -1, 0},
    {"GetEdge", [](std::int32_t a) { return PP_GetTriggerEdge(a, &i32); }, 0, -1, 0},
    {"SetTriggerOut", [](std::int32_t a) { return PP_SetTriggerOut(a, 1); }, -1, -1, 0},
    {"GetTriggerOut", [](std::int32_t a) { return PP_GetTriggerOut(a, &i32); }, -1, -1, -1},
    {"CheckTrigger", [](std::int32_t a) { return PP_CheckTrigger(a); }, 0, -1, 0},
    {"SetTimeOut", [](std::int32_t a) { return PP_SetTimeOut(a, 20000); }, 0, 0, 0},
    {"GetTimeOut", [](std::int32_t a) { return PP_GetTimeOut(a, &i32); }, 0, 0, 0},
    {"SetAutoTimeOut", [](std::int32_t a) { return PP_SetAutoTimeOutMode(a, 0); }, -1, -1, -1},
    {"GetAutoTimeOut", [](std::int32_t a) { return PP_GetAutoTimeOutMode(a, &i32); }, 0, 0, 0},
    {"SetUnder", [](std::int32_t a) { return PP_SetUndersampling20ms_50ms_100ms(a, 1); }, 0, 0, 0},
    {"GetUnder", [](std::int32_t a) { return PP_GetUndersampling20ms_50ms_100ms(a, &i32); }, 0, 0, 0},
    {"SetAvgMode", [](std::int32_t a) { return PP_SetAvgMode(a, 1); }, -1, -1, -1},
    {"GetAvgMode", [](std::int32_t a) { return PP_GetAvgMode(a, &i32); }, -1, -1, -1},
    {"SetTraceAvgs", [](std::int32_t a) { return PP_SetTraceAvgs(a, 5); }, -1, -1, -1},
    {"GetTraceAvgs", [](std::int32_t a) { return PP_GetTraceAvgs(a, &i32); }, -1, -1, -1},
    {"SetResetSens", [](std::int32_t a) { return PP_SetAvgResetSens(a, 0.1); }, -1, -1, -1},
    {"GetResetSens", [](std::int32_t a) { return PP_GetAvgResetSens(a, &f64); }, -1, -1, -1},
    {"ResetAveraging", [](std::int32_t a) { return PP_ResetTraceAveraging(a); }, -1, -1, -1},
    {"HoldOff", [](std::int32_t a) { return PP_SetSweepHoldOff(a, 1); }, 0, 0, 0},
    {"TakeSweep", [](std::int32_t a) { return PP_TakeSweep(a); }, 0, 0, 0},
    {"GetTraceLength", [](std::int32_t a) { return PP_GetTraceLength(a); }, -1, -1, -1},
    {"GetTrace", [](std::int32_t a) { return PP_GetTrace(a, arr, 10000, &i32); }, -1, -1, -5},
    {"CnvtTrace", [](std::int32_t a) { return PP_CnvtTrace(a, arr, 1, arr, 0, 6); }, -1, -1, -1},
};

class Addresses : public ProfilingTest, public ::testing::WithParamInterface<AddressCodes> {};

TEST_P(Addresses, UnknownForeignAndOutsideAddressesGetTheirOwnCodesAndChangeNothing) {
    const AddressCodes& c = GetParam();
    const TraceSettings before = Trace();
    EXPECT_EQ(c.call(kAddr + 1), c.unknown);
    EXPECT_EQ(c.call(300), c.outside);
    GiveAway();
    EXPECT_EQ(c.call(kAddr), c.foreign);
    EXPECT_EQ(std::memcmp(&before, &Trace(), sizeof before), 0);
}

INSTANTIATE_TEST_SUITE_P(Profiling, Addresses, ::testing::ValuesIn(kAddressCodes),
                         [](const auto& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------- sweep time

using ProfilingSettings = ProfilingTest;

TEST_F(ProfilingSettings, ClosestSweepTimeGoesToTheLongerSweepHalfWay) {
    const std::pair<int, int> cases[] = {{35, 50},    {34, 20},     {0, 10},       {9, 10},
                                         {15, 20},    {750, 1000},  {749, 500},    {1000000, 1000000},
                                         {5000000, 1000000}, {150000, 200000}};
    for (auto [asked, chosen] : cases) {
        Trace().avgRestart = 0;
        EXPECT_EQ(PP_SetClosestSweepTimeUSEC(kAddr, asked), chosen) << asked;
        EXPECT_EQ(Trace().sweepTimeUsec, chosen);
        EXPECT_EQ(SweepConfigRow(Trace().sweepTimeIdx).sweepTimeUsec, chosen);
        EXPECT_EQ(Trace().avgRestart, 1);
    }
    EXPECT_EQ(PP_SetClosestSweepTimeUSEC(kAddr, -1), 0);
    EXPECT_EQ(Trace().sweepTimeUsec, 200000);
}

TEST_F(ProfilingSettings, OnlyTheExactSetterCutsALongDelayForShortSweeps) {
    ASSERT_EQ(PP_SetSweepTime(kAddr, 20000), 1);
    ASSERT_EQ(PP_SetSweepDelay(kAddr, 3000000), 1);
    EXPECT_EQ(PP_SetClosestSweepTimeUSEC(kAddr, 1000), 1000);
    EXPECT_EQ(Trace().sweepDelayUsec, 3000000);
    EXPECT_EQ(PP_SetSweepTime(kAddr, 30), 0);
    EXPECT_EQ(Trace().sweepTimeUsec, 1000);
    EXPECT_EQ(PP_SetSweepTime(kAddr, 1000), 1);
    EXPECT_EQ(Trace().sweepDelayUsec, 10000);
}

TEST_F(ProfilingSettings, SettersThatChangeTheAverageArmARestartTheOthersDoNot) {
    const std::pair<const char*, std::function<void()>> arming[] = {
        {"SweepTime", [] { PP_SetSweepTime(kAddr, 2000); }},
        {"Closest", [] { PP_SetClosestSweepTimeUSEC(kAddr, 2000); }},
        {"AvgMode", [] { PP_SetAvgMode(kAddr, 1); }},
        {"TraceAvgs", [] { PP_SetTraceAvgs(kAddr, 7); }},
        {"Reset", [] { PP_ResetTraceAveraging(kAddr); }}};
    for (const auto& [name, call] : arming) {
        Trace().avgRestart = 0;
        Trace().avgCount = 4;
        call();
        EXPECT_EQ(Trace().avgRestart, 1) << name;
        EXPECT_EQ(Trace().avgCount, 0) << name;
    }
    Trace().avgRestart = 0;
    Trace().avgCount = 4;
    PP_SetSweepDelay(kAddr, 100);
    PP_SetAvgResetSens(kAddr, 0.3);
    PP_SetFilter(kAddr, 3);
    EXPECT_EQ(Trace().avgRestart, 0);
    EXPECT_EQ(Trace().avgCount, 4);
}

TEST_F(ProfilingSettings, TimeOutIsClampedDelayModeStoresZeroForAnythingButOne) {
    EXPECT_EQ(PP_SetTimeOut(kAddr, 5), 1);
    EXPECT_EQ(Trace().timeOutUsec, 10000);
    EXPECT_EQ(PP_SetTimeOut(kAddr, 20000000), 1);
    EXPECT_EQ(Trace().timeOutUsec, 11000000);
    EXPECT_EQ(PP_SetSweepDelayMode(kAddr, 1), 1);
    EXPECT_EQ(PP_SetSweepDelayMode(kAddr, 7), 1);
    std::int32_t mode = 5, holdOff = 42;
    EXPECT_EQ(PP_GetSweepDelayMode(kAddr, &mode), 1);
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(PP_GetSweepHoldOff(kAddr, &holdOff), 0);
    EXPECT_EQ(holdOff, 42);
    EXPECT_EQ(PP_GetSweepTime(kAddr, nullptr), -1);
}

TEST_F(ProfilingSettings, ReadTimeOutFollowsTheSearchSweepOrTheManualSetting) {
    struct Case {
        int sweep, delayMode, delay, autoMode, timeOut, search, ms;
    };
    const Case cases[] = {
        {1000, 0, 0, 1, 100000, 11, 350},       {10, 0, 0, 1, 100000, 11, 350},
        {10000, 0, 0, 1, 100000, 12, 450},      {20000, 0, 0, 1, 100000, 13, 650},
        {50000, 0, 0, 1, 100000, 14, 1250},     {100000, 0, 0, 1, 100000, 15, 2250},
        {10, 1, 0, 1, 100000, 11, 350},         {1000, 1, 1000, 1, 100000, 12, 450},
        {1000, 1, 1000, 0, 200000, 15, 200},    {1000, 1, 1000, 0, 5000, 12, 5},
        {1000000, 1, 4999000, 1, 100000, 15, 2250}};
    for (const Case& c : cases) {
        TraceSettings t = Trace();
        t.sweepTimeUsec = c.sweep;
        t.sweepDelayMode = c.delayMode;
        t.sweepDelayUsec = c.delay;
        t.autoTimeOutMode = c.autoMode;
        t.timeOutUsec = c.timeOut;
        EXPECT_EQ(SearchSweepIndex(t), c.search) << c.sweep << " " << c.delay;
        EXPECT_EQ(ReadTimeOutMs(t), c.ms) << c.sweep << " " << c.delay;
    }
}

// ---------------------------------------------------------------- trigger output

struct OutputCase {
    int source, mode;
    Strings requests;  // after the 192, 204 that every call starts with
    int result;
};

class TriggerOutput : public ProfilingTest, public ::testing::WithParamInterface<OutputCase> {};

TEST_P(TriggerOutput, SendsTheRequestsOfModeAndSource) {
    const OutputCase& c = GetParam();
    Trace().trgSource = c.source;
    qvsim_transcript_clear(id_);
    EXPECT_EQ(PP_SetTriggerOut(kAddr, c.mode), c.result);
    // A mode the sensor has no requests for is refused before anything is sent.
    Strings expected = c.mode > 2 ? Strings {} : Strings {"IN 192", "IN 204"};
    expected.insert(expected.end(), c.requests.begin(), c.requests.end());
    EXPECT_EQ(Transfers(), expected);
    EXPECT_EQ(Trace().trgOut, c.result == 1 ? c.mode : 0);
}

INSTANTIATE_TEST_SUITE_P(Profiling, TriggerOutput,
                         ::testing::Values(OutputCase {2, 2, {"IN 200", "IN 205"}, 1},
                                           OutputCase {2, 1, {"IN 200", "IN 204"}, 1},
                                           OutputCase {0, 2, {"IN 192", "IN 205"}, 1},
                                           OutputCase {1, 1, {"IN 192", "IN 204"}, 1},
                                           OutputCase {2, 0, {"IN 192", "IN 204"}, 1},
                                           OutputCase {0, 3, {}, 0}));

TEST_F(ProfilingSettings, ARefusedOutputRequestKeepsThePreviousModeExceptWithTheExternalInput) {
    ASSERT_EQ(PP_SetTriggerOut(kAddr, 2), 1);
    AddFault(id_, QVSIM_FAULT_REQUEST_FAILS, 204);
    EXPECT_EQ(PP_SetTriggerOut(kAddr, 1), 0);
    EXPECT_EQ(Trace().trgOut, 2);
    Trace().trgSource = 2;
    EXPECT_EQ(PP_SetTriggerOut(kAddr, 1), 1);
    EXPECT_EQ(Trace().trgOut, 1);
}

TEST_F(ProfilingSettings, AModelThatCannotTakeTracesRefusesTheOutput) {
    ASSERT_EQ(qvsim_set_string(id_, 2, "QV221A"), QVSIM_OK);
    EXPECT_EQ(PP_SetTriggerOut(kAddr, 1), 0);
    EXPECT_EQ(Trace().trgOut, 0);
    EXPECT_EQ(PP_CheckTrigger(kAddr), 0);
}

TEST_F(ProfilingSettings, SourceChangeSendsTheOutputOffAndBackAndKeepsItsMode) {
    ASSERT_EQ(PP_SetTriggerOut(kAddr, 2), 1);
    qvsim_transcript_clear(id_);
    AddFault(id_, QVSIM_FAULT_REQUEST_FAILS, 205);
    EXPECT_EQ(PP_SetTriggerSoure(kAddr, 1), 1);
    EXPECT_EQ(Transfers(), (Strings {"IN 192", "IN 204", "IN 192", "IN 204", "IN 192", "IN 204",
                                     "IN 192", "IN 205"}));
    EXPECT_EQ(Trace().trgSource, 1);
    EXPECT_EQ(Trace().trgOut, 2);
}

TEST_F(ProfilingSettings, TriggerProbeWithoutASignalPollsTheLineAndSeesNothing) {
    EXPECT_EQ(PP_CheckTrigger(kAddr), 0);
    const Strings t = Transfers();
    ASSERT_GE(t.size(), 4u);
    EXPECT_EQ(t[0], "OUT 216");
    EXPECT_EQ(t[1], "IN 218");
}

}  // namespace
