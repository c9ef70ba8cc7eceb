// Sensors initialised by several real processes: who may use which, and what
// happens to the sensors of a process that was killed.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "sim/qvsim.h"
#include "support/peer_process.h"
#include "support/sim_fixture.h"

using qv::test::PeerProcess;

namespace {

class OwnershipProcesses : public qv::test::SimBusTest {
protected:
    void SetUp() override {
        SimBusTest::SetUp();
        for (const char* serial : {"AAA111", "BBB222", "CCC333"}) AddSensor(serial, -1);
    }

    static std::vector<std::string> Words(const std::string& line) {
        std::istringstream in(line);
        std::vector<std::string> words;
        for (std::string w; in >> w;) words.push_back(w);
        return words;
    }
};

TEST_F(OwnershipProcesses, ASensorBelongsToTheProcessThatInitialisedIt) {
    PeerProcess a, b;
    ASSERT_EQ(a.Ask("init AAA111"), "1");
    EXPECT_EQ(a.Ask("init AAA111"), "1");  // again: the same slot
    EXPECT_EQ(b.Ask("init AAA111"), "-1");
    EXPECT_EQ(b.Ask("uninit AAA111"), "-1");
    EXPECT_EQ(b.Ask("due AAA111"), "-5");
    EXPECT_EQ(b.Ask("in-use-idx 1"), "1 0");
    EXPECT_EQ(a.Ask("in-use-idx -1"), "1 1");
    EXPECT_EQ(b.Ask("init BBB222"), "2");
    EXPECT_EQ(a.Ask("uninit AAA111"), "1");
    EXPECT_EQ(b.Ask("in-use-idx 1"), "0 0");
    EXPECT_EQ(b.Ask("init AAA111"), "1");
}

TEST_F(OwnershipProcesses, AnotherProcesssSensorIsListedWithANegativeIndex) {
    PeerProcess a, b;
    ASSERT_EQ(a.Ask("init BBB222"), "1");
    const auto list = Words(b.Ask("list"));
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(list[0], "1");
    EXPECT_EQ(list[1].substr(0, 2), "1:");
    EXPECT_EQ(list[2].substr(0, 3), "-2:");
    EXPECT_EQ(Words(a.Ask("list"))[2].substr(0, 2), "2:");  // its own: positive
    const std::string address = list[2].substr(3, list[2].find(':', 3) - 3);
    EXPECT_EQ(b.Ask("address-idx -2"), address);
    EXPECT_EQ(b.Ask("serial-idx -2"), "1 BBB222");
    EXPECT_EQ(b.Ask("model-idx -2"), "1 8");
}

// Slots of a killed process are freed by the next listing in any other
// process, wherever they lie among the slots of living processes.
TEST_F(OwnershipProcesses, KilledOwnersSlotsAreFreedByTheNextListing) {
    qv::test::PeerLog log;
    for (int victim = 0; victim < 3; ++victim) {
        SCOPED_TRACE(victim);
        PeerProcess p0, p1, p2, observer;
        PeerProcess* peers[] = {&p0, &p1, &p2};
        const char* serials[] = {"AAA111", "BBB222", "CCC333"};
        for (int i = 0; i < 3; ++i)
            ASSERT_EQ(peers[i]->Ask(std::string("init ") + serials[i]), std::to_string(i + 1));
        const int victimPid = peers[victim]->Pid();
        peers[victim]->Kill();
        const auto list = Words(observer.Ask("list"));
        EXPECT_NE(log.Text().find(std::string("sensor ") + serials[victim] + " (address " +
                                  std::to_string(victim + 1) + ") reclaimed from process " +
                                  std::to_string(victimPid) + ", which has ended"),
                  std::string::npos)
            << log.Text();
        ASSERT_EQ(list.size(), 4u);
        for (int i = 0; i < 3; ++i) {
            // The victim's sensor is free again (positive index); the others
            // still belong to living processes (negative).
            const bool free = i == victim;
            EXPECT_EQ(list[1 + i][0] == '-', !free) << list[1 + i];
        }
        EXPECT_EQ(observer.Ask(std::string("init ") + serials[victim]),
                  std::to_string(victim + 1));
        EXPECT_EQ(observer.Ask(std::string("uninit ") + serials[victim]), "1");
        for (int i = 0; i < 3; ++i) {
            if (i != victim) {
                EXPECT_EQ(peers[i]->Ask(std::string("uninit ") + serials[i]), "1");
            }
        }
    }
}

}  // namespace
