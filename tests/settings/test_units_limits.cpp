// Unit conversions, the frequency check, limit evaluation and the response
// correction, on a slot's record without a sensor.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "frame/shared_table.h"
#include "settings/instrument_state.h"
#include "settings/limits.h"
#include "settings/units.h"

using namespace qv;

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

class SlotRecord : public ::testing::Test {
protected:
    void SetUp() override { ResetInstrumentState(S()); }
    void TearDown() override {
        ResetInstrumentState(S());
        Slot(0).identity.ModelIndex = -1;
    }
    static InstrumentState& S() { return Slot(0).current; }
};

// ---------------------------------------------------------------- units

struct Conversion {
    std::int32_t unit;
    double dbm, value;
};

class Units : public ::testing::TestWithParam<Conversion> {};

TEST_P(Units, ConvertBothWays) {
    const Conversion& c = GetParam();
    EXPECT_NEAR(DbmToUnits(c.dbm, c.unit), c.value, std::abs(c.value) * 1e-12 + 1e-12);
    EXPECT_NEAR(UnitsToDbm(c.value, c.unit), c.dbm, 1e-9);
}

INSTANTIATE_TEST_SUITE_P(Codes, Units,
                         ::testing::Values(Conversion{0, -12.5, -12.5}, Conversion{1, 0, -30},
                                           Conversion{2, 10, -50}, Conversion{3, 0, 106.9897},
                                           Conversion{4, -46.9897, 0}, Conversion{5, 13.0103, 0},
                                           Conversion{6, -30, 1e-6}, Conversion{7, 0, std::sqrt(0.05)}));

TEST(UnitsOutsideTheTable, ConvertToTheNoConversionValue) {
    for (std::int32_t unit : {8, 9, -1}) {
        EXPECT_EQ(DbmToUnits(0.0, unit), -9999.999) << unit;
        EXPECT_EQ(UnitsToDbm(0.0, unit), -9999.999) << unit;
    }
}

// ---------------------------------------------------------------- frequency check

struct ModelLimit {
    std::int32_t model;
    double upper;
};

class FrequencyCheck : public SlotRecord, public ::testing::WithParamInterface<ModelLimit> {};

TEST_P(FrequencyCheck, TenMegahertzToTheModelsLimitInclusive) {
    Slot(0).identity.ModelIndex = GetParam().model;
    const double upper = GetParam().upper;
    EXPECT_EQ(IsValidFrequency(0, 1e7), 1);
    EXPECT_EQ(IsValidFrequency(0, upper), 1);
    EXPECT_EQ(IsValidFrequency(0, std::nextafter(1e7, 0.0)), 0);
    EXPECT_EQ(IsValidFrequency(0, std::nextafter(upper, kInf)), 0);
    EXPECT_EQ(IsValidFrequency(0, NAN), 0);
    EXPECT_EQ(IsValidFrequency(-1, 1e9), -1);
    EXPECT_EQ(IsValidFrequency(13, 1e9), -1);
}

INSTANTIATE_TEST_SUITE_P(
    Models, FrequencyCheck,
    ::testing::Values(ModelLimit{4, 1.25e10}, ModelLimit{69, 1.8e10}, ModelLimit{6, 2.65e10}, ModelLimit{8, 2e10},
                      ModelLimit{113, 2e10}, ModelLimit{1, 1e10}, ModelLimit{-1, 1e10}));

// ---------------------------------------------------------------- limits

struct LimitCase {
    bool doubleSided;
    std::int32_t rule;
    double p;
    std::int32_t status;
};

class Limits : public SlotRecord, public ::testing::WithParamInterface<LimitCase> {};

// Single-sided limit -10 dBm (given as -40 dBW); double-sided -20 to -10 dBm.
TEST_P(Limits, EveryRuleAtItsBoundaries) {
    const LimitCase& c = GetParam();
    S().SingleSidedLimit = -40;
    S().SingleSideLimitUnits = QV_UNIT_DBW;
    S().DoubleSidedLowerLimit = -20;
    S().DoubleSidedUpperLimit = -10;
    S().SingleSidedLimitsRule = S().DoubleSidedLimitsRule = c.rule;
    EXPECT_EQ(c.doubleSided ? EvaluateDoubleSidedLimit(0, c.p) : EvaluateSingleSidedLimit(0, c.p),
              c.status);
}

const double kJustBelow10 = std::nextafter(-10.0, -kInf), kJustAbove10 = std::nextafter(-10.0, kInf);
const double kJustBelow20 = std::nextafter(-20.0, -kInf), kJustAbove20 = std::nextafter(-20.0, kInf);

