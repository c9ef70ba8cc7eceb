// qvpower: lists the power sensors on the bus, tells what a sensor is, and
// takes CW and pulse readings, for people (text) and for programs (--json,
// --csv). It uses the library's public exports only, as any application would.
//
// Exit codes: 0 done, 1 an export refused (its name, call, code and what the
// code means go to standard error), 2 usage error.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "qv_api2.h"
#include "qvpower_calls.h"
#include "qvpower_sensors.h"
#include "qvpower_analyse.h"
#include "qvpower_doctor.h"
#include "qvpower_trace.h"
#include "qvpower_os.h"

using namespace qvpower;
// Keys stay in the order written: readings read naturally, also by eye.
using json = nlohmann::ordered_json;

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

enum class Format { Text, Json, Csv };

// --json and --csv, offered by every command that prints results.
struct FormatFlags {
    bool json = false;
    bool csv = false;
    Format format() const { return json ? Format::Json : csv ? Format::Csv : Format::Text; }
};

void AddFormatFlags(CLI::App* command, FormatFlags& flags) {
    CLI::Option* json = command->add_flag("--json", flags.json, "one JSON object per line");
    CLI::Option* csv = command->add_flag("--csv", flags.csv, "comma-separated values with a header line");
    json->excludes(csv);
}

void AddSensorArgument(CLI::App* command, std::string& sensor) {
    command->add_option("SENSOR", sensor, "serial number, or address as @5")
        ->required()
        ->check([](const std::string& text) -> std::string {
            try {
                ParseAddress(text);
            } catch (const std::invalid_argument& e) {
                return e.what();
            }
            return {};
        });
}

// Set by Ctrl-C: a run of readings ends after the reading under way, and the
// sensor is released as on any other end.
volatile std::sig_atomic_t interrupted = 0;
void OnInterrupt(int) { interrupted = 1; }

