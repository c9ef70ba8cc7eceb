// What the library relies on when it measures: 193/194 start the simulated sensor,
// pipe 0x82 brings 512-byte blocks of the signal put on its input, through the
// detector its calibration describes.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "qvsim.h"
#include "qvsim_driver.h"
#include "support/process.h"

namespace {

constexpr QvGuid kSensorClass = {0x8BC86AFDu, 0xF393u, 0x458Du, {0x9A, 0x8D, 0xAD, 0x9E, 0xEE, 0x17, 0x88, 0x22}};

using Bytes = std::vector<uint8_t>;

auto Fields(const qvsim_signal& s) {
    return std::make_tuple(s.kind, s.cw_dbm, s.period_us, s.width_us, s.on_dbm, s.off_dbm, s.noise_db, s.seed, s.freq_hz);
}

int Word(const Bytes& b, size_t at) { return b[at] | b[at + 1] << 8; }

// One block split the way the library splits it.
struct Block {
    int lsTemperature[2], hsTemperature[2];
    std::vector<int> ls, hs;
};

Block Split(const Bytes& bytes, size_t at = 0) {
    Block block{{Word(bytes, at), Word(bytes, at + 508)}, {Word(bytes, at + 2), Word(bytes, at + 510)}, {}, {}};
    for (size_t k = 0; k < 126; ++k) {
        block.ls.push_back(Word(bytes, at + 4 + 4 * k));
        block.hs.push_back(Word(bytes, at + 6 + 4 * k));
    }
    return block;
}

class SimSignals : public ::testing::Test {
protected:
    void SetUp() override {
        directory_ = qv::test::MakeTemporaryDirectory("qvsim_signals_");
        ASSERT_FALSE(directory_.empty());
        busPath_ = directory_ + "/bus";
        qv::test::SetEnv(QVSIM_BUS_ENV, busPath_);
        ASSERT_EQ(qvsim_bus_create(nullptr), QVSIM_OK);
        qvsim_sensor_config config;
        qvsim_sensor_config_init(&config);
        config.serial = "123456";
        config.product = "QV332A";
        id_ = qvsim_sensor_add(&config);
        ASSERT_GE(id_, 0);
        Reopen();
        ASSERT_GT(device_, 0);
    }

    void TearDown() override {
        qvsim_bus_close();
        std::filesystem::remove_all(directory_);
    }

    int Start(int count) {
        uint8_t byte = static_cast<uint8_t>(count);
        return QV_USBDRVD_VendorOrClassRequestOut(winusb_, 0x40, 0, 193, 0, 0, &byte, 1);
    }

    int Rearm() {
        uint8_t reply[2] = {};
        return QV_USBDRVD_VendorOrClassRequestIn(winusb_, 0xC0, 0, 194, 0, 0, reply, 2);
    }

    void Command(int request) {
        uint8_t reply[2] = {};
        ASSERT_GE(QV_USBDRVD_VendorOrClassRequestIn(winusb_, 2, 0, request, 0, 0, reply, 2), 1);
    }

    // A pipe read of `length` bytes; the bytes that came.
    Bytes Read(uint32_t length, uint32_t timeoutMs = 100) {
        Bytes bytes(length);
        uint32_t moved = 0;
        QV_USBDRVD_PipeReadTimeout(winusb_, 0x82, bytes.data(), length, &moved, timeoutMs);
        bytes.resize(moved);
        return bytes;
    }

    // Blocks that arrive one 512-byte read at a time, up to `most`.
    int BlocksAvailable(int most) {
        int blocks = 0;
        while (blocks < most && Read(512).size() == 512) ++blocks;
        return blocks;
    }

    qvsim_sensor_state State() {
        qvsim_sensor_state state{};
        EXPECT_EQ(qvsim_sensor_state_get(id_, &state), QVSIM_OK);
        return state;
    }

    // The count the detector gives for dbm at the signal's frequency, as the ADC holds it.
    int ExpectedCount(int path, double dbm) {
        qvsim_signal signal{};
        EXPECT_EQ(qvsim_signal_get(id_, &signal), QVSIM_OK);
        double count = 0.0;
        EXPECT_EQ(qvsim_detector_count(id_, path, dbm, signal.freq_hz, qvsim_get_temperature(id_), &count), QVSIM_OK);
        return static_cast<int>(std::lround(std::fmin(std::fmax(count, 0.0), 65535.0)));
    }

