#include "qvpower_doctor.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <vector>

#include <nlohmann/json.hpp>

#include "qvpower_calls.h"
#include "qvpower_os.h"
#include "qvpower_sensors.h"

namespace qvpower {

namespace {

using json = nlohmann::ordered_json;
namespace fs = std::filesystem;

const std::vector<std::string> kDriverFunctions = {
    "QV_USBDRVD_GetDevCount", "QV_USBDRVD_GetDevicePath", "QV_USBDRVD_OpenDevHandle",
    "QV_USBDRVD_CloseDevHandle", "QV_USBDRVD_OpenWinUSBHandle", "QV_USBDRVD_CloseWinUSBHandle",
    "QV_USBDRVD_GetStringDescriptorLengthA", "QV_USBDRVD_GetStringDescriptorA",
    "QV_USBDRVD_VendorOrClassRequestOut", "QV_USBDRVD_VendorOrClassRequestIn",
    "QV_USBDRVD_PipeReadTimeout", "QV_USBDRVD_PipeWriteTimeout"};

struct DirectoryCheck {
    bool exists = false;
    bool writable = false;
    std::string reason;  // why not writable
};

// Writable as the library needs it: a file can be made in the directory, or
// in its nearest existing ancestor when it is still to be made. Tried with a
// file that is removed at once; nothing else is touched.
DirectoryCheck CheckDirectory(const fs::path& dir) {
    DirectoryCheck check;
    std::error_code error;
    check.exists = fs::is_directory(dir, error);
    fs::path probe = dir;
    while (!fs::exists(probe, error) && probe.has_parent_path() && probe != probe.parent_path())
        probe = probe.parent_path();
    if (!fs::is_directory(probe, error)) {
        check.reason = probe.string() + " is not a directory";
        return check;
    }
    const fs::path file = probe / ("qvpower-doctor-" + std::to_string(std::random_device{}()) + ".tmp");
    {
        std::ofstream out(file, std::ios::binary);
        check.writable = out.good() && (out << "x").good();
    }
    if (!check.writable) check.reason = "no file can be made in " + probe.string();
    fs::remove(file, error);
    return check;
}

std::string FrequencyText(double hz) {
    char text[32];
    if (hz >= 1e9) std::snprintf(text, sizeof text, "%g GHz", hz / 1e9);
    else std::snprintf(text, sizeof text, "%g MHz", hz / 1e6);
    return text;
}

struct SensorReport {
    ListedSensor listed;
    SensorInfo info;
    std::string due;       // 2027-03-31, or empty
    std::string dueState;  // "set", "erased", "unreadable"
};

std::string DueText(const SensorReport& s) {
    if (s.dueState == "set") return s.due;
    if (s.dueState == "erased") return "erased (no date stored)";
    return "unreadable";
}

}  // namespace

int RunDoctor(bool asJson) {
    const std::string driverFile = DriverFile();
    const DriverProbe driver = ProbeDriver(driverFile, kDriverFunctions);
    const bool driverOk = driver.loaded && driver.missing.empty();
    const char* busEnv = std::getenv("QV_SIM_BUS");
    const std::string bus = busEnv ? busEnv : "";
    std::error_code error;
    const bool busExists = !bus.empty() && fs::is_regular_file(bus, error);
    const std::string dataDir = DataDirectory();
    const DirectoryCheck data = CheckDirectory(dataDir);

    std::vector<SensorReport> sensors;
    std::string listFailure;
    if (driverOk) {
        try {
            for (const ListedSensor& listed : ListSensors()) {
                SensorReport s{listed, {}, {}, {}};
                const std::int32_t index = listed.index < 0 ? -listed.index : listed.index;
                s.info = ReadSensorInfo({listed.serial, listed.address, index});
                s.info.owner = listed.owner;
                if (s.info.dueYear) {
                    char text[16];
                    std::snprintf(text, sizeof text, "%04d-%02d-%02d", *s.info.dueYear, *s.info.dueMonth,
                                  *s.info.dueDay);
                    s.due = text;
                }
                s.dueState = !s.info.dueDateRead ? "unreadable" : s.due.empty() ? "erased" : "set";
                sensors.push_back(std::move(s));
            }
        } catch (const ExportFailure& failure) {
            listFailure = failure.Message();
        }
    }

    if (asJson) {
        json sensorList = json::array();
        for (const SensorReport& s : sensors) {
            const ModelInfo& model = Model(s.info.model);
            sensorList.push_back({{"serial", s.listed.serial},
                                  {"address", s.listed.address},
                                  {"model", s.info.model},
                                  {"model_name", model.name},
                                  {"min_frequency_hz", kMinFrequencyHz},
                                  {"max_frequency_hz", model.maxFrequencyHz},
                                  {"cal_due", s.due.empty() ? json(nullptr) : json(s.due)},
                                  {"cal_due_state", s.dueState},
                                  {"owner", OwnerText(s.info.owner)}});
        }
        json out{{"driver", {{"file", driverFile}, {"loaded", driver.loaded},
                             {"reason", driver.reason.empty() ? json(nullptr) : json(driver.reason)},
                             {"missing_functions", driver.missing}}},
                 {"bus_file", bus.empty() ? json(nullptr) : json{{"path", bus}, {"exists", busExists}}},
                 {"data_directory", {{"path", dataDir}, {"exists", data.exists}, {"writable", data.writable},
                                     {"reason", data.reason.empty() ? json(nullptr) : json(data.reason)}}},
                 {"sensors", sensorList},
                 {"error", listFailure.empty() ? json(nullptr) : json(listFailure)}};
        std::cout << out.dump() << "\n";
    } else {
        std::printf("driver library   %s\n", driverFile.c_str());
        if (!driver.loaded) {
            std::printf("                 not loaded: %s\n", driver.reason.c_str());
            std::printf("                 set QV_USBDRVD to the driver library's path\n");
        } else if (!driver.missing.empty()) {
            std::printf("                 loaded, but not used: it lacks %s", driver.missing[0].c_str());
            for (std::size_t i = 1; i < driver.missing.size(); ++i) std::printf(", %s", driver.missing[i].c_str());
            std::printf("\n");
        } else {
            std::printf("                 loaded, all %zu functions present\n", kDriverFunctions.size());
        }
        if (bus.empty()) std::printf("bus file         QV_SIM_BUS not set (needed for simulated sensors only)\n");
        else std::printf("bus file         %s (%s)\n", bus.c_str(), busExists ? "exists" : "missing: qvsim create makes it");
        const std::string state = !data.writable ? "not writable: " + data.reason
                                  : data.exists  ? "writable"
                                                 : "writable, made at the first write";
        std::printf("data directory   %s (%s)\n", dataDir.c_str(), state.c_str());
        if (!driverOk) std::printf("sensors          not listed without a driver library\n");
        else if (!listFailure.empty()) std::printf("sensors          %s\n", listFailure.c_str());
        else std::printf("sensors          %zu\n", sensors.size());
        for (const SensorReport& s : sensors) {
            const ModelInfo& model = Model(s.info.model);
            std::printf("  %-8s @%-4d %-20s %s to %-9s cal due %-24s owner %s\n", s.listed.serial.c_str(),
                        s.listed.address, model.name, FrequencyText(kMinFrequencyHz).c_str(),
                        FrequencyText(model.maxFrequencyHz).c_str(), DueText(s).c_str(), OwnerText(s.info.owner));
        }
    }
    return driverOk && data.writable && listFailure.empty() ? 0 : 1;
}

int RunExplain(std::int32_t code, const std::optional<std::string>& exportName, bool asJson) {
    if (exportName && !KnownExport(*exportName)) {
        std::cerr << "qvpower: unknown export " << *exportName << "\n";
        return 2;
    }
    const std::vector<CodeEntry> all = CodeMeanings(code);
    std::vector<CodeEntry> entries = all;
    bool known = !all.empty();
    if (exportName) {
        // The export's own meaning, else the general one: what CodeMeaning says.
        known = false;
        for (const CodeEntry& e : all) known = known || e.exportName.empty() || e.exportName == *exportName;
        entries = {{*exportName, CodeMeaning(*exportName, code)}};
    }
    if (asJson) {
        json list = json::array();
        for (const CodeEntry& e : entries)
            list.push_back({{"export", e.exportName.empty() ? json(nullptr) : json(e.exportName)},
                            {"meaning", e.meaning}});
        std::cout << json{{"code", code}, {"meanings", list}}.dump() << "\n";
    } else if (entries.empty()) {
        std::cout << code << ": no export is documented to return this code\n";
    } else {
        for (const CodeEntry& e : entries)
            std::cout << code << (e.exportName.empty() ? std::string(" in general") : " from " + e.exportName) << ": "
                      << e.meaning << "\n";
    }
    return known ? 0 : 1;
}

}  // namespace qvpower
