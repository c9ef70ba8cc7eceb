#include "qvpower_analyse.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "qv_api2.h"
#include "qvpower_calls.h"
#include "qvpower_sensors.h"

namespace qvpower {

namespace {

using json = nlohmann::ordered_json;

// A trace as qvpower trace writes it: powers in one unit, evenly in time.
struct LoadedTrace {
    std::vector<double> power;
    std::int32_t unit = QV_UNIT_DBM;
    double sweepUsec = 0.0;
};

std::int32_t UnitCode(const std::string& name) {
    for (const auto& [text, code] : UnitNames())
        if (text == name) return code;
    throw std::runtime_error("unknown unit \"" + name + "\"");
}

// The first trace of the file; a CSV's later traces follow a blank line.
LoadedTrace LoadTrace(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot read " + path);
    LoadedTrace t;
    std::string line;
    std::getline(in, line);
    if (!line.empty() && line[0] == '{') {
        const json j = json::parse(line);
        t.power = j.at("power").get<std::vector<double>>();
        t.unit = UnitCode(j.value("unit", "dBm"));
        t.sweepUsec = j.at("sweep_time_s").get<double>() * 1e6;
        return t;
    }
    std::vector<double> time;
    do {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.rfind("# power in ", 0) == 0) t.unit = UnitCode(line.substr(11));
        if (line.empty() || line[0] == '#' || line.rfind("time_s", 0) == 0) {
            if (line.empty() && !time.empty()) break;
            continue;
        }
        double s = 0.0, p = 0.0;
        if (std::sscanf(line.c_str(), "%lf,%lf", &s, &p) != 2)
            throw std::runtime_error(path + ": not a time_s,power line: " + line);
        time.push_back(s);
        t.power.push_back(p);
    } while (std::getline(in, line));
    if (time.size() < 2) throw std::runtime_error(path + ": fewer than two points");
    t.sweepUsec = std::round((time.back() - time.front()) * 1e6);
    return t;
}

std::pair<double, double> ParseGate(const std::string& text) {
    double start = 0.0, end = 0.0;
    char rest = 0;
    if (std::sscanf(text.c_str(), "%lf:%lf%c", &start, &end, &rest) != 2)
        throw CLI::ValidationError("--gate", "START_US:END_US expected, not " + text);
    return {start, end};
}

// A measurement that found nothing (no pulse, no crossing) is a result, not a
// failure: it reads as null.
using Measure = std::function<std::int32_t(double*)>;
json Value(const Measure& measure, bool indexResult = false) {
    double value = 0.0;
    const std::int32_t code = measure(&value);
    return (indexResult ? code >= 0 : code == 1) && std::isfinite(value) ? json(value) : json(nullptr);
}

// A marker as the command line gives it: a start (a time or a move to a
// peak), further moves, and for a delta marker the delta point's distance.
struct MarkerRequest {
    std::optional<double> startUsec;
    std::vector<std::string> moves;  // the start move first when there is no time
    std::optional<double> deltaUsec;
};

using Move = std::int32_t (*)(std::int32_t, std::int32_t);
struct NamedMove {
    const char* name;
    const char* exportName;
    Move move;
};
const NamedMove kMoves[] = {
    {"peak", "PP_MarkerToPk", PP_MarkerToPk},          {"lowest", "PP_MarkerToLowestPk", PP_MarkerToLowestPk},
    {"first", "PP_MarkerToFirstPk", PP_MarkerToFirstPk}, {"last", "PP_MarkerToLastPk", PP_MarkerToLastPk},
    {"next", "PP_MarkerNextPk", PP_MarkerNextPk},        {"prev", "PP_MarkerPrevPk", PP_MarkerPrevPk},
    {"higher", "PP_MarkerPkHigher", PP_MarkerPkHigher},  {"lower", "PP_MarkerPkLower", PP_MarkerPkLower}};

const NamedMove* FindMove(const std::string& name) {
    for (const NamedMove& m : kMoves)
        if (name == m.name) return &m;
    return nullptr;
}

bool Number(const std::string& text, double* value) {
    char rest = 0;
    return std::sscanf(text.c_str(), "%lf%c", value, &rest) == 1;
}

MarkerRequest ParseMarker(const std::string& text) {
    MarkerRequest request;
    std::string points = text;
    if (const auto at = text.find('@'); at != std::string::npos) {
        double delta = 0.0;
        if (!Number(text.substr(at + 1), &delta))
            throw CLI::ValidationError("--marker", "a delta in microseconds after @, not " + text);
        request.deltaUsec = delta;
        points = text.substr(0, at);
    }
    std::stringstream parts(points);
    std::string part;
    while (std::getline(parts, part, ',')) {
        double usec = 0.0;
        if (!request.startUsec && request.moves.empty() && Number(part, &usec))
            request.startUsec = usec;
        else if (FindMove(part))
            request.moves.push_back(part);
        else
            throw CLI::ValidationError("--marker", "TIME_US or peak, lowest, first, last, next, prev, higher, "
                                                   "lower expected, not \"" + part + "\"");
    }
    if (!request.startUsec && request.moves.empty()) throw CLI::ValidationError("--marker", "an empty marker");
    return request;
}

// The peak list through the export of the chosen layout and order; every
// layout gives the same list.
std::vector<PP_Peak> PeakList(std::int32_t a, int n, bool byValue, const std::string& layout) {
    std::vector<PP_Peak> peaks(static_cast<std::size_t>(n));
    std::int32_t count = 0;
    if (layout == "records") {
        const char* name = byValue ? "PP_GetPeaks_Val" : "PP_GetPeaks_Idx";
        Expect(name, (byValue ? PP_GetPeaks_Val : PP_GetPeaks_Idx)(a, peaks.data(), n, &count),
               Arguments(a, Out{"peaks"}, n, Out{"count"}));
    } else {
        using Split = std::int32_t (*)(std::int32_t, std::int32_t*, double*, std::int32_t, std::int32_t*);
        const bool vee = layout == "vee";
        const Split split = vee ? (byValue ? PP_GetPeaks_VEE_Val : PP_GetPeaks_VEE_Idx)
                                : (byValue ? PP_GetPeaks_Val_Flat : PP_GetPeaks_Idx_Flat);
        const char* name = vee ? (byValue ? "PP_GetPeaks_VEE_Val" : "PP_GetPeaks_VEE_Idx")
                               : (byValue ? "PP_GetPeaks_Val_Flat" : "PP_GetPeaks_Idx_Flat");
        std::vector<std::int32_t> indices(peaks.size());
        std::vector<double> values(peaks.size());
        Expect(name, split(a, indices.data(), values.data(), n, &count),
               Arguments(a, Out{"indices"}, Out{"values"}, n, Out{"count"}));
        for (std::int32_t k = 0; k < count; ++k) peaks[k] = PP_Peak{indices[k], 0, values[k]};
    }
    peaks.resize(static_cast<std::size_t>(count));
    return peaks;
}

struct Quantity {
    const char* name;
    const char* unit;
};

}  // namespace

