// The whole path to real sensors without hardware: QV_API2 loads
// libqvusbdrvd, which finds and drives simulated sensors through libusb and
// the usbdevfs requests of an emulated bus (umockdev). Runs under
// umockdev-wrapper.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "device/driver.h"
#include "qv_api2.h"
#include "sim/qvsim.h"
#include "support/process.h"
#include "usb/emulation/emulated_bus.h"

namespace {

using qvusb::EmulatedBus;

constexpr int kAddrA = 11, kAddrB = 12;
constexpr double kDbm = -10.0;

class EmulatedSensors : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!EmulatedBus::Available()) return;
        setenv("QV_USBDRVD", QV_USB_DRIVER_PATH, 1);
        ASSERT_EQ(qvsim_bus_create(nullptr), QVSIM_OK);
        for (auto [serial, address] : {std::pair{"USB001", kAddrA}, std::pair{"USB002", kAddrB}}) {
            qvsim_sensor_config c;
            qvsim_sensor_config_init(&c);
            c.serial = serial;
            c.address = address;
            c.product = "QV442A";
            ids_.push_back(qvsim_sensor_add(&c));
            ASSERT_EQ(qvsim_set_cw_power(ids_.back(), kDbm), QVSIM_OK);
        }
        bus_ = new EmulatedBus;
        // The two sensors announce the GUID in either descriptor version; two
        // more devices do not announce it at all, or announce another.
        ASSERT_TRUE(bus_->Add({0, 0x5156, 0x0001, EmulatedBus::Announce::MsOs20}));
        ASSERT_TRUE(bus_->Add({1, 0x5156, 0x0002, EmulatedBus::Announce::MsOs10}));
        ASSERT_TRUE(bus_->Add({0, 0x5156, 0x0003, EmulatedBus::Announce::MsOs20,
                               "{8BC86AFD-F393-458D-9A8D-AD9EEE178823}"}));
        ASSERT_TRUE(bus_->Add({0, 0x1234, 0x5678, EmulatedBus::Announce::Nothing}));
    }
    void SetUp() override {
        if (!EmulatedBus::Available()) GTEST_SKIP() << "not under umockdev-wrapper";
    }
    static std::vector<std::string> Serials() {
        SensorListEntry list[8] = {};
        const int n = QV_SensorCnt();
        std::vector<std::string> serials;
        if (n < 0 || n > 8 || QV_SensorList(list, n) != 1) return serials;
        for (int i = 0; i < n; ++i) serials.emplace_back(list[i].SerialNumber);
        return serials;
    }
    static inline EmulatedBus* bus_ = nullptr;
    static inline std::vector<int> ids_;
};

TEST_F(EmulatedSensors, FindsTheSensorsByTheirGuidInAStableOrderAndNarrowsByIds) {
    EXPECT_EQ(QV_SensorCnt(), 2);
    const std::vector<std::string> expected = {"USB001", "USB002"};
    EXPECT_EQ(Serials(), expected);
    EXPECT_EQ(Serials(), expected);
    EXPECT_EQ(qv::driver::GetDevicePath(0),
              "\\\\?\\usb#vid_5156&pid_0001#USB001#{8bc86afd-f393-458d-9a8d-ad9eee178822}");
    EXPECT_EQ(QV_GetIndex_Addr(kAddrB), 2);

    setenv("QV_USB_IDS", "5156:0002, bad, 5156:zz", 1);
    EXPECT_EQ(Serials(), std::vector<std::string>{"USB002"});
    setenv("QV_USB_IDS", "1234:5678", 1);
    EXPECT_EQ(QV_SensorCnt(), 0);
    unsetenv("QV_USB_IDS");
    EXPECT_EQ(Serials(), expected);
}

// The program the udev rule runs, in a process of its own on the same bus:
// exit 0 for the sensors (devices 2 and 3), 1 for the others, 2 for bad usage.
TEST_F(EmulatedSensors, TheUdevProbeRecognisesTheSensorsOnly) {
    using qv::test::RunProcess;
    for (auto [devnum, status] : {std::pair{"2", 0}, {"3", 0}, {"4", 1}, {"5", 1}, {"9", 1}})
        EXPECT_EQ(RunProcess({QV_USB_PROBE_PATH, "1", devnum}), status) << devnum;
    for (auto bad : {std::vector<std::string>{QV_USB_PROBE_PATH, "1"}, {QV_USB_PROBE_PATH, "1", "x"}, {QV_USB_PROBE_PATH, "0", "2"}})
        EXPECT_EQ(RunProcess(bad), 2);
}

