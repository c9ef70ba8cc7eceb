// qvpower against a simulated bus: what it prints, what it exits with, and
// its model table held against the library.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "qv_api2.h"
#include "qvpower_sensors.h"
#include "support/files.h"
#include "support/process.h"
#include "support/sim_fixture.h"

namespace qv::test {
namespace {

struct ToolRun {
    int status;
    std::string output;  // standard output and error together

    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        std::istringstream text(output);
        for (std::string line; std::getline(text, line);) lines.push_back(line);
        return lines;
    }
    std::vector<nlohmann::json> JsonLines() const {
        std::vector<nlohmann::json> objects;
        for (const std::string& line : Lines()) objects.push_back(nlohmann::json::parse(line));
        return objects;
    }
};

class QvPower : public SimBusTest {
protected:
    void SetUp() override {
        SimBusTest::SetUp();
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        config.serial = "AB1234";
        config.product = "QV442A";
        config.firmware = "V2.03";
        config.address = 5;
        config.due_year = 27;
        config.due_month = 3;
        config.due_day = 31;
        first_ = qvsim_sensor_add(&config);
        ASSERT_GE(first_, 0);
        second_ = AddSensor("CD5678", 12, "TK8410");
    }

    void SetSignal(const std::function<void(qvsim_signal&)>& change) const { SimBusTest::SetSignal(first_, change); }

    static ToolRun Run(std::vector<std::string> args) {
        const std::string out = std::string(std::getenv("QV_TEST_TMPDIR")) + "/qvpower.out";
        args.insert(args.begin(), QVPOWER_PATH);
        ChildOptions options;
        options.outputFile = out;
        ToolRun run{RunProcess(args, options), {}};
        // Lines end in CR LF on Windows.
        for (char c : FileText(out))
            if (c != '\r') run.output += c;
        return run;
    }

