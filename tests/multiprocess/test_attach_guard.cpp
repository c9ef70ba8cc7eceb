// A process that holds the serialisation of loads (stopped in the middle of
// its own) must not hang every later load on the machine.
#include <gtest/gtest.h>

#include "support/os_hazards.h"
#include "support/peer_process.h"

namespace qv::test {
namespace {

TEST(AttachGuard, ALoadThatCannotAttachAnswersEveryCallWithTheLockFailure) {
    AttachGuardHolder guard;
    ASSERT_TRUE(guard.Held());
    PeerProcess app(QV_LIBRARY_PEER_PATH);
    ASSERT_TRUE(app.Started());
    // The load gives up waiting after a bounded time and goes on unattached.
    ASSERT_EQ(app.Ask("load", 60000), "loaded");
    EXPECT_EQ(app.Ask("set-timeout 300"), "-1");
    EXPECT_EQ(app.Ask("init AAA111"), "-1");
    EXPECT_EQ(app.Exit(), 0);
}

}  // namespace
}  // namespace qv::test
