#include "qvpower_trace.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <map>
#include <vector>

#include <nlohmann/json.hpp>

#include "qv_api2.h"
#include "qvpower_calls.h"
#include "qvpower_sensors.h"

namespace qvpower {

namespace {

const std::map<std::string, int> kTriggerSources{{"auto", 0}, {"level", 1}, {"ttl", 2}};
const std::map<std::string, int> kEdges{{"rising", 0}, {"falling", 1}};

// Progress is for a person watching: only on a terminal, and only where a run
// takes long enough to wonder about (long sweeps, averaging, many traces).
class Progress {
public:
    Progress(int total, bool worthShowing) : total_(total), shown_(worthShowing && isatty(2) == 1) {}
    void Step(int done) const {
        if (shown_) std::fprintf(stderr, "\rqvpower: trace %d of %d", done, total_);
    }
    ~Progress() {
        if (shown_) std::fprintf(stderr, "\r%40s\r", "");
    }

private:
    int total_;
    bool shown_;
};

void Set(const char* name, std::int32_t code, std::int32_t address, double value) {
    Expect(name, code, Arguments(address, value));
}

}  // namespace

void AddTraceOptions(CLI::App* command, TraceOptions& o) {
    command->add_option("SENSOR", o.sensor, "serial number, or address as @5")->required();
    AddTraceSettings(command, o);
    command->add_option("-n,--count", o.count, "number of traces written (default 1)")
        ->type_name("N")
        ->check(CLI::PositiveNumber.description(""));
    command->add_flag("--json", o.json, "one JSON object per trace: time_s and power arrays");
}

void AddTraceSettings(CLI::App* command, TraceOptions& o) {
    command->add_option("-f,--frequency", o.frequencyHz, "measurement frequency in Hz (default 1e9)")
        ->type_name("HZ");
    command->add_option("-t,--sweep-time", o.sweepUsec,
                        "sweep time: 10 20 50 100 200 500 1000 2000 5000 10000 20000 50000 100000 200000 "
                        "500000 1000000 (default 1000)")
        ->type_name("US")
        ->check(CLI::IsMember({10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000, 50000, 100000,
                               200000, 500000, 1000000}).description(""));
    command->add_option("-d,--delay", o.delayUsec,
                        "start the trace this long after the trigger: 0..10000, or ..4999000 for sweeps of 20 ms and more")
        ->type_name("US");
    command->add_flag("--undersampling", o.undersampling, "20, 50 and 100 ms sweeps at the 2 us base rate");
    command->add_option("--trigger", o.trigger, "auto (level found from the signal, default), level, ttl")
        ->check(CLI::IsMember({"auto", "level", "ttl"}).description(""));
    command->add_option("-l,--level", o.levelDbm, "trigger level of --trigger level, -200..200 dBm (default -30)")
        ->type_name("DBM")
        ->check(CLI::Range(-200.0, 200.0).description(""));
    command->add_option("--edge", o.edge, "trigger edge: rising (default), falling")
        ->check(CLI::IsMember({"rising", "falling"}).description(""));
    command->add_option("-a,--averages", o.averages, "traces averaged into each one written, 1..100 (default 1)")
        ->type_name("N")
        ->check(CLI::Range(1, 100).description(""));
    command->add_option("--filter", o.filter,
                        "video bandwidth: 1 100 kHz, 2 200 kHz, 3 300 kHz, 4 500 kHz, 5 1 MHz, 6 2 MHz, 7 3 MHz, "
                        "8 5 MHz, 9 none (default)")
        ->type_name("CODE")
        ->check(CLI::Range(1, 9).description(""));
    command->add_option("--poles", o.poles, "filter poles: 0 one, 1 two, 2 four (default 0)")
        ->type_name("P")
        ->check(CLI::Range(0, 2).description(""));
}

void ApplyTraceSettings(std::int32_t a, const TraceOptions& o) {
    Set("PP_SetSweepTime", PP_SetSweepTime(a, o.sweepUsec), a, o.sweepUsec);
    Set("PP_SetSweepDelayMode", PP_SetSweepDelayMode(a, o.delayUsec ? 1 : 0), a, o.delayUsec ? 1 : 0);
    if (o.delayUsec) Set("PP_SetSweepDelay", PP_SetSweepDelay(a, *o.delayUsec), a, *o.delayUsec);
    Set("PP_SetUndersampling20ms_50ms_100ms", PP_SetUndersampling20ms_50ms_100ms(a, o.undersampling), a,
        o.undersampling);
    const int source = kTriggerSources.at(o.trigger), edge = kEdges.at(o.edge);
    Set("PP_SetTriggerSoure", PP_SetTriggerSoure(a, source), a, source);
    Set("PP_SetTriggerLevel", PP_SetTriggerLevel(a, o.levelDbm), a, o.levelDbm);
    Set("PP_SetTriggerEdge", PP_SetTriggerEdge(a, edge), a, edge);
    Set("PP_SetFilter", PP_SetFilter(a, o.filter), a, o.filter);
    Set("PP_SetPoles", PP_SetPoles(a, o.poles), a, o.poles);
    // Each trace written is a fresh average of its own traces.
    Set("PP_SetAvgMode", PP_SetAvgMode(a, 2), a, 2);
    Set("PP_SetTraceAvgs", PP_SetTraceAvgs(a, o.averages), a, o.averages);
}

int RunTrace(const TraceOptions& o) {
    const SensorName name = FindSensor(o.sensor);
    OwnedSensor owned(name);
    MeasureSettings settings;
    settings.frequencyHz = o.frequencyHz;
    owned.Apply(settings);
    const std::int32_t a = name.address;
    ApplyTraceSettings(a, o);

    const std::int32_t length = PP_GetTraceLength(a);
    if (length <= 0) Expect("PP_GetTraceLength", length, Arguments(a), 10000);
    std::vector<double> trace(static_cast<std::size_t>(length));
    std::vector<double> time(trace.size());
    const double start = o.delayUsec ? *o.delayUsec * 1e-6 : 0.0;
    for (std::int32_t k = 0; k < length; ++k)
        time[k] = start + k * o.sweepUsec * 1e-6 / (length > 1 ? length - 1 : 1);

    const int total = o.count * o.averages;
    Progress progress(total, o.sweepUsec >= 100000 || total > 10);
    if (!o.json) std::cout << "# power in dBm\ntime_s,power\n";
    for (int n = 1; n <= o.count; ++n) {
        Expect("PP_ResetTraceAveraging", PP_ResetTraceAveraging(a), Arguments(a));
        for (int i = 1; i <= o.averages; ++i) {
            std::int32_t got = 0;
            Expect("PP_GetTrace", PP_GetTrace(a, trace.data(), length, &got),
                   Arguments(a, Out{"trace"}, length, Out{"count"}));
            progress.Step((n - 1) * o.averages + i);
        }
        if (o.json) {
            std::cout << nlohmann::ordered_json{{"sensor", name.serial}, {"address", a}, {"trace", n},
                                                {"sweep_time_s", o.sweepUsec * 1e-6}, {"unit", "dBm"},
                                                {"time_s", time}, {"power", trace}}
                             .dump()
                      << "\n";
        } else {
            if (n > 1) std::cout << "\n";
            for (std::int32_t k = 0; k < length; ++k)
                std::cout << nlohmann::json(time[k]).dump() << "," << nlohmann::json(trace[k]).dump() << "\n";
        }
        std::cout.flush();
    }
    owned.Release();
    return 0;
}

}  // namespace qvpower
