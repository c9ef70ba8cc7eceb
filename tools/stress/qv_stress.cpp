// Many processes, each with its own simulated sensor and several threads,
// make mixed calls at once (settings, measurements, state files, listings)
// while some of them are killed at random. Afterwards:
//   - no slot is owned by a process that is gone, once a listing has run;
//   - every living process still reads back every setting it made;
//   - no call took longer than the lock time-out and its own work;
//   - every state file in the data directory is whole and parseable.
// Prints the figures and exits 0 when all of that holds, 1 otherwise.
//
//   qv_stress [--processes 8] [--threads 2] [--calls 10000] [--kills 3] [--seed 1]
//
// Run it through qv_test_env (a namespace, data directory and bus of its own).
// The same program is each worker, started with --worker.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "qv_api2.h"
#include "sim/qvsim.h"
#include "support/process.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kLockTimeOutMs = 2000;
// The longest a call may take on top of waiting for the lock: its own work on
// a simulated bus (a state file is written and flushed, a reading taken) is a
// few milliseconds; this leaves room for a loaded machine.
constexpr int kOwnWorkMs = 1000;
constexpr int kFirstAddress = 20;

std::string Serial(int worker) {
    char text[16];
    std::snprintf(text, sizeof text, "STR%03d", worker % 1000);
    return text;
}

// ---------------------------------------------------------------- worker

// What one thread of a worker set last and must read back.
struct Owned {
    double frequency = 1e9;  // thread 0
    double offset = 0.0;     // thread 0
    std::int32_t averages = 1;  // thread 1
    std::int32_t units = QV_UNIT_DBM;  // thread 1
};

struct ThreadFigures {
    long calls = 0;
    long failed = 0;       // a call answered other than it should
    long timedOut = 0;     // failed after waiting the whole lock time-out: allowed
    long lost = 0;         // a setting read back other than set
    long overBound = 0;    // took longer than the lock time-out and its own work
    std::vector<float> ms; // duration of every call
};

class Worker {
public:
    Worker(int index, int threads, long calls, unsigned seed)
        : index_(index), address_(kFirstAddress + index), threads_(threads), calls_(calls),
          seed_(seed), owned_(static_cast<std::size_t>(threads)), figures_(static_cast<std::size_t>(threads)) {}

    bool Initialise() {
        return QV_SetSysTimeOut(kLockTimeOutMs) == 1 &&
               QV_InitializeSensor_SN(Serial(index_).c_str()) >= 1;
    }

    void Run() {
        std::vector<std::thread> pool;
        for (int t = 0; t < threads_; ++t) pool.emplace_back([this, t] { Thread(t); });
        for (auto& thread : pool) thread.join();
    }

    // Every setting read back as its thread last set it.
    long CheckOwned() {
        long lost = 0;
        for (int t = 0; t < threads_; ++t) {
            const long r = CheckThread(t);
            lost += r < 0 ? 1 : r;  // nothing else runs now: a failed read counts too
        }
        return lost;
    }

    std::string Figures() const {
        ThreadFigures all;
        for (const ThreadFigures& f : figures_) {
            all.calls += f.calls;
            all.failed += f.failed;
            all.timedOut += f.timedOut;
            all.lost += f.lost;
            all.overBound += f.overBound;
            all.ms.insert(all.ms.end(), f.ms.begin(), f.ms.end());
        }
        std::sort(all.ms.begin(), all.ms.end());
        auto at = [&](double q) {
            return all.ms.empty() ? 0.0 : all.ms[static_cast<std::size_t>(q * (all.ms.size() - 1))];
        };
        std::ostringstream out;
        out << "done calls=" << all.calls << " failed=" << all.failed << " timedout=" << all.timedOut
            << " lost=" << all.lost
            << " over=" << all.overBound << " p50=" << at(0.5) << " p99=" << at(0.99)
            << " max=" << at(1.0);
        return out.str();
    }

private:
    void Thread(int t) {
        std::mt19937 random(seed_ * 7919u + static_cast<unsigned>(index_ * 31 + t));
        ThreadFigures& f = figures_[static_cast<std::size_t>(t)];
        const long mine = calls_ / threads_ + (t < calls_ % threads_ ? 1 : 0);
        f.ms.reserve(static_cast<std::size_t>(mine));
        for (long i = 0; i < mine; ++i) {
            const int kind = static_cast<int>(random() % 10);
            const auto start = Clock::now();
            const bool ok = Call(t, kind, random, f);
            const float ms = std::chrono::duration<float, std::milli>(Clock::now() - start).count();
            f.ms.push_back(ms);
            ++f.calls;
            // Under this much contention a call may wait out the lock time-out;
            // it then fails as documented. Any other failure is a fault.
            const bool waitedOut = ms >= kLockTimeOutMs;
            f.failed += !ok && !waitedOut;
            f.timedOut += !ok && waitedOut;
            f.overBound += ms > kLockTimeOutMs + kOwnWorkMs;
        }
    }