void AddAnalyseOptions(CLI::App* command, AnalyseOptions& o) {
    command->add_option("SOURCE", o.source,
                        "a CSV or JSON file written by qvpower trace, or a sensor (serial or @5) to take a trace from")
        ->required();
    command->add_option("--sensor", o.host,
                        "for a file: the sensor whose analysis trace holds it (default the first free sensor)");
    command->add_option("-g,--gate", o.gates, "a gate from START to END microseconds after the first point; up to 10")
        ->type_name("START_US:END_US")
        ->each([](const std::string& text) { ParseGate(text); });
    command->add_option("-p,--peaks", o.peaks, "peaks listed, 0..3000 (default 10)")
        ->type_name("N")
        ->check(CLI::Range(0, 3000).description(""));
    command->add_option("--peak-order", o.peakOrder, "peaks by index (time) or by value, highest first")
        ->check(CLI::IsMember({"index", "value"}));
    command->add_option("--peak-layout", o.peakLayout,
                        "the list as records, or as parallel arrays through the vee or flat exports")
        ->check(CLI::IsMember({"records", "vee", "flat"}));
    command->add_option("-m,--marker", o.markers,
                        "a marker at TIME_US or moved to a peak (peak, lowest, first, last), then moved on "
                        "(next, prev, higher, lower: first,next is the second peak); with @DELTA_US a delta "
                        "marker whose second point lies that far on; up to 10")
        ->type_name("MARKER")
        ->each([](const std::string& text) { ParseMarker(text); });
    AddTraceSettings(command, o.trace);
    CLI::Option* asJson = command->add_flag("--json", o.json, "one JSON object");
    command->add_flag("--csv", o.csv, "section,item,quantity,value,unit lines with a header")->excludes(asJson);
}

