// Who gets into what the library creates on the machine: the owner alone, or
// the group of a data directory marked shared; never everybody, and never
// whatever the umask of the process that happened to create it says.
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/platform.h"
#include "support/os_hazards.h"
#include "support/peer_process.h"
#include "support/process.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

// Runs in a namespace and data directory of its own, restoring the test's.
class Permissions : public ::testing::Test {
protected:
    void SetUp() override {
        if (!test::AccessOf(test::CurrentProgram()).found) GTEST_SKIP() << "no POSIX permissions here";
        ns_ = "perm" + std::to_string(test::CurrentProcessId()) + "_" +
              ::testing::UnitTest::GetInstance()->current_test_info()->name();
        for (char& c : ns_)
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        data_ = platform::JoinPath(platform::GetEnv("QV_TEST_TMPDIR"), ns_);
        fs::create_directories(data_);
        test::SetEnv(platform::kEnvNamespace, ns_);
        test::SetEnv(platform::kEnvDataDir, data_);
    }
    void TearDown() override {
        test::SetEnv(platform::kEnvNamespace, savedNs_);
        test::SetEnv(platform::kEnvDataDir, savedData_);
        if (!ns_.empty()) test::RemoveNamespaceObjects(ns_);
    }
    std::string Guard() const { return "/dev/shm/qv_api2_shared_vars" + ns_ + ".guard"; }

    const std::string savedNs_ = platform::GetEnv(platform::kEnvNamespace);
    const std::string savedData_ = platform::GetEnv(platform::kEnvDataDir);
    std::string ns_;
    std::string data_;
};

struct AccessCase {
    const char* name;
    bool shared;          // data directory marked shared with a group
    std::uint32_t umask;  // of the creating processes
    std::uint32_t file;   // expected mode of objects and files
    std::uint32_t dir;    // expected mode of directories the library makes
};

class CreatedAccess : public Permissions, public ::testing::WithParamInterface<AccessCase> {};

TEST_P(CreatedAccess, ObjectsDirectoriesAndFilesLetInOnlyTheIntendedUsers) {
    const AccessCase& c = GetParam();
    const test::FileAccess dir = test::AccessOf(data_);
    const std::uint32_t group = test::RunningAsRoot() ? 4242 : dir.gid;
    if (c.shared) {
        ASSERT_TRUE(test::SetAccess(data_, dir.uid, group, 02770));
    }
    const std::uint32_t savedMask = test::SetFileMask(c.umask);
    {
        test::PeerProcess peer;  // inherits the umask
        ASSERT_TRUE(peer.Started());
        const auto objects = test::NamespaceObjects(ns_);
        EXPECT_GE(objects.size(), 4u);  // guard, presence, block, lock
        for (const std::string& object : objects) {
            const test::FileAccess a = test::AccessOf("/dev/shm/" + object);
            EXPECT_EQ(a.mode, c.file) << object;
            EXPECT_TRUE(!c.shared || a.gid == group) << object;
        }
        peer.Exit();
    }
    const std::string file = platform::JoinPath(data_, "made/below/QV442A_5.ini");
    const bool written = platform::WriteFileAtomic(file, "x", 1);
    test::SetFileMask(savedMask);
    ASSERT_TRUE(written);
    for (const std::string& made : {data_ + "/made", data_ + "/made/below"}) {
        EXPECT_EQ(test::AccessOf(made).mode, c.dir) << made;
        EXPECT_TRUE(!c.shared || test::AccessOf(made).gid == group) << made;
    }
    EXPECT_EQ(test::AccessOf(file).mode, c.file);
    EXPECT_TRUE(!c.shared || test::AccessOf(file).gid == group);
}

INSTANTIATE_TEST_SUITE_P(Permissions, CreatedAccess,
                         ::testing::Values(AccessCase {"OwnerOnly", false, 0, 0600, 0700},
                                           AccessCase {"SharedGroup", true, 077, 0660, 02770}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(Permissions, AnObjectOpenToEverybodyIsTightenedWhenOursAndRefusedWhenNot) {
    const test::FileAccess self = test::AccessOf(data_);
    {
        std::ofstream(Guard()) << "";
        ASSERT_TRUE(test::SetAccess(Guard(), self.uid, self.gid, 0666));
        test::PeerProcess peer;
        ASSERT_TRUE(peer.Started());
        EXPECT_EQ(test::AccessOf(Guard()).mode, 0600u);
        peer.Exit();
    }
    if (!test::RunningAsRoot()) GTEST_SKIP() << "planting another user's object needs root";
    std::ofstream(Guard()) << "";  // the last process to leave removed the first one
    ASSERT_TRUE(test::SetAccess(Guard(), 4243, 4243, 0666));
    test::PeerProcess stranger;
    EXPECT_FALSE(stranger.Started());  // the library stays unattached: no table
    EXPECT_EQ(test::AccessOf(Guard()).mode, 0666u);
}

}  // namespace
}  // namespace qv