    void Reopen() {
        device_ = QV_USBDRVD_OpenDevHandle(0, 0, &kSensorClass);
        winusb_ = QV_USBDRVD_OpenWinUSBHandle(device_);
    }

    // Gets the signal, lets `edit` change it and sets it.
    template <typename Edit>
    void ChangeSignal(Edit edit) {
        qvsim_signal signal{};
        ASSERT_EQ(qvsim_signal_get(id_, &signal), QVSIM_OK);
        edit(signal);
        ASSERT_EQ(qvsim_signal_set(id_, &signal), QVSIM_OK);
    }

    std::string directory_, busPath_;
    int id_ = -1;
    QvDrvHandle device_ = 0, winusb_ = 0;
};

// ---------------------------------------------------------------- start modes

struct StartCase {
    const char* name;
    int count;        // 193's byte; -1: no 193
    bool rearm;       // 194 after it
    int blocks;       // blocks that then arrive (of at most 12 asked)
};

class StartMode : public SimSignals, public ::testing::WithParamInterface<StartCase> {};

TEST_P(StartMode, DeliversItsBlocksThenNothing) {
    const StartCase& c = GetParam();
    if (c.count >= 0) {
        ASSERT_EQ(Start(c.count), 1);
    }
    if (c.rearm) {
        ASSERT_EQ(Rearm(), 2);
    }
    EXPECT_EQ(BlocksAvailable(12), c.blocks);
    EXPECT_EQ(State().measuring, c.blocks < 12 ? 0 : 1);
    EXPECT_EQ(State().blocks_sent, static_cast<unsigned long long>(c.blocks));
}

constexpr StartCase kStartCases[] = {
    {"NothingBeforeAStart", -1, false, 0},
    {"CountedStartAlone", 3, false, 3},
    {"CountedStartAndRearm", 5, true, 5},
    {"RearmWithoutStartGivesOneBlock", -1, true, 1},
    {"StreamKeepsComing", 0, true, 12},
    {"StreamWithoutRearm", 0, false, 12},
};

INSTANTIATE_TEST_SUITE_P(Starts, StartMode, ::testing::ValuesIn(kStartCases),
                         [](const ::testing::TestParamInfo<StartCase>& info) { return std::string(info.param.name); });

TEST_F(SimSignals, BlocksHoldTemperaturesAroundTheDetectorCountsOfTheSignal) {
    ASSERT_EQ(qvsim_set_temperature(id_, qvsim_get_temperature(id_) + 40), QVSIM_OK);
    ChangeSignal([](qvsim_signal& s) { s.freq_hz = 3.5e9; });
    ASSERT_EQ(qvsim_set_cw_power(id_, -37.5), QVSIM_OK);

    ASSERT_EQ(Start(2), 1);
    ASSERT_EQ(Rearm(), 2);
    const Bytes bytes = Read(2 * 512 + 100);  // asks more than the run holds
    ASSERT_EQ(bytes.size(), 1024u);
    for (size_t at : {size_t{0}, size_t{512}}) {
        const Block block = Split(bytes, at);
        const int temperature = qvsim_get_temperature(id_);
        EXPECT_EQ(block.lsTemperature[0], temperature);
        EXPECT_EQ(block.hsTemperature[1], temperature);
        for (size_t k = 0; k < 126; ++k) {
            ASSERT_EQ(block.hs[k], ExpectedCount(QVSIM_PATH_HS, -37.5)) << k;
            ASSERT_EQ(block.ls[k], ExpectedCount(QVSIM_PATH_LS, -37.5)) << k;
        }
    }
}

TEST_F(SimSignals, ReadsNeedNotFollowBlockBoundaries) {
    ASSERT_EQ(Start(3), 1);
    const Bytes whole = Read(3 * 512);
    ASSERT_EQ(qvsim_sensor_unplug(id_), QVSIM_OK);  // power-up restarts the sensor's clock
    ASSERT_EQ(qvsim_sensor_replug(id_), QVSIM_OK);
    Reopen();
    ASSERT_EQ(Start(3), 1);
    Bytes pieces;
    for (uint32_t piece : {100u, 700u, 300u, 436u}) {
        const Bytes part = Read(piece);
        pieces.insert(pieces.end(), part.begin(), part.end());
    }
    EXPECT_EQ(pieces, whole);
}

TEST_F(SimSignals, RearmRestartsAndTheStopSequenceEnds) {
    ASSERT_EQ(Start(4), 1);
    ASSERT_EQ(Read(512).size(), 512u);
    ASSERT_EQ(Rearm(), 2);
    EXPECT_EQ(BlocksAvailable(12), 4);  // all four again
    ASSERT_EQ(Start(0), 1);
    EXPECT_EQ(BlocksAvailable(3), 3);
    for (int request : {179, 195, 187}) Command(request);
    EXPECT_EQ(Read(512).size(), 0u);
    EXPECT_EQ(State().measuring, 0);
}

TEST_F(SimSignals, SignalIsValidatedAndKeptWhole) {
    qvsim_signal good{};
    ASSERT_EQ(qvsim_signal_get(id_, &good), QVSIM_OK);
    using Spoil = void (*)(qvsim_signal&);
    for (Spoil spoil : {Spoil([](qvsim_signal& s) { s.kind = 3; }), Spoil([](qvsim_signal& s) { s.cw_dbm = 50.5; }),
                        Spoil([](qvsim_signal& s) { s.cw_dbm = NAN; }), Spoil([](qvsim_signal& s) { s.period_us = 0; }),
                        Spoil([](qvsim_signal& s) { s.width_us = s.period_us + 1; }),
                        Spoil([](qvsim_signal& s) { s.noise_db = -0.1; }), Spoil([](qvsim_signal& s) { s.freq_hz = 0.5; })}) {
        qvsim_signal bad = good;
        spoil(bad);
        EXPECT_EQ(qvsim_signal_set(id_, &bad), QVSIM_E_ARG);
    }
    EXPECT_EQ(qvsim_signal_set(id_, nullptr), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_set_cw_power(id_, -150.5), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_set_cw_power(31, 0.0), QVSIM_E_NO_SENSOR);
    qvsim_signal after{};
    ASSERT_EQ(qvsim_signal_get(id_, &after), QVSIM_OK);
    EXPECT_EQ(Fields(after), Fields(good));
}

// ---------------------------------------------------------------- pulse, noise, temperature

TEST_F(SimSignals, PulseTrainFollowsTheSampleClockAcrossBlocks) {
    ChangeSignal([](qvsim_signal& s) { s = qvsim_signal{QVSIM_SIGNAL_PULSE, 0.0, 100.0, 30.0, 0.0, -30.0, 0.0, 0, 1e9, 0, 0, 0, 0, 0}; });
    ASSERT_EQ(Start(40), 1);
    const int on = ExpectedCount(QVSIM_PATH_LS, 0.0), off = ExpectedCount(QVSIM_PATH_LS, -30.0);
    // Samples every 2 us from the sensor's time 0: on while (2k mod 100) < 30.
    const Block first = Split(Read(512));
    for (int k = 0; k < 126; ++k) ASSERT_EQ(first.ls[k], (2 * k) % 100 < 30 ? on : off) << k;
    // The next block starts 252 us later, in the middle of a period.
    const Block second = Split(Read(512));
    for (int k = 0; k < 126; ++k) ASSERT_EQ(second.ls[k], (252 + 2 * k) % 100 < 30 ? on : off) << k;
    int onSamples = 0;
    for (int b = 2; b < 40; ++b)
        for (int count : Split(Read(512)).ls) onSamples += count == on;
    EXPECT_NEAR(onSamples / (38.0 * 126.0), 0.3, 0.01);
}

TEST_F(SimSignals, NoiseIsGaussianInDbAndFixedByItsSeed) {
    ChangeSignal([](qvsim_signal& s) { s.cw_dbm = -10.0, s.noise_db = 0.5, s.seed = 42; });
    const auto take = [this](int blocks) {
        // Power-up restarts the sensor's clock, so the same samples come again.
        EXPECT_EQ(qvsim_sensor_unplug(id_), QVSIM_OK);
        EXPECT_EQ(qvsim_sensor_replug(id_), QVSIM_OK);
        Reopen();
        EXPECT_EQ(Start(blocks), 1);
        return Read(blocks * 512);
    };
    const Bytes first = take(20);
    EXPECT_EQ(take(20), first);
    ChangeSignal([](qvsim_signal& s) { s.seed = 43; });
    EXPECT_NE(take(20), first);

    double sum = 0.0, squares = 0.0;
    const int n = 20 * 126;
    for (int b = 0; b < 20; ++b) {
        for (int count : Split(first, 512 * b).ls) {
            double dbm = 0.0;
            ASSERT_EQ(qvsim_detector_power(id_, QVSIM_PATH_LS, count, 1e9, qvsim_get_temperature(id_), &dbm), QVSIM_OK);
            sum += dbm;
            squares += dbm * dbm;
        }
    }
    EXPECT_NEAR(sum / n, -10.0, 0.05);
    EXPECT_NEAR(std::sqrt(squares / n - (sum / n) * (sum / n)), 0.5, 0.05);
}

// ---------------------------------------------------------------- trigger input and output

TEST_F(SimSignals, WithTheTriggerInputOnARunWaitsForAnEdge) {
    Command(191);
    ASSERT_EQ(Start(2), 1);
    ASSERT_EQ(Rearm(), 2);
    EXPECT_EQ(Read(1024).size(), 0u);  // no edge: the read times out
    ASSERT_EQ(qvsim_trigger_fire(id_), QVSIM_OK);
    EXPECT_EQ(Read(1024).size(), 1024u);  // one edge releases the whole run
    EXPECT_EQ(Read(512).size(), 0u);

    ASSERT_EQ(Start(0), 1);  // a stream takes an edge per block
    for (int i = 0; i < 2; ++i) ASSERT_EQ(qvsim_trigger_fire(id_), QVSIM_OK);
    EXPECT_EQ(BlocksAvailable(5), 2);
    EXPECT_EQ(State().pending_triggers, 0u);
    Command(190);
    EXPECT_EQ(BlocksAvailable(5), 5);
}

TEST_F(SimSignals, PeriodicTriggerMustFallWithinTheTimeOut) {
    ASSERT_EQ(qvsim_trigger_periodic(id_, 10000.0), QVSIM_OK);  // every 10 ms
    Command(191);
    ASSERT_EQ(Start(0), 1);
    // Each block waits for the next edge; a 6-ms time-out catches every other one.
    std::string arrivals;
    for (int i = 0; i < 6; ++i) arrivals += Read(512, 6).empty() ? '-' : 'B';
    EXPECT_EQ(arrivals, "B-B-B-");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Read(512, 11).size(), 512u);
    EXPECT_EQ(qvsim_trigger_periodic(id_, -1.0), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_sensor_unplug(id_), QVSIM_OK);
    EXPECT_EQ(qvsim_trigger_fire(id_), QVSIM_E_STATE);
    double period = 0.0;
    ASSERT_EQ(qvsim_trigger_period_get(id_, &period), QVSIM_OK);
    EXPECT_EQ(period, 10000.0);  // the line outside the sensor stays
}