    // One call of the mix: 3 in 10 settings, 3 measurements, 2 state files, 2 listings.
    bool Call(int t, int kind, std::mt19937& random, ThreadFigures& f) {
        Owned& o = owned_[static_cast<std::size_t>(t)];
        if (kind < 3) {
            if (t % 2 == 0) {
                const double frequency = 1e8 + static_cast<double>(random() % 1000) * 1e6;
                const double offset = static_cast<double>(random() % 200) / 10.0 - 10.0;
                if (QV_SetFrequency(address_, frequency) != 1) return false;
                o.frequency = frequency;
                if (QV_SetOffset(address_, offset) != 1) return false;
                o.offset = offset;
            } else {
                const std::int32_t averages = 1 + static_cast<std::int32_t>(random() % 16);
                const std::int32_t units = static_cast<std::int32_t>(random() % 2 ? QV_UNIT_DBM : QV_UNIT_W);
                if (QV_SetAverages(address_, averages) != 1) return false;
                o.averages = averages;
                if (QV_SetMeasurementPowerUnits(address_, units) != 1) return false;
                o.units = units;
            }
            const long lost = CheckThread(t);
            if (lost < 0) return false;
            f.lost += lost;
            return true;
        }
        if (kind < 6) {
            double reading = 0;
            return QV_MeasureCW(address_, &reading) == 1;
        }
        if (kind < 8) {
            if (kind == 6) return QV_WriteStateToINI(address_) == 1;
            const std::string name = "w" + std::to_string(t) + "_" + std::to_string(random() % 4);
            return QV_SaveCurrStateTo(address_, name.c_str()) == 1 && QV_GetNamedStateCount(address_) >= 1;
        }
        SensorListEntry list[16] {};
        return QV_SensorList(list, 16) == 1 && QV_SensorCnt() >= 1;
    }

    // Settings of thread t that read back other than it set them; -1 when a
    // read failed (it waited out the lock).
    long CheckThread(int t) {
        const Owned& o = owned_[static_cast<std::size_t>(t)];
        if (t % 2 == 0) {
            double frequency = 0, offset = 0;
            if (QV_GetFrequency(address_, &frequency) != 1 || QV_GetOffset(address_, &offset) != 1)
                return -1;
            return (frequency != o.frequency) + (offset != o.offset);
        }
        std::int32_t averages = 0, units = -1;
        if (QV_GetAverages(address_, &averages) != 1 || QV_GetMeasurementPowerUnits(address_, &units) != 1)
            return -1;
        return (averages != o.averages) + (units != o.units);
    }

    int index_, address_, threads_;
    long calls_;
    unsigned seed_;
    std::vector<Owned> owned_;
    std::vector<ThreadFigures> figures_;
};

