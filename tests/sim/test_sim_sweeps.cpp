// What the library relies on when it takes a trace: 177 sets a sweep up, each packet
// is read after 242 / 216 / 217 / 178 the way the library reads it, and pipe 0x82
// brings P packets of B bytes whose samples interleave into the input waveform.
#include <algorithm>
#include <chrono>

#include "sim/sim_sensor.h"

namespace {

using qv::test::Bytes;
using qv::test::Sample;
using qv::test::Word;
constexpr int kFree = 0x68, kLevel = 0x29, kLine = 0x28, kHighSense = 0x02, kFalling = 0x04;
constexpr int kLs = QVSIM_PATH_LS, kHs = QVSIM_PATH_HS;

class SimSweeps : public qv::test::SimSensor {
protected:
    SimSweeps() : SimSensor("654321", "QV442A") {}

    // 177 for packets of `bytes` bytes: mode and the command value (B - 8) / 2, high first.
    int Command(int mode, uint32_t bytes) {
        const uint32_t value = (bytes - 8) / 2;
        return Out(177, {uint8_t(mode), uint8_t(value >> 16), uint8_t(value >> 8), uint8_t(value)});
    }

    // The packets as the library reads them: number each at the working buffer + 256,
    // 178, then B bytes in pieces of at most 64 KiB; stops at the first short piece.
    Bytes ReadPackets(int packets, uint32_t bytes, uint32_t timeoutMs = 120) {
        Bytes all;
        for (int p = 0; p < packets; ++p) {
            const Bytes base = In(242, 3);
            const int location = (base[1] << 8 | base[2]) + 256;
            Out(216, {uint8_t(location >> 8), uint8_t(location)});
            Out(217, {uint8_t(p * (96 / packets) + 2)});
            In(178, 5);
            for (uint32_t done = 0; done < bytes;) {
                const Bytes part = Read(std::min<uint32_t>(bytes - done, 65536), timeoutMs);
                all.insert(all.end(), part.begin(), part.end());
                if (part.size() != std::min<uint32_t>(bytes - done, 65536)) return all;
                done += uint32_t(part.size());
            }
        }
        return all;
    }

