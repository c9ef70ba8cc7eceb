// State files written by several real processes: never torn, never mixed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "sim/qvsim.h"
#include "support/files.h"
#include "support/peer_process.h"
#include "support/sim_fixture.h"

using qv::test::PeerProcess;

namespace {

constexpr int kFixedKeys = 37;
constexpr int kAllPoints = 201;  // response points the peer saves

class StateProcesses : public qv::test::SimBusTest {
protected:
    void SetUp() override {
        SimBusTest::SetUp();
        AddSensor("AAA111", 5);
    }

    static std::string StateFileText() {
        const char* dir = std::getenv("QV_API2_DATA_DIR");
        return qv::test::FileText(std::string(dir ? dir : ".") + "/QV442A_5.ini");
    }

    // The file has the eleven sections in order, each with its whole set of
    // keys (the current state's with `points` response points), every line
    // ended by CR LF.
    static void ExpectWholeStateFile(const std::string& text, int points) {
        ASSERT_GE(text.size(), 2u);
        EXPECT_EQ(text.substr(text.size() - 2), "\r\n");
        std::vector<std::string> sections;
        std::vector<int> keys;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            ASSERT_TRUE(!line.empty() && line.back() == '\r') << line;
            if (line[0] == '[') sections.push_back(line.substr(0, line.size() - 1)), keys.push_back(0);
            else if (line.find('=') != std::string::npos && !keys.empty()) ++keys.back();
            else FAIL() << line;
        }
        std::vector<std::string> expectedSections = {"[CurrState]"};
        std::vector<int> expectedKeys = {kFixedKeys + 2 * points};
        for (int r = 0; r < 10; ++r) {
            expectedSections.push_back("[Reg_" + std::to_string(r) + "]");
            expectedKeys.push_back(kFixedKeys);
        }
        EXPECT_EQ(sections, expectedSections);
        EXPECT_EQ(keys, expectedKeys);
    }
};

TEST_F(StateProcesses, TwoProcessesSavingTheSameFileAtOnce) {
    PeerProcess owner, other;
    ASSERT_EQ(owner.Ask("init AAA111"), "1");
    // Waiting for the other's save must never give up here.
    ASSERT_EQ(owner.Ask("set-timeout 100000"), "1");
    owner.Send("write-ini-loop 5 40");
    other.Send("write-ini-loop 5 40");
    EXPECT_EQ(owner.ReadLine(120000), "0");
    EXPECT_EQ(other.ReadLine(120000), "0");
    ExpectWholeStateFile(StateFileText(), 0);
    EXPECT_EQ(owner.Ask("read-ini 5"), "1");
}

TEST_F(StateProcesses, AProcessKilledWhileSavingLeavesAWholeFile) {
    PeerProcess owner;
    ASSERT_EQ(owner.Ask("init AAA111"), "1");
    owner.Send("save-forever 5");
    for (int i = 0; i < 3; ++i) ASSERT_EQ(owner.ReadLine(), "saved");
    owner.Kill();
    ExpectWholeStateFile(StateFileText(), kAllPoints);
}

}  // namespace
