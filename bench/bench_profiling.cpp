// Cost of the trace conversion pipeline against the time the sweep's raw bytes
// take on the wire.
//
// For every sweep configuration row, one sweep's packets (a pulse train that
// crosses the detector paths' crossover band, so the merge blends) are split
// and converted into the caller's trace exactly as PP_GetTrace does it: rows
// 0..15 on the direct path, rows 16..27 as the delayed path's acquisition for a
// user sweep and delay that select them. Pipeline/ROW/0 runs the default
// settings (no filter, no averaging), Pipeline/ROW/1 the costliest (1 MHz
// four-pole filter, averaging with automatic restart). Counters:
//   usb_ms    the row's raw bytes at 40 MB/s (USB 2.0 high speed, bulk)
//   ratio_pct CPU time of one conversion as a share of usb_ms (target < 10)
// The Steps benchmark splits the same work into its steps for each row.
//
// Run through tests' qv_test_env so that it works in a namespace of its own:
//   qv_test_env bench/bench_profiling
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <vector>

#include "frame/shared_table.h"
#include "profiling/sweep_config.h"
#include "profiling/sweep_protocol.h"
#include "profiling/trace_acquisition.h"
#include "profiling/trace_conversion.h"
#include "qv_api2.h"
#include "sim/qvsim.h"