// Obeys the coordinator, one line each way: "go" runs the calls, "check"
// reads the settings back, "exit" leaves.
int RunWorker(int index, int threads, long calls, unsigned seed) {
    Worker worker(index, threads, calls, seed);
    if (!worker.Initialise()) {
        std::cout << "cannot-initialise" << std::endl;
        return 1;
    }
    std::cout << "ready" << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) {
        if (line == "go") {
            worker.Run();
            std::cout << worker.Figures() << std::endl;
        } else if (line == "check") {
            std::cout << "lost=" << worker.CheckOwned() << std::endl;
        } else {
            break;
        }
    }
    return 0;
}

// ---------------------------------------------------------------- coordinator

long Field(const std::string& line, const std::string& key) {
    const std::size_t at = line.find(key + "=");
    return at == std::string::npos ? -1 : std::stol(line.substr(at + key.size() + 1));
}
double FieldMs(const std::string& line, const std::string& key) {
    const std::size_t at = line.find(key + "=");
    return at == std::string::npos ? -1 : std::stod(line.substr(at + key.size() + 1));
}

// A state file as the library writes it: CR LF lines, each a section, a
// key=value or empty, and nothing after the last line end.
bool Parseable(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    const std::string text {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (text.empty() || text.size() < 2 || text.compare(text.size() - 2, 2, "\r\n") != 0) return false;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = text.find("\r\n", start);
        if (end == std::string::npos) return false;
        const std::string line = text.substr(start, end - start);
        const bool section = line.size() >= 2 && line.front() == '[' && line.back() == ']';
        if (!line.empty() && !section && line.find('=') == std::string::npos) return false;
        start = end + 2;
    }
    return true;
}

struct Child {
    std::unique_ptr<qv::test::ChildProcess> process;
    bool killed = false;
    std::string figures;
};

