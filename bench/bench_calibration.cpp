// Cost of the calibration work: building the temperature rows for a new
// frequency, decoding an image, and obtaining the image at initialisation with
// a valid cache file and without one.
//
// The load benchmarks give every control transfer a latency of 250 us: a vendor
// request's setup, data and status stages rarely finish within one 125 us
// high-speed microframe once the host's driver stack has turned each stage
// around, so two microframes per request is a realistic figure (a full-speed
// sensor, with 1 ms frames, would be slower still). The ratio of the two load
// benchmarks is what the cache file is for.
//
// Run through tests' qv_test_env so that it works in a namespace of its own:
//   qv_test_env bench/bench_calibration
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "calibration/cal_image.h"
#include "calibration/cal_tables.h"
#include "device/model.h"
#include "device/transport.h"
#include "frame/shared_table.h"
#include "platform/platform.h"
#include "qv_api2.h"
#include "sim/qvsim.h"

namespace {

using qv::Slot;

constexpr unsigned kControlTransferMicros = 250;
constexpr int kSlot = 0;
constexpr const char* kSerial = "BEN001";

void SetLatency(unsigned micros) {
    qvsim_timing timing{};
    timing.control_us = micros;
    qvsim_set_timing(&timing);
}

// One simulated sensor on a fresh bus, its image decoded into slot 0.
class Bench {
public:
    static Bench& Get() {
        static Bench bench;
        return bench;
    }
    bool ready() const { return ready_; }
    std::vector<std::uint8_t>& image() { return image_; }

private:
    Bench() : image_(qv::kCalImageBytes) {
        if (qvsim_bus_create(nullptr) != QVSIM_OK) return;
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        config.serial = kSerial;
        config.product = "QV221A";
        if (qvsim_sensor_add(&config) < 0) return;
        const std::int64_t h = qv::OpenDevice_Idx(1);
        if (h <= 0) return;
        SetLatency(0);
        qv::LoadCalImage(h, kSerial, image_.data());
        qv::CloseDevice(h);
        qv::DeviceRecord& r = Slot(kSlot);
        r.identity.ModelIndex = qv::ModelFromProductString(config.product);
        qv::SetModelGrid(kSlot);
        qv::DecodeCalImage(kSlot, image_.data());
        ready_ = true;
    }
    std::vector<std::uint8_t> image_;
    bool ready_ = false;
};

void BM_BuildCalTables_NewFrequency(benchmark::State& state) {
    if (!Bench::Get().ready()) return state.SkipWithError("no simulated sensor");
    qv::DeviceRecord& r = Slot(kSlot);
    const double frequencies[2] = {1.0e9, 2.345e9};
    int n = 0;
    for (auto _ : state) {
        // A new frequency setting, as a measurement that finds it moved sees it.
        const double f = frequencies[n++ & 1];
        r.current.Freq = f;
        benchmark::DoNotOptimize(qv::BuildCalTables(kSlot, f));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_BuildCalTables_NewFrequency);

void BM_DecodeCalImage(benchmark::State& state) {
    if (!Bench::Get().ready()) return state.SkipWithError("no simulated sensor");
    const std::uint8_t* image = Bench::Get().image().data();
    for (auto _ : state) {
        qv::DecodeCalImage(kSlot, image);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_DecodeCalImage);

void LoadWithLatency(benchmark::State& state, bool keepCache) {
    if (!Bench::Get().ready()) return state.SkipWithError("no simulated sensor");
    std::vector<std::uint8_t> image(qv::kCalImageBytes);
    const std::int64_t h = qv::OpenDevice_Idx(1);
    const std::string cache = qv::CalCachePath(kSerial);
    SetLatency(0);
    qv::LoadCalImage(h, kSerial, image.data());  // leaves a valid cache
    SetLatency(kControlTransferMicros);
    for (auto _ : state) {
        if (!keepCache) {
            state.PauseTiming();
            qv::platform::RemoveFile(cache);
            state.ResumeTiming();
        }
        qv::LoadCalImage(h, kSerial, image.data());
        benchmark::ClobberMemory();
    }
    SetLatency(0);
    qv::CloseDevice(h);
}

void BM_LoadCalImage_ValidCache(benchmark::State& state) { LoadWithLatency(state, true); }
BENCHMARK(BM_LoadCalImage_ValidCache)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LoadCalImage_NoCache(benchmark::State& state) { LoadWithLatency(state, false); }
BENCHMARK(BM_LoadCalImage_NoCache)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);

// The whole initialisation through the export, as an application sees it:
// identity, calibration (cache or sensor), tables, device handle, release.
void InitializeWithLatency(benchmark::State& state, bool keepCache) {
    if (!Bench::Get().ready()) return state.SkipWithError("no simulated sensor");
    const std::string cache = qv::CalCachePath(kSerial);
    SetLatency(0);
    if (QV_InitializeSensor_SN(kSerial) < 1) return state.SkipWithError("initialisation failed");
    QV_UninitializeSensor_SN(kSerial);  // leaves a valid cache
    SetLatency(kControlTransferMicros);
    for (auto _ : state) {
        if (!keepCache) {
            state.PauseTiming();
            qv::platform::RemoveFile(cache);
            state.ResumeTiming();
        }
        benchmark::DoNotOptimize(QV_InitializeSensor_SN(kSerial));
        state.PauseTiming();
        QV_UninitializeSensor_SN(kSerial);
        state.ResumeTiming();
    }
    SetLatency(0);
}

void BM_InitializeSensor_ValidCache(benchmark::State& state) { InitializeWithLatency(state, true); }
BENCHMARK(BM_InitializeSensor_ValidCache)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_InitializeSensor_NoCache(benchmark::State& state) { InitializeWithLatency(state, false); }
BENCHMARK(BM_InitializeSensor_NoCache)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);

}  // namespace

BENCHMARK_MAIN();
