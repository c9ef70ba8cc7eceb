// Peak search on plateaus, final rises and equal maxima; the three array
// layouts with counts 0, 1 and more than found; every marker move at both
// ends of the trace and with a single peak; marker points and times.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "profiling/analysis_fixture.h"

using namespace qv;
using qv::test::AnalysisTest;
using qv::test::kAddr;
using qv::test::Record;
using qv::test::ValueOf;

namespace {

std::vector<int> Indices(const std::vector<PP_Peak>& peaks) {
    std::vector<int> out;
    for (const PP_Peak& p : peaks) out.push_back(p.Index);
    return out;
}

struct SearchCase {
    const char* what;
    std::vector<double> trace;  // dBm
    double excursion, threshold;
    std::vector<int> byIndex, byValue;
};

class PeakSearch : public ::testing::TestWithParam<SearchCase> {};

TEST_P(PeakSearch, FindsThePeaksInBothOrders) {
    const SearchCase& c = GetParam();
    const int n = static_cast<int>(c.trace.size());
    std::vector<PP_Peak> peaks(16);
    int count = -1;
    ASSERT_EQ(PP_GetPeaksFromTr_Idx(c.trace.data(), n, 0, c.excursion, c.threshold, peaks.data(),
                                    16, &count), 1);
    peaks.resize(count);
    EXPECT_EQ(Indices(peaks), c.byIndex) << c.what;
    peaks.assign(16, PP_Peak {});
    ASSERT_EQ(PP_GetPeaksFromTr_Val(c.trace.data(), n, 0, c.excursion, c.threshold, peaks.data(),
                                    16, &count), 1);
    peaks.resize(count);
    EXPECT_EQ(Indices(peaks), c.byValue) << c.what;
}

INSTANTIATE_TEST_SUITE_P(Traces, PeakSearch, ::testing::Values(
    SearchCase {"alternating", {0, 10, 0, 10, 0}, 3, -100, {1, 3}, {1, 3}},
    SearchCase {"final rise", {0, 10, 0, 5, 20}, 3, -100, {1}, {1}},
    SearchCase {"plateau", {0, 10, 10, 10, 0}, 3, -100, {1}, {1}},
    SearchCase {"equal maxima with a shallow dip", {0, 10, 5, 10, 0}, 6, -100, {1}, {1}},
    SearchCase {"value order", {0, 5, 0, 12, 0, 8, 0}, 3, -100, {1, 3, 5}, {3, 5, 1}},
    SearchCase {"threshold on a peak", {0, 10, 0, 12, 0}, 3, 10, {3}, {3, 1}},
    SearchCase {"rise smaller than the excursion", {0, 2, 0, 2, 0}, 3, -100, {}, {}},
    SearchCase {"two points", {0, 10}, 3, -100, {}, {}},
    SearchCase {"no excursion", {1, 1, 1, 1}, 0, -100, {1, 2}, {1, 2}}));

TEST(PeakSearchLimit, StopsAtTheMaximumCount) {
    const std::vector<double> t {0, 10, 0, 11, 0, 12, 0};
    std::vector<PP_Peak> peaks;
    FindPeaks(t.data(), 7, 3, -100, PeakOrder::kValue, 2, peaks);
    EXPECT_EQ(Indices(peaks), (std::vector<int> {3, 1}));  // the first two, then sorted
    FindPeaks(t.data(), 7, 3, -100, PeakOrder::kIndex, 0, peaks);
    EXPECT_TRUE(peaks.empty());
}

// The analysis trace is searched in watts: the peaks and values, to the bit,
// of the search on its dBm values, over noise, plateaus, steps within a
// millionth and points that have no dBm value, at excursions down to none.
TEST(PeakSearchInWatts, FindsWhatTheSearchOnDbmValuesFinds) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    const double noDbm[] = {0.0, -1e-9, NAN, INFINITY, 1e-310};
    for (int t = 0; t < 200; ++t) {
        const int n = 20 + t * 9, period = 5 + t % 40;
        std::vector<double> w(n), dbm(n);
        for (int i = 0; i < n; ++i) {
            const double level = i % period < period / 3 ? 1e-3 : 1e-7;
            switch (t % 4) {
            case 0: w[i] = level * (1 + 0.05 * u(rng)); break;
            case 1: w[i] = level * (1 + 0.01 * (rng() % 3)); break;
            case 2: w[i] = level * (1 + 1e-7 * (rng() % 4)); break;
            default: w[i] = rng() % 20 ? level : noDbm[rng() % 5];
            }
            dbm[i] = AnalysisDbm(w[i]);
        }
        for (double e : {0.0, 3e-7, 3.0, -1.0})
            for (PeakOrder order : {PeakOrder::kIndex, PeakOrder::kValue}) {
                std::vector<PP_Peak> inWatts, inDbm;
                FindPeaksInWatts(w.data(), n, e, -20.0, order, n, inWatts);
                FindPeaks(dbm.data(), n, e, -20.0, order, n, inDbm);
                ASSERT_EQ(Indices(inWatts), Indices(inDbm)) << "trace " << t << ", excursion " << e;
                for (std::size_t k = 0; k < inDbm.size(); ++k)
                    EXPECT_EQ(std::memcmp(&inWatts[k].Value, &inDbm[k].Value, sizeof(double)), 0);
            }
    }
}

