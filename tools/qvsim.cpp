// qvsim: builds and inspects a bus of simulated sensors from the shell.
// Exit codes: 0 done, 1 the operation failed, 2 usage error.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "qvsim.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

constexpr const char* kUsage =
    "usage: qvsim [--bus FILE] COMMAND [ARGS] | qvsim help | qvsim --version\n"
    "  create [--from FILE]          new empty bus (or the sensors listed in FILE)\n"
    "  add SERIAL PRODUCT [--address N] [--firmware TEXT] [--due YY-MM-DD]\n"
    "      [--path-serial TEXT] [--unplugged]\n"
    "  list | state ID | transcript ID [--clear]\n"
    "  unplug ID | replug ID | remove ID | address ID [N]\n"
    "  temperature ID [COUNT]        the sensor's temperature count (and its calibration's)\n"
    "  signal ID [cw DBM | pulse --period US --width US --on DBM --off DBM\n"
    "             | burst --period US --start US --length US --on DBM --off DBM]\n"
    "      [--rise US] [--fall US] [--overshoot DB] [--droop DB]   edges and top of pulses and bursts\n"
    "      [--noise DB] [--seed N] [--freq HZ]   the signal at the sensor's input\n"
    "  trigger ID [--every US]       fire one trigger edge, or set a periodic trigger (0: none)\n"
    "  capture ID FILE | capture ID --stop   record every pipe 0x82 transfer into FILE\n"
    "  replay ID FILE | replay ID --stop     serve FILE's measurement bytes instead of the signal\n"
    "  fault ID KIND [CODE] [--count N|always] [--skip N] [--arg N]\n"
    "      KIND: fail empty no-echo bad-252 bad-253 pipe-timeout pipe-short\n"
    "            open-fails string-fails throws unplug\n"
    "  clear-faults ID\n"
    "  timing [--control-us N] [--bulk-bps N] [--real-timeouts 0|1] [--sampled-blocks 0|1]\n"
    "ID is a sensor id or a serial number (serial numbers are looked up first).\n"
    "The bus file is --bus FILE, else $QV_SIM_BUS.\n"
    "Warnings (standard error) note what no real sensor has: an unknown product,\n"
    "an impossible due date, address 0, a serial number twice on the bus.\n";

constexpr const char* kCommands[] = {"create", "add", "list", "state", "transcript", "unplug", "replug", "remove",
                                     "address", "temperature", "signal", "trigger", "capture", "replay", "fault",
                                     "clear-faults", "timing"};

void Warn(const std::string& text) { std::fprintf(stderr, "qvsim: warning: %s\n", text.c_str()); }

// Why a file could not be made, opened or mapped: the system's reason when
// there is one, else the simulator's.
std::string Reason(int code, int savedErrno) {
    return code == QVSIM_E_IO && savedErrno != 0 ? std::strerror(savedErrno) : qvsim_strerror(code);
}

struct UsageError {
    std::string message;
};

struct Failure {
    std::string message;
};

long ParseNumber(const std::string& text, long low, long high, const char* what) {
    errno = 0;
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || errno != 0 || value < low || value > high)
        throw UsageError{std::string("bad ") + what + ": " + text};
    return value;
}

double ParseReal(const std::string& text, double low, double high, const char* what) {
    errno = 0;
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || errno != 0 || !(value >= low && value <= high))
        throw UsageError{std::string("bad ") + what + ": " + text};
    return value;
}

int Check(int result) {
    if (result < 0) throw Failure{qvsim_strerror(result)};
    return result;
}

// Arguments of one command: positionals and --name value options.
class Arguments {
public:
    Arguments(std::vector<std::string> words, std::vector<std::string> flags) {
        for (std::size_t i = 0; i < words.size(); ++i) {
            const std::string& word = words[i];
            if (word.rfind("--", 0) != 0) {
                positional_.push_back(word);
                continue;
            }
            bool isFlag = false;
            for (const std::string& flag : flags) isFlag = isFlag || flag == word;
            if (isFlag) {
                options_.emplace_back(word, "1");
            } else {
                if (i + 1 >= words.size()) throw UsageError{"missing value for " + word};
                options_.emplace_back(word, words[++i]);
            }
        }
    }

    std::size_t count() const { return positional_.size(); }
    const std::string& at(std::size_t i) const { return positional_.at(i); }

