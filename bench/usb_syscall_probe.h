// Counts and times, on the thread that asked for it, the system calls through
// which libusb drives a transfer: the usbdevfs ioctls (which umockdev's
// preload library turns into round trips to the emulation's handler thread)
// and the poll and timerfd calls of libusb's event handling. The benchmark
// executable defines ioctl, poll and timerfd_settime itself, so that libusb's
// calls reach these wrappers first and go on to the next definition.
#pragma once

#include <cstdint>
#include <ctime>

namespace usbprobe {

enum Kind : int {
    kSubmit,       // USBDEVFS_SUBMITURB
    kReap,         // USBDEVFS_REAPURB(NDELAY) that handed over a URB
    kEmptyReap,    // ... that found none (EAGAIN)
    kDiscard,      // USBDEVFS_DISCARDURB
    kOtherIoctl,   // any other request
    kPoll,         // poll
    kTimerfd,      // timerfd_settime
    kKinds
};

struct Tally {
    std::uint64_t calls[kKinds] = {};
    std::uint64_t ns[kKinds] = {};  // CPU time of this thread inside the calls
    std::uint64_t Ioctls() const;
    std::uint64_t IoctlNs() const;
};

// Starts (true) or stops counting the calling thread's calls.
void Watch(bool on);
// What the watched thread has done so far.
Tally Totals();

// The calling thread's CPU time, nanoseconds (header-only: the timed copy of
// the simulator's driver reads it too).
inline std::uint64_t OwnCpuNs() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<std::uint64_t>(t.tv_sec) * 1000000000u + static_cast<std::uint64_t>(t.tv_nsec);
}

// What one read of the thread's CPU clock costs, nanoseconds (the wrappers
// read it twice per call).
double ClockReadNs();

// CPU time of one thread of this process (sum_exec_runtime), nanoseconds; 0
// when the thread is gone.
std::uint64_t ThreadCpuNs(long tid);
long CurrentThread();
// CPU time of every thread of this process but `a` and `b`.
std::uint64_t OtherThreadsCpuNs(long a, long b);

}  // namespace usbprobe
