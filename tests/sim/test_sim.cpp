// The simulated sensors, seen the way QV_API2 sees them (the twelve driver
// functions) and the way tests steer them (the qvsim_ control API).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "qvsim.h"
#include "qvsim_driver.h"
#include "support/process.h"

namespace {

using qv::test::ChildOptions;
using qv::test::RunProcess;

constexpr QvGuid kSensorClass = {0x8BC86AFDu, 0xF393u, 0x458Du, {0x9A, 0x8D, 0xAD, 0x9E, 0xEE, 0x17, 0x88, 0x22}};
constexpr int kVendor = 2;

using Bytes = std::vector<uint8_t>;

struct Reply {
    int32_t result;
    Bytes bytes;
};

// Runs this test binary again as a helper process (see ChildMain) and returns its
// exit status, or -1 if it did not exit normally.
int RunChild(const std::vector<std::string>& args, const ChildOptions& options = {}) {
    std::vector<std::string> all{qv::test::CurrentProgram(), "--sim-child"};
    all.insert(all.end(), args.begin(), args.end());
    return RunProcess(all, options);
}

// ---------------------------------------------------------------- driver-side helpers

QvDrvHandle OpenIndex(int index0) { return QV_USBDRVD_OpenDevHandle(index0, 0, &kSensorClass); }

Reply In(QvDrvHandle winusb, int request, int length, int requestType = kVendor) {
    Reply reply{0, Bytes(static_cast<size_t>(length), 0xAA)};
    reply.result = QV_USBDRVD_VendorOrClassRequestIn(winusb, requestType, 0, request, 0, 0, reply.bytes.data(), length);
    return reply;
}

int32_t Out(QvDrvHandle winusb, int request, Bytes payload, int requestType = kVendor) {
    return QV_USBDRVD_VendorOrClassRequestOut(winusb, requestType, 0, request, 0, 0, payload.data(),
                                              static_cast<int32_t>(payload.size()));
}

void Point(QvDrvHandle winusb, int region, int position) {
    ASSERT_EQ(Out(winusb, 225, {uint8_t(region), uint8_t(position >> 8), uint8_t(position & 0xFF)}), 3);
}

// SensorMemory read as the library does it: 225, then 229 in pieces of 64.
Bytes ReadMemory(QvDrvHandle winusb, int region, int position, int length) {
    Point(winusb, region, position);
    Bytes data;
    for (int done = 0; done < length; done += 64) {
        Reply piece = In(winusb, 229, std::min(64, length - done));
        EXPECT_EQ(piece.result, std::min(64, length - done));
        data.insert(data.end(), piece.bytes.begin(), piece.bytes.end());
    }
    return data;
}

// SensorMemory write as the library does it; 1, or -4 / -5 when 252 / 253 do not
// echo. sendDespiteRefusal sends the data even after a refused 252.
int WriteMemory(QvDrvHandle winusb, int region, int position, const Bytes& data, bool sendDespiteRefusal = false) {
    Point(winusb, region, position);
    const bool begun = In(winusb, 252, 1).bytes[0] == 252;
    if (!begun && !sendDespiteRefusal) return -4;
    for (size_t done = 0; done < data.size(); done += 64)
        Out(winusb, 228, Bytes(data.begin() + long(done), data.begin() + long(std::min(data.size(), done + 64))));
    if (!begun) return -4;
    return In(winusb, 253, 1).bytes[0] == 253 ? 1 : -5;
}

std::string DevicePath(int index0) {
    QvWideChar wide[QV_DRV_DEVICE_PATH_CHARS];
    if (QV_USBDRVD_GetDevicePath(index0, &kSensorClass, wide, QV_DRV_DEVICE_PATH_CHARS) <= 0) return "<none>";
    std::string path;
    for (int i = 0; wide[i] != 0; ++i) path += static_cast<char>(wide[i]);
    return path;
}

// The six characters after the second '#', the way the library takes the serial.
std::string PathSerial(const std::string& path) {
    const size_t first = path.find('#');
    const size_t second = path.find('#', first + 1);
    return second == std::string::npos ? "<none>" : path.substr(second + 1, 6);
}

// The calibration image as a sensor keeps it: region 2 and then region 6, each from 1024.
Bytes CalibrationImage(int id) {
    Bytes image(107470);
    EXPECT_EQ(qvsim_memory_read(id, 2, 1024, image.data(), 50000), 50000);
    EXPECT_EQ(qvsim_memory_read(id, 6, 1024, image.data() + 50000, 57470), 57470);
    return image;
}

uint32_t ImageChecksum(const Bytes& bytes) {
    uint32_t sum = 0;
    for (uint8_t b : bytes) sum = sum * 2u + b;
    return sum;
}

Bytes LittleEndian(uint32_t value) {
    return Bytes{uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16), uint8_t(value >> 24)};
}

// ---------------------------------------------------------------- fixture

class SimBus : public ::testing::Test {
protected:
    void SetUp() override {
        directory_ = qv::test::MakeTemporaryDirectory("qvsim_test_");
        ASSERT_FALSE(directory_.empty());
        busPath_ = directory_ + "/bus";
        qv::test::SetEnv(QVSIM_BUS_ENV, busPath_);
        ASSERT_EQ(qvsim_bus_create(nullptr), QVSIM_OK);
    }

    void TearDown() override {
        qvsim_bus_close();
        std::filesystem::remove_all(directory_);
    }

    int Add(const char* serial, int address = -1, const char* product = "QV442A") {
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        config.serial = serial;
        config.product = product;
        config.address = address;
        const int id = qvsim_sensor_add(&config);
        EXPECT_GE(id, 0);
        return id;
    }

    // A sensor at index0 opened down to its WinUSB handle.
    QvDrvHandle WinUsb(int index0 = 0) {
        const QvDrvHandle device = OpenIndex(index0);
        EXPECT_GT(device, 0);
        const QvDrvHandle winusb = QV_USBDRVD_OpenWinUSBHandle(device);
        EXPECT_NE(winusb, QV_DRV_INVALID_HANDLE);
        return winusb;
    }

    static qvsim_sensor_state State(int id) {
        qvsim_sensor_state state{};
        EXPECT_EQ(qvsim_sensor_state_get(id, &state), QVSIM_OK);
        return state;
    }

    static qvsim_sensor_info Info(int id) {
        qvsim_sensor_info info{};
        EXPECT_EQ(qvsim_sensor_info_get(id, &info), QVSIM_OK);
        return info;
    }

    static void AddFault(int id, int kind, int code, int count = 1, int skip = 0, int arg = 0) {
        const qvsim_fault fault{kind, code, skip, count, arg};
        ASSERT_EQ(qvsim_add_fault(id, &fault), QVSIM_OK);
    }

    static std::vector<qvsim_transfer> Transcript(int id) {
        std::vector<qvsim_transfer> entries(QVSIM_TRANSCRIPT_ENTRIES);
        const int copied = qvsim_transcript_read(id, 0, entries.data(), static_cast<int>(entries.size()));
        entries.resize(static_cast<size_t>(std::max(copied, 0)));
        return entries;
    }

    // Request codes of the control transfers the sensor received, in order.
    static std::vector<int> Requests(int id) {
        std::vector<int> codes;
        for (const qvsim_transfer& entry : Transcript(id))
            if (entry.kind == QVSIM_XFER_IN || entry.kind == QVSIM_XFER_OUT) codes.push_back(entry.code);
        return codes;
    }

    std::string directory_;
    std::string busPath_;
};

// ---------------------------------------------------------------- enumeration

TEST_F(SimBus, CountsPluggedSensorsOfTheSensorClassOnly) {
    Add("100001");
    const int second = Add("100002");
    QvGuid otherClass = kSensorClass;
    otherClass.Data4[7] ^= 1;

    EXPECT_EQ(QV_USBDRVD_GetDevCount(&kSensorClass), 2);
    EXPECT_EQ(QV_USBDRVD_GetDevCount(&otherClass), 0);
    EXPECT_EQ(QV_USBDRVD_GetDevCount(nullptr), 0);
    EXPECT_EQ(OpenIndex(0) > 0, true);
    EXPECT_EQ(QV_USBDRVD_OpenDevHandle(0, 0, &otherClass), QV_DRV_INVALID_HANDLE);

    ASSERT_EQ(qvsim_sensor_unplug(second), QVSIM_OK);
    EXPECT_EQ(QV_USBDRVD_GetDevCount(&kSensorClass), 1);
}

TEST_F(SimBus, EnumerationFollowsTheOrderSensorsWereAdded) {
    const int a = Add("AAAAAA"), b = Add("BBBBBB");
    Add("CCCCCC");
    auto order = [] {
        std::string serials;
        for (int i = 0; i < QV_USBDRVD_GetDevCount(&kSensorClass); ++i) serials += PathSerial(DevicePath(i)).substr(0, 1);
        return serials;
    };
    EXPECT_EQ(order(), "ABC");
    ASSERT_EQ(qvsim_sensor_unplug(b), QVSIM_OK);
    EXPECT_EQ(order(), "AC");
    EXPECT_EQ(Info(b).index0, -1);
    ASSERT_EQ(qvsim_sensor_replug(b), QVSIM_OK);
    EXPECT_EQ(order(), "ABC");
    ASSERT_EQ(qvsim_sensor_remove(a), QVSIM_OK);
    EXPECT_EQ(order(), "BC");
    EXPECT_EQ(qvsim_sensor_at_index(0), b);
    EXPECT_EQ(qvsim_sensor_at_index(2), QVSIM_E_NO_SENSOR);
    EXPECT_EQ(Add("DDDDDD"), a);  // the freed id is reused, yet the newcomer comes last
    EXPECT_EQ(order(), "BCD");
}

