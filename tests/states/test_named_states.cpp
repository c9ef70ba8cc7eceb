// Named states: which files count, the list and the caller's buffer, deletion,
// and the whole road with a simulated sensor.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "qv_api2.h"
#include "state_fixture.h"
#include "states/named_states.h"
#include "support/sim_fixture.h"

using namespace qv;

namespace {

const std::string kTwenty(20, 'z');

class NamedStates : public qv::test::StateTest {
protected:
    static void PutStates(const std::vector<std::string>& names) {
        for (const std::string& name : names) PutFile("QV442A_17_" + name + ".ini", "[CurrState]\r\n");
    }
};

struct SizeCase {
    int states;
    std::int32_t size;
    bool accepted;
};

class NamedStateList : public NamedStates, public ::testing::WithParamInterface<SizeCase> {};

TEST_P(NamedStateList, NeedsTwentyOneBytesPerState) {
    const std::vector<std::string> all = {"A", "Bench_1", kTwenty};
    const std::vector<std::string> names(all.begin(), all.begin() + GetParam().states);
    PutStates(names);
    ASSERT_EQ(QV_GetNamedStateCount(kAddress), GetParam().states);

    char buffer[80];
    std::memset(buffer, 'X', sizeof buffer);
    std::int32_t size = GetParam().size;
    const int rc = QV_GetNamedStateNames(kAddress, buffer, &size);
    if (!GetParam().accepted) {
        EXPECT_EQ(rc, -1);
        EXPECT_EQ(size, GetParam().size);
        EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(sizeof buffer, 'X'));
        return;
    }
    std::string expected;
    for (const std::string& name : names) expected += name + "\t";
    ASSERT_EQ(rc, 1);
    EXPECT_EQ(size, static_cast<std::int32_t>(expected.size()));
    EXPECT_EQ(std::string(buffer, expected.size()), expected);
    for (std::int32_t i = size; i < GetParam().size; ++i) EXPECT_EQ(buffer[i], '\0') << i;
    for (std::size_t i = GetParam().size; i < sizeof buffer; ++i) EXPECT_EQ(buffer[i], 'X') << i;
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, NamedStateList,
    ::testing::Values(SizeCase {0, 20, false}, SizeCase {0, 21, true}, SizeCase {2, 41, false},
                      SizeCase {3, 63, true}));

TEST_F(NamedStates, OnlyTheSensorsOwnNamedFilesCount) {
    PutStates({"A", "B", std::string(21, 'y')});
    for (const char* other : {"QV442A_17.ini", "QV442A_1_C.ini", "QV442A_170_D.ini",
                              "QV441A_17_E.ini", "QV442A_17_F.ini.tmp5"})
        PutFile(other, "");
    EXPECT_EQ(QV_GetNamedStateCount(kAddress), 3);
    // Decided: a name over 20 characters is counted but not listed.
    char buffer[63];
    std::int32_t size = sizeof buffer;
    ASSERT_EQ(QV_GetNamedStateNames(kAddress, buffer, &size), 1);
    EXPECT_EQ(std::string(buffer, size), "A\tB\t");
}

// Decided: states added after the caller counted are listed only as far as
// whole entries fit the size.
TEST_F(NamedStates, TheListStopsAtTheLastWholeEntryThatFits) {
    PutStates({"A", "Bench_1", kTwenty});
    const std::string all = "A\tBench_1\t" + kTwenty + "\t";
    for (const auto& [size, written] : {std::pair {1, 0}, {2, 2}, {9, 2}, {30, 10}, {31, 31}}) {
        SCOPED_TRACE(size);
        char buffer[48];
        std::memset(buffer, 'X', sizeof buffer);
        EXPECT_EQ(ListNamedStates(0, buffer, size), written);
        EXPECT_EQ(std::string(buffer, written), all.substr(0, written));
        EXPECT_EQ(std::string(buffer + written, sizeof buffer - written),
                  std::string(sizeof buffer - written, 'X'));
    }
}

TEST_F(NamedStates, DeleteRemovesThatStateOnly) {
    ASSERT_EQ(QV_SaveCurrStateTo(kAddress, "A"), 1);
    ASSERT_EQ(QV_SaveCurrStateTo(kAddress, "B"), 1);
    EXPECT_EQ(QV_DeleteNamedState(kAddress, nullptr), -1);
    // The file system decides case: where names are case-blind (Windows), "a"
    // names the file of "A".
    const bool caseBlind = platform::FileExists(FilePath("QV442A_17_a.ini"));
    EXPECT_EQ(QV_DeleteNamedState(kAddress, "a"), caseBlind ? 1 : 0);
    EXPECT_EQ(QV_DeleteNamedState(kAddress, "A"), caseBlind ? 0 : 1);
    EXPECT_EQ(QV_DeleteNamedState(kAddress, "A"), 0);
    EXPECT_EQ(QV_GetNamedStateCount(kAddress), 1);
    EXPECT_TRUE(platform::FileExists(FilePath("QV442A_17_B.ini")));
}

TEST_F(NamedStates, AnotherProcesssSensorIsRefused) {
    Take(1, 30, kModel, qv::test::kOtherPid);
    PutFile("QV442A_30_A.ini", "");
    char buffer[42];
    std::memset(buffer, 'X', sizeof buffer);
    std::int32_t size = sizeof buffer;
    EXPECT_EQ(QV_GetNamedStateCount(30), -1);
    EXPECT_EQ(QV_GetNamedStateNames(30, buffer, &size), -1);
    EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(sizeof buffer, 'X'));
    EXPECT_EQ(QV_GetNamedStateNames(kAddress, nullptr, &size), -1);
    EXPECT_EQ(QV_GetNamedStateNames(kAddress, buffer, nullptr), -1);
    EXPECT_EQ(QV_DeleteNamedState(30, "A"), -1);
    EXPECT_TRUE(platform::FileExists(FilePath("QV442A_30_A.ini")));
}

// ---------------------------------------------------------------- with a sensor

class StatesOfASensor : public qv::test::SimBusTest {
protected:
    void SetUp() override {
        SimBusTest::SetUp();
        std::filesystem::remove_all(platform::DataDirectory());
    }
    void TearDown() override { QV_UninitializeSensor_SN("AAA111"); }
};

TEST_F(StatesOfASensor, FilesAreNamedAfterModelAndAddress) {
    AddSensor("AAA111", 12, "QV221A");
    ASSERT_GE(QV_InitializeSensor_SN("AAA111"), 1);
    ASSERT_EQ(QV_SaveCurrStateTo(12, "A"), 1);
    ASSERT_EQ(QV_SaveCurrStateTo(12, "Bench_1"), 1);
    ASSERT_EQ(QV_WriteStateToINI(12), 1);
    EXPECT_TRUE(platform::FileExists(platform::JoinPath(platform::DataDirectory(), "QV221A_12.ini")));
    EXPECT_EQ(QV_GetNamedStateCount(12), 2);
    char buffer[42];
    std::int32_t size = 41;
    EXPECT_EQ(QV_GetNamedStateNames(12, buffer, &size), -1);
    size = 42;
    ASSERT_EQ(QV_GetNamedStateNames(12, buffer, &size), 1);
    EXPECT_EQ(std::string(buffer, size), "A\tBench_1\t");
    EXPECT_EQ(QV_ReadStateFromINI(12), 1);
    EXPECT_EQ(QV_RestoreCurrStateFrom(12, "Bench_1"), 1);
}

}  // namespace
