#include "frame/frame.h"

#include "calibration/ownership.h"
#include "device/driver.h"

namespace qv {

namespace frame {

LockScope::LockScope() {
    lock_ = platform::LockOpen(kLockName);
    if (!lock_ || !tableView) return;
    const platform::LockWaitResult waited = platform::LockWait(lock_, tableView->sysTimeOut);
    // A holder that died leaves the lock to the next waiter, which goes on: every
    // operation keeps the table consistent at each step it writes, and refusing
    // would only turn one lost call into two.
    acquired_ = waited == platform::LockWaitResult::kAcquired ||
                waited == platform::LockWaitResult::kAcquiredAbandoned;
    if (waited == platform::LockWaitResult::kTimedOut)
        platform::Log("the library's lock was not free within the system time-out of %u ms; the call returns -1",
                      tableView->sysTimeOut);
    else if (waited == platform::LockWaitResult::kAcquiredAbandoned)
        platform::Log("the library's lock was left by a process that ended holding it; going on");
}

LockScope::~LockScope() {
    if (acquired_) platform::LockRelease(lock_);
    if (lock_) platform::LockClose(lock_);
}

}  // namespace frame

std::int32_t SetSysTimeOut(std::int32_t timeOutMs) {
    if (timeOutMs < QV_SYS_TIMEOUT_MIN || timeOutMs > QV_SYS_TIMEOUT_MAX) return kFailure;
    tableView->sysTimeOut = static_cast<std::uint32_t>(timeOutMs);
    return kSuccess;
}

std::int32_t DriverVersion() { return QV_DRIVER_VERSION; }

// ---------------------------------------------------------------- load and unload

namespace {

void SetUpAttach(void* base, bool created) {
    auto* block = static_cast<SharedBlock*>(base);
    tableView = block;
    if (created || block->firstLoadDone == 0) {
        block->firstLoadDone = 1;
        block->lockHandle = platform::LockCreate(kLockName);
        SetUpFreshBlock(*block);
    } else {
        // Held while we are attached, so the lock outlives the process that created it.
        platform::LockAdopt(kLockName);
    }
    ++block->attachCount;
}

// Our slots are released under the lock so that no other process sees them
// half-closed; if the lock cannot be had they are released anyway. This runs
// before the detach proper: waiting for the lock (up to sysTimeOut) must not
// hold the serialisation of attaches, which every later load waits for.
void ReleaseOwnSlots() {
    if (!tableView) return;  // never attached, or detached already
    // A process that is ending may already have unloaded the driver library: it is
    // not called again, and the driver's handles die with the process.
    if (platform::ProcessEnding()) UnloadDriver();
    frame::LockScope lock;
    ReleaseSlotsOfProcess(platform::CurrentProcessId());
}

void TearDownDetach(void* base, bool last) {
    auto* block = static_cast<SharedBlock*>(base);
    tableView = block;
    if (block->attachCount > 0) --block->attachCount;
    // The lock goes with the last live process, whatever attachCount says: a
    // process that was killed never counted itself out.
    if (last) platform::LockDestroy(block->lockHandle);
    tableView = nullptr;
    UnloadDriver();
}

}  // namespace

namespace frame {

void ProcessAttach() {
    platform::LogSetUp();
    platform::SharedBlockAttach(kSharedBlockName, sizeof(SharedBlock), SetUpAttach);
}

void ProcessDetach() {
    ReleaseOwnSlots();
    platform::SharedBlockDetach(TearDownDetach);
}

}  // namespace frame

}  // namespace qv
