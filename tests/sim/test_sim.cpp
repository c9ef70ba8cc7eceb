// The simulated sensors, seen the way QV_API2 sees them (the twelve driver
// functions) and the way tests steer them (the qvsim_ control API).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qvsim.h"
#include "qvsim_driver.h"
#include "support/process.h"
#include "support/sim_fixture.h"

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

// ---------------------------------------------------------------- fixture

// A fresh bus (in the test's own namespace) for each test.
class SimBus : public qv::test::SimBusTest {
protected:
    static int Add(const char* serial, int address = -1) { return AddSensor(serial, address); }

    // A sensor at index0 opened down to its WinUSB handle.
    static QvDrvHandle WinUsb(int index0 = 0) {
        const QvDrvHandle device = OpenIndex(index0);
        EXPECT_GT(device, 0);
        const QvDrvHandle winusb = QV_USBDRVD_OpenWinUSBHandle(device);
        EXPECT_NE(winusb, QV_DRV_INVALID_HANDLE);
        return winusb;
    }

    static std::vector<qvsim_transfer> Transcript(int id) {
        std::vector<qvsim_transfer> entries(QVSIM_TRANSCRIPT_ENTRIES);
        const int copied = qvsim_transcript_read(id, 0, entries.data(), static_cast<int>(entries.size()));
        entries.resize(static_cast<size_t>(std::max(copied, 0)));
        return entries;
    }
};

// ---------------------------------------------------------------- enumeration and handles

TEST_F(SimBus, EnumeratesPluggedSensorsOfTheClassInTheOrderAdded) {
    const int a = Add("AAAAAA"), b = Add("BBBBBB");
    Add("CCCCCC");
    QvGuid otherClass = kSensorClass;
    otherClass.Data4[7] ^= 1;
    EXPECT_EQ(QV_USBDRVD_GetDevCount(&otherClass), 0);
    EXPECT_EQ(QV_USBDRVD_OpenDevHandle(0, 0, &otherClass), QV_DRV_INVALID_HANDLE);
    auto order = [] {
        std::string serials;
        for (int i = 0; i < QV_USBDRVD_GetDevCount(&kSensorClass); ++i) serials += DevicePath(i).substr(26, 1);
        return serials;
    };
    EXPECT_EQ(order(), "ABC");
    ASSERT_EQ(qvsim_sensor_unplug(b), QVSIM_OK);
    EXPECT_EQ(order(), "AC");
    EXPECT_EQ(OpenIndex(2), QV_DRV_INVALID_HANDLE);
    ASSERT_EQ(qvsim_sensor_replug(b), QVSIM_OK);
    ASSERT_EQ(qvsim_sensor_remove(a), QVSIM_OK);
    EXPECT_EQ(Add("DDDDDD"), a);  // the freed id is reused, yet the newcomer comes last
    EXPECT_EQ(order(), "BCD");
}

TEST_F(SimBus, DevicePathHasTheInterfaceFormAndNeedsRoomForItsTerminator) {
    Add("12345a");
    EXPECT_EQ(DevicePath(0), "\\\\?\\usb#vid_5156&pid_0001#12345a#{8bc86afd-f393-458d-9a8d-ad9eee178822}");
    const int length = static_cast<int>(DevicePath(0).size());
    QvWideChar wide[80];
    std::fill(std::begin(wide), std::end(wide), QvWideChar{0x55});
    EXPECT_EQ(QV_USBDRVD_GetDevicePath(0, &kSensorClass, wide, length), 0);
    EXPECT_EQ(wide[0], 0x55);
    EXPECT_EQ(QV_USBDRVD_GetDevicePath(0, &kSensorClass, wide, length + 1), length);
    EXPECT_EQ(QV_USBDRVD_GetDevicePath(1, &kSensorClass, wide, 80), 0);
}

