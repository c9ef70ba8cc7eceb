// A process that has the library loaded and obeys commands, one per line on
// standard input, answering one line each on standard output. The
// multi-process tests start several of these.
//
// It links the library's code directly, so it can also reach internals that
// have no export (claiming a slot without a sensor, holding the lock).
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>

#include "calibration/cal_image.h"
#include "calibration/ownership.h"
#include "frame/frame.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"
#include "platform/platform.h"
#include "qv_api2.h"
#include "support/os_hazards.h"

using namespace qv;

namespace {

// Claims the first free slot for this process, as initialisation will.
std::int32_t ClaimSlot(const std::string& serial, std::int32_t address) {
    for (int s = 0; s < kSlotCount; ++s) {
        DeviceRecord& r = Slot(s);
        if (r.inUse != 0) continue;
        r.inUse = 1;
        r.ownerPid = platform::CurrentProcessId();
        StoreSerial(r.serial, serial.c_str());
        r.address = address;
        r.devId = s + 1;
        return s;
    }
    return -1;
}

std::string DescribeSlots() {
    std::ostringstream out;
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        out << (s ? " " : "") << r.inUse << ':' << r.ownerPid << ':'
            << (r.serial[0] ? r.serial : "-") << ':' << r.address;
    }
    return out.str();
}

void Reply(const std::string& line) {
    std::cout << line << std::endl;
}

}  // namespace