// Peaks at 1 (-10 dBm), 3 (-20 dBm) and 5 (-5 dBm) of eight points.
const std::vector<double> kThreePeaks {-60, -10, -60, -20, -60, -5, -60, -60};

TEST_F(AnalysisTest, ParallelArrayFormsWithCountsZeroOneAndMore) {
    Freeze(kThreePeaks, 7.0, QV_UNIT_DBM);
    using Split = int32_t (*)(int32_t, int32_t*, double*, int32_t, int32_t*);
    struct Form {
        Split split;
        int first;  // index of the first entry
    };
    for (const Form& f : {Form {PP_GetPeaks_VEE_Idx, 1}, Form {PP_GetPeaks_Idx_Flat, 1},
                          Form {PP_GetPeaks_VEE_Val, 5}, Form {PP_GetPeaks_Val_Flat, 5}}) {
        std::vector<int> idx(10, 77);
        std::vector<double> val(10, 77.0);
        int count = -1;
        EXPECT_EQ(f.split(kAddr, idx.data(), val.data(), 0, &count), 0);
        EXPECT_EQ(count, -1);
        EXPECT_EQ(idx[0], 77);
        ASSERT_EQ(f.split(kAddr, idx.data(), val.data(), 1, &count), 1);
        EXPECT_EQ(count, 1);
        EXPECT_EQ(idx[0], 1);  // value order sorts the first n peaks found, not all
        EXPECT_EQ(idx[1], 77);
        ASSERT_EQ(f.split(kAddr, idx.data(), val.data(), 10, &count), 1);
        EXPECT_EQ(count, 3);
        EXPECT_NEAR(val[0], f.first == 1 ? -10.0 : -5.0, 1e-9);
        EXPECT_EQ(idx[3], 0);  // the rest of n: from the zeroed pair array
        EXPECT_EQ(val[9], 0.0);
        EXPECT_EQ(f.split(kAddr + 1, idx.data(), val.data(), 10, &count), -1);
    }
    std::vector<int> idx(10, 77);
    std::vector<double> val(10, 77.0);
    int count = -1;
    ASSERT_EQ(PP_GetPeaksFromTr_Val_Flat(kThreePeaks.data(), 8, 0, 3, -100, idx.data(), val.data(),
                                         10, &count), 1);
    EXPECT_EQ(count, 3);
    EXPECT_EQ((std::vector<int>(idx.begin(), idx.begin() + 4)), (std::vector<int> {5, 1, 3, 77}));
    ASSERT_EQ(PP_GetPeaksFromTr_Idx_Flat(kThreePeaks.data(), 8, 0, 3, -100, idx.data(), val.data(),
                                         0, &count), 1);
    EXPECT_EQ(count, 0);
    std::vector<PP_Peak> records(2);
    ASSERT_EQ(PP_GetPeaks_Idx(kAddr, records.data(), 2, &count), 1);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(records[1].Index, 3);
}