TEST_F(SimBus, ClosedAndUnpluggedHandlesAreDeadAndHandlesAreCounted) {
    const int id = Add("123456");
    const QvDrvHandle first = OpenIndex(0), second = OpenIndex(0);
    EXPECT_NE(first, second);
    EXPECT_EQ(Info(id).open_handles, 2);
    EXPECT_EQ(QV_USBDRVD_CloseDevHandle(first), 1);
    EXPECT_EQ(QV_USBDRVD_CloseDevHandle(first), 0);
    EXPECT_EQ(QV_USBDRVD_OpenWinUSBHandle(first), QV_DRV_INVALID_HANDLE);
    EXPECT_EQ(State(id).opens, 2u);
    EXPECT_EQ(State(id).closes, 1u);

    const QvDrvHandle winusb = QV_USBDRVD_OpenWinUSBHandle(second);
    EXPECT_EQ(QV_USBDRVD_OpenWinUSBHandle(second), winusb);  // derived, not allocated
    EXPECT_LT(In(second, 239, 1).result, 0);                 // the kinds do not mix
    ASSERT_EQ(qvsim_sensor_unplug(id), QVSIM_OK);
    ASSERT_EQ(qvsim_sensor_replug(id), QVSIM_OK);
    EXPECT_LT(In(winusb, 239, 1).result, 0);
    EXPECT_EQ(QV_USBDRVD_CloseDevHandle(second), 0);
    EXPECT_EQ(In(WinUsb(), 239, 1).result, 1);
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

// Each command echoes its code and changes the sensor; with the echo withheld by a
// fault, the sensor did not carry it out.
TEST_P(CommandRequest, EchoesItsCodeOrDidNothing) {
    const CommandCase& c = GetParam();
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    if (c.before != 0) {
        ASSERT_EQ(In(winusb, c.before, 1, 0xC0).bytes[0], c.before);
    }
    const int unchanged = c.field(State(id));
    AddFault(id, QVSIM_FAULT_NO_ECHO, c.code, 1);
    const Reply refused = In(winusb, c.code, c.length);
    EXPECT_EQ(refused.result, c.length);
    EXPECT_NE(refused.bytes[0], c.code);
    EXPECT_EQ(c.field(State(id)), unchanged);

    const Reply reply = In(winusb, c.code, c.length);
    EXPECT_EQ(reply.result, c.length);
    EXPECT_EQ(reply.bytes[0], c.code);
    EXPECT_EQ(c.field(State(id)), c.expected);
}

const CommandCase kCommands[] = {
    {"TriggerInOn", 0, 191, 2, [](const qvsim_sensor_state& s) { return s.trigger_in_enabled; }, 1},
    {"TriggerInOff", 191, 190, 2, [](const qvsim_sensor_state& s) { return s.trigger_in_enabled; }, 0},
    {"TriggerOutOnWithInput", 0, 200, 1, [](const qvsim_sensor_state& s) { return s.trigger_out_variant; }, 200},
    {"TriggerOutOff", 200, 192, 1, [](const qvsim_sensor_state& s) { return s.trigger_out_enabled; }, 0},
    {"AntiAliasingOn", 0, 197, 2, [](const qvsim_sensor_state& s) { return s.anti_aliasing; }, 1},
    {"RecorderOn", 0, 199, 1, [](const qvsim_sensor_state& s) { return s.recorder_out; }, 1},
    {"LedOn", 0, 206, 1, [](const qvsim_sensor_state& s) { return s.led_on; }, 1},
    {"InitPing", 0, 239, 1, [](const qvsim_sensor_state& s) { return int(s.init_pings); }, 1},
    {"MeasureGo", 0, 194, 2, [](const qvsim_sensor_state& s) { return s.running_mode; }, QVSIM_RUN_MEASURING},
    {"StopEnd", 179, 187, 1, [](const qvsim_sensor_state& s) { return int(s.stop_sequences); }, 1},
};

INSTANTIATE_TEST_SUITE_P(Commands, CommandRequest, ::testing::ValuesIn(kCommands),
                         [](const ::testing::TestParamInfo<CommandCase>& info) { return std::string(info.param.name); });

TEST_F(SimBus, StopSequenceEndsMeasurementAndSweep) {
    const int id = Add("123456");
    const QvDrvHandle winusb = WinUsb();
    ASSERT_EQ(Out(winusb, 193, {0}, 0x40), 1);
    ASSERT_EQ(In(winusb, 194, 2).result, 2);
    EXPECT_EQ(State(id).measure_readings, 0);
    for (int code : {179, 200, 187}) In(winusb, code, 1);  // broken sequence
    EXPECT_EQ(State(id).running_mode, QVSIM_RUN_MEASURING);
    for (int code : {179, 195, 187}) In(winusb, code, 1);
    EXPECT_EQ(State(id).running_mode, QVSIM_RUN_IDLE);
    ASSERT_EQ(Out(winusb, 177, {0x29, 1, 2, 3}), 4);
    EXPECT_EQ(State(id).running_mode, QVSIM_RUN_SWEEP);
    for (int code : {179, 187}) In(winusb, code, 1);  // the sweep's short form
    EXPECT_EQ(State(id).running_mode, QVSIM_RUN_IDLE);
    EXPECT_EQ(State(id).stop_sequences, 2u);
}

// ---------------------------------------------------------------- SensorMemory and working memory

TEST_F(SimBus, WritesLandOnlyBetweenBeginAndEndAndOutliveUnplug) {
    const int id = Add("123456", 5);
    QvDrvHandle winusb = WinUsb();
    Bytes image(150);
    for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<uint8_t>(i * 7);
    ASSERT_EQ(WriteMemory(winusb, 6, 1024, image), 1);
    EXPECT_EQ(ReadMemory(winusb, 6, 1024, 150), image);
    EXPECT_EQ(State(id).write_open, 0);

    Point(winusb, 2, 31);
    EXPECT_EQ(Out(winusb, 228, {9}), 1);  // no write begun: dropped
    EXPECT_EQ(qvsim_get_address(id), 5);
    EXPECT_EQ(State(id).ignored_writes, 1u);
    AddFault(id, QVSIM_FAULT_NO_ECHO, 252, 1);
    EXPECT_EQ(WriteMemory(winusb, 2, 31, {9}, true), -4);
    EXPECT_EQ(qvsim_get_address(id), 5);
    AddFault(id, QVSIM_FAULT_NO_ECHO, 253, 1);
    EXPECT_EQ(WriteMemory(winusb, 2, 31, {77}), -5);  // unconfirmed, yet written
    EXPECT_EQ(qvsim_get_address(id), 77);

    In(winusb, 206, 1);
    ASSERT_EQ(qvsim_sensor_unplug(id), QVSIM_OK);
    ASSERT_EQ(qvsim_sensor_replug(id), QVSIM_OK);
    winusb = WinUsb();
    EXPECT_EQ(ReadMemory(winusb, 2, 31, 1), Bytes{77});
    EXPECT_EQ(State(id).led_on, 0);
    EXPECT_EQ(State(id).write_open, 0);
}

// ---------------------------------------------------------------- transcript

TEST_F(SimBus, TranscriptRecordsWhatReachedTheSensorButNotEnumeration) {
    const int id = Add("123456", 5);
    DevicePath(0);
    QV_USBDRVD_CloseDevHandle(OpenIndex(0));
    EXPECT_EQ(qvsim_transcript_count(QVSIM_ALL_SENSORS), 0);
    const QvDrvHandle winusb = WinUsb();
    Out(winusb, 225, {2, 0, 31});
    In(winusb, 229, 1);
    char buffer[16];
    QV_USBDRVD_GetStringDescriptorA(winusb, 27, 3, 16, buffer);
    const std::vector<qvsim_transfer> entries = Transcript(id);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].kind, QVSIM_XFER_OUT);
    EXPECT_EQ(entries[0].code, 225);
    EXPECT_EQ(entries[0].result, 3);
    EXPECT_EQ(Bytes(entries[0].data, entries[0].data + entries[0].data_len), (Bytes{2, 0, 31}));
    EXPECT_EQ(entries[1].kind, QVSIM_XFER_IN);
    EXPECT_EQ(Bytes(entries[1].data, entries[1].data + entries[1].data_len), Bytes{5});
    EXPECT_EQ(entries[2].kind, QVSIM_XFER_STRING);
    EXPECT_EQ(entries[2].seq, 2);
    EXPECT_EQ(Requests(id), (std::vector<std::string>{"OUT 225", "IN 229"}));
}