    std::optional<std::string> option(const std::string& name) {
        for (auto it = options_.begin(); it != options_.end(); ++it) {
            if (it->first != name) continue;
            std::string value = it->second;
            options_.erase(it);
            return value;
        }
        return std::nullopt;
    }

    // Every option must have been taken and positionals be within range.
    void Finish(std::size_t minimum, std::size_t maximum) const {
        if (!options_.empty()) throw UsageError{"unknown option " + options_.front().first};
        if (positional_.size() < minimum || positional_.size() > maximum) throw UsageError{"wrong number of arguments"};
    }

private:
    std::vector<std::string> positional_;
    std::vector<std::pair<std::string, std::string>> options_;
};

// A sensor to add, with the texts the config points into.
struct SensorLine {
    std::string serial, product, firmware = "V1.00", pathSerial;
    bool hasPathSerial = false;
    bool unplugged = false;
    bool dueGiven = false;
    qvsim_sensor_config config{};
};

SensorLine ParseAdd(std::vector<std::string> words) {
    Arguments args(std::move(words), {"--unplugged"});
    SensorLine line;
    qvsim_sensor_config_init(&line.config);
    if (auto address = args.option("--address")) line.config.address = static_cast<int>(ParseNumber(*address, 0, 255, "address"));
    if (auto firmware = args.option("--firmware")) line.firmware = *firmware;
    if (auto due = args.option("--due")) {
        int year = 0, month = 0, day = 0;
        char tail = 0;
        if (std::sscanf(due->c_str(), "%d-%d-%d%c", &year, &month, &day, &tail) != 3 || year < 0 || year > 255 ||
            month < 0 || month > 255 || day < 0 || day > 255)
            throw UsageError{"bad due date (YY-MM-DD): " + *due};
        line.config.due_year = year;
        line.config.due_month = month;
        line.config.due_day = day;
        line.dueGiven = true;
    }
    if (auto pathSerial = args.option("--path-serial")) {
        line.pathSerial = *pathSerial;
        line.hasPathSerial = true;
    }
    line.unplugged = args.option("--unplugged").has_value();
    args.Finish(2, 2);
    line.serial = args.at(0);
    line.product = args.at(1);
    return line;
}

