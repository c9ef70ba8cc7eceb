// Readings of a simulated sensor through the exports: what goes out to the
// sensor when, the averaging split, smoothing, corrections and units, pulse
// readings, and sensors that stop answering.
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "measure/measure_fixture.h"

using namespace qv;
using namespace qv::test;

namespace {

using Strings = std::vector<std::string>;
const Strings kStart {"OUT 193", "IN 194"};
const Strings kNothing {};

double Mw(double dbm) { return std::pow(10.0, dbm / 10.0); }
double Dbm(double mw) { return 10.0 * std::log10(mw); }

// ---------------------------------------------------------------- stream flags

struct FlagStep {
    const char* what;
    std::function<void()> before;
    std::int32_t averages;
    Strings requests;
    bool pulse = false;
};

class StreamFlags : public MeasureTest {
protected:
    // Triggered mode switches the sensor's trigger input on (191): edges come
    // every 500 us.
    void SetTriggerOutput(int on) {
        ASSERT_EQ(QV_SetTTLTriggerOutEnabled(kMeasAddr, on), 1);
        ASSERT_EQ(qvsim_trigger_periodic(id_, 500), QVSIM_OK);
        qvsim_transcript_clear(id_);
    }
};

TEST_F(StreamFlags, DecideWhichRequestsEachReadingSends) {
    const std::vector<FlagStep> steps = {
        {"first streaming reading arms the stream", [] {}, 1, kStart},
        {"then a bare pipe read", [] {}, 1, kNothing},
        {"and again", [] {}, 1, kNothing},
        // The sensor keeps streaming: more blocks are read from the stream,
        // each reading re-arming it.
        {"more averages drop the armed flag", [] {}, 3, {"IN 194"}},
        {"and re-arm each reading", [] {}, 3, {"IN 194"}},
        {"back to one average arms it once more", [] {}, 1, {"IN 194"}},
        {"streaming", [] {}, 1, kNothing},
        {"a pulse reading reads the same stream", [] {}, 1, kNothing, true},
        {"trigger output on: triggered mode, output pulsed around it",
         [this] { SetTriggerOutput(1); }, 1, {"IN 205", "IN 191", "OUT 193", "IN 194", "IN 204"}},
        {"triggered mode has no stream", [] {}, 2, {"IN 205", "IN 191", "OUT 193", "IN 194", "IN 204"}},
        {"trigger output off: the stream was dropped and is armed again",
         [this] { SetTriggerOutput(0); }, 1, kStart},
        {"streaming once more", [] {}, 1, kNothing},
        // Switching the recorder on stopped the sensor (179 195 187): two
        // reads find nothing, and the third is re-armed.
        {"recorder mode keeps the flags and re-arms a stopped stream",
         [this] {
             ASSERT_EQ(QV_SetRecorderOutEnabled(kMeasAddr, 1), 1);
             qvsim_transcript_clear(id_);
         },
         1, {"IN 194"}},
        {"then streams", [] {}, 1, kNothing},
        {"a pulse reading in recorder mode drops the stream and switches the output off", [] {}, 1,
         {"OUT 193", "IN 194", "IN 179", "IN 195", "IN 187", "IN 198"}, true},
        {"so the next reading arms it again", [] {}, 1, kStart},
    };
    for (const FlagStep& step : steps) {
        SCOPED_TRACE(step.what);
        step.before();
        Current().Averages = step.averages;
        double a = 0, b = 0, c = 0, d = 0;
        ASSERT_EQ(step.pulse ? QV_MeasurePulse(kMeasAddr, &a, &b, &c, &d) : QV_MeasureCW(kMeasAddr, &a), 1);
        EXPECT_EQ(NewRequests(), step.requests);
    }
}

// ---------------------------------------------------------------- averaging split

TEST_F(MeasureTest, AveragesAbove100AreSplitIntoEqualRunsAndKept) {
    Current().Averages = 150;
    SetPower(-20.0);
    double reading = 0;
    ASSERT_EQ(QV_MeasureCW(kMeasAddr, &reading), 1);
    EXPECT_NEAR(reading, -20.0, 0.03);
    EXPECT_EQ(StartPayloads(), (std::vector<int>{76, 76}));
    EXPECT_EQ(Current().Averages, 150);

    // The second run finds no data: the reading fails, the setting stays.
    AddFault(id_, QVSIM_FAULT_PIPE_TIMEOUT, 0x82, QVSIM_ALWAYS, 0, 1);
    EXPECT_EQ(QV_MeasureCW(kMeasAddr, &reading), QV_ERR_ACQUISITION);
    EXPECT_EQ(Current().Averages, 150);
}

TEST_F(MeasureTest, ASensorBeyondItsTemperatureTableIsReadWithTheEndRow) {
    Current().Averages = 2;
    for (int count : {0, 65535}) {
        ASSERT_EQ(qvsim_set_temperature(id_, count), QVSIM_OK);
        EXPECT_NEAR(ReadCW(-40.0), -40.0, 0.05) << count;
    }
}

TEST_F(MeasureTest, FrequencyChangeRebuildsTheRowsBeforeTheReading) {
    Current().Averages = 2;
    ASSERT_EQ(QV_SetFrequency(kMeasAddr, 6.0e9), 1);
    SetSignal([](qvsim_signal& s) { s.freq_hz = 6.0e9; });
    EXPECT_NEAR(ReadCW(-12.0), -12.0, 0.03);
    EXPECT_EQ(Record().tempRows[0].freq, 6.0e9);
}

// ---------------------------------------------------------------- corrections and units

struct CorrectionCase {
    const char* name;
    std::function<void(InstrumentState&)> set;
    double expected;  // from a -10 dBm input
    double tolerance;
};

class Corrections : public MeasureTest, public ::testing::WithParamInterface<CorrectionCase> {};

TEST_P(Corrections, ApplyInOrderToTheReading) {
    Current().Averages = 2;
    GetParam().set(Current());
    EXPECT_NEAR(ReadCW(-10.0), GetParam().expected, GetParam().tolerance);
}

const CorrectionCase kCorrections[] = {
    {"Offset", [](InstrumentState& s) { s.OffsetEnabled = 1, s.Offset_DB = 3.5; }, -6.5, 0.03},
    {"DutyCycle", [](InstrumentState& s) { s.DutyCycleEnabled = 1, s.DutyeCycle = 0.1; }, 0.0, 0.03},
    {"Ohms75InPowerUnits", [](InstrumentState& s) { s.Enabled75Ohms = 1; }, -4.28, 0.03},
    {"Ohms75InVoltageUnits",
     [](InstrumentState& s) { s.Enabled75Ohms = 1, s.PowerUnits = QV_UNIT_DBMV; }, -10 + 7.48 + 46.9897, 0.03},
    {"Watts", [](InstrumentState& s) { s.PowerUnits = QV_UNIT_W; }, 1e-4, 1e-6},
    {"Volts", [](InstrumentState& s) { s.PowerUnits = QV_UNIT_V; }, std::sqrt(0.05 * 0.1), 1e-4},
    {"Relative", [](InstrumentState& s) { s.PowerUnits = QV_UNIT_DB_REL, s.CWRef = 0.1, s.CWRefUnits = QV_UNIT_DBW; },
     -10 - 30.1, 0.03},
    {"Response",
     [](InstrumentState& s) {
         s.ResponseEnabled = 1, s.NumberOfResponsePoints = 2;
         s.Response[0] = {5e8, 1.0}, s.Response[1] = {1.5e9, 2.0};
     },
     -8.5, 0.03},
    {"OffsetAfterTheFloor", [](InstrumentState& s) { s.OffsetEnabled = 1, s.Offset_DB = -100; }, -110.0, 0.03},
};
INSTANTIATE_TEST_SUITE_P(Reading, Corrections, ::testing::ValuesIn(kCorrections),
                         [](const auto& i) { return std::string(i.param.name); });

TEST_F(MeasureTest, ModelOneReadingsBelowMinus37AreHeldThere) {
    Current().Averages = 1;
    Record().identity.ModelIndex = 1;
    EXPECT_EQ(ReadCW(-50.0), -37.0);
}

// ---------------------------------------------------------------- relative units

TEST_F(MeasureTest, RelativeReadingsAreJudgedAndShownAsTheAbsolutePower) {
    Current().Averages = 2;
    Current().PowerUnits = QV_UNIT_DB_REL;
    Current().CWRef = -10.0;
    SetPower(-25.0);
    double reading = 0;
    std::int32_t verdict = -1;
    ASSERT_EQ(QV_MeasureCW_PF(kMeasAddr, &reading, &verdict), 1);
    EXPECT_EQ(verdict, QV_LIMIT_NOT_EVALUATED);  // limits off
    ASSERT_EQ(QV_SetSingleSidedLimit(kMeasAddr, -30.0, QV_UNIT_DBM, 2), 1);  // below -30 fails
    ASSERT_EQ(QV_SetLimitEnabled(kMeasAddr, QV_LIMITS_SINGLE_SIDED), 1);
    ASSERT_EQ(QV_MeasureCW_PF(kMeasAddr, &reading, &verdict), 1);
    EXPECT_NEAR(reading, -15.0, 0.03);
    EXPECT_EQ(verdict, QV_LIMIT_PASS);  // -25 dBm, not -9999.999
    EXPECT_EQ(Current().MeasMode, 2);

    ASSERT_EQ(QV_SetRecorderOutEnabled(kMeasAddr, 1), 1);
    EXPECT_NEAR(ReadCW(-5.0), 5.0, 0.03);
    EXPECT_NEAR(State(id_).recorder_word, 26214, 60);  // shows -5 dBm
}

// ---------------------------------------------------------------- smoothing through the exports

TEST_F(MeasureTest, ExtendedAveragingAndMaxHoldFollowTheReadings) {
    Current().Averages = 1;
    ASSERT_EQ(QV_SetExtendedAveraging(kMeasAddr, 4), 1);
    ASSERT_EQ(QV_SetExtendedAveragingEnabled(kMeasAddr, 1), 1);
    EXPECT_NEAR(ReadCW(-10), -10, 0.03);
    EXPECT_NEAR(ReadCW(-20), Dbm(2.0 / 3 * Mw(-10) + 1.0 / 3 * Mw(-20)), 0.03);
    ASSERT_EQ(QV_ResetExtendedAveraging(kMeasAddr), 1);
    EXPECT_NEAR(ReadCW(-20), -20, 0.03);
    ASSERT_EQ(QV_SetExtendedAveragingEnabled(kMeasAddr, 0), 1);

    ASSERT_EQ(QV_SetMaxHoldEnabled(kMeasAddr, 1), 1);
    EXPECT_NEAR(ReadCW(-10), -10, 0.03);
    EXPECT_NEAR(ReadCW(-30), -10, 0.03);
    // A pulse reading between two CW readings restarts the CW hold.
    double p = 0, pk = 0, avg = 0, dc = 0;
    ASSERT_EQ(QV_MeasurePulse(kMeasAddr, &p, &pk, &avg, &dc), 1);
    EXPECT_NEAR(ReadCW(-30), -30, 0.03);
    ASSERT_EQ(QV_ResetMaxHold(kMeasAddr), 1);
    EXPECT_NEAR(ReadCW(-35), -35, 0.03);
}

// ---------------------------------------------------------------- pulse readings


TEST_F(MeasureTest, RelativePulseReadingsAndTheirVerdict) {
    Current().Averages = 4;
    Current().PowerUnits = QV_UNIT_DB_REL;
    ASSERT_EQ(QV_SetPulseReference(kMeasAddr, -20.0, -20.0, -30.0, 50.0, QV_UNIT_DBM), 1);
    ASSERT_EQ(QV_SetSingleSidedLimit(kMeasAddr, -25.0, QV_UNIT_DBM, 2), 1);
    ASSERT_EQ(QV_SetLimitEnabled(kMeasAddr, QV_LIMITS_SINGLE_SIDED), 1);
    SetSignal([](qvsim_signal& s) {
        s.kind = QVSIM_SIGNAL_PULSE, s.period_us = 252, s.width_us = 152, s.on_dbm = -10, s.off_dbm = -60;
    });
    double pulse = 0, peak = 0, average = 0, dc = 0;
    std::int32_t verdict = -1;
    ASSERT_EQ(QV_MeasurePulse_PF(kMeasAddr, &pulse, &peak, &average, &dc, &verdict), 1);
    EXPECT_NEAR(pulse, 10.0, 0.05);
    EXPECT_NEAR(dc, 76 / 126.0 - 0.5, 0.01);
    EXPECT_EQ(verdict, QV_LIMIT_PASS);  // -10 dBm is above -25
    EXPECT_EQ(Current().MeasMode, 4);
}

// ---------------------------------------------------------------- sensors that fail

TEST_F(MeasureTest, ASensorThatStopsAnsweringFailsTheReadingAndIsReopened) {
    Current().Averages = 1;
    ReadCW(-30);
    const unsigned opens = State(id_).opens;
    qvsim_transcript_clear(id_);
    AddFault(id_, QVSIM_FAULT_PIPE_TIMEOUT, 0x82);
    double reading = 7;
    EXPECT_EQ(QV_MeasureCW(kMeasAddr, &reading), QV_ERR_ACQUISITION);
    EXPECT_EQ(reading, 7);
    EXPECT_EQ(NewRequests(), (Strings{"OUT 193"}));  // the retry's start
    EXPECT_EQ(State(id_).opens, opens + 1);
    EXPECT_EQ(Info(id_).open_handles, 1);  // the old handle was closed
    EXPECT_EQ(Record().streamArmed, 0);
    // It answers again: the next reading starts the stream afresh.
    ASSERT_EQ(qvsim_clear_faults(id_), QVSIM_OK);
    EXPECT_NEAR(ReadCW(-30), -30, 0.03);
    EXPECT_EQ(NewRequests(), kStart);
}

TEST_F(MeasureTest, ARefusedStartClosesTheHandlesAndTheNextReadingOpensAnew) {
    Current().Averages = 1;
    AddFault(id_, QVSIM_FAULT_REQUEST_FAILS, 193, 1);
    double reading = 0;
    EXPECT_EQ(QV_MeasureCW(kMeasAddr, &reading), QV_ERR_ACQUISITION);
    EXPECT_EQ(Record().deviceHandle, -1);
    EXPECT_EQ(Record().winUsbHandle, -1);
    EXPECT_EQ(Info(id_).open_handles, 0);
    EXPECT_NEAR(ReadCW(-30), -30, 0.03);
    EXPECT_EQ(Info(id_).open_handles, 0);  // opened for that reading only
}

TEST_F(MeasureTest, MeasurementsRefuseSensorsTheCallerDoesNotOwn) {
    double a = 0, b = 0, c = 0, d = 0;
    std::int32_t v = 0;
    EXPECT_EQ(QV_MeasureCW(kMeasAddr + 1, &a), -1);
    EXPECT_EQ(QV_MeasureCW(kMeasAddr, nullptr), -1);
    EXPECT_EQ(QV_MeasureCW_PF(kMeasAddr, &a, nullptr), -1);
    EXPECT_EQ(QV_MeasurePulse(kMeasAddr, &a, &b, nullptr, &d), -1);
    EXPECT_EQ(QV_MeasurePulse_PF(kMeasAddr + 1, &a, &b, &c, &d, &v), -1);
    Record().ownerPid = platform::CurrentProcessId() + 1;
    EXPECT_EQ(QV_MeasureCW(kMeasAddr, &a), -1);
    EXPECT_EQ(QV_SetMaxHoldEnabled(kMeasAddr, 1), -1);
    Record().ownerPid = platform::CurrentProcessId();
    EXPECT_EQ(Requests(id_), kNothing);
}

}  // namespace

