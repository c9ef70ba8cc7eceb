// qvsim from the shell: what it says to set-up mistakes, and the warnings
// (not refusals) for sensors no real bus has.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/process.h"

namespace {

struct ToolCase {
    const char* name;
    std::vector<std::string> args;  // after the bus set-up: "create" and two sensors
    bool withBus;                   // QV_SIM_BUS set for the run
    int status;
    const char* said;               // in standard output or error
};

class QvsimTool : public ::testing::TestWithParam<ToolCase> {
protected:
    void SetUp() override { qv::test::SetEnv("QV_SIM_BUS", dir_ + "/tool.qvsim"); }

    std::string Run(std::vector<std::string> args, bool withBus, int* status) const {
        args.insert(args.begin(), QVSIM_TOOL_PATH);
        qv::test::ChildOptions options;
        options.outputFile = dir_ + "/qvsim.out";
        if (!withBus) options.withoutEnv = {"QV_SIM_BUS"};
        *status = qv::test::RunProcess(args, options);
        std::ostringstream text;
        text << std::ifstream(options.outputFile).rdbuf();
        std::string output;
        for (char c : text.str())
            if (c != '\r') output += c;  // lines end in CR LF on Windows
        return output;
    }
    const std::string dir_ = std::getenv("QV_TEST_TMPDIR");
};

TEST_P(QvsimTool, SaysWhatIsWrong) {
    const ToolCase& c = GetParam();
    int status = -1;
    ASSERT_EQ((Run({"create"}, true, &status), status), 0);
    ASSERT_EQ((Run({"add", "AB1234", "QV442A", "--address", "5"}, true, &status), status), 0);
    std::vector<std::string> args;
    const auto place = [this](std::string text) {
        for (std::size_t at; (at = text.find("DIR")) != std::string::npos;) text.replace(at, 3, dir_);
        return text;
    };
    for (const std::string& a : c.args) args.push_back(place(a));
    const std::string output = Run(args, c.withBus, &status);
    EXPECT_EQ(status, c.status) << output;
    EXPECT_NE(output.find(place(c.said)), std::string::npos) << output;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, QvsimTool,
    ::testing::Values(
        ToolCase{"NoBus", {"list"}, false, 2, "qvsim: no bus file: set QV_SIM_BUS or pass --bus FILE"},
        ToolCase{"HelpWithoutBus", {"help"}, false, 0, "usage: qvsim"},
        ToolCase{"VersionWithoutBus", {"--version"}, false, 0, "qvsim 1."},
        ToolCase{"UnknownCommand", {"frobnicate", "1"}, true, 2, "qvsim: unknown command frobnicate"},
        ToolCase{"MissingBusFile", {"--bus", "DIR/none", "list"}, true, 1,
                 "cannot open bus file DIR/none: "},
        ToolCase{"BusFileNotMade", {"--bus", "DIR/none/bus", "create"}, true, 1,
                 "cannot make bus file DIR/none/bus: "},
        ToolCase{"CaptureNotMade", {"capture", "0", "DIR/none/capture"}, true, 1,
                 "cannot make DIR/none/capture: "},
        ToolCase{"DuplicateSerial", {"add", "ab1234", "QV442A"}, true, 0,
                 "warning: serial number ab1234 is on the bus twice (sensor ids 0 and 1)"},
        ToolCase{"UnknownProduct", {"add", "CD5678", "QX999"}, true, 0,
                 "warning: product \"QX999\" names no model the library knows"},
        ToolCase{"ImpossibleDueDate", {"add", "CD5678", "QV442A", "--due", "27-02-30"}, true, 0,
                 "warning: due date 27-02-30 is no day of 2000..2099"},
        ToolCase{"AddressZero", {"address", "AB1234", "0"}, true, 0, "warning: address 0:"},
        ToolCase{"ErasedDueDateIsNoWarning", {"add", "CD5678", "QV442A", "--due", "255-255-255"}, true, 0, "1\n"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(QvsimTool, APossibleSensorGetsNoWarning) {
    int status = -1;
    Run({"create"}, true, &status);
    EXPECT_EQ(Run({"add", "AB1234", "QV442A", "--address", "5", "--due", "28-02-29"}, true, &status), "0\n");
    EXPECT_EQ(status, 0);
}

}  // namespace