struct MoveCase {
    int32_t (*move)(int32_t, int32_t);
    const char* name;
    int from;    // marker point before the move
    int target;
};

class MarkerMoves : public AnalysisTest, public ::testing::WithParamInterface<MoveCase> {};

TEST_P(MarkerMoves, ReachTheirPeakInBothModes) {
    const MoveCase& c = GetParam();
    Freeze(kThreePeaks, 7.0, QV_UNIT_DBM);
    ASSERT_EQ(PP_SetMarkerMode(kAddr, 2, 1), 1);
    ASSERT_EQ(PP_SetMarkerPosition(kAddr, 2, c.from), 1);
    EXPECT_EQ(c.move(kAddr, 2), c.target) << c.name << " from " << c.from;
    const MarkerRecord& m = Record().analysisSetup.markers[2];
    EXPECT_EQ(m.pos, c.target);
    EXPECT_NEAR(m.amp, kThreePeaks[c.target], 1e-9);
    EXPECT_DOUBLE_EQ(m.time, c.target * 1e-6);
    // Delta mode: the same move acts on the delta point, the reference stays.
    ASSERT_EQ(PP_SetMarkerPosition(kAddr, 2, 0), 1);
    ASSERT_EQ(PP_SetMarkerMode(kAddr, 2, 2), 1);
    ASSERT_EQ(PP_SetMarkerPosition(kAddr, 2, c.from), 1);
    EXPECT_EQ(c.move(kAddr, 2), c.target) << c.name;
    EXPECT_EQ(m.pos, 0);
    EXPECT_EQ(m.deltaPos, c.target);
}

INSTANTIATE_TEST_SUITE_P(Moves, MarkerMoves, ::testing::Values(
    MoveCase {PP_MarkerToPk, "highest", 0, 5},
    MoveCase {PP_MarkerToLowestPk, "lowest", 7, 3},
    MoveCase {PP_MarkerToFirstPk, "first", 7, 1},
    MoveCase {PP_MarkerToLastPk, "last", 0, 5},
    MoveCase {PP_MarkerNextPk, "next from the first point", 0, 1},
    MoveCase {PP_MarkerNextPk, "next from a peak", 1, 3},
    MoveCase {PP_MarkerNextPk, "next from the last peak", 5, 5},
    MoveCase {PP_MarkerNextPk, "next from the last point", 7, 5},
    MoveCase {PP_MarkerPrevPk, "previous from the first point", 0, 1},
    MoveCase {PP_MarkerPrevPk, "previous from the first peak", 1, 1},
    MoveCase {PP_MarkerPrevPk, "previous between peaks", 4, 3},
    MoveCase {PP_MarkerPrevPk, "previous from the last point", 7, 5},
    MoveCase {PP_MarkerPkHigher, "higher from the lowest point", 0, 3},
    MoveCase {PP_MarkerPkHigher, "higher from a peak", 3, 1},
    MoveCase {PP_MarkerPkHigher, "higher from the highest", 5, 5},
    MoveCase {PP_MarkerPkLower, "lower from a peak", 1, 3},
    MoveCase {PP_MarkerPkLower, "lower from the lowest", 3, 3},
    MoveCase {PP_MarkerPkLower, "lower from the highest", 5, 1}));

TEST_F(AnalysisTest, EveryMoveGoesToTheOnlyPeakAndNoneWithoutPeaks) {
    ASSERT_EQ(PP_SetMarkerMode(kAddr, 0, 1), 1);
    Freeze({-60, -60, -60, -60, -10, -60, -60}, 6.0, QV_UNIT_DBM);
    for (auto move : {PP_MarkerToPk, PP_MarkerToLowestPk, PP_MarkerToFirstPk, PP_MarkerToLastPk,
                      PP_MarkerNextPk, PP_MarkerPrevPk, PP_MarkerPkHigher, PP_MarkerPkLower})
        for (int from : {0, 4, 6}) {
            ASSERT_EQ(PP_SetMarkerPosition(kAddr, 0, from), 1);
            EXPECT_EQ(move(kAddr, 0), 4) << from;
        }
    Freeze({-60, -60, -60, -60}, 3.0, QV_UNIT_DBM);
    ASSERT_EQ(PP_SetMarkerPosition(kAddr, 0, 2), 1);
    EXPECT_EQ(PP_MarkerToPk(kAddr, 0), -1);
    EXPECT_EQ(Record().analysisSetup.markers[0].pos, 2);
    ASSERT_EQ(PP_SetMarkerMode(kAddr, 0, 0), 1);
    EXPECT_EQ(PP_MarkerToPk(kAddr, 0), -1);  // marker off
}

