// Model grids, the calibration at a frequency, the temperature rows of
// count-to-dBm segments, and the crossover band.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "calibration_fixture.h"

using namespace qv;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr int kSlot = 2;

class CalTables : public qv::test::CalibrationTest {
protected:
    static DeviceRecord& Record() { return Slot(kSlot); }

    // A grid for `model` whose coefficients differ at every point, path and level;
    // counts fall as the level rises, as a detector's do.
    static void UseSyntheticCalibration(std::int32_t model, double calTmp = 8000.0) {
        DeviceRecord& r = Record();
        r.identity.ModelIndex = model;
        SetModelGrid(kSlot);
        r.calTmp = calTmp;
        for (int i = 0; i < kCalFreqPoints; ++i) {
            for (int j = 0; j < kCalLevels; ++j) {
                r.calPoints[i].hs[j].z = 60000.0 - 2200.0 * j - 3.0 * i;
                r.calPoints[i].hs[j].a = 0.5 + 0.001 * i - 0.01 * j;
                r.calPoints[i].hs[j].b = 1e-5 * (1 + j) + 1e-8 * i;
                r.calPoints[i].ls[j].z = 58000.0 - 2100.0 * j - 2.0 * i;
                r.calPoints[i].ls[j].a = -0.25 + 0.002 * i + 0.003 * j;
                r.calPoints[i].ls[j].b = -2e-5 + 1e-6 * j;
            }
        }
        r.tempRows[0].freq = 0.0;
    }

    static void ExpectCurrentIs(const CalFreqPoint& point) {
        const CurrentCalibration& c = Record().currentCal;
        for (int j = 0; j < kCalLevels; ++j) {
            EXPECT_EQ(c.hs[j].z, point.hs[j].z) << j;
            EXPECT_EQ(c.hs[j].a, point.hs[j].a) << j;
            EXPECT_EQ(c.hs[j].b, point.hs[j].b) << j;
            EXPECT_EQ(c.ls[j].z, point.ls[j].z) << j;
            EXPECT_EQ(c.ls[j].a, point.ls[j].a) << j;
            EXPECT_EQ(c.ls[j].b, point.ls[j].b) << j;
        }
    }
};

// ---------------------------------------------------------------- model constants

struct ModelCase {
    std::int32_t model;
    double start, step, maximum, tempStart, tempStep;
};

class ModelConstants : public CalTables, public ::testing::WithParamInterface<ModelCase> {};

TEST_P(ModelConstants, FollowTheModelOfTheSlotAndPointOneLiesOneStepAboveZeroHertz) {
    const ModelCase c = GetParam();
    DeviceRecord& r = Record();
    r.identity.ModelIndex = c.model;
    EXPECT_EQ(CalStartFrequency(kSlot), c.start);
    EXPECT_EQ(CalFrequencyStep(kSlot), c.step);
    EXPECT_EQ(CalMaximumFrequency(kSlot), c.maximum);
    EXPECT_EQ(CalTempTableStart(kSlot), c.tempStart);
    EXPECT_EQ(CalTempStep(kSlot), c.tempStep);
    r.calPoints[7].ls[3].b = 42.0;
    SetModelGrid(kSlot);
    EXPECT_EQ(r.calPoints[0].freq, c.start);
    EXPECT_EQ(r.calPoints[1].freq, c.step);
    EXPECT_EQ(r.calPoints[400].freq, 400 * c.step);
    EXPECT_EQ(r.calPoints[123].hs[25].level, -20.0);
    EXPECT_EQ(r.calPoints[123].ls[0].level, -30.0);
    EXPECT_EQ(r.calPoints[7].ls[3].b, 42.0);  // coefficients are the image's business
}

constexpr ModelCase Low(std::int32_t model) { return {model, 1e7, 2.5e7, 1e10, 7334, 9}; }
constexpr ModelCase Coarse(std::int32_t model, double maximum) { return {model, 1e7, 6.625e7, maximum, 2785, 70}; }

