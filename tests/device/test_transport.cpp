// Opening sensors, vendor requests, string descriptors and sensor memory,
// against the simulated bus.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "device/discovery.h"
#include "device/driver.h"
#include "device/transport.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"
#include "platform/platform.h"
#include "support/log_capture.h"
#include "support/process.h"
#include "support/sim_fixture.h"
#include "support/slots.h"

using namespace qv;
using Strings = std::vector<std::string>;

namespace {

class Transport : public qv::test::SimBusTest {
protected:
    void SetUp() override {
        SimBusTest::SetUp();
        qv::test::ClearSlots();
    }
    void TearDown() override { qv::test::ClearSlots(); }

    // Puts a sensor into a slot as initialisation will, with an open handle
    // when owned by this process.
    static void Claim(int slot, const char* serial, int address, int devId, bool mine) {
        DeviceRecord& r = qv::test::Claim(slot, serial, address, devId,
                                          mine ? platform::CurrentProcessId() : qv::test::kOtherPid);
        r.deviceHandle = mine ? OpenDevice_Idx(devId) : 4242;
    }
};

TEST_F(Transport, OpenBySerialFindsAFreeSensorWithoutRegardToCase) {
    const int a = AddSensor("AAA111", 1);
    const int b = AddSensor("BBB222", 2);
    const std::int64_t h = OpenDevice_SN("bbb222");
    ASSERT_GT(h, 0);
    std::int32_t address = 0;
    EXPECT_EQ(ReadSensorAddress(h, &address), 1);
    EXPECT_EQ(address, 2);
    EXPECT_EQ(CloseDevice(h), h);
    // The sensor that did not match was closed again.
    EXPECT_EQ(Info(a).open_handles, 0);
    EXPECT_EQ(Info(b).open_handles, 0);
    EXPECT_EQ(OpenDevice_SN("CCC333"), -1);
    EXPECT_EQ(Info(a).open_handles, 0);
}

TEST_F(Transport, OpenBySerialRefusesASensorInUseAndSkipsDevicesHeldBySlots) {
    const int a = AddSensor("AAA111", 1);
    AddSensor("BBB222", 2);
    Claim(4, "AAA111", 1, 1, false);
    EXPECT_EQ(OpenDevice_SN("AAA111"), -1);
    EXPECT_EQ(State(a).opens, 0u);  // reached only through its slot: not even opened
    Slot(4).devId = 9;  // a slot naming another index still holds its serial
    EXPECT_EQ(OpenDevice_SN("AAA111"), -1);
    Slot(4).devId = 1;
    const std::int64_t h = OpenDevice_SN("BBB222");
    EXPECT_GT(h, 0);
    CloseDevice(h);
    EXPECT_EQ(State(a).opens, 0u);
}

TEST_F(Transport, OpenByAddressReadsTheAddressFromEachFreeSensor) {
    const int a = AddSensor("AAA111", 1);
    const int b = AddSensor("BBB222", 2);
    // Another library instance changed the address behind our back.
    ASSERT_EQ(qvsim_set_address(b, 77), QVSIM_OK);
    bool lent = true;
    const std::int64_t h = OpenDevice_Addr(77, &lent);
    ASSERT_GT(h, 0);
    EXPECT_FALSE(lent);
    CloseDevice(h);
    EXPECT_EQ(Info(a).open_handles, 0);
    EXPECT_EQ(Info(b).open_handles, 0);
    EXPECT_EQ(OpenDevice_Addr(2), -1);
}

TEST_F(Transport, OpenByAddressLendsTheCallersSlotHandleAndRefusesOthers) {
    AddSensor("AAA111", 1);
    AddSensor("BBB222", 2);
    Claim(0, "AAA111", 1, 1, true);
    Claim(1, "BBB222", 2, 2, false);
    bool lent = false;
    EXPECT_EQ(OpenDevice_Addr(1, &lent), Slot(0).deviceHandle);
    EXPECT_TRUE(lent);
    EXPECT_EQ(OpenDevice_Addr(2), -1);
    CloseDevice(Slot(0).deviceHandle);
}

TEST_F(Transport, StringReadsWithoutAHandleWithAFailingDriverOrTooSmallABuffer) {
    const int id = AddSensor("ABC123", 1, "QV442A");
    char buffer[32] = {};
    EXPECT_EQ(ReadSerialNumberString(-1, buffer, sizeof buffer), -5);
    EXPECT_EQ(ReadProductString(-2, buffer, sizeof buffer), -5);
    const std::int64_t h = OpenDevice_Idx(1);
    AddFault(id, QVSIM_FAULT_THROWS, QVSIM_FN_GET_STRING);
    EXPECT_EQ(ReadSerialNumberString(h, buffer, sizeof buffer), -5);
    EXPECT_EQ(ReadProductString(h, buffer, sizeof buffer), -5);
    qvsim_clear_faults(id);
    EXPECT_EQ(ReadProductString(h, buffer, 7), -3);  // 7 with its terminator
    EXPECT_GT(ReadProductString(h, buffer, 8), 0);
    EXPECT_STREQ(buffer, "QV442A");
    // The serial number may fill the buffer to its last byte.
    EXPECT_EQ(ReadSerialNumberString(h, buffer, 6), -3);
    EXPECT_GT(ReadSerialNumberString(h, buffer, 7), 0);
    EXPECT_STREQ(buffer, "ABC123");
    ASSERT_EQ(qvsim_set_string(id, 3, ""), QVSIM_OK);
    EXPECT_EQ(ReadSerialNumberString(h, buffer, sizeof buffer), -2);
    CloseDevice(h);
}

struct MemoryWriteCase {
    int refusedEcho;  // 0: none
    std::int32_t address, expected;
    Strings requests;
};

class MemoryWrite : public Transport, public ::testing::WithParamInterface<MemoryWriteCase> {};

TEST_P(MemoryWrite, HasItsHandshakeAndACodeForEachMissingEcho) {
    const MemoryWriteCase& c = GetParam();
    const int id = AddSensor("ABC123", 1);
    const std::int64_t h = OpenDevice_Idx(1);
    if (c.refusedEcho != 0) AddFault(id, QVSIM_FAULT_NO_ECHO, c.refusedEcho);
    qvsim_transcript_clear(id);
    EXPECT_EQ(WriteSensorAddress(h, c.address), c.expected);
    EXPECT_EQ(Requests(id), c.requests);
    EXPECT_EQ(qvsim_get_address(id), c.expected == 1 || c.expected == -5 ? c.address : 1);
    std::int32_t back = 0;
    EXPECT_EQ(ReadSensorAddress(h, &back), 1);
    EXPECT_EQ(back, qvsim_get_address(id));
    CloseDevice(h);
}

const Strings kWholeWrite = {"OUT 225", "IN 252", "OUT 228", "IN 253"};

INSTANTIATE_TEST_SUITE_P(
    Echoes, MemoryWrite,
    ::testing::Values(MemoryWriteCase{0, 255, 1, kWholeWrite}, MemoryWriteCase{0, 0, -1, {}},
                      MemoryWriteCase{0, 256, -1, {}}, MemoryWriteCase{kReqBeginWrite, 9, -4, {"OUT 225", "IN 252"}},
                      MemoryWriteCase{kReqEndWrite, 9, -5, kWholeWrite}));

TEST_F(Transport, RequestFailuresComeBackAsTheDriversResultOrMinusTwo) {
    const int id = AddSensor("ABC123", 1);
    const std::int64_t h = OpenDevice_Idx(1);
    std::uint8_t reply[2] = {};
    AddFault(id, QVSIM_FAULT_REQUEST_FAILS, kReqTriggerInOn, 1, -9);
    EXPECT_EQ(VendorRequestIn(h, kReqTriggerInOn, reply, 2), -9);
    EXPECT_EQ(VendorRequestIn(h, kReqTriggerInOn, reply, 2), 2);
    AddFault(id, QVSIM_FAULT_THROWS, QVSIM_FN_REQUEST_OUT, 1);
    std::uint8_t payload[3] = {2, 0, 31};
    EXPECT_EQ(VendorRequestOut(h, kReqMemoryPointer, payload, 3), -2);
    AddFault(id, QVSIM_FAULT_THROWS, QVSIM_FN_OPEN_WINUSB_HANDLE, 1);
    EXPECT_EQ(VendorRequestOut(h, kReqMemoryPointer, payload, 3), -2);
    EXPECT_EQ(VendorRequestOut(h, kReqMemoryPointer, payload, 3), 3);
    CloseDevice(h);
}

TEST_F(Transport, CommandRequestWantsTheEcho) {
    const int id = AddSensor("ABC123", 1);
    const std::int64_t h = OpenDevice_Idx(1);
    EXPECT_TRUE(CommandRequest(h, kReqRecorderOn));
    AddFault(id, QVSIM_FAULT_NO_ECHO, kReqRecorderOff, 1);
    EXPECT_FALSE(CommandRequest(h, kReqRecorderOff));
    AddFault(id, QVSIM_FAULT_REQUEST_EMPTY, kReqRecorderOff, 1);
    EXPECT_FALSE(CommandRequest(h, kReqRecorderOff));
    EXPECT_TRUE(CommandRequest(h, kReqRecorderOff));
    CloseDevice(h);
}

TEST_F(Transport, OpenFailuresAndUnpluggedSensors) {
    const int id = AddSensor("ABC123", 1);
    AddFault(id, QVSIM_FAULT_OPEN_FAILS, 0, 1, 0);
    EXPECT_EQ(OpenDevice_Idx(1), -1);  // 0 is no handle
    AddFault(id, QVSIM_FAULT_THROWS, QVSIM_FN_OPEN_DEV_HANDLE, 1);
    EXPECT_EQ(OpenDevice_Idx(1), -1);
    const std::int64_t h = OpenDevice_Idx(1);
    ASSERT_GT(h, 0);
    ASSERT_EQ(qvsim_sensor_unplug(id), QVSIM_OK);
    std::int32_t address = 0;
    EXPECT_LT(ReadSensorAddress(h, &address), 0);
    EXPECT_EQ(OpenDevice_Idx(1), -1);
    CloseDevice(h);
}

TEST_F(Transport, SerialFromThePathUpdatesTheSlotsDeviceIndex) {
    AddSensor("AAA111", 1);
    AddSensor("bbb222", 2);
    Claim(3, "BBB222", 2, 9, false);
    char serial[6] = {};
    EXPECT_EQ(SerialFromDevicePath(-2, serial), 1);
    EXPECT_EQ(std::string(serial, 6), "BBB222");
    EXPECT_EQ(Slot(3).devId, 2);
    EXPECT_EQ(SerialFromDevicePath(3, serial), -5);
    EXPECT_EQ(SerialFromDevicePath(0, serial), -5);
}

TEST_F(Transport, IndexByAddressAsksFreeSensorsAndTrustsSlots) {
    AddSensor("AAA111", 1);
    const int b = AddSensor("BBB222", 2);
    EXPECT_EQ(GetIndex_Addr(2), 2);
    EXPECT_EQ(GetIndex_Addr(3), 0);
    EXPECT_EQ(GetIndex_Addr(-1), -1);
    EXPECT_EQ(GetIndex_Addr(256), -1);
    Claim(0, "BBB222", 40, 2, false);
    qvsim_transcript_clear(b);
    EXPECT_EQ(GetIndex_Addr(40), 2);
    EXPECT_TRUE(Requests(b).empty());
}

TEST_F(Transport, ResolveAsksTheBusThenFindsTheSlotBySerial) {
    AddSensor("AAA111", 1);
    AddSensor("BBB222", 2);
    Claim(5, "BBB222", 2, 2, true);
    std::int32_t devId = 0, slot = 0;
    char serial[7] = {};
    EXPECT_EQ(ResolveSlot_Addr(2, &devId, &slot, serial), 1);
    EXPECT_EQ(slot, 5);
    EXPECT_EQ(devId, 2);
    EXPECT_STREQ(serial, "BBB222");
    EXPECT_EQ(ResolveSlot_Addr(1, &devId, &slot, serial), -1);  // on the bus, no slot
    EXPECT_EQ(slot, -1);
    EXPECT_EQ(ResolveSlot_Addr(9, &devId, &slot, serial), -1);  // not on the bus
    CloseDevice(Slot(5).deviceHandle);
}

// Loads another driver file for one test and goes back to the simulator after.
class OtherDriver : public Transport {
protected:
    void Use(const char* file) {
        if (!used_) saved_ = platform::GetEnv(platform::kEnvDriver);
        used_ = true;
        UnloadDriver();
        qv::test::SetEnv(platform::kEnvDriver, file);
    }
    void TearDown() override {
        UnloadDriver();
        qv::test::SetEnv(platform::kEnvDriver, saved_);
        Transport::TearDown();
    }
    std::string saved_;
    bool used_ = false;
};

TEST_F(OtherDriver, MissingLibraryFailsEveryOperationWithItsOwnCode) {
    AddSensor("ABC123", 1);
    Use("/nonexistent/libQVUSBDRVD.so");
    EXPECT_FALSE(DriverAvailable());
    EXPECT_EQ(DeviceCount(), -2);
    EXPECT_EQ(OpenDevice_Idx(1), -1);
    EXPECT_EQ(OpenDevice_SN("ABC123"), -1);
    EXPECT_EQ(OpenDevice_Addr(1), -1);
    std::uint8_t b[1];
    EXPECT_EQ(VendorRequestIn(1, kReqInitPing, b, 1), -2);
    char s[16];
    EXPECT_EQ(ReadSerialNumberString(1, s, sizeof s), -5);
    EXPECT_EQ(GetIndex_Addr(1), 0);
}

TEST_F(OtherDriver, EachLoadFailureIsLoggedOnceWithItsReason) {
    const struct {
        const char* file;
        const char* said;
    } cases[] = {
        {"/nonexistent/libQVUSBDRVD.so", "/nonexistent/libQVUSBDRVD.so could not be loaded ("},
        {QV_PARTIAL_DRIVER_PATH, "lacks the function QV_USBDRVD_"},
    };
    for (const auto& c : cases) {
        qv::test::LogCapture log;
        Use(c.file);
        EXPECT_EQ(DeviceCount(), -2);
        EXPECT_EQ(DeviceCount(), -2);
        const auto lines = log.Lines();
        ASSERT_EQ(lines.size(), 1u) << c.file;
        EXPECT_NE(lines[0].find(c.said), std::string::npos) << lines[0];
    }
}

TEST_F(OtherDriver, LibraryWithoutAllTwelveFunctionsIsNotUsed) {
    Use(QV_PARTIAL_DRIVER_PATH);
    EXPECT_FALSE(DriverAvailable());
    EXPECT_EQ(DeviceCount(), -2);
}

}  // namespace