TEST_F(SimBus, DevicePathHasTheInterfaceFormWithThePathSerial) {
    Add("12345a");
    EXPECT_EQ(DevicePath(0), "\\\\?\\usb#vid_5156&pid_0001#12345a#{8bc86afd-f393-458d-9a8d-ad9eee178822}");

    struct Case {
        const char* serial;
        const char* pathSerial;
        const char* sixCharacters;
    };
    const Case cases[] = {
        {"ABCDE", nullptr, "ABCDE#"},       // five characters: no padding, as on the wire
        {"SERIAL", "654321", "654321"},     // path serial independent of the string
        {"", "777777", "777777"},
        {"LONGSERIALNUMBER", nullptr, "LONGSE"},
    };
    for (const Case& c : cases) {
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        config.serial = c.serial;
        config.path_serial = c.pathSerial;
        const int id = qvsim_sensor_add(&config);
        ASSERT_GE(id, 0);
        EXPECT_EQ(PathSerial(DevicePath(Info(id).index0)), c.sixCharacters) << c.serial;
    }
}

TEST_F(SimBus, DevicePathRefusesBadIndexAndShortBuffer) {
    Add("123456");
    QvWideChar wide[80];
    std::fill(std::begin(wide), std::end(wide), QvWideChar{0x55});
    EXPECT_EQ(QV_USBDRVD_GetDevicePath(0, &kSensorClass, wide, 20), 0);
    EXPECT_EQ(wide[0], 0x55);
    EXPECT_EQ(QV_USBDRVD_GetDevicePath(1, &kSensorClass, wide, 80), 0);
    EXPECT_EQ(QV_USBDRVD_GetDevicePath(-1, &kSensorClass, wide, 80), 0);
    EXPECT_GT(QV_USBDRVD_GetDevicePath(0, &kSensorClass, wide, 80), 0);
}

// ---------------------------------------------------------------- handles

TEST_F(SimBus, OpenRefusesIndicesOutsideTheEnumeration) {
    Add("123456");
    EXPECT_EQ(OpenIndex(-1), QV_DRV_INVALID_HANDLE);
    EXPECT_EQ(OpenIndex(1), QV_DRV_INVALID_HANDLE);
    EXPECT_GT(OpenIndex(0), 0);
}

TEST_F(SimBus, UnplugKillsHandlesEvenAfterReplug) {
    const int id = Add("123456");
    const QvDrvHandle device = OpenIndex(0);
    const QvDrvHandle winusb = QV_USBDRVD_OpenWinUSBHandle(device);
    ASSERT_EQ(In(winusb, 239, 1).result, 1);

    ASSERT_EQ(qvsim_sensor_unplug(id), QVSIM_OK);
    EXPECT_LT(In(winusb, 239, 1).result, 0);
    ASSERT_EQ(qvsim_sensor_replug(id), QVSIM_OK);
    EXPECT_LT(In(winusb, 239, 1).result, 0);
    EXPECT_EQ(QV_USBDRVD_OpenWinUSBHandle(device), QV_DRV_INVALID_HANDLE);
    EXPECT_EQ(QV_USBDRVD_CloseDevHandle(device), 0);

    const QvDrvHandle fresh = OpenIndex(0);
    EXPECT_NE(fresh, device);
    EXPECT_EQ(In(QV_USBDRVD_OpenWinUSBHandle(fresh), 239, 1).result, 1);
}

TEST_F(SimBus, ClosedHandlesAreDeadAndOpenHandlesAreCounted) {
    const int id = Add("123456");
    const QvDrvHandle first = OpenIndex(0), second = OpenIndex(0);
    EXPECT_NE(first, second);
    EXPECT_EQ(Info(id).open_handles, 2);
    EXPECT_EQ(QV_USBDRVD_CloseDevHandle(first), 1);
    EXPECT_EQ(QV_USBDRVD_CloseDevHandle(first), 0);
    EXPECT_EQ(QV_USBDRVD_OpenWinUSBHandle(first), QV_DRV_INVALID_HANDLE);
    EXPECT_EQ(Info(id).open_handles, 1);
    EXPECT_EQ(State(id).opens, 2u);
    EXPECT_EQ(State(id).closes, 1u);
}

TEST_F(SimBus, HandleTableIsBoundedSoLeaksShow) {
    const int id = Add("123456");
    std::vector<QvDrvHandle> handles;
    for (QvDrvHandle h = OpenIndex(0); h > 0; h = OpenIndex(0)) handles.push_back(h);
    EXPECT_EQ(handles.size(), 64u);
    EXPECT_EQ(Info(id).open_handles, 64);
    ASSERT_EQ(QV_USBDRVD_CloseDevHandle(handles.back()), 1);
    EXPECT_GT(OpenIndex(0), 0);
}

TEST_F(SimBus, WinUsbHandleIsDerivedNotAllocatedAndKindsAreNotInterchangeable) {
    const int id = Add("123456");
    const QvDrvHandle device = OpenIndex(0);
    const QvDrvHandle winusb = QV_USBDRVD_OpenWinUSBHandle(device);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(QV_USBDRVD_OpenWinUSBHandle(device), winusb);
    EXPECT_EQ(Info(id).open_handles, 1);
    EXPECT_EQ(QV_USBDRVD_CloseWinUSBHandle(winusb), 1);
    EXPECT_EQ(In(winusb, 239, 1).result, 1);  // closing it changes nothing: it is the device's

    EXPECT_LT(In(device, 239, 1).result, 0);
    EXPECT_EQ(QV_USBDRVD_GetStringDescriptorLengthA(device, 27, 2), -1);
    EXPECT_EQ(QV_USBDRVD_OpenWinUSBHandle(winusb), QV_DRV_INVALID_HANDLE);
    EXPECT_EQ(QV_USBDRVD_CloseDevHandle(winusb), 0);
}

// ---------------------------------------------------------------- string descriptors

struct StringCase {
    int index;
    std::string text;
};

class StringDescriptor : public SimBus, public ::testing::WithParamInterface<StringCase> {};

TEST_P(StringDescriptor, LengthCountsTheTerminatorAndTheCopyIsTerminated) {
    const StringCase& c = GetParam();
    const int id = Add("123456");
    ASSERT_EQ(qvsim_set_string(id, c.index, c.text.c_str()), QVSIM_OK);
    const QvDrvHandle winusb = WinUsb();
    const int32_t length = QV_USBDRVD_GetStringDescriptorLengthA(winusb, 27, c.index);
    EXPECT_EQ(length, static_cast<int32_t>(c.text.size() + 1));

    char exact[80], roomy[80];
    std::memset(exact, 'x', sizeof exact);
    EXPECT_EQ(QV_USBDRVD_GetStringDescriptorA(winusb, 27, c.index, length, exact), length);
    EXPECT_EQ(std::string(exact), c.text);
    EXPECT_EQ(exact[length], 'x');
    EXPECT_EQ(QV_USBDRVD_GetStringDescriptorA(winusb, 27, c.index, sizeof roomy, roomy), length);
    EXPECT_EQ(std::string(roomy), c.text);
}

INSTANTIATE_TEST_SUITE_P(Strings, StringDescriptor,
                         ::testing::Values(StringCase{2, "QV442A"}, StringCase{2, ""},
                                           StringCase{2, std::string(63, 'P')}, StringCase{3, "123456"},
                                           StringCase{3, "ABCDE"}, StringCase{3, ""},
                                           StringCase{3, std::string(31, 'S')}));

TEST_F(SimBus, StringTooLongForTheBufferIsCutAndTerminated) {
    Add("123456");
    char buffer[8];
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(QV_USBDRVD_GetStringDescriptorA(WinUsb(), 27, 2, 4, buffer), 4);
    EXPECT_STREQ(buffer, "QV4");
    EXPECT_EQ(buffer[4], 'x');
}

TEST_F(SimBus, StringRequestsOutsideTheProtocolFail) {
    const int id = Add("123456");
    ASSERT_EQ(qvsim_set_string(id, 3, std::string(32, 'S').c_str()), QVSIM_E_ARG);
    ASSERT_EQ(qvsim_set_string(id, 4, "x"), QVSIM_E_ARG);
    const QvDrvHandle winusb = WinUsb();
    char buffer[16];
    for (int index : {0, 1, 4}) EXPECT_EQ(QV_USBDRVD_GetStringDescriptorLengthA(winusb, 27, index), -1) << index;
    EXPECT_EQ(QV_USBDRVD_GetStringDescriptorLengthA(winusb, 26, 2), -1);
    EXPECT_EQ(QV_USBDRVD_GetStringDescriptorA(winusb, 26, 2, 16, buffer), -1);
    EXPECT_EQ(QV_USBDRVD_GetStringDescriptorA(winusb, 27, 2, 0, buffer), -1);
}

TEST_F(SimBus, SerialStringCanDifferFromThePathSerial) {
    const int id = Add("123456");
    ASSERT_EQ(qvsim_set_string(id, 3, "999999"), QVSIM_OK);
    char buffer[16];
    ASSERT_EQ(QV_USBDRVD_GetStringDescriptorA(WinUsb(), 27, 3, 16, buffer), 7);
    EXPECT_STREQ(buffer, "999999");
    EXPECT_EQ(PathSerial(DevicePath(0)), "123456");
}

// ---------------------------------------------------------------- command requests

using StateField = int (*)(const qvsim_sensor_state&);

struct CommandCase {
    const char* name;
    int before;  // command sent first to set the opposite state; 0 none
    int code;
    int length;
    StateField field;
    int expected;
};

void PrintTo(const CommandCase& command, std::ostream* out) { *out << command.name; }

class CommandRequest : public SimBus, public ::testing::WithParamInterface<CommandCase> {};

TEST_P(CommandRequest, EchoesItsCodeAndChangesTheSensor) {
    const CommandCase& c = GetParam();
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    if (c.before != 0) {
        ASSERT_EQ(In(winusb, c.before, 1).bytes[0], c.before);
    }

    const Reply reply = In(winusb, c.code, c.length);
    EXPECT_EQ(reply.result, c.length);
    EXPECT_EQ(reply.bytes[0], c.code);
    EXPECT_EQ(c.field(State(id)), c.expected);
}