    int first_ = -1, second_ = -1;
};

TEST_F(QvPower, ListsEverySensorWithItsModelAndOwner) {
    const ToolRun json = Run({"list", "--json"});
    ASSERT_EQ(json.status, 0) << json.output;
    const std::vector<nlohmann::json> sensors = json.JsonLines();
    ASSERT_EQ(sensors.size(), 2u);
    EXPECT_EQ(sensors[0]["serial"], "AB1234");
    EXPECT_EQ(sensors[0]["address"], 5);
    EXPECT_EQ(sensors[0]["model_name"], "QV442A");
    EXPECT_EQ(sensors[0]["owner"], "free");
    EXPECT_EQ(sensors[1]["model"], 112);
    EXPECT_EQ(sensors[1]["index"], 2);
}

// By serial (in any case) and by address, the same identity.
class QvPowerInfo : public QvPower, public ::testing::WithParamInterface<const char*> {};

TEST_P(QvPowerInfo, TellsModelRangeFirmwareDueDateAndOwner) {
    const ToolRun run = Run({"info", GetParam(), "--json"});
    ASSERT_EQ(run.status, 0) << run.output;
    const nlohmann::json info = run.JsonLines().at(0);
    const nlohmann::json expected = {{"serial", "AB1234"},     {"address", 5},           {"model_name", "QV442A"},
                                     {"min_frequency_hz", 1e7}, {"max_frequency_hz", 2e10}, {"firmware", "V2.03"},
                                     {"cal_due", "2027-03-31"}, {"owner", "free"}};
    for (const auto& [key, value] : expected.items()) EXPECT_EQ(info[key], value) << key;
}

INSTANTIATE_TEST_SUITE_P(Names, QvPowerInfo, ::testing::Values("AB1234", "ab1234", "@5"));

// What a run prints and exits with. Each failure exits 1 and names the
// export, its arguments, its code and what the code means for it; usage
// errors exit 2; help exits 0.
struct Outcome {
    std::vector<std::string> args;
    int status;
    const char* expected;  // in the output
    int fault = -1, faultCode = 0;  // put on the first sensor before the run
};

class QvPowerFails : public QvPower, public ::testing::WithParamInterface<Outcome> {};

TEST_P(QvPowerFails, ExitsWithItsStatusSaying) {
    if (GetParam().fault >= 0) AddFault(first_, GetParam().fault, GetParam().faultCode);
    const ToolRun run = Run(GetParam().args);
    EXPECT_EQ(run.status, GetParam().status) << run.output;
    EXPECT_NE(run.output.find(GetParam().expected), std::string::npos) << run.output;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, QvPowerFails,
    ::testing::Values(
        Outcome{{"list"}, 0, "AB1234"}, Outcome{{"list"}, 0, "TK8410 or TKS8410"},
        Outcome{{"info", "CD5678"}, 0, "cal due date  not set"},  // an erased date
        Outcome{{"--help"}, 0, "Usage:"}, Outcome{{"list", "--help"}, 0, "Usage:"},
        Outcome{{"info", "--help"}, 0, "Usage:"}, Outcome{{"measure", "--help"}, 0, "Usage:"},
        Outcome{{"measure", "cw", "--help"}, 0, "Usage:"}, Outcome{{"measure", "pulse", "--help"}, 0, "Usage:"},
        Outcome{{"trace", "--help"}, 0, "Usage:"},
        Outcome{{"info", "ZZ9999"}, 1, "QV_GetIndex_SN(\"ZZ9999\") returned 0: no sensor on the bus has this serial"},
        Outcome{{"info", "ABC"}, 1, "QV_GetIndex_SN(\"ABC\") returned -2: not a valid serial number"},
        Outcome{{"info", "@77"}, 1, "QV_GetIndex_Addr(77) returned 0: no sensor on the bus has this address"},
        Outcome{{"measure", "cw", "AB1234", "-f", "30GHz"}, 1,
                "QV_SetFrequency(5, 3e+10) returned -1: the frequency is outside the model's range"},
        Outcome{{"measure", "pulse", "@5", "-f", "5MHz", "--json"}, 1,
                R"x({"error":{"export":"QV_SetFrequency","call":"QV_SetFrequency(5, 5e+06)","code":-1,)x"},
        Outcome{{"info", "@300"}, 2, "@1 to @255"},
        Outcome{{"measure", "cw", "AB1234", "--averages", "0"}, 2, "--averages"},
        Outcome{{"measure", "cw", "AB1234", "--unit", "furlongs"}, 2, "--unit"},
        Outcome{{"measure", "cw"}, 2, "SENSOR"},
        Outcome{{"list", "--json", "--csv"}, 2, "excludes"},
        // A CW input and no TTL edges: the sweep never starts.
        Outcome{{"trace", "@5", "--trigger", "ttl"}, 1,
                "PP_GetTrace(5, &trace, 10000, &count) returned -100: the sensor delivered no complete trace"},
        Outcome{{"trace", "@5", "-t", "30"}, 2, "--sweep-time"},
        Outcome{{"measure", "burst", "--help"}, 0, "Usage:"}, Outcome{{"analyse", "--help"}, 0, "Usage:"},
        Outcome{{"doctor"}, 0, "loaded, all 12 functions present"},
        Outcome{{"doctor"}, 0, "cal due 2027-03-31"},
        Outcome{{"doctor"}, 0, "cal due erased (no date stored)"},
        Outcome{{"doctor", "--json"}, 0, R"x("cal_due":"2027-03-31","cal_due_state":"set","owner":"free")x"},
        Outcome{{"explain", "-2", "QV_SensorCnt"}, 0, "-2 from QV_SensorCnt: the sensor driver library is missing"},
        Outcome{{"explain", "-2"}, 0, "-2 in general: invalid device index"},
        Outcome{{"explain", "-99"}, 1, "-99: no export is documented to return this code"},
        Outcome{{"explain", "1", "QV_Nope"}, 2, "unknown export QV_Nope"},
        Outcome{{"measure", "burst", "@5", "--start", "1", "--length", "1000000"}, 1,
                "QV_MeasureBurst_DBM(5, 1, 1000000, 0, &maximum, &average, &minimum) returned -1: the window is out of range"},
        // A gate beyond the 1 ms sweep of the fresh trace.
        Outcome{{"analyse", "@5", "-t", "1000", "-g", "0:1500"}, 1, "PP_SetGateStartEndTime(5, 0, 0, 1500) returned -1"},
        Outcome{{"analyse", "@5", "-g", "10-20"}, 2, "START_US:END_US"},
        // A sensor that misbehaves: the export that meets it is named with its code.
        Outcome{{"measure", "cw", "@5", "-a", "2"}, 1,
                "QV_GetIndex_Addr(5) returned -5: a sensor on the bus could not be opened", QVSIM_FAULT_OPEN_FAILS},
        Outcome{{"measure", "cw", "@5", "-a", "2"}, 1,
                "QV_MeasureCW(5, &reading) returned -13: no reading: the acquisition failed", QVSIM_FAULT_PIPE_TIMEOUT,
                0x82}));

// Readings of known simulated signals: the tool's options reach the library
// and its output reads back.
// A set-up mistake is named by doctor, and by the library's log line.
TEST_F(QvPower, DoctorAndTheLogSayWhatIsWrongWithTheSetUp) {
    const std::string base = std::getenv("QV_TEST_TMPDIR");
    std::ofstream(base + "/file") << "x";
    const std::string driver = std::getenv("QV_USBDRVD"), data = std::getenv("QV_API2_DATA_DIR");
    SetEnv("QV_USBDRVD", base + "/nonexistent-driver");
    SetEnv("QV_API2_DATA_DIR", base + "/file/data");
    SetEnv("QV_API2_LOG", "stderr");
    const ToolRun doctor = Run({"doctor"});
    const ToolRun list = Run({"list"});
    SetEnv("QV_USBDRVD", driver);
    SetEnv("QV_API2_DATA_DIR", data);
    UnsetEnv("QV_API2_LOG");
    EXPECT_EQ(doctor.status, 1);
    EXPECT_NE(doctor.output.find("not loaded: "), std::string::npos) << doctor.output;
    EXPECT_NE(doctor.output.find("/file/data (not writable: "), std::string::npos) << doctor.output;
    EXPECT_EQ(list.status, 1);
    EXPECT_NE(list.output.find("nonexistent-driver could not be loaded ("), std::string::npos) << list.output;
}

TEST_F(QvPower, CwReadingsInJsonAgreeWithTheInputPower) {
    ASSERT_EQ(qvsim_set_cw_power(first_, -12.0), QVSIM_OK);
    const ToolRun run = Run({"measure", "cw", "AB1234", "-f", "1GHz", "-a", "4", "-n", "3", "--json"});
    ASSERT_EQ(run.status, 0) << run.output;
    const std::vector<nlohmann::json> readings = run.JsonLines();
    ASSERT_EQ(readings.size(), 3u) << run.output;
    for (int n = 0; n < 3; ++n) {
        EXPECT_EQ(readings[n]["reading"], n + 1);
        EXPECT_EQ(readings[n]["sensor"], "AB1234");
        EXPECT_EQ(readings[n]["unit"], "dBm");
        EXPECT_NEAR(readings[n]["power"].get<double>(), -12.0, 0.05);
    }
}

TEST_F(QvPower, CwReadingInCsvWithOffsetInWatts) {
    SetSignal([](qvsim_signal& s) { s.cw_dbm = -12.0, s.freq_hz = 2.4e9; });
    const ToolRun run = Run({"measure", "cw", "@5", "-f", "2.4GHz", "-a", "2", "-o", "3", "-u", "w", "--csv"});
    ASSERT_EQ(run.status, 0) << run.output;
    const std::vector<std::string> lines = run.Lines();
    ASSERT_EQ(lines.size(), 2u) << run.output;
    EXPECT_EQ(lines[0], "reading,sensor,address,frequency_hz,power,unit");
    const std::string& row = lines[1];
    const std::string prefix = "1,AB1234,5,2400000000.0,";
    ASSERT_EQ(row.rfind(prefix, 0), 0u) << row;
    EXPECT_EQ(row.substr(row.rfind(',')), ",W");
    const double watts = std::stod(row.substr(prefix.size()));
    EXPECT_NEAR(10 * std::log10(watts / 1e-3), -9.0, 0.05);
}

TEST_F(QvPower, PulseReadingInJsonHasEveryPart) {
    // 26 us on in every 252 us: 13 of the 126 samples of each block.
    SetSignal([](qvsim_signal& s) {
        s.kind = QVSIM_SIGNAL_PULSE, s.period_us = 252, s.width_us = 26, s.on_dbm = 5.0, s.off_dbm = -50.0;
    });
    const ToolRun run = Run({"measure", "pulse", "AB1234", "-a", "4", "--json"});
    ASSERT_EQ(run.status, 0) << run.output;
    const nlohmann::json r = run.JsonLines().at(0);
    const double duty = 13 / 126.0;
    EXPECT_NEAR(r["pulse"].get<double>(), 5.0, 0.05);
    EXPECT_NEAR(r["peak"].get<double>(), 5.0, 0.1);
    EXPECT_NEAR(r["average"].get<double>(), 10 * std::log10(duty * std::pow(10, 0.5) + (1 - duty) * 1e-5), 0.05);
    EXPECT_NEAR(r["duty_cycle"].get<double>(), duty, 0.01);
    EXPECT_EQ(r["unit"], "dBm");
}

// Traces of a simulated pulse train (100 us on in every 400 us), triggered on
// its rise: CSV with its time axis, and JSON with repeated averaged traces.
class QvPowerTrace : public QvPower {
protected:
    void SetUp() override {
        QvPower::SetUp();
        SetSignal([](qvsim_signal& s) {
            s.kind = QVSIM_SIGNAL_PULSE, s.period_us = 400, s.width_us = 100, s.on_dbm = -5.0, s.off_dbm = -40.0;
        });
    }
};

TEST_F(QvPowerTrace, JsonWritesOneAveragedTracePerCount) {
    // A delay of one period: the time axis moves, the pulses stay where they were.
    const ToolRun run = Run({"trace", "@5", "-t", "2000", "-d", "400", "-a", "3", "--filter", "8", "--poles", "1", "-n", "2",
                             "--json"});
    ASSERT_EQ(run.status, 0) << run.output;
    const std::vector<nlohmann::json> traces = run.JsonLines();
    ASSERT_EQ(traces.size(), 2u);
    for (const nlohmann::json& trace : traces) {
        EXPECT_EQ(trace["unit"], "dBm");
        ASSERT_EQ(trace["power"].size(), 10000u);
        EXPECT_DOUBLE_EQ(trace["time_s"][0].get<double>(), 400e-6);
        EXPECT_DOUBLE_EQ(trace["time_s"][9999].get<double>(), 2400e-6);
        // Middle of the second pulse and of the gap after it, past the filter's settling.
        EXPECT_NEAR(trace["power"][2250].get<double>(), -5.0, 0.3);
        EXPECT_NEAR(trace["power"][3500].get<double>(), -40.0, 0.3);
    }
}

TEST_F(QvPower, BurstReadsTheSimulatedBurstsTop) {
    SetSignal([](qvsim_signal& s) {
        s.kind = QVSIM_SIGNAL_BURST, s.period_us = 1000, s.start_us = 200, s.width_us = 300;
        s.on_dbm = -10.0, s.off_dbm = -40.0;
    });
    // The automatic trigger fires on the burst's rise: the window lies on its top.
    const ToolRun run = Run({"measure", "burst", "AB1234", "--start", "50", "--length", "200", "--json"});
    ASSERT_EQ(run.status, 0) << run.output;
    const nlohmann::json reading = run.JsonLines().at(0);
    for (const char* key : {"maximum", "average", "minimum"}) EXPECT_NEAR(reading[key].get<double>(), -10.0, 0.1) << key;
}

// qvpower trace's CSV read back by qvpower analyse: the pulse train's width
// and period, and a peak with its edges for each whole pulse.
TEST_F(QvPowerTrace, AnalyseOfATraceFileFindsWidthAndPeriod) {
    const ToolRun trace = Run({"trace", "AB1234", "-t", "1000", "--trigger", "level", "-l", "-20"});
    ASSERT_EQ(trace.status, 0) << trace.output;
    const std::vector<std::string> lines = trace.Lines();
    ASSERT_EQ(lines.size(), 10002u);  // two header lines and the points
    EXPECT_EQ(lines[0], "# power in dBm");
    EXPECT_EQ(lines[1], "time_s,power");
    const std::string file = std::string(std::getenv("QV_TEST_TMPDIR")) + "/pulses.csv";
    WriteFile(file, trace.output);
    const ToolRun run = Run({"analyse", file, "-g", "0:1000", "-g", "350:700", "--json"});
    ASSERT_EQ(run.status, 0) << run.output;
    const nlohmann::json report = run.JsonLines().at(0);
    EXPECT_EQ(report["points"], 10000);
    for (const nlohmann::json& gate : report["gates"])
        EXPECT_NEAR(gate["pulse_width_us"].get<double>(), 100.0, 1.0) << gate;
    EXPECT_NEAR(report["gates"][0]["prt_us"].get<double>(), 400.0, 1.0);
    EXPECT_NEAR(report["gates"][0]["duty_cycle"].get<double>(), 0.25, 0.01);
    EXPECT_TRUE(report["gates"][1]["prt_us"].is_null());  // a single pulse has no period
    ASSERT_EQ(report["peaks"].size(), 2u);
    EXPECT_NEAR(report["peaks"][1]["left_edge_us"].get<double>(), 800.0, 1.0);
    EXPECT_NEAR(report["peaks"][1]["right_edge_us"].get<double>(), 900.0, 1.0);
}

// Every peak layout and order gives the same peaks; markers placed by moves,
// by time and as a delta reach them, in JSON and in CSV.
TEST_F(QvPowerTrace, AnalyseMarkersAndPeakLayouts) {
    const ToolRun trace = Run({"trace", "AB1234", "-t", "1000", "--trigger", "level", "-l", "-20"});
    ASSERT_EQ(trace.status, 0) << trace.output;
    const std::string file = std::string(std::getenv("QV_TEST_TMPDIR")) + "/markers.csv";
    std::ofstream(file) << trace.output;
    const std::vector<std::string> markers {"-m", "first,next", "-m", "peak@-200", "-m", "250", "-m", "last,next"};
    std::vector<double> byIndex;
    for (const char* layout : {"records", "vee", "flat"})
        for (const char* order : {"index", "value"}) {
            std::vector<std::string> args {"analyse", file, "--peak-layout", layout, "--peak-order", order, "--json"};
            args.insert(args.end(), markers.begin(), markers.end());
            const ToolRun run = Run(args);
            ASSERT_EQ(run.status, 0) << run.output;
            const nlohmann::json report = run.JsonLines().at(0);
            std::vector<double> times;
            for (const nlohmann::json& p : report["peaks"]) times.push_back(p["time_us"].get<double>());
            if (std::string(order) == "value") std::sort(times.begin(), times.end());
            if (byIndex.empty()) byIndex = times;
            ASSERT_EQ(times, byIndex) << layout << " " << order;
            const nlohmann::json& m = report["markers"];
            SCOPED_TRACE(m.dump());
            EXPECT_NEAR(m[0]["time_us"].get<double>(), times.at(1), 1e-6);  // the second pulse
            EXPECT_EQ(m[3]["index"], m[0]["index"]);                  // next after the last stays on it
            EXPECT_NEAR(m[1]["delta_us"].get<double>(), -200.0, 0.2);
            EXPECT_NEAR(m[1]["delta_db"].get<double>(), -35.0, 1.0);
            EXPECT_NEAR(m[2]["time_us"].get<double>(), 250.0, 0.2);
            EXPECT_NEAR(m[2]["power_dbm"].get<double>(), -40.0, 1.0);
        }
    ASSERT_EQ(byIndex.size(), 2u);
    const ToolRun csv = Run({"analyse", file, "--csv", "-m", "250"});
    ASSERT_EQ(csv.status, 0) << csv.output;
    EXPECT_NE(csv.output.find("marker,0,time_us,250"), std::string::npos) << csv.output;
    EXPECT_EQ(Run({"analyse", file, "-m", "first,sideways"}).status, 2);
}

// The tool's own table of model names and ranges against what the library
// makes of each model's product string.
TEST_F(QvPower, ModelTableAgreesWithTheLibrary) {
    for (const qvpower::ModelInfo& model : qvpower::Models()) {
        SCOPED_TRACE(model.name);
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        config.serial = "MT0001";
        config.product = model.product;
        const int id = qvsim_sensor_add(&config);
        ASSERT_GE(id, 0);
        const int32_t address = QV_GetAddress_SN("MT0001");
        int32_t code = -2;
        ASSERT_EQ(QV_GetModelNumber_SN("MT0001", &code), 1);
        EXPECT_EQ(code, model.code);
        ASSERT_GE(QV_InitializeSensor_SN("MT0001"), 1);
        EXPECT_EQ(QV_SetFrequency(address, qvpower::kMinFrequencyHz), 1);
        EXPECT_EQ(QV_SetFrequency(address, model.maxFrequencyHz), 1);
        EXPECT_EQ(QV_SetFrequency(address, model.maxFrequencyHz * 1.0001), -1);
        EXPECT_EQ(QV_UninitializeSensor_SN("MT0001"), 1);
        ASSERT_EQ(qvsim_sensor_remove(id), QVSIM_OK);
    }
}

}  // namespace
}  // namespace qv::test
