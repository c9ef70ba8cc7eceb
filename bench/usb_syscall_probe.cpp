#include "usb_syscall_probe.h"

#include <dirent.h>
#include <dlfcn.h>
#include <linux/ioctl.h>
#include <linux/usbdevice_fs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

struct pollfd;
struct itimerspec;

namespace usbprobe {

namespace {

thread_local bool t_watched = false;
Tally g_tally;  // written by the watched thread only

template <typename F>
F Next(const char* name) {
    void* f = dlsym(RTLD_NEXT, name);
    if (f == nullptr) {
        std::fprintf(stderr, "usb_syscall_probe: no %s after the benchmark's own\n", name);
        std::abort();
    }
    return reinterpret_cast<F>(f);
}

Kind IoctlKind(unsigned long request, int result, int error) {
    switch (request) {
        case USBDEVFS_SUBMITURB:
            return kSubmit;
        case USBDEVFS_REAPURB:
        case USBDEVFS_REAPURBNDELAY:
            return result == 0 ? kReap : (error == EAGAIN ? kEmptyReap : kOtherIoctl);
        case USBDEVFS_DISCARDURB:
            return kDiscard;
        default:
            return kOtherIoctl;
    }
}

// Runs one call; when the thread is watched, books its CPU time under the
// kind that `classify` gives from the call's result and errno.
template <typename Call, typename Classify>
int Book(Call call, Classify classify) {
    if (!t_watched) return call();
    const std::uint64_t start = OwnCpuNs();
    const int result = call();
    const int error = errno;
    const Kind kind = classify(result, error);
    ++g_tally.calls[kind];
    g_tally.ns[kind] += OwnCpuNs() - start;
    errno = error;
    return result;
}

}  // namespace

std::uint64_t Tally::Ioctls() const {
    return calls[kSubmit] + calls[kReap] + calls[kEmptyReap] + calls[kDiscard] + calls[kOtherIoctl];
}
std::uint64_t Tally::IoctlNs() const {
    return ns[kSubmit] + ns[kReap] + ns[kEmptyReap] + ns[kDiscard] + ns[kOtherIoctl];
}

void Watch(bool on) { t_watched = on; }

double ClockReadNs() {
    static const double cost = [] {
        constexpr int kReads = 20000;
        const std::uint64_t start = OwnCpuNs();
        for (int i = 0; i < kReads; ++i) OwnCpuNs();
        return static_cast<double>(OwnCpuNs() - start) / kReads;
    }();
    return cost;
}
Tally Totals() { return g_tally; }

long CurrentThread() { return static_cast<long>(syscall(SYS_gettid)); }

std::uint64_t ThreadCpuNs(long tid) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/task/%ld/schedstat", tid);
    FILE* f = std::fopen(path, "r");
    if (f == nullptr) return 0;
    unsigned long long ns = 0;
    if (std::fscanf(f, "%llu", &ns) != 1) ns = 0;
    std::fclose(f);
    return ns;
}

std::uint64_t OtherThreadsCpuNs(long a, long b) {
    std::uint64_t total = 0;
    DIR* tasks = opendir("/proc/self/task");
    if (tasks == nullptr) return 0;
    while (const dirent* e = readdir(tasks)) {
        const long tid = std::strtol(e->d_name, nullptr, 10);
        if (tid > 0 && tid != a && tid != b) total += ThreadCpuNs(tid);
    }
    closedir(tasks);
    return total;
}

}  // namespace usbprobe

using namespace usbprobe;

#define USBPROBE_EXPORT __attribute__((visibility("default")))

extern "C" {

USBPROBE_EXPORT int ioctl(int fd, unsigned long request, ...) {
    va_list args;
    va_start(args, request);
    void* arg = va_arg(args, void*);
    va_end(args);
    static const auto next = Next<int (*)(int, unsigned long, void*)>("ioctl");
    return Book([&] { return next(fd, request, arg); },
                [&](int result, int error) { return IoctlKind(request, result, error); });
}

USBPROBE_EXPORT int poll(pollfd* fds, unsigned long count, int timeoutMs) {
    static const auto next = Next<int (*)(pollfd*, unsigned long, int)>("poll");
    return Book([&] { return next(fds, count, timeoutMs); }, [](int, int) { return kPoll; });
}

USBPROBE_EXPORT int timerfd_settime(int fd, int flags, const itimerspec* value, itimerspec* old) {
    static const auto next = Next<int (*)(int, int, const itimerspec*, itimerspec*)>("timerfd_settime");
    return Book([&] { return next(fd, flags, value, old); }, [](int, int) { return kTimerfd; });
}

}  // extern "C"