int RunAnalyse(const AnalyseOptions& o) {
    if (o.gates.size() > 10) throw CLI::ValidationError("--gate", "at most 10 gates");
    if (o.markers.size() > 10) throw CLI::ValidationError("--marker", "at most 10 markers");
    const bool fromFile = std::ifstream(o.source).good();
    SensorName name;
    if (!fromFile) {
        name = FindSensor(o.source);
    } else if (!o.host.empty()) {
        name = FindSensor(o.host);
    } else {
        for (const ListedSensor& s : ListSensors())
            if (s.owner == Owner::Free) {
                name = FindSensor(s.serial);
                break;
            }
        if (name.serial.empty()) throw std::runtime_error("no free sensor to hold the analysis trace");
    }
    OwnedSensor owned(name);
    MeasureSettings settings;
    settings.frequencyHz = o.trace.frequencyHz;
    owned.Apply(settings);
    const std::int32_t a = name.address;
    if (!fromFile) {
        ApplyTraceSettings(a, o.trace);
        const std::int32_t length = PP_GetTraceLength(a);
        if (length <= 0) Expect("PP_GetTraceLength", length, Arguments(a), 10000);
        std::vector<double> trace(static_cast<std::size_t>(length));
        Expect("PP_ResetTraceAveraging", PP_ResetTraceAveraging(a), Arguments(a));
        for (int i = 0; i < o.trace.averages; ++i) {
            std::int32_t got = 0;
            Expect("PP_GetTrace", PP_GetTrace(a, trace.data(), length, &got),
                   Arguments(a, Out{"trace"}, length, Out{"count"}));
        }
        Expect("PP_CurrTrace2AnalysisTrace", PP_CurrTrace2AnalysisTrace(a, nullptr, 0), Arguments(a, "NULL", 0));
    } else {
        const LoadedTrace t = LoadTrace(o.source);
        // Only the freeze of the current trace makes the analysis trace valid;
        // the file's trace then replaces its points and keeps it valid.
        Expect("PP_CurrTrace2AnalysisTrace", PP_CurrTrace2AnalysisTrace(a, nullptr, 0), Arguments(a, "NULL", 0));
        const double freq = o.trace.frequencyHz.value_or(owned.FrequencyHz());
        const auto n = static_cast<std::int32_t>(t.power.size());
        Expect("PP_SetAnalysisTrace", PP_SetAnalysisTrace(a, freq, t.sweepUsec, t.power.data(), n, t.unit),
               Arguments(a, freq, t.sweepUsec, Out{"trace"}, n, t.unit));
    }
    const std::int32_t length = PP_GetAnalysisTraceLength(a);
    if (length <= 0) Expect("PP_GetAnalysisTraceLength", length, Arguments(a), 10000);
    double freq = 0.0, sweep = 0.0;
    {
        std::vector<double> points(static_cast<std::size_t>(length));
        std::int32_t n = length;
        const std::int32_t unit = QV_UNIT_DBM;
        Expect("PP_GetAnalysisTrace", PP_GetAnalysisTrace(a, &freq, &sweep, points.data(), &n, &unit),
               Arguments(a, Out{"freq"}, Out{"sweepTime"}, Out{"trace"}, Out{"n"}, Out{"unit"}));
    }
    const double usecPerPoint = length > 1 ? sweep / (length - 1) : 0.0;

    json report{{"sensor", name.serial}, {"address", a}, {"source", fromFile ? o.source : "acquisition"},
                {"frequency_hz", freq}, {"sweep_time_us", sweep}, {"points", length}};
    report["trace"] = {
        {"average_dbm", Value([&](double* v) { return PP_GetTraceAvgPower(a, v); })},
        {"peak_dbm", Value([&](double* v) { return PP_GetTracePkPwr(a, v); })},
        {"crest_factor_db", Value([&](double* v) { return PP_GetTraceCrestFactor(a, v); })},
        {"pulse_dbm", Value([&](double* v) { return PP_GetTracePulsePower(a, v); })},
        {"duty_cycle", Value([&](double* v) { return PP_GetTraceDC(a, v); })}};

    report["gates"] = json::array();
    for (std::size_t g = 0; g < o.gates.size(); ++g) {
        const auto [start, end] = ParseGate(o.gates[g]);
        const auto i = static_cast<std::int32_t>(g);
        Expect("PP_SetGateMode", PP_SetGateMode(a, i, 1), Arguments(a, i, 1));
        Expect("PP_SetGateStartEndTime", PP_SetGateStartEndTime(a, i, start, end), Arguments(a, i, start, end));
        report["gates"].push_back(json{
            {"gate", i},
            {"start_us", start},
            {"end_us", end},
            {"average_dbm", Value([&](double* v) { return PP_GetGateAveragePower(a, i, v); })},
            {"peak_dbm", Value([&](double* v) { return PP_GetGatePeakPower(a, i, v); }, true)},
            {"crest_factor_db", Value([&](double* v) { return PP_GetGateCrestFactor(a, i, v); }, true)},
            {"pulse_dbm", Value([&](double* v) { return PP_GetGatePulsePower(a, i, v); })},
            {"pulse_width_us", Value([&](double* v) { return PP_GetGatePulseWidth(a, i, v); })},
            {"prt_us", Value([&](double* v) { return PP_GetGatePRT(a, i, v); })},
            {"prf_hz", Value([&](double* v) { return PP_GetGatePRF(a, i, v); })},
            {"duty_cycle", Value([&](double* v) { return PP_GetGateDutyCycle(a, i, v); })},
            {"rise_time_us", Value([&](double* v) { return PP_GetGateRiseTime(a, i, v); })},
            {"fall_time_us", Value([&](double* v) { return PP_GetGateFallTime(a, i, v); })},
            {"droop_db", Value([&](double* v) { return PP_GetGateDroop(a, i, v); })},
            {"overshoot_db", Value([&](double* v) { return PP_GetGateOverShoot(a, i, v); })}});
    }

    report["markers"] = json::array();
    for (std::size_t m = 0; m < o.markers.size(); ++m) {
        const MarkerRequest request = ParseMarker(o.markers[m]);
        const auto i = static_cast<std::int32_t>(m);
        json marker{{"marker", i}, {"request", o.markers[m]}};
        Expect("PP_SetMarkerMode", PP_SetMarkerMode(a, i, 1), Arguments(a, i, 1));
        // A move with no peak to go to leaves the marker without a point.
        bool placed = true;
        if (request.startUsec)
            Expect("PP_SetMarkerPositionTime", PP_SetMarkerPositionTime(a, i, *request.startUsec),
                   Arguments(a, i, *request.startUsec));
        for (const std::string& name : request.moves)
            placed = placed && FindMove(name)->move(a, i) >= 0;
        auto point = [&](const char* prefix) {
            std::int32_t index = -1;
            const bool valid = placed && PP_GetMarkerPosition(a, i, &index) == 1;
            marker[std::string(prefix) + "index"] = valid ? json(index) : json(nullptr);
            marker[std::string(prefix) + "time_us"] =
                valid ? Value([&](double* v) { return PP_GetMarkerPositionTime(a, i, v); }) : json(nullptr);
            marker[std::string(prefix) + "power_dbm"] =
                valid ? Value([&](double* v) { return PP_GetMarkerAmp(a, i, v); }) : json(nullptr);
        };
        point("");
        if (request.deltaUsec) {
            Expect("PP_SetMarkerMode", PP_SetMarkerMode(a, i, 2), Arguments(a, i, 2));
            placed = placed && PP_SetMarkerDeltaTime(a, i, *request.deltaUsec) == 1;
            point("delta_");
            marker["delta_us"] =
                placed ? Value([&](double* v) { return PP_GetMarkerDeltaTime(a, i, v); }) : json(nullptr);
            marker["delta_db"] =
                placed ? Value([&](double* v) { return PP_GetMarkerDeltaAmp(a, i, v); }) : json(nullptr);
        }
        report["markers"].push_back(marker);
    }

    report["peak_order"] = o.peakOrder;
    report["peak_layout"] = o.peakLayout;
    report["peaks"] = json::array();
    if (o.peaks > 0) {
        const std::vector<PP_Peak> peaks = PeakList(a, o.peaks, o.peakOrder == "value", o.peakLayout);
        for (std::size_t k = 0; k < peaks.size(); ++k) {
            json peak{{"index", peaks[k].Index}, {"time_us", peaks[k].Index * usecPerPoint},
                      {"power_dbm", peaks[k].Value}, {"left_edge_us", nullptr}, {"right_edge_us", nullptr}};
            std::int32_t left = 0, right = 0;
            // Peaks near either end have no edges to look for.
            if (PP_GetPulseEdgesPosition(a, peaks[k].Index, &left, &right) == 1) {
                peak["left_edge_us"] = left * usecPerPoint;
                peak["right_edge_us"] = right * usecPerPoint;
            }
            report["peaks"].push_back(peak);
        }
    }
    owned.Release();

    if (o.json) {
        std::cout << report.dump() << "\n";
        return 0;
    }
    // Units follow from each quantity's name: *_dbm, *_db, *_us, *_hz, or a ratio.
    auto unitOf = [](const std::string& key) -> std::string {
        static const std::pair<std::string, std::string> kUnits[] = {
            {"_dbm", "dBm"}, {"_db", "dB"}, {"_us", "us"}, {"_hz", "Hz"}};
        for (const auto& [suffix, unit] : kUnits)
            if (key.size() > suffix.size() && key.compare(key.size() - suffix.size(), suffix.size(), suffix) == 0)
                return unit;
        return "";
    };
    auto text = [](const json& v) {
        if (v.is_null()) return std::string("not found");
        if (v.is_number_integer()) return std::to_string(v.get<long long>());
        char out[32];
        std::snprintf(out, sizeof out, "%.4g", v.get<double>());
        return std::string(out);
    };
    if (o.csv) {
        std::cout << "section,item,quantity,value,unit\n";
        auto row = [&](const std::string& section, const std::string& item, const std::string& key, const json& v) {
            std::cout << section << "," << item << "," << key << "," << (v.is_null() ? "" : v.dump()) << ","
                      << unitOf(key) << "\n";
        };
        for (const auto& [key, v] : report["trace"].items()) row("trace", "", key, v);
        for (const json& g : report["gates"])
            for (const auto& [key, v] : g.items())
                if (key != "gate") row("gate", std::to_string(g["gate"].get<int>()), key, v);
        for (const json& m : report["markers"])
            for (const auto& [key, v] : m.items())
                if (key != "marker" && key != "request") row("marker", std::to_string(m["marker"].get<int>()), key, v);
        int k = 0;
        for (const json& p : report["peaks"]) {
            for (const auto& [key, v] : p.items()) row("peak", std::to_string(k), key, v);
            ++k;
        }
        return 0;
    }
    std::printf("%s @%d  %s  %d points over %g us\n", name.serial.c_str(), a,
                fromFile ? o.source.c_str() : "fresh trace", length, sweep);
    std::printf("trace\n");
    for (const auto& [key, v] : report["trace"].items())
        std::printf("  %-16s %s %s\n", key.c_str(), text(v).c_str(), v.is_null() ? "" : unitOf(key).c_str());
    for (const json& g : report["gates"]) {
        std::printf("gate %d  %g..%g us\n", g["gate"].get<int>(), g["start_us"].get<double>(),
                    g["end_us"].get<double>());
        for (const auto& [key, v] : g.items())
            if (key != "gate" && key != "start_us" && key != "end_us")
                std::printf("  %-16s %s %s\n", key.c_str(), text(v).c_str(), v.is_null() ? "" : unitOf(key).c_str());
    }
    for (const json& m : report["markers"]) {
        std::printf("marker %d  %s\n", m["marker"].get<int>(), m["request"].get<std::string>().c_str());
        for (const auto& [key, v] : m.items())
            if (key != "marker" && key != "request")
                std::printf("  %-16s %s %s\n", key.c_str(), text(v).c_str(), v.is_null() ? "" : unitOf(key).c_str());
    }
    std::printf("peaks by %s (%s)\n", o.peakOrder.c_str(), o.peakLayout.c_str());
    std::printf("peaks  %-10s %-10s %-12s %-12s\n", "time us", "dBm", "left edge", "right edge");
    for (const json& p : report["peaks"])
        std::printf("       %-10s %-10s %-12s %-12s\n", text(p["time_us"]).c_str(), text(p["power_dbm"]).c_str(),
                    text(p["left_edge_us"]).c_str(), text(p["right_edge_us"]).c_str());
    return 0;
}

}  // namespace qvpower