    // A pulse train with square edges that never fall on a sample: on for 10.01 of every 100 us.
    void SquarePulses(double onDbm, double offDbm) {
        ChangeSignal([&](qvsim_signal& s) {
            s.kind = QVSIM_SIGNAL_PULSE, s.period_us = 100.0, s.width_us = 10.01, s.on_dbm = onDbm, s.off_dbm = offDbm;
        });
    }
};

struct Row { int packets; uint32_t bytes; };
class SweepRow : public SimSweeps, public ::testing::WithParamInterface<Row> {};

// Triggered by the TTL line at every start of the pulse period, packet p starts p / P
// of 2 us after it, so point k x P + p of the record lies (k x P + p) x 2 / P us in.
TEST_P(SweepRow, PacketsInterleaveIntoTheWaveform) {
    const auto [packets, bytes] = GetParam();
    SquarePulses(0.0, -20.0);
    ASSERT_EQ(qvsim_trigger_periodic(id_, 100.0), QVSIM_OK);
    ASSERT_EQ(Command(kLine, bytes), 4);
    const Bytes all = ReadPackets(packets, bytes);
    ASSERT_EQ(all.size(), size_t(packets) * bytes);
    const int temperature = qvsim_get_temperature(id_);
    const int on[2] = {Count(0, 0.0), Count(1, 0.0)}, off[2] = {Count(0, -20.0), Count(1, -20.0)};  // by path
    int wrong = 0;
    for (int p = 0; p < packets; ++p) {
        const size_t at = size_t(p) * bytes;
        wrong += Word(all, at) != temperature || Word(all, at + 2) != temperature;
        wrong += Word(all, at + bytes - 4) != 0 || Word(all, at + bytes - 2) != 0;
        for (size_t k = 0; k < (bytes - 8) / 4; ++k) {
            const double us = double(k * packets + p) * 2.0 / packets;
            const bool high = std::fmod(us, 100.0) < 10.01;
            for (int path : {0, 1}) wrong += Sample(all, at, k, path) != (high ? on[path] : off[path]);
        }
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(State().sweep_packets_sent, unsigned(packets));
}

// Rows 0, 5, 7, 10, 13 and the 2 s span of the table the library sweeps with.
INSTANTIATE_TEST_SUITE_P(Rows, SweepRow,
                         ::testing::Values(Row{96, 512}, Row{48, 1024}, Row{24, 4096}, Row{12, 40448},
                                           Row{1, 400384}, Row{1, 4000768}));

// A burst read back through the finest interleave (96 packets, 1/48 us): its edge
// times against the on power, its overshoot and its droop are those it was given.
TEST_F(SimSweeps, BurstShapeComesThroughTheInterleave) {
    ChangeSignal([](qvsim_signal& s) {
        s.kind = QVSIM_SIGNAL_BURST, s.period_us = 200.0, s.start_us = 20.0, s.width_us = 50.0;
        s.on_dbm = 0.0, s.off_dbm = -20.0, s.rise_us = 2.0, s.fall_us = 4.0, s.overshoot_db = 1.0, s.droop_db = 0.5;
    });
    ASSERT_EQ(qvsim_trigger_periodic(id_, 200.0), QVSIM_OK);
    ASSERT_EQ(Command(kLine, 512), 4);
    const Bytes all = ReadPackets(96, 512);
    ASSERT_EQ(all.size(), 96u * 512u);
    std::vector<double> watts(96 * 126);  // the record, point j at j / 48 us
    for (size_t j = 0; j < watts.size(); ++j)
        watts[j] = std::pow(10.0, Power(kLs, Sample(all, j % 96 * 512, long(j / 96), kLs)) / 10.0);
    const auto crossing = [&](double from, double level, bool up) {
        for (size_t j = size_t(from * 48); j + 1 < watts.size(); ++j)
            if ((watts[j + 1] >= level) == up && (watts[j] >= level) != up) return double(j + 1) / 48.0;
        return -1.0;
    };
    const double off = 0.01, on = 1.0, end = std::pow(10.0, -0.05);  // end of the top: 0.5 dB droop
    EXPECT_NEAR(crossing(0, off + 0.9 * (on - off), true) - crossing(0, off + 0.1 * (on - off), true), 2.0, 0.05);
    EXPECT_NEAR(crossing(40, off + 0.1 * (end - off), false) - crossing(40, off + 0.9 * (end - off), false), 4.0,
                0.05);
    EXPECT_NEAR(crossing(0, (on + off) / 2, true), 20.0, 0.03);
    EXPECT_NEAR(crossing(40, (end + off) / 2, false), 70.0, 0.03);
    // The overshoot peaks 1 us after the rise (ending 1.25 us after the 50 % point), drooped by then.
    EXPECT_NEAR(10.0 * std::log10(*std::max_element(watts.begin(), watts.end())), 1.0 - 0.5 * 2.25 / 50.0, 0.01);
    EXPECT_NEAR(10.0 * std::log10(watts[size_t(67.0 * 48)]), -0.5 * 47.0 / 50.0, 0.02);
}

TEST_F(SimSweeps, CommandAndStatus) {
    EXPECT_EQ(Out(177, {0x68, 0, 0, 0}), -1);          // no samples
    ASSERT_EQ(Command(kLevel, 1024), 4);
    EXPECT_EQ(Out(216, {0x11, 0x00}) + Out(217, {50}), 3);
    EXPECT_EQ(In(178, 5), (Bytes{178, 1, 50, 1, 0}));
    // The library's 179 187 around the packets keep the sweep; a measurement start ends it.
    In(179, 1), In(187, 1);
    EXPECT_EQ(State().sweep_armed, 1);
    EXPECT_EQ(Out(193, {1}), 1);
    EXPECT_EQ(State().sweep_configured, 0);
}

struct LevelCase { const char* name; int mode, path; double on, off, level; bool fires; };
class LevelTrigger : public SimSweeps, public ::testing::WithParamInterface<LevelCase> {};

// The sweep starts where the ramp crosses the threshold's power on the chosen edge:
// its first sample is at the level, the next one past it in the edge's direction.
TEST_P(LevelTrigger, FiresWhereTheWaveformCrossesOnItsEdge) {
    const LevelCase c = GetParam();
    ChangeSignal([&](qvsim_signal& s) {
        s.kind = QVSIM_SIGNAL_PULSE, s.period_us = 100.0, s.width_us = 40.0, s.rise_us = 8.0, s.fall_us = 8.0;
        s.on_dbm = c.on, s.off_dbm = c.off;
    });
    const int threshold = Count(c.path, c.level);
    // Both thresholds set, the other far off, so only the selected one can fire.
    ASSERT_EQ(Out(212, {uint8_t(c.path == kHs ? 2 : 3), uint8_t(threshold >> 8), uint8_t(threshold)}), 3);
    ASSERT_EQ(Out(212, {uint8_t(c.path == kHs ? 3 : 2), 0, 0}), 3);
    ASSERT_EQ(Command(c.mode, 1024), 4);
    const Bytes packet = ReadPackets(1, 1024);
    if (!c.fires) {
        EXPECT_EQ(packet.size(), 0u);
        EXPECT_EQ(State().sweep_trigger_timeouts, 1u);
        return;
    }
    ASSERT_EQ(packet.size(), 1024u);
    EXPECT_NEAR(Power(c.path, Sample(packet, 0, 0, c.path)), c.level, 0.05);
    const double next = Power(c.path, Sample(packet, 0, 1, c.path));
    EXPECT_GT((c.mode & kFalling) == 0 ? next - c.level : c.level - next, 0.5);
}

const LevelCase kLevelCases[] = {
    {"LowSenseRising", kLevel, kLs, 5.0, -25.0, -10.0, true},
    {"LowSenseFalling", kLevel | kFalling, kLs, 5.0, -25.0, -10.0, true},
    {"HighSenseRising", kLevel | kHighSense, kHs, -25.0, -65.0, -40.0, true},
    {"HighSenseFalling", kLevel | kHighSense | kFalling, kHs, -25.0, -65.0, -40.0, true},
    {"LevelAboveThePulses", kLevel, kLs, 5.0, -25.0, 10.0, false},
    {"LevelBelowTheGaps", kLevel | kFalling, kLs, 5.0, -25.0, -28.0, false},
};
INSTANTIATE_TEST_SUITE_P(Levels, LevelTrigger, ::testing::ValuesIn(kLevelCases),
                         [](const auto& info) { return std::string(info.param.name); });

// The TTL line: a packet waits for an edge (fired, or periodic; the inverted input
// takes the periodic line's falling edges half a period later); 218 at 0xF400 shows
// the line, which PP_CheckTrigger polls for 20 ms.
TEST_F(SimSweeps, ExternalLineTriggersAndShows) {
    SquarePulses(0.0, -20.0);
    ASSERT_EQ(Command(kLine, 512), 4);
    EXPECT_EQ(ReadPackets(1, 512).size(), 0u);  // no edge
    ASSERT_EQ(qvsim_trigger_fire(id_), QVSIM_OK);
    EXPECT_EQ(ReadPackets(1, 512).size(), 512u);

    ASSERT_EQ(qvsim_trigger_periodic(id_, 100.0), QVSIM_OK);
    for (int request : {202, 203}) {
        In(request, 1);
        const Bytes packet = ReadPackets(1, 512);
        ASSERT_EQ(packet.size(), 512u);
        EXPECT_EQ(Sample(packet, 0, 0, kLs), Count(kLs, request == 202 ? 0.0 : -20.0)) << request;
    }

    const auto changes = [this] {  // as PP_CheckTrigger counts them
        int seen = 0, last = -1;
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
        while (std::chrono::steady_clock::now() < end && Out(216, {0xF4, 0x00}) == 2)
            if (const int line = In(218, 2)[1] & 1; line != last) seen += last >= 0, last = line;
        return seen;
    };
    ASSERT_EQ(qvsim_trigger_periodic(id_, 2000.0), QVSIM_OK);
    EXPECT_GE(changes(), 2);
    ASSERT_EQ(qvsim_trigger_periodic(id_, 0.0), QVSIM_OK);
    EXPECT_EQ(changes(), 0);
}

// Under the timing model a free-running packet is ready after its sweep: a time-out
// shorter than that gives a short read, and the packet stays for a read that waits.
TEST_F(SimSweeps, TimedSweepTakesItsSweepTime) {
    qvsim_timing timing{};
    timing.sampled_blocks = 1;
    ASSERT_EQ(qvsim_set_timing(&timing), QVSIM_OK);
    ASSERT_EQ(Command(kFree, 20480), 4);  // 5118 samples: 10.2 ms
    EXPECT_EQ(ReadPackets(1, 20480, 2).size(), 0u);
    EXPECT_EQ(Read(20480).size(), 20480u);
}

TEST_F(SimSweeps, CaptureThenReplayGivesTheSameBytes) {
    SquarePulses(-5.0, -30.0);
    ChangeSignal([](qvsim_signal& s) { s.noise_db = 0.5, s.seed = 11; });
    ASSERT_EQ(qvsim_trigger_periodic(id_, 100.0), QVSIM_OK);
    const std::string file = directory_ + "/sweep.qvcap";
    ASSERT_EQ(qvsim_capture_start(id_, file.c_str()), QVSIM_OK);
    const auto session = [this] { return Command(kLine, 4096) == 4 ? ReadPackets(24, 4096) : Bytes{}; };
    const Bytes captured = session();
    ASSERT_EQ(captured.size(), 24u * 4096u);
    ASSERT_EQ(qvsim_capture_stop(id_), QVSIM_OK);

    ASSERT_EQ(qvsim_set_cw_power(id_, -45.0), QVSIM_OK);  // the signal no longer matters
    ASSERT_EQ(qvsim_replay_start(id_, file.c_str()), QVSIM_OK);
    EXPECT_EQ(session(), captured);
    EXPECT_EQ(session().size(), 0u);  // the capture has no more
}

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
