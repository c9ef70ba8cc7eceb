// Initialising sensors into slots and releasing them, in one process.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "calibration/cal_image.h"
#include "device/transport.h"
#include "frame/shared_table.h"
#include "platform/platform.h"
#include "qv_api2.h"
#include "support/process.h"
#include "support/sim_fixture.h"
#include "support/slots.h"

using namespace qv;
using Strings = std::vector<std::string>;

namespace {

class Initialization : public qv::test::SimBusTest {
protected:
    void SetUp() override {
        SimBusTest::SetUp();
        qv::test::ClearSlots();
    }
    void TearDown() override {
        // Release whatever a test left, as the process's unload would.
        for (int s = 0; s < kSlotCount; ++s)
            if (Slot(s).inUse == 1) QV_UninitializeSensor_SN(Slot(s).serial);
        qv::test::ClearSlots();
    }
    static int Count(const Strings& requests, const std::string& request) {
        int n = 0;
        for (const auto& r : requests) n += r == request;
        return n;
    }
};

TEST_F(Initialization, BringsTheSensorUpInTheFirstFreeSlot) {
    AddSensor("AAA111", 9, "QV223A");
    const int b = AddSensor("BBB222", 17, "QV442A");
    qvsim_transcript_clear(b);
    ASSERT_EQ(QV_InitializeSensor_SN("BBB222"), 1);
    const DeviceRecord& r = Slot(0);
    EXPECT_TRUE(r.inUse == 1 && r.ownerPid == platform::CurrentProcessId() && r.deviceHandle > 0);
    EXPECT_STREQ(r.serial, "BBB222");
    EXPECT_TRUE(r.address == 17 && r.identity.address == 17 && r.devId == 2 && r.identity.ModelIndex == 8);
    EXPECT_EQ(r.analysisSetup.measThreshold, -40.0);  // model 8
    EXPECT_EQ(r.tempRows[0].freq, 1.0e9);             // tables built for 1 GHz
    EXPECT_NE(r.calTmp, 8900.0);           // calibration decoded
    // The sensor was pinged once and its trigger input switched off.
    const Strings requests = Requests(b);
    EXPECT_EQ(Count(requests, "IN 239"), 1);
    EXPECT_EQ(requests.back(), "IN 190");
    EXPECT_EQ(Info(b).open_handles, 1);  // the slot's handle only
    EXPECT_EQ(QV_IsDeviceInUse_Idx(2), 1);
    EXPECT_EQ(QV_IsDeviceInUse_Idx(-2), 1);
    EXPECT_EQ(QV_IsDeviceMine_Idx(2), 1);
    EXPECT_EQ(QV_IsDeviceInUse_Idx(1), 0);
}

TEST_F(Initialization, ChecksTheSerialIndexAndAddressAndGivesTheSameSlotTwice) {
    AddSensor("AAA11", 9);
    AddSensor("BBB222", 17);
    EXPECT_EQ(QV_InitializeSensor_SN("AAA1"), -1);
    EXPECT_EQ(QV_InitializeSensor_SN("AAA1111"), -1);
    EXPECT_EQ(QV_InitializeSensor_SN(nullptr), -1);
    EXPECT_EQ(QV_InitializeSensor_Idx(0), -1);
    EXPECT_EQ(QV_InitializeSensor_Idx(3), -1);
    EXPECT_EQ(QV_InitializeSensor_Addr(256), -1);
    EXPECT_EQ(QV_InitializeSensor_Addr(10), -2);  // the serial lookup's answer
    EXPECT_EQ(QV_InitializeSensor_SN("CCC333"), -1);
    EXPECT_EQ(QV_InitializeSensor_SN("AAA11"), 1);  // five characters are fine
    ASSERT_EQ(QV_InitializeSensor_SN("BBB222"), 2);
    EXPECT_EQ(QV_InitializeSensor_SN("BBB222"), 2);
    EXPECT_EQ(QV_InitializeSensor_Idx(2), 2);
    EXPECT_EQ(QV_InitializeSensor_Addr(17), 1);  // "already mine", not the slot
    Slot(1).ownerPid = qv::test::ParentProcessId();  // now a living other process's
    EXPECT_EQ(QV_InitializeSensor_Idx(2), -1);
    Slot(1).ownerPid = platform::CurrentProcessId();
}

TEST_F(Initialization, ThirteenSlotsAndNoMore) {
    std::vector<std::string> serials;
    for (int i = 0; i < 14; ++i) {
        serials.push_back("SEN" + std::to_string(100 + i));
        AddSensor(serials.back().c_str(), i + 1);
    }
    for (int i = 0; i < 13; ++i) ASSERT_EQ(QV_InitializeSensor_SN(serials[i].c_str()), i + 1);
    EXPECT_EQ(QV_InitializeSensor_SN(serials[13].c_str()), -1);
    EXPECT_EQ(QV_IsDeviceInUse_Idx(14), 0);
    EXPECT_EQ(QV_UninitializeSensor_SN(serials[5].c_str()), 1);
    EXPECT_EQ(QV_InitializeSensor_SN(serials[13].c_str()), 6);  // the freed slot
}

TEST_F(Initialization, ReleaseFreesTheSlotAndClosesTheSensor) {
    const int a = AddSensor("AAA111", 9);
    ASSERT_EQ(QV_InitializeSensor_SN("AAA111"), 1);
    EXPECT_EQ(QV_UninitializeSensor_SN("BBB222"), -1);
    EXPECT_EQ(QV_UninitializeSensor_SN("AAA1"), -1);
    // Ownership is judged without regard to case, the release itself with it.
    EXPECT_EQ(QV_UninitializeSensor_SN("aaa111"), -1);
    EXPECT_EQ(Slot(0).inUse, 1);
    EXPECT_EQ(QV_UninitializeSensor_SN("AAA111"), 1);
    EXPECT_TRUE(Slot(0).inUse == 0 && Slot(0).ownerPid == 0u && Slot(0).devId == 0 && Slot(0).deviceHandle == -1);
    EXPECT_EQ(Info(a).open_handles, 0);
    EXPECT_EQ(QV_IsDeviceInUse_Idx(1), 0);
    EXPECT_EQ(QV_UninitializeSensor_SN("AAA111"), -1);
}

TEST_F(Initialization, TheCacheIsReadOnceAndThenUsed) {
    const int a = AddSensor("AAA111", 9);
    ASSERT_EQ(QV_InitializeSensor_SN("AAA111"), 1);
    EXPECT_TRUE(platform::FileExists(CalCachePath("AAA111")));
    const double calTmp = Slot(0).calTmp;
    const double z = Slot(0).calPoints[200].hs[13].z;
    ASSERT_EQ(QV_UninitializeSensor_SN("AAA111"), 1);
    qvsim_transcript_clear(a);
    ASSERT_EQ(QV_InitializeSensor_SN("AAA111"), 1);
    // Only the 1,024-byte test block: 16 reads of 64 bytes.
    int blockReads = 0;
    qvsim_transfer t[4096];
    const int n = qvsim_transcript_read(a, 0, t, 4096);
    for (int i = 0; i < n; ++i) blockReads += t[i].kind == QVSIM_XFER_IN && t[i].code == 229 && t[i].length == 64;
    EXPECT_EQ(blockReads, 16);
    EXPECT_EQ(Slot(0).calTmp, calTmp);
    EXPECT_EQ(Slot(0).calPoints[200].hs[13].z, z);
}

TEST_F(Initialization, ReInitOpensAndClosesWithoutTouchingSlots) {
    const int a = AddSensor("AAA111", 9);
    EXPECT_EQ(QV_ReInit_Idx(1), 0);
    EXPECT_EQ(QV_ReInit_Addr(9), 0);
    EXPECT_EQ(QV_ReInit_Addr(10), -1);
    EXPECT_EQ(QV_ReInit_Idx(2), -1);
    EXPECT_EQ(Info(a).open_handles, 0);
    EXPECT_EQ(Slot(0).inUse, 0);
    // The lock is free again right away.
    EXPECT_EQ(QV_SetSysTimeOut(500), 1);
}

TEST_F(Initialization, AFailedOpenLeavesTheSlotFree) {
    const int a = AddSensor("AAA111", 9);
    // The sensor cannot be opened at all.
    AddFault(a, QVSIM_FAULT_OPEN_FAILS, 0, QVSIM_ALWAYS, -1);
    EXPECT_EQ(QV_InitializeSensor_SN("AAA111"), -1);
    EXPECT_EQ(Slot(0).inUse, 0);
    EXPECT_EQ(Slot(0).ownerPid, 0u);
    qvsim_clear_faults(a);
    EXPECT_EQ(QV_InitializeSensor_SN("AAA111"), 1);
}

}  // namespace
