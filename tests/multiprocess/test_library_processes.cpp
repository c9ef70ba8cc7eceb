// The library loaded and unloaded at run time by real processes, as
// applications use it: its load and unload notifications (DllMain on Windows,
// constructor and destructor elsewhere) and what each way of leaving does to
// the shared table and to the sensors.
#include <gtest/gtest.h>

#include <string>

#include "sim/qvsim.h"
#include "support/peer_process.h"
#include "support/sim_fixture.h"

using qv::test::PeerProcess;

namespace {

class LibraryProcesses : public qv::test::SimBusTest {
protected:
    void SetUp() override {
        SimBusTest::SetUp();
        for (const char* serial : {"AAA111", "BBB222"}) ids_.push_back(AddSensor(serial, -1));
    }

    // attachCount as a process that keeps the library loaded sees it.
    static int Attached(PeerProcess& observer) {
        const std::string state = observer.Ask("state");
        const auto at = state.find("attach=");
        return at == std::string::npos ? -1 : std::stoi(state.substr(at + 7));
    }

    int OpenHandles(int sensor) const { return Info(ids_[static_cast<std::size_t>(sensor)]).open_handles; }

    std::vector<int> ids_;
};

TEST_F(LibraryProcesses, EveryLoadAndCleanUnloadIsCounted) {
    PeerProcess observer;
    PeerProcess app(QV_LIBRARY_PEER_PATH);
    ASSERT_TRUE(app.Started());
    EXPECT_EQ(Attached(observer), 1);
    ASSERT_EQ(app.Ask("load"), "loaded");
    EXPECT_EQ(Attached(observer), 2);
    ASSERT_EQ(app.Ask("unload"), "unloaded");
    EXPECT_EQ(Attached(observer), 1);
    ASSERT_EQ(app.Ask("load"), "loaded");
    EXPECT_EQ(Attached(observer), 2);
    // Ending with the library loaded is a clean unload too.
    EXPECT_EQ(app.Exit(), 0);
    EXPECT_EQ(Attached(observer), 1);
}

TEST_F(LibraryProcesses, AKilledProcessStaysCounted) {
    PeerProcess observer;
    {
        PeerProcess app(QV_LIBRARY_PEER_PATH);
        ASSERT_EQ(app.Ask("load"), "loaded");
        app.Kill();
    }
    EXPECT_EQ(Attached(observer), 2);
    EXPECT_EQ(observer.Ask("set-timeout 300"), "1");
}

TEST_F(LibraryProcesses, UnloadReleasesTheSensorsAndClosesTheirHandles) {
    PeerProcess app(QV_LIBRARY_PEER_PATH);
    ASSERT_EQ(app.Ask("load"), "loaded");
    ASSERT_EQ(app.Ask("init AAA111"), "1");
    ASSERT_GE(OpenHandles(0), 1);
    ASSERT_EQ(app.Ask("unload"), "unloaded");
    EXPECT_EQ(OpenHandles(0), 0);
    PeerProcess other;
    EXPECT_EQ(other.Ask("init AAA111"), "1");
    // The library loads again into the same process, sensors and all.
    ASSERT_EQ(app.Ask("load"), "loaded");
    EXPECT_EQ(app.Ask("init BBB222"), "2");
    EXPECT_EQ(app.Ask("init AAA111"), "-1");
}

TEST_F(LibraryProcesses, EndingWithTheLibraryLoadedFreesTheSensorsForOthers) {
    PeerProcess observer;
    {
        PeerProcess app(QV_LIBRARY_PEER_PATH);
        ASSERT_EQ(app.Ask("load"), "loaded");
        ASSERT_EQ(app.Ask("init AAA111"), "1");
        ASSERT_EQ(app.Ask("set-timeout 2345"), "1");
        EXPECT_EQ(app.Exit(), 0);
    }
    EXPECT_EQ(observer.Ask("slots").substr(0, 7), "0:0:-:0");
    EXPECT_EQ(observer.Ask("init AAA111"), "1");
    EXPECT_EQ(observer.Ask("state").substr(0, 12), "timeout=2345");
}

TEST_F(LibraryProcesses, TheLastUnloadDiscardsTheTable) {
    PeerProcess app(QV_LIBRARY_PEER_PATH);
    ASSERT_EQ(app.Ask("load"), "loaded");
    ASSERT_EQ(app.Ask("init AAA111"), "1");
    ASSERT_EQ(app.Ask("set-timeout 4321"), "1");
    ASSERT_EQ(app.Ask("unload"), "unloaded");
    PeerProcess next;
    EXPECT_EQ(next.Ask("state"), "timeout=500 attach=1 first=1");
    EXPECT_EQ(next.Ask("slots").substr(0, 7), "0:0:-:0");
}

}  // namespace
