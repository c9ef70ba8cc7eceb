// The arithmetic of a reading, without a sensor: splitting blocks, count to
// dBm, the merge of the two paths, the peak share, and the smoothing rules.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "frame/shared_table.h"
#include "measure/conversion.h"
#include "measure/smoothing.h"
#include "settings/instrument_state.h"

using namespace qv;

namespace {

double Mw(double dbm) { return std::pow(10.0, dbm / 10.0); }
double Dbm(double mw) { return 10.0 * std::log10(mw); }

// ---------------------------------------------------------------- ParseRawBlocks

struct ParseCase {
    const char* name;
    std::int32_t bytes;
    std::int32_t room;  // of the power arrays (temperature arrays: room / 63)
    std::int32_t result;
};

class Parse : public ::testing::TestWithParam<ParseCase> {};

TEST_P(Parse, SplitsWholeBlocksOrRefusesWhenTheyDoNotFit) {
    const ParseCase& c = GetParam();
    std::vector<std::uint8_t> raw(3 * kBlockBytes + 100);
    for (std::size_t i = 0; i < raw.size(); ++i) raw[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
    std::vector<double> loT(300, -1), hiT(300, -1), loP(400, -1), hiP(400, -1);
    std::int32_t nLoT = c.room / 63, nHiT = c.room / 63, nLoP = c.room, nHiP = c.room;
    ASSERT_EQ(ParseRawBlocks(raw.data(), c.bytes, loT.data(), hiT.data(), loP.data(), hiP.data(),
                             &nLoT, &nHiT, &nLoP, &nHiP),
              c.result);
    if (c.result < 0) {
        EXPECT_EQ(loP[0], -1);  // nothing written
        return;
    }
    const int n = c.bytes / kBlockBytes;
    EXPECT_EQ(nHiT, 2 * n);
    EXPECT_EQ(nHiP, 126 * n);
    auto word = [&](int at) { return raw[at] | raw[at + 1] << 8; };
    for (int k = 0; k < n; ++k) {
        const int b = 512 * k;
        EXPECT_EQ((std::vector<double>{loT[2 * k], hiT[2 * k], loT[2 * k + 1], hiT[2 * k + 1],
                                       loP[126 * k], hiP[126 * k + 125]}),
                  (std::vector<double>{1.0 * word(b), 1.0 * word(b + 2), 1.0 * word(b + 508),
                                       1.0 * word(b + 510), 1.0 * word(b + 4), 1.0 * word(b + 506)}));
    }
    EXPECT_EQ(loP[126 * n], -1);  // nothing beyond the whole blocks
}

const ParseCase kParseCases[] = {
    {"NoBlock", 0, 378, 0},
    {"LessThanABlock", 511, 378, 0},
    {"OneBlock", 512, 378, 126},
    {"PartOfASecondBlockIsLeft", 1000, 378, 126},
    {"ThreeBlocks", 1536, 378, 378},
    {"PowerArraysOneShort", 1536, 377, -1},
};
INSTANTIATE_TEST_SUITE_P(Blocks, Parse, ::testing::ValuesIn(kParseCases),
                         [](const auto& i) { return std::string(i.param.name); });

// ---------------------------------------------------------------- count to dBm

// A row path whose counts fall by a convex curve (55000 at the lowest level
// to 2000 at the highest), with the segment lines of the calibration tables.
struct Row {
    CalSegment e[kCalLevels];
    explicit Row(double firstLevel) {
        for (int j = 0; j < kCalLevels; ++j) {
            const double x = 1.0 - j / 25.0;
            e[j].level = firstLevel + 2.0 * j;
            e[j].count = 2000.0 + 53000.0 * x * x;
        }
        Fit();
    }
    void Fit() {
        for (int j = 0; j < kCalLevels - 1; ++j) {
            e[j].slope = (e[j + 1].level - e[j].level) / (e[j + 1].count - e[j].count);
            e[j].intercept = e[j].level - e[j].slope * e[j].count;
        }
        e[25].slope = e[24].slope * e[24].slope / e[23].slope;
        e[25].intercept = e[25].level - e[25].slope * e[25].count;
    }
    double Line(int j, double q) const { return e[j].slope * q + e[j].intercept; }
    double Convert(double q, bool cap) const {
        double v = q;
        ConvertCounts(e, &v, 1, cap);
        return v;
    }
};

TEST(Conversion, InsideASegmentItsLineBlendsLinearlyIntoTheNext) {
    const Row ls(-30.0);
    for (int j : {0, 7, 23, 24}) {
        EXPECT_NEAR(ls.Convert(ls.e[j].count, false), -30.0 + 2 * j, 1e-9);  // on a level: that level
        for (double w : {0.25, 0.5, 0.9}) {
            // w of the way from the upper level's count to the lower level's.
            const double q = ls.e[j + 1].count + w * (ls.e[j].count - ls.e[j + 1].count);
            const double expected = w * ls.Line(j, q) + (1 - w) * ls.Line(j + 1, q);
            EXPECT_NEAR(ls.Convert(q, false), expected, 1e-9) << j << " " << w;
        }
    }
}

TEST(Conversion, SamplesFollowingEachOtherGiveWhatEachGivesAlone) {
    // The segment kept from the previous sample must never change a result.
    const Row hs(-70.0);
    std::vector<double> q {54000, 53990, 30000, 30010, 2500, 54990, 54980, 100, 65535, 41000};
    std::vector<double> together = q;
    ConvertCounts(hs.e, together.data(), static_cast<std::int32_t>(q.size()), true);
    for (std::size_t i = 0; i < q.size(); ++i) EXPECT_EQ(together[i], hs.Convert(q[i], true)) << i;
}

struct EdgeCase {
    const char* name;
    double firstCount;   // replaces the count of the lowest level
    double secondCount;  // and of the second
    double q;
    bool cap;
    int line;         // -1, or the segment whose line (held to -200..26) gives the result
    double expected;  // otherwise
};

class ConversionEdge : public ::testing::TestWithParam<EdgeCase> {};

TEST_P(ConversionEdge, BeyondTheCalibratedLevels) {
    const EdgeCase& c = GetParam();
    Row row(-70.0);
    row.e[0].count = c.firstCount;
    row.e[1].count = c.secondCount;
    row.Fit();
    const double expected = c.line < 0 ? c.expected : std::clamp(row.Line(c.line, c.q), -200.0, 26.0);
    EXPECT_NEAR(row.Convert(c.q, c.cap), expected, 1e-9);
}

const EdgeCase kEdgeCases[] = {
    // Below the lowest level, hs of the CW reading: the first line, held at -68 dBm.
    {"HsBelowLowestTakesFirstLine", 55000, 50844.8, 60000, true, 0, 0},
    {"HsBelowLowestHeldAtSecondLevel", 50000, 52000, 60000, true, -1, -68.0},
    {"HsBelowLowestUnderTheCapStaysOnTheLine", 50000, 52000, 51000, true, -1, -69.0},
    // Without the rule (ls, and every pulse reading) counts that rise with the
    // level there keep to the next segment's line.
    {"NoCapTakesTheNextSegmentsLine", 50000, 52000, 60000, false, 1, 0},
    {"ClampedAt26", 55000, 50844.8, 0, false, -1, 26.0},
    {"ClampedAtMinus200", 55000, 54990, 65535, false, -1, -200.0},
};
INSTANTIATE_TEST_SUITE_P(Counts, ConversionEdge, ::testing::ValuesIn(kEdgeCases),
                         [](const auto& i) { return std::string(i.param.name); });

// ---------------------------------------------------------------- merge

struct MergeCase {
    const char* name;
    double h, l;
    double classS, classP;  // expected dBm
};

class Merge : public ::testing::TestWithParam<MergeCase> {};

TEST_P(Merge, TakesThePathOrBlendOfItsRow) {
    const MergeCase& c = GetParam();
    const CrossoverBand band = MakeCrossoverBand(-30.0, -20.0);
    EXPECT_NEAR(MergeSample(c.h, c.l, band, AboveBandHs::kBlend), c.classS, 1e-9);
    EXPECT_NEAR(MergeSample(c.h, c.l, band, AboveBandHs::kTakeHs), c.classP, 1e-9);
    const double hs[3] = {c.h, c.h, c.h}, ls[3] = {c.l, c.l, c.l};
    EXPECT_NEAR(Dbm(1000 * MergedMeanWatts(hs, ls, 3, band, AboveBandHs::kBlend)), c.classS, 1e-9);
}

// Band -30 .. -20 dBm; rows by a (ls: 0 below, 1 in, 2 above) + b (hs: 0, 3, 6).
const double kRow7 = Dbm(0.05 * Mw(-10) + 0.95 * Mw(-25));
const MergeCase kMergeCases[] = {
    {"Row0BothBelow", -40, -45, -40, -40},
    {"Row1LsInHsBelow", -40, -25, -40, -40},
    {"Row2LsAboveHsBelow", -40, -10, -10, -10},
    {"Row3LsBelowHsIn", -25, -35, -25, -25},
    {"Row4BlendAtLowerEdgeIsHs", -30, -28, -30, -30},
    {"Row4BlendAtUpperEdgeIsLs", -20, -21, -21, -21},
    {"Row4BlendHalfWayInWatts", Dbm((Mw(-30) + Mw(-20)) / 2), -26,
     Dbm(0.5 * (Mw(-30) + Mw(-20)) / 2 + 0.5 * Mw(-26)), Dbm(0.5 * (Mw(-30) + Mw(-20)) / 2 + 0.5 * Mw(-26))},
    {"Row5LsAboveHsIn", -25, -10, -10, -10},
    {"Row6LsBelowHsAbove", -10, -35, -10, -10},
    {"Row7LsInHsAbove", -10, -25, kRow7, -10},
    {"Row8BothAbove", -5, -8, -8, -8},
};
INSTANTIATE_TEST_SUITE_P(Rows, Merge, ::testing::ValuesIn(kMergeCases),
                         [](const auto& i) { return std::string(i.param.name); });

// ---------------------------------------------------------------- peak share

struct ShareCase {
    std::int32_t runs, above, k;
};

class PeakShare : public ::testing::TestWithParam<ShareCase> {};

TEST_P(PeakShare, IsTruncatedOnlyAtTheEnd) {
    EXPECT_EQ(PeakShareSamples(GetParam().runs, GetParam().above), GetParam().k);
}

INSTANTIATE_TEST_SUITE_P(Samples, PeakShare,
                         ::testing::Values(ShareCase {0, 0, 0}, ShareCase {3, 3, 3},
                                           ShareCase {1, 126, 0}, ShareCase {10, 20, 2},
                                           ShareCase {9, 10, 4}, ShareCase {40, 100, 8}));

TEST(PeakShareReading, AddsEightPerCentOfThePeakPerSample) {
    // 126 samples of 1 mW and a peak of 10 mW counted twice: (126 + 2 x 0.8) / 126 mW.
    EXPECT_NEAR(WithPeakShare(0.001, 126, 2, 10.0), Dbm(127.6 / 126), 1e-12);
    EXPECT_NEAR(WithPeakShare(0.001, 126, 0, 10.0), 0.0, 1e-12);
}

// ---------------------------------------------------------------- smoothing

class Smoothing : public ::testing::Test {
protected:
    void SetUp() override { ResetInstrumentState(s); }
    double CW(double v) { return UpdateCWSmoothing(s, v); }
    InstrumentState s {};
};

TEST_F(Smoothing, ExtendedAveragingWeighsOneOverKPlusOneUpToNAndZeroPassesThrough) {
    s.ExtendedAveragingEnabled = 1;
    s.ExtendedAveragingCount = 4;
    double expectedMw = Mw(-10);
    EXPECT_DOUBLE_EQ(CW(-10), -10);
    for (double w : {1.0 / 3, 1.0 / 4, 1.0 / 5, 1.0 / 5, 1.0 / 5}) {
        expectedMw = (1 - w) * expectedMw + w * Mw(-20);
        EXPECT_NEAR(CW(-20), Dbm(expectedMw), 1e-9) << w;
    }
    s.ExtendedAveragingCount = 0;  // passes readings through
    for (double v : {-10.0, -30.0}) EXPECT_DOUBLE_EQ(CW(v), v);
}

TEST_F(Smoothing, BothTogetherAverageTheHeldMaxima) {
    s.MaxHoldEnabled = 1;
    s.ExtendedAveragingEnabled = 1;
    s.ExtendedAveragingCount = 4;
    EXPECT_EQ(CW(-20), -20);
    // Max hold has already put the new maximum into the value the average
    // starts from: the average of the held maxima is the maximum.
    EXPECT_NEAR(CW(-10), -10, 1e-9);
    EXPECT_NEAR(CW(-30), -10, 1e-9);
    EXPECT_EQ(s.ExtendedAveragingProgress[0], 3);
}

TEST_F(Smoothing, PulseSetAveragesPowersInWattsAndTheDutyCycleAsItIs) {
    s.ExtendedAveragingEnabled = 1;
    s.ExtendedAveragingCount = 10;
    PulseReadings a {-30, -25, -35, 0.5}, b {-20, -25, -35, 0.2};
    UpdatePulseSmoothing(s, a);
    UpdatePulseSmoothing(s, b);
    EXPECT_NEAR(b.pulse, Dbm(2.0 / 3 * Mw(-30) + 1.0 / 3 * Mw(-20)), 1e-9);
    EXPECT_NEAR(b.peak, -25, 1e-9);
    EXPECT_NEAR(b.dutyCycle, 0.4, 1e-12);
}

}  // namespace
