// Cost of writing a state file's sections into a profile file that already
// holds many others (a hand-edited or grown file): the writer must stay linear
// in the size of the file, since it runs under the machine-wide lock.
//
//   qv_test_env bench/bench_profile
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "platform/platform.h"

namespace {

namespace platform = qv::platform;

// Eleven sections of 60 keys each: the current state and ten registers.
constexpr int kSections = 11;
constexpr int kKeys = 60;

std::string FilePath() { return platform::JoinPath(platform::DataDirectory(), "bench_profile.ini"); }

// A file of `others` empty sections, with the state's sections among the first ones.
void MakeFile(int others) {
    std::string text;
    for (int s = 0; s < kSections; ++s) text += "[State" + std::to_string(s) + "]\r\nKey0=1\r\n";
    for (int i = 0; i < others; ++i) text += "[s" + std::to_string(i) + "]\r\n";
    platform::WriteFileAtomic(FilePath(), text.data(), text.size());
}

void BM_WriteStateSectionsIntoLargeFile(benchmark::State& state) {
    const int others = static_cast<int>(state.range(0));
    std::vector<std::string> names, keys;
    for (int s = 0; s < kSections; ++s) names.push_back("State" + std::to_string(s));
    for (int k = 0; k < kKeys; ++k) keys.push_back("Key" + std::to_string(k));
    std::vector<platform::ProfileWrite> writes;
    for (const std::string& key : keys) writes.push_back({key.c_str(), "12.5"});
    std::vector<platform::ProfileSectionWrite> sections;
    for (const std::string& name : names) sections.push_back({name.c_str(), writes.data(), writes.size()});
    for (auto _ : state) {
        state.PauseTiming();
        MakeFile(others);
        state.ResumeTiming();
        if (!platform::ProfileWriteSections(FilePath(), sections.data(), sections.size()))
            state.SkipWithError("write failed");
    }
    state.SetComplexityN(others);
}
BENCHMARK(BM_WriteStateSectionsIntoLargeFile)
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

}  // namespace

BENCHMARK_MAIN();
