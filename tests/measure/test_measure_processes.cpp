// Real processes measuring their own sensors at the same time.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "sim/qvsim.h"
#include "support/peer_process.h"
#include "support/sim_fixture.h"

using qv::test::PeerProcess;

namespace {

using MeasureProcesses = qv::test::SimBusTest;

TEST_F(MeasureProcesses, TwoProcessesReadTheirOwnSensorsAtOnce) {
    const int a = AddSensor("MPA001", 21), b = AddSensor("MPB002", 22);
    constexpr int kReadings = 200;
    ASSERT_EQ(qvsim_set_cw_power(a, -10.0), QVSIM_OK);
    ASSERT_EQ(qvsim_set_cw_power(b, -40.0), QVSIM_OK);
    PeerProcess first, second;
    ASSERT_EQ(first.Ask("init MPA001"), "1");
    ASSERT_EQ(second.Ask("init MPB002"), "2");
    // Both stream at once; every call holds the lock across its pipe read.
    first.Send("measure-cw 21 1 " + std::to_string(kReadings));
    second.Send("measure-cw 22 1 " + std::to_string(kReadings));
    for (auto [peer, dbm] : {std::pair{&first, -10.0}, std::pair{&second, -40.0}}) {
        std::istringstream reply(peer->ReadLine(60000));
        int failures = -1;
        double mean = 0;
        reply >> failures >> mean;
        EXPECT_EQ(failures, 0);
        EXPECT_NEAR(mean, dbm, 0.03);
    }
    EXPECT_EQ(first.Exit(), 0);
    EXPECT_EQ(second.Exit(), 0);
}

}  // namespace