INSTANTIATE_TEST_SUITE_P(
    Rules, Limits,
    ::testing::Values(
        LimitCase{false, 0, -10, 2}, LimitCase{false, 0, kJustBelow10, 0},
        LimitCase{false, 1, -10, 0}, LimitCase{false, 1, kJustAbove10, 2},
        LimitCase{false, 2, -10, 1}, LimitCase{false, 2, kJustAbove10, 0},
        LimitCase{false, 3, -10, 0}, LimitCase{false, 3, kJustBelow10, 1},
        LimitCase{false, 4, -10, 5},
        LimitCase{true, 0, -20, 1}, LimitCase{true, 0, kJustAbove20, 0},
        LimitCase{true, 0, -10, 2}, LimitCase{true, 0, kJustBelow10, 0},
        LimitCase{true, 1, -20, 0}, LimitCase{true, 1, kJustBelow20, 1},
        LimitCase{true, 1, -10, 0}, LimitCase{true, 1, kJustAbove10, 2},
        LimitCase{true, 2, -20, 3}, LimitCase{true, 2, kJustAbove10, 0}, LimitCase{true, 3, -20, 0},
        LimitCase{true, 3, kJustAbove20, 4}, LimitCase{true, 4, -15, 5}));

TEST_F(SlotRecord, LowerLimitIsTestedFirstWhenTheLimitsMeet) {
    S().DoubleSidedLowerLimit = S().DoubleSidedUpperLimit = -10;
    S().DoubleSidedLimitsRule = 0;
    EXPECT_EQ(EvaluateDoubleSidedLimit(0, -10), QV_LIMIT_BELOW);
}

// Unit code 8 means relative to the CW reference, on either side of the comparison.
TEST_F(SlotRecord, RelativeValuesAreTakenAgainstTheCwReference) {
    S().CWRef = 1e-3;  // W: 0 dBm
    S().CWRefUnits = QV_UNIT_W;
    S().SingleSidedLimit = 3;
    S().SingleSideLimitUnits = QV_UNIT_DB_REL;
    S().SingleSidedLimitsRule = 1;
    EXPECT_EQ(EvaluateSingleSidedLimit(0, 3.0), QV_LIMIT_PASS);
    EXPECT_EQ(EvaluateSingleSidedLimit(0, 3.5), QV_LIMIT_ABOVE);
    S().CWRef = -20;
    S().CWRefUnits = QV_UNIT_DBM;
    // A result of +2 dB relative is -18 dBm; an absolute limit of -17 dBm passes it.
    EXPECT_DOUBLE_EQ(LimitUnitsToDbm(0, 2.0, QV_UNIT_DB_REL), -18.0);
    EXPECT_DOUBLE_EQ(LimitUnitsToDbm(0, 2.0, QV_UNIT_DBW), 32.0);
    EXPECT_EQ(LimitUnitsToDbm(0, 2.0, 9), -9999.999);
}

// ---------------------------------------------------------------- response correction

struct Correction {
    const char* name;
    std::vector<QV_ResponsePoint> table;
    double hz, db;
};

class ResponseLookup : public SlotRecord, public ::testing::WithParamInterface<Correction> {};

TEST_P(ResponseLookup, InterpolatesBetweenThePointsItFinds) {
    const Correction& c = GetParam();
    for (std::size_t i = 0; i < c.table.size(); ++i) S().Response[i] = c.table[i];
    S().NumberOfResponsePoints = static_cast<std::int32_t>(c.table.size());
    EXPECT_NEAR(ResponseCorrection(0, c.hz), c.db, 1e-12);
}

using P = std::vector<QV_ResponsePoint>;
const P kTwo = {{1e9, 1}, {2e9, 3}};
const P kUnsorted = {{1e9, 1}, {3e9, 3}, {2e9, 10}};

INSTANTIATE_TEST_SUITE_P(
    Tables, ResponseLookup,
    ::testing::Values(Correction{"Between", kTwo, 1.5e9, 2}, Correction{"AtFirst", kTwo, 1e9, 1},
                      Correction{"AtLast", kTwo, 2e9, 3}, Correction{"BelowFirst", kTwo, 5e8, 0},
                      Correction{"AboveLast", kTwo, 2.5e9, 0},
                      Correction{"OnePointNeverCorrects", {{1e9, 4}}, 1e9, 0},
                      Correction{"Empty", {}, 1e9, 0},
                      // An exact point further on is not seen past a higher one.
                      Correction{"UnsortedTakesFirstPointAbove", kUnsorted, 2e9, 2},
                      Correction{"UnsortedInterpolatesToIt", kUnsorted, 2.5e9, 2.5},
                      Correction{"UnsortedPastTheDipIsAbove", {{1e9, 1}, {2e9, 2}, {1.5e9, 7}}, 2.5e9, 0},
                      Correction{"RepeatedFrequencyTakesTheLater", {{1e9, 1}, {1e9, 5}, {2e9, 3}}, 1e9, 5},
                      Correction{"FromTheRepeatedPointOn", {{1e9, 1}, {1e9, 5}, {2e9, 3}}, 1.5e9, 4},
                      Correction{"NotANumber", kTwo, NAN, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(SlotRecord, ResponseCorrectionOnlyLooksAtThePointsInUse) {
    S().Response[0] = {1e9, 1};
    S().Response[1] = {2e9, 3};
    S().NumberOfResponsePoints = 1;
    EXPECT_EQ(ResponseCorrection(0, 1.5e9), 0);
    S().NumberOfResponsePoints = 1000;  // damaged: no more than the table holds
    EXPECT_EQ(ResponseCorrection(0, 3e9), 0);
}

}  // namespace
