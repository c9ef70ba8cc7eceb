// Cost of turning one measurement block into a reading: splitting the 512
// bytes, converting the 126 samples of each detector path to dBm and merging
// the paths (class P with its peak share, class S with its blend), against
// the 252 us the sensor spends sampling the block (126 samples, 2 us apart).
// The counter "of_252us" is that share; the target is below 0.01.
//
// Run through tests' qv_test_env so that it works in a namespace of its own:
//   qv_test_env bench/bench_measure
#include <benchmark/benchmark.h>

#include "frame/shared_table.h"
#include "measure/conversion.h"
#include "qv_api2.h"
#include "sim/qvsim.h"

namespace {

constexpr double kBlockSamplingSeconds = 126 * 2e-6;

struct Sensor {
    const char* serial;
    const char* product;
};
constexpr Sensor kSensors[] = {{"BMP001", "QV442A"}, {"BMS002", "OEM"}};  // class P, class S

// The sensors on a fresh bus, initialised into slots 0 and 1.
bool SetUp() {
    static const bool ready = [] {
        if (qvsim_bus_create(nullptr) != QVSIM_OK) return false;
        for (const Sensor& s : kSensors) {
            qvsim_sensor_config config;
            qvsim_sensor_config_init(&config);
            config.serial = s.serial;
            config.product = s.product;
            if (qvsim_sensor_add(&config) < 0) return false;
            if (QV_InitializeSensor_SN(s.serial) < 1) return false;
        }
        return true;
    }();
    return ready;
}

// One block of a CW input of state.range(1) dBm (range(0): the slot), split
// and converted again each time from the slot's own raw buffer.
void BM_ConvertBlock(benchmark::State& state) {
    if (!SetUp()) {
        state.SkipWithError("no simulated sensor");
        return;
    }
    const int slot = static_cast<int>(state.range(0));
    const double dbm = static_cast<double>(state.range(1));
    qv::DeviceRecord& r = qv::Slot(slot);
    // One reading of the simulated signal leaves its block in the raw buffer.
    double reading = 0;
    if (qvsim_set_cw_power(qvsim_sensor_at_index(slot), dbm) != QVSIM_OK ||
        QV_SetAverages(r.address, 1) != 1 || QV_MeasureCW(r.address, &reading) != 1) {
        state.SkipWithError("no reading");
        return;
    }
    qv::SampleBuffers& b = r.samples;
    for (auto _ : state) {
        std::int32_t loT = qv::kTempSampleCapacity, hiT = qv::kTempSampleCapacity;
        std::int32_t loP = qv::kPowerSampleCapacity, hiP = qv::kPowerSampleCapacity;
        qv::ParseRawBlocks(b.raw, qv::kBlockBytes, b.loTmpCnt, b.hiTmpCnt, b.loPwrCnt, b.hiPwrCnt,
                           &loT, &hiT, &loP, &hiP);
        reading = qv::ConvertAndMergeCW(slot, 1);
        benchmark::DoNotOptimize(reading);
    }
    state.counters["dBm"] = reading;
    // elapsed / (iterations x 252 us): the share of the sampling time.
    state.counters["of_252us"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * kBlockSamplingSeconds,
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
// Slot 0 class P, slot 1 class S; below, in and above the crossover band.
BENCHMARK(BM_ConvertBlock)->ArgNames({"slot", "dBm"})
    ->Args({0, -50})->Args({0, -25})->Args({0, 0})
    ->Args({1, -50})->Args({1, -25})->Args({1, 0});

}  // namespace

BENCHMARK_MAIN();
