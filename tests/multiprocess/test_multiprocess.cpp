// Several real processes sharing the library: the shared table, the
// machine-wide lock and the lifetime of both.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/peer_process.h"

using qv::test::PeerProcess;
using qv::test::NamespaceObjects;

namespace {

const std::string kFreeSlot = "0:0:-:0";

std::vector<std::string> Slots(PeerProcess& peer) {
    std::istringstream in(peer.Ask("slots"));
    std::vector<std::string> slots;
    for (std::string s; in >> s;) slots.push_back(s);
    return slots;
}

std::string Owned(const PeerProcess& owner, const std::string& serial, int address) {
    return "1:" + std::to_string(owner.Pid()) + ":" + serial + ":" + std::to_string(address);
}

// Set for every test program by qv_test_env.
const std::string kNamespace = std::getenv("QV_API2_NAMESPACE") ? std::getenv("QV_API2_NAMESPACE") : "";

int FirstNumber(const std::string& line) { return std::stoi(line); }
int SecondNumber(const std::string& line) { return std::stoi(line.substr(line.find(' ') + 1)); }

}  // namespace

TEST(MultiProcess, FirstLoadStartsWithDefaultsAndASecondProcessSeesItsRecordsAtOnce) {
    PeerProcess a;
    ASSERT_TRUE(a.Started());
    EXPECT_EQ(a.Ask("state"), "timeout=500 attach=1 first=1");
    const auto slots = Slots(a);
    ASSERT_EQ(slots.size(), 13u);
    for (const auto& s : slots) EXPECT_EQ(s, kFreeSlot);
    ASSERT_EQ(a.Ask("claim ABC123 5"), "0");
    ASSERT_EQ(a.Ask("set-timeout 1234"), "1");
    PeerProcess b;
    EXPECT_EQ(b.Ask("state"), "timeout=1234 attach=2 first=1");
    EXPECT_EQ(Slots(b)[0], Owned(a, "ABC123", 5));
    // And the other way round, without any call in between.
    ASSERT_EQ(b.Ask("claim XYZ789 9"), "1");
    EXPECT_EQ(Slots(a)[1], Owned(b, "XYZ789", 9));
}

TEST(MultiProcess, LockHeldBeyondTheTimeOutRefusesOtherProcesses) {
    qv::test::PeerLog log;
    PeerProcess holder, other;
    ASSERT_EQ(holder.Ask("set-timeout 200"), "1");
    ASSERT_EQ(holder.Ask("hold 3000"), "holding");
    const std::string answer = other.Ask("timed-set-timeout 300");
    EXPECT_EQ(FirstNumber(answer), -1);
    // It gave up after about the time-out, not after the holder let go.
    EXPECT_GE(SecondNumber(answer), 150);
    EXPECT_LT(SecondNumber(answer), 2500);
    EXPECT_EQ(other.Ask("state"), "timeout=200 attach=2 first=1");
    EXPECT_EQ(holder.ReadLine(), "released");
    EXPECT_EQ(other.Ask("set-timeout 300"), "1");
    EXPECT_NE(log.Text().find("qv_api2[" + std::to_string(other.Pid()) +
                              "]: the library's lock was not free within the system time-out of 200 ms"),
              std::string::npos)
        << log.Text();
}

TEST(MultiProcess, AWaiterGetsTheLockWhenTheHolderIsKilled) {
    PeerProcess holder, waiter;
    ASSERT_EQ(holder.Ask("set-timeout 5000"), "1");
    ASSERT_EQ(holder.Ask("hold 0"), "holding");
    waiter.Send("timed-set-timeout 600");
    holder.Kill();
    const std::string answer = waiter.ReadLine();
    EXPECT_EQ(FirstNumber(answer), 1);
    EXPECT_LT(SecondNumber(answer), 4000);
    EXPECT_EQ(waiter.Ask("set-timeout 778"), "1");
}

TEST(MultiProcess, ProcessThatExitsFreesItsOwnSlotsAndNoOthers) {
    PeerProcess a, b;
    ASSERT_EQ(b.Ask("claim BBB001 2"), "0");
    ASSERT_EQ(a.Ask("claim AAA001 1"), "1");
    ASSERT_EQ(a.Ask("claim AAA002 3"), "2");
    ASSERT_EQ(b.Ask("claim BBB002 4"), "3");
    EXPECT_EQ(a.Exit(), 0);
    const auto slots = Slots(b);
    EXPECT_EQ(slots[0], Owned(b, "BBB001", 2));
    EXPECT_EQ(slots[1], kFreeSlot);
    EXPECT_EQ(slots[2], kFreeSlot);
    EXPECT_EQ(slots[3], Owned(b, "BBB002", 4));
    EXPECT_EQ(b.Ask("state"), "timeout=500 attach=1 first=1");
}

class NextLoad : public ::testing::TestWithParam<bool> {};

// Whether the last process unloaded or was killed holding the lock.
TEST_P(NextLoad, AfterTheLastProcessStartsAfresh) {
    {
        PeerProcess a, b;
        ASSERT_EQ(a.Ask("claim AAA001 1"), "0");
        ASSERT_EQ(a.Ask("set-timeout 4321"), "1");
        if (GetParam()) {
            ASSERT_EQ(b.Ask("hold 0"), "holding");
            a.Kill();
            b.Kill();
        } else {
            EXPECT_EQ(a.Exit(), 0);
            EXPECT_EQ(b.Exit(), 0);
        }
    }
    {
        PeerProcess c;
        EXPECT_EQ(c.Ask("state"), "timeout=500 attach=1 first=1");
        EXPECT_EQ(Slots(c)[0], kFreeSlot);
        EXPECT_EQ(c.Ask("set-timeout 100"), "1");
        EXPECT_EQ(c.Exit(), 0);
    }
    // What killed processes left goes with the next last process.
    EXPECT_EQ(NamespaceObjects(kNamespace), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Killed, NextLoad, ::testing::Bool());


TEST(MultiProcess, TheLastToLeaveRemovesEveryObjectEvenIfItNeverTookTheLock) {
    {
        PeerProcess a;
        ASSERT_EQ(a.Ask("set-timeout 1111"), "1");
        PeerProcess b;
        ASSERT_TRUE(b.Started());
        EXPECT_EQ(a.Exit(), 0);
        EXPECT_EQ(b.Exit(), 0);
    }
    EXPECT_EQ(NamespaceObjects(kNamespace), std::vector<std::string>{});
}

TEST(MultiProcess, LoadsWhileTheLastProcessLeavesGetAWorkingTable) {
    // Each round one process leaves as two others load: they must find the
    // old table or one fresh table, never a half-removed one or two tables.
    auto current = std::make_unique<PeerProcess>();
    for (int round = 0; round < 20; ++round) {
        current->Send("exit");
        auto first = std::make_unique<PeerProcess>();
        auto second = std::make_unique<PeerProcess>();
        ASSERT_TRUE(first->Started() && second->Started()) << round;
        EXPECT_EQ(current->Wait(), 0) << round;
        const std::string timeout = std::to_string(200 + round);
        EXPECT_EQ(first->Ask("set-timeout " + timeout), "1") << round;
        EXPECT_EQ(second->Ask("state").substr(0, 12), "timeout=" + timeout + " ") << round;
        EXPECT_EQ(first->Exit(), 0) << round;
        current = std::move(second);
    }
    EXPECT_EQ(current->Exit(), 0);
    EXPECT_EQ(NamespaceObjects(kNamespace), std::vector<std::string>{});
}
