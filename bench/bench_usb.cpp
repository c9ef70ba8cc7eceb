// The same simulated sensor reached two ways in one run: through the
// simulator's own driver library ("sim"), and through libqvusbdrvd, libusb
// and the usbdevfs requests of an emulated USB bus ("usb"), where umockdev
// carries every request to a handler thread that asks the simulated sensor.
// The timing model is on (as in bench_stream), so the sensor sets the pace
// and the CPU column (whole process) is the cost of keeping up with it.
//
// - BM_CwStream: free-running QV_MeasureCW, Averages 1.
// - BM_Sweep1s: one trace of the 1 s sweep (PP_GetTrace).
// - BM_CwReadingIoctls: the usbdevfs requests of one CW reading (a 512-byte
//   bulk read: submit, reap until it is handed over, one reap more, as
//   libusb does), issued directly: what the emulation costs for that mix.
// - BM_EmulatedIoctl: one usbdevfs request the emulation answers alone.
//
// The CPU time is split by thread and by what the calling thread was doing
// (counters, per iteration, microseconds unless named otherwise):
//   caller_us      the benchmark's thread: QV_API2, the driver library, libusb
//                  and the client side of umockdev's preload library
//   in_ioctl_us    of which inside ioctl(): the preload library's round trips
//                  to the handler thread, which stand in for the kernel
//   in_wait_us     of which inside libusb's poll and timerfd_settime
//   handler_us     umockdev's handler thread (GLib main context, the
//                  emulation's handler, the simulated sensor)
//   others_us      every other thread (libusb's hotplug thread, GLib's)
//   sensor_us      inside the simulated sensor: on the handler thread ("usb"),
//                  or in the simulator's driver library on the caller ("sim",
//                  which loads a copy of it that counts)
//   emulation_us   in_ioctl_us + handler_us - the handler's sensor_us: what
//                  the ioctls cost here, where hardware has a kernel driver
//   probe_us       what the counting's own clock reads cost (two per call)
//   net_us         the process's CPU time less emulation_us and probe_us:
//                  the figure to set beside the other path's
//   beside_sensor_us  net_us less sensor_us: QV_API2 and the driver library
//                  (with libusb), without the sensor they ask
// and the calls per iteration: sensor_calls (into the simulated sensor),
// submit, reap, empty_reap (EAGAIN), discard, other_ioctl, poll, timerfd.
//
// Run under umockdev's preload library, in a namespace of its own, and keep
// the medians of a few repetitions (other processes share the cores):
//   qv_test_env /usr/bin/umockdev-wrapper bench/bench_usb
//       --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "device/driver.h"
#include "qv_api2.h"
#include "sim/qvsim.h"
#include "usb/emulation/emulated_bus.h"
#include "usb_syscall_probe.h"

namespace {

constexpr const char* kSerial = "BUS001";
constexpr int kAddress = 40;
constexpr const char* kNode = "/dev/bus/usb/001/002";
constexpr std::uint32_t kBlockBytes = 512;
constexpr int kMaxReaps = 10000;

qvusb::EmulatedBus* g_bus = nullptr;

bool Bed() {
    static const bool ready = [] {
        if (!qvusb::EmulatedBus::Available() || qvsim_bus_create(nullptr) != QVSIM_OK) return false;
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        config.serial = kSerial;
        config.product = "QV442A";
        config.address = kAddress;
        const int id = qvsim_sensor_add(&config);
        if (id < 0 || qvsim_set_cw_power(id, -10.0) != QVSIM_OK) return false;
        g_bus = new qvusb::EmulatedBus;
        return g_bus->Add({0});
    }();
    return ready;
}

void SetTiming(bool on) {
    qvsim_timing timing{};
    if (on) {
        timing.control_us = 250;
        timing.bulk_bytes_per_s = 4096000;
        timing.sampled_blocks = 1;
    }
    qvsim_set_timing(&timing);
}

// Loads the driver library of the path taken and initialises the sensor through it.
bool Use(benchmark::State& state, bool usb) {
    if (!Bed()) {
        state.SkipWithError("not under umockdev-wrapper");
        return false;
    }
    SetTiming(false);
    static int loaded = -1;
    if (loaded != static_cast<int>(usb)) {
        QV_UninitializeSensor_SN(kSerial);
        setenv("QV_USBDRVD", usb ? QV_USB_DRIVER_PATH : QV_TIMED_SIM_DRIVER_PATH, 1);
        qv::UnloadDriver();
        loaded = static_cast<int>(usb);
    }
    if (QV_InitializeSensor_SN(kSerial) < 1 || QV_SetAverages(kAddress, 1) != 1) {
        state.SkipWithError("the sensor could not be initialised");
        return false;
    }
    SetTiming(true);
    return true;
}

// The CPU time spent in the simulator's driver library on the "sim" path so
// far, and the number of its calls (the timed copy the path loads counts them).
struct SimDriverUse {
    std::uint64_t ns = 0, calls = 0;
};
SimDriverUse SimDriverSoFar() {
    using Counter = std::uint64_t (*)();
    static void* const library = dlopen(QV_TIMED_SIM_DRIVER_PATH, RTLD_NOW | RTLD_LOCAL);
    static const auto ns = library ? reinterpret_cast<Counter>(dlsym(library, "qvbench_driver_ns")) : nullptr;
    static const auto calls = library ? reinterpret_cast<Counter>(dlsym(library, "qvbench_driver_calls")) : nullptr;
    return ns && calls ? SimDriverUse{ns(), calls()} : SimDriverUse{};
}

// CPU time by thread and the calls of the calling thread, at one moment.
struct Split {
    long caller = 0, handler = 0;
    std::uint64_t callerNs = 0, handlerNs = 0, othersNs = 0;
    // In the simulated sensor: on the handler thread ("usb"), and on the
    // caller through the simulator's driver library ("sim"), with its calls.
    std::uint64_t handlerSensorNs = 0, handlerSensorCalls = 0, driverNs = 0, driverCalls = 0;
    usbprobe::Tally calls;

