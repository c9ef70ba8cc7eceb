// The entry frame, the lock time-out and the state of a freshly loaded table.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "frame/frame.h"
#include "frame/shared_table.h"

using namespace qv;

// Runs first in its own namespace, so this process made the block.
TEST(FreshBlock, EverySlotStartsFreeWithItsResetValues) {
    ASSERT_NE(tableView, nullptr);
    EXPECT_EQ(tableView->sysTimeOut, 500u);
    EXPECT_EQ(tableView->firstLoadDone, 1u);
    EXPECT_EQ(tableView->attachCount, 1);
    EXPECT_EQ(tableView->burstRunning, 0u);
    EXPECT_TRUE(std::isinf(tableView->positiveInfinity) && tableView->positiveInfinity > 0);
    for (int s = 0; s < kSlotCount; ++s) {
        SCOPED_TRACE(s);
        const DeviceRecord& r = Slot(s);
        EXPECT_TRUE(r.inUse == 0 && r.ownerPid == 0u && r.serial[0] == '\0' && r.devId == 0);
        EXPECT_TRUE(r.deviceHandle == -1 && r.winUsbHandle == -1);
        EXPECT_EQ(r.calPoints[400].freq, 1.0e10);
        EXPECT_EQ(r.current.Averages, 75);
        EXPECT_EQ(r.registers[9].SingleSidedLimitsRule, 2);
        EXPECT_EQ(r.registers[10].SingleSidedLimitsRule, 0);  // only 0..9 get defaults
    }
}

TEST(FreshBlock, ResetKeepsTheOwnerAndTheRunTimeSettings) {
    DeviceRecord& r = Slot(3);
    r.ownerPid = 4242;
    r.inUse = 1;
    r.address = 17;
    r.current.Averages = 9;
    r.current.MaxHoldEnabled = 1;
    ResetDeviceRecord(3);
    EXPECT_EQ(r.ownerPid, 4242u);
    EXPECT_EQ(r.inUse, 0);
    EXPECT_EQ(r.address, 0);
    EXPECT_EQ(r.current.Averages, 75);
    EXPECT_EQ(r.current.MaxHoldEnabled, 1);
    r.ownerPid = 0;
    r.current.MaxHoldEnabled = 0;
}

struct TimeOutCase {
    int32_t value;
    int32_t expected;
};

class SysTimeOut : public ::testing::TestWithParam<TimeOutCase> {
protected:
    void TearDown() override { tableView->sysTimeOut = 500; }
};

TEST_P(SysTimeOut, StoresOnlyValuesInRange) {
    const TimeOutCase c = GetParam();
    tableView->sysTimeOut = 321;
    EXPECT_EQ(QV_SetSysTimeOut(c.value), c.expected);
    EXPECT_EQ(tableView->sysTimeOut, c.expected == 1 ? static_cast<uint32_t>(c.value) : 321u);
}

INSTANTIATE_TEST_SUITE_P(RangeEnds, SysTimeOut,
                         ::testing::Values(TimeOutCase{99, -1}, TimeOutCase{100, 1}, TimeOutCase{100000, 1},
                                           TimeOutCase{100001, -1}, TimeOutCase{INT_MIN, -1}));

// Keeps the lock on another thread until told to let go.
class LockHolder {
public:
    LockHolder() {
        thread_ = std::thread([this] {
            frame::LockScope lock;
            {
                std::lock_guard<std::mutex> g(m_);
                acquired_ = lock.Acquired();
                holding_ = true;
            }
            cv_.notify_all();
            std::unique_lock<std::mutex> g(m_);
            cv_.wait(g, [this] { return release_; });
        });
        std::unique_lock<std::mutex> g(m_);
        cv_.wait(g, [this] { return holding_; });
    }
    ~LockHolder() {
        {
            std::lock_guard<std::mutex> g(m_);
            release_ = true;
        }
        cv_.notify_all();
        thread_.join();
    }
    bool Acquired() const { return acquired_; }

private:
    std::thread thread_;
    std::mutex m_;
    std::condition_variable cv_;
    bool holding_ = false, release_ = false, acquired_ = false;
};

TEST(EntryFrame, VersionAnswersWhileAnotherThreadHoldsTheLock) {
    tableView->sysTimeOut = 100;
    LockHolder holder;
    ASSERT_TRUE(holder.Acquired());
    EXPECT_EQ(QV_DriverVersion(), 100101);
    // Threads of one process are serialised like processes.
    EXPECT_EQ(QV_SetSysTimeOut(200), -1);
    EXPECT_EQ(tableView->sysTimeOut, 100u);
    tableView->sysTimeOut = 500;
}

TEST(EntryFrame, LockIsRecursiveForTheThreadThatHoldsIt) {
    const int32_t r = Enter([] { return Enter([] { return QV_SetSysTimeOut(250); }); });
    EXPECT_EQ(r, 1);
    EXPECT_EQ(tableView->sysTimeOut, 250u);
    // Released as often as taken: another thread gets it again.
    int32_t other = 0;
    std::thread([&] { other = QV_SetSysTimeOut(500); }).join();
    EXPECT_EQ(other, 1);
}

TEST(EntryFrame, AnExceptionInsideBecomesMinusOneAndReleasesTheLock) {
    EXPECT_EQ(Enter([]() -> int32_t { throw std::runtime_error("boom"); }), -1);
    int32_t other = 0;
    std::thread([&] { other = QV_SetSysTimeOut(500); }).join();
    EXPECT_EQ(other, 1);
}
