// The fault campaign: every fault the simulated bus can raise at every step of
// initialisation, measurement and sweeps. The faults come from what a clean run
// of the same call sent: each vendor request it made fails, comes back empty or
// (IN) without its echo, each pipe it read times out or comes short, and the
// sensor is unplugged before the first and the last of each run of equal
// control requests. Each time the call must answer one of its own codes, the
// table must stay consistent, and once the fault is gone (the sensor plugged
// back in) the next call must succeed. Prints a line per call and per problem;
// exits 0 when there was none.
//
//   qv_test_env qv_fault_campaign [--every N]
// --every N keeps only every Nth unplug step (a shorter run where starting a
// call costs more, as under Wine).
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "frame/lookups.h"
#include "frame/shared_table.h"
#include "platform/platform.h"
#include "qv_api2.h"
#include "sim/qvsim.h"

namespace qv {
namespace {
constexpr const char* kSerial = "FLT001";
constexpr int kAddress = 7;

std::int32_t Initialise() { return QV_InitializeSensor_SN(kSerial); }
std::int32_t MeasureCw() {
    double reading = 0;
    return QV_MeasureCW(kAddress, &reading);
}
std::int32_t Trace() {
    std::vector<double> trace(10000);
    std::int32_t count = 0;
    return PP_GetTrace(kAddress, trace.data(), PP_GetTraceLength(kAddress), &count);
}
std::int32_t AntiAliasing() { return QV_SetAntiAliasingEnabled(kAddress, 1); }

struct Scenario {
    const char* name;
    std::int32_t (*call)();
    std::set<std::int32_t> codes;  // what the call may answer; 1 is success
    bool initialised;              // the sensor is ours before the call
    bool fromSensor;               // no calibration cache: the image is read from the sensor
    bool reinitialise;             // a refusal ends the sensor's use until it is initialised again
};

const Scenario kScenarios[] = {
    {"InitialiseFromSensor", Initialise, {1, -1}, false, true, false},
    {"InitialiseFromCache", Initialise, {1, -1}, false, false, false},
    {"MeasureCw", MeasureCw, {1, -1, -13}, true, false, false},
    {"Trace", Trace, {1, -1, -6, -7, -10, -11, -12, -13, -14, -100, -101, -102, -104, -105, -107},
     true, false, false},
    {"AntiAliasing", AntiAliasing, {1, -1}, true, false, true},
};

struct Fault {
    qvsim_fault rule;
    std::string text;
};

int g_problems = 0;
int g_unplugEvery = 1;

// Reports a problem with the fault that caused it.
template <typename... Args>
void Problem(const std::string& fault, const char* format, Args... args) {
    ++g_problems;
    std::printf("  %s: ", fault.c_str());
    std::printf(format, args...);
    std::printf("\n");
}

class Campaign {
public:
    bool SetUp() {
        if (qvsim_bus_create(nullptr) != QVSIM_OK) return false;
        for (int s = 0; s < kSlotCount; ++s) {
            ResetDeviceRecord(s);
            Slot(s).ownerPid = 0;
        }
        id_ = Add(kSerial, kAddress);
        other_ = Add("FLT002", kAddress + 1);  // a bystander that must not be disturbed
        return id_ >= 0 && other_ >= 0 && QV_SetSysTimeOut(1000) == 1;
    }

    // Runs every fault of the scenario; the number of faults.
    std::size_t Run(const Scenario& s) {
        const std::vector<Fault> faults = FaultsOf(s);
        std::set<std::int32_t> answered;
        int secondCall = 0;
        for (const Fault& f : faults) {
            if (!Arrange(s)) Problem(f.text, "could not arrange the scenario");
            qvsim_add_fault(id_, &f.rule);
            const std::int32_t rc = s.call();
            answered.insert(rc);
            if (!s.codes.count(rc)) Problem(f.text, "answered %d", rc);
            qvsim_clear_faults(id_);  // the listing talks to the sensor too
            CheckTable(f.text);

            if (!Plugged(id_)) qvsim_sensor_replug(id_);
            if (rc != 1 && s.reinitialise) {
                QV_UninitializeSensor_SN(kSerial);
                Initialise();
            }
            // A sensor unplugged in a call's last requests is noticed at the
            // next one, which gives up its dead handles: the call after that
            // succeeds.
            std::int32_t next = s.call();
            if (next != 1 && f.rule.kind == QVSIM_FAULT_UNPLUG) {
                ++secondCall;
                next = s.call();
            }
            if (next != 1) Problem(f.text, "answered %d after the fault was gone", next);
            CheckTable(f.text);
        }
        std::string codes;
        for (std::int32_t c : answered) codes += " " + std::to_string(c);
        std::printf("%s: %zu faults injected, answers%s; %d recovered at the second call\n", s.name,
                    faults.size(), codes.c_str(), secondCall);
        return faults.size();
    }

private:
    static int Add(const char* serial, int address) {
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        config.serial = serial;
        config.address = address;
        return qvsim_sensor_add(&config);
    }
    static bool Plugged(int id) {
        qvsim_sensor_info info {};
        return qvsim_sensor_info_get(id, &info) == QVSIM_OK && info.plugged;
    }