INSTANTIATE_TEST_SUITE_P(
    Models, ModelConstants,
    ::testing::Values(Low(1), Low(95), Low(-1), Low(114), Coarse(4, 1.25e10), Coarse(105, 1.25e10),
                      Coarse(5, 1.8e10), Coarse(6, 2.65e10), Coarse(80, 2.65e10), Coarse(8, 2.0e10),
                      Coarse(113, 2.0e10)),
    [](const ::testing::TestParamInfo<ModelCase>& info) {
        return "Model" + std::string(info.param.model < 0 ? "Unknown" : std::to_string(info.param.model));
    });

class OutsideTheTable : public CalTables, public ::testing::WithParamInterface<std::int32_t> {};

TEST_P(OutsideTheTable, EveryRoutineRefuses) {
    const std::int32_t slot = GetParam();
    for (auto constant : {CalStartFrequency, CalFrequencyStep, CalMaximumFrequency, CalTempTableStart, CalTempStep,
                          CalFirstLevelHs, CalFirstLevelLs, CalLevelStep})
        EXPECT_EQ(constant(slot), -1.0);
    EXPECT_EQ(ClampCalFrequency(slot, 1e9), 0.0);
    EXPECT_EQ(BuildCalTables(slot, 1e9), -1);
    EXPECT_EQ(TempRowIndex(slot, 8000.0), -1);
    double bounds[4] = {1, 2, 3, 4};
    EXPECT_EQ(CrossoverBounds(slot, 1e9, &bounds[0], &bounds[1], &bounds[2], &bounds[3]), -1);
    EXPECT_EQ(bounds[0] + bounds[1] + bounds[2] + bounds[3], 10.0);
    SetModelGrid(slot);  // does nothing
}

INSTANTIATE_TEST_SUITE_P(Slots, OutsideTheTable,
                         ::testing::Values(-1, 13, std::numeric_limits<std::int32_t>::min()));

struct ClampCase {
    std::int32_t model;
    double f;
    double expected;
};

class FrequencyClamp : public CalTables, public ::testing::WithParamInterface<ClampCase> {};

