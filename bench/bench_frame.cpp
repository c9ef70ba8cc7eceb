// Cost of the entry frame: an export that takes no lock, one that takes the
// machine-wide lock, and the same while a second process calls at full speed.
//
// Run through tests' qv_test_env so that it works in a namespace of its own:
//   qv_test_env bench/bench_frame
#include <benchmark/benchmark.h>

#include <memory>

#include "qv_api2.h"
#include "support/peer_process.h"

namespace {

void BM_DriverVersion_NoLock(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(QV_DriverVersion());
}
BENCHMARK(BM_DriverVersion_NoLock);

void BM_SetSysTimeOut_LockRoundTrip(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(QV_SetSysTimeOut(500));
}
BENCHMARK(BM_SetSysTimeOut_LockRoundTrip);

// A second process hammers the lock the whole time.
void BM_SetSysTimeOut_SecondProcessCalling(benchmark::State& state) {
    auto peer = std::make_unique<qv::test::PeerProcess>();
    if (!peer->Started() || peer->Ask("spin 600000") != "spinning") {
        state.SkipWithError("peer did not start");
        return;
    }
    for (auto _ : state) benchmark::DoNotOptimize(QV_SetSysTimeOut(500));
    peer->Kill();
}
BENCHMARK(BM_SetSysTimeOut_SecondProcessCalling)->UseRealTime();

void BM_DriverVersion_SecondProcessCalling(benchmark::State& state) {
    auto peer = std::make_unique<qv::test::PeerProcess>();
    if (!peer->Started() || peer->Ask("spin 600000") != "spinning") {
        state.SkipWithError("peer did not start");
        return;
    }
    for (auto _ : state) benchmark::DoNotOptimize(QV_DriverVersion());
    peer->Kill();
}
BENCHMARK(BM_DriverVersion_SecondProcessCalling)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
