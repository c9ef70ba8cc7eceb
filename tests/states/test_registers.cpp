// Whole states and registers: the check a state must pass to be applied, store
// and recall of every register, resets, and who may do what.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

#include "qv_api2.h"
#include "state_fixture.h"
#include "states/registers.h"

using namespace qv;
using qv::test::DistinctState;
using qv::test::ExpectPersistedEqual;
using qv::test::ExpectRunTime;
using qv::test::ExpectRunTimeEqual;
using qv::test::SetRunTime;

namespace {

class Registers : public qv::test::StateTest {};

// A state that passes the check, told apart from the defaults by MeasMode.
InstrumentState Applicable() {
    InstrumentState s;
    ResetInstrumentState(s);
    s.MeasMode = 4;
    s.PlsRefDC = 0.5;
    s.NumberOfResponsePoints = 2;
    return s;
}

struct CheckCase {
    const char* name;
    std::function<void(InstrumentState&)> change;
    bool applied;
};

class StateCheck : public Registers, public ::testing::WithParamInterface<CheckCase> {};

TEST_P(StateCheck, DecidesWhetherTheStateIsApplied) {
    InstrumentState s = Applicable();
    GetParam().change(s);
    const int expectedMode = GetParam().applied ? 4 : 1;
    EXPECT_EQ(QV_SetCurrentState(kAddress, s), 1);
    EXPECT_EQ(Current().MeasMode, expectedMode);
    EXPECT_EQ(QV_SetRegState(kAddress, 19, s), 1);
    EXPECT_EQ(Slot(0).registers[19].MeasMode, GetParam().applied ? 4 : 0);
}

const double kNaN = std::nan("");

#define QV_CASE(name, change, applied) CheckCase {name, [](InstrumentState& s) { change; }, applied}

INSTANTIATE_TEST_SUITE_P(
    Fields, StateCheck,
    ::testing::Values(
        QV_CASE("Applicable", (void)s, true),
        QV_CASE("ResetDefaults", ResetInstrumentState(s), false),  // PlsRefDC 0
        QV_CASE("FreqLowestAndHighest", (s.Freq = 1e7, s.Response[0].Frequency = 2e10), true),
        QV_CASE("FreqBelow", s.Freq = 9.999e6, false),
        QV_CASE("FreqAboveTheModel", s.Freq = 2.0001e10, false),
        QV_CASE("AveragesEnds", (s.Averages = 1, s.TriggerDelay_mSec = 30000), true),
        QV_CASE("Averages0", s.Averages = 0, false),
        QV_CASE("CWRef", s.CWRef = 200.001, false),
        QV_CASE("FractionEnds", (s.PlsRefDC = 1e-5, s.DutyeCycle = 1.0), true),
        QV_CASE("PlsRefDCSmall", s.PlsRefDC = 9.9e-6, false),
        QV_CASE("PowerUnits", s.PowerUnits = 9, false),
        QV_CASE("CWRefUnits", s.CWRefUnits = 8, false),
        QV_CASE("RecorderOutUnits", s.RecorderOutUnits = 8, false),
        QV_CASE("OffsetEnabled", s.OffsetEnabled = -1, false),
        QV_CASE("TTL_TriggerInEnabled", s.TTL_TriggerInEnabled = 2, false),
        QV_CASE("RecorderOutEnabled", s.RecorderOutEnabled = 2, false),
        QV_CASE("RecorderOutWithTriggerIn", (s.RecorderOutEnabled = 1, s.TTL_TriggerInEnabled = 1), false),
        QV_CASE("RecorderOutAlone", (s.RecorderOutEnabled = 1, s.TTL_TriggerOutEnabled = 1), true),
        QV_CASE("LimitsEnabled", s.LimitsEnabled = 3, false),
        QV_CASE("DoubleSidedLimitsRule", s.DoubleSidedLimitsRule = -1, false),
        QV_CASE("TriggerDelay0", s.TriggerDelay_mSec = 0, false),
        QV_CASE("TriggerDelay30001", s.TriggerDelay_mSec = 30001, false),
        QV_CASE("PulseCriteria", s.PulseCriteria_DB = 200.5, false),
        QV_CASE("Offset", s.Offset_DB = -201, false),
        QV_CASE("DutyeCycle", s.DutyeCycle = 0.0, false),
        QV_CASE("RecorderOut_OV_Level", s.RecorderOut_OV_Level = -300, false),
        QV_CASE("DoubleSidedUpperLimit", s.DoubleSidedUpperLimit = kNaN, false),
        QV_CASE("LimitsInEitherOrder", (s.DoubleSidedLowerLimit = 5, s.DoubleSidedUpperLimit = -5), true),
        QV_CASE("PointsAll", s.NumberOfResponsePoints = 201, true),
        QV_CASE("Points202", s.NumberOfResponsePoints = 202, false),
        QV_CASE("PointAmplitude", s.Response[1].Amplitude = -200.01, false),
        QV_CASE("PointFrequency", s.Response[1].Frequency = 5e6, false),
        QV_CASE("PointBeyondTheCount", s.Response[2].Frequency = 0.0, true),
        QV_CASE("UncheckedFields", (s.MeasMode = 4, s.Enabled75Ohms = 7, s.MaxHoldEnabled = -3), true)),
    [](const auto& info) { return std::string(info.param.name); });

#undef QV_CASE

TEST_F(Registers, StoreAndRecallEveryRegisterMoveOnlyPersistedFields) {
    for (int r = 0; r < kRegisterCount; ++r) {
        Current() = DistinctState(r + 1);
        SetRunTime(Current(), 100);
        SetRunTime(Slot(0).registers[r], 200 + r);
        ASSERT_EQ(QV_Store(kAddress, r), 1);
    }
    for (int r = 0; r < kRegisterCount; ++r) {
        SCOPED_TRACE(r);
        ExpectPersistedEqual(Slot(0).registers[r], DistinctState(r + 1));
        ExpectRunTime(Slot(0).registers[r], 200 + r);
    }
    for (int r = kRegisterCount - 1; r >= 0; --r) {
        SCOPED_TRACE(r);
        SetRunTime(Current(), 300 + r);
        EXPECT_EQ(QV_Recall(kAddress, r), DistinctState(r + 1).MeasMode);
        ExpectPersistedEqual(Current(), DistinctState(r + 1));
        ExpectRunTime(Current(), 300 + r);
    }
}

TEST_F(Registers, GetAndSetCopyWholeStates) {
    InstrumentState s = Applicable();
    SetRunTime(s, 100);
    ASSERT_EQ(QV_SetRegState(kAddress, 0, s), 1);
    ASSERT_EQ(QV_SetCurrentState(kAddress, s), 1);
    InstrumentState out;
    ASSERT_EQ(QV_GetRegState(kAddress, 0, &out), 1);
    ExpectPersistedEqual(out, s);
    ExpectRunTime(out, 100);
    ASSERT_EQ(QV_GetCurrentState(kAddress, &out), 1);
    ExpectRunTime(out, 100);
}

TEST_F(Registers, ResetsGiveEveryFieldItsDefault) {
    InstrumentState defaults;
    ResetInstrumentState(defaults);
    Current() = DistinctState(1);
    SetRunTime(Current(), 100);
    for (InstrumentState& reg : Slot(0).registers) reg = DistinctState(2);
    ASSERT_EQ(QV_ResetCurrentState(kAddress), 1);
    ExpectPersistedEqual(Current(), defaults);
    ExpectRunTimeEqual(Current(), defaults);
    ExpectPersistedEqual(Slot(0).registers[0], DistinctState(2));
    ASSERT_EQ(QV_ResetRegStates(kAddress), 1);
    for (int r = 0; r < kRegisterCount; ++r) {
        SCOPED_TRACE(r);
        ExpectPersistedEqual(Slot(0).registers[r], defaults);
        ExpectRunTimeEqual(Slot(0).registers[r], defaults);
    }
}

TEST_F(Registers, RegisterNumbersOwnershipAndPointersAreChecked) {
    InstrumentState out = Applicable();
    for (int reg : {-1, kRegisterCount}) {
        EXPECT_EQ(QV_GetRegState(kAddress, reg, &out), -1);
        EXPECT_EQ(QV_SetRegState(kAddress, reg, out), -1);
        EXPECT_EQ(QV_Store(kAddress, reg), -1);
        EXPECT_EQ(QV_Recall(kAddress, reg), -1);
    }
    EXPECT_EQ(QV_GetCurrentState(kAddress, nullptr), -1);
    EXPECT_EQ(QV_GetRegState(kAddress, 0, nullptr), -1);

    // Another process's sensor: only QV_Store is open to all.
    Take(1, 30, kModel, qv::test::kOtherPid).current = DistinctState(3);
    EXPECT_EQ(QV_GetCurrentState(30, &out), -1);
    EXPECT_EQ(QV_SetCurrentState(30, Applicable()), -1);
    EXPECT_EQ(QV_GetRegState(30, 0, &out), -1);
    EXPECT_EQ(QV_SetRegState(30, 0, Applicable()), -1);
    EXPECT_EQ(QV_Recall(30, 0), -1);
    EXPECT_EQ(QV_ResetCurrentState(30), -1);
    EXPECT_EQ(QV_ResetRegStates(30), -1);
    ExpectPersistedEqual(Slot(1).current, DistinctState(3));
    EXPECT_EQ(QV_Store(30, 5), 1);
    ExpectPersistedEqual(Slot(1).registers[5], DistinctState(3));
    EXPECT_EQ(QV_Store(31, 5), -1);  // no such sensor
}

}  // namespace