TEST_P(FrequencyClamp, IntoTheModelsRange) {
    const ClampCase c = GetParam();
    Record().identity.ModelIndex = c.model;
    EXPECT_EQ(ClampCalFrequency(kSlot, c.f), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Frequencies, FrequencyClamp,
    ::testing::Values(ClampCase{1, 1e6, 1e7}, ClampCase{1, 5e9, 5e9}, ClampCase{1, 1e10, 1e10},
                      ClampCase{1, 1.0000001e10, 1e10}, ClampCase{1, kInf, 1e10}, ClampCase{1, kNaN, 1e7},
                      ClampCase{4, 1.3e10, 1.25e10}, ClampCase{6, 3e10, 2.65e10}));

// ---------------------------------------------------------------- calibration at a frequency

struct PointCase {
    std::int32_t model;
    int point;
};

class AtAGridFrequency : public CalTables, public ::testing::WithParamInterface<PointCase> {};

TEST_P(AtAGridFrequency, ReproducesThatPoint) {
    const PointCase c = GetParam();
    UseSyntheticCalibration(c.model);
    const double f = Record().calPoints[c.point].freq;
    EXPECT_EQ(BuildCalTables(kSlot, f), 1);
    ExpectCurrentIs(Record().calPoints[c.point]);
    EXPECT_EQ(Record().current.Freq, f);
}

INSTANTIATE_TEST_SUITE_P(Points, AtAGridFrequency,
                         ::testing::Values(PointCase{1, 0}, PointCase{1, 1}, PointCase{1, 400}, PointCase{4, 1},
                                           PointCase{6, 400}));

TEST_F(CalTables, OutsideTheGridClampsToItsEnds) {
    for (double f : {1e6, -5.0, 3e10}) {
        UseSyntheticCalibration(1);
        EXPECT_EQ(BuildCalTables(kSlot, f), 1);
        ExpectCurrentIs(Record().calPoints[f > 1e10 ? 400 : 0]);
        EXPECT_EQ(Record().tempRows[349].freq, f > 1e10 ? 1e10 : 1e7);
    }
}

struct IntervalCase {
    std::int32_t model;
    double f;
    int lo;
    double t;
};

class Interval : public CalTables, public ::testing::WithParamInterface<IntervalCase> {};

TEST_P(Interval, BlendsTheTwoNeighbours) {
    const IntervalCase c = GetParam();
    UseSyntheticCalibration(c.model);
    ASSERT_EQ(BuildCalTables(kSlot, c.f), 1);
    const CalFreqPoint& low = Record().calPoints[c.lo];
    const CalFreqPoint& high = Record().calPoints[c.lo + 1];
    const CurrentCalibration& current = Record().currentCal;
    for (int j = 0; j < kCalLevels; ++j) {
        EXPECT_NEAR(current.hs[j].z, (1 - c.t) * low.hs[j].z + c.t * high.hs[j].z, 1e-9);
        EXPECT_NEAR(current.ls[j].a, (1 - c.t) * low.ls[j].a + c.t * high.ls[j].a, 1e-12);
        EXPECT_NEAR(current.hs[j].b, (1 - c.t) * low.hs[j].b + c.t * high.hs[j].b, 1e-15);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Intervals, Interval,
    ::testing::Values(
        // The first interval runs from the start frequency to one step: 1.5e7 / 5.625e7 wide.
        IntervalCase{1, 1.15e7, 0, 0.1}, IntervalCase{4, 1e7 + 0.5 * 5.625e7, 0, 0.5},
        // Further up, one step.
        IntervalCase{1, 1.00625e9, 40, 0.25}, IntervalCase{1, 9.9875e9, 399, 0.5}));

TEST_F(CalTables, RowsFollowTheFrequencySettingNotTheFrequencyAsked) {
    UseSyntheticCalibration(1);
    ASSERT_EQ(BuildCalTables(kSlot, 2e9), 1);
    EXPECT_EQ(Record().current.Freq, 2e9);
    // The setting still matches the rows: nothing is built, whatever is asked.
    EXPECT_EQ(BuildCalTables(kSlot, 3e9), 1);
    EXPECT_EQ(Record().tempRows[0].freq, 2e9);
    EXPECT_EQ(Record().currentCal.hs[5].z, Record().calPoints[80].hs[5].z);
    // A new setting is built for the frequency asked, which becomes the setting.
    Record().current.Freq = 2.5e9;
    EXPECT_EQ(BuildCalTables(kSlot, 2.5e9), 1);
    EXPECT_EQ(Record().currentCal.hs[5].z, Record().calPoints[100].hs[5].z);
    for (int row : {0, 349}) EXPECT_EQ(Record().tempRows[row].freq, 2.5e9);
    Record().current.Freq = 4e9;
    EXPECT_EQ(BuildCalTables(kSlot, 5e9), 1);
    EXPECT_EQ(Record().tempRows[0].freq, 5e9);
    EXPECT_EQ(Record().current.Freq, 5e9);
}

TEST_F(CalTables, SettingOutsideTheRangeIsPulledToItsEnd) {
    UseSyntheticCalibration(4);
    Record().current.Freq = 5e10;
    EXPECT_EQ(BuildCalTables(kSlot, Record().current.Freq), 1);
    EXPECT_EQ(Record().current.Freq, 1.25e10);
    EXPECT_EQ(Record().tempRows[0].freq, 1.25e10);
}

TEST_F(CalTables, GridOfAnotherModelIsRefusedAndChangesNothing) {
    UseSyntheticCalibration(4);         // points 6.625e7 apart
    Record().identity.ModelIndex = 1;   // constants of a 2.5e7 grid
    ASSERT_EQ(BuildCalTables(kSlot, 1e9), 1);
    const CurrentCalibration before = Record().currentCal;
    const CalTempRow row = Record().tempRows[17];
    Record().tempRows[0].freq = 0.0;
    EXPECT_EQ(BuildCalTables(kSlot, 1.05e9), -5);
    EXPECT_EQ(Record().currentCal.hs[3].z, before.hs[3].z);
    EXPECT_EQ(Record().tempRows[17].ls[3].count, row.ls[3].count);
    EXPECT_EQ(Record().current.Freq, 1e9);
}

// ---------------------------------------------------------------- temperature rows

TEST_F(CalTables, RowsCoverTheModelsTemperaturesFromTheCalibrationTemperature) {
    for (std::int32_t model : {1, 4}) {
        const double start = model == 1 ? 7334.0 : 2785.0, step = model == 1 ? 9.0 : 70.0;
        UseSyntheticCalibration(model, start + 120 * step);
        ASSERT_EQ(BuildCalTables(kSlot, 1e9), 1);
        for (int row : {0, 1, 120, 349}) EXPECT_EQ(Record().tempRows[row].tempCount, start + row * step);
        // At the calibration temperature the expected counts are the calibration's.
        for (int j = 0; j < kCalLevels; ++j) {
            EXPECT_EQ(Record().tempRows[120].hs[j].count, Record().currentCal.hs[j].z);
            EXPECT_EQ(Record().tempRows[120].ls[j].count, Record().currentCal.ls[j].z);
        }
        // dT = T - calTmp, with the quadratic term.
        const CalCoefficients& c = Record().currentCal.ls[7];
        const double dT = -120 * step;
        EXPECT_NEAR(Record().tempRows[0].ls[7].count, c.b * dT * dT + c.a * dT + c.z, 1e-9);
    }
}

TEST_F(CalTables, EachSegmentRunsThroughItsEntryAndTheNext) {
    UseSyntheticCalibration(1);
    ASSERT_EQ(BuildCalTables(kSlot, 1.234e9), 1);
    for (int row : {0, 200, 349}) {
        for (const CalSegment* s : {Record().tempRows[row].hs, Record().tempRows[row].ls}) {
            for (int j = 0; j + 1 < kCalLevels; ++j) {
                EXPECT_LT(s[j].slope, 0.0);
                EXPECT_NEAR(s[j].slope * s[j].count + s[j].intercept, s[j].level, 1e-9);
                EXPECT_NEAR(s[j].slope * s[j + 1].count + s[j].intercept, s[j + 1].level, 1e-9);
            }
            EXPECT_EQ(s[0].level + 50.0, s[25].level);
            // The last entry continues geometrically.
            EXPECT_DOUBLE_EQ(s[25].slope, s[24].slope * s[24].slope / s[23].slope);
            EXPECT_DOUBLE_EQ(s[25].intercept, s[25].level - s[25].slope * s[25].count);
        }
    }
}

// The whole chain against the simulated detector, for every kind of model: factory
// image, decoding, rows.
// The segment under a count the detector gives for a known power must give that
// power back, at any row's temperature and between grid frequencies.
struct ChainCase {
    const char* product;
    double f;
};

class RowsAgainstTheDetector : public CalTables, public ::testing::WithParamInterface<ChainCase> {};

TEST_P(RowsAgainstTheDetector, SegmentsGiveBackThePowerPutIn) {
    const ChainCase c = GetParam();
    const int id = AddSensor("CHN042", 1, c.product);
    LoadIntoSlot(kSlot, id, "CHN042");
    ASSERT_EQ(BuildCalTables(kSlot, c.f), 1);
    const DeviceRecord& r = Record();
    const int calibrationRow = TempRowIndex(kSlot, r.calTmp);
    double worst = 0.0;
    for (int row : {0, calibrationRow, 349}) {
        const CalTempRow& tempRow = r.tempRows[row];
        for (int path : {QVSIM_PATH_HS, QVSIM_PATH_LS}) {
            const CalSegment* s = path == QVSIM_PATH_HS ? tempRow.hs : tempRow.ls;
            for (double p = s[0].level + 0.3; p < s[25].level; p += 0.7) {
                double count = 0.0;
                ASSERT_EQ(qvsim_detector_count(id, path, p, c.f, tempRow.tempCount, &count), QVSIM_OK);
                int j = 0;
                while (j < 24 && count < s[j + 1].count) ++j;
                const double dbm = s[j].slope * count + s[j].intercept;
                worst = std::max(worst, std::fabs(dbm - p));
                EXPECT_NEAR(dbm, p, 0.05) << "row " << row << " path " << path << " " << p << " dBm";
            }
        }
    }
    RecordProperty("worst_error_mdb", static_cast<int>(worst * 1000));
}

INSTANTIATE_TEST_SUITE_P(
    Sensors, RowsAgainstTheDetector,
    ::testing::Values(ChainCase{"QV442A", 1e9}, ChainCase{"QV221A", 1.2345e9}, ChainCase{"R7703B", 1.7777e10},
                      ChainCase{"VRT2", 3.3e9}, ChainCase{"TKS6110", 7.5e8}, ChainCase{"no such model", 5e9}));

// ---------------------------------------------------------------- temperature row lookup

struct RowCase {
    std::int32_t model;
    double t;
    std::int32_t row;
};

class TemperatureRow : public CalTables, public ::testing::WithParamInterface<RowCase> {};

TEST_P(TemperatureRow, TruncatesThenDividesTowardZero) {
    const RowCase c = GetParam();
    Record().identity.ModelIndex = c.model;
    EXPECT_EQ(TempRowIndex(kSlot, c.t), c.row);
}

INSTANTIATE_TEST_SUITE_P(
    Temperatures, TemperatureRow,
    ::testing::Values(RowCase{1, 7342.9, 0}, RowCase{1, 7343.0, 1},
                      RowCase{1, 7333.0, 0},  // -1 / 9 is 0
                      RowCase{1, 7325.0, -1}, RowCase{1, 10484.0, 350}, RowCase{4, 2854.99, 0},
                      RowCase{4, 2855.0, 1}, RowCase{1, kNaN, (0 - 7334) / 9},
                      RowCase{1, 1e300, (std::numeric_limits<std::int32_t>::max() - 7334) / 9},
                      RowCase{1, -1e300, (std::numeric_limits<std::int32_t>::min() - std::int64_t{7334}) / 9}));

// ---------------------------------------------------------------- crossover band

struct BandCase {
    std::int32_t model;
    double f;
    double lower, upper;
};

class Crossover : public CalTables, public ::testing::WithParamInterface<BandCase> {};

TEST_P(Crossover, BandOfTheModelAndFrequency) {
    const BandCase c = GetParam();
    Record().identity.ModelIndex = c.model;
    double hsLower = 0, hsUpper = 0, lsLower = 0, lsUpper = 0;
    EXPECT_EQ(CrossoverBounds(kSlot, c.f, &hsLower, &hsUpper, &lsLower, &lsUpper), 1);
    EXPECT_EQ(hsLower, c.lower);
    EXPECT_EQ(hsUpper, c.upper);
    EXPECT_EQ(lsLower, c.lower);
    EXPECT_EQ(lsUpper, c.upper);
}

INSTANTIATE_TEST_SUITE_P(
    Bands, Crossover,
    ::testing::Values(BandCase{1, 6.0e9, -30, -20}, BandCase{1, 6.000001e9, -25, -18}, BandCase{1, 8.0e9, -25, -18},
                      BandCase{1, 8.5e9, -20, -15}, BandCase{1, 9.000001e9, -15, -10}, BandCase{-1, 7e9, -25, -18},
                      BandCase{4, 1e7, -15, -8}, BandCase{109, 1e9, -15, -8}, BandCase{8, 1.9e10, -30, -20},
                      BandCase{113, 1.5e10, -30, -20}));

}  // namespace
