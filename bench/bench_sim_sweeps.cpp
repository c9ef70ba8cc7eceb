// What simulated sweeps cost the machine: one packet of the longest sweep (1 s,
// 2,000,384 bytes) with and without noise, and the 96 level-triggered packets of the
// shortest, each read as the library reads it. Timing model off: pure CPU.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "sim/qvsim.h"
#include "sim/qvsim_driver.h"

namespace {

constexpr QvGuid kSensorClass = {0x8BC86AFDu, 0xF393u, 0x458Du, {0x9A, 0x8D, 0xAD, 0x9E, 0xEE, 0x17, 0x88, 0x22}};

int id = -1;

// A sensor on a bus of its own with a pulse train on its input; the WinUSB handle.
QvDrvHandle Sensor(double noiseDb) {
    if (id < 0) {
        const std::string bus = std::string(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp") + "/qvsim_bench_bus";
        if (qvsim_bus_create(bus.c_str()) != QVSIM_OK) return 0;
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        config.serial = "BEN002", config.product = "QV442A";
        id = qvsim_sensor_add(&config);
    }
    qvsim_signal s{};
    qvsim_signal_get(id, &s);
    s.kind = QVSIM_SIGNAL_PULSE, s.period_us = 100.0, s.width_us = 20.0, s.rise_us = 1.0, s.fall_us = 1.0;
    s.on_dbm = 0.0, s.off_dbm = -30.0, s.noise_db = noiseDb;
    qvsim_signal_set(id, &s);
    return QV_USBDRVD_OpenWinUSBHandle(QV_USBDRVD_OpenDevHandle(0, 0, &kSensorClass));
}

void Request(QvDrvHandle h, int request, std::vector<std::uint8_t> data, bool out) {
    if (out)
        QV_USBDRVD_VendorOrClassRequestOut(h, 0x40, 0, request, 0, 0, data.data(), std::uint32_t(data.size()));
    else
        QV_USBDRVD_VendorOrClassRequestIn(h, 0xC0, 0, request, 0, 0, data.data(), std::uint32_t(data.size()));
}

// One sweep: 177, then per packet its number, 178 and B bytes in 64 KiB pieces.
void Sweep(benchmark::State& state, int mode, int packets, std::uint32_t bytes, double noiseDb) {
    const QvDrvHandle h = Sensor(noiseDb);
    const std::uint32_t value = (bytes - 8) / 2;
    double count = 0.0;  // the ls threshold half-way up the pulses' edges
    qvsim_detector_count(id, QVSIM_PATH_LS, -15.0, 1e9, qvsim_get_temperature(id), &count);
    const int threshold = int(count);
    Request(h, 212, {3, std::uint8_t(threshold >> 8), std::uint8_t(threshold)}, true);
    std::uint64_t sent = 0;
    std::vector<std::uint8_t> buffer(65536);
    for (auto _ : state) {
        Request(h, 177, {std::uint8_t(mode), std::uint8_t(value >> 16), std::uint8_t(value >> 8), std::uint8_t(value)},
                true);
        for (int p = 0; p < packets; ++p) {
            Request(h, 216, {0x11, 0x00}, true);
            Request(h, 217, {std::uint8_t(p * (96 / packets) + 2)}, true);
            Request(h, 178, std::vector<std::uint8_t>(5), false);
            for (std::uint32_t done = 0, moved = 1; done < bytes && moved > 0; done += moved, sent += moved)
                QV_USBDRVD_PipeReadTimeout(h, 0x82, buffer.data(), std::min<std::uint32_t>(65536, bytes - done), &moved,
                                           120);
        }
    }
    state.SetBytesProcessed(std::int64_t(sent));  // all of them unless a trigger failed to come
}

void BM_Sweep1s(benchmark::State& state) { Sweep(state, 0x68, 1, 2000384, 0.0); }
void BM_Sweep1sNoise(benchmark::State& state) { Sweep(state, 0x68, 1, 2000384, 0.5); }
void BM_Sweep10usLevelTriggered(benchmark::State& state) { Sweep(state, 0x29, 96, 512, 0.0); }

}  // namespace

BENCHMARK(BM_Sweep1s)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Sweep1sNoise)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Sweep10usLevelTriggered)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
