// State files written by several real processes: never torn, never mixed.
#include <gtest/gtest.h>

#include <cstdlib>
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
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = text.find("\r\n", at);
            ASSERT_NE(end, std::string::npos) << "a line without its end";
            const std::string line = text.substr(at, end - at);
            at = end + 2;
            if (line.rfind('[', 0) == 0) {
                sections.push_back(line);
                keys.push_back(0);
            } else {
                ASSERT_FALSE(keys.empty());
                ASSERT_NE(line.find('='), std::string::npos) << line;
                ++keys.back();
            }
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
