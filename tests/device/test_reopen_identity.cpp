// Device indices move when a sensor is unplugged: a slot is never bound to the
// sensor that moved into its place, and an address write whose confirmation
// was lost leaves the slot saying what the sensor holds.
#include <gtest/gtest.h>

#include "calibration/calibration_fixture.h"
#include "device/transport.h"
#include "qv_api2.h"

namespace qv::test {
namespace {

class ReopenIdentity : public CalibrationTest {
protected:
    void SetUp() override {
        CalibrationTest::SetUp();
        a_ = AddSensor("AAA111", 1);
        b_ = AddSensor("BBB222", 2);
        c_ = AddSensor("CCC333", 3);
    }
    int a_ = -1, b_ = -1, c_ = -1;
};

TEST_F(ReopenIdentity, ASensorPulledOutBeforeItDuringInitialisationIsNotTakenForIt) {
    // While B answers its initialisation ping, A is pulled out: B and C move up.
    AddFault(b_, QVSIM_FAULT_UNPLUG, kReqInitPing, 1, a_ + 1);
    EXPECT_EQ(QV_InitializeSensor_SN("BBB222"), -1);
    EXPECT_EQ(Slot(0).inUse, 0);
    EXPECT_EQ(Info(c_).open_handles, 0);
    // Asked again, B is found where it is now.
    EXPECT_EQ(QV_InitializeSensor_SN("BBB222"), 1);
    EXPECT_EQ(Slot(0).devId, 1);
}

TEST_F(ReopenIdentity, ReInitByAddressRefusesTheSensorThatMovedIntoItsPlace) {
    ASSERT_EQ(QV_InitializeSensor_SN("BBB222"), 1);
    ASSERT_EQ(qvsim_sensor_unplug(b_), QVSIM_OK);  // C now has place 2, which B's slot names
    EXPECT_EQ(QV_ReInit_Addr(2), -1);
    EXPECT_EQ(Info(c_).open_handles, 0);
}

TEST_F(ReopenIdentity, AMeasurementDoesNotReopenTheSensorThatMovedIntoItsPlace) {
    ASSERT_EQ(QV_InitializeSensor_SN("BBB222"), 1);
    ASSERT_EQ(QV_SetAverages(2, 1), 1);
    double dbm = 0.0;
    ASSERT_EQ(QV_MeasureCW(2, &dbm), 1);
    ASSERT_EQ(qvsim_sensor_unplug(b_), QVSIM_OK);  // C now has place 2
    EXPECT_EQ(QV_MeasureCW(2, &dbm), QV_ERR_ACQUISITION);
    EXPECT_EQ(Info(c_).open_handles, 0);
}

TEST_F(ReopenIdentity, ALostAddressConfirmationLeavesTheSlotSayingWhatTheSensorHolds) {
    ASSERT_EQ(QV_InitializeSensor_SN("AAA111"), 1);
    // The byte is stored; only the 253 echo is lost.
    AddFault(a_, QVSIM_FAULT_NO_ECHO, kReqEndWrite, 1);
    EXPECT_EQ(QV_ChangeAddress(1, 9), 1);
    EXPECT_EQ(qvsim_get_address(a_), 9);
    EXPECT_EQ(Slot(0).address, 9);
    // Neither the byte nor the echo arrives: refused, and nothing changes.
    AddFault(a_, QVSIM_FAULT_REQUEST_FAILS, kReqMemoryWrite, 1);
    AddFault(a_, QVSIM_FAULT_NO_ECHO, kReqEndWrite, 1);
    EXPECT_EQ(QV_ChangeAddress(9, 11), -1);
    EXPECT_EQ(qvsim_get_address(a_), 9);
    EXPECT_EQ(Slot(0).address, 9);
}

}  // namespace
}  // namespace qv::test