TEST_F(SimSignals, TriggerOutputLevelShowsTheLibrarysPulse) {
    std::string levels;
    for (int request : {201, 205, 204, 192}) {  // on, the pulse (inverted, back), off
        Command(request);
        levels += std::to_string(State().trigger_out_level);
    }
    EXPECT_EQ(levels, "1010");
    EXPECT_EQ(State().trigger_out_edges, 4u);
}

// ---------------------------------------------------------------- timing model

TEST_F(SimSignals, SampledBlocksTakeTheirTimeAndAStreamHoldsAFew) {
    qvsim_timing timing{};
    ASSERT_EQ(qvsim_get_timing(&timing), QVSIM_OK);
    timing.sampled_blocks = 1;
    ASSERT_EQ(qvsim_set_timing(&timing), QVSIM_OK);
    using Clock = std::chrono::steady_clock;

    ASSERT_EQ(Start(20), 1);
    const Clock::time_point begun = Clock::now();
    EXPECT_EQ(Read(20 * 512, 1000).size(), 20u * 512u);
    EXPECT_GE(Clock::now() - begun, std::chrono::microseconds(20 * 252));  // 126 samples of 2 us each

    ASSERT_EQ(Start(255), 1);  // 64 ms of sampling
    const size_t part = Read(255 * 512, 2).size();  // the time-out cuts the read short
    EXPECT_GT(part, 0u);
    EXPECT_LT(part, 255u * 512u);

    ASSERT_EQ(Start(0), 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));  // a busy host: 40 blocks
    EXPECT_EQ(Read(512).size(), 512u);
    EXPECT_GT(State().overruns, 0u);  // the stream went on and kept only the newest blocks
}

