// The data directory's files under hostile conditions: writers killed at
// random moments leave the old file or the new one, never a part; a full
// disk or a read-only directory leaves every file as it was, and the calls
// answer as they do when a file cannot be written.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "support/os_hazards.h"
#include "support/peer_process.h"
#include "support/sim_fixture.h"

namespace qv::test {
namespace {

namespace fs = std::filesystem;

std::string DataFile(const std::string& name) {
    const char* dir = std::getenv("QV_API2_DATA_DIR");
    return std::string(dir ? dir : ".") + "/" + name;
}
std::string Bytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
int Temporaries() {
    int n = 0;
    for (const auto& e : fs::directory_iterator(fs::path(DataFile("")).parent_path()))
        n += e.path().filename().string().find(".tmp") != std::string::npos;
    return n;
}

class FileSafety : public SimBusTest {
protected:
    void SetUp() override {
        SimBusTest::SetUp();
        AddSensor("AAA111", 5);
        fs::create_directories(fs::path(DataFile("")).parent_path());
    }
    const std::string cache_ = DataFile("QV_CD_AAA111.dat");
    const std::string state_ = DataFile("QV442A_5.ini");
};

struct Writer {
    const char* name;
    const char* command;  // writes the file again and again, a line after each write
    const char* written;
    bool cache;
};

class KilledWriter : public FileSafety, public ::testing::WithParamInterface<Writer> {};

// 25 writers killed at random moments within their first writes.
TEST_P(KilledWriter, LeavesTheOldOrTheNewFileNeverAPart) {
    const Writer& w = GetParam();
    const std::string& path = w.cache ? cache_ : state_;
    std::string whole;
    {
        PeerProcess first;
        ASSERT_EQ(first.Ask("init AAA111"), "1");
        ASSERT_EQ(first.Ask("write-ini-loop 5 1"), "0");
        whole = Bytes(path);
        first.Exit();
    }
    ASSERT_FALSE(whole.empty());
    std::mt19937 random(17);
    for (int kill = 0; kill < 25; ++kill) {
        PeerProcess writer;
        if (!w.cache) {
            ASSERT_EQ(writer.Ask("init AAA111"), "1");
        }
        writer.Send(std::string(w.command));
        ASSERT_EQ(writer.ReadLine(), w.written);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        writer.Kill();
        const std::string now = Bytes(path);
        if (w.cache) {
            // Each write is the same image: whole, or not there between two.
            EXPECT_TRUE(now.empty() || now == whole) << "kill " << kill << ": " << now.size() << " bytes";
        } else {
            EXPECT_EQ(now.substr(now.size() - 2), "\r\n") << "kill " << kill;
            EXPECT_NE(now.find("[Reg_9]"), std::string::npos) << "kill " << kill;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Files, KilledWriter,
                         ::testing::Values(Writer {"StateFile", "save-forever 5", "saved", false},
                                           Writer {"CalibrationCache", "cache-forever AAA111", "cached", true}),
                         [](const auto& info) { return std::string(info.param.name); });

// A full disk (no file may grow past 1 KiB) and a read-only directory:
// initialisation succeeds without its cache, state files keep their old
// contents, writes answer 1 as documented, nothing is left behind.
struct Hazard {
    const char* name;
    bool readOnly;
};

class UnwritableData : public FileSafety, public ::testing::WithParamInterface<Hazard> {};

TEST_P(UnwritableData, LeavesEveryFileAsItWasAndAnswersAsDocumented) {
    std::string mode;
    {
        PeerProcess first;
        ASSERT_EQ(first.Ask("init AAA111"), "1");
        ASSERT_EQ(first.Ask("write-ini-loop 5 1"), "0");
        mode = first.Ask("read-ini 5");
        first.Exit();
    }
    ASSERT_TRUE(fs::remove(cache_));
    const std::string before = Bytes(state_);
    std::unique_ptr<ReadOnlyDirectory> readOnly;
    if (GetParam().readOnly) {
        readOnly = std::make_unique<ReadOnlyDirectory>(fs::path(state_).parent_path().string());
        if (!readOnly->Held()) GTEST_SKIP() << "no read-only directory can be made here";
    }
    PeerProcess peer;
    if (!GetParam().readOnly && peer.Ask("limit-file-size 1024") != "1") GTEST_SKIP() << "no file size limit here";
    EXPECT_EQ(peer.Ask("init AAA111"), "1");
    EXPECT_FALSE(fs::exists(cache_));
    EXPECT_EQ(peer.Ask("write-ini-loop 5 3"), "0");
    EXPECT_EQ(peer.Ask("read-ini 5"), mode);  // the old file is read
    EXPECT_EQ(Bytes(state_), before);
    EXPECT_EQ(Temporaries(), 0);
    EXPECT_EQ(peer.Exit(), 0);
}

INSTANTIATE_TEST_SUITE_P(Files, UnwritableData,
                         ::testing::Values(Hazard {"FullDisk", false}, Hazard {"ReadOnlyDirectory", true}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace qv::test