TEST_F(EmulatedSensors, HandlesStringsRequestsAndPipesBehaveAsTheLibraryRelies) {
    const QvDrvHandle device = qv::driver::OpenDevHandle(0);
    ASSERT_GT(device, 0);
    const QvDrvHandle winusb = qv::driver::OpenWinUSBHandle(device);
    ASSERT_NE(winusb, -1);
    EXPECT_EQ(qv::driver::OpenWinUSBHandle(device), winusb);

    char text[16] = {};
    EXPECT_EQ(qv::driver::GetStringDescriptorLength(winusb, QV_DRV_STRING_SERIAL), 7);
    EXPECT_EQ(qv::driver::GetStringDescriptor(winusb, QV_DRV_STRING_SERIAL, 7, text), 7);
    EXPECT_STREQ(text, "USB001");
    EXPECT_EQ(qv::driver::GetStringDescriptor(winusb, QV_DRV_STRING_PRODUCT, 4, text), 4);
    EXPECT_STREQ(text, "QV4");

    std::uint8_t reply[2] = {};
    EXPECT_EQ(qv::driver::RequestIn(winusb, 2, 206, reply, 1), 1);  // LED on, vendor to device
    EXPECT_EQ(qv::driver::RequestIn(winusb, 0xC0, 207, reply, 1), 1);
    qvsim_sensor_state state{};
    ASSERT_EQ(qvsim_sensor_state_get(ids_[0], &state), QVSIM_OK);
    EXPECT_EQ(state.led_toggles, 2u);
    EXPECT_LT(qv::driver::RequestIn(winusb, 2, 100, reply, 1), 0);  // unknown request: stalled

    // Nothing to send: the read gives up after its time-out, with no byte.
    std::vector<std::uint8_t> block(512);
    std::uint32_t moved = 99;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(qv::driver::PipeRead(winusb, block.data(), 512, &moved, 50), 0);
    EXPECT_EQ(moved, 0u);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(45));
    EXPECT_EQ(qv::driver::PipeRead(winusb, block.data(), 512, &moved, 0), 0);  // no waiting for ever
    // A large read arrives in pieces and whole.
    std::vector<std::uint8_t> queued(40000);
    for (std::size_t i = 0; i < queued.size(); ++i) queued[i] = static_cast<std::uint8_t>(i * 7);
    ASSERT_EQ(qvsim_bulk_in_push(ids_[0], queued.data(), static_cast<int>(queued.size())), 40000);
    std::vector<std::uint8_t> got(queued.size());
    EXPECT_EQ(qv::driver::PipeRead(winusb, got.data(), static_cast<std::uint32_t>(got.size()), &moved, 1000), 1);
    EXPECT_EQ(moved, queued.size());
    EXPECT_EQ(got, queued);

    qv::driver::CloseDevHandle(device);
    EXPECT_EQ(qv::driver::OpenWinUSBHandle(device), -1);
    EXPECT_LT(qv::driver::RequestIn(winusb, 2, 206, reply, 1), 0);
}

TEST_F(EmulatedSensors, ASensorPulledOutDuringAReadFailsItWithinItsTimeOut) {
    const QvDrvHandle device = qv::driver::OpenDevHandle(1);
    ASSERT_GT(device, 0);
    const QvDrvHandle winusb = qv::driver::OpenWinUSBHandle(device);
    std::thread puller([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        qvsim_sensor_unplug(ids_[1]);
    });
    std::vector<std::uint8_t> block(512);
    std::uint32_t moved = 0;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_LT(qv::driver::PipeRead(winusb, block.data(), 512, &moved, 5000), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    puller.join();
    std::uint8_t reply[1] = {};
    EXPECT_LT(qv::driver::RequestIn(winusb, 2, 206, reply, 1), 0);
    qv::driver::CloseDevHandle(device);
}

TEST_F(EmulatedSensors, InitialisesWithTheCalibrationReadThenMeasuresCwAndTakesATrace) {
    ASSERT_EQ(qvsim_transcript_clear(ids_[0]), QVSIM_OK);
    ASSERT_EQ(QV_InitializeSensor_SN("USB001"), 1);
    qvsim_transfer t[QVSIM_TRANSCRIPT_ENTRIES];
    const int n = qvsim_transcript_read(ids_[0], 0, t, QVSIM_TRANSCRIPT_ENTRIES);
    int calibrationReads = 0;
    for (int i = 0; i < n; ++i) calibrationReads += t[i].kind == QVSIM_XFER_IN && t[i].code == 229 && t[i].length == 64;
    EXPECT_GT(calibrationReads, 1000);  // 107,470 bytes in 64-byte requests

    for (int i = 0; i < 5; ++i) {
        double reading = 0;
        ASSERT_EQ(QV_MeasureCW(kAddrA, &reading), 1);
        EXPECT_NEAR(reading, kDbm, 0.3);
    }
    ASSERT_EQ(PP_SetSweepTime(kAddrA, 1000), 1);
    const int length = PP_GetTraceLength(kAddrA);
    std::vector<double> trace(static_cast<std::size_t>(length));
    std::int32_t count = 0;
    ASSERT_EQ(PP_GetTrace(kAddrA, trace.data(), length, &count), 1);
    ASSERT_EQ(count, length);
    for (double p : trace) ASSERT_NEAR(p, kDbm, 0.5);
    EXPECT_GT(bus_->counts().bulkUrbs, 0u);
    EXPECT_EQ(QV_UninitializeSensor_SN("USB001"), 1);
}

}  // namespace
