// What the library relies on when it measures: 193/194 start the simulated sensor,
// pipe 0x82 brings 512-byte blocks of the signal put on its input, through the
// detector its calibration describes.
#include <algorithm>
#include <initializer_list>

#include "sim/sim_sensor.h"

namespace {

using qv::test::Bytes;
using qv::test::Sample;
constexpr int kLs = QVSIM_PATH_LS, kHs = QVSIM_PATH_HS;

class SimSignals : public qv::test::SimSensor {
protected:
    SimSignals() : SimSensor("123456", "QV332A") {}

    int Start(int count) { return Out(193, {uint8_t(count)}); }
    int Rearm() { return int(In(194, 2).size()); }
    void Command(int request) { In(request, 1); }

    // Reads of these sizes, joined.
    Bytes ReadPieces(std::initializer_list<uint32_t> pieces) {
        Bytes all;
        for (uint32_t piece : pieces) {
            const Bytes part = Read(piece);
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }

    // Blocks that arrive one 512-byte read at a time, up to `most`.
    int BlocksAvailable(int most) {
        int blocks = 0;
        while (blocks < most && Read(512).size() == 512) ++blocks;
        return blocks;
    }
};

struct StartCase {
    const char* name;
    int count;   // 193's byte; -1: no 193
    int before;  // blocks read before a 194; -1: no 194
    int blocks;  // blocks that then arrive (of at most 12 asked)
};

class StartMode : public SimSignals, public ::testing::WithParamInterface<StartCase> {};

TEST_P(StartMode, DeliversItsBlocksThenNothing) {
    const StartCase& c = GetParam();
    if (c.count >= 0) {
        ASSERT_EQ(Start(c.count), 1);
    }
    if (c.before >= 0) {
        ASSERT_EQ(BlocksAvailable(c.before), c.before);
        ASSERT_EQ(Rearm(), 2);
    }
    EXPECT_EQ(BlocksAvailable(12), c.blocks);
    EXPECT_EQ(State().measuring, c.blocks < 12 ? 0 : 1);
    EXPECT_EQ(State().blocks_sent, static_cast<unsigned long long>(c.blocks + std::max(c.before, 0)));
}

constexpr StartCase kStartCases[] = {
    {"NothingBeforeAStart", -1, -1, 0},       {"CountedStartAlone", 3, -1, 3},
    {"CountedStartAndRearm", 5, 0, 5},        {"RearmRestartsTheRun", 4, 1, 4},
    {"RearmWithoutStartGivesOneBlock", -1, 0, 1}, {"StreamKeepsComing", 0, 0, 12},
    {"StreamWithoutRearm", 0, -1, 12},
};

INSTANTIATE_TEST_SUITE_P(Starts, StartMode, ::testing::ValuesIn(kStartCases),
                         [](const auto& info) { return std::string(info.param.name); });

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

// A read that moves less than it asks, a run read in uneven pieces, a read that times
// out, and a stream, captured and then replayed whatever the signal has become since.
TEST_F(SimSignals, CaptureThenReplayGivesTheSameBytes) {
    ChangeSignal([](qvsim_signal& s) { s.noise_db = 1.0, s.seed = 5; });
    const std::string file = directory_ + "/run.qvcap";
    ASSERT_EQ(qvsim_capture_start(id_, file.c_str()), QVSIM_OK);
    const auto session = [this] {
        EXPECT_EQ(Start(1), 1);
        Bytes all = Read(700);  // moves the one block there is
        EXPECT_EQ(Start(3), 1);
        EXPECT_EQ(Rearm(), 2);
        const Bytes run = ReadPieces({1000, 536, 512});
        EXPECT_EQ(Start(0), 1);
        const Bytes stream = ReadPieces({512, 512, 512, 512});
        all.insert(all.end(), run.begin(), run.end());
        all.insert(all.end(), stream.begin(), stream.end());
        return all;
    };
    const Bytes captured = session();
    ASSERT_EQ(captured.size(), 8u * 512u);
    ASSERT_EQ(qvsim_capture_stop(id_), QVSIM_OK);
    EXPECT_EQ(State().capture_transfers, 8u);

    ASSERT_EQ(qvsim_set_cw_power(id_, -45.0), QVSIM_OK);
    ASSERT_EQ(qvsim_replay_start(id_, file.c_str()), QVSIM_OK);
    EXPECT_EQ(session(), captured);
    EXPECT_EQ(Read(512).size(), 0u);  // the capture has no more
    EXPECT_EQ(State().replaying, 0);
    ASSERT_EQ(qvsim_replay_stop(id_), QVSIM_OK);
    EXPECT_EQ(Read(512).size(), 512u);  // the signal model again
}


}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