namespace {

using qv::Slot;

constexpr int kSlot = 0;
constexpr double kUsbBytesPerSecond = 40e6;
constexpr int kTemperature = 2785 + 140 * 70;  // row 140 of the QV442A's table

// The user sweep (row, delay, undersampling) whose delayed path acquires row a.
struct DelayedChoice {
    int userRow, delayUsec, undersampling;
};
constexpr DelayedChoice kDelayedChoices[qv::kSweepRows - qv::kUserSweepRows] = {
    {0, 0, 0},       {4, 2000, 0},    {4, 8000, 0},      {5, 5000, 0},
    {9, 10000, 0},   {10, 5000, 0},   {11, 5000, 0},     {10, 0, 1},
    {12, 0, 1},      {13, 200000, 0}, {14, 400000, 0},   {15, 900000, 0},
};

// A QV442A initialised into slot 0 of a fresh simulated bus.
bool SensorReady() {
    static const bool ready = [] {
        if (qvsim_bus_create(nullptr) != QVSIM_OK) return false;
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        config.serial = "BEN002";
        config.address = 5;
        config.product = "QV442A";
        if (qvsim_sensor_add(&config) < 0) return false;
        return QV_InitializeSensor_SN("BEN002") >= 0;
    }();
    return ready;
}

// Count at which a path's entries read `dbm` (between two entries).
int CountAt(const qv::CalSegment (&e)[qv::kCalLevels], double first, double dbm) {
    double at = (dbm - first) / 2.0;
    at = at < 0 ? 0 : at > 24.99 ? 24.99 : at;
    const int j = static_cast<int>(at);
    const double c = e[j].count + (e[j + 1].count - e[j].count) * (at - j);
    return c < 0 ? 0 : c > 65535 ? 65535 : static_cast<int>(c);
}

// One sweep of `row`: a pulse train of 25 % duty between -45 and -24 dBm on a
// period of 400 record points, with a little ripple on top.
std::vector<std::uint8_t> SweepPackets(int row) {
    const qv::SweepConfig& c = qv::SweepConfigRow(row);
    const qv::CalTempRow& cal = Slot(kSlot).tempRows[140];
    int hiCount[8], loCount[8];
    for (int level = 0; level < 8; ++level) {
        const double dbm = (level < 4 ? -45.0 : -24.0) + 0.1 * (level % 4);
        hiCount[level] = CountAt(cal.hs, -70.0, dbm);
        loCount[level] = CountAt(cal.ls, -30.0, dbm);
    }
    std::vector<std::uint8_t> raw(static_cast<std::size_t>(c.totalBytes));
    auto put = [&](std::size_t at, int v) {
        raw[at] = static_cast<std::uint8_t>(v & 0xFF);
        raw[at + 1] = static_cast<std::uint8_t>(v >> 8);
    };
    for (int p = 0; p < c.packets; ++p) {
        const std::size_t base = static_cast<std::size_t>(p) * c.packetBytes;
        put(base, kTemperature);
        put(base + 2, kTemperature);
        for (int k = 0; k < c.samplesPerPacket; ++k) {
            const long long point = static_cast<long long>(k) * c.packets + p;
            const int level = (point % 400 < 100 ? 4 : 0) + static_cast<int>(point % 4);
            put(base + 4 + 4 * static_cast<std::size_t>(k), loCount[level]);
            put(base + 6 + 4 * static_cast<std::size_t>(k), hiCount[level]);
        }
    }
    return raw;
}

// The settings of the conversion of `row`; the user row it runs for.
int Configure(int row, qv::DelayedPlan* plan, bool costliest) {
    qv::TraceSettings& t = Slot(kSlot).trace;
    t.filter = costliest ? 5 : qv::kNoFilter;
    t.poles = costliest ? 2 : 0;
    t.avgMode = costliest ? 1 : 0;
    t.traceAvgs = 16;
    int user = row;
    if (row >= qv::kUserSweepRows) {
        const DelayedChoice& d = kDelayedChoices[row - qv::kUserSweepRows];
        user = d.userRow;
        *plan = qv::PlanDelayed(user, d.delayUsec, d.undersampling,
                                qv::SweepConfigRow(user).traceLength);
    }
    t.sweepTimeIdx = user;
    t.sweepTimeUsec = qv::SweepConfigRow(user).sweepTimeUsec;
    return user;
}

void SetUsbCounters(benchmark::State& state, int row) {
    const double usbSeconds = qv::SweepConfigRow(row).totalBytes / kUsbBytesPerSecond;
    state.counters["usb_ms"] = usbSeconds * 1e3;
    // seconds / value: the CPU time of one trace in per cent of usb_ms.
    state.counters["ratio_pct"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * usbSeconds / 100.0,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void Pipeline(benchmark::State& state) {
    if (!SensorReady()) {
        state.SkipWithError("no simulated sensor");
        return;
    }
    const int row = static_cast<int>(state.range(0));
    qv::DelayedPlan plan {};
    const int user = Configure(row, &plan, state.range(1) != 0);
    const std::vector<std::uint8_t> raw = SweepPackets(row);
    const std::int32_t length = qv::SweepConfigRow(user).traceLength;
    std::vector<double> trace(static_cast<std::size_t>(length));
    qv::TraceScratch scratch;
    for (auto _ : state) {
        const std::int32_t result =
            row < qv::kUserSweepRows
                ? qv::ConvertDirect(kSlot, row, raw.data(), trace.data(), length, scratch)
                : qv::ConvertDelayed(kSlot, user, plan, raw.data(), trace.data(), length, scratch);
        if (result != 1) {
            state.SkipWithError("conversion failed");
            break;
        }
        benchmark::DoNotOptimize(trace.data());
    }
    SetUsbCounters(state, row);
}
BENCHMARK(Pipeline)
    ->ArgsProduct({benchmark::CreateDenseRange(0, qv::kSweepRows - 1, 1), {0, 1}})
    ->Unit(benchmark::kMicrosecond);

// The same work step by step (wall-clock microseconds per trace in the counters).
void Steps(benchmark::State& state) {
    if (!SensorReady()) {
        state.SkipWithError("no simulated sensor");
        return;
    }
    using Clock = std::chrono::steady_clock;
    const int row = static_cast<int>(state.range(0));
    qv::DelayedPlan plan {};
    const int user = Configure(row, &plan, true);
    const bool delayed = row >= qv::kUserSweepRows;
    const std::vector<std::uint8_t> raw = SweepPackets(row);
    const qv::SweepConfig& c = qv::SweepConfigRow(row);
    const std::int32_t length = qv::SweepConfigRow(user).traceLength;
    const long long n = delayed ? plan.spanPoints
                                : std::min<long long>(qv::RecordPoints(c), qv::SweepSpanPoints(row) + 2);
    std::vector<std::uint16_t> hi(static_cast<std::size_t>(n)), lo(hi.size());
    std::vector<double> converted(hi.size()), trace(static_cast<std::size_t>(length));
    double split = 0, convert = 0, resample = 0, filter = 0, average = 0;
    auto lap = [](Clock::time_point& t, double& into) {
        const Clock::time_point now = Clock::now();
        into += std::chrono::duration<double, std::micro>(now - t).count();
        t = now;
    };
    const qv::TraceSettings& t = Slot(kSlot).trace;
    for (auto _ : state) {
        Clock::time_point at = Clock::now();
        const qv::RecordTemperatures temps = qv::SplitPackets(
            raw.data(), c, c.packets, delayed ? plan.startPoint : 0, n, hi.data(), lo.data());
        lap(at, split);
        const bool watts = qv::LineariseMergeCorrect(kSlot, hi.data(), lo.data(), converted.data(),
                                                     n, temps.tmpHi, temps.tmpLo);
        lap(at, convert);
        if (delayed && plan.undersampled)
            qv::SlowDecimate(user, converted.data(), n, trace.data(), length, watts);
        else
            qv::IntervalResample(converted.data(), delayed ? n : qv::RecordPoints(c),
                                 qv::SweepSpanPoints(user), trace.data(), length, watts);
        lap(at, resample);
        qv::FilterTrace(user, t.filter, t.poles, trace.data(), length);
        lap(at, filter);
        qv::AverageTrace(kSlot, trace.data(), length);
        lap(at, average);
    }
    // Wall-clock shares: on a busy machine the absolute figures exceed the CPU time.
    const double k = 1.0 / static_cast<double>(state.iterations());
    state.counters["split_us"] = split * k;
    state.counters["linearise_merge_correct_us"] = convert * k;
    state.counters["resample_us"] = resample * k;
    state.counters["filter_us"] = filter * k;
    state.counters["average_us"] = average * k;
}
BENCHMARK(Steps)->DenseRange(0, qv::kSweepRows - 1)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