    // Puts the sensor back where the scenario starts from, without faults.
    bool Arrange(const Scenario& s) {
        qvsim_clear_faults(id_);
        if (!Plugged(id_) && qvsim_sensor_replug(id_) != QVSIM_OK) return false;
        if (!s.initialised && !s.fromSensor) Initialise();  // leaves the cache behind
        QV_UninitializeSensor_SN(kSerial);  // every run starts from a fresh initialisation
        std::error_code error;
        if (s.fromSensor) std::filesystem::remove_all(platform::DataDirectory(), error);
        if (s.initialised && (Initialise() != 1 || PP_SetSweepTime(kAddress, 10) != 1 ||
                              PP_SetTriggerSoure(kAddress, 0) != 1))
            return false;
        qvsim_transcript_clear(id_);
        return true;
    }

    // The faults a clean run of the call invites.
    std::vector<Fault> FaultsOf(const Scenario& s) {
        if (!Arrange(s)) Problem(s.name, "could not arrange the scenario");
        const std::int32_t clean = s.call();
        if (clean != 1) Problem(s.name, "the clean run answered %d", clean);
        // Unplugging matters where the conversation moves on: at the first and
        // the last of each run of the same request (the image is read by a
        // thousand and more of one request), not at every one in between.
        std::set<std::pair<int, int>> seen;
        std::vector<int> unplugAt;
        std::vector<qvsim_transfer> t(QVSIM_TRANSCRIPT_ENTRIES);
        const int n = qvsim_transcript_read(id_, 0, t.data(), static_cast<int>(t.size()));
        std::vector<const qvsim_transfer*> controls;
        for (int i = 0; i < n; ++i) {
            seen.insert({t[i].kind, t[i].code});
            if (t[i].kind == QVSIM_XFER_IN || t[i].kind == QVSIM_XFER_OUT) controls.push_back(&t[i]);
        }
        auto same = [&](std::size_t a, std::size_t b) {
            return controls[a]->kind == controls[b]->kind && controls[a]->code == controls[b]->code;
        };
        for (std::size_t i = 0; i < controls.size(); ++i) {
            if (i == 0 || i + 1 == controls.size() || !same(i, i - 1) || !same(i, i + 1))
                unplugAt.push_back(static_cast<int>(i));
        }
        std::vector<Fault> faults;
        auto add = [&](int kind, int code, int arg, int skip, std::string text) {
            faults.push_back({{kind, code, skip, skip ? 1 : QVSIM_ALWAYS, arg}, std::move(text)});
        };
        for (const auto& [kind, code] : seen) {
            const std::string c = std::to_string(code);
            if (kind == QVSIM_XFER_IN || kind == QVSIM_XFER_OUT) {
                add(QVSIM_FAULT_REQUEST_FAILS, code, 0, 0, "request " + c + " fails");
                add(QVSIM_FAULT_REQUEST_EMPTY, code, 0, 0, "request " + c + " moves nothing");
            }
            if (kind == QVSIM_XFER_IN) add(QVSIM_FAULT_NO_ECHO, code, 0, 0, "request " + c + " not echoed");
            if (kind == QVSIM_XFER_PIPE_READ) {
                add(QVSIM_FAULT_PIPE_TIMEOUT, code, 0, 0, "pipe " + c + " times out");
                add(QVSIM_FAULT_PIPE_SHORT, code, 100, 0, "pipe " + c + " comes short");
            }
        }
        for (std::size_t k = 0; k < unplugAt.size(); k += static_cast<std::size_t>(g_unplugEvery)) {
            const int step = unplugAt[k];
            faults.push_back({{QVSIM_FAULT_UNPLUG, 0, step, 1, 0},
                              "unplugged at control request " + std::to_string(step)});
        }
        return faults;
    }

    // No slot of a process that is not running, at most one per sensor, a
    // listing that works and counts the plugged sensors, the bystander untouched.
    void CheckTable(const std::string& fault) {
        int mine = 0;
        for (int s = 0; s < kSlotCount; ++s) {
            const DeviceRecord& r = Slot(s);
            if (!r.inUse) continue;
            if (r.ownerPid != platform::CurrentProcessId()) Problem(fault, "slot %d owned by %u", s, r.ownerPid);
            mine += std::string(r.serial) == kSerial;
        }
        if (mine > 1) Problem(fault, "%d slots for one sensor", mine);
        SensorListEntry list[4] {};
        if (QV_SensorList(list, 4) != 1) Problem(fault, "the listing failed");
        if (QV_SensorCnt() != (Plugged(id_) ? 2 : 1)) Problem(fault, "the count is %d", QV_SensorCnt());
        qvsim_sensor_info info {};
        qvsim_sensor_state state {};
        qvsim_sensor_info_get(other_, &info);
        qvsim_sensor_state_get(other_, &state);
        if (info.open_handles != 0 || state.led_toggles != 0) Problem(fault, "the bystander was disturbed");
    }

    int id_ = -1;
    int other_ = -1;
};

}  // namespace
}  // namespace qv

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[1]) == "--every") qv::g_unplugEvery = std::max(1, std::atoi(argv[2]));
    qv::Campaign campaign;
    if (!campaign.SetUp()) {
        std::fprintf(stderr, "qv_fault_campaign: no simulated bus (run it through qv_test_env)\n");
        return 1;
    }
    std::size_t faults = 0;
    for (const qv::Scenario& s : qv::kScenarios) faults += campaign.Run(s);
    std::printf("%zu faults injected, %d problems\n", faults, qv::g_problems);
    return qv::g_problems == 0 ? 0 : 1;
}