std::string Printf(const char* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string FrequencyText(double hz) {
    if (hz >= 1e9) return Printf("%g GHz", hz / 1e9);
    if (hz >= 1e6) return Printf("%g MHz", hz / 1e6);
    if (hz >= 1e3) return Printf("%g kHz", hz / 1e3);
    return Printf("%g Hz", hz);
}

// Logarithmic units to the milli-dB; watts and volts to six significant digits.
std::string PowerText(double value, std::int32_t unit) {
    const bool linear = unit == QV_UNIT_W || unit == QV_UNIT_V;
    return Printf(linear ? "%.6g" : "%.3f", value) + " " + UnitName(unit);
}

std::string CsvField(const std::string& text) {
    if (text.find_first_of(",\"\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

json NullOr(const std::string& text) { return text.empty() ? json(nullptr) : json(text); }

// Numbers in CSV as in JSON: shortest text that reads back to the same double.
std::string Number(double value) { return json(value).dump(); }

// ---------------------------------------------------------------- list

int RunList(Format format) {
    const std::vector<ListedSensor> sensors = ListSensors();
    if (sensors.empty()) {
        const std::string hint = UsbAccessHint();
        if (!hint.empty()) std::cerr << "qvpower: " << hint << "\n";
    }
    if (format == Format::Csv) std::cout << "index,serial,address,model,model_name,owner\n";
    if (format == Format::Text) {
        if (sensors.empty()) std::cout << "no sensors on the bus\n";
        else std::printf("%-6s %-8s %-8s %-20s %s\n", "index", "serial", "address", "model", "owner");
    }
    for (const ListedSensor& s : sensors) {
        const ModelInfo& model = Model(s.model);
        switch (format) {
        case Format::Text:
            std::printf("%-6d %-8s %-8d %-20s %s\n", s.index, s.serial.c_str(), s.address, model.name,
                        OwnerText(s.owner));
            break;
        case Format::Json:
            std::cout << json{{"index", s.index}, {"serial", s.serial}, {"address", s.address},
                              {"model", s.model}, {"model_name", model.name}, {"owner", OwnerText(s.owner)}}
                             .dump()
                      << "\n";
            break;
        case Format::Csv:
            std::cout << s.index << "," << CsvField(s.serial) << "," << s.address << "," << s.model << ","
                      << CsvField(model.name) << "," << OwnerText(s.owner) << "\n";
            break;
        }
    }
    return kExitOk;
}

// ---------------------------------------------------------------- info

int RunInfo(const std::string& sensor, Format format) {
    const SensorInfo info = ReadSensorInfo(FindSensor(sensor));
    const ModelInfo& model = Model(info.model);
    std::string due;
    if (info.dueYear) {
        char text[16];
        std::snprintf(text, sizeof text, "%04d-%02d-%02d", *info.dueYear, *info.dueMonth, *info.dueDay);
        due = text;
    }
    switch (format) {
    case Format::Text:
        std::printf("serial        %s\n", info.name.serial.c_str());
        std::printf("address       %d\n", info.name.address);
        std::printf("device index  %d\n", info.name.index);
        std::printf("model         %s (model code %d)\n", model.name, info.model);
        std::printf("frequency     %s to %s\n", FrequencyText(kMinFrequencyHz).c_str(),
                    FrequencyText(model.maxFrequencyHz).c_str());
        std::printf("firmware      %s\n", info.firmware.empty() ? "unavailable" : info.firmware.c_str());
        std::printf("cal due date  %s\n", !info.dueDateRead ? "unavailable" : due.empty() ? "not set" : due.c_str());
        std::printf("owner         %s\n", OwnerText(info.owner));
        break;
    case Format::Json:
        std::cout << json{{"serial", info.name.serial},
                          {"address", info.name.address},
                          {"index", info.name.index},
                          {"model", info.model},
                          {"model_name", model.name},
                          {"min_frequency_hz", kMinFrequencyHz},
                          {"max_frequency_hz", model.maxFrequencyHz},
                          {"firmware", NullOr(info.firmware)},
                          {"cal_due", NullOr(due)},
                          {"owner", OwnerText(info.owner)}}
                         .dump()
                  << "\n";
        break;
    case Format::Csv:
        std::cout << "serial,address,index,model,model_name,min_frequency_hz,max_frequency_hz,firmware,"
                     "cal_due,owner\n"
                  << CsvField(info.name.serial) << "," << info.name.address << "," << info.name.index << ","
                  << info.model << "," << CsvField(model.name) << "," << Number(kMinFrequencyHz) << ","
                  << Number(model.maxFrequencyHz) << "," << CsvField(info.firmware) << "," << due << ","
                  << OwnerText(info.owner) << "\n";
        break;
    }
    // What could be read is shown; each field that could not be is a failure.
    for (const std::string& failure : info.failures) std::cerr << "qvpower: " << failure << "\n";
    return info.failures.empty() ? kExitOk : kExitFailed;
}

// ---------------------------------------------------------------- measure

enum class Kind { Cw, Pulse };

struct MeasureOptions {
    std::string sensor;
    MeasureSettings settings;
    int count = 1;          // 0: until interrupted
    double interval = 0.0;  // seconds between readings
    FormatFlags flags;
};

void PrintReading(Kind kind, const OwnedSensor& owned, const SensorName& name, int n, double frequency,
                  std::int32_t unit, Format format) {
    const std::string unitName = UnitName(unit);
    json record{{"sensor", name.serial}, {"address", name.address}, {"reading", n}, {"frequency_hz", frequency}};
    if (kind == Kind::Cw) {
        const CwReading r = owned.MeasureCW();
        switch (format) {
        case Format::Text:
            std::cout << name.serial << " @" << name.address << "  " << FrequencyText(frequency) << "  CW  "
                      << PowerText(r.power, unit) << "\n";
            break;
        case Format::Json:
            record["power"] = r.power;
            record["unit"] = unitName;
            std::cout << record.dump() << "\n";
            break;
        case Format::Csv:
            std::cout << n << "," << CsvField(name.serial) << "," << name.address << "," << Number(frequency)
                      << "," << Number(r.power) << "," << unitName << "\n";
            break;
        }
    } else {
        const PulseReading r = owned.MeasurePulse();
        switch (format) {
        case Format::Text:
            std::cout << name.serial << " @" << name.address << "  " << FrequencyText(frequency) << "  pulse "
                      << PowerText(r.pulse, unit) << "  peak " << PowerText(r.peak, unit) << "  average "
                      << PowerText(r.average, unit) << "  duty cycle " << Printf("%.3f %%", 100.0 * r.dutyCycle)
                      << "\n";
            break;
        case Format::Json:
            record["pulse"] = r.pulse;
            record["peak"] = r.peak;
            record["average"] = r.average;
            record["duty_cycle"] = r.dutyCycle;
            record["unit"] = unitName;
            std::cout << record.dump() << "\n";
            break;
        case Format::Csv:
            std::cout << n << "," << CsvField(name.serial) << "," << name.address << "," << Number(frequency)
                      << "," << Number(r.pulse) << "," << Number(r.peak) << ","
                      << Number(r.average) << "," << Number(r.dutyCycle) << "," << unitName << "\n";
            break;
        }
    }
    std::cout.flush();  // readings go out as they come, also into pipes
}

void Pause(double seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!interrupted && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

int RunMeasure(Kind kind, const MeasureOptions& options) {
    const Format format = options.flags.format();
    const SensorName name = FindSensor(options.sensor);
    OwnedSensor owned(name);
    owned.Apply(options.settings);
    const double frequency = owned.FrequencyHz();
    const std::int32_t unit = owned.Unit();
    if (format == Format::Csv)
        std::cout << (kind == Kind::Cw ? "reading,sensor,address,frequency_hz,power,unit\n"
                                       : "reading,sensor,address,frequency_hz,pulse,peak,average,duty_cycle,unit\n");
    std::signal(SIGINT, OnInterrupt);
    for (int n = 1; (options.count == 0 || n <= options.count) && !interrupted; ++n) {
        if (n > 1) Pause(options.interval);
        if (interrupted) break;
        PrintReading(kind, owned, name, n, frequency, unit, format);
    }
    owned.Release();
    return kExitOk;
}

void AddMeasureOptions(CLI::App* command, MeasureOptions& o) {
    AddSensorArgument(command, o.sensor);
    command->add_option("-f,--frequency", o.settings.frequencyHz, "measurement frequency: 1e9, 2.4GHz, 50MHz (default 1 GHz)")
        ->type_name("HZ")
        ->transform(CLI::AsNumberWithUnit(std::map<std::string, double>{
            {"hz", 1.0}, {"khz", 1e3}, {"mhz", 1e6}, {"ghz", 1e9}}).description(""));
    command->add_option("-a,--averages", o.settings.averages, "blocks averaged per reading, 1..100000 (default 75)")
        ->type_name("N")
        ->check(CLI::Range(1, 100000).description(""));
    command->add_option("-o,--offset", o.settings.offsetDb, "offset added to readings, -200..200 dB")
        ->type_name("DB")
        ->check(CLI::Range(-200.0, 200.0).description(""));
    std::map<std::string, std::int32_t> units(UnitNames().begin(), UnitNames().end());
    command->add_option("-u,--unit", o.settings.unit,
                        "unit of readings: dBm (default), dBW, dBkW, dBuV, dBmV, dBV, W, V, or dBr (dB relative to --reference)")
        ->type_name("UNIT")
        ->transform(CLI::CheckedTransformer(units, CLI::ignore_case).description(""));
    command->add_option("-r,--reference", o.settings.referenceDbm, "reference of dBr readings, -200..200 dBm")
        ->type_name("DBM")
        ->check(CLI::Range(-200.0, 200.0).description(""));
    command->add_option("-n,--count", o.count, "number of readings (default 1); 0: until Ctrl-C")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber.description(""));
    command->add_option("-i,--interval", o.interval, "pause between readings (default 0)")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber.description(""));
    AddFormatFlags(command, o.flags);
}

// ---------------------------------------------------------------- measure burst

struct BurstOptions {
    std::string sensor;
    std::optional<double> frequencyHz;
    int startUsec = 0;
    int lengthUsec = 0;
    bool externalTrigger = false;
    FormatFlags flags;
};

void AddBurstOptions(CLI::App* command, BurstOptions& o) {
    AddSensorArgument(command, o.sensor);
    command->add_option("-f,--frequency", o.frequencyHz, "measurement frequency: 1e9, 2.4GHz, 50MHz (default 1 GHz)")
        ->type_name("HZ")
        ->transform(CLI::AsNumberWithUnit(std::map<std::string, double>{
            {"hz", 1.0}, {"khz", 1e3}, {"mhz", 1e6}, {"ghz", 1e9}}).description(""));
    command->add_option("-s,--start", o.startUsec, "start of the window after the trigger, us")
        ->type_name("US")
        ->required();
    command->add_option("-l,--length", o.lengthUsec, "length of the window, us (start + length up to 1000000)")
        ->type_name("US")
        ->required();
    command->add_flag("--trigger", o.externalTrigger, "trigger on the external input (default: automatic level)");
    AddFormatFlags(command, o.flags);
}

int RunBurst(const BurstOptions& o) {
    const SensorName name = FindSensor(o.sensor);
    OwnedSensor owned(name);
    MeasureSettings settings;
    settings.frequencyHz = o.frequencyHz;
    owned.Apply(settings);
    const double frequency = owned.FrequencyHz();
    const std::int32_t a = name.address, trigger = o.externalTrigger ? 1 : 0;
    double maximum = 0.0, average = 0.0, minimum = 0.0;
    Expect("QV_MeasureBurst_DBM", QV_MeasureBurst_DBM(a, o.startUsec, o.lengthUsec, trigger, &maximum, &average, &minimum),
           Arguments(a, o.startUsec, o.lengthUsec, trigger, Out{"maximum"}, Out{"average"}, Out{"minimum"}));
    switch (o.flags.format()) {
    case Format::Text:
        std::cout << name.serial << " @" << name.address << "  " << FrequencyText(frequency) << "  burst "
                  << o.startUsec << " us + " << o.lengthUsec << " us  max " << PowerText(maximum, QV_UNIT_DBM)
                  << "  average " << PowerText(average, QV_UNIT_DBM) << "  min " << PowerText(minimum, QV_UNIT_DBM)
                  << "\n";
        break;
    case Format::Json:
        std::cout << json{{"sensor", name.serial}, {"address", a}, {"frequency_hz", frequency},
                          {"start_us", o.startUsec}, {"length_us", o.lengthUsec}, {"maximum", maximum},
                          {"average", average}, {"minimum", minimum}, {"unit", "dBm"}}
                         .dump()
                  << "\n";
        break;
    case Format::Csv:
        std::cout << "sensor,address,frequency_hz,start_us,length_us,maximum,average,minimum,unit\n"
                  << CsvField(name.serial) << "," << a << "," << Number(frequency) << "," << o.startUsec << ","
                  << o.lengthUsec << "," << Number(maximum) << "," << Number(average) << "," << Number(minimum)
                  << ",dBm\n";
        break;
    }
    owned.Release();
    return kExitOk;
}

void ReportFailure(const ExportFailure& failure, bool asJson) {
    if (asJson) {
        std::cerr << json{{"error", {{"export", failure.exportName},
                                     {"call", failure.exportName + "(" + failure.arguments + ")"},
                                     {"code", failure.code},
                                     {"meaning", CodeMeaning(failure.exportName, failure.code)}}}}
                         .dump()
                  << "\n";
    } else {
        std::cerr << "qvpower: " << failure.Message() << "\n";
    }
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"qvpower: USB RF power sensors through the QV_API2 library"};
    app.set_version_flag("--version", "qvpower, QV_API2 version " + std::to_string(QV_DriverVersion()));
    app.require_subcommand(1);
    app.footer(
        "SENSOR is a serial number (AB1234) or an address (@5). The library loads the sensor driver\n"
        "library QV_USBDRVD names; for simulated sensors see docs/sim.md.\n"
        "Exit codes: 0 done, 1 an export refused (named on standard error), 2 usage error.");

    FormatFlags listFlags;
    CLI::App* list = app.add_subcommand("list", "the sensors on the bus: index, serial, address, model, owner");
    AddFormatFlags(list, listFlags);

    std::string infoSensor;
    FormatFlags infoFlags;
    CLI::App* info = app.add_subcommand("info", "one sensor: model, frequency range, firmware, due date, owner");
    AddSensorArgument(info, infoSensor);
    AddFormatFlags(info, infoFlags);

    CLI::App* measure = app.add_subcommand(
        "measure", "take readings: measure cw SENSOR, measure pulse SENSOR, measure burst SENSOR");
    measure->require_subcommand(1);
    MeasureOptions cwOptions, pulseOptions;
    CLI::App* cw = measure->add_subcommand("cw", "average (CW) power");
    AddMeasureOptions(cw, cwOptions);
    CLI::App* pulse = measure->add_subcommand("pulse", "pulse power, peak power, average power and duty cycle");
    AddMeasureOptions(pulse, pulseOptions);
    BurstOptions burstOptions;
    CLI::App* burst = measure->add_subcommand("burst", "largest, mean and smallest power of a window of one trace");
    AddBurstOptions(burst, burstOptions);

    TraceOptions traceOptions;
    CLI::App* trace = app.add_subcommand(
        "trace", "power against time from a trace-capable sensor, as CSV (time_s,power) or JSON");
    AddTraceOptions(trace, traceOptions);

    AnalyseOptions analyseOptions;
    CLI::App* analyse = app.add_subcommand(
        "analyse", "statistics, gates, peaks and pulse edges of a trace file or a fresh trace");
    AddAnalyseOptions(analyse, analyseOptions);

    bool doctorJson = false;
    CLI::App* doctor = app.add_subcommand(
        "doctor", "what the set-up looks like: driver library, bus file, data directory, every sensor");
    doctor->add_flag("--json", doctorJson, "one JSON object");

    std::int32_t explainCode = 0;
    std::optional<std::string> explainExport;
    bool explainJson = false;
    CLI::App* explain = app.add_subcommand("explain", "what a result code means, in general or from one export");
    explain->add_option("CODE", explainCode, "the result code, e.g. -2")->required();
    explain->add_option("EXPORT", explainExport, "the export that returned it, e.g. QV_SensorCnt");
    explain->add_flag("--json", explainJson, "one JSON object");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int code = app.exit(e);
        return code == 0 ? kExitOk : kExitUsage;
    }

    FormatFlags traceFlags, analyseFlags;
    traceFlags.json = traceOptions.json;
    analyseFlags.json = analyseOptions.json;
    const FormatFlags& flags = *list      ? listFlags
                               : *info    ? infoFlags
                               : *cw      ? cwOptions.flags
                               : *burst   ? burstOptions.flags
                               : *trace   ? traceFlags
                               : *analyse ? analyseFlags
                                          : pulseOptions.flags;
    if (*explain) return RunExplain(explainCode, explainExport, explainJson);
    try {
        if (*doctor) return RunDoctor(doctorJson);
        if (*list) return RunList(flags.format());
        if (*info) return RunInfo(infoSensor, flags.format());
        if (*cw) return RunMeasure(Kind::Cw, cwOptions);
        if (*pulse) return RunMeasure(Kind::Pulse, pulseOptions);
        if (*burst) return RunBurst(burstOptions);
        if (*trace) return RunTrace(traceOptions);
        if (*analyse) return RunAnalyse(analyseOptions);
    } catch (const ExportFailure& failure) {
        ReportFailure(failure, flags.json);
        // A sensor not found may be one the user may not open.
        const std::string hint = failure.code == 0 ? UsbAccessHint() : std::string();
        if (!hint.empty()) std::cerr << "qvpower: " << hint << "\n";
        return kExitFailed;
    } catch (const CLI::ValidationError& e) {
        std::cerr << "qvpower: " << e.what() << "\n";
        return kExitUsage;
    } catch (const std::runtime_error& e) {
        // A trace file that cannot be read, or no sensor to analyse it on.
        std::cerr << "qvpower: " << e.what() << "\n";
        return kExitFailed;
    }
    return kExitUsage;
}