int main() {
    if (!tableView) {
        Reply("no-table");
        return 1;
    }
    Reply("ready " + std::to_string(platform::CurrentProcessId()));
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream in(line);
        std::string command;
        in >> command;
        if (command == "exit") {
            Reply("bye");
            return 0;
        } else if (command == "set-timeout") {
            int value = 0;
            in >> value;
            Reply(std::to_string(QV_SetSysTimeOut(value)));
        } else if (command == "timed-set-timeout") {
            // How long one entry frame took, and what it returned.
            int value = 0;
            in >> value;
            const auto start = std::chrono::steady_clock::now();
            const int rc = QV_SetSysTimeOut(value);
            const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                                std::chrono::steady_clock::now() - start)
                                .count();
            Reply(std::to_string(rc) + " " + std::to_string(ms));
        } else if (command == "spin") {
            // Calls an export that takes the lock, back to back, for the given
            // milliseconds: load from a second process for the benchmarks.
            int ms = 0;
            in >> ms;
            Reply("spinning");
            const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
            long calls = 0;
            while (std::chrono::steady_clock::now() < end) {
                for (int i = 0; i < 1000; ++i) QV_SetSysTimeOut(500);
                calls += 1000;
            }
            Reply(std::to_string(calls));
        } else if (command == "init") {
            std::string serial;
            in >> serial;
            Reply(std::to_string(QV_InitializeSensor_SN(serial.c_str())));
        } else if (command == "uninit") {
            std::string serial;
            in >> serial;
            Reply(std::to_string(QV_UninitializeSensor_SN(serial.c_str())));
        } else if (command == "list") {
            // "rc index:address:serial ..."
            SensorListEntry list[kSlotCount + 8] = {};
            const int n = QV_SensorCnt();
            const int rc = QV_SensorList(list, kSlotCount + 8);
            std::ostringstream out;
            out << rc;
            for (int i = 0; i < n && i < kSlotCount + 8; ++i)
                out << ' ' << list[i].DeviceIndex << ':' << list[i].Address << ':'
                    << list[i].SerialNumber;
            Reply(out.str());
        } else if (command == "address-idx") {
            int index = 0;
            in >> index;
            Reply(std::to_string(QV_GetAddress_Idx(index)));
        } else if (command == "serial-idx") {
            int index = 0;
            in >> index;
            char serial[7] = {};
            const int rc = QV_GetSerNo_Idx(index, serial);
            Reply(std::to_string(rc) + " " + serial);
        } else if (command == "model-idx") {
            int index = 0;
            in >> index;
            int32_t model = 0;
            const int rc = QV_GetModelNumber_Idx(index, &model);
            Reply(std::to_string(rc) + " " + std::to_string(model));
        } else if (command == "due") {
            std::string serial;
            in >> serial;
            int32_t y = 0, m = 0, d = 0;
            Reply(std::to_string(QV_GetCalDueDate(serial.c_str(), &y, &m, &d)));
        } else if (command == "in-use-idx") {
            int index = 0;
            in >> index;
            Reply(std::to_string(QV_IsDeviceInUse_Idx(index)) + " " +
                  std::to_string(QV_IsDeviceMine_Idx(index)));
        } else if (command == "version") {
            Reply(std::to_string(QV_DriverVersion()));
        } else if (command == "state") {
            // Read without the lock on purpose: it must answer even while
            // another process holds it.
            std::ostringstream out;
            out << "timeout=" << tableView->sysTimeOut << " attach=" << tableView->attachCount
                << " first=" << tableView->firstLoadDone;
            Reply(out.str());
        } else if (command == "slots") {
            Reply(DescribeSlots());
        } else if (command == "claim") {
            std::string serial;
            int address = 0;
            in >> serial >> address;
            Reply(std::to_string(Enter([&] { return ClaimSlot(serial, address); })));
        } else if (command == "write-ini-loop") {
            // Writes the sensor's state file the given number of times; how
            // many of the writes did not return 1.
            int address = 0, count = 0;
            in >> address >> count;
            int failures = 0;
            for (int i = 0; i < count; ++i) failures += QV_WriteStateToINI(address) != 1;
            Reply(std::to_string(failures));
        } else if (command == "save-forever") {
            // Writes the sensor's state file, a large one whose values change
            // each time, until killed; "saved" after each write.
            int address = 0;
            in >> address;
            for (int i = 1;; ++i) {
                Enter([&] {
                    const int slot = GetInUseSlotByAddress(address);
                    if (slot < 0) return -1;
                    Slot(slot).current.NumberOfResponsePoints = QV_RESPONSE_POINTS;
                    Slot(slot).current.Averages = i;
                    return 1;
                });
                Reply(QV_WriteStateToINI(address) == 1 ? "saved" : "failed");
            }
        } else if (command == "cache-forever") {
            // Initialises the sensor from the sensor itself again and again,
            // each time writing its calibration cache anew, until killed.
            std::string serial;
            in >> serial;
            for (;;) {
                QV_UninitializeSensor_SN(serial.c_str());
                platform::RemoveFile(CalCachePath(serial.c_str()));
                Reply(QV_InitializeSensor_SN(serial.c_str()) >= 1 ? "cached" : "failed");
            }
        } else if (command == "limit-file-size") {
            // As on a full disk: no file may grow beyond the given bytes.
            long bytes = 0;
            in >> bytes;
            Reply(test::LimitFileSize(bytes) ? "1" : "0");
        } else if (command == "read-ini") {
            int address = 0;
            in >> address;
            Reply(std::to_string(QV_ReadStateFromINI(address)));
        } else if (command == "measure-cw") {
            // CW readings with the given averages: how many failed, and
            // the mean of those that did not.
            int address = 0, averages = 1, count = 0;
            in >> address >> averages >> count;
            int failures = QV_SetAverages(address, averages) != 1;
            double sum = 0;
            for (int i = 0; i < count; ++i) {
                double reading = 0;
                if (QV_MeasureCW(address, &reading) == 1) sum += reading;
                else ++failures;
            }
            const int good = count - failures;
            Reply(std::to_string(failures) + " " + std::to_string(good > 0 ? sum / good : 0.0));
        } else if (command == "hold") {
            // Takes the lock and keeps it for the given milliseconds (forever
            // when 0): the lock is then held by a live, or later killed, process.
            int ms = 0;
            in >> ms;
            frame::LockScope lock;
            if (!lock.Acquired()) {
                Reply("not-acquired");
                continue;
            }
            Reply("holding");
            if (ms == 0) {
                for (;;) platform::SleepMs(60000);
            }
            platform::SleepMs(static_cast<std::uint32_t>(ms));
            Reply("released");
        } else {
            Reply("unknown " + command);
        }
    }
    return 0;
}