TEST_F(SimBus, TranscriptKeepsTheNewestEntriesAndCountsAll) {
    const int id = Add("123456");
    const int other = Add("654321");
    const QvDrvHandle winusb = WinUsb();
    for (int i = 0; i < 5000; ++i) In(winusb, 239, 1);
    In(WinUsb(1), 239, 1);
    EXPECT_EQ(qvsim_transcript_count(QVSIM_ALL_SENSORS), 5001);
    const std::vector<qvsim_transfer> kept = Transcript(id);
    ASSERT_EQ(kept.size(), static_cast<size_t>(QVSIM_TRANSCRIPT_ENTRIES));
    EXPECT_EQ(kept.front().seq, 5000 - QVSIM_TRANSCRIPT_ENTRIES);
    EXPECT_EQ(kept.back().seq, 4999);
    ASSERT_EQ(qvsim_transcript_clear(id), QVSIM_OK);
    EXPECT_EQ(qvsim_transcript_count(id), 0);
    EXPECT_EQ(qvsim_transcript_count(other), 1);
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
    AddFault(id, QVSIM_FAULT_REQUEST_FAILS, 229, c.count, 0, c.skip);
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
                                           CountingCase{1, 1, "SFSSS"}, CountingCase{2, QVSIM_ALWAYS, "SSFFF"}));