// ---------------------------------------------------------------- the simulated signal, end to end

namespace {

struct ModeCase {
    const char* name;
    std::function<void(int id)> set;
    std::int32_t averages;
};

class SignalReading : public MeasureTest,
                      public ::testing::WithParamInterface<std::tuple<ModeCase, double>> {};

TEST_P(SignalReading, AgreesWithTheSimulatedPowerInEveryMode) {
    const auto& [mode, dbm] = GetParam();
    Current().Averages = mode.averages;
    mode.set(id_);
    ASSERT_EQ(qvsim_set_cw_power(id_, dbm), QVSIM_OK);
    for (int i = 0; i < 3; ++i) {
        double reading = 0;
        ASSERT_EQ(QV_MeasureCW(kMeasAddr, &reading), 1) << i;
        EXPECT_NEAR(reading, dbm, 0.03) << i;
    }
}

// Switches a trigger on (the output's sequence turns the input on too), with
// edges every 500 us.
void Triggered(std::int32_t (*enable)(std::int32_t, std::int32_t), int id) {
    ASSERT_EQ(enable(kMeasAddr, 1), 1);
    ASSERT_EQ(qvsim_trigger_periodic(id, 500), QVSIM_OK);
}

const ModeCase kModes[] = {
    {"Streaming", [](int) {}, 1},
    {"SeventyFiveBlocks", [](int) {}, 75},
    {"SplitInTwo", [](int) {}, 150},
    {"TriggerInput", [](int id) { Triggered(QV_SetTTLTriggerInEnabled, id); }, 4},
    {"TriggerOutputPulsed", [](int id) { Triggered(QV_SetTTLTriggerOutEnabled, id); }, 4},
    {"Recorder", [](int) { ASSERT_EQ(QV_SetRecorderOutEnabled(kMeasAddr, 1), 1); }, 1},
};

// Named by mode and power: 0 to 3 for -55, -25, 0 and 12 dBm.
INSTANTIATE_TEST_SUITE_P(Modes, SignalReading,
                         ::testing::Combine(::testing::ValuesIn(kModes), ::testing::Values(-55.0, -25.0, 0.0, 12.0)),
                         [](const auto& i) {
                             return std::string(std::get<0>(i.param).name) + std::to_string(i.index % 4);
                         });

struct SignalPulseCase {
    const char* name;
    double periodUs, widthUs, on, off, noiseDb;
    std::int32_t averages;
};

class SignalPulse : public MeasureTest, public ::testing::WithParamInterface<SignalPulseCase> {};

TEST_P(SignalPulse, ReadsTheSimulatedPulseTrain) {
    const SignalPulseCase& c = GetParam();
    Current().Averages = c.averages;
    SetSignal([&](qvsim_signal& s) {
        s.kind = QVSIM_SIGNAL_PULSE;
        s.period_us = c.periodUs, s.width_us = c.widthUs, s.on_dbm = c.on, s.off_dbm = c.off;
        s.noise_db = c.noiseDb, s.seed = 7;
    });
    double pulse = 0, peak = 0, average = 0, dc = 0;
    ASSERT_EQ(QV_MeasurePulse(kMeasAddr, &pulse, &peak, &average, &dc), 1);
    const double duty = c.widthUs / c.periodUs;
    EXPECT_NEAR(pulse, c.on, 0.05 + c.noiseDb);
    EXPECT_NEAR(dc, duty, 0.02);
    EXPECT_NEAR(average, Dbm(duty * Mw(c.on) + (1 - duty) * Mw(c.off)), 0.05 + c.noiseDb);
    EXPECT_GE(peak, pulse - 0.01);
    EXPECT_EQ(Current().MeasMode, 3);
}

// Periods that divide a block's 252 us, so that every acquisition holds whole
// periods and the duty cycle of its samples is the signal's.
const SignalPulseCase kSignalPulses[] = {
    {"CWIsAllPulse", 252, 252, -12.0, -12.0, 0.0, 10},
    {"TenPerCentOnTheLsPath", 252, 26, 3.0, -60.0, 0.0, 20},
    {"HalfOnTheHsPath", 84, 42, -40.0, -65.0, 0.0, 20},
    {"NinetyPerCentInTheBand", 252, 226, -24.0, -50.0, 0.0, 20},
    {"WithNoise", 126, 38, -5.0, -60.0, 0.05, 20},
    {"SplitAcquisition", 126, 38, -5.0, -60.0, 0.0, 120},
};
INSTANTIATE_TEST_SUITE_P(Trains, SignalPulse, ::testing::ValuesIn(kSignalPulses),
                         [](const auto& i) { return std::string(i.param.name); });

}  // namespace
