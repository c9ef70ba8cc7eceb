// Counting and listing sensors, translating between their names, addresses,
// conflicts and the LED, through the exports.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "device/transport.h"
#include "frame/shared_table.h"
#include "platform/platform.h"
#include "qv_api2.h"
#include "support/process.h"
#include "support/sensor_fixture.h"

using namespace qv;
using Strings = std::vector<std::string>;

namespace {

class Discovery : public qv::test::InitialisedSensorTest {
protected:
    // A slot as another process's initialisation leaves it.
    static void ClaimForOtherProcess(int slot, const char* serial, int address, int devId) {
        qv::test::Claim(slot, serial, address, devId, qv::test::kOtherPid).deviceHandle = 4242;  // meaningless here: never to be used
    }
};

TEST_F(Discovery, CountFollowsTheBusAndReportsADriverFailure) {
    EXPECT_EQ(QV_SensorCnt(), 0);
    const int a = AddSensor("AAA111", 1);
    AddSensor("BBB222", 2);
    EXPECT_EQ(QV_SensorCnt(), 2);
    AddFault(a, QVSIM_FAULT_THROWS, QVSIM_FN_GET_DEV_COUNT, 1);
    EXPECT_EQ(QV_SensorCnt(), -2);
    ASSERT_EQ(qvsim_sensor_unplug(a), QVSIM_OK);
    EXPECT_EQ(QV_SensorCnt(), 1);
}

TEST_F(Discovery, ListGivesIndexAddressAndSerialInBusOrderWithinTheCallersLength) {
    AddSensor("AAA111", 7);
    AddSensor("bbb222", 200);
    SensorListEntry list[3];
    std::memset(list, 0x5A, sizeof list);
    EXPECT_EQ(QV_SensorList(list, 1), -1);
    EXPECT_EQ(list[0].DeviceIndex, 1);
    EXPECT_EQ(list[1].DeviceIndex, 0x5A5A5A5A);  // never beyond the length
    ASSERT_EQ(QV_SensorList(list, 3), 1);
    EXPECT_EQ(list[0].DeviceIndex, 1);
    EXPECT_EQ(list[0].Address, 7);
    EXPECT_STREQ(list[0].SerialNumber, "AAA111");
    EXPECT_EQ(list[1].DeviceIndex, 2);
    EXPECT_EQ(list[1].Address, 200);
    EXPECT_STREQ(list[1].SerialNumber, "BBB222");  // upper-cased from the path
    EXPECT_EQ(list[0].Reserved, 0x5A);              // the padding byte is not written
    EXPECT_EQ(list[2].DeviceIndex, 0x5A5A5A5A);    // nothing beyond the sensors
    EXPECT_EQ(QV_SensorList(nullptr, 2), -1);
    EXPECT_EQ(QV_SensorList(list, -1), -1);
}

TEST_F(Discovery, ListStopsAtASensorWhoseAddressCannotBeRead) {
    AddSensor("AAA111", 1);
    const int b = AddSensor("BBB222", 2);
    AddFault(b, QVSIM_FAULT_REQUEST_FAILS, kReqMemoryRead);
    SensorListEntry list[2] = {};
    EXPECT_EQ(QV_SensorList(list, 2), -1);
    EXPECT_EQ(list[0].Address, 1);  // written before the failure, and kept
}

TEST_F(Discovery, ListNegatesTheIndexOfAnotherProcesssSensorAndAnswersFromItsSlot) {
    AddSensor("AAA111", 1);
    const int b = AddSensor("BBB222", 2);
    ClaimForOtherProcess(0, "BBB222", 2, 2);
    // The owner is no running process, so the sweep frees the slot first.
    SensorListEntry list[2] = {};
    ASSERT_EQ(QV_SensorList(list, 2), 1);
    EXPECT_EQ(Slot(0).inUse, 0);
    EXPECT_EQ(list[1].DeviceIndex, 2);
    // With a live owner the slot stays and the sensor is not touched.
    ClaimForOtherProcess(0, "BBB222", 2, 2);
    Slot(0).ownerPid = qv::test::ParentProcessId();
    qvsim_transcript_clear(b);
    ASSERT_EQ(QV_SensorList(list, 2), 1);
    EXPECT_EQ(list[1].DeviceIndex, -2);
    EXPECT_EQ(list[1].Address, 2);
    EXPECT_TRUE(Requests(b).empty());
    EXPECT_EQ(QV_GetAddress_Idx(-2), 2);
    char serial[7] = {};
    EXPECT_EQ(QV_GetSerNo_Idx(-2, serial), 1);
    EXPECT_STREQ(serial, "BBB222");
    EXPECT_EQ(Slot(0).devId, 2);
}

struct SerialArg {
    const char* serial;
    int32_t index;
};

class IndexBySerial : public Discovery, public ::testing::WithParamInterface<SerialArg> {};

TEST_P(IndexBySerial, ValidatesThenSearches) {
    AddSensor("AAA111", 1);
    AddSensor("BBB22", 2);
    EXPECT_EQ(QV_GetIndex_SN(GetParam().serial), GetParam().index);
}

INSTANTIATE_TEST_SUITE_P(Cases, IndexBySerial,
                         ::testing::Values(SerialArg{"aaa111", 1}, SerialArg{"BBB22", 2}, SerialArg{"CCC333", 0},
                                           SerialArg{"AAA1", -2}, SerialArg{"AAA1111", -2}, SerialArg{nullptr, -2}));

TEST_F(Discovery, SerialByAddress) {
    char serial[8];
    EXPECT_EQ(QV_GetSerNo_Addr(1, serial), -1);  // no sensor at all
    AddSensor("AAA111", 1);
    const int b = AddSensor("BBB22", 2);
    std::memset(serial, 'x', sizeof serial);
    EXPECT_EQ(QV_GetSerNo_Addr(1, serial), 1);
    EXPECT_STREQ(serial, "AAA111");
    EXPECT_EQ(QV_GetSerNo_Addr(2, serial), 0);  // five characters are too few here
    EXPECT_EQ(QV_GetSerNo_Addr(3, serial), -2);
    EXPECT_EQ(QV_GetSerNo_Addr(0, serial), -2);
    EXPECT_EQ(QV_GetSerNo_Addr(256, serial), -2);
    EXPECT_EQ(QV_GetSerNo_Addr(1, nullptr), -1);
    EXPECT_EQ(Info(b).open_handles, 0);
}

TEST_F(Discovery, SerialByIndexWritesSixCharactersAndNoTerminator) {
    AddSensor("abc123", 1);
    char serial[8];
    std::memset(serial, 'x', sizeof serial);
    EXPECT_EQ(QV_GetSerNo_Idx(1, serial), 1);
    EXPECT_EQ(std::string(serial, 7), "ABC123x");
    EXPECT_EQ(QV_GetSerNo_Idx(-1, serial), 1);
    EXPECT_EQ(QV_GetSerNo_Idx(0, serial), -5);
    EXPECT_EQ(QV_GetSerNo_Idx(2, serial), -5);
    EXPECT_EQ(QV_GetSerNo_Idx(1, nullptr), -1);
}

TEST_F(Discovery, AddressBySerialAndByIndex) {
    EXPECT_EQ(QV_GetAddress_SN("AAA111"), -1);  // no sensor
    const int a = AddSensor("AAA111", 33);
    EXPECT_EQ(QV_GetAddress_SN("aaa111"), 33);
    EXPECT_EQ(QV_GetAddress_SN("ZZZ999"), -5);
    EXPECT_EQ(QV_GetAddress_SN("AAA1"), -2);
    EXPECT_EQ(QV_GetAddress_Idx(1), 33);
    EXPECT_EQ(QV_GetAddress_Idx(2), -2);
    EXPECT_EQ(QV_GetAddress_Idx(0), -2);
    EXPECT_EQ(QV_GetAddress_Idx(-1), -2);  // no slot holds device 1
    AddFault(a, QVSIM_FAULT_REQUEST_FAILS, kReqMemoryRead, 2);
    EXPECT_EQ(QV_GetAddress_SN("AAA111"), 0);  // did not answer
    EXPECT_EQ(QV_GetAddress_Idx(1), -7);
    EXPECT_EQ(Info(a).open_handles, 0);
}

TEST_F(Discovery, SetAddressBySerialAndIndex) {
    const int a = AddSensor("AAA111", 1);
    EXPECT_EQ(QV_SetAddress_SN("AAA111", 50), 1);
    EXPECT_EQ(qvsim_get_address(a), 50);
    EXPECT_EQ(QV_SetAddress_Idx(1, 51), 1);
    EXPECT_EQ(qvsim_get_address(a), 51);
    EXPECT_EQ(QV_SetAddress_SN("ZZZ999", 5), -4);
    EXPECT_EQ(QV_SetAddress_Idx(2, 5), -5);
    EXPECT_EQ(QV_SetAddress_Idx(1, 0), -1);
    EXPECT_EQ(QV_SetAddress_Idx(1, 256), -1);
    AddFault(a, QVSIM_FAULT_NO_ECHO, kReqBeginWrite, 1);
    EXPECT_EQ(QV_SetAddress_SN("AAA111", 60), -4);
    AddFault(a, QVSIM_FAULT_NO_ECHO, kReqEndWrite, 1);  // the byte is stored all the same
    EXPECT_EQ(QV_SetAddress_Idx(1, 61), 1);
    ClaimForOtherProcess(0, "AAA111", 51, 1);
    Slot(0).ownerPid = qv::test::ParentProcessId();
    EXPECT_EQ(QV_SetAddress_SN("AAA111", 70), -5);
    EXPECT_EQ(QV_SetAddress_Idx(1, 70), -5);
    EXPECT_EQ(Info(a).open_handles, 0);
}

TEST_F(Discovery, ConflictsAreSeenAndChangeAddressRefusesToMakeOne) {
    const int a = AddSensor("AAA111", 5);
    const int b = AddSensor("BBB222", 5);
    const int c = AddSensor("CCC333", 7);
    EXPECT_EQ(QV_AddressConflictExists(), 1);
    EXPECT_EQ(QV_WillAddressConflict(5), 1);
    EXPECT_EQ(QV_WillAddressConflict(6), 0);
    EXPECT_EQ(QV_WillAddressConflict(0), -2);
    EXPECT_EQ(QV_WillAddressConflict(256), -2);
    qvsim_transcript_clear(QVSIM_ALL_SENSORS);
    EXPECT_EQ(QV_ChangeAddress(7, 5), -1);
    for (int id : {a, b, c})
        for (const std::string& r : Requests(id)) EXPECT_NE(r, "IN 252");
    ASSERT_EQ(qvsim_set_address(b, 6), QVSIM_OK);
    EXPECT_EQ(QV_AddressConflictExists(), 0);
}

TEST_F(Discovery, ChangeAddressChecksRangesAndFindsTheOldAddress) {
    const int a = AddSensor("AAA111", 5);
    EXPECT_EQ(QV_ChangeAddress(0, 6), -5);
    EXPECT_EQ(QV_ChangeAddress(5, 256), -5);
    EXPECT_EQ(QV_ChangeAddress(9, 6), -1);
    EXPECT_EQ(QV_ChangeAddress(5, 6), 1);
    EXPECT_EQ(qvsim_get_address(a), 6);
    // Only the echo is lost: the address read back shows the write took effect.
    AddFault(a, QVSIM_FAULT_NO_ECHO, kReqEndWrite, 1);
    EXPECT_EQ(QV_ChangeAddress(6, 8), 1);
    EXPECT_EQ(qvsim_get_address(a), 8);
    EXPECT_EQ(Info(a).open_handles, 0);
}

TEST_F(Discovery, ConnectedBySerialBlinksTheLedAndByAddressAsksTheBus) {
    EXPECT_EQ(QV_IsSensorConnected_SN("AAA111"), 0);
    const int a = AddSensor("AAA111", 5);
    EXPECT_EQ(QV_IsSensorConnected_SN("AAA111"), 1);
    EXPECT_EQ(State(a).led_toggles, 8u);
    EXPECT_FALSE(State(a).led_on);
    EXPECT_EQ(QV_IsSensorConnected_SN("BBB222"), 0);
    EXPECT_EQ(QV_IsSensorConnected_Addr(5), 1);
    EXPECT_EQ(QV_IsSensorConnected_Addr(6), 0);
    EXPECT_EQ(QV_IsSensorConnected_Addr(256), -1);
    EXPECT_EQ(Info(a).open_handles, 0);
    ClaimForOtherProcess(0, "AAA111", 5, 1);
    EXPECT_EQ(QV_IsSensorConnected_Addr(5), -5);
}

TEST_F(Discovery, BlinkFailsWithMinusFiveForEveryKindOfFailure) {
    const int a = AddSensor("AAA111", 5);
    EXPECT_EQ(QV_BlinkLED_Idx(2), -5);
    EXPECT_EQ(QV_BlinkLED_Addr(6), -5);
    EXPECT_EQ(QV_BlinkLED_SN("BBB222"), -5);
    AddFault(a, QVSIM_FAULT_REQUEST_FAILS, kReqLedOff, 1);
    EXPECT_EQ(QV_BlinkLED_Idx(1), -5);
    ClaimForOtherProcess(0, "AAA111", 5, 1);
    EXPECT_EQ(QV_BlinkLED_SN("AAA111"), -5);
    EXPECT_EQ(QV_BlinkLED_Addr(5), -5);
    EXPECT_EQ(QV_BlinkLED_Idx(1), -5);
    EXPECT_EQ(Info(a).open_handles, 0);
}

TEST_F(Discovery, BlinkByAddressTakesOneSecondOfLedRequests) {
    const int a = AddSensor("AAA111", 5);
    qvsim_transcript_clear(a);
    EXPECT_EQ(QV_BlinkLED_Addr(5), 1);
    Strings leds;
    for (const std::string& r : Requests(a))
        if (r == "IN 206" || r == "IN 207") leds.push_back(r);
    EXPECT_EQ(leds, (Strings {"IN 206", "IN 207", "IN 206", "IN 207", "IN 206", "IN 207",
                              "IN 206", "IN 207"}));
}

}  // namespace