TEST_P(CommandRequest, WithoutEchoTheSensorDidNotCarryItOut) {
    const CommandCase& c = GetParam();
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    if (c.before != 0) In(winusb, c.before, 1);
    const int unchanged = c.field(State(id));
    AddFault(id, QVSIM_FAULT_NO_ECHO, c.code);

    const Reply reply = In(winusb, c.code, c.length);
    EXPECT_EQ(reply.result, c.length);
    EXPECT_NE(reply.bytes[0], c.code);
    EXPECT_EQ(c.field(State(id)), unchanged);
    EXPECT_EQ(In(winusb, c.code, c.length).bytes[0], c.code);  // the fault fired once
}

TEST_P(CommandRequest, AlsoTakesTheFullRequestTypeByte) {
    const CommandCase& c = GetParam();
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    if (c.before != 0) In(winusb, c.before, 1, 0xC0);
    EXPECT_EQ(In(winusb, c.code, c.length, 0xC0).bytes[0], c.code);
    EXPECT_EQ(c.field(State(id)), c.expected);
}

const CommandCase kCommands[] = {
    {"TriggerInOn", 0, 191, 2, [](const qvsim_sensor_state& s) { return s.trigger_in_enabled; }, 1},
    {"TriggerInOff", 191, 190, 2, [](const qvsim_sensor_state& s) { return s.trigger_in_enabled; }, 0},
    {"TriggerInInverted", 0, 203, 1, [](const qvsim_sensor_state& s) { return s.trigger_in_inverted; }, 1},
    {"TriggerInNormal", 203, 202, 1, [](const qvsim_sensor_state& s) { return s.trigger_in_inverted; }, 0},
    {"TriggerOutOnWithInput", 0, 200, 1, [](const qvsim_sensor_state& s) { return s.trigger_out_variant; }, 200},
    {"TriggerOutOnWithoutInput", 0, 201, 1, [](const qvsim_sensor_state& s) { return s.trigger_out_variant; }, 201},
    {"TriggerOutOn", 0, 201, 1, [](const qvsim_sensor_state& s) { return s.trigger_out_enabled; }, 1},
    {"TriggerOutOff", 200, 192, 1, [](const qvsim_sensor_state& s) { return s.trigger_out_enabled; }, 0},
    {"TriggerOutInverted", 0, 205, 1, [](const qvsim_sensor_state& s) { return s.trigger_out_inverted; }, 1},
    {"TriggerOutNormal", 205, 204, 1, [](const qvsim_sensor_state& s) { return s.trigger_out_inverted; }, 0},
    {"AntiAliasingOn", 0, 197, 2, [](const qvsim_sensor_state& s) { return s.anti_aliasing; }, 1},
    {"AntiAliasingOff", 197, 196, 2, [](const qvsim_sensor_state& s) { return s.anti_aliasing; }, 0},
    {"RecorderOn", 0, 199, 1, [](const qvsim_sensor_state& s) { return s.recorder_out; }, 1},
    {"RecorderOff", 199, 198, 1, [](const qvsim_sensor_state& s) { return s.recorder_out; }, 0},
    {"LedOn", 0, 206, 1, [](const qvsim_sensor_state& s) { return s.led_on; }, 1},
    {"LedOff", 206, 207, 1, [](const qvsim_sensor_state& s) { return s.led_on; }, 0},
    {"InitPing", 0, 239, 1, [](const qvsim_sensor_state& s) { return int(s.init_pings); }, 1},
    {"MeasureGo", 0, 194, 2, [](const qvsim_sensor_state& s) { return s.running_mode; }, QVSIM_RUN_MEASURING},
    {"StopStepsAloneStopNothing", 0, 195, 1, [](const qvsim_sensor_state& s) { return int(s.stop_sequences); }, 0},
    {"StopEnd", 179, 187, 1, [](const qvsim_sensor_state& s) { return int(s.stop_sequences); }, 1},
};

INSTANTIATE_TEST_SUITE_P(Commands, CommandRequest, ::testing::ValuesIn(kCommands),
                         [](const ::testing::TestParamInfo<CommandCase>& info) { return std::string(info.param.name); });

TEST_F(SimBus, StopSequenceEndsMeasurementAndSweep) {
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    ASSERT_EQ(Out(winusb, 193, {0}, 0x40), 1);
    ASSERT_EQ(In(winusb, 194, 2, 0xC0).result, 2);
    EXPECT_EQ(State(id).measure_readings, 0);
    EXPECT_EQ(State(id).running_mode, QVSIM_RUN_MEASURING);

    for (int code : {179, 200, 187}) In(winusb, code, 1);  // broken sequence
    EXPECT_EQ(State(id).running_mode, QVSIM_RUN_MEASURING);
    for (int code : {179, 195, 187}) In(winusb, code, 1);
    EXPECT_EQ(State(id).running_mode, QVSIM_RUN_IDLE);

    ASSERT_EQ(Out(winusb, 177, {0x29, 1, 2, 3}), 4);
    const qvsim_sensor_state sweeping = State(id);
    EXPECT_EQ(sweeping.running_mode, QVSIM_RUN_SWEEP);
    EXPECT_EQ(Bytes(sweeping.sweep_command, sweeping.sweep_command + 4), (Bytes{0x29, 1, 2, 3}));
    for (int code : {179, 187}) In(winusb, code, 1);  // the sweep's short form
    EXPECT_EQ(State(id).running_mode, QVSIM_RUN_IDLE);
    EXPECT_EQ(State(id).stop_sequences, 2u);
}

TEST_F(SimBus, BlinkingCountsLedToggles) {
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    for (int i = 0; i < 4; ++i) {
        ASSERT_GE(In(winusb, 206, 1).result, 1);
        ASSERT_GE(In(winusb, 207, 1).result, 1);
    }
    In(winusb, 207, 1);
    EXPECT_EQ(State(id).led_toggles, 8u);
    EXPECT_EQ(State(id).led_on, 0);
}

TEST_F(SimBus, ThresholdsAndPacketStatus) {
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    ASSERT_EQ(Out(winusb, 212, {3, 0x12, 0x34}), 3);
    ASSERT_EQ(Out(winusb, 212, {2, 0xAB, 0xCD}), 3);
    EXPECT_EQ(State(id).thresholds[3], 0x1234);
    EXPECT_EQ(State(id).thresholds[2], 0xABCD);
    EXPECT_EQ(State(id).thresholds[0], -1);
    const Reply status = In(winusb, 178, 5);
    EXPECT_EQ(status.result, 5);
    EXPECT_EQ(status.bytes, (Bytes{178, 0, 0, 0, 0}));
}

struct BadRequest {
    const char* name;
    bool in;
    int code, type, recipient, value, index, length;
};

void PrintTo(const BadRequest& request, std::ostream* out) { *out << request.name; }

class MalformedRequest : public SimBus, public ::testing::WithParamInterface<BadRequest> {};

