// State files: names and paths, what a save writes, what a restore reads from
// files written by the library or edited by hand.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "qv_api2.h"
#include "state_fixture.h"

using namespace qv;
using qv::test::DistinctState;
using qv::test::ExpectPersistedEqual;
using qv::test::ExpectRunTime;
using qv::test::SetRunTime;
using Strings = std::vector<std::string>;

namespace {

// Keys in the order a section lists them, as typed from the file format.
const Strings kKeys = {
    "MeasMode", "Freq", "CWRef", "PlsRefPulse", "PlsRefPeak", "PlsRefAvg", "PlsRefDC",
    "PulseCriteria_DB", "Offset_DB", "DutyeCycle", "RecorderOut_OV_Level", "RecorderOut_1V_Level",
    "SingleSidedLimit", "DoubleSidedLowerLimit", "DoubleSidedUpperLimit", "Averages",
    "TriggerDelay_mSec", "PowerUnits", "CWRefUnits", "PulseRefUnits", "SingleSideLimitUnits",
    "DoubleSideLimitUnits", "RecorderOutUnits", "AntiAliasingEnabled", "OffsetEnabled",
    "ResponseEnabled", "DutyCycleEnabled", "AutoPulseCriteriaEnabled", "TTL_TriggerInEnabled",
    "TTL_TriggerInIvertedEnabled", "TTL_TriggerOutEnabled", "TTL_TriggerOutInvertEnabled",
    "RecorderOutEnabled", "LimitsEnabled", "SingleSidedLimitsRule", "DoubleSidedLimitsRule",
    "NumberOfResponsePoints"};

// Lines of a file, CR LF ends checked and taken off.
Strings Lines(const std::string& text) {
    Strings lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        EXPECT_TRUE(!line.empty() && line.back() == '\r') << line;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

// The value text of `key` in a file's lines, or "" when there is none.
std::string ValueText(const Strings& lines, const std::string& key) {
    for (const std::string& line : lines)
        if (line.rfind(key + "=", 0) == 0) return line.substr(key.size() + 1);
    return "";
}

class StateFile : public qv::test::StateTest {};

// ---------------------------------------------------------------- paths

struct PrefixCase {
    int model;
    const char* prefix;
};

class StatePaths : public StateFile, public ::testing::WithParamInterface<PrefixCase> {};

TEST_P(StatePaths, ModelPrefixAndTheIdentitysAddress) {
    Slot(0).identity.ModelIndex = GetParam().model;
    Slot(0).identity.address = 12;
    Slot(0).address = 99;  // the copy taken at initialisation names the files
    const std::string prefix = GetParam().prefix;
    EXPECT_EQ(StateFilePath(0), FilePath(prefix + "12.ini"));
    EXPECT_EQ(StateFilePath(0, "Bench_1"), FilePath(prefix + "12_Bench_1.ini"));
    Slot(0).identity.address = -1;
    EXPECT_EQ(StateFilePath(0), FilePath(prefix + "-1.ini"));
}

INSTANTIATE_TEST_SUITE_P(
    Models, StatePaths,
    ::testing::Values(PrefixCase {-2, "Other_"}, PrefixCase {-1, "QVUknwn_"}, PrefixCase {0, "QV2xxA_"},
                      PrefixCase {8, "QV442A_"}, PrefixCase {9, "Other_"}, PrefixCase {71, "RT7705A_"},
                      PrefixCase {76, "RT7777B_"}, PrefixCase {95, "VRT2_"}, PrefixCase {113, "TKS8320_"},
                      PrefixCase {114, "Other_"}));

// ---------------------------------------------------------------- round trips

TEST_F(StateFile, ANamedStateBringsBackEveryPersistedFieldAndNoRunTimeField) {
    const InstrumentState saved = DistinctState(1);
    Current() = saved;
    SetRunTime(Current(), 100);
    ASSERT_EQ(QV_SaveCurrStateTo(kAddress, "Bench_1"), 1);
    ResetInstrumentState(Current());
    SetRunTime(Current(), 200);
    EXPECT_EQ(QV_RestoreCurrStateFrom(kAddress, "Bench_1"), saved.MeasMode);
    ExpectPersistedEqual(Current(), saved);
    ExpectRunTime(Current(), 200);
}

TEST_F(StateFile, TheSensorsFileHoldsTheCurrentStateAndRegistersZeroToNine) {
    InstrumentState expected[11];
    for (int k = 0; k < 11; ++k) expected[k] = DistinctState(k + 1, 3 * k);
    Current() = expected[10];
    for (int r = 0; r < 10; ++r) Slot(0).registers[r] = expected[r];
    ASSERT_EQ(QV_WriteStateToINI(kAddress), 1);

    Strings sections;
    for (const std::string& line : Lines(FileText("QV442A_17.ini")))
        if (line.rfind('[', 0) == 0) sections.push_back(line);
    EXPECT_EQ(sections, (Strings {"[CurrState]", "[Reg_0]", "[Reg_1]", "[Reg_2]", "[Reg_3]", "[Reg_4]",
                                  "[Reg_5]", "[Reg_6]", "[Reg_7]", "[Reg_8]", "[Reg_9]"}));

    ResetInstrumentState(Current());
    for (InstrumentState& reg : Slot(0).registers) reg = DistinctState(50);
    EXPECT_EQ(QV_ReadStateFromINI(kAddress), expected[10].MeasMode);
    ExpectPersistedEqual(Current(), expected[10]);
    for (int r = 0; r < 10; ++r) {
        SCOPED_TRACE(r);
        ExpectPersistedEqual(Slot(0).registers[r], expected[r]);
    }
    ExpectPersistedEqual(Slot(0).registers[10], DistinctState(50));  // not in the file
}

TEST_F(StateFile, ASectionHoldsTheKeysInOrderAndOnlyThePointsInUse) {
    Current().NumberOfResponsePoints = 0;
    ASSERT_EQ(QV_SaveCurrStateTo(kAddress, "None"), 1);
    Strings expected = {"[CurrState]"};
    for (const std::string& key : kKeys) expected.push_back(key);
    Strings keys;
    for (const std::string& line : Lines(FileText("QV442A_17_None.ini")))
        keys.push_back(line.substr(0, line.find('=')));
    EXPECT_EQ(keys, expected);

    Current().NumberOfResponsePoints = 3;
    ASSERT_EQ(QV_SaveCurrStateTo(kAddress, "Three"), 1);
    for (int i = 0; i < 3; ++i) {
        expected.push_back("RespPtFrq_" + std::to_string(i));
        expected.push_back("RespPtAmp_" + std::to_string(i));
    }
    keys.clear();
    for (const std::string& line : Lines(FileText("QV442A_17_Three.ini")))
        keys.push_back(line.substr(0, line.find('=')));
    EXPECT_EQ(keys, expected);
}

TEST_F(StateFile, ValuesAreWrittenAsPercentIAndPercentF) {
    ResetInstrumentState(Current());
    ASSERT_EQ(QV_SaveCurrStateTo(kAddress, "Defaults"), 1);
    const Strings lines = Lines(FileText("QV442A_17_Defaults.ini"));
    EXPECT_EQ(ValueText(lines, "Freq"), "1000000000.000000");
    EXPECT_EQ(ValueText(lines, "DoubleSidedLowerLimit"), "-10.000000");
    EXPECT_EQ(ValueText(lines, "TriggerDelay_mSec"), "500");
}

// ---------------------------------------------------------------- reading

TEST_F(StateFile, AMissingFileReadsAsTheKeysOwnDefaults) {
    Current() = DistinctState(1);
    SetRunTime(Current(), 100);
    EXPECT_EQ(QV_RestoreCurrStateFrom(kAddress, "Never"), 1);
    InstrumentState expected;
    ResetInstrumentState(expected);
    // The five keys whose read default is not the reset default.
    expected.DutyeCycle = 1.0;
    expected.SingleSidedLimit = -10.0;
    expected.DoubleSidedLowerLimit = -20.0;
    expected.DoubleSidedUpperLimit = -10.0;
    expected.TriggerDelay_mSec = 100;
    ExpectPersistedEqual(Current(), expected);
    ExpectRunTime(Current(), 100);
    EXPECT_FALSE(platform::FileExists(StateFilePath(0, "Never")));
}

class HandEditedFile : public StateFile, public ::testing::WithParamInterface<const char*> {};

TEST_P(HandEditedFile, ReadsWhatItCanAndDefaultsTheRest) {
    const std::string lines[] = {
        "; edited by hand",
        "[Reg_0]",
        "MeasMode=3",
        " [ currstate ] ",
        "  freq   =  2.5e9  ",
        "AVERAGES=12abc",
        "dutyecycle = .25",
        "NoSuchKey=7",
        "PowerUnits=",
        "CWRef=garbage",
        "TriggerDelay_mSec=-40",
        "Offset_DB=\"1.5\"",
        "DutyCycle=0.5",
        "RecorderOut_0V_Level=3",
        "TTL_TriggerInInvertedEnabled=1",
        "LimitsEnabled=99999999999",
        "PlsRefDC=1e999",
        "NumberOfResponsePoints=+2",
        "respptfrq_0=1e8",
        "RespPtAmp_0=-1.5",
        "RespPtFrq_1=x",
        "RespPtFrq_2=5e9",
    };
    std::string text;
    for (const std::string& line : lines) text += line + GetParam();
    PutFile("QV442A_17_Edited.ini", text);
    Current() = DistinctState(1);
    const InstrumentState before = Current();

    EXPECT_EQ(QV_RestoreCurrStateFrom(kAddress, "Edited"), 1);
    const InstrumentState& s = Current();
    EXPECT_EQ(s.Freq, 2.5e9);
    EXPECT_EQ(s.Averages, 12);
    EXPECT_EQ(s.DutyeCycle, 0.25);
    EXPECT_EQ(s.PowerUnits, 0);
    EXPECT_EQ(s.CWRef, 0.0);
    EXPECT_EQ(s.TriggerDelay_mSec, -40);
    EXPECT_EQ(s.Offset_DB, 1.5);
    EXPECT_EQ(s.RecorderOut_OV_Level, -20.0);
    EXPECT_EQ(s.TTL_TriggerInIvertedEnabled, 0);
    EXPECT_EQ(s.LimitsEnabled, INT32_MAX);
    EXPECT_EQ(s.PlsRefDC, HUGE_VAL);
    EXPECT_EQ(s.MeasMode, 1);  // Reg_0's key belongs to another section
    EXPECT_EQ(s.SingleSidedLimitsRule, 2);
    ASSERT_EQ(s.NumberOfResponsePoints, 2);
    EXPECT_EQ(s.Response[0].Frequency, 1e8);
    EXPECT_EQ(s.Response[0].Amplitude, -1.5);
    EXPECT_EQ(s.Response[1].Frequency, 0.0);
    EXPECT_EQ(s.Response[1].Amplitude, 0.0);
    EXPECT_EQ(s.Response[2].Frequency, before.Response[2].Frequency);  // beyond the count
}

INSTANTIATE_TEST_SUITE_P(LineEnds, HandEditedFile, ::testing::Values("\n", "\r\n"),
                         [](const auto& info) { return info.index == 0 ? "Lf" : "CrLf"; });

struct CountCase {
    const char* text;
    int points;
};

class ResponseCountInFile : public StateFile, public ::testing::WithParamInterface<CountCase> {};

// Decided: a count outside 0..201 is held at the nearer end, so the table is
// never read or used past its last entry.
TEST_P(ResponseCountInFile, IsHeldWithinTheTable) {
    std::string text = "[CurrState]\nNumberOfResponsePoints=" + std::string(GetParam().text) + "\n";
    for (int i = 0; i < 205; ++i)
        text += "RespPtFrq_" + std::to_string(i) + "=" + std::to_string(1000 + i) + "\n";
    PutFile("QV442A_17_Count.ini", text);
    Current() = DistinctState(1);
    EXPECT_EQ(QV_RestoreCurrStateFrom(kAddress, "Count"), 1);
    EXPECT_EQ(Current().NumberOfResponsePoints, GetParam().points);
    for (int i = 0; i < QV_RESPONSE_POINTS; ++i) {
        const double expected = i < GetParam().points ? 1000.0 + i : DistinctState(1).Response[i].Frequency;
        ASSERT_EQ(Current().Response[i].Frequency, expected) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Counts, ResponseCountInFile,
                         ::testing::Values(CountCase {"-5", 0}, CountCase {"201", 201},
                                           CountCase {"99999999999", 201}));

struct LongCase {
    const char* name;
    double value;
    bool exponentForm;
};

class LongValueText : public StateFile, public ::testing::WithParamInterface<LongCase> {};

// Decided: a "%f" text that would not fit the 100-byte value buffer is
// written in exponent form, so that it reads back to the same value.
TEST_P(LongValueText, FitsTheReadBufferAndReadsBackExactly) {
    Current().CWRef = GetParam().value;
    Current().RecorderOut_1V_Level = -GetParam().value;
    ASSERT_EQ(QV_SaveCurrStateTo(kAddress, "Long"), 1);
    const Strings lines = Lines(FileText("QV442A_17_Long.ini"));
    const std::string text = ValueText(lines, "CWRef");
    EXPECT_LE(text.size(), 99u) << text;
    EXPECT_EQ(text.find('e') != std::string::npos, GetParam().exponentForm) << text;
    ResetInstrumentState(Current());
    EXPECT_EQ(QV_RestoreCurrStateFrom(kAddress, "Long"), 1);
    EXPECT_EQ(Current().CWRef, GetParam().value);
    EXPECT_EQ(Current().RecorderOut_1V_Level, -GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Values, LongValueText,
    ::testing::Values(LongCase {"LargestThatFits", 1e91, false},
                      LongCase {"OneCharacterTooMany", -1e91, true},
                      LongCase {"Largest", DBL_MAX, true}),
    [](const auto& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------- refusals

struct NameCase {
    const char* label;
    std::string name;
    bool valid;
};

class StateNames : public StateFile, public ::testing::WithParamInterface<NameCase> {};

TEST_P(StateNames, FollowTheNameRule) {
    const char* name = GetParam().name.c_str();
    const int expected = GetParam().valid ? 1 : -1;
    EXPECT_EQ(QV_SaveCurrStateTo(kAddress, name), expected);
    EXPECT_EQ(QV_RestoreCurrStateFrom(kAddress, name), expected);
    EXPECT_EQ(QV_DeleteNamedState(kAddress, name), GetParam().valid ? 1 : -1);
    EXPECT_TRUE(platform::FindFiles(FilePath("*")).empty());
    EXPECT_EQ(StateFilePath(0, name).empty(), !GetParam().valid);
}

INSTANTIATE_TEST_SUITE_P(
    Names, StateNames,
    ::testing::Values(NameCase {"Empty", "", false}, NameCase {"One", "A", true},
                      NameCase {"Mixed", "Bench_1", true}, NameCase {"Twenty", std::string(20, 'z'), true},
                      NameCase {"TwentyOne", std::string(21, 'z'), false}, NameCase {"Minus", "a-b", false},
                      NameCase {"Slash", "a/b", false}, NameCase {"Wildcard", "a*", false},
                      NameCase {"Up", "..", false}, NameCase {"Backslash", "a\\b", false},
                      NameCase {"Drive", "C:x", false}, NameCase {"NotAscii", "\xC3\xA9", false}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(StateFile, RefusalsChangeNothing) {
    EXPECT_EQ(QV_SaveCurrStateTo(kAddress, nullptr), -1);
    EXPECT_EQ(QV_RestoreCurrStateFrom(kAddress, nullptr), -1);
    EXPECT_EQ(QV_WriteStateToINI(0), -1);
    EXPECT_EQ(QV_WriteStateToINI(256), -1);
    EXPECT_EQ(QV_WriteStateToINI(kAddress + 1), -2);  // no such sensor
    EXPECT_EQ(QV_ReadStateFromINI(kAddress + 1), -1);
    EXPECT_TRUE(platform::FindFiles(FilePath("*")).empty());

    // Another process's sensor: only its state file may be written.
    Take(1, 30, kModel, qv::test::kOtherPid);
    Slot(1).current = DistinctState(2);
    EXPECT_EQ(QV_SaveCurrStateTo(30, "A"), -1);
    EXPECT_EQ(QV_RestoreCurrStateFrom(30, "A"), -1);
    EXPECT_EQ(QV_WriteStateToINI(30), 1);
    EXPECT_EQ(ValueText(Lines(FileText("QV442A_30.ini")), "Averages"),
              std::to_string(DistinctState(2).Averages));
    EXPECT_EQ(QV_ReadStateFromINI(30), -1);
    ExpectPersistedEqual(Slot(1).current, DistinctState(2));
}

}  // namespace
