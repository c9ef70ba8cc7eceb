// The sweep exchange: the table's derived columns, the sweep command, the
// packet reads as the sensor sees them, the split of interleaved packets, and
// the trigger preparation (internal-level thresholds, automatic level, sending).
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "profiling/profiling_fixture.h"
#include "profiling/sweep_protocol.h"
#include "profiling/trace_conversion.h"

using namespace qv;
using qv::test::HiCount;
using qv::test::kAddr;
using qv::test::kSlot;
using qv::test::kTemperature;
using qv::test::Packets;
using qv::test::ProfilingTest;
using qv::test::Record;
using qv::test::Trace;
using Strings = std::vector<std::string>;

namespace {

// ---------------------------------------------------------------- the table

struct RowColumns {
    int row, totalBytes, samplesPerPacket, cmd0, cmd1, cmd2, traceLength;
    double samplesPerUsec;
    long long spanPoints;  // record points spanning a user sweep (rows 0..15)
};

// Each kind of row: the shortest, the first with longer packets, a long one whose
// command value needs its high byte, the first and last acquisition rows.
const RowColumns kColumns[] = {
    {0, 49152, 126, 0, 0, 252, 480, 48, 480},          {5, 49152, 254, 0, 1, 252, 10000, 24, 12000},
    {12, 400384, 50046, 1, 134, 252, 10000, 1, 100001}, {13, 400384, 100094, 3, 13, 252, 10000, 0.5, 100001},
    {16, 245760, 638, 0, 4, 252, 10000, 48, 0},        {27, 4000768, 1000190, 30, 133, 252, 10000, 0.5, 0},
};

TEST(SweepConfigTable, DerivedColumnsOfEachKindOfRow) {
    for (const RowColumns& e : kColumns) {
        const SweepConfig& c = SweepConfigRow(e.row);
        EXPECT_EQ((std::vector<double> {double(c.totalBytes), double(c.samplesPerPacket), double(c.commandBytes[0]),
                                        double(c.commandBytes[1]), double(c.commandBytes[2]), double(c.traceLength),
                                        c.samplesPerUsec}),
                  (std::vector<double> {double(e.totalBytes), double(e.samplesPerPacket), double(e.cmd0), double(e.cmd1),
                                        double(e.cmd2), double(e.traceLength), e.samplesPerUsec}))
            << e.row;
        if (e.row < kUserSweepRows) {
            EXPECT_EQ(SweepSpanPoints(e.row), e.spanPoints) << e.row;
        }
    }
}

// ---------------------------------------------------------------- sweep command

TEST(SweepCommand, ModeByteFromSourceFormLevelAndEdge) {
    struct Case {
        int source, edge;
        double levelEff;
        SweepForm form;
        int mode;
    };
    const Case cases[] = {
        {2, 1, -50.0, SweepForm::kFreeRunning, 0x28}, {2, 0, 0.0, SweepForm::kTriggered, 0x28},
        {0, 0, -30.0, SweepForm::kTriggered, 0x2B},   {0, 0, -10.0, SweepForm::kTriggered, 0x29},
        {1, 1, -5.0, SweepForm::kTriggered, 0x2D},    {0, 0, -30.0, SweepForm::kFreeRunning, 0x6A},
        {0, 0, -25.0, SweepForm::kFreeRunning, 0x68}, {1, 0, -30.0, SweepForm::kFreeRunning, 0x6B},
        {1, 1, -20.0, SweepForm::kFreeRunning, 0x6D},
    };
    for (const Case& c : cases) {
        TraceSettings t {};
        t.trgSource = c.source;
        t.trgEdge = c.edge;
        t.trgLevelEff = c.levelEff;
        EXPECT_EQ(SweepModeByte(t, c.form), c.mode) << c.source << " " << c.levelEff;
    }
}

using Protocol = ProfilingTest;

TEST_F(Protocol, SweepCommandStopsSetsTheExternalSlopeAndSendsModeAndCommandValue) {
    Trace().trgSource = 2;
    Trace().trgEdge = 1;
    SendSweepCommand(Record().deviceHandle, Trace(), 11, SweepForm::kFreeRunning);
    Trace().trgSource = 1;
    SendSweepCommand(Record().deviceHandle, Trace(), 27, SweepForm::kTriggered);
    EXPECT_EQ(Transfers(true), (Strings {"IN 179", "IN 187", "IN 203", "OUT 177 40 0 195 252",
                                         "IN 179", "IN 187", "OUT 177 47 30 133 252"}));
}

// ---------------------------------------------------------------- packet reads

TEST_F(Protocol, PacketReadNumbersEachPacketAndMarksTheSweepOnTheTriggerOutput) {
    Trace().trgOut = 1;
    Queue(Packets(5, 48, [](int, int) { return std::pair {30000, 30000}; }));
    std::vector<std::uint8_t> raw(SweepConfigRow(5).totalBytes);
    EXPECT_EQ(PacketRead(kSlot, 5, raw.data()), 49152);
    const Strings t = Transfers(true);
    // 179, 187, the output flipped, then per packet: base, location, number, status, data.
    ASSERT_EQ(t.size(), 2u + 1u + 48u * 5u + 1u + 2u);
    EXPECT_EQ((Strings(t.begin(), t.begin() + 9)),
              (Strings {"IN 179", "IN 187", "IN 205", "IN 242", "OUT 216 17 0", "OUT 217 2",
                        "IN 178", "PIPE 1024", "IN 204"}));
    EXPECT_EQ(t[9 + 2], "OUT 217 4");  // packet p is numbered p x (96 / P) + 2
    EXPECT_EQ(t[t.size() - 2], "IN 179");
    EXPECT_EQ(t.back(), "IN 187");
}

TEST_F(Protocol, LargePacketsAreReadInPiecesAndAShortPieceEndsTheRead) {
    // Row 11: 100352-byte packets; only the first is there.
    Queue(Packets(11, 1, [](int, int) { return std::pair {1, 1}; }));
    Trace().autoTimeOutMode = 0;
    Trace().timeOutUsec = 10000;
    std::vector<std::uint8_t> raw(SweepConfigRow(11).totalBytes);
    EXPECT_EQ(PacketRead(kSlot, 11, raw.data()), 0);
    Strings pipes;
    for (const std::string& s : Transfers())
        if (s.rfind("PIPE", 0) == 0) pipes.push_back(s);
    EXPECT_EQ(pipes, (Strings {"PIPE 65536", "PIPE 34816", "PIPE 65536"}));
    const Strings t = Transfers();
    EXPECT_EQ((Strings(t.end() - 2, t.end())), (Strings {"IN 179", "IN 187"}));
}

// ---------------------------------------------------------------- split

TEST(Split, InterleavedPacketsBecomeOneRecordWithAveragedTemperatures) {
    const int row = 1;  // 96 packets of 126 samples
    std::vector<std::uint8_t> raw = Packets(row, 96, [](int p, int k) {
        return std::pair {(k * 96 + p) % 60000, 60000 - (k * 96 + p) % 60000};
    });
    // Temperatures 100 + p: the average 147.5 is cut to 147.
    for (int p = 0; p < 96; ++p) {
        raw[p * 512 + 2] = static_cast<std::uint8_t>(100 + p);
        raw[p * 512 + 3] = 0;
        raw[p * 512] = static_cast<std::uint8_t>(200 - p);
        raw[p * 512 + 1] = 0;
    }
    const long long points = 96 * 126;
    std::vector<double> hi(points + 5), lo(points + 5);
    const RecordTemperatures temps =
        SplitPackets(raw.data(), SweepConfigRow(row), 96, 3, points + 2, hi.data(), lo.data());
    EXPECT_EQ(temps.tmpHi, 147);
    EXPECT_EQ(temps.tmpLo, 152);
    for (long long i = 0; i < points - 3; ++i) {
        ASSERT_EQ(hi[i], (i + 3) % 60000) << i;
        ASSERT_EQ(lo[i], 60000 - (i + 3) % 60000) << i;
    }
    for (long long i = points - 3; i < points + 2; ++i) EXPECT_EQ(hi[i] + lo[i], 0.0) << i;
}

// ---------------------------------------------------------------- thresholds

TEST_F(Protocol, InternalLevelIsCorrectedClampedAndBecomesTheCountsAtThatLevel) {
    struct Case {
        double level, offset;
        int lastRow;
        double effective;
    };
    const Case cases[] = {{-65.0, 0, 140, -60.0}, {25.0, 0, 200, 20.0},
                          {-20.0, 5.0, 0, -25.0},  {-40.0, -3.0, 349, -37.0}};
    for (const Case& c : cases) {
        Trace().trgLevel = c.level;
        Trace().autoTrgLevelSet = 1;
        Trace().lastTmpRowHi = c.lastRow;
        Trace().lastTmpRowLo = c.lastRow;
        Record().current.OffsetEnabled = c.offset != 0.0;
        Record().current.Offset_DB = c.offset;
        InternalLevelThresholds(kSlot);
        EXPECT_EQ(Trace().trgLevelEff, c.effective);
        EXPECT_EQ(Trace().autoTrgLevelSet, 0);
        // Rows outside 1..348 are not trusted: the middle row 140 is used.
        const CalTempRow& row = Record().tempRows[c.lastRow >= 1 && c.lastRow <= 348 ? c.lastRow : 140];
        for (auto [count, entries, first] :
             {std::tuple {Trace().trgAdcHi, &row.hs, -70.0}, std::tuple {Trace().trgAdcLo, &row.ls, -30.0}}) {
            ASSERT_GE(count, 0);
            ASSERT_LE(count, 65535);
            int s = static_cast<int>((c.effective - first) / 2.0);
            s = s < 4 ? 4 : s > 25 ? 25 : s;
            const CalSegment& seg = (*entries)[s];
            const double exact = (c.effective - seg.intercept) / seg.slope;
            if (exact > 0.0 && exact < 65535.0) {
                EXPECT_NEAR(seg.slope * count + seg.intercept, c.effective, std::fabs(seg.slope));
            } else {
                EXPECT_EQ(count, exact <= 0.0 ? 0 : 65535);
            }
        }
    }
}

TEST_F(Protocol, ThresholdsAreSentLowThenHighClampedHighByteFirst) {
    Trace().trgAdcLo = 0x1234;
    Trace().trgAdcHi = 70000;
    SendThresholds(kSlot);
    Trace().trgAdcLo = -5;
    SendThresholds(kSlot);
    EXPECT_EQ(Transfers(true), (Strings {"OUT 212 3 18 52", "OUT 212 2 255 255", "OUT 212 3 0 0",
                                         "OUT 212 2 255 255"}));
}

TEST_F(Protocol, AutomaticLevelFromASearchPacket) {
    const int n = 1000;
    std::vector<double> hi(n), lo(n, 60000.0);
    const RecordTemperatures temps {kTemperature, kTemperature};
    // Flat: no level, nothing changes.
    std::vector<double> flat(n, HiCount(-40.0));
    Trace().trgAdcHi = 11;
    AutoLevel found = AutoLevelFromSamples(kSlot, flat.data(), lo.data(), n, temps);
    EXPECT_FALSE(found.found);
    EXPECT_EQ(found.level, -80.0);
    EXPECT_EQ(Trace().trgAdcHi, 11);
    // A pulse from -55 to -40 dBm on the high-sense path: 1 dB under its top.
    for (int i = 0; i < n; ++i) hi[i] = std::floor(HiCount(i % 100 < 30 ? -40.0 : -55.0));
    found = AutoLevelFromSamples(kSlot, hi.data(), lo.data(), n, temps);
    EXPECT_TRUE(found.found);
    EXPECT_NEAR(found.level, -41.0, 0.01);
    EXPECT_EQ(Trace().trgAdcHi, static_cast<int>(std::floor(HiCount(-40.0)) + 600));
    EXPECT_EQ(Trace().trgAdcLo, 32600);
}

}  // namespace