int RunCoordinator(int processes, int threads, long calls, int kills, unsigned seed) {
    if (qvsim_bus_create(nullptr) != QVSIM_OK) {
        std::fprintf(stderr, "qv_stress: no simulated bus (run it through qv_test_env)\n");
        return 1;
    }
    for (int i = 0; i < processes; ++i) {
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        const std::string serial = Serial(i);
        config.serial = serial.c_str();
        config.address = kFirstAddress + i;
        if (qvsim_sensor_add(&config) < 0) return 1;
    }
    const std::string self = qv::test::CurrentProgram();
    std::vector<Child> children(static_cast<std::size_t>(processes));
    int problems = 0;
    for (int i = 0; i < processes; ++i) {
        children[i].process = std::make_unique<qv::test::ChildProcess>(
            std::vector<std::string> {self, "--worker", std::to_string(i), "--threads",
                                      std::to_string(threads), "--calls", std::to_string(calls),
                                      "--seed", std::to_string(seed)},
            qv::test::ChildOptions {true, {}, {}});
        const std::string ready = children[i].process->ReadLine(60000);
        if (ready != "ready") {
            std::fprintf(stderr, "worker %d: %s\n", i, ready.c_str());
            return 1;
        }
    }
    const auto start = Clock::now();
    for (Child& c : children) c.process->Write("go\n");

    // Kill some while they work: random workers at random moments within the
    // run's expected length (about 15 ms a call per process on a busy 2-core
    // machine; 10 ms keeps the kills inside it).
    std::mt19937 random(seed);
    std::vector<int> order(static_cast<std::size_t>(processes));
    for (int i = 0; i < processes; ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), random);
    const int toKill = std::min(kills, processes);
    std::vector<long> at(static_cast<std::size_t>(toKill));
    for (long& ms : at) ms = static_cast<long>(random() % static_cast<unsigned>(calls * 10 + 1));
    std::sort(at.begin(), at.end());
    for (int k = 0; k < toKill; ++k) {
        std::this_thread::sleep_until(start + std::chrono::milliseconds(at[k]));
        Child& c = children[static_cast<std::size_t>(order[k])];
        c.process->Kill();
        c.killed = true;
    }
    long allCalls = 0, over = 0, failed = 0, timedOut = 0, lost = 0;
    double p99 = 0, max = 0;
    for (int i = 0; i < processes; ++i) {
        Child& c = children[i];
        if (c.killed) continue;
        c.figures = c.process->ReadLine(600000);
        std::printf("worker %d: %s\n", i, c.figures.c_str());
        if (c.figures.rfind("done ", 0) != 0) {
            ++problems;
            continue;
        }
        allCalls += Field(c.figures, "calls");
        failed += Field(c.figures, "failed");
        timedOut += Field(c.figures, "timedout");
        lost += Field(c.figures, "lost");
        over += Field(c.figures, "over");
        p99 = std::max(p99, FieldMs(c.figures, "p99"));
        max = std::max(max, FieldMs(c.figures, "max"));
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();

    // The listing frees the slots of the killed; the living keep theirs.
    std::vector<SensorListEntry> list(static_cast<std::size_t>(processes));
    if (QV_SensorList(list.data(), processes) != 1) ++problems;
    int deadOwned = 0, livingFree = 0;
    for (const SensorListEntry& e : list) {
        const int worker = e.Address - kFirstAddress;
        if (worker < 0 || worker >= processes) continue;
        const bool owned = e.DeviceIndex < 0;
        deadOwned += children[worker].killed && owned;
        livingFree += !children[worker].killed && !owned;
    }
    long lostAfter = 0;
    for (Child& c : children) {
        if (c.killed) continue;
        c.process->Write("check\n");
        lostAfter += std::max(0L, Field(c.process->ReadLine(60000), "lost"));
        c.process->Write("exit\n");
        c.process->Wait();
    }
    int files = 0, broken = 0;
    const char* data = std::getenv("QV_API2_DATA_DIR");
    std::error_code error;
    for (const auto& entry : fs::recursive_directory_iterator(data ? data : "", error)) {
        if (!entry.is_regular_file() || entry.path().extension() != ".ini") continue;
        ++files;
        if (!Parseable(entry.path())) {
            ++broken;
            std::printf("not parseable: %s\n", entry.path().string().c_str());
        }
    }
    std::printf("processes %d x threads %d, %ld calls each: %ld calls held by %d survivors in %.1f s "
                "(%d killed)\n",
                processes, threads, calls, allCalls, processes - toKill, seconds, toKill);
    std::printf("call duration: worst p99 %.1f ms, max %.1f ms; over %d ms (lock time-out %d ms + "
                "%d ms): %ld\n",
                p99, max, kLockTimeOutMs + kOwnWorkMs, kLockTimeOutMs, kOwnWorkMs, over);
    std::printf("calls failed %ld, lock time-outs %ld; settings lost during the run %ld, after it %ld\n",
                failed, timedOut, lost, lostAfter);
    std::printf("slots of killed processes still owned after a listing %d; living processes' slots "
                "freed %d\n",
                deadOwned, livingFree);
    std::printf("state files %d, not parseable %d\n", files, broken);
    const bool good = problems == 0 && over == 0 && failed == 0 && lost == 0 && lostAfter == 0 &&
                      deadOwned == 0 && livingFree == 0 && broken == 0 && files > 0;
    std::printf("%s\n", good ? "stress passed" : "stress FAILED");
    return good ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app {"Stress: processes with threads and random kills over the simulated bus"};
    int processes = 8, threads = 2, kills = 3, worker = -1;
    long calls = 10000;
    unsigned seed = 1;
    app.add_option("--processes", processes, "worker processes, each with its own sensor")
        ->check(CLI::Range(1, 13));
    app.add_option("--threads", threads, "threads per process")->check(CLI::Range(1, 16));
    app.add_option("--calls", calls, "calls per process")->check(CLI::Range(1L, 10000000L));
    app.add_option("--kills", kills, "processes killed while they work")->check(CLI::Range(0, 13));
    app.add_option("--seed", seed, "seed of the random choices");
    app.add_option("--worker", worker, "(internal) run as worker N");
    CLI11_PARSE(app, argc, argv);
    if (worker >= 0) return RunWorker(worker, threads, calls, seed);
    return RunCoordinator(processes, threads, calls, kills, seed);
}
