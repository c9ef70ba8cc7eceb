// What another local user may put at the names of the data directory, and what
// killed writers leave there: nothing is followed, nothing blocks, nothing
// unbounded is read, and leftovers go.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "calibration/cal_image.h"
#include "platform/platform.h"
#include "support/files.h"
#include "support/os_hazards.h"
#include "support/process.h"

namespace qv {
namespace {

namespace fs = std::filesystem;
const std::string kVictimText = "[Current]\r\nKey=precious\r\n";

class DataFiles : public ::testing::Test {
protected:
    void SetUp() override {
        fs::remove_all(platform::DataDirectory());
        fs::create_directories(platform::DataDirectory());
        Write(victim_, kVictimText);
    }
    static std::string Path(const std::string& name) {
        return platform::JoinPath(platform::DataDirectory(), name);
    }
    static void Write(const std::string& path, const std::string& text) { qv::test::WriteFile(path, text); }
    static std::string Text(const std::string& path) { return qv::test::FileText(path); }
    static std::string ReadKey(const std::string& path) {
        char value[32] = {};
        platform::ProfileRead read {"Key", "default", value, sizeof value, 0};
        platform::ProfileReadStrings(path, "Current", &read, 1);
        return value;
    }
    static bool WriteKey(const std::string& path) {
        const platform::ProfileWrite write {"Key", "written"};
        return platform::ProfileWriteStrings(path, "Current", &write, 1);
    }
    static std::int32_t ReadCache(const char* serial) {
        std::vector<std::uint8_t> image(kCalImageBytes);
        return ReadCalCache(serial, kCalImageBytes, image.data(), 0, nullptr, 0);
    }

    const std::string victim_ = platform::JoinPath(platform::GetEnv("QV_TEST_TMPDIR"), "victim.ini");
    const std::string state_ = Path("QV442A_5.ini");
};

TEST_F(DataFiles, ALinkAtAPredictableTemporaryNameIsNotWrittenThrough) {
    // The name earlier writers used: the target, ".tmp" and the process id.
    if (!test::MakeSymbolicLink(victim_, state_ + ".tmp" + std::to_string(test::CurrentProcessId())))
        GTEST_SKIP() << "no symbolic links here";
    EXPECT_TRUE(WriteKey(state_));
    EXPECT_EQ(Text(victim_), kVictimText);
    EXPECT_EQ(Text(state_), "[Current]\r\nKey=written\r\n");
}

TEST_F(DataFiles, ALinkAtTheFinalNameIsNeitherReadNorWrittenThrough) {
    if (!test::MakeSymbolicLink(victim_, state_) || !test::MakeSymbolicLink(victim_, CalCachePath("LNK001")))
        GTEST_SKIP() << "no symbolic links here";
    EXPECT_EQ(ReadKey(state_), "default");
    EXPECT_FALSE(WriteKey(state_));
    EXPECT_EQ(ReadCache("LNK001"), 0);
    EXPECT_EQ(Text(victim_), kVictimText);
}

TEST_F(DataFiles, AFifoAtAStateOrCacheNameNeverBlocks) {
    if (!test::MakeFifo(state_) || !test::MakeFifo(CalCachePath("FIF001"))) GTEST_SKIP() << "no FIFOs here";
    EXPECT_EQ(ReadKey(state_), "default");
    EXPECT_FALSE(WriteKey(state_));
    EXPECT_EQ(ReadCache("FIF001"), 0);
}

TEST_F(DataFiles, AStateFileBeyondOneMebibyteIsNeitherReadNorRewritten) {
    std::string text = "[Current]\r\nKey=kept\r\n";
    text.append((1u << 20) + 1 - text.size(), ';');
    Write(state_, text);
    EXPECT_EQ(ReadKey(state_), "default");
    EXPECT_FALSE(WriteKey(state_));
    EXPECT_EQ(Text(state_), text);
}

TEST_F(DataFiles, TemporaryFilesOfEndedWritersGoAtTheNextWrite) {
    // No process has id 2147483000; this one is running.
    const std::vector<std::string> gone = {"QV_CD_ABC123.dat.tmp2147483000.0123456789abcdef",
                                           "QV442A_5.ini.tmp2147483001"};
    const std::vector<std::string> kept = {
        "QV442A_7.ini.tmp" + std::to_string(test::CurrentProcessId()) + ".0123456789abcdef",
        "notes.tmp.txt"};
    for (const auto& names : {gone, kept})
        for (const std::string& name : names) Write(Path(name), "x");
    EXPECT_TRUE(WriteKey(Path("QV442A_9.ini")));
    for (const std::string& name : gone) EXPECT_FALSE(fs::exists(Path(name))) << name;
    for (const std::string& name : kept) EXPECT_TRUE(fs::exists(Path(name))) << name;
}

}  // namespace
}  // namespace qv
