// Where state files and calibration caches go when no directory is set: the
// machine-wide one where it can be written, else the user's own, and the
// lines that say so.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/platform.h"
#include "support/log_capture.h"
#include "support/process.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

struct Choice {
    const char* name;
    const char* preferred;  // under the test's directory
    const char* xdg;        // nullptr: unset; else under the test's directory unless relative
    const char* home;       // nullptr: unset
    const char* chosen;     // under the test's directory
};

class DataDirectoryChoice : public ::testing::TestWithParam<Choice> {
protected:
    void SetUp() override {
        // A regular file where a directory would have to be: no user, root
        // included, can make the machine-wide directory beneath it.
        std::ofstream(base_ + "/file") << "x";
    }
    void TearDown() override {
        test::UnsetEnv("XDG_STATE_HOME");
        test::SetEnv("HOME", home_);
    }
    std::string Under(const std::string& path) const { return base_ + "/" + path; }

    const std::string base_ = platform::GetEnv("QV_TEST_TMPDIR");
    const std::string home_ = platform::GetEnv("HOME");
};

TEST_P(DataDirectoryChoice, FallsBackToTheUsersOwnOnlyWhenTheMachineWideOneCannotBeWritten) {
    const Choice& c = GetParam();
    if (c.xdg) test::SetEnv("XDG_STATE_HOME", c.xdg[0] == '/' ? Under(c.xdg + 1) : c.xdg);
    else test::UnsetEnv("XDG_STATE_HOME");
    if (c.home) test::SetEnv("HOME", Under(c.home));
    else test::UnsetEnv("HOME");
    EXPECT_EQ(platform::DefaultDataDirectory(Under(c.preferred)), Under(c.chosen));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DataDirectoryChoice,
    ::testing::Values(
        Choice{"MissingButCreatable", "var/lib/qv_api2", "/xdg", "home", "var/lib/qv_api2"},
        Choice{"Existing", ".", "/xdg", "home", "."},
        Choice{"StateHome", "file/qv_api2", "/xdg", "home", "xdg/qv_api2"},
        Choice{"NoStateHome", "file/qv_api2", nullptr, "home", "home/.local/state/qv_api2"},
        Choice{"RelativeStateHomeIgnored", "file/qv_api2", "rel", "home", "home/.local/state/qv_api2"},
        Choice{"NowhereElse", "file/qv_api2", nullptr, nullptr, "file/qv_api2"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(DataDirectoryLog, UnwritableDirectoriesAreSaidOnceWithTheReason) {
    const std::string base = platform::GetEnv("QV_TEST_TMPDIR");
    std::ofstream(base + "/file") << "x";
    test::LogCapture log;
    test::SetEnv("XDG_STATE_HOME", base + "/state");
    platform::DefaultDataDirectory(base + "/file/qv_api2");
    platform::DefaultDataDirectory(base + "/file/qv_api2");
    const std::string data = "x";
    EXPECT_FALSE(platform::WriteFileAtomic(base + "/file/qv_api2/QV442A_5.ini", data.data(), data.size()));
    test::UnsetEnv("XDG_STATE_HOME");
    const auto lines = log.Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0].find("/file/qv_api2: Not a directory); using " + base + "/state/qv_api2"), std::string::npos)
        << lines[0];
    EXPECT_NE(lines[1].find("cannot write " + base + "/file/qv_api2/QV442A_5.ini: directory " + base +
                            "/file/qv_api2 cannot be made or written (Not a directory)"),
              std::string::npos)
        << lines[1];
    EXPECT_EQ(lines[0].rfind("qv_api2[" + std::to_string(test::CurrentProcessId()) + "]: ", 0), 0u);
}

}  // namespace
}  // namespace qv
