// What the library relies on when it takes a trace: 177 sets a sweep up, each packet
// is read after 242 / 216 / 217 / 178 the way the library reads it, and pipe 0x82
// brings it once the chosen level or the TTL line starts the sweep. The traces
// themselves are held against the input end to end (test_trace_end_to_end).
#include <chrono>

#include "sim/sim_sensor.h"

namespace {

using qv::test::Bytes;
using qv::test::Sample;
constexpr int kLevel = 0x29, kHighSense = 0x02, kFalling = 0x04;
constexpr int kLs = QVSIM_PATH_LS, kHs = QVSIM_PATH_HS;

class SimSweeps : public qv::test::SimSensor {
protected:
    SimSweeps() : SimSensor("654321", "QV442A") {}

    // 177 for packets of `bytes` bytes: mode and the command value (B - 8) / 2, high first.
    int Command(int mode, uint32_t bytes) {
        const uint32_t value = (bytes - 8) / 2;
        return Out(177, {uint8_t(mode), uint8_t(value >> 16), uint8_t(value >> 8), uint8_t(value)});
    }

    // A packet as the library reads it: numbered at the working buffer + 256, 178, then its bytes.
    Bytes ReadPacket(uint32_t bytes) {
        const Bytes base = In(242, 3);
        const int location = (base[1] << 8 | base[2]) + 256;
        Out(216, {uint8_t(location >> 8), uint8_t(location)});
        Out(217, {2});
        In(178, 5);
        return Read(bytes, 120);
    }
};

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
    const Bytes packet = ReadPacket(1024);
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

// The TTL line shows at 0xF400 through 218, which PP_CheckTrigger polls for 20 ms.
TEST_F(SimSweeps, ExternalLineShows) {
    // Changes of the line seen within `within`, as PP_CheckTrigger counts them; two are enough.
    const auto changes = [this](std::chrono::milliseconds within) {
        int seen = 0, last = -1;
        const auto end = std::chrono::steady_clock::now() + within;
        while (seen < 2 && std::chrono::steady_clock::now() < end && Out(216, {0xF4, 0x00}) == 2)
            if (const int line = In(218, 2)[1] & 1; line != last) seen += last >= 0, last = line;
        return seen;
    };
    ASSERT_EQ(qvsim_trigger_periodic(id_, 2000.0), QVSIM_OK);
    EXPECT_EQ(changes(std::chrono::seconds(10)), 2);  // a busy host may keep us from polling for a while
    ASSERT_EQ(qvsim_trigger_periodic(id_, 0.0), QVSIM_OK);
    EXPECT_EQ(changes(std::chrono::milliseconds(20)), 0);
}

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
