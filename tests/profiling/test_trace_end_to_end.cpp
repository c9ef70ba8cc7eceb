// Traces of simulated sweeps, end to end: the sensor samples a pulse train on
// its input through its detector, the library reads the packets, merges the
// interleave and converts them. Every sweep time with every trigger source on
// the direct path, and the delayed path with a delay and with undersampling;
// the trace must follow the waveform on the input (on and off power, where
// the pulses start and end). Also a trace taken while another real process
// measures CW on its own sensor.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "profiling/profiling_fixture.h"
#include "profiling/sweep_config.h"
#include "support/peer_process.h"

using namespace qv;
using qv::test::kAddr;

namespace {

constexpr double kOnDbm = -5.0, kOffDbm = -40.0;
constexpr int kAutomatic = 0, kInternal = 1, kExternal = 2;

struct Case {
    int row;             // user sweep row 0..15
    int source;          // trigger source
    int delayUsec;       // -1: no delay mode
    int undersampling;
    int edge = 0;        // 1: the falling edge (of the pulse, or of the TTL line)
};

std::string Name(const ::testing::TestParamInfo<Case>& info) {
    const Case& c = info.param;
    static const char* sources[] = {"Auto", "Level", "Ttl"};
    std::string name = std::to_string(SweepConfigRow(c.row).sweepTimeUsec) + "us" + sources[c.source];
    if (c.delayUsec >= 0) name += "Delay" + std::to_string(c.delayUsec);
    if (c.undersampling) name += "Under";
    if (c.edge) name += "Falling";
    return name;
}

std::vector<Case> Cases() {
    std::vector<Case> cases;
    for (int row = 0; row < kUserSweepRows; ++row)
        for (int source : {kAutomatic, kInternal, kExternal}) cases.push_back({row, source, -1, 0});
    // The delayed path: a quarter of the sweep (at most what the row allows) after
    // the trigger, on either edge, and the undersampled 20, 50 and 100 ms sweeps.
    for (int row = 0; row < kUserSweepRows; ++row) {
        const int t = SweepConfigRow(row).sweepTimeUsec;
        cases.push_back({row, row % 3, row <= 9 ? std::min(t / 4, 10000) : t / 4, 0, row / 3 % 2});
    }
    for (int row : {10, 11, 12})
        for (int source : {kAutomatic, kInternal, kExternal}) cases.push_back({row, source, -1, 1});
    return cases;
}

class EndToEnd : public qv::test::ProfilingTest, public ::testing::WithParamInterface<Case> {
protected:
    // A square pulse train: two periods per sweep, on for 40 % of each, its
    // rising edges at multiples of the period (where the TTL line's rising
    // edges also come).
    void PulseTrain(double periodUs) {
        SetSignal(id_, [&](qvsim_signal& s) {
            s.kind = QVSIM_SIGNAL_PULSE, s.period_us = periodUs, s.width_us = 0.4 * periodUs;
            s.on_dbm = kOnDbm, s.off_dbm = kOffDbm;
        });
        ASSERT_EQ(qvsim_trigger_periodic(id_, periodUs), QVSIM_OK);
    }
};

// Every point of the trace away from the pulse edges agrees with the input.
TEST_P(EndToEnd, TraceFollowsThePulseTrainOnTheInput) {
    const Case c = GetParam();
    const SweepConfig& user = SweepConfigRow(c.row);
    const double sweep = user.sweepTimeUsec, period = sweep / 2.0;
    PulseTrain(period);
    ASSERT_EQ(PP_SetSweepTime(kAddr, user.sweepTimeUsec), 1);
    ASSERT_EQ(PP_SetTriggerSoure(kAddr, c.source), 1);
    ASSERT_EQ(PP_SetTriggerLevel(kAddr, -20.0), 1);
    ASSERT_EQ(PP_SetTriggerEdge(kAddr, c.edge), 1);
    ASSERT_EQ(PP_SetSweepDelayMode(kAddr, c.delayUsec >= 0 ? 1 : 0), 1);
    ASSERT_EQ(PP_SetSweepDelay(kAddr, c.delayUsec >= 0 ? c.delayUsec : 0), 1);
    ASSERT_EQ(PP_SetUndersampling20ms_50ms_100ms(kAddr, c.undersampling), 1);

    const int length = PP_GetTraceLength(kAddr);
    std::vector<double> trace(static_cast<std::size_t>(length));
    std::int32_t count = 0;
    ASSERT_EQ(PP_GetTrace(kAddr, trace.data(), length, &count), 1);
    ASSERT_EQ(count, length);
    if (c.source == kAutomatic) {
        EXPECT_EQ(qv::test::Trace().autoTrgLevelSet, 1);
    }

    // A trigger fires on a rising edge of the pulse train, or on its falling
    // edge (the TTL line's falls half a period later): point i lies
    // delay + i x sweep / length after it. Points within a few samples of an
    // edge are left out: the record's own resolution (2 us when undersampled),
    // the trace's point spacing and the edge correction of the shortest sweeps.
    const bool undersampled = c.undersampling == 1 || (c.delayUsec > 10000 && c.row >= 10) ||
                              (c.delayUsec >= 0 && c.row >= 12);
    const double recordStep = undersampled ? 2.0 : 1.0 / user.samplesPerUsec;
    const double margin = 4.0 * std::max(recordStep, sweep / length);
    const double width = 0.4 * period;
    const double trigger = c.edge == 0 ? 0.0 : c.source == kExternal ? period / 2 : width;
    const double delay = trigger + (c.delayUsec > 0 ? c.delayUsec : 0.0);
    int checked = 0, wrong = 0, on = 0;
    double onSum = 0.0, offSum = 0.0;
    for (int i = 0; i < length; ++i) {
        const double phase = std::fmod(delay + i * sweep / length, period);
        if (std::min({phase, std::abs(phase - width), period - phase}) < margin) continue;
        const bool isOn = phase < width;
        ++checked;
        on += isOn;
        (isOn ? onSum : offSum) += trace[i];
        if (std::abs(trace[i] - (isOn ? kOnDbm : kOffDbm)) > 0.3) {
            if (wrong++ < 5)
                ADD_FAILURE() << "point " << i << " (" << delay + i * sweep / length
                              << " us): " << trace[i] << " dBm, input " << (isOn ? kOnDbm : kOffDbm);
        }
    }
    EXPECT_EQ(wrong, 0) << "of " << checked;
    EXPECT_GT(checked, length / 2);
    EXPECT_NEAR(onSum / on, kOnDbm, 0.1);
    EXPECT_NEAR(offSum / (checked - on), kOffDbm, 0.1);
}

INSTANTIATE_TEST_SUITE_P(Sweeps, EndToEnd, ::testing::ValuesIn(Cases()), Name);

// While another process streams CW readings from its own sensor, traces of
// this one come whole and right, and so do its readings.
TEST_F(EndToEnd, ATraceIsAcquiredWhileAnotherProcessMeasuresCw) {
    const int other = AddSensor("PRO002", 10, "QV442A");
    ASSERT_EQ(qvsim_set_cw_power(other, -25.0), QVSIM_OK);
    PulseTrain(500.0);
    ASSERT_EQ(PP_SetSweepTime(kAddr, 1000), 1);
    ASSERT_EQ(PP_SetTriggerSoure(kAddr, kInternal), 1);
    ASSERT_EQ(PP_SetTriggerLevel(kAddr, -20.0), 1);
    qv::test::PeerProcess peer;
    ASSERT_TRUE(peer.Started());
    ASSERT_GE(std::stoi(peer.Ask("init PRO002")), 1);
    peer.Send("measure-cw 10 4 300");
    std::vector<double> trace(10000);
    for (int n = 0; n < 20; ++n) {
        std::int32_t count = 0;
        ASSERT_EQ(PP_GetTrace(kAddr, trace.data(), 10000, &count), 1) << n;
        // Middle of the first pulse and of the first gap.
        EXPECT_NEAR(trace[1000], kOnDbm, 0.3) << n;
        EXPECT_NEAR(trace[3500], kOffDbm, 0.3) << n;
    }
    std::istringstream reply(peer.ReadLine(60000));
    int failures = -1;
    double mean = 0.0;
    reply >> failures >> mean;
    EXPECT_EQ(failures, 0);
    EXPECT_NEAR(mean, -25.0, 0.05);
    EXPECT_EQ(peer.Exit(), 0);
}

}  // namespace
