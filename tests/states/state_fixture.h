// A slot taken for the calling process (no sensor needed), an empty data
// directory for each test, and states whose fields all differ.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <string>

#include "frame/shared_table.h"
#include "platform/platform.h"
#include "settings/instrument_state.h"
#include "states/state_file.h"
#include "support/files.h"
#include "support/slots.h"

// The persisted fields other than the response table, by type.
#define QV_PERSISTED_INTEGERS(X)                                                            \
    X(MeasMode) X(Averages) X(TriggerDelay_mSec) X(PowerUnits) X(CWRefUnits) X(PulseRefUnits) \
    X(SingleSideLimitUnits) X(DoubleSideLimitUnits) X(RecorderOutUnits) X(AntiAliasingEnabled) \
    X(OffsetEnabled) X(ResponseEnabled) X(DutyCycleEnabled) X(AutoPulseCriteriaEnabled)       \
    X(TTL_TriggerInEnabled) X(TTL_TriggerInIvertedEnabled) X(TTL_TriggerOutEnabled)          \
    X(TTL_TriggerOutInvertEnabled) X(RecorderOutEnabled) X(LimitsEnabled)                    \
    X(SingleSidedLimitsRule) X(DoubleSidedLimitsRule)
#define QV_PERSISTED_DOUBLES(X)                                                              \
    X(Freq) X(CWRef) X(PlsRefPulse) X(PlsRefPeak) X(PlsRefAvg) X(PlsRefDC) X(PulseCriteria_DB) \
    X(Offset_DB) X(DutyeCycle) X(RecorderOut_OV_Level) X(RecorderOut_1V_Level)               \
    X(SingleSidedLimit) X(DoubleSidedLowerLimit) X(DoubleSidedUpperLimit)

namespace qv::test {

// Every persisted field differs from every other, from its defaults and from
// the same field of another seed; the values survive six decimals exactly.
inline InstrumentState DistinctState(int seed, int points = QV_RESPONSE_POINTS) {
    InstrumentState s;
    std::memset(&s, 0, sizeof s);
    ResetInstrumentState(s);
    int i = 0;
#define QV_SET_INTEGER(F) s.F = 1000 * seed + 11 + i++;
#define QV_SET_DOUBLE(F) s.F = 1000.0 * seed + 0.125 + 1.5 * i++;
    QV_PERSISTED_INTEGERS(QV_SET_INTEGER)
    QV_PERSISTED_DOUBLES(QV_SET_DOUBLE)
#undef QV_SET_INTEGER
#undef QV_SET_DOUBLE
    s.NumberOfResponsePoints = points;
    for (int p = 0; p < QV_RESPONSE_POINTS; ++p)
        s.Response[p] = {1.0e8 + 1000.0 * p + seed, -0.25 - p - seed};
    return s;
}

inline void ExpectPersistedEqual(const InstrumentState& actual, const InstrumentState& expected) {
#define QV_EXPECT_FIELD(F) EXPECT_EQ(actual.F, expected.F) << #F;
    QV_PERSISTED_INTEGERS(QV_EXPECT_FIELD)
    QV_PERSISTED_DOUBLES(QV_EXPECT_FIELD)
#undef QV_EXPECT_FIELD
    ASSERT_EQ(actual.NumberOfResponsePoints, expected.NumberOfResponsePoints);
    for (int p = 0; p < expected.NumberOfResponsePoints; ++p) {
        EXPECT_EQ(actual.Response[p].Frequency, expected.Response[p].Frequency) << p;
        EXPECT_EQ(actual.Response[p].Amplitude, expected.Response[p].Amplitude) << p;
    }
}

// The run-time fields (extended averaging, max hold, 75 ohms) from one seed.
inline void SetRunTime(InstrumentState& s, int seed) {
    s.ExtendedAveragingEnabled = seed;
    s.MaxHoldEnabled = seed + 1;
    s.ExtendedAveragingCount = seed + 2;
    s.ExtendedAveragingProgress[0] = seed + 3;
    s.ExtendedAveragingProgress[1] = seed + 4;
    s.MaxHoldRestart[0] = seed + 5;
    s.MaxHoldRestart[1] = seed + 6;
    for (int k = 0; k < 5; ++k) s.MaxHoldValues[k] = seed + 7.5 + k;
    s.Enabled75Ohms = seed + 12;
}

inline void ExpectRunTimeEqual(const InstrumentState& actual, const InstrumentState& expected) {
    constexpr std::size_t first = offsetof(InstrumentState, ExtendedAveragingEnabled);
    constexpr std::size_t end = offsetof(InstrumentState, SingleSidedLimitsRule);
    EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(&actual) + first,
                          reinterpret_cast<const char*>(&expected) + first, end - first),
              0)
        << "run-time fields differ";
}

inline void ExpectRunTime(const InstrumentState& s, int seed) {
    InstrumentState expected = s;
    SetRunTime(expected, seed);
    ExpectRunTimeEqual(s, expected);
}

class StateTest : public ::testing::Test {
protected:
    static constexpr int kAddress = 17;
    static constexpr int kModel = 8;  // "QV442A_", up to 20 GHz

    void SetUp() override {
        ASSERT_FALSE(platform::GetEnv(platform::kEnvDataDir).empty()) << "run under qv_test_env";
        std::filesystem::remove_all(platform::DataDirectory());
        ClearSlots();
        for (int s = 0; s < kSlotCount; ++s) {
            Slot(s).identity.ModelIndex = kUnknownModelIndex;
            Slot(s).identity.address = -1;
            // Registers 10 to 19 as a fresh table has them.
            std::memset(&Slot(s).registers[kDefaultRegisters], 0,
                        sizeof(InstrumentState) * (kRegisterCount - kDefaultRegisters));
        }
        Take(0, kAddress, kModel);
    }
    void TearDown() override { ClearSlots(); }

    // Slot `slot` in use by `owner` for a sensor at `address` of model `model`.
    static DeviceRecord& Take(int slot, int address, int model,
                              std::uint32_t owner = platform::CurrentProcessId()) {
        DeviceRecord& r = Claim(slot, ("SER" + std::to_string(100 + slot)).c_str(), address, slot + 1, owner);
        r.identity.ModelIndex = model;
        r.identity.address = address;
        return r;
    }

    static InstrumentState& Current() { return Slot(0).current; }

    static std::string FilePath(const std::string& file) {
        return platform::JoinPath(platform::DataDirectory(), file);
    }
    static std::string FileText(const std::string& file) { return qv::test::FileText(FilePath(file)); }
    static void PutFile(const std::string& file, const std::string& text) {
        std::filesystem::create_directories(platform::DataDirectory());
        WriteFile(FilePath(file), text);
    }

private:
    static constexpr int kUnknownModelIndex = -1;
};

}  // namespace qv::test