// ---------------------------------------------------------------- beyond the calibration

// Above its top level (hs -20, ls +20 dBm) each path goes on along the line the host
// extrapolates with: the last two segments' ratio of counts per dB, once more.
TEST_F(SimSignals, DetectorGoesOnStraightAboveItsTopLevel) {
    const double temperature = qvsim_get_temperature(id_);
    for (int path : {QVSIM_PATH_HS, QVSIM_PATH_LS}) {
        const double top = path == QVSIM_PATH_HS ? -20.0 : 20.0;
        for (double hz : {5e7, 1e9, 9.5e9}) {
            double c[3];
            for (int i = 0; i < 3; ++i)
                ASSERT_EQ(qvsim_detector_count(id_, path, top - 4.0 + 2.0 * i, hz, temperature, &c[i]), QVSIM_OK);
            const double perDb = ((c[2] - c[1]) / 2.0) * ((c[2] - c[1]) / 2.0) / ((c[1] - c[0]) / 2.0);
            for (double above : {1e-9, 1.0, 6.0}) {
                double count = 0.0, back = 0.0;
                ASSERT_EQ(qvsim_detector_count(id_, path, top + above, hz, temperature, &count), QVSIM_OK);
                EXPECT_NEAR(count, c[2] + above * perDb, 1e-6) << path << " " << hz << " " << above;
                ASSERT_EQ(qvsim_detector_power(id_, path, count, hz, temperature, &back), QVSIM_OK);
                EXPECT_NEAR(back, top + above, 1e-9);
            }
        }
    }
    // The ADC holds what goes below 0.
    ASSERT_EQ(qvsim_set_cw_power(id_, QVSIM_SIGNAL_MAX_DBM), QVSIM_OK);
    ASSERT_EQ(Start(1), 1);
    EXPECT_EQ(Split(Read(512)).ls[0], 0);
}

