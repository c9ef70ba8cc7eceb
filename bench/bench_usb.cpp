// The same simulated sensor reached two ways in one run: through the
// simulator's own driver library ("sim"), and through libqvusbdrvd, libusb
// and the usbdevfs requests of an emulated USB bus ("usb"), where umockdev
// carries every request to a handler thread that asks the simulated sensor.
// The timing model is on (as in bench_stream), so the sensor sets the pace
// and the CPU column (whole process: library, libusb's event handling and
// the emulation's thread) is the cost of keeping up with it.
//
// - BM_CwStream: free-running QV_MeasureCW, Averages 1.
// - BM_Sweep1s: one trace of the 1 s sweep (PP_GetTrace).
// - BM_EmulatedIoctl: one usbdevfs request through the emulation alone.
//
// The usb figures include what real hardware does not cost: the emulation's
// round trips over umockdev's socket for every ioctl ("ioctls_per_iteration")
// and its re-polling of a read that waits for a block. The difference between
// the two is therefore an upper bound of what libusb and libqvusbdrvd add.
//
// Run under umockdev's preload library, in a namespace of its own:
//   qv_test_env umockdev-wrapper bench/bench_usb
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "device/driver.h"
#include "qv_api2.h"
#include "sim/qvsim.h"
#include "usb/emulation/emulated_bus.h"

namespace {

constexpr const char* kSerial = "BUS001";
constexpr int kAddress = 40;

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
        setenv("QV_USBDRVD", usb ? QV_USB_DRIVER_PATH : QV_SIM_DRIVER_PATH, 1);
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

void Report(benchmark::State& state, std::uint64_t ioctlsBefore) {
    const double n = static_cast<double>(state.iterations());
    state.counters["ioctls_per_iteration"] =
        g_bus ? static_cast<double>(g_bus->counts().ioctls - ioctlsBefore) / n : 0.0;
    SetTiming(false);
}

void BM_CwStream(benchmark::State& state) {
    const bool usb = state.range(0) == 1;
    state.SetLabel(usb ? "usb" : "sim");
    if (!Use(state, usb)) return;
    double reading = 0;
    QV_MeasureCW(kAddress, &reading);  // arms the stream
    const std::uint64_t before = g_bus->counts().ioctls;
    int failures = 0;
    for (auto _ : state) failures += QV_MeasureCW(kAddress, &reading) != 1;
    if (failures > 0) state.SkipWithError("a reading failed");
    state.counters["readings_per_s"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    Report(state, before);
}

void BM_Sweep1s(benchmark::State& state) {
    const bool usb = state.range(0) == 1;
    state.SetLabel(usb ? "usb" : "sim");
    if (!Use(state, usb) || PP_SetSweepTime(kAddress, 1000000) != 1) return;
    std::vector<double> trace(static_cast<std::size_t>(PP_GetTraceLength(kAddress)));
    const std::uint64_t before = g_bus->counts().ioctls;
    for (auto _ : state) {
        std::int32_t count = 0;
        if (PP_GetTrace(kAddress, trace.data(), static_cast<std::int32_t>(trace.size()), &count) != 1)
            state.SkipWithError("the trace failed");
    }
    Report(state, before);
}
// What one usbdevfs request costs the emulation alone (a round trip to its
// handler that asks nothing of the sensor): times ioctls_per_iteration, the
// share of the usb figures that real hardware does not have.
void BM_EmulatedIoctl(benchmark::State& state) {
    if (!Bed()) {
        state.SkipWithError("not under umockdev-wrapper");
        return;
    }
    const int fd = open("/dev/bus/usb/001/002", O_RDWR);
    if (fd < 0) {
        state.SkipWithError("the emulated device node cannot be opened");
        return;
    }
    std::uint32_t capabilities = 0;
    for (auto _ : state) benchmark::DoNotOptimize(ioctl(fd, USBDEVFS_GET_CAPABILITIES, &capabilities));
    close(fd);
}
BENCHMARK(BM_EmulatedIoctl)->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMicrosecond);

// The simulator's driver first, then libusb: each driver library is loaded once.
BENCHMARK(BM_CwStream)->Arg(0)->UseRealTime()->MeasureProcessCPUTime()->MinTime(2.0)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Sweep1s)->Arg(0)->UseRealTime()->MeasureProcessCPUTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CwStream)->Arg(1)->UseRealTime()->MeasureProcessCPUTime()->MinTime(2.0)->Unit(benchmark::kMicrosecond);
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