bool SameSerial(const std::string& a, const char* b) {
    if (a.size() != std::strlen(b)) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::toupper(static_cast<unsigned char>(a[i])) != std::toupper(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

// A due date as the sensor stores it: all three bytes 255 is an erased date;
// anything else should be a real day of 2000..2099.
bool PossibleDueDate(int year, int month, int day) {
    if (year == 255 && month == 255 && day == 255) return true;
    static const int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (year > 99 || month < 1 || month > 12 || day < 1 || day > kDays[month - 1]) return false;
    return !(month == 2 && day == 29 && year % 4 != 0);
}

// Things no real sensor has are said, not refused: the simulator is also for
// showing what the library does with them.
void WarnAboutSensor(const SensorLine& line, int id) {
    int ids[QVSIM_MAX_SENSORS];
    const int count = qvsim_sensor_list(ids, QVSIM_MAX_SENSORS);
    for (int i = 0; i < count && i < QVSIM_MAX_SENSORS; ++i) {
        qvsim_sensor_info info{};
        if (ids[i] != id && qvsim_sensor_info_get(ids[i], &info) == QVSIM_OK && SameSerial(line.serial, info.serial))
            Warn("serial number " + line.serial + " is on the bus twice (sensor ids " + std::to_string(ids[i]) +
                 " and " + std::to_string(id) + "); the library finds only one of them by serial");
    }
    qvsim_detector_info detector{};
    if (qvsim_detector_info_get(id, &detector) == QVSIM_OK && detector.model_index < 0)
        Warn("product \"" + line.product + "\" names no model the library knows; it gets the default range");
    const qvsim_sensor_config& c = line.config;
    if (line.dueGiven && !PossibleDueDate(c.due_year, c.due_month, c.due_day))
    {
        char date[16];
        std::snprintf(date, sizeof date, "%02d-%02d-%02d", c.due_year, c.due_month, c.due_day);
        Warn(std::string("due date ") + date + " is no day of 2000..2099 (255-255-255 is an erased date)");
    }
    if (c.address == 0) Warn("address 0: the library names sensors by address 1..255 only");
}

int AddSensor(SensorLine& line) {
    line.config.serial = line.serial.c_str();
    line.config.product = line.product.c_str();
    line.config.firmware = line.firmware.c_str();
    line.config.path_serial = line.hasPathSerial ? line.pathSerial.c_str() : nullptr;
    const int id = Check(qvsim_sensor_add(&line.config));
    WarnAboutSensor(line, id);
    if (line.unplugged) Check(qvsim_sensor_unplug(id));
    return id;
}

// Splits a line of a bus description at blanks; double quotes group words.
std::vector<std::string> SplitWords(const std::string& text, int lineNumber) {
    std::vector<std::string> words;
    std::string word;
    bool quoted = false, inWord = false;
    for (char c : text) {
        if (c == '"') {
            quoted = !quoted;
            inWord = true;
        } else if (!quoted && (c == ' ' || c == '\t' || c == '\r')) {
            if (inWord) words.push_back(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quoted) throw UsageError{"line " + std::to_string(lineNumber) + ": unbalanced quote"};
    if (inWord) words.push_back(word);
    return words;
}

std::vector<SensorLine> ReadBusDescription(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw Failure{"cannot read " + path};
    std::vector<SensorLine> sensors;
    std::string text;
    for (int lineNumber = 1; std::getline(file, text); ++lineNumber) {
        const std::size_t start = text.find_first_not_of(" \t\r");
        if (start == std::string::npos || text[start] == '#') continue;
        try {
            sensors.push_back(ParseAdd(SplitWords(text, lineNumber)));
        } catch (const UsageError& error) {
            throw UsageError{path + ":" + std::to_string(lineNumber) + ": " + error.message};
        }
    }
    return sensors;
}

// A sensor named by its serial number, else by its id.
int SensorId(const std::string& text) {
    int ids[QVSIM_MAX_SENSORS];
    const int count = qvsim_sensor_list(ids, QVSIM_MAX_SENSORS);
    for (int i = 0; i < count && i < QVSIM_MAX_SENSORS; ++i) {
        qvsim_sensor_info info{};
        if (qvsim_sensor_info_get(ids[i], &info) == QVSIM_OK && text == info.serial) return ids[i];
    }
    return static_cast<int>(ParseNumber(text, 0, QVSIM_MAX_SENSORS - 1, "sensor id"));
}

struct FaultName {
    const char* name;
    int kind;
    int fixedCode;  // -1: taken from the command line (default 0 = any)
};

constexpr FaultName kFaultNames[] = {
    {"fail", QVSIM_FAULT_REQUEST_FAILS, -1},    {"empty", QVSIM_FAULT_REQUEST_EMPTY, -1},
    {"no-echo", QVSIM_FAULT_NO_ECHO, -1},       {"bad-252", QVSIM_FAULT_NO_ECHO, 252},
    {"bad-253", QVSIM_FAULT_NO_ECHO, 253},      {"pipe-timeout", QVSIM_FAULT_PIPE_TIMEOUT, -1},
    {"pipe-short", QVSIM_FAULT_PIPE_SHORT, -1}, {"open-fails", QVSIM_FAULT_OPEN_FAILS, 0},
    {"string-fails", QVSIM_FAULT_STRING_FAILS, -1}, {"throws", QVSIM_FAULT_THROWS, -1},
    {"unplug", QVSIM_FAULT_UNPLUG, -1},
};

constexpr const char* kFunctionNames[] = {"get-dev-count", "get-device-path", "open-dev-handle", "close-dev-handle",
                                          "open-winusb-handle", "close-winusb-handle", "get-string-length",
                                          "get-string", "request-out", "request-in", "pipe-read", "pipe-write"};

int FaultCode(const FaultName& fault, const Arguments& args) {
    if (fault.fixedCode >= 0) {
        args.Finish(2, 2);
        return fault.fixedCode;
    }
    args.Finish(2, 3);
    if (args.count() < 3) return 0;
    if (fault.kind == QVSIM_FAULT_THROWS) {
        for (int i = 0; i < static_cast<int>(std::size(kFunctionNames)); ++i)
            if (args.at(2) == kFunctionNames[i]) return i + 1;
        return static_cast<int>(ParseNumber(args.at(2), 0, QVSIM_FN_PIPE_WRITE, "driver function"));
    }
    return static_cast<int>(ParseNumber(args.at(2), 0, 255, "code"));
}

int CommandFault(Arguments args) {
    if (args.count() < 2) throw UsageError{"fault needs ID and KIND"};
    const FaultName* fault = nullptr;
    for (const FaultName& candidate : kFaultNames)
        if (args.at(1) == candidate.name) fault = &candidate;
    if (fault == nullptr) throw UsageError{"unknown fault kind " + args.at(1)};
    qvsim_fault rule{};
    rule.kind = fault->kind;
    rule.count = QVSIM_ALWAYS;
    rule.arg = fault->kind == QVSIM_FAULT_OPEN_FAILS ? -1 : 0;
    if (auto count = args.option("--count"))
        rule.count = *count == "always" ? QVSIM_ALWAYS : static_cast<int>(ParseNumber(*count, 1, 1000000000, "count"));
    if (auto skip = args.option("--skip")) rule.skip = static_cast<int>(ParseNumber(*skip, 0, 1000000000, "skip"));
    if (auto arg = args.option("--arg")) rule.arg = static_cast<int>(ParseNumber(*arg, -1000000000, 1000000000, "arg"));
    rule.code = FaultCode(*fault, args);
    Check(qvsim_add_fault(SensorId(args.at(0)), &rule));
    return kExitOk;
}

int CommandList() {
    int ids[QVSIM_MAX_SENSORS];
    const int count = Check(qvsim_sensor_list(ids, QVSIM_MAX_SENSORS));
    std::printf("%-3s %-5s %-8s %-8s %-7s %-7s %-20s %s\n", "ID", "INDEX", "PLUGGED", "SERIAL", "ADDRESS", "HANDLES",
                "PRODUCT", "FIRMWARE");
    for (int i = 0; i < count; ++i) {
        qvsim_sensor_info info{};
        Check(qvsim_sensor_info_get(ids[i], &info));
        std::printf("%-3d %-5d %-8s %-8s %-7d %-7d %-20s %s\n", info.id, info.index0, info.plugged ? "yes" : "no",
                    info.serial, info.address, info.open_handles, info.product, info.firmware);
    }
    return kExitOk;
}

int CommandState(int id) {
    qvsim_sensor_state s{};
    Check(qvsim_sensor_state_get(id, &s));
    std::printf("led %d (toggles %u)\ntrigger in %d inverted %d\ntrigger out %d (variant %d) inverted %d\n", s.led_on,
                s.led_toggles, s.trigger_in_enabled, s.trigger_in_inverted, s.trigger_out_enabled,
                s.trigger_out_variant, s.trigger_out_inverted);
    std::printf("anti-aliasing %d\nrecorder %d (word %d, writes %u)\nrunning mode %d (stops %u)\n", s.anti_aliasing,
                s.recorder_out, s.recorder_word, s.bulk_out_writes, s.running_mode, s.stop_sequences);
    std::printf("init pings %u\nmeasure readings %d (starts %u)\nsweeps %u\n", s.init_pings, s.measure_readings,
                s.measure_starts, s.sweep_starts);
    std::printf("memory pointer %d:%d (write open %d, ignored writes %u)\nworking location %d\n", s.memory_region,
                s.memory_position, s.write_open, s.ignored_writes, s.working_location);
    std::printf("bulk in pending %d\nhandles opened %u closed %u\n", s.bulk_in_pending, s.opens, s.closes);
    std::printf("measuring %d (count %d, blocks sent %llu, overruns %llu)\ntrigger out level %d (edges %u)\n"
                "pending triggers %u\ncapturing %d (transfers %u, failures %u)\nreplaying %d\n",
                s.measuring, s.measure_count, s.blocks_sent, s.overruns, s.trigger_out_level, s.trigger_out_edges,
                s.pending_triggers, s.capturing, s.capture_transfers, s.capture_failures, s.replaying);
    std::printf("sweep configured %d (packet bytes %d, armed %d, packets sent %llu, trigger time-outs %u)\n",
                s.sweep_configured, s.sweep_packet_bytes, s.sweep_armed, s.sweep_packets_sent,
                s.sweep_trigger_timeouts);
    return kExitOk;
}

int CommandTranscript(int id) {
    static const char* const kKinds[] = {"?", "OUT", "IN", "PIPE-RD", "PIPE-WR", "STRING"};
    qvsim_transfer entries[256];
    long long next = 0;
    for (;;) {
        const int copied = Check(qvsim_transcript_read(id, next, entries, 256));
        if (copied == 0) break;
        for (int i = 0; i < copied; ++i) {
            const qvsim_transfer& e = entries[i];
            std::printf("%6lld %-7s %3d len=%d result=%d moved=%d", e.seq,
                        e.kind >= 1 && e.kind <= 5 ? kKinds[e.kind] : kKinds[0], e.code, e.length, e.result,
                        e.transferred);
            for (int b = 0; b < e.data_len; ++b) std::printf("%s%02x", b == 0 ? " data=" : " ", e.data[b]);
            std::printf("\n");
        }
        next = entries[copied - 1].seq + 1;
    }
    return kExitOk;
}

int CommandTiming(Arguments args) {
    qvsim_timing timing{};
    Check(qvsim_get_timing(&timing));
    bool changed = false;
    if (auto control = args.option("--control-us")) {
        timing.control_us = static_cast<unsigned>(ParseNumber(*control, 0, 100000000, "latency"));
        changed = true;
    }
    if (auto bulk = args.option("--bulk-bps")) {
        timing.bulk_bytes_per_s = static_cast<unsigned>(ParseNumber(*bulk, 0, 2000000000, "throughput"));
        changed = true;
    }
    if (auto real = args.option("--real-timeouts")) {
        timing.real_timeouts = static_cast<int>(ParseNumber(*real, 0, 1, "real-timeouts"));
        changed = true;
    }
    if (auto sampled = args.option("--sampled-blocks")) {
        timing.sampled_blocks = static_cast<int>(ParseNumber(*sampled, 0, 1, "sampled-blocks"));
        changed = true;
    }
    args.Finish(0, 0);
    if (changed) Check(qvsim_set_timing(&timing));
    std::printf("control-us %u bulk-bps %u real-timeouts %d sampled-blocks %d\n", timing.control_us,
                timing.bulk_bytes_per_s, timing.real_timeouts, timing.sampled_blocks);
    return kExitOk;
}

double PowerOption(Arguments& args, const char* name, double current) {
    auto text = args.option(name);
    return text ? ParseReal(*text, QVSIM_SIGNAL_MIN_DBM, QVSIM_SIGNAL_MAX_DBM, name) : current;
}

int CommandSignal(Arguments args) {
    if (args.count() < 1) throw UsageError{"signal needs ID"};
    const int id = SensorId(args.at(0));
    qvsim_signal signal{};
    Check(qvsim_signal_get(id, &signal));
    bool changed = false;
    std::size_t words = 1;
    if (args.count() >= 2 && args.at(1) == "cw") {
        words = 3;
        signal.kind = QVSIM_SIGNAL_CW;
        if (args.count() >= 3) signal.cw_dbm = ParseReal(args.at(2), QVSIM_SIGNAL_MIN_DBM, QVSIM_SIGNAL_MAX_DBM, "power");
        changed = true;
    } else if (args.count() >= 2 && (args.at(1) == "pulse" || args.at(1) == "burst")) {
        words = 2;
        signal.kind = args.at(1) == "pulse" ? QVSIM_SIGNAL_PULSE : QVSIM_SIGNAL_BURST;
        changed = true;
    } else if (args.count() >= 2) {
        throw UsageError{"unknown signal kind " + args.at(1)};
    }
    if (auto period = args.option("--period")) signal.period_us = ParseReal(*period, 1e-3, 1e9, "period"), changed = true;
    if (auto width = args.option("--width")) signal.width_us = ParseReal(*width, 0.0, 1e9, "width"), changed = true;
    if (auto length = args.option("--length"))
        signal.width_us = ParseReal(*length, 0.0, 1e9, "length"), changed = true;
    if (auto start = args.option("--start")) signal.start_us = ParseReal(*start, 0.0, 1e9, "start"), changed = true;
    if (auto rise = args.option("--rise")) signal.rise_us = ParseReal(*rise, 0.0, 1e9, "rise"), changed = true;
    if (auto fall = args.option("--fall")) signal.fall_us = ParseReal(*fall, 0.0, 1e9, "fall"), changed = true;
    if (auto overshoot = args.option("--overshoot"))
        signal.overshoot_db = ParseReal(*overshoot, 0.0, 20.0, "overshoot"), changed = true;
    if (auto droop = args.option("--droop")) signal.droop_db = ParseReal(*droop, 0.0, 20.0, "droop"), changed = true;
    const double on = PowerOption(args, "--on", signal.on_dbm), off = PowerOption(args, "--off", signal.off_dbm);
    changed = changed || on != signal.on_dbm || off != signal.off_dbm;
    signal.on_dbm = on;
    signal.off_dbm = off;
    if (auto noise = args.option("--noise")) signal.noise_db = ParseReal(*noise, 0.0, 20.0, "noise"), changed = true;
    if (auto seed = args.option("--seed"))
        signal.seed = static_cast<unsigned>(ParseNumber(*seed, 0, 4294967295L, "seed")), changed = true;
    if (auto freq = args.option("--freq")) signal.freq_hz = ParseReal(*freq, 1.0, 100e9, "frequency"), changed = true;
    args.Finish(words, words);
    if (signal.width_us > signal.period_us) throw UsageError{"pulse width longer than its period"};
    if (signal.rise_us > signal.period_us || signal.fall_us > signal.period_us)
        throw UsageError{"edge longer than the period"};
    if (signal.start_us > signal.period_us - signal.width_us) throw UsageError{"burst ends after its period"};
    if (changed) Check(qvsim_signal_set(id, &signal));
    if (signal.kind == QVSIM_SIGNAL_PULSE)
        std::printf("pulse period %g us width %g us", signal.period_us, signal.width_us);
    else if (signal.kind == QVSIM_SIGNAL_BURST)
        std::printf("burst period %g us start %g us length %g us", signal.period_us, signal.start_us,
                    signal.width_us);
    if (signal.kind == QVSIM_SIGNAL_PULSE || signal.kind == QVSIM_SIGNAL_BURST)
        std::printf(" on %g dBm off %g dBm rise %g us fall %g us overshoot %g dB droop %g dB", signal.on_dbm,
                    signal.off_dbm, signal.rise_us, signal.fall_us, signal.overshoot_db, signal.droop_db);
    else
        std::printf("cw %g dBm", signal.cw_dbm);
    std::printf(" freq %g Hz noise %g dB seed %u\n", signal.freq_hz, signal.noise_db, signal.seed);
    return kExitOk;
}

int CommandTrigger(Arguments args) {
    auto every = args.option("--every");
    args.Finish(1, 1);
    const int id = SensorId(args.at(0));
    if (every) Check(qvsim_trigger_periodic(id, ParseReal(*every, 0.0, 1e9, "period")));
    else Check(qvsim_trigger_fire(id));
    double period = 0.0;
    Check(qvsim_trigger_period_get(id, &period));
    qvsim_sensor_state state{};
    Check(qvsim_sensor_state_get(id, &state));
    std::printf("pending %u periodic %g us\n", state.pending_triggers, period);
    return kExitOk;
}

int CommandFiles(Arguments args, bool capture) {
    const bool stop = args.option("--stop").has_value();
    args.Finish(stop ? 1 : 2, stop ? 1 : 2);
    const int id = SensorId(args.at(0));
    if (stop) {
        Check(capture ? qvsim_capture_stop(id) : qvsim_replay_stop(id));
        return kExitOk;
    }
    const std::string& file = args.at(1);
    errno = 0;
    const int started = capture ? qvsim_capture_start(id, file.c_str()) : qvsim_replay_start(id, file.c_str());
    const int saved = errno;
    if (started == QVSIM_E_IO || started == QVSIM_E_BAD_FILE)
        throw Failure{std::string(capture ? "cannot make " : "cannot read ") + file + ": " +
                      (started == QVSIM_E_BAD_FILE ? "not a capture file of this version" : Reason(started, saved))};
    Check(started);
    return kExitOk;
}

int CommandCreate(Arguments args, const char* bus) {
    std::vector<SensorLine> sensors;
    if (auto from = args.option("--from")) sensors = ReadBusDescription(*from);
    args.Finish(0, 0);
    errno = 0;
    const int created = qvsim_bus_create(bus);
    if (created < 0) throw Failure{"cannot make bus file " + std::string(bus) + ": " + Reason(created, errno)};
    for (SensorLine& line : sensors) AddSensor(line);
    return kExitOk;
}

int Run(const std::string& command, std::vector<std::string> words, const char* bus) {
    if (command == "create") return CommandCreate(Arguments(std::move(words), {}), bus);
    errno = 0;
    const int opened = qvsim_bus_open(bus);
    if (opened < 0) {
        const int saved = errno;
        const bool missing = opened == QVSIM_E_IO && saved == ENOENT;
        throw Failure{"cannot open bus file " + std::string(bus) + ": " + Reason(opened, saved) +
                      (missing ? "; qvsim create makes one" : "")};
    }
    if (command == "add") {
        SensorLine line = ParseAdd(std::move(words));
        std::printf("%d\n", AddSensor(line));
        return kExitOk;
    }
    if (command == "fault") return CommandFault(Arguments(std::move(words), {}));
    if (command == "timing") return CommandTiming(Arguments(std::move(words), {}));
    if (command == "signal") return CommandSignal(Arguments(std::move(words), {}));
    if (command == "trigger") return CommandTrigger(Arguments(std::move(words), {}));
    if (command == "capture" || command == "replay")
        return CommandFiles(Arguments(std::move(words), {"--stop"}), command == "capture");
    Arguments args(std::move(words), {"--clear"});
    if (command == "list") {
        args.Finish(0, 0);
        return CommandList();
    }
    if (command == "transcript") {
        const bool clear = args.option("--clear").has_value();
        args.Finish(1, 1);
        return clear ? (Check(qvsim_transcript_clear(SensorId(args.at(0)))), kExitOk) : CommandTranscript(SensorId(args.at(0)));
    }
    if (command == "address") {
        args.Finish(1, 2);
        const int id = SensorId(args.at(0));
        if (args.count() == 2) {
            const int address = static_cast<int>(ParseNumber(args.at(1), 0, 255, "address"));
            Check(qvsim_set_address(id, address));
            if (address == 0) Warn("address 0: the library names sensors by address 1..255 only");
        }
        std::printf("%d\n", Check(qvsim_get_address(id)));
        return kExitOk;
    }
    if (command == "temperature") {
        args.Finish(1, 2);
        const int id = SensorId(args.at(0));
        if (args.count() == 2)
            Check(qvsim_set_temperature(id, static_cast<int>(ParseNumber(args.at(1), 0, 65535, "temperature"))));
        qvsim_detector_info info{};
        Check(qvsim_detector_info_get(id, &info));
        std::printf("%d (calibrated at %d)\n", info.temperature, info.cal_temperature);
        return kExitOk;
    }
    args.Finish(1, 1);
    const int id = SensorId(args.at(0));
    if (command == "state") return CommandState(id);
    if (command == "unplug") return Check(qvsim_sensor_unplug(id)), kExitOk;
    if (command == "replug") return Check(qvsim_sensor_replug(id)), kExitOk;
    if (command == "remove") return Check(qvsim_sensor_remove(id)), kExitOk;
    if (command == "clear-faults") return Check(qvsim_clear_faults(id)), kExitOk;
    throw UsageError{"unknown command " + command};
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    std::string bus;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] != "--bus") continue;
        if (i + 1 >= words.size()) {
            std::fprintf(stderr, "qvsim: missing value for --bus\n%s", kUsage);
            return kExitUsage;
        }
        bus = words[i + 1];
        words.erase(words.begin() + static_cast<std::ptrdiff_t>(i), words.begin() + static_cast<std::ptrdiff_t>(i) + 2);
        break;
    }
    if (words.empty() || words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
        std::fprintf(words.empty() ? stderr : stdout, "%s", kUsage);
        return words.empty() ? kExitUsage : kExitOk;
    }
    if (words[0] == "--version") {
        std::printf("qvsim %s, simulated sensors for QV_API2\n", QVSIM_TOOL_VERSION);
        return kExitOk;
    }
    const std::string command = words[0];
    words.erase(words.begin());
    if (std::find(std::begin(kCommands), std::end(kCommands), command) == std::end(kCommands)) {
        std::fprintf(stderr, "qvsim: unknown command %s\n%s", command.c_str(), kUsage);
        return kExitUsage;
    }
    if (bus.empty()) {
        const char* env = std::getenv(QVSIM_BUS_ENV);
        if (env == nullptr || *env == '\0') {
            std::fprintf(stderr, "qvsim: no bus file: set %s or pass --bus FILE\n", QVSIM_BUS_ENV);
            return kExitUsage;
        }
        bus = env;
    }
    try {
        return Run(command, std::move(words), bus.c_str());
    } catch (const UsageError& error) {
        std::fprintf(stderr, "qvsim: %s\n%s", error.message.c_str(), kUsage);
        return kExitUsage;
    } catch (const Failure& error) {
        std::fprintf(stderr, "qvsim: %s\n", error.message.c_str());
        return kExitFailed;
    }
}
