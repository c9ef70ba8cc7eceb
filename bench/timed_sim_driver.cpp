// A driver library for bench_usb: the simulator's own, forwarded to, with the
// CPU time the calling thread spends in it counted. It tells the "sim" path's
// share of the simulated sensor, as the emulation's handler tells the "usb"
// path's.
#include <dlfcn.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "device/driver_abi.h"
#include "usb_syscall_probe.h"

namespace {

std::atomic<std::uint64_t> g_ns{0}, g_calls{0};

template <typename F>
F Simulator(const char* name) {
    static void* const library = dlopen(QV_SIM_DRIVER_PATH, RTLD_NOW | RTLD_LOCAL);
    void* f = library != nullptr ? dlsym(library, name) : nullptr;
    if (f == nullptr) {
        std::fprintf(stderr, "timed_sim_driver: %s not found in %s\n", name, QV_SIM_DRIVER_PATH);
        std::abort();
    }
    return reinterpret_cast<F>(f);
}

// Books the time of a call that returns (one that throws is not booked).
template <typename Call>
auto Timed(Call call) {
    const std::uint64_t start = usbprobe::OwnCpuNs();
    const auto result = call();
    g_ns += usbprobe::OwnCpuNs() - start;
    ++g_calls;
    return result;
}

}  // namespace

#define QVB_EXPORT extern "C" __attribute__((visibility("default")))
#define QVB_FORWARD(Ret, Type, Name, Params, Args)                     \
    QVB_EXPORT Ret QV_USBDRVD_##Name Params {                          \
        static const Type next = Simulator<Type>("QV_USBDRVD_" #Name); \
        return Timed([&] { return next Args; });                       \
    }

QVB_FORWARD(int32_t, QvDrv_GetDevCount, GetDevCount, (const QvGuid* g), (g))
QVB_FORWARD(int32_t, QvDrv_GetDevicePath, GetDevicePath, (int32_t i, const QvGuid* g, QvWideChar* p, int32_t n),
            (i, g, p, n))
QVB_FORWARD(QvDrvHandle, QvDrv_OpenDevHandle, OpenDevHandle, (int32_t i, int32_t f, const QvGuid* g), (i, f, g))
QVB_FORWARD(int32_t, QvDrv_CloseDevHandle, CloseDevHandle, (QvDrvHandle d), (d))
QVB_FORWARD(QvDrvHandle, QvDrv_OpenWinUSBHandle, OpenWinUSBHandle, (QvDrvHandle d), (d))
QVB_FORWARD(int32_t, QvDrv_CloseWinUSBHandle, CloseWinUSBHandle, (QvDrvHandle w), (w))
QVB_FORWARD(int32_t, QvDrv_GetStringDescriptorLengthA, GetStringDescriptorLengthA, (QvDrvHandle w, int32_t a, int32_t i),
            (w, a, i))
QVB_FORWARD(int32_t, QvDrv_GetStringDescriptorA, GetStringDescriptorA,
            (QvDrvHandle w, int32_t a, int32_t i, int32_t n, char* b), (w, a, i, n, b))
QVB_FORWARD(int32_t, QvDrv_VendorOrClassRequestOut, VendorOrClassRequestOut,
            (QvDrvHandle w, int32_t t, int32_t r, int32_t q, int32_t v, int32_t i, uint8_t* b, int32_t n),
            (w, t, r, q, v, i, b, n))
QVB_FORWARD(int32_t, QvDrv_VendorOrClassRequestIn, VendorOrClassRequestIn,
            (QvDrvHandle w, int32_t t, int32_t r, int32_t q, int32_t v, int32_t i, uint8_t* b, int32_t n),
            (w, t, r, q, v, i, b, n))
QVB_FORWARD(int32_t, QvDrv_PipeReadTimeout, PipeReadTimeout,
            (QvDrvHandle w, int32_t p, uint8_t* b, uint32_t n, uint32_t* m, uint32_t t), (w, p, b, n, m, t))
QVB_FORWARD(int32_t, QvDrv_PipeWriteTimeout, PipeWriteTimeout,
            (QvDrvHandle w, int32_t p, uint8_t* b, uint32_t n, uint32_t* m, uint32_t t), (w, p, b, n, m, t))

// What the calls so far have cost the threads that made them, and how many there were.
QVB_EXPORT std::uint64_t qvbench_driver_ns() { return g_ns; }
QVB_EXPORT std::uint64_t qvbench_driver_calls() { return g_calls; }
