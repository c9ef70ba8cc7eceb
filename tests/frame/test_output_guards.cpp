// Every export, called with arguments drawn from fixed pseudo-random bytes
// (edge values and counts, null pointers, unterminated and path-like
// strings), writes nothing past the room the caller gave, and no string from
// a caller ends up in a file name.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <random>
#include <regex>
#include <vector>

#include "support/export_args.h"

namespace qv::test {
namespace {

namespace fs = std::filesystem;

// Files under the test's directory that are not the bus file and not a
// state or cache file named with letters, digits and '_' in the data directory.
std::vector<std::string> StrayFiles() {
    const fs::path root = std::getenv("QV_TEST_TMPDIR");
    const fs::path data = std::getenv("QV_API2_DATA_DIR");
    const std::regex allowed("[A-Za-z0-9_]+\\.(ini|dat)");
    std::vector<std::string> stray;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (entry.is_directory() || entry.path().filename() == "bus.qvsim") continue;
        const std::string name = entry.path().filename().string();
        std::error_code error;
        if (!fs::equivalent(entry.path().parent_path(), data, error) || !std::regex_match(name, allowed))
            stray.push_back(entry.path().string());
    }
    return stray;
}

TEST(OutputGuards, NoExportWritesPastTheRoomGivenNorNamesAFileAfterACallersString) {
    ASSERT_GE(AddArgsSensor(), 0);
    std::mt19937 random(20261123);
    std::vector<std::uint8_t> bytes(1024);
    for (const ExportCall& e : kExportCalls) {
        for (int round = 0; round < 24; ++round) {
            for (auto& b : bytes) b = static_cast<std::uint8_t>(random());
            if (round % 8 == 0) RestoreArgsSensor();
            ByteSource in(bytes.data(), bytes.size());
            ExportArgs args(in);
            e.call(args);
            LimitArgsAverages();
            ASSERT_EQ(args.DamagedGuard(), "") << e.name << ", round " << round;
        }
    }
    EXPECT_EQ(StrayFiles(), std::vector<std::string>());
}

}  // namespace
}  // namespace qv::test