TEST_F(SimBus, FaultsGiveTheChosenResultAndChangeNothing) {
    const int id = Add("123456");
    AddFault(id, QVSIM_FAULT_OPEN_FAILS, 0, 1, 0);
    AddFault(id, QVSIM_FAULT_OPEN_FAILS, 0, 1, -1);
    EXPECT_EQ(OpenIndex(0), 0);
    EXPECT_EQ(OpenIndex(0), -1);
    const QvDrvHandle winusb = WinUsb();
    AddFault(id, QVSIM_FAULT_REQUEST_FAILS, 0, 1, -7);
    AddFault(id, QVSIM_FAULT_REQUEST_EMPTY, 191, 1);
    AddFault(id, QVSIM_FAULT_STRING_FAILS, 3, QVSIM_ALWAYS);
    const Reply failed = In(winusb, 206, 1);
    EXPECT_EQ(failed.result, -7);
    EXPECT_EQ(failed.bytes[0], 0xAA);
    EXPECT_EQ(In(winusb, 191, 2).result, 0);
    EXPECT_EQ(State(id).led_on, 0);
    EXPECT_EQ(State(id).trigger_in_enabled, 0);
    EXPECT_EQ(QV_USBDRVD_GetStringDescriptorLengthA(winusb, 27, 3), -1);
    EXPECT_EQ(QV_USBDRVD_GetStringDescriptorLengthA(winusb, 27, 2), 7);

    AddFault(id, QVSIM_FAULT_UNPLUG, 0, 1, 0, 1);  // vanishes mid-conversation
    EXPECT_EQ(In(winusb, 239, 1).result, 1);
    EXPECT_LT(In(winusb, 239, 1).result, 0);
    EXPECT_EQ(QV_USBDRVD_GetDevCount(&kSensorClass), 0);
}

// ---------------------------------------------------------------- several processes

TEST_F(SimBus, AddressWrittenByOneProcessIsReadByAnother) {
    const int id = Add("123456", 5);
    EXPECT_EQ(RunChild({"write-address", "0", "77"}), 0);
    EXPECT_EQ(qvsim_get_address(id), 77);
    ASSERT_EQ(qvsim_set_address(id, 12), QVSIM_OK);
    EXPECT_EQ(RunChild({"read-address", "0"}), 12);
}

TEST_F(SimBus, OtherProcessesSeePlugChangesAtOnceAndNeedTheVariable) {
    Add("100001");
    const int second = Add("100002");
    EXPECT_EQ(RunChild({"count"}), 2);
    ASSERT_EQ(qvsim_sensor_unplug(second), QVSIM_OK);
    EXPECT_EQ(RunChild({"count"}), 1);
    ChildOptions withoutBus;
    withoutBus.withoutEnv = {QVSIM_BUS_ENV};
    EXPECT_EQ(RunChild({"count"}, withoutBus), 0);
}

TEST_F(SimBus, ProcessDyingWithTheLockDoesNotWedgeTheBus) {
    EXPECT_EQ(RunChild({"die-holding-lock"}), 0);
    EXPECT_GE(Add("123456"), 0);
    EXPECT_EQ(qvsim_bus_recoveries(), 1);
}

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