    // `handler`: the handler thread to tell apart, -1 for the one known now.
    static Split Take(long handler = -1) {
        Split s;
        s.caller = usbprobe::CurrentThread();
        const qvusb::EmulatedBus::Counts counts = g_bus ? g_bus->counts() : qvusb::EmulatedBus::Counts{};
        s.handler = handler >= 0 ? handler : counts.handlerThread;
        const SimDriverUse sim = SimDriverSoFar();
        s.handlerSensorNs = counts.sensorNs;
        s.handlerSensorCalls = counts.sensorCalls;
        s.driverNs = sim.ns;
        s.driverCalls = sim.calls;
        s.callerNs = usbprobe::ThreadCpuNs(s.caller);
        s.handlerNs = s.handler != 0 ? usbprobe::ThreadCpuNs(s.handler) : 0;
        s.othersNs = usbprobe::OtherThreadsCpuNs(s.caller, s.handler);
        s.calls = usbprobe::Totals();
        return s;
    }
};

// Starts watching the calling thread's system calls; Report stops.
Split Start() {
    usbprobe::Watch(true);
    return Split::Take();
}

void Report(benchmark::State& state, const Split& before) {
    usbprobe::Watch(false);
    // A handler thread first seen during the run stays among the others.
    const Split after = Split::Take(before.handler);
    SetTiming(false);
    const double n = static_cast<double>(state.iterations());
    if (n == 0) return;
    auto us = [n](std::uint64_t a, std::uint64_t b) { return static_cast<double>(a - b) / 1000.0 / n; };
    const auto& a = after.calls;
    const auto& b = before.calls;
    // About one of the two clock reads of a wrapped call falls inside the
    // time it books, the other outside: both are taken out below.
    const double read = usbprobe::ClockReadNs() / 1000.0;
    const double ioctls = static_cast<double>(a.Ioctls() - b.Ioctls()) / n;
    double calls = 0;
    for (int k = 0; k < usbprobe::kKinds; ++k) calls += static_cast<double>(a.calls[k] - b.calls[k]) / n;
    const double inIoctl = us(a.IoctlNs(), b.IoctlNs()) - ioctls * read;
    const double handler = us(after.handlerNs, before.handlerNs);
    const double handlerSensor = us(after.handlerSensorNs, before.handlerSensorNs);
    const double sensor = handlerSensor + us(after.driverNs, before.driverNs);
    const double caller = us(after.callerNs, before.callerNs);
    const double others = us(after.othersNs, before.othersNs);
    const double emulation = inIoctl + handler - handlerSensor;
    const double driverCalls = static_cast<double>(after.driverCalls - before.driverCalls) / n;
    const double probe = (calls + driverCalls) * 2 * read;
    const double net = caller + handler + others - emulation - probe;
    state.counters["caller_us"] = caller;
    state.counters["in_ioctl_us"] = inIoctl;
    state.counters["in_wait_us"] = us(a.ns[usbprobe::kPoll] + a.ns[usbprobe::kTimerfd], b.ns[usbprobe::kPoll] + b.ns[usbprobe::kTimerfd]);
    state.counters["handler_us"] = handler;
    state.counters["sensor_us"] = sensor;
    state.counters["others_us"] = others;
    state.counters["emulation_us"] = emulation;
    state.counters["probe_us"] = probe;
    state.counters["net_us"] = net;
    state.counters["sensor_calls"] = driverCalls + static_cast<double>(after.handlerSensorCalls - before.handlerSensorCalls) / n;
    state.counters["beside_sensor_us"] = net - sensor;
    static const char* const kNames[usbprobe::kKinds] = {"submit", "reap", "empty_reap", "discard", "other_ioctl",
                                                         "poll", "timerfd"};
    for (int k = 0; k < usbprobe::kKinds; ++k)
        state.counters[kNames[k]] = static_cast<double>(a.calls[k] - b.calls[k]) / n;
}

void BM_CwStream(benchmark::State& state) {
    const bool usb = state.range(0) == 1;
    state.SetLabel(usb ? "usb" : "sim");
    if (!Use(state, usb)) return;
    double reading = 0;
    QV_MeasureCW(kAddress, &reading);  // arms the stream
    const Split before = Start();
    int failures = 0;
    for (auto _ : state) failures += QV_MeasureCW(kAddress, &reading) != 1;
    Report(state, before);
    if (failures > 0) state.SkipWithError("a reading failed");
}

void BM_Sweep1s(benchmark::State& state) {
    const bool usb = state.range(0) == 1;
    state.SetLabel(usb ? "usb" : "sim");
    if (!Use(state, usb) || PP_SetSweepTime(kAddress, 1000000) != 1) return;
    std::vector<double> trace(static_cast<std::size_t>(PP_GetTraceLength(kAddress)));
    const Split before = Start();
    for (auto _ : state) {
        std::int32_t count = 0;
        if (PP_GetTrace(kAddress, trace.data(), static_cast<std::int32_t>(trace.size()), &count) != 1)
            state.SkipWithError("the trace failed");
    }
    Report(state, before);
}
// The requests of one free-running CW reading, without libusb or the
// library: a 512-byte bulk read from the streaming sensor, submitted, reaped
// as soon as it is handed over and followed by one reap that finds nothing.
// The handler asks the simulated sensor exactly as for a reading, so
// emulation_us here is the emulation's cost of that mix.
void BM_CwReadingIoctls(benchmark::State& state) {
    double reading = 0;
    if (!Use(state, true) || QV_MeasureCW(kAddress, &reading) != 1) return;  // the stream runs on
    const int fd = open(kNode, O_RDWR);
    if (fd < 0) {
        state.SkipWithError("the emulated device node cannot be opened");
        return;
    }
    std::vector<std::uint8_t> block(kBlockBytes);
    int failures = 0;
    const Split before = Start();
    for (auto _ : state) {
        usbdevfs_urb urb{};
        urb.type = USBDEVFS_URB_TYPE_BULK;
        urb.endpoint = 0x82;
        urb.buffer = block.data();
        urb.buffer_length = kBlockBytes;
        if (ioctl(fd, USBDEVFS_SUBMITURB, &urb) != 0) {
            ++failures;
            break;
        }
        void* done = nullptr;
        // A sensor that stopped streaming must not hold the run for ever.
        for (int reap = 0; reap < kMaxReaps && ioctl(fd, USBDEVFS_REAPURBNDELAY, &done) != 0; ++reap)
            if (errno != EAGAIN) break;
        if (done == nullptr) {
            ioctl(fd, USBDEVFS_DISCARDURB, &urb);
            ioctl(fd, USBDEVFS_REAPURBNDELAY, &done);
        }
        failures += done != &urb || urb.status != 0 || urb.actual_length != static_cast<int>(kBlockBytes);
        ioctl(fd, USBDEVFS_REAPURBNDELAY, &done);
    }
    Report(state, before);
    close(fd);
    if (failures > 0) state.SkipWithError("a read failed");
}

// What the barest usbdevfs request costs the emulation (a round trip to its
// handler that asks nothing of the sensor). Requests that carry pointers cost
// more, one message each way per pointer: BM_CwReadingIoctls measures a real mix.
void BM_EmulatedIoctl(benchmark::State& state) {
    if (!Bed()) {
        state.SkipWithError("not under umockdev-wrapper");
        return;
    }
    const int fd = open(kNode, O_RDWR);
    if (fd < 0) {
        state.SkipWithError("the emulated device node cannot be opened");
        return;
    }
    std::uint32_t capabilities = 0;
    const Split before = Start();
    for (auto _ : state) benchmark::DoNotOptimize(ioctl(fd, USBDEVFS_GET_CAPABILITIES, &capabilities));
    Report(state, before);
    close(fd);
}
BENCHMARK(BM_EmulatedIoctl)->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMicrosecond);

// The simulator's driver first, then libusb: each driver library is loaded once.
BENCHMARK(BM_CwStream)->Arg(0)->UseRealTime()->MeasureProcessCPUTime()->MinTime(2.0)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Sweep1s)->Arg(0)->UseRealTime()->MeasureProcessCPUTime()->Iterations(1)->Unit(benchmark::kMillisecond);
// The raw requests follow the CW stream, while the sensor still streams as for it.
BENCHMARK(BM_CwStream)->Arg(1)->UseRealTime()->MeasureProcessCPUTime()->MinTime(2.0)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CwReadingIoctls)->UseRealTime()->MeasureProcessCPUTime()->MinTime(2.0)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Sweep1s)->Arg(1)->UseRealTime()->MeasureProcessCPUTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // The sensor is given back and libusb closed while the emulated bus still
    // answers, then the bus goes.
    QV_UninitializeSensor_SN(kSerial);
    qv::UnloadDriver();
    delete g_bus;
    return 0;
}
