// Setters and getters of an initialised sensor: value checks, what reaches
// the sensor, and what stays in the record when the sensor or handle fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

#include "device/driver.h"
#include "settings/recorder.h"
#include "settings/settings_fixture.h"

using namespace qv;
using qv::test::Current;
using qv::test::kAddr;
using qv::test::SettingsTest;
using Strings = std::vector<std::string>;

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
double Below(double v) { return std::nextafter(v, -kInf); }
double Above(double v) { return std::nextafter(v, kInf); }
std::int32_t I(double v) { return static_cast<std::int32_t>(v); }

// ---------------------------------------------------------------- value checks

struct CheckedValue {
    const char* name;
    std::function<std::int32_t(double)> set;
    std::function<double()> stored;
    double lo, hi, below, above;  // inclusive ends and the values just outside
    bool resolvesOnBus = true;    // false: the slot is found in the table
    bool checkedAfterLookup = false;
};

const CheckedValue kChecked[] = {
    {"Averages", [](double v) { return QV_SetAverages(kAddr, I(v)); },
     [] { return double(Current().Averages); }, 1, 100000, 0, 100001},
    {"Offset", [](double v) { return QV_SetOffset(kAddr, v); },
     [] { return Current().Offset_DB; }, -200, 200, Below(-200), Above(200)},
    {"DutyCyclePerCent", [](double v) { return QV_SetDutyCyclePerCent(kAddr, v); },
     [] { return Current().DutyeCycle * 100.0; }, 0.001, 100, 0.0009, Above(100)},
    {"PowerUnits", [](double v) { return QV_SetMeasurementPowerUnits(kAddr, I(v)); },
     [] { return double(Current().PowerUnits); }, 0, 8, -1, 9},
    {"CWRefUnits", [](double v) { return QV_SetCWReference(kAddr, 1.0, I(v)); },
     [] { return double(Current().CWRefUnits); }, 0, 7, -1, 8},
    {"PulseCriteria", [](double v) { return QV_SetPulseCriteria(kAddr, v); },
     [] { return Current().PulseCriteria_DB; }, 0.001, 200, Below(0.001), Above(200)},
    {"AntiAliasing", [](double v) { return QV_SetAntiAliasingEnabled(kAddr, I(v)); },
     [] { return double(Current().AntiAliasingEnabled); }, 0, 1, -1, 2},
    {"SingleRule", [](double v) { return QV_SetSingleSidedLimit(kAddr, 0, 0, I(v)); },
     [] { return double(Current().SingleSidedLimitsRule); }, 0, 3, -1, 4},
    {"DoubleUpper", [](double v) { return QV_SetDoubleSidedLimit(kAddr, -200, v, 0, 0); },
     [] { return Current().DoubleSidedUpperLimit; }, -200, 200, Below(-200), Above(200)},
    {"LimitEnabled", [](double v) { return QV_SetLimitEnabled(kAddr, I(v)); },
     [] { return double(Current().LimitsEnabled); }, 0, 2, -1, 3},
    {"TriggerInInverted", [](double v) { return QV_SetTTLTriggerInInverted(kAddr, I(v)); },
     [] { return double(Current().TTL_TriggerInIvertedEnabled); }, 0, 1, -1, 2},
    {"TriggerOutInverted", [](double v) { return QV_SetTTLTriggerOutInverted(kAddr, I(v)); },
     [] { return double(Current().TTL_TriggerOutInvertEnabled); }, 0, 1, -1, 2, false},
    {"TriggerInTimeOut", [](double v) { return QV_SetTTLTriggerInTimeOut(kAddr, I(v)); },
     [] { return double(Current().TriggerDelay_mSec); }, 0, 30000, -1, 30001, true, true},
    {"RecorderUnits", [](double v) { return QV_SetRecorderOutSetup(kAddr, -20, 10, I(v)); },
     [] { return double(Current().RecorderOutUnits); }, 0, 7, -1, 8},
};

class RangeEnds : public SettingsTest,
                  public ::testing::WithParamInterface<CheckedValue> {};

