// Cost of trace analysis on a full 10,000-point trace against the time the
// raw bytes of one 1 ms sweep take on the wire (49,152 bytes at 40 MB/s,
// 1.23 ms): analysis must stay small beside acquiring what it analyses.
//
// The trace is a pulse train (10 % duty cycle, 40 pulses, a little ripple on
// the tops) in watts, as the analysis trace holds it. Counters:
//   ns_per_point  CPU time of one call per trace point
//   usb_pct       CPU time of one call in per cent of the sweep's USB time (target < 1)
// Gate measurements from droop on include raising the gate to the threshold.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "profiling/analysis.h"

namespace {

constexpr int kPoints = 10000;
constexpr double kUsbSeconds = 49152 / 40e6;

const std::vector<double>& Train() {
    static const std::vector<double> train = [] {
        std::vector<double> w(kPoints);
        for (int i = 0; i < kPoints; ++i)
            w[i] = i % 250 < 25 ? 1e-3 * (1.0 + 0.01 * (i % 3)) : 1e-8 * (1.0 + 0.1 * (i % 5));
        return w;
    }();
    return train;
}

const qv::GateScale kScale {1000.0 / (kPoints - 1), 10000.0, 1000.0, 3.0};

void SetCounters(benchmark::State& state) {
    state.counters["ns_per_point"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kPoints * 1e-9,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["usb_pct"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kUsbSeconds / 100.0,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// Each measurement from droop on first copies the gate raised to the threshold,
// which gives the figures the pulse finder starts from.
template <class Measure>
void Gate(benchmark::State& state, Measure measure) {
    const std::vector<double>& p = Train();
    std::vector<double> floored(kPoints);
    const double floor = qv::AnalysisWatts(-55.0);
    for (auto _ : state) {
        const qv::GateFigures f = qv::RaiseToFloor(p.data(), kPoints, floor, floored.data());
        double v = 0;
        benchmark::DoNotOptimize(measure(floored.data(), f, &v));
        benchmark::DoNotOptimize(v);
    }
    SetCounters(state);
}

void GateAveragePower(benchmark::State& state) {
    const std::vector<double>& p = Train();
    for (auto _ : state) {
        double v = 0;
        benchmark::DoNotOptimize(qv::GateAveragePower(p.data(), kPoints, &v));
        benchmark::DoNotOptimize(v);
    }
    SetCounters(state);
}
BENCHMARK(GateAveragePower);

void GateDroop(benchmark::State& state) {
    Gate(state, [](const double* p, const qv::GateFigures&, double* v) { return qv::GateDroop(p, kPoints, v); });
}
BENCHMARK(GateDroop);

// A gate from the start to the top of the pulse at 5000 (its last point, 5024).
void GateRiseTime(benchmark::State& state) {
    Gate(state, [](const double* p, const qv::GateFigures&, double* v) {
        return qv::GateRiseTime(p, 5025, kScale, v);
    });
}
BENCHMARK(GateRiseTime);

void GatePulseWidth(benchmark::State& state) {
    Gate(state, [](const double* p, const qv::GateFigures& f, double* v) {
        return qv::GatePulseWidth(p, kPoints, kScale, v, &f);
    });
}
BENCHMARK(GatePulseWidth);

void GatePRT(benchmark::State& state) {
    Gate(state, [](const double* p, const qv::GateFigures& f, double* v) {
        return qv::GatePRT(p, kPoints, kScale, v, &f);
    });
}
BENCHMARK(GatePRT);

void GateDutyCycle(benchmark::State& state) {
    Gate(state, [](const double* p, const qv::GateFigures& f, double* v) {
        return qv::GateDutyCycle(p, kPoints, kScale, v, &f);
    });
}
BENCHMARK(GateDutyCycle);

// The analysis trace's peak list, searched on its watts.
void PeakSearch(benchmark::State& state) {
    const std::vector<double>& p = Train();
    std::vector<PP_Peak> peaks;
    peaks.reserve(kPoints);
    for (auto _ : state) {
        qv::FindPeaksInWatts(p.data(), kPoints, 3.0, -55.0, qv::PeakOrder::kValue, kPoints, peaks);
        benchmark::DoNotOptimize(peaks.data());
    }
    state.counters["peaks"] = static_cast<double>(peaks.size());
    SetCounters(state);
}
BENCHMARK(PeakSearch);

// A caller's trace, already in dBm.
void PeakSearchFromTrace(benchmark::State& state) {
    const std::vector<double>& p = Train();
    std::vector<double> dbm(kPoints);
    for (int i = 0; i < kPoints; ++i) dbm[i] = qv::AnalysisDbm(p[i]);
    std::vector<PP_Peak> peaks;
    peaks.reserve(kPoints);
    for (auto _ : state) {
        qv::FindPeaks(dbm.data(), kPoints, 3.0, -55.0, qv::PeakOrder::kValue, kPoints, peaks);
        benchmark::DoNotOptimize(peaks.data());
    }
    state.counters["peaks"] = static_cast<double>(peaks.size());
    SetCounters(state);
}
BENCHMARK(PeakSearchFromTrace);

void PulseEdges(benchmark::State& state) {
    // The pulse at 5000 .. 5024: the walks cover its width on both sides.
    const std::vector<double>& p = Train();
    for (auto _ : state) {
        std::int32_t l, r;
        benchmark::DoNotOptimize(qv::FindPulseEdges(p.data(), kPoints - 1, 5012, -55.0, 3.0, &l, &r));
    }
    SetCounters(state);
}
BENCHMARK(PulseEdges);

}  // namespace

BENCHMARK_MAIN();