// ---------------------------------------------------------------- capture and replay

TEST_F(SimSignals, CaptureThenReplayGivesTheSameBytes) {
    ChangeSignal([](qvsim_signal& s) { s.noise_db = 1.0, s.seed = 5; });
    const std::string file = directory_ + "/run.qvcap";
    ASSERT_EQ(qvsim_capture_start(id_, file.c_str()), QVSIM_OK);
    // A run read in uneven pieces, a read that times out, and a stream.
    const auto session = [this] {
        Bytes all;
        EXPECT_EQ(Start(3), 1);
        EXPECT_EQ(Rearm(), 2);
        for (uint32_t piece : {1000u, 536u, 512u}) {
            const Bytes part = Read(piece);
            all.insert(all.end(), part.begin(), part.end());
        }
        EXPECT_EQ(Start(0), 1);
        for (int i = 0; i < 4; ++i) {
            const Bytes part = Read(512);
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    };
    const Bytes captured = session();
    ASSERT_EQ(captured.size(), 7u * 512u);
    ASSERT_EQ(qvsim_capture_stop(id_), QVSIM_OK);
    EXPECT_EQ(State().capture_transfers, 7u);

    ASSERT_EQ(qvsim_set_cw_power(id_, -45.0), QVSIM_OK);  // the signal no longer matters
    ASSERT_EQ(qvsim_replay_start(id_, file.c_str()), QVSIM_OK);
    EXPECT_EQ(session(), captured);
    EXPECT_EQ(Read(512).size(), 0u);  // the capture has no more
    EXPECT_EQ(State().replaying, 0);
    ASSERT_EQ(qvsim_replay_stop(id_), QVSIM_OK);
    EXPECT_EQ(Read(512).size(), 512u);  // the signal model again

    // The file as docs/sim.md describes it: a 128-byte header naming the sensor, then
    // per transfer a 32-byte record header and the bytes.
    std::ifstream in(file, std::ios::binary);
    const Bytes raw((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_GE(raw.size(), 128u);
    EXPECT_EQ(std::string(raw.begin(), raw.begin() + 8), "QVSIMCAP");
    EXPECT_STREQ(reinterpret_cast<const char*>(raw.data() + 32), "123456");
    EXPECT_STREQ(reinterpret_cast<const char*>(raw.data() + 64), "QV332A");
    size_t at = 128;
    Bytes payload;
    std::vector<int> requests, counts, moved;
    while (at + 32 <= raw.size()) {
        requests.push_back(raw[at + 8]);
        counts.push_back(raw[at + 10]);
        const size_t n = Word(raw, at + 24) | Word(raw, at + 26) << 16;
        moved.push_back(static_cast<int>(n));
        payload.insert(payload.end(), raw.begin() + long(at + 32), raw.begin() + long(at + 32 + n));
        at += 32 + n;
    }
    EXPECT_EQ(at, raw.size());
    EXPECT_EQ(requests, (std::vector<int>{194, 194, 194, 193, 193, 193, 193}));
    EXPECT_EQ(counts, (std::vector<int>{3, 3, 3, 0, 0, 0, 0}));
    EXPECT_EQ(moved, (std::vector<int>{1000, 536, 0, 512, 512, 512, 512}));
    EXPECT_EQ(payload, captured);
}

TEST_F(SimSignals, CaptureAndReplayRefuseWhatTheyCannotUse) {
    const std::string file = directory_ + "/not-a-capture";
    std::ofstream(file) << "hello";
    EXPECT_EQ(qvsim_replay_start(id_, file.c_str()), QVSIM_E_BAD_FILE);
    EXPECT_EQ(qvsim_replay_start(id_, (directory_ + "/missing").c_str()), QVSIM_E_IO);
    EXPECT_EQ(qvsim_capture_start(id_, (directory_ + "/no/such/dir").c_str()), QVSIM_E_IO);
    EXPECT_EQ(qvsim_capture_start(id_, ""), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_capture_start(id_, std::string(300, 'x').c_str()), QVSIM_E_ARG);
    EXPECT_EQ(qvsim_capture_stop(id_), QVSIM_E_STATE);
    EXPECT_EQ(qvsim_replay_stop(id_), QVSIM_E_STATE);
    EXPECT_EQ(State().capturing, 0);
}

// ---------------------------------------------------------------- qvsim tool, another process

#ifdef QVSIM_TOOL_PATH
TEST_F(SimSignals, SignalSetByTheToolInAnotherProcessIsSampledHere) {
    const auto tool = [this](std::vector<std::string> args) {
        args.insert(args.begin(), {QVSIM_TOOL_PATH, "--bus", busPath_});
        qv::test::ChildOptions quiet;
        quiet.outputFile = directory_ + "/tool.out";
        return qv::test::RunProcess(args, quiet);
    };
    EXPECT_EQ(tool({"signal", "123456", "cw", "-20.5"}), 0);  // by serial number
    ASSERT_EQ(Start(1), 1);
    EXPECT_EQ(Split(Read(512)).ls[7], ExpectedCount(QVSIM_PATH_LS, -20.5));
    EXPECT_EQ(tool({"signal", "123456", "--noise", "0.2", "--seed", "9", "--freq", "2.5e9"}), 0);
    EXPECT_EQ(tool({"signal", "0", "pulse", "--period", "50", "--width", "5", "--on", "3", "--off", "-40"}), 0);
    qvsim_signal s{};
    ASSERT_EQ(qvsim_signal_get(id_, &s), QVSIM_OK);
    const qvsim_signal wanted{QVSIM_SIGNAL_PULSE, -20.5, 50.0, 5.0, 3.0, -40.0, 0.2, 9, 2.5e9, 0, 0, 0, 0, 0};
    EXPECT_EQ(Fields(s), Fields(wanted));
    EXPECT_EQ(tool({"signal", "123456", "pulse", "--width", "60"}), 2);  // wider than its period
    EXPECT_EQ(tool({"signal", "123456", "cw", "51"}), 2);
    EXPECT_EQ(tool({"signal", "654321", "cw", "0"}), 2);  // neither a serial nor an id
    EXPECT_EQ(tool({"temperature", "123456", "7400"}), 0);
    ASSERT_EQ(Start(1), 1);
    EXPECT_EQ(Split(Read(512)).hsTemperature[0], 7400);
}
#endif

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