TEST_P(RangeEnds, BothEndsAreStoredAndValuesOutsideAreRefusedBeforeAnyLookup) {
    const CheckedValue& c = GetParam();
    for (double v : {c.hi, c.lo}) {
        ClearTranscripts();
        EXPECT_EQ(c.set(v), 1) << v;
        EXPECT_DOUBLE_EQ(c.stored(), v);
        // Resolving the address asks the free sensor for its address.
        EXPECT_EQ(qvsim_transcript_count(free_) > 0, c.resolvesOnBus) << v;
    }
    for (double v : {c.below, c.above}) {
        ClearTranscripts();
        EXPECT_EQ(c.set(v), -1) << v;
        EXPECT_DOUBLE_EQ(c.stored(), c.lo);
        EXPECT_EQ(qvsim_transcript_count(free_) > 0, c.checkedAfterLookup) << v;
        EXPECT_EQ(qvsim_transcript_count(mine_), 0) << v;
    }
}

INSTANTIATE_TEST_SUITE_P(Settings, RangeEnds, ::testing::ValuesIn(kChecked),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(SettingsTest, DoubleSidedLimitsMayMeetButNotCross) {
    EXPECT_EQ(QV_SetDoubleSidedLimit(kAddr, 5, 5, 1, 2), 1);
    EXPECT_EQ(QV_SetDoubleSidedLimit(kAddr, 5, Below(5), 0, 3), -1);
    EXPECT_EQ(Current().DoubleSidedUpperLimit, 5);
    EXPECT_EQ(Current().DoubleSidedLimitsRule, 2);
}

// ---------------------------------------------------------------- without a device handle

struct HandleCase {
    const char* name;
    std::function<std::int32_t()> set;
    std::function<bool()> changed;
    std::int32_t result;
    bool storedFirst;
};

const HandleCase kHandleCases[] = {
    {"Offset", [] { return QV_SetOffset(kAddr, 12.5); },
     [] { return Current().Offset_DB == 12.5; }, -1, true},
    {"DutyCyclePerCent", [] { return QV_SetDutyCyclePerCent(kAddr, 50); },
     [] { return Current().DutyeCycle == 0.5; }, -1, true},
    {"AntiAliasing", [] { return QV_SetAntiAliasingEnabled(kAddr, 1); },
     [] { return Current().AntiAliasingEnabled == 1; }, -1, false},
    {"RecorderSetup", [] { return QV_SetRecorderOutSetup(kAddr, 1, 2, 0); },
     [] { return Current().RecorderOut_OV_Level == 1; }, -5, false},
    {"Response", [] {
         const QV_ResponsePoint p[] = {{1e9, 1}};
         return QV_SetResponse(kAddr, p, 1);
     },
     [] { return Current().NumberOfResponsePoints == 1; }, -1, false},
};

class WithoutHandle : public SettingsTest,
                      public ::testing::WithParamInterface<HandleCase> {};

TEST_P(WithoutHandle, RefusesAndStoresOnlyWhereTheValueComesFirst) {
    const std::int64_t h = Slot(0).deviceHandle;
    Slot(0).deviceHandle = -1;
    EXPECT_EQ(GetParam().set(), GetParam().result);
    EXPECT_EQ(GetParam().changed(), GetParam().storedFirst);
    EXPECT_EQ(qvsim_transcript_count(mine_), 0);
    Slot(0).deviceHandle = h;
}

INSTANTIATE_TEST_SUITE_P(Settings, WithoutHandle, ::testing::ValuesIn(kHandleCases),
                         [](const auto& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------- what reaches the sensor

const Strings kRecorderOff = {"IN 179/1", "IN 195/1", "IN 187/1", "IN 198/1"};
const Strings kAntiAliasingOn = {"IN 242/3",  "OUT 216/2", "OUT 219/64", "OUT 219/64",
                                 "OUT 219/64", "OUT 219/64", "IN 197/2"};

Strings Plus(Strings a, const Strings& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

struct Sequence {
    const char* name;
    std::function<void(InstrumentState&)> before;
    std::function<std::int32_t()> call;
    std::int32_t result;
    Strings transfers;
    std::function<bool(const InstrumentState&, const qvsim_sensor_state&)> after;
};

void Nothing(InstrumentState&) {}

const Sequence kSequences[] = {
    {"TriggerInOnOutputOff", Nothing, [] { return QV_SetTTLTriggerInEnabled(kAddr, 1); }, 1,
     {"IN 191/2"}, [](auto& s, auto& d) { return s.TTL_TriggerInEnabled == 1 && d.trigger_in_enabled == 1; }},
    {"TriggerInOnRearmsOutput", [](auto& s) { s.TTL_TriggerOutEnabled = 1; },
     [] { return QV_SetTTLTriggerInEnabled(kAddr, 1); }, 1, {"IN 191/2", "IN 200/1"},
     [](auto&, auto& d) { return d.trigger_out_variant == 200; }},
    {"TriggerInOffRearmsOutput", [](auto& s) { s.TTL_TriggerOutEnabled = s.TTL_TriggerInEnabled = 1; },
     [] { return QV_SetTTLTriggerInEnabled(kAddr, 0); }, 1, {"IN 190/2", "IN 201/1"},
     [](auto& s, auto& d) { return s.TTL_TriggerInEnabled == 0 && d.trigger_out_variant == 201; }},
    {"TriggerOutWithInput", [](auto& s) { s.TTL_TriggerInEnabled = 1; },
     [] { return QV_SetTTLTriggerOutEnabled(kAddr, 1); }, 1, {"IN 200/1"},
     [](auto& s, auto& d) { return s.TTL_TriggerOutEnabled == 1 && d.trigger_out_enabled == 1; }},
    {"TriggerInInverted", Nothing, [] { return QV_SetTTLTriggerInInverted(kAddr, 1); }, 1,
     {"IN 203/1"}, [](auto& s, auto& d) { return s.TTL_TriggerInIvertedEnabled == 1 && d.trigger_in_inverted == 1; }},
    {"TriggerOutInverted", Nothing, [] { return QV_SetTTLTriggerOutInverted(kAddr, 1); }, 1,
     {"IN 205/1"}, [](auto& s, auto& d) { return s.TTL_TriggerOutInvertEnabled == 1 && d.trigger_out_inverted == 1; }},
    {"RecorderOn", Nothing, [] { return QV_SetRecorderOutEnabled(kAddr, 1); }, 1,
     {"IN 179/1", "IN 195/1", "IN 187/1", "IN 200/1", "IN 190/1", "IN 196/1", "IN 199/1"},
     [](auto& s, auto& d) {
         return s.RecorderOutEnabled == 1 && d.recorder_out == 1 && Slot(0).bookkeeping.values[6] == 0;
     }},
    {"RecorderOffResendsTriggerOff", [](auto& s) { s.RecorderOutEnabled = 1; },
     [] { return QV_SetRecorderOutEnabled(kAddr, 0); }, 1, Plus(kRecorderOff, {"IN 192/1"}),
     [](auto& s, auto&) { return s.RecorderOutEnabled == 0; }},
    {"RecorderOffResendsTriggerWithInput",
     [](auto& s) { s.RecorderOutEnabled = s.TTL_TriggerOutEnabled = s.TTL_TriggerInEnabled = 1; },
     [] { return QV_SetRecorderOutEnabled(kAddr, 0); }, 1, Plus(kRecorderOff, {"IN 200/1"}),
     [](auto& s, auto&) { return s.RecorderOutEnabled == 0 && s.TTL_TriggerOutEnabled == 1; }},
    {"RecorderSetupTurnsItOff", [](auto& s) { s.RecorderOutEnabled = 1; },
     [] { return QV_SetRecorderOutSetup(kAddr, -30, 0, 1); }, 1, kRecorderOff,
     [](auto& s, auto&) {
         return s.RecorderOutEnabled == 0 && s.RecorderOut_OV_Level == -30 && s.RecorderOutUnits == 1;
     }},
    {"OffsetTurnsRecorderOff", [](auto& s) { s.RecorderOutEnabled = 1; },
     [] { return QV_SetOffset(kAddr, 3); }, 1, kRecorderOff,
     [](auto& s, auto&) { return s.RecorderOutEnabled == 0; }},
    {"AntiAliasingOn", Nothing, [] { return QV_SetAntiAliasingEnabled(kAddr, 1); }, 1,
     kAntiAliasingOn, [](auto& s, auto& d) { return s.AntiAliasingEnabled == 1 && d.anti_aliasing == 1; }},
    {"AntiAliasingOff", [](auto& s) { s.AntiAliasingEnabled = 1; },
     [] { return QV_SetAntiAliasingEnabled(kAddr, 0); }, 1, {"IN 196/2"},
     [](auto& s, auto&) { return s.AntiAliasingEnabled == 0; }},
    {"Frequency200MHzLeavesAntiAliasing", Nothing, [] { return QV_SetFrequency(kAddr, 2e8); }, 1, {},
     [](auto& s, auto&) { return s.Freq == 2e8 && s.AntiAliasingEnabled == 0; }},
    {"FrequencyBelow10MHzIsStoredButRefused", Nothing, [] { return QV_SetFrequency(kAddr, 5e6); }, -1,
     {}, [](auto& s, auto&) { return s.Freq == 5e6 && s.AntiAliasingEnabled == 0; }},
    {"FrequencyAboveTheModelsLimit", Nothing, [] { return QV_SetFrequency(kAddr, Above(2e10)); }, -1,
     {}, [](auto& s, auto&) { return s.Freq == Above(2e10); }},
};

class Requests : public SettingsTest, public ::testing::WithParamInterface<Sequence> {};

TEST_P(Requests, ReachTheSensorInOrder) {
    const Sequence& c = GetParam();
    c.before(Current());
    Slot(0).bookkeeping.values[6] = 5.0;
    EXPECT_EQ(c.call(), c.result);
    EXPECT_EQ(Transfers(mine_), c.transfers);
    EXPECT_TRUE(c.after(Current(), State(mine_)));
}

INSTANTIATE_TEST_SUITE_P(Settings, Requests, ::testing::ValuesIn(kSequences),
                         [](const auto& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------- refused requests

struct Refusal {
    const char* name;
    int faultKind, code;
    std::function<void(InstrumentState&)> before;
    std::function<std::int32_t()> call;
    std::int32_t result;
    Strings transfers;
    std::function<bool(const InstrumentState&)> after;
};

const Refusal kRefusals[] = {
    {"RecorderOnStopsAtTheFirstMissingEcho", QVSIM_FAULT_NO_ECHO, 187, Nothing,
     [] { return QV_SetRecorderOutEnabled(kAddr, 1); }, -1, {"IN 179/1", "IN 195/1", "IN 187/1"},
     [](auto& s) { return s.RecorderOutEnabled == 0; }},
    {"RecorderOffFailingIsNotReported", QVSIM_FAULT_NO_ECHO, 198, [](auto& s) { s.RecorderOutEnabled = 1; },
     [] { return QV_SetOffset(kAddr, 1); }, 1, kRecorderOff,
     [](auto& s) { return s.RecorderOutEnabled == 1 && s.Offset_DB == 1; }},
    {"RecorderOffStillResendsTrigger", QVSIM_FAULT_NO_ECHO, 179, [](auto& s) { s.RecorderOutEnabled = 1; },
     [] { return QV_SetRecorderOutEnabled(kAddr, 0); }, 1, {"IN 179/1", "IN 192/1"},
     [](auto& s) { return s.RecorderOutEnabled == 0; }},
    {"TriggerInRefusedReportsSuccess", QVSIM_FAULT_REQUEST_FAILS, 191, Nothing,
     [] { return QV_SetTTLTriggerInEnabled(kAddr, 1); }, 1, {"IN 191/2"},
     [](auto& s) { return s.TTL_TriggerInEnabled == 0; }},
    {"TriggerInInvertedRefused", QVSIM_FAULT_REQUEST_FAILS, 203, Nothing,
     [] { return QV_SetTTLTriggerInInverted(kAddr, 1); }, -1, {"IN 203/1"},
     [](auto& s) { return s.TTL_TriggerInIvertedEnabled == 0; }},
    {"TriggerOutRefusedIsStoredAnyway", QVSIM_FAULT_REQUEST_FAILS, 201, Nothing,
     [] { return QV_SetTTLTriggerOutEnabled(kAddr, 1); }, 1, {"IN 201/1"},
     [](auto& s) { return s.TTL_TriggerOutEnabled == 1; }},
    {"JiggleTableStopsAtTheBase", QVSIM_FAULT_REQUEST_FAILS, 242, Nothing,
     [] { return QV_SetAntiAliasingEnabled(kAddr, 1); }, -1, {"IN 242/3"},
     [](auto& s) { return s.AntiAliasingEnabled == 1 && Slot(0).deviceHandle == -1; }},

};

class Refused : public SettingsTest, public ::testing::WithParamInterface<Refusal> {};

TEST_P(Refused, TakesTheFailurePath) {
    const Refusal& c = GetParam();
    AddFault(mine_, c.faultKind, c.code);
    c.before(Current());
    EXPECT_EQ(c.call(), c.result);
    EXPECT_EQ(Transfers(mine_), c.transfers);
    EXPECT_TRUE(c.after(Current()));
}

INSTANTIATE_TEST_SUITE_P(Settings, Refused, ::testing::ValuesIn(kRefusals),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(SettingsTest, AFailedAntiAliasingRequestLeavesNoHandleBehind) {
    AddFault(mine_, QVSIM_FAULT_REQUEST_FAILS, 197, 1);
    ASSERT_EQ(QV_SetAntiAliasingEnabled(kAddr, 1), -1);
    EXPECT_EQ(Slot(0).deviceHandle, -1);
    EXPECT_EQ(Info(mine_).open_handles, 0);
    // Later setters refuse cleanly instead of using the closed handle.
    EXPECT_EQ(QV_SetOffset(kAddr, 4), -1);
    EXPECT_EQ(Current().Offset_DB, 4);
    EXPECT_EQ(QV_SetTTLTriggerOutEnabled(kAddr, 1), -1);
    ClearTranscripts();
    EXPECT_EQ(QV_UninitializeSensor_SN("SET001"), 1);
    EXPECT_EQ(State(mine_).closes, State(mine_).opens);  // nothing closed twice
    EXPECT_EQ(QV_InitializeSensor_SN("SET001"), 1);
    EXPECT_EQ(QV_SetOffset(kAddr, 4), 1);
}

TEST_F(SettingsTest, TheJiggleTableIsAShuffledPermutation) {
    ASSERT_EQ(QV_SetAntiAliasingEnabled(kAddr, 1), 1);
    std::vector<unsigned char> table(256);
    ASSERT_EQ(qvsim_working_read(mine_, QVSIM_WM_BUFFER_BASE, table.data(), 256), 256);
    std::vector<unsigned char> sorted = table, identity(256);
    std::sort(sorted.begin(), sorted.end());
    std::iota(identity.begin(), identity.end(), 0);
    EXPECT_EQ(sorted, identity);
    EXPECT_NE(table, identity);
}

TEST_F(SettingsTest, OffsetEnabledUsesAHandleOfItsOwn) {
    const unsigned opens = State(mine_).opens;
    EXPECT_EQ(QV_SetOffsetEnabled(kAddr, 1), 1);
    EXPECT_EQ(State(mine_).opens, opens + 1);
    EXPECT_EQ(Info(mine_).open_handles, 1);  // the slot's only
}

// ---------------------------------------------------------------- response table

TEST_F(SettingsTest, ResponseTableIsReplacedWholeOrNotAtAll) {
    const QV_ResponsePoint five[] = {{1e9, 1}, {2e9, 2}, {3e9, 3}, {4e9, 4}, {5e9, -200}};
    ASSERT_EQ(QV_SetResponse(kAddr, five, 5), 1);
    QV_ResponsePoint bad[] = {{1e9, 200.5}};
    EXPECT_EQ(QV_SetResponse(kAddr, bad, 1), -1);
    bad[0] = {5e6, 1};
    EXPECT_EQ(QV_SetResponse(kAddr, bad, 1), -1);
    EXPECT_EQ(QV_SetResponse(kAddr, five, 202), -1);
    EXPECT_EQ(QV_SetResponse(kAddr, five, -1), -1);
    EXPECT_EQ(QV_SetResponse(kAddr, nullptr, 0), -1);
    EXPECT_EQ(Current().NumberOfResponsePoints, 5);
    EXPECT_EQ(Current().Response[4].Amplitude, -200);
    EXPECT_EQ(Current().Response[5].Frequency, 0);  // beyond the count

    QV_ResponsePoint got[QV_RESPONSE_POINTS] = {};
    std::int32_t count = 201;
    EXPECT_EQ(QV_GetResponse(kAddr, got, &count), 1);
    EXPECT_EQ(count, 5);
    EXPECT_EQ(got[2].Amplitude, 3);
    count = 3;
    EXPECT_EQ(QV_GetResponse(kAddr, got, &count), 1);
    EXPECT_EQ(count, 3);
    count = 202;
    EXPECT_EQ(QV_GetResponse(kAddr, got, &count), -1);
    EXPECT_EQ(QV_GetResponse(kAddr, got, nullptr), -1);

    std::vector<QV_ResponsePoint> full(QV_RESPONSE_POINTS, QV_ResponsePoint{1e9, 1});
    EXPECT_EQ(QV_SetResponse(kAddr, full.data(), QV_RESPONSE_POINTS), 1);
    EXPECT_EQ(Current().NumberOfResponsePoints, QV_RESPONSE_POINTS);
    EXPECT_EQ(QV_SetResponse(kAddr, five, 0), 1);
    EXPECT_EQ(Current().NumberOfResponsePoints, 0);
    EXPECT_EQ(Current().Response[0].Frequency, 0);
    EXPECT_EQ(Current().Response[200].Frequency, 0);
}

TEST_F(SettingsTest, FlatFormsSplitOnlyTheEntriesInUse) {
    const double f[] = {1e9, 2e9, 3e9}, a[] = {0.5, 1.5, 2.5};
    ASSERT_EQ(QV_SetResponse_Flat(kAddr, f, a, 3), 1);
    EXPECT_EQ(Current().Response[1].Amplitude, 1.5);
    EXPECT_EQ(QV_SetResponse_Flat(kAddr, f, a, 202), -1);
    std::vector<double> gf(201, -7), ga(201, -7);
    std::int32_t count = 201;
    ASSERT_EQ(QV_GetResponse_Flat(kAddr, gf.data(), ga.data(), &count), 1);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(ga[2], 2.5);
    EXPECT_EQ(gf[3], -7);
}

// ---------------------------------------------------------------- getters

TEST_F(SettingsTest, GettersCopyTheCurrentState) {
    InstrumentState& s = Current();
    s.Freq = 2.5e9;
    s.DutyeCycle = 0.25;
    s.CWRef = -4;
    s.CWRefUnits = 6;
    s.Enabled75Ohms = 5;
    s.RecorderOut_OV_Level = -1;
    s.RecorderOut_1V_Level = 1;
    s.RecorderOutUnits = 4;
    double d = 0, d2 = 0;
    std::int32_t i = 0, k = 0;
    EXPECT_TRUE(QV_GetFrequency(kAddr, &d) == 1 && d == 2.5e9);
    EXPECT_TRUE(QV_GetDutyCyclePerCent(kAddr, &d) == 1 && d == 25);
    EXPECT_TRUE(QV_GetCWReference(kAddr, &d, &i) == 1 && d == -4 && i == 6);
    EXPECT_TRUE(QV_Get75OhmsEnabled(kAddr, &i) == 1 && i == 5);
    EXPECT_TRUE(QV_GetRecorderOutSetup(kAddr, &d, &d2, &k) == 1 && d == -1 && d2 == 1 && k == 4);
    EXPECT_EQ(QV_Set75OhmsEnabled(kAddr, 1), 1);
    EXPECT_EQ(s.Enabled75Ohms, 1);
    // Null outputs and another process's sensor.
    EXPECT_EQ(QV_GetFrequency(kAddr, nullptr), -1);
    EXPECT_EQ(QV_GetPulseReference(kAddr, &d, &d, &d, nullptr, &i), -1);
    i = 42;
    EXPECT_EQ(QV_GetAverages(3, &i), -1);  // the free sensor
    EXPECT_EQ(QV_Get75OhmsEnabled(3, &i), -1);
    EXPECT_EQ(i, 42);
}

// ---------------------------------------------------------------- recorder value

struct RecorderPoint {
    const char* name;
    std::int32_t units;
    double level0V, level1V, dbm;
    int code;
};

const RecorderPoint kRecorderPoints[] = {
    {"Middle", 0, -20, 10, -5, 26214},        {"Bottom", 0, -20, 10, -30, 0},
    {"Top", 0, -20, 10, 20, 52428},           {"Truncated", 0, -20, 10, -19.9999, 0},
    {"EqualAbove", 0, -10, -10, -9.999, 52428}, {"Watts", 6, 0, 0.002, 0, 26214},
    {"NotANumber", 0, -20, 10, NAN, 0},
};

class RecorderValue : public SettingsTest,
                      public ::testing::WithParamInterface<RecorderPoint> {};

TEST_P(RecorderValue, GoesHighByteFirstToPipe1) {
    const RecorderPoint& c = GetParam();
    Current().RecorderOutUnits = c.units;
    Current().RecorderOut_OV_Level = c.level0V;
    Current().RecorderOut_1V_Level = c.level1V;
    EXPECT_EQ(RecorderOutputValue(Slot(0).deviceHandle, 0, c.dbm), -1);  // no pipe handle yet
    EXPECT_EQ(State(mine_).bulk_out_writes, 0u);
    Slot(0).winUsbHandle = driver::OpenWinUSBHandle(Slot(0).deviceHandle);
    EXPECT_EQ(RecorderOutputValue(Slot(0).deviceHandle, 0, c.dbm), 1);
    EXPECT_EQ(State(mine_).recorder_word, c.code);
    EXPECT_EQ(Transfers(mine_), Strings{"PIPE 1/2"});
}

INSTANTIATE_TEST_SUITE_P(Settings, RecorderValue, ::testing::ValuesIn(kRecorderPoints),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