TEST_P(MalformedRequest, FailsAndChangesNothing) {
    const BadRequest& r = GetParam();
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    Bytes buffer(static_cast<size_t>(std::max(r.length, 1)), 4);
    const int32_t result =
        r.in ? QV_USBDRVD_VendorOrClassRequestIn(winusb, r.type, r.recipient, r.code, r.value, r.index, buffer.data(), r.length)
             : QV_USBDRVD_VendorOrClassRequestOut(winusb, r.type, r.recipient, r.code, r.value, r.index, buffer.data(), r.length);
    EXPECT_LT(result, 0);
    const qvsim_sensor_state state = State(id);
    EXPECT_EQ(state.memory_region, 0);
    EXPECT_EQ(state.thresholds[0], -1);
    EXPECT_EQ(state.trigger_in_enabled, 0);
    ASSERT_EQ(Transcript(id).size(), 1u);
    EXPECT_EQ(Transcript(id)[0].result, result);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, MalformedRequest,
    ::testing::Values(BadRequest{"UnknownIn", true, 180, 2, 0, 0, 0, 1}, BadRequest{"UnknownOut", false, 0, 2, 0, 0, 0, 1},
                      BadRequest{"ReadAsOut", false, 229, 2, 0, 0, 0, 1},
                      BadRequest{"PointerAsIn", true, 225, 2, 0, 0, 0, 3},
                      BadRequest{"CommandAsOut", false, 191, 2, 0, 0, 0, 2},
                      BadRequest{"OutTypeOnIn", true, 191, 0x40, 0, 0, 0, 2},
                      BadRequest{"InTypeOnOut", false, 225, 0xC0, 0, 0, 0, 3},
                      BadRequest{"ClassType", true, 191, 1, 0, 0, 0, 2},
                      BadRequest{"Recipient", true, 191, 2, 1, 0, 0, 2}, BadRequest{"Value", true, 191, 2, 0, 1, 0, 2},
                      BadRequest{"Index", true, 191, 2, 0, 0, 1, 2},
                      BadRequest{"InLongerThanEndpoint", true, 229, 2, 0, 0, 0, 65},
                      BadRequest{"ShortPointer", false, 225, 2, 0, 0, 0, 2},
                      BadRequest{"BadThresholdSelector", false, 212, 2, 0, 0, 0, 3},
                      BadRequest{"NegativeLength", false, 225, 2, 0, 0, 0, -1}),
    [](const ::testing::TestParamInfo<BadRequest>& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------- SensorMemory

TEST_F(SimBus, NewSensorHoldsAddressDueDateAndCalibrationInErasedMemory) {
    qvsim_sensor_config config;
    qvsim_sensor_config_init(&config);
    config.serial = "123456";
    config.address = 42;
    config.due_year = 26;
    config.due_month = 2;
    config.due_day = 31;
    ASSERT_EQ(qvsim_sensor_add(&config), 0);
    const QvDrvHandle winusb = WinUsb();
    EXPECT_EQ(ReadMemory(winusb, 2, 31, 1), Bytes{42});
    EXPECT_EQ(ReadMemory(winusb, 2, 0, 3), (Bytes{26, 2, 31}));
    EXPECT_EQ(qvsim_get_address(0), 42);
    // The calibration image and its checksum; everything else is erased.
    const Bytes image = CalibrationImage(0);
    EXPECT_EQ(ReadMemory(winusb, 2, 33, 4), LittleEndian(ImageChecksum(image)));
    EXPECT_EQ(ReadMemory(winusb, 6, 1024, 64), Bytes(image.begin() + 50000, image.begin() + 50064));
    Bytes region2(65536), region6(65536);
    ASSERT_EQ(qvsim_memory_read(0, 2, 0, region2.data(), 65536), 65536);
    ASSERT_EQ(qvsim_memory_read(0, 6, 0, region6.data(), 65536), 65536);
    for (int p = 0; p < 65536; ++p) {
        const bool used2 = p < 3 || p == 31 || (p >= 33 && p < 37) || (p >= 1024 && p < 1024 + 50000);
        const bool used6 = p >= 1024 && p < 1024 + 57470;
        if (!used2) {
            ASSERT_EQ(region2[p], 0xFF) << p;
        }
        if (!used6) {
            ASSERT_EQ(region6[p], 0xFF) << p;
        }
    }
}

TEST_F(SimBus, AddressDefaultsToTheLowestUnused) {
    Add("100001", 1);
    Add("100002", 3);
    EXPECT_EQ(qvsim_get_address(Add("100003")), 2);
    EXPECT_EQ(qvsim_get_address(Add("100004")), 4);
}

TEST_F(SimBus, WriteHandshakeStoresDataThatReadsBackAcrossPieces) {
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    const Bytes image2 = CalibrationImage(id);
    Bytes image(150);
    for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<uint8_t>(i * 7);
    ASSERT_EQ(WriteMemory(winusb, 6, 1024, image), 1);
    EXPECT_EQ(ReadMemory(winusb, 6, 1024, 150), image);

    Bytes direct(150);
    ASSERT_EQ(qvsim_memory_read(id, 6, 1024, direct.data(), 150), 150);
    EXPECT_EQ(direct, image);
    EXPECT_EQ(State(id).write_open, 0);
    EXPECT_EQ(ReadMemory(winusb, 2, 1024, 4), Bytes(image2.begin(), image2.begin() + 4));  // region 2 untouched
}

TEST_F(SimBus, DataWithoutBegunWriteIsDropped) {
    const int id = Add("123456", 5);
    const QvDrvHandle winusb = WinUsb();
    Point(winusb, 2, 31);
    EXPECT_EQ(Out(winusb, 228, {9}), 1);
    EXPECT_EQ(qvsim_get_address(id), 5);
    EXPECT_EQ(State(id).ignored_writes, 1u);
}

TEST_F(SimBus, RefusedBeginMeansNothingIsWritten) {
    const int id = Add("123456", 5);
    const QvDrvHandle winusb = WinUsb();
    AddFault(id, QVSIM_FAULT_NO_ECHO, 252);
    EXPECT_EQ(WriteMemory(winusb, 2, 31, {9}, true), -4);
    EXPECT_EQ(qvsim_get_address(id), 5);
    EXPECT_EQ(WriteMemory(winusb, 2, 31, {9}), 1);
    EXPECT_EQ(qvsim_get_address(id), 9);
}

TEST_F(SimBus, UnconfirmedEndLeavesTheDataWritten) {
    const int id = Add("123456", 5);
    const QvDrvHandle winusb = WinUsb();
    AddFault(id, QVSIM_FAULT_NO_ECHO, 253);
    EXPECT_EQ(WriteMemory(winusb, 2, 0, {30, 12, 24}), -5);
    EXPECT_EQ(ReadMemory(winusb, 2, 0, 3), (Bytes{30, 12, 24}));
    EXPECT_EQ(State(id).write_open, 1);
}

TEST_F(SimBus, RegionsWithoutMemoryReadErasedAndKeepNothing) {
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    for (int region : {0, 1, 3, 7, 255}) {
        EXPECT_EQ(WriteMemory(winusb, region, 31, {1, 2, 3}), 1) << region;
        EXPECT_EQ(ReadMemory(winusb, region, 31, 3), Bytes(3, 0xFF)) << region;
    }
    uint8_t byte = 0;
    EXPECT_EQ(qvsim_memory_read(id, 3, 0, &byte, 1), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_memory_write(id, 2, 65535, "ab", 2), QVSIM_E_ARG);
}

TEST_F(SimBus, PointerWrapsAtTheEndOfTheRegion) {
    const int id = Add("123456");
    const uint8_t last = 0x11, first = 0x22;
    ASSERT_EQ(qvsim_memory_write(id, 2, 65535, &last, 1), 1);
    ASSERT_EQ(qvsim_memory_write(id, 2, 0, &first, 1), 1);
    EXPECT_EQ(ReadMemory(WinUsb(), 2, 65535, 2), (Bytes{0x11, 0x22}));
}

TEST_F(SimBus, NonVolatileMemoryOutlivesUnplugButRamDoesNot) {
    const int id = Add("123456", 5);
    QvDrvHandle winusb = WinUsb();
    ASSERT_EQ(WriteMemory(winusb, 2, 31, {77}), 1);
    In(winusb, 206, 1);
    In(winusb, 191, 2);
    ASSERT_EQ(qvsim_bulk_in_push(id, "abc", 3), 3);

    ASSERT_EQ(qvsim_sensor_unplug(id), QVSIM_OK);
    ASSERT_EQ(qvsim_sensor_replug(id), QVSIM_OK);
    winusb = WinUsb();
    EXPECT_EQ(ReadMemory(winusb, 2, 31, 1), Bytes{77});
    const qvsim_sensor_state state = State(id);
    EXPECT_EQ(state.led_on, 0);
    EXPECT_EQ(state.trigger_in_enabled, 0);
    EXPECT_EQ(state.bulk_in_pending, 0);
}

// ---------------------------------------------------------------- detector and factory calibration

struct ProductGrid {
    const char* product;
    int model;
    bool coarse;  // 6.625e7 Hz steps, rows of 70 counts from 2785; else 2.5e7 Hz, rows of 9 from 7334
};

class DetectorOfModel : public SimBus, public ::testing::WithParamInterface<ProductGrid> {
protected:
    static double Count(int id, int path, double dbm, double hz, double temperature) {
        double count = 0.0;
        EXPECT_EQ(qvsim_detector_count(id, path, dbm, hz, temperature, &count), QVSIM_OK);
        return count;
    }
};

TEST_P(DetectorOfModel, GridFollowsTheProductStringAndCalibrationLiesInsideTheRows) {
    const ProductGrid c = GetParam();
    const int id = Add("G7H8J9", 1, c.product);
    qvsim_detector_info info{};
    ASSERT_EQ(qvsim_detector_info_get(id, &info), QVSIM_OK);
    EXPECT_EQ(info.model_index, c.model);
    EXPECT_EQ(info.start_hz, 1e7);
    EXPECT_EQ(info.step_hz, c.coarse ? 6.625e7 : 2.5e7);
    EXPECT_EQ(info.temp_table_start, c.coarse ? 2785 : 7334);
    EXPECT_EQ(info.temp_step, c.coarse ? 70 : 9);
    EXPECT_GE(info.cal_temperature, info.temp_table_start + 50 * info.temp_step);
    EXPECT_LT(info.cal_temperature, info.temp_table_start + 300 * info.temp_step);
    EXPECT_EQ(info.temperature, info.cal_temperature);
    EXPECT_EQ(qvsim_get_temperature(id), info.cal_temperature);
    const Bytes image = CalibrationImage(id);
    EXPECT_EQ(image[0] * 256 + image[1], info.cal_temperature);
}

TEST_P(DetectorOfModel, CountFallsSmoothlyAsPowerRisesOnEveryPath) {
    const int id = Add("G7H8J9", 1, GetParam().product);
    qvsim_detector_info info{};
    ASSERT_EQ(qvsim_detector_info_get(id, &info), QVSIM_OK);
    for (int path : {QVSIM_PATH_HS, QVSIM_PATH_LS}) {
        const double bottom = path == QVSIM_PATH_HS ? -70.0 : -30.0;
        for (double hz : {info.start_hz, 200 * info.step_hz, 400 * info.step_hz}) {
            double previous = Count(id, path, bottom, hz, info.cal_temperature);
            EXPECT_GT(previous, 45000.0);
            EXPECT_LT(previous, 65535.0);
            for (double dbm = bottom + 0.5; dbm <= bottom + 50.0; dbm += 0.5) {
                const double count = Count(id, path, dbm, hz, info.cal_temperature);
                ASSERT_LT(count, previous) << path << " " << hz << " " << dbm;
                EXPECT_LT(previous - count, 2000.0) << path << " " << hz << " " << dbm;  // no jumps
                previous = count;
            }
            // hs ends well above the ADC's zero so that it counts on through the crossover bands.
            EXPECT_GT(previous, path == QVSIM_PATH_HS ? 9000.0 : 1000.0);
            EXPECT_LT(previous, path == QVSIM_PATH_HS ? 13000.0 : 5000.0);
        }
        // The sensitivity depends on the frequency.
        EXPECT_NE(Count(id, path, bottom + 25, 1e9, info.cal_temperature),
                  Count(id, path, bottom + 25, 2e9, info.cal_temperature));
    }
}

TEST_P(DetectorOfModel, ImageHoldsTheDetectorsCountsAtTheGridPoints) {
    const int id = Add("G7H8J9", 1, GetParam().product);
    qvsim_detector_info info{};
    ASSERT_EQ(qvsim_detector_info_get(id, &info), QVSIM_OK);
    const Bytes image = CalibrationImage(id);
    for (int point : {0, 1, 2, 200, 400}) {
        const double hz = point == 0 ? info.start_hz : point * info.step_hz;
        for (int path : {QVSIM_PATH_HS, QVSIM_PATH_LS}) {
            for (int level : {0, 1, 12, 25}) {
                const double dbm = (path == QVSIM_PATH_HS ? -70.0 : -30.0) + 2.0 * level;
                double z = 0, a = 0, b = 0;
                ASSERT_EQ(qvsim_detector_calibration(id, path, dbm, hz, &z, &a, &b), QVSIM_OK);
                const size_t entry = 2 + 268 * size_t(point) + (path == QVSIM_PATH_HS ? 8 : 138) + 5 * size_t(level);
                EXPECT_EQ(image[entry] * 256 + image[entry + 1], std::lround(z)) << point << " " << path << " " << level;
                EXPECT_DOUBLE_EQ(z, Count(id, path, dbm, hz, info.cal_temperature));
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Products, DetectorOfModel,
    ::testing::Values(
        ProductGrid{"QV2xxA", 0, false}, ProductGrid{"QV221A", 1, false}, ProductGrid{"QV222A", 2, false},
        ProductGrid{"QV223A", 3, false}, ProductGrid{"QV331A", 4, true}, ProductGrid{"QV332A", 5, true},
        ProductGrid{"QV333A", 6, true}, ProductGrid{"QV441A", 7, true}, ProductGrid{"QV442A", 8, true},
        ProductGrid{"VRT2", 95, false}, ProductGrid{"OEMOEM", 64, false}, ProductGrid{"RUnset", 65, false},
        ProductGrid{"R7777A", 66, false}, ProductGrid{"R7701A", 67, false}, ProductGrid{"R7702A", 68, false},
        ProductGrid{"R7703A", 69, true}, ProductGrid{"R7704A", 70, true}, ProductGrid{"R7705A", 71, true},
        ProductGrid{"R7777B", 76, false}, ProductGrid{"R7701B", 77, false}, ProductGrid{"R7702B", 78, false},
        ProductGrid{"R7703B", 79, true}, ProductGrid{"R7704B", 80, true}, ProductGrid{"R7705B", 81, true},
        ProductGrid{"TK7110", 101, false}, ProductGrid{"TKS7120", 102, false}, ProductGrid{"TK8110", 103, false},
        ProductGrid{"TK8120", 104, false}, ProductGrid{"TKS6110", 105, true}, ProductGrid{"TK6120", 106, true},
        ProductGrid{"TK6310", 107, true}, ProductGrid{"TK6320", 108, true}, ProductGrid{"TK6510", 109, true},
        ProductGrid{"TK7410", 110, true}, ProductGrid{"TK7320", 111, true}, ProductGrid{"TK8410", 112, true},
        ProductGrid{"TKS8410", 112, true}, ProductGrid{"TK8320", 113, true}, ProductGrid{"Unnamed", -1, false}),
    [](const ::testing::TestParamInfo<ProductGrid>& info) { return std::string(info.param.product); });

TEST_F(SimBus, EachSerialHasADetectorOfItsOwnAndTheSameSerialTheSameOne) {
    const int first = Add("100001");
    const int second = Add("100002");
    const int again = Add("100001");
    EXPECT_EQ(CalibrationImage(first), CalibrationImage(again));
    EXPECT_NE(CalibrationImage(first), CalibrationImage(second));
    double a = 0, b = 0;
    ASSERT_EQ(qvsim_detector_count(first, QVSIM_PATH_LS, -5.0, 3e9, 9000, &a), QVSIM_OK);
    ASSERT_EQ(qvsim_detector_count(second, QVSIM_PATH_LS, -5.0, 3e9, 9000, &b), QVSIM_OK);
    EXPECT_NE(a, b);
    // The factory fixed the detector: a new product string later changes nothing.
    const Bytes before = CalibrationImage(first);
    ASSERT_EQ(qvsim_set_string(first, 2, "QV221A"), QVSIM_OK);
    qvsim_detector_info info{};
    ASSERT_EQ(qvsim_detector_info_get(first, &info), QVSIM_OK);
    EXPECT_EQ(info.model_index, 8);
    EXPECT_EQ(CalibrationImage(first), before);
}

TEST_F(SimBus, TemperatureIsTheSensorsOwnAndDriftsTheCountQuadratically) {
    const int id = Add("123456", 1, "QV221A");
    const int other = Add("654321", 2, "QV221A");
    qvsim_detector_info info{};
    ASSERT_EQ(qvsim_detector_info_get(id, &info), QVSIM_OK);
    const double last = info.temp_table_start + 349.0 * info.temp_step;
    double z = 0, a = 0, b = 0;
    ASSERT_EQ(qvsim_detector_calibration(id, QVSIM_PATH_HS, -40.0, 1e9, &z, &a, &b), QVSIM_OK);
    EXPECT_NE(a, 0.0);
    EXPECT_NE(b, 0.0);
    for (double t : {double(info.cal_temperature), double(info.temp_table_start), last, info.cal_temperature + 333.0}) {
        const double dT = t - info.cal_temperature;
        double count = 0;
        ASSERT_EQ(qvsim_detector_count(id, QVSIM_PATH_HS, -40.0, 1e9, t, &count), QVSIM_OK);
        EXPECT_NEAR(count, z + a * dT + b * dT * dT, 1e-9 * z) << t;
    }
    // Beyond the calibrated rows the drift holds its end value.
    double atEnd = 0, beyond = 0;
    ASSERT_EQ(qvsim_detector_count(id, QVSIM_PATH_HS, -40.0, 1e9, last, &atEnd), QVSIM_OK);
    ASSERT_EQ(qvsim_detector_count(id, QVSIM_PATH_HS, -40.0, 1e9, 65535, &beyond), QVSIM_OK);
    EXPECT_EQ(beyond, atEnd);

    ASSERT_EQ(qvsim_set_temperature(id, 9100), QVSIM_OK);
    EXPECT_EQ(qvsim_get_temperature(id), 9100);
    EXPECT_NE(qvsim_get_temperature(other), 9100);
    ASSERT_EQ(qvsim_sensor_unplug(id), QVSIM_OK);
    ASSERT_EQ(qvsim_sensor_replug(id), QVSIM_OK);
    EXPECT_EQ(qvsim_get_temperature(id), 9100);
    EXPECT_EQ(qvsim_set_temperature(id, -1), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_set_temperature(id, 65536), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_set_temperature(31, 9000), QVSIM_E_NO_SENSOR);
    EXPECT_EQ(qvsim_get_temperature(id), 9100);
}

TEST_F(SimBus, PowerIsTheInverseOfTheCount) {
    const int id = Add("123456", 1, "TK8410");
    for (int path : {QVSIM_PATH_HS, QVSIM_PATH_LS}) {
        for (double t : {3000.0, 12000.0, 26000.0}) {
            for (double dbm = (path == QVSIM_PATH_HS ? -75.0 : -35.0); dbm < (path == QVSIM_PATH_HS ? -15.0 : 25.0); dbm += 1.7) {
                double count = 0, back = 0;
                ASSERT_EQ(qvsim_detector_count(id, path, dbm, 7.7e9, t, &count), QVSIM_OK);
                ASSERT_EQ(qvsim_detector_power(id, path, count, 7.7e9, t, &back), QVSIM_OK);
                EXPECT_NEAR(back, dbm, 1e-9) << path << " " << t;
            }
        }
    }
    double dbm = 0;
    ASSERT_EQ(qvsim_detector_power(id, QVSIM_PATH_HS, -1e6, 1e9, 9000, &dbm), QVSIM_OK);
    EXPECT_TRUE(std::isfinite(dbm) && dbm > -20.0);  // on the straight line above the top level
}

TEST_F(SimBus, DetectorQueriesAreValidated) {
    const int id = Add("123456");
    double out = 0, a = 0, b = 0;
    const double nan = std::nan("");
    EXPECT_EQ(qvsim_detector_count(id, 2, -10, 1e9, 9000, &out), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_detector_count(id, -1, -10, 1e9, 9000, &out), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_detector_count(id, 0, nan, 1e9, 9000, &out), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_detector_count(id, 0, -10, nan, 9000, &out), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_detector_count(id, 0, -10, 1e9, nan, &out), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_detector_count(id, 0, -10, 1e9, 9000, nullptr), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_detector_power(id, 0, nan, 1e9, 9000, &out), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_detector_power(id, 0, 1000, 1e9, 9000, nullptr), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_detector_calibration(id, 0, -10, 1e9, &out, &a, nullptr), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_detector_calibration(id, 5, -10, 1e9, &out, &a, &b), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_detector_info_get(id, nullptr), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_detector_count(id + 1, 0, -10, 1e9, 9000, &out), QVSIM_E_NO_SENSOR);
    EXPECT_EQ(qvsim_detector_calibration(id + 1, 0, -10, 1e9, &out, &a, &b), QVSIM_E_NO_SENSOR);
    EXPECT_EQ(qvsim_get_temperature(id + 1), QVSIM_E_NO_SENSOR);
}

// ---------------------------------------------------------------- working memory

TEST_F(SimBus, FirmwareTextIsFoundTheWayTheLibraryLooks) {
    const int id = Add("123456");
    ASSERT_EQ(qvsim_set_firmware(id, "QV-FW 3.14.159 build 7"), QVSIM_OK);
    const QvDrvHandle winusb = WinUsb();
    const Reply where = In(winusb, 243, 3);
    ASSERT_EQ(where.result, 3);
    EXPECT_EQ(where.bytes[0], 243);
    ASSERT_EQ(Out(winusb, 216, {where.bytes[1], where.bytes[2]}), 2);
    const Reply text = In(winusb, 220, 64);
    ASSERT_EQ(text.result, 64);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(text.bytes.data())), "QV-FW 3.14.159 build 7");
    EXPECT_EQ(Info(id).firmware, std::string("QV-FW 3.14.159 build 7"));
}

TEST_F(SimBus, TableWrittenInPiecesLandsContiguouslyAtTheBufferBase) {
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    const Reply base = In(winusb, 242, 3);
    ASSERT_EQ(base.bytes[0], 242);
    const int location = base.bytes[1] << 8 | base.bytes[2];
    EXPECT_EQ(location, QVSIM_WM_BUFFER_BASE);

    Bytes table(256);
    for (size_t i = 0; i < table.size(); ++i) table[i] = static_cast<uint8_t>(255 - i);
    ASSERT_EQ(Out(winusb, 216, {base.bytes[1], base.bytes[2]}), 2);
    for (size_t piece = 0; piece < 4; ++piece)
        ASSERT_EQ(Out(winusb, 219, Bytes(table.begin() + long(piece * 64), table.begin() + long(piece * 64 + 64))), 64);
    Bytes stored(256);
    ASSERT_EQ(qvsim_working_read(id, location, stored.data(), 256), 256);
    EXPECT_EQ(stored, table);
    EXPECT_EQ(State(id).working_location, location + 256);
}

TEST_F(SimBus, SingleByteWritesAndTwoByteReads) {
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    ASSERT_EQ(Out(winusb, 216, {0x11, 0x00}), 2);
    ASSERT_EQ(Out(winusb, 217, {0x42}), 1);
    uint8_t packet = 0;
    ASSERT_EQ(qvsim_working_read(id, QVSIM_WM_BUFFER_BASE + 256, &packet, 1), 1);
    EXPECT_EQ(packet, 0x42);

    const uint8_t line[2] = {0x00, 0x01};
    ASSERT_EQ(qvsim_working_write(id, QVSIM_WM_TRIGGER_LINE, line, 2), 2);
    ASSERT_EQ(Out(winusb, 216, {0xF4, 0x00}), 2);
    EXPECT_EQ(In(winusb, 218, 2).bytes, (Bytes{0x00, 0x01}));
}

// ---------------------------------------------------------------- transcript

TEST_F(SimBus, TranscriptRecordsWhatReachedTheSensor) {
    const int id = Add("123456", 5);
    const QvDrvHandle winusb = WinUsb();
    Out(winusb, 225, {2, 0, 31});
    In(winusb, 229, 1);
    In(winusb, 191, 2);
    const std::vector<qvsim_transfer> entries = Transcript(id);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].kind, QVSIM_XFER_OUT);
    EXPECT_EQ(entries[0].code, 225);
    EXPECT_EQ(entries[0].length, 3);
    EXPECT_EQ(entries[0].result, 3);
    EXPECT_EQ(Bytes(entries[0].data, entries[0].data + entries[0].data_len), (Bytes{2, 0, 31}));
    EXPECT_EQ(entries[1].kind, QVSIM_XFER_IN);
    EXPECT_EQ(Bytes(entries[1].data, entries[1].data + entries[1].data_len), Bytes{5});
    EXPECT_EQ(entries[2].seq, 2);
    EXPECT_EQ(Requests(id), (std::vector<int>{225, 229, 191}));
}

TEST_F(SimBus, EnumeratingAndOpeningSendNothing) {
    const int id = Add("123456");
    for (int i = 0; i < QV_USBDRVD_GetDevCount(&kSensorClass); ++i) {
        DevicePath(i);
        const QvDrvHandle device = OpenIndex(i);
        QV_USBDRVD_CloseWinUSBHandle(QV_USBDRVD_OpenWinUSBHandle(device));
        QV_USBDRVD_CloseDevHandle(device);
    }
    EXPECT_EQ(qvsim_transcript_count(id), 0);
    EXPECT_EQ(qvsim_transcript_count(QVSIM_ALL_SENSORS), 0);
}

TEST_F(SimBus, TranscriptKeepsTheNewestEntriesAndCountsAll) {
    const int id = Add("123456");
    const int other = Add("654321");
    const QvDrvHandle winusb = WinUsb();
    for (int i = 0; i < 5000; ++i) In(winusb, 239, 1);
    In(WinUsb(1), 239, 1);
    EXPECT_EQ(qvsim_transcript_count(id), 5000);
    EXPECT_EQ(qvsim_transcript_count(QVSIM_ALL_SENSORS), 5001);
    const std::vector<qvsim_transfer> kept = Transcript(id);
    ASSERT_EQ(kept.size(), static_cast<size_t>(QVSIM_TRANSCRIPT_ENTRIES));
    EXPECT_EQ(kept.front().seq, 5000 - QVSIM_TRANSCRIPT_ENTRIES);
    EXPECT_EQ(kept.back().seq, 4999);
    qvsim_transfer tail[4];
    EXPECT_EQ(qvsim_transcript_read(id, 4998, tail, 4), 2);

    ASSERT_EQ(qvsim_transcript_clear(id), QVSIM_OK);
    EXPECT_EQ(qvsim_transcript_count(id), 0);
    EXPECT_EQ(qvsim_transcript_count(other), 1);
    ASSERT_EQ(qvsim_transcript_clear(QVSIM_ALL_SENSORS), QVSIM_OK);
    EXPECT_EQ(qvsim_transcript_count(QVSIM_ALL_SENSORS), 0);
}

TEST_F(SimBus, StringReadsAndPipeTransfersAreRecordedByKind) {
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    char buffer[16];
    QV_USBDRVD_GetStringDescriptorLengthA(winusb, 27, 3);
    QV_USBDRVD_GetStringDescriptorA(winusb, 27, 3, 16, buffer);
    uint8_t word[2] = {1, 2};
    uint32_t moved = 0;
    QV_USBDRVD_PipeWriteTimeout(winusb, 0x01, word, 2, &moved, 1000);
    QV_USBDRVD_PipeReadTimeout(winusb, 0x82, word, 2, &moved, 0);
    std::vector<int> kinds;
    for (const qvsim_transfer& entry : Transcript(id)) kinds.push_back(entry.kind);
    EXPECT_EQ(kinds, (std::vector<int>{QVSIM_XFER_STRING, QVSIM_XFER_STRING, QVSIM_XFER_PIPE_WRITE, QVSIM_XFER_PIPE_READ}));
    EXPECT_TRUE(Requests(id).empty());
}

// ---------------------------------------------------------------- faults

struct CountingCase {
    int skip;
    int count;
    const char* pattern;  // F fails, S succeeds, for five requests in a row
};

class FaultCounting : public SimBus, public ::testing::WithParamInterface<CountingCase> {};

TEST_P(FaultCounting, FiresAfterSkipForCountRequests) {
    const CountingCase& c = GetParam();
    const int id = Add("123456");
    AddFault(id, QVSIM_FAULT_REQUEST_FAILS, 229, c.count, c.skip);
    const QvDrvHandle winusb = WinUsb();
    std::string seen;
    for (int i = 0; i < 5; ++i) {
        In(winusb, 239, 1);  // other requests do not count
        seen += In(winusb, 229, 1).result < 0 ? 'F' : 'S';
    }
    EXPECT_EQ(seen, c.pattern);
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultCounting,
                         ::testing::Values(CountingCase{0, 1, "FSSSS"}, CountingCase{0, 2, "FFSSS"},
                                           CountingCase{1, 1, "SFSSS"}, CountingCase{0, QVSIM_ALWAYS, "FFFFF"},
                                           CountingCase{2, QVSIM_ALWAYS, "SSFFF"}));

TEST_F(SimBus, FailedRequestsDoNothingAndReturnTheChosenResult) {
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    AddFault(id, QVSIM_FAULT_REQUEST_FAILS, 0, 1, 0, -7);
    AddFault(id, QVSIM_FAULT_REQUEST_EMPTY, 191);
    const Reply failed = In(winusb, 206, 1);
    EXPECT_EQ(failed.result, -7);
    EXPECT_EQ(failed.bytes[0], 0xAA);
    EXPECT_EQ(In(winusb, 191, 2).result, 0);
    EXPECT_EQ(State(id).led_on, 0);
    EXPECT_EQ(State(id).trigger_in_enabled, 0);
    EXPECT_EQ(In(winusb, 191, 2).result, 2);
}

TEST_F(SimBus, OpenFaultGivesTheChosenFailureThenRecovers) {
    const int id = Add("123456");
    AddFault(id, QVSIM_FAULT_OPEN_FAILS, 0, 1, 0, 0);
    AddFault(id, QVSIM_FAULT_OPEN_FAILS, 0, 1, 0, -1);
    EXPECT_EQ(OpenIndex(0), 0);
    EXPECT_EQ(OpenIndex(0), -1);
    EXPECT_GT(OpenIndex(0), 0);
    EXPECT_EQ(Info(id).open_handles, 1);
}

TEST_F(SimBus, StringFaultHitsOnlyItsIndex) {
    const int id = Add("123456");
    AddFault(id, QVSIM_FAULT_STRING_FAILS, 3, QVSIM_ALWAYS);
    const QvDrvHandle winusb = WinUsb();
    char buffer[16];
    EXPECT_EQ(QV_USBDRVD_GetStringDescriptorLengthA(winusb, 27, 3), -1);
    EXPECT_EQ(QV_USBDRVD_GetStringDescriptorA(winusb, 27, 3, 16, buffer), -1);
    EXPECT_EQ(QV_USBDRVD_GetStringDescriptorLengthA(winusb, 27, 2), 7);
}

TEST_F(SimBus, SensorThatVanishesMidConversation) {
    const int id = Add("123456");
    AddFault(id, QVSIM_FAULT_UNPLUG, 0, 1, 2);
    const QvDrvHandle winusb = WinUsb();
    EXPECT_EQ(In(winusb, 239, 1).result, 1);
    EXPECT_EQ(In(winusb, 239, 1).result, 1);
    EXPECT_LT(In(winusb, 239, 1).result, 0);
    EXPECT_EQ(QV_USBDRVD_GetDevCount(&kSensorClass), 0);
    EXPECT_EQ(Info(id).plugged, 0);
    EXPECT_EQ(qvsim_transcript_count(id), 2);
}

TEST_F(SimBus, FaultsStayAcrossReplugUntilCleared) {
    const int id = Add("123456");
    AddFault(id, QVSIM_FAULT_REQUEST_FAILS, 239, QVSIM_ALWAYS);
    ASSERT_EQ(qvsim_sensor_unplug(id), QVSIM_OK);
    ASSERT_EQ(qvsim_sensor_replug(id), QVSIM_OK);
    const QvDrvHandle winusb = WinUsb();
    EXPECT_LT(In(winusb, 239, 1).result, 0);
    ASSERT_EQ(qvsim_clear_faults(id), QVSIM_OK);
    EXPECT_EQ(In(winusb, 239, 1).result, 1);
}

TEST_F(SimBus, FaultRulesAreValidatedAndBounded) {
    const int id = Add("123456");
    const qvsim_fault bad[] = {{0, 0, 0, 1, 0}, {10, 0, 0, 1, 0}, {1, 0, 0, 0, 0}, {1, 0, 0, -2, 0}, {1, 0, -1, 1, 0}};
    for (const qvsim_fault& fault : bad) EXPECT_EQ(qvsim_add_fault(id, &fault), QVSIM_E_ARG);
    const qvsim_fault good{QVSIM_FAULT_REQUEST_FAILS, 180, 0, 1, 0};
    for (int i = 0; i < 16; ++i) ASSERT_EQ(qvsim_add_fault(id, &good), QVSIM_OK);
    EXPECT_EQ(qvsim_add_fault(id, &good), QVSIM_E_FULL);
    EXPECT_EQ(qvsim_add_fault(id + 1, &good), QVSIM_E_NO_SENSOR);
}

// Each driver function can be made to throw, once, and the bus stays usable.
class DriverThrows : public SimBus, public ::testing::WithParamInterface<int> {};

TEST_P(DriverThrows, ThrowsOnceThenWorks) {
    const int function = GetParam();
    const int id = Add("123456");
    const QvDrvHandle device = OpenIndex(0);
    const QvDrvHandle winusb = QV_USBDRVD_OpenWinUSBHandle(device);
    AddFault(id, QVSIM_FAULT_THROWS, function);
    uint8_t bytes[4] = {2, 0, 31, 0};
    uint32_t moved = 0;
    char text[16];
    QvWideChar path[QV_DRV_DEVICE_PATH_CHARS];
    auto call = [&] {
        switch (function) {
            case QVSIM_FN_GET_DEV_COUNT: QV_USBDRVD_GetDevCount(&kSensorClass); break;
            case QVSIM_FN_GET_DEVICE_PATH: QV_USBDRVD_GetDevicePath(0, &kSensorClass, path, QV_DRV_DEVICE_PATH_CHARS); break;
            case QVSIM_FN_OPEN_DEV_HANDLE: QV_USBDRVD_CloseDevHandle(OpenIndex(0)); break;
            case QVSIM_FN_CLOSE_DEV_HANDLE: QV_USBDRVD_CloseDevHandle(OpenIndex(0)); break;
            case QVSIM_FN_OPEN_WINUSB_HANDLE: QV_USBDRVD_OpenWinUSBHandle(device); break;
            case QVSIM_FN_CLOSE_WINUSB_HANDLE: QV_USBDRVD_CloseWinUSBHandle(winusb); break;
            case QVSIM_FN_GET_STRING_LENGTH: QV_USBDRVD_GetStringDescriptorLengthA(winusb, 27, 2); break;
            case QVSIM_FN_GET_STRING: QV_USBDRVD_GetStringDescriptorA(winusb, 27, 2, 16, text); break;
            case QVSIM_FN_REQUEST_OUT: QV_USBDRVD_VendorOrClassRequestOut(winusb, 2, 0, 225, 0, 0, bytes, 3); break;
            case QVSIM_FN_REQUEST_IN: QV_USBDRVD_VendorOrClassRequestIn(winusb, 2, 0, 229, 0, 0, bytes, 1); break;
            case QVSIM_FN_PIPE_READ: QV_USBDRVD_PipeReadTimeout(winusb, 0x82, bytes, 4, &moved, 0); break;
            case QVSIM_FN_PIPE_WRITE: QV_USBDRVD_PipeWriteTimeout(winusb, 0x01, bytes, 2, &moved, 0); break;
        }
    };
    EXPECT_THROW(call(), std::exception);
    EXPECT_NO_THROW(call());
    EXPECT_EQ(In(winusb, 239, 1).result, 1);
}

INSTANTIATE_TEST_SUITE_P(Functions, DriverThrows, ::testing::Range(QVSIM_FN_GET_DEV_COUNT, QVSIM_FN_PIPE_WRITE + 1));

TEST_F(SimBus, ThrowingForAnyFunctionSparesTheDeviceCount) {
    const int id = Add("123456");
    AddFault(id, QVSIM_FAULT_THROWS, 0, QVSIM_ALWAYS);
    EXPECT_EQ(QV_USBDRVD_GetDevCount(&kSensorClass), 1);
    EXPECT_THROW(OpenIndex(0), std::exception);
}

// ---------------------------------------------------------------- bulk pipes

TEST_F(SimBus, PipeReadServesQueuedBytesThenTimesOut) {
    const int id = Add("123456");
    Bytes queued(1000);
    for (size_t i = 0; i < queued.size(); ++i) queued[i] = static_cast<uint8_t>(i);
    ASSERT_EQ(qvsim_bulk_in_push(id, queued.data(), 1000), 1000);
    const QvDrvHandle winusb = WinUsb();
    Bytes received(512);
    uint32_t moved = 99;
    EXPECT_EQ(QV_USBDRVD_PipeReadTimeout(winusb, 0x82, received.data(), 512, &moved, 100), 1);
    EXPECT_EQ(moved, 512u);
    EXPECT_EQ(received, Bytes(queued.begin(), queued.begin() + 512));
    EXPECT_EQ(QV_USBDRVD_PipeReadTimeout(winusb, 0x82, received.data(), 512, &moved, 100), 1);
    EXPECT_EQ(moved, 488u);
    EXPECT_EQ(received[487], queued[999]);
    EXPECT_EQ(QV_USBDRVD_PipeReadTimeout(winusb, 0x82, received.data(), 512, &moved, 100), 0);
    EXPECT_EQ(moved, 0u);
}

TEST_F(SimBus, PipeFaultsTimeOutOrShortenWithoutLosingData) {
    const int id = Add("123456");
    Bytes queued(300, 0x5A);
    ASSERT_EQ(qvsim_bulk_in_push(id, queued.data(), 300), 300);
    AddFault(id, QVSIM_FAULT_PIPE_TIMEOUT, 0x82);
    AddFault(id, QVSIM_FAULT_PIPE_SHORT, 0x82, 1, 0, 100);
    const QvDrvHandle winusb = WinUsb();
    Bytes received(256);
    uint32_t moved = 0;
    EXPECT_EQ(QV_USBDRVD_PipeReadTimeout(winusb, 0x82, received.data(), 256, &moved, 10), 0);
    EXPECT_EQ(moved, 0u);
    EXPECT_EQ(QV_USBDRVD_PipeReadTimeout(winusb, 0x82, received.data(), 256, &moved, 10), 1);
    EXPECT_EQ(moved, 100u);
    EXPECT_EQ(State(id).bulk_in_pending, 200);
}

TEST_F(SimBus, BulkQueueIsBoundedAndNeedsAPluggedSensor) {
    const int id = Add("123456");
    Bytes big(QVSIM_BULK_IN_BYTES);
    ASSERT_EQ(qvsim_bulk_in_push(id, big.data(), static_cast<int>(big.size())), QVSIM_BULK_IN_BYTES);
    EXPECT_EQ(qvsim_bulk_in_push(id, big.data(), 1), QVSIM_E_FULL);
    ASSERT_EQ(qvsim_sensor_unplug(id), QVSIM_OK);
    EXPECT_EQ(qvsim_bulk_in_push(id, big.data(), 1), QVSIM_E_STATE);
}

TEST_F(SimBus, RecorderWordsArriveOnTheOutPipe) {
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    EXPECT_EQ(State(id).recorder_word, -1);
    uint8_t word[2] = {0xCC, 0xCD};
    uint32_t moved = 0;
    EXPECT_EQ(QV_USBDRVD_PipeWriteTimeout(winusb, 0x01, word, 2, &moved, 1000), 1);
    EXPECT_EQ(moved, 2u);
    EXPECT_EQ(State(id).recorder_word, 0xCCCD);
    EXPECT_EQ(State(id).bulk_out_writes, 1u);
    uint8_t last[4] = {};
    EXPECT_EQ(qvsim_bulk_out_last(id, last, 4), 2);
    EXPECT_EQ(last[1], 0xCD);

    EXPECT_EQ(QV_USBDRVD_PipeWriteTimeout(winusb, 0x82, word, 2, &moved, 1000), -1);
    EXPECT_EQ(QV_USBDRVD_PipeReadTimeout(winusb, 0x01, word, 2, &moved, 1000), -1);
    EXPECT_EQ(QV_USBDRVD_PipeReadTimeout(winusb, 0x82, word, 2, nullptr, 1000), -1);
    EXPECT_EQ(State(id).bulk_out_writes, 1u);
}

// ---------------------------------------------------------------- bus file and settings

TEST_F(SimBus, TimingModelIsZeroUntilSet) {
    qvsim_timing timing{1, 1, 1, 0};
    ASSERT_EQ(qvsim_get_timing(&timing), QVSIM_OK);
    EXPECT_EQ(timing.control_us, 0u);
    EXPECT_EQ(timing.bulk_bytes_per_s, 0u);
    EXPECT_EQ(timing.real_timeouts, 0);
    const qvsim_timing wanted{250, 1000000, 1, 0};
    ASSERT_EQ(qvsim_set_timing(&wanted), QVSIM_OK);
    ASSERT_EQ(qvsim_get_timing(&timing), QVSIM_OK);
    EXPECT_EQ(timing.control_us, 250u);
    EXPECT_EQ(timing.bulk_bytes_per_s, 1000000u);
    EXPECT_EQ(timing.real_timeouts, 1);
}

TEST_F(SimBus, SensorConfigsAreValidated) {
    qvsim_sensor_config config;
    qvsim_sensor_config_init(&config);
    EXPECT_EQ(qvsim_sensor_add(&config), QVSIM_E_ARG);  // no serial
    const std::string longSerial(32, 'S');
    struct Mutation {
        void (*apply)(qvsim_sensor_config&, const char*);
    };
    const Mutation mutations[] = {
        {[](qvsim_sensor_config& s, const char* text) { s.serial = text; }},
        {[](qvsim_sensor_config& s, const char*) { s.address = 256; }},
        {[](qvsim_sensor_config& s, const char*) { s.address = -2; }},
        {[](qvsim_sensor_config& s, const char*) { s.due_year = 20; }},  // the others left erased
        {[](qvsim_sensor_config& s, const char*) { s.product = nullptr; }},
    };
    for (const Mutation& mutation : mutations) {
        qvsim_sensor_config_init(&config);
        config.serial = "123456";
        mutation.apply(config, longSerial.c_str());
        EXPECT_EQ(qvsim_sensor_add(&config), QVSIM_E_ARG);
    }
    EXPECT_EQ(qvsim_sensor_add(nullptr), QVSIM_E_ARG);
    for (int i = 0; i < QVSIM_MAX_SENSORS; ++i) ASSERT_GE(Add("123456"), 0);
    qvsim_sensor_config_init(&config);
    config.serial = "123456";
    EXPECT_EQ(qvsim_sensor_add(&config), QVSIM_E_FULL);
}

TEST_F(SimBus, OnlyBusFilesOfThisVersionOpen) {
    const std::string junk = directory_ + "/junk";
    std::ofstream(junk) << std::string(8192, 'j');
    EXPECT_EQ(qvsim_bus_open(junk.c_str()), QVSIM_E_BAD_FILE);
    EXPECT_EQ(qvsim_bus_open((directory_ + "/missing").c_str()), QVSIM_E_IO);
    EXPECT_EQ(qvsim_bus_create((directory_ + "/no/such/dir/bus").c_str()), QVSIM_E_IO);
    EXPECT_EQ(qvsim_bus_open(busPath_.c_str()), QVSIM_OK);
}

TEST_F(SimBus, WithoutABusThereAreNoSensors) {
    Add("123456");
    ASSERT_EQ(qvsim_bus_close(), QVSIM_OK);
    qv::test::UnsetEnv(QVSIM_BUS_ENV);
    EXPECT_EQ(QV_USBDRVD_GetDevCount(&kSensorClass), 0);
    EXPECT_EQ(OpenIndex(0), QV_DRV_INVALID_HANDLE);
    EXPECT_EQ(qvsim_sensor_add(nullptr), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_get_address(0), QVSIM_E_NO_BUS);
    qv::test::SetEnv(QVSIM_BUS_ENV, busPath_);
    EXPECT_EQ(QV_USBDRVD_GetDevCount(&kSensorClass), 1);  // attaches again on its own
}

// ---------------------------------------------------------------- several processes

TEST_F(SimBus, AddressWrittenByOneProcessIsReadByAnother) {
    const int id = Add("123456", 5);
    EXPECT_EQ(RunChild({"write-address", "0", "77"}), 0);
    EXPECT_EQ(qvsim_get_address(id), 77);
    EXPECT_EQ(ReadMemory(WinUsb(), 2, 31, 1), Bytes{77});
    ASSERT_EQ(qvsim_set_address(id, 12), QVSIM_OK);
    EXPECT_EQ(RunChild({"read-address", "0"}), 12);
}

TEST_F(SimBus, OtherProcessesSeePlugChangesAtOnce) {
    Add("100001");
    const int second = Add("100002");
    EXPECT_EQ(RunChild({"count"}), 2);
    ASSERT_EQ(qvsim_sensor_unplug(second), QVSIM_OK);
    EXPECT_EQ(RunChild({"count"}), 1);
}

TEST_F(SimBus, ProcessDyingWithTheLockDoesNotWedgeTheBus) {
    EXPECT_EQ(RunChild({"die-holding-lock"}), 0);
    EXPECT_GE(Add("123456"), 0);
    EXPECT_EQ(qvsim_bus_recoveries(), 1);
    EXPECT_EQ(QV_USBDRVD_GetDevCount(&kSensorClass), 1);
}

TEST_F(SimBus, ChildWithoutTheVariableSeesNoBus) {
    Add("123456");
    ChildOptions withoutBus;
    withoutBus.withoutEnv = {QVSIM_BUS_ENV};
    EXPECT_EQ(RunChild({"count"}, withoutBus), 0);
}

// ---------------------------------------------------------------- qvsim tool

#ifdef QVSIM_TOOL_PATH
class SimTool : public SimBus {
protected:
    int Tool(std::vector<std::string> args) {
        args.insert(args.begin(), {QVSIM_TOOL_PATH, "--bus", busPath_});
        // Keep the tool's output out of the test log.
        ChildOptions quietened;
        quietened.outputFile = directory_ + "/tool.out";
        return RunProcess(args, quietened);
    }
};

TEST_F(SimTool, CreatesABusFromADescriptionFile) {
    const std::string description = directory_ + "/bus.txt";
    std::ofstream(description) << "# two sensors\n"
                                  "\n"
                                  "123456 QV442A --address 7 --due 27-06-30\n"
                                  "  ABCDE \"QV221A power sensor\" --firmware \"V 2.0\" --unplugged\n"
                                  "X1 QV333A --path-serial 999999\n";
    ASSERT_EQ(Tool({"create", "--from", description}), 0);
    ASSERT_EQ(qvsim_bus_open(busPath_.c_str()), QVSIM_OK);

    int ids[4];
    ASSERT_EQ(qvsim_sensor_list(ids, 4), 3);
    const qvsim_sensor_info first = Info(ids[0]), second = Info(ids[1]), third = Info(ids[2]);
    EXPECT_EQ(first.address, 7);
    uint8_t due[3];
    ASSERT_EQ(qvsim_memory_read(ids[0], 2, QVSIM_POS_DUE_DATE, due, 3), 3);
    EXPECT_EQ(Bytes(due, due + 3), (Bytes{27, 6, 30}));
    EXPECT_STREQ(second.product, "QV221A power sensor");
    EXPECT_STREQ(second.firmware, "V 2.0");
    EXPECT_EQ(second.plugged, 0);
    EXPECT_STREQ(third.path_serial, "999999");
    EXPECT_EQ(QV_USBDRVD_GetDevCount(&kSensorClass), 2);
}

TEST_F(SimTool, ExitCodesSeparateUsageFromFailure) {
    const int id = Add("123456");
    EXPECT_EQ(Tool({"list"}), 0);
    EXPECT_EQ(Tool({"fault", std::to_string(id), "fail", "229", "--count", "2"}), 0);
    EXPECT_EQ(Tool({"transcript", std::to_string(id)}), 0);
    EXPECT_EQ(Tool({"unplug", std::to_string(id)}), 0);
    EXPECT_EQ(Tool({"unplug", std::to_string(id)}), 1);   // already out
    EXPECT_EQ(Tool({"replug", "9"}), 1);                  // no such sensor
    EXPECT_EQ(Tool({"frobnicate"}), 2);
    EXPECT_EQ(Tool({"add", "123456"}), 2);
    EXPECT_EQ(Tool({"add", "123456", "QV442A", "--address", "256"}), 2);
    EXPECT_EQ(Tool({"fault", std::to_string(id), "melts"}), 2);
    EXPECT_EQ(Tool({"timing", "--control-us", "15"}), 0);
    qvsim_timing timing{};
    ASSERT_EQ(qvsim_get_timing(&timing), QVSIM_OK);
    EXPECT_EQ(timing.control_us, 15u);
    const std::string broken = directory_ + "/broken.txt";
    std::ofstream(broken) << "123456 QV442A --due 2027\n";
    EXPECT_EQ(Tool({"create", "--from", broken}), 2);
    ASSERT_EQ(qvsim_bus_open(busPath_.c_str()), QVSIM_OK);
    EXPECT_EQ(qvsim_sensor_list(nullptr, 0), 1);  // bus left as it was
}
TEST_F(SimTool, TemperatureCommandReadsAndSets) {
    const int id = Add("123456");
    EXPECT_EQ(Tool({"temperature", std::to_string(id)}), 0);
    EXPECT_EQ(Tool({"temperature", std::to_string(id), "9001"}), 0);
    EXPECT_EQ(qvsim_get_temperature(id), 9001);
    EXPECT_EQ(Tool({"temperature", std::to_string(id), "65536"}), 2);
    EXPECT_EQ(Tool({"temperature", "9"}), 1);
    EXPECT_EQ(qvsim_get_temperature(id), 9001);
}
#endif

// ---------------------------------------------------------------- helper process

// What this binary does when the tests run it as another process; the exit status
// is the answer.
int ChildMain(int argc, char** argv) {
    const std::string action = argc > 2 ? argv[2] : "";
    if (action == "count") return QV_USBDRVD_GetDevCount(&kSensorClass);
    if (action == "die-holding-lock") {
        qvsim_bus_lock();
        std::_Exit(0);
    }
    if (argc < 4) return 100;
    const QvDrvHandle device = OpenIndex(std::atoi(argv[3]));
    const QvDrvHandle winusb = QV_USBDRVD_OpenWinUSBHandle(device);
    if (device <= 0 || winusb == QV_DRV_INVALID_HANDLE) return 101;
    int status = 102;
    if (action == "read-address") {
        const Bytes address = ReadMemory(winusb, 2, 31, 1);
        status = address[0];
    } else if (action == "write-address" && argc > 4) {
        status = WriteMemory(winusb, 2, 31, {static_cast<uint8_t>(std::atoi(argv[4]))}) == 1 ? 0 : 103;
    }
    QV_USBDRVD_CloseDevHandle(device);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--sim-child") == 0) return ChildMain(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
