// CW readings of simulated sensors, through the exports, held against the
// power on the input: a part of the survey of docs/accuracy.md, one sensor of
// each calibration grid group, that fails when the error grows beyond what the
// method itself explains: also where the crossover band lies above the hs
// path's calibration, which the simulated detector continues to its ADC limit.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "accuracy_sweep.h"
#include "qv_api2.h"
#include "support/sim_fixture.h"

using namespace qv::accuracy;

namespace {

struct SweepCase {
    const char* name;
    std::size_t sensor;  // index in SurveySensors(); the only one on the bus
    double hz;
    int temperatureRows;  // away from calibration
    double fromDbm, toDbm, stepDb;
};

class AccuracyCW : public qv::test::SimBusTest, public ::testing::WithParamInterface<SweepCase> {
protected:
    void SetUp() override {
        SimBusTest::SetUp();
        std::string error;
        ASSERT_TRUE(bench_.Open({SurveySensors().at(GetParam().sensor)}, &error)) << error;
    }
    void TearDown() override { QV_UninitializeSensor_SN(SurveySensors().at(GetParam().sensor).serial); }
    SensorBench bench_;
};

TEST_P(AccuracyCW, ErrorStaysWithinWhatTheMethodExplains) {
    const SweepCase& c = GetParam();
    // At the calibration row's own temperature a calibrated level on a grid
    // frequency is read exactly but for quantisation.
    const int temperature = c.temperatureRows == 0 ? bench_.CalibrationRowTemperature(0)
                                                   : bench_.TemperatureRowsAway(0, c.temperatureRows);
    for (double dbm = c.fromDbm; dbm <= c.toDbm; dbm += c.stepDb) {
        const CwPoint p = bench_.MeasureCW(0, dbm, c.hz, temperature);
        EXPECT_LE(std::fabs(p.error), kCwTargetDb) << dbm << " dBm";
        if (p.calibratedLevel && p.gridFrequency && c.temperatureRows == 0) {
            EXPECT_LE(std::fabs(p.error), kCalibratedTargetDb) << dbm << " dBm, a calibrated level";
        }
    }
}

// Sensors: 0 low group, 1..3 the models with the band -15..-8 dBm, 4 the
// class P coarse group, 5 the low group's class S. Whole sweeps on grid and off-grid frequencies at and
// away from calibration; then the bands that reach above the hs calibration.
const SweepCase kSweeps[] = {
    {"LowGroupAt1GHz", 0, 1.0e9, 0, -65, 20, 1},
    {"LowGroupAtTopColder", 0, 1.0e10, -80, -65, 20, 1},
    {"Model4At50MHzWarmer", 1, 5.0e7, 80, -65, 20, 1},
    {"Model5At6GHz", 2, 6.0e9, 0, -65, 20, 1},
    {"Model6AtTop", 3, 2.65e10, 0, -65, 20, 1},
    {"Model8At1GHzWarmer", 4, 1.0e9, 80, -65, 20, 1},
    {"Model8AtTop", 4, 2.0e10, 0, -65, 20, 1},
    {"LowGroupBand25To18", 0, 7.0e9, 0, -28, -15, 0.25},
    {"LowGroupBand20To15", 0, 8.5e9, 0, -23, -12, 0.25},
    {"LowGroupBand15To10", 0, 9.5e9, 0, -18, -7, 0.25},
    {"Model5Band15To8", 2, 1.0e9, 0, -18, -5, 0.25},
    {"LowGroupClassSBand15To10", 5, 9.5e9, 0, -18, -7, 0.25},
};
INSTANTIATE_TEST_SUITE_P(Survey, AccuracyCW, ::testing::ValuesIn(kSweeps),
                         [](const auto& i) { return std::string(i.param.name); });

}  // namespace