TEST_F(AnalysisTest, MarkerPointsTimesAndAmplitudes) {
    Freeze({-30, -20, -10, 0, 10}, 8.0, QV_UNIT_DBM);  // 2 us per point
    const MarkerRecord& m = Record().analysisSetup.markers[9];
    int p = 0, valid = 9;
    EXPECT_EQ(PP_SetMarkerPosition(kAddr, 9, 1), -1);  // off
    ASSERT_EQ(PP_SetMarkerMode(kAddr, 9, 1), 1);
    ASSERT_EQ(PP_SetMarkerPositionTime(kAddr, 9, 4.9), 1);  // nearest point: 2
    EXPECT_EQ(m.pos, 2);
    EXPECT_DOUBLE_EQ(m.time, 4.9e-6);
    EXPECT_NEAR(ValueOf(PP_GetMarkerPositionTime, 9), 4.0, 1e-9);
    EXPECT_EQ(m.amp, 0.0);  // a time does not refresh the amplitude
    EXPECT_NEAR(ValueOf(PP_GetMarkerAmp, 9), -10.0, 1e-9);
    ASSERT_EQ(PP_SetMarkerPosition(kAddr, 9, 4), 1);  // the last point
    ValueOf(PP_GetMarkerAmp, 9, -1);
    ASSERT_EQ(PP_MarkerPosIsValid(kAddr, 9, &valid), 1);
    EXPECT_EQ(valid, 0);
    EXPECT_EQ(PP_SetMarkerDeltaTime(kAddr, 9, 1.0), -1);  // mode 1
    EXPECT_EQ(PP_SetMarkerPosition(kAddr, 9, 5), -1);
    EXPECT_EQ(m.pos, -1);
    EXPECT_EQ(PP_GetMarkerPosition(kAddr, 9, &p), -1);
    EXPECT_EQ(p, -1);

    ASSERT_EQ(PP_SetMarkerMode(kAddr, 9, 2), 1);
    EXPECT_EQ(PP_SetMarkerPosition(kAddr, 9, 3), 0);  // no reference point
    ASSERT_EQ(PP_SetMarkerMode(kAddr, 9, 1), 1);
    ASSERT_EQ(PP_SetMarkerPosition(kAddr, 9, 1), 1);
    ASSERT_EQ(PP_SetMarkerMode(kAddr, 9, 2), 1);
    ASSERT_EQ(PP_SetMarkerDeltaTime(kAddr, 9, 4.0), 1);
    EXPECT_EQ(m.deltaPos, 3);
    EXPECT_NEAR(ValueOf(PP_GetMarkerDeltaTime, 9), 4.0, 1e-9);
    EXPECT_NEAR(ValueOf(PP_GetMarkerDeltaAmp, 9), 20.0, 1e-9);
    ASSERT_EQ(PP_GetMarkerPosition(kAddr, 9, &p), 1);
    EXPECT_EQ(p, 3);
    EXPECT_EQ(PP_SetMarkerDeltaTime(kAddr, 9, 6.5), -1);  // beyond the sweep
    Record().analysisSetup.markers[9].deltaPos = 12;  // left by a longer trace
    EXPECT_EQ(PP_GetMarkerPosition(kAddr, 9, &p), -1);
    EXPECT_EQ(m.deltaPos, -1);
    EXPECT_EQ(m.deltaTime, -1.0);
    EXPECT_EQ(PP_SetMarkerMode(kAddr, 9, 3), -1);
}

}  // namespace
