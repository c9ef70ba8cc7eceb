// The entry frame that wraps every export, and the frame's own operations.
//
// An export is one line: it hands its internal operation to Enter(), which
// takes the machine-wide lock for at most sysTimeOut, runs the operation and
// gives the lock back on every path. Internal operations never lock.
#pragma once

#include <cstdint>
#include <exception>

#include "frame/shared_table.h"
#include "platform/platform.h"

namespace qv {

// Name of the machine-wide lock (the namespace suffix is added below).
inline constexpr const char* kLockName = "QV_MTX_101848";
// Name of the shared block.
inline constexpr const char* kSharedBlockName = "qv_api2_shared_vars";

inline constexpr std::int32_t kSuccess = QV_SUCCESS;
inline constexpr std::int32_t kFailure = QV_ERR_GENERAL;

namespace frame {

// Holds the lock for the life of the object once Acquired() is true.
class LockScope {
public:
    LockScope();
    ~LockScope();
    LockScope(const LockScope&) = delete;
    LockScope& operator=(const LockScope&) = delete;
    bool Acquired() const { return acquired_; }

private:
    platform::LockRef lock_ = 0;
    bool acquired_ = false;
};

}  // namespace frame

// Runs `operation` under the machine-wide lock and returns its result; -1
// when the lock cannot be had within sysTimeOut. An exception escaping the
// operation becomes -1 (nothing is thrown across the interface).
template <class Operation>
std::int32_t Enter(Operation&& operation) noexcept {
    try {
        frame::LockScope lock;
        if (!lock.Acquired()) return kFailure;
        return operation();
    } catch (...) {
        return kFailure;
    }
}

// Variant for exports that take no lock at all.
template <class Operation>
std::int32_t EnterWithoutLock(Operation&& operation) noexcept {
    try {
        return operation();
    } catch (...) {
        return kFailure;
    }
}

// ---------------------------------------------------------------- frame operations

std::int32_t SetSysTimeOut(std::int32_t timeOutMs);
std::int32_t DriverVersion();

}  // namespace qv
