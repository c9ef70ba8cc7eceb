// Settings of a sensor that another, real process has initialised.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "settings/settings_fixture.h"
#include "support/peer_process.h"

using namespace qv;
using qv::test::Current;
using qv::test::kAddr;

namespace {

struct ForeignCall {
    const char* name;
    std::function<std::int32_t()> call;
    std::function<bool()> changed;
    bool needsOwnership;
};

const ForeignCall kForeignCalls[] = {
    {"Frequency", [] { return QV_SetFrequency(kAddr, 5e7); },
     [] { return Current().Freq == 5e7; }, true},
    {"Averages", [] { return QV_SetAverages(kAddr, 5); }, [] { return Current().Averages == 5; }, true},
    {"AntiAliasing", [] { return QV_SetAntiAliasingEnabled(kAddr, 1); },
     [] { return Current().AntiAliasingEnabled == 1; }, true},
    {"Enabled75Ohms", [] { return QV_Set75OhmsEnabled(kAddr, 1); },
     [] { return Current().Enabled75Ohms == 1; }, true},
    {"LimitEnabled", [] { return QV_SetLimitEnabled(kAddr, 1); },
     [] { return Current().LimitsEnabled == 1; }, true},
    {"TriggerOut", [] { return QV_SetTTLTriggerOutEnabled(kAddr, 1); },
     [] { return Current().TTL_TriggerOutEnabled == 1; }, true},
    {"TriggerInTimeOut", [] { return QV_SetTTLTriggerInTimeOut(kAddr, 9); },
     [] { return Current().TriggerDelay_mSec == 9; }, true},
    {"RecorderOut", [] { return QV_SetRecorderOutEnabled(kAddr, 1); },
     [] { return Current().RecorderOutEnabled == 1; }, true},
    {"AveragesRead", [] {
         std::int32_t n = 0;
         return QV_GetAverages(kAddr, &n);
     },
     [] { return false; }, true},
    // These four need no ownership: the shared record changes for its owner too.
    {"PulseCriteria", [] { return QV_SetPulseCriteria(kAddr, 6); },
     [] { return Current().PulseCriteria_DB == 6; }, false},
    {"AutoPulse", [] { return QV_SetAutoPulseEnabled(kAddr, 1); },
     [] { return Current().AutoPulseCriteriaEnabled == 1; }, false},
    {"CWReference", [] { return QV_SetCWReference(kAddr, -3, 1); },
     [] { return Current().CWRef == -3 && Current().CWRefUnits == 1; }, false},
    {"OffsetEnabled", [] { return QV_SetOffsetEnabled(kAddr, 1); },
     [] { return Current().OffsetEnabled == 1; }, false},
};

class ForeignSensor : public qv::test::SettingsTest,
                      public ::testing::WithParamInterface<ForeignCall> {
protected:
    void SetUp() override {
        initialise_ = false;
        SettingsTest::SetUp();
    }
};

TEST_P(ForeignSensor, IsChangedOnlyWhereNoOwnershipIsNeeded) {
    const ForeignCall& c = GetParam();
    qv::test::PeerProcess owner;
    ASSERT_TRUE(owner.Started());
    ASSERT_EQ(owner.Ask("init SET001"), "1");
    ASSERT_NE(Slot(0).ownerPid, platform::CurrentProcessId());
    ClearTranscripts();
    const std::int64_t ownersHandle = Slot(0).deviceHandle;
    EXPECT_EQ(c.call(), c.needsOwnership ? -1 : 1);
    EXPECT_EQ(c.changed(), !c.needsOwnership);
    // The owner's handle is never used here: refusals send nothing at all.
    if (c.needsOwnership) {
        EXPECT_EQ(qvsim_transcript_count(mine_), 0);
    }
    EXPECT_EQ(Slot(0).deviceHandle, ownersHandle);
    EXPECT_EQ(owner.Ask("uninit SET001"), "1");
}

INSTANTIATE_TEST_SUITE_P(Settings, ForeignSensor, ::testing::ValuesIn(kForeignCalls),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
