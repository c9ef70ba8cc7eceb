// The calibration image: reading it out of the sensor, its checksum, the cache
// file and when it may be used, and decoding into a slot.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "calibration_fixture.h"
#include "support/process.h"

using namespace qv;
using qv::test::Bytes;
using Strings = std::vector<std::string>;

namespace {

namespace fs = std::filesystem;

constexpr int kRequestsForWholeImage = 16 + 1 + 782 + 898;  // test block, checksum, two parts
const Strings kCacheCheckOnly = [] {
    Strings requests{"OUT 225"};
    requests.insert(requests.end(), 16, "IN 229");
    requests.insert(requests.end(), {"OUT 225", "IN 229"});
    return requests;
}();

class CalImage : public qv::test::CalibrationTest {};

// ---------------------------------------------------------------- reading blocks

struct BlockCase {
    const char* name;
    std::int32_t region;
    std::int32_t length;
    std::int32_t expected;
};

class ReadCalBlockArguments : public CalImage, public ::testing::WithParamInterface<BlockCase> {};

TEST_P(ReadCalBlockArguments, RefusedBeforeAnythingIsSent) {
    const BlockCase c = GetParam();
    const int id = AddSensor("CAL001", 1);
    Bytes buffer(65000, 0xAA);
    const std::int64_t h = Open();
    qvsim_transcript_clear(id);
    EXPECT_EQ(ReadCalBlock(h, c.region, buffer.data(), c.length, 4, 0), c.expected);
    if (c.expected < 0) {
        EXPECT_EQ(qvsim_transcript_count(id), 0);
        EXPECT_EQ(buffer, Bytes(65000, 0xAA));
    } else {
        EXPECT_EQ(CountRequests(id, 229), (c.length + 63) / 64);
    }
}

INSTANTIATE_TEST_SUITE_P(
    RegionAndLength, ReadCalBlockArguments,
    ::testing::Values(BlockCase{"Region3", 3, 64, -1}, BlockCase{"BadRegionBeforeBadLength", 7, 0, -1},
                      BlockCase{"Length0", 2, 0, -2}, BlockCase{"Length64001", 6, 64001, -2},
                      BlockCase{"Length1", 2, 1, 1}, BlockCase{"Length64000", 6, 64000, 64000}),
    [](const ::testing::TestParamInfo<BlockCase>& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------- checksum

// Each byte doubles what came before: only the last 32 bytes count.
TEST(Checksum, DoublesAndAddsEachByteSoOnlyTheLast32Count) {
    const Bytes oneTwo{0x01, 0x02};
    EXPECT_EQ(CalChecksum(0, oneTwo.data()), 0u);
    EXPECT_EQ(CalChecksum(2, oneTwo.data()), 4u);
    Bytes place31(32, 0), place32(33, 0);
    place31[0] = 0x03;
    place32[0] = 0xFF;
    EXPECT_EQ(CalChecksum(place31.size(), place31.data()), 0x80000000u);
    EXPECT_EQ(CalChecksum(place32.size(), place32.data()), 0u);
}

struct ChecksumWriteCase {
    const char* name;
    int refusedEcho;  // 0: none
    std::int32_t expected;
    bool stored;
};

class ChecksumWrite : public CalImage, public ::testing::WithParamInterface<ChecksumWriteCase> {};

TEST_P(ChecksumWrite, StoredOnlyWhenTheSensorEchoes) {
    const ChecksumWriteCase c = GetParam();
    const int id = AddSensor("CAL001", 1);
    const std::uint32_t before = SensorChecksum(id);
    if (c.refusedEcho != 0) AddFault(id, QVSIM_FAULT_NO_ECHO, c.refusedEcho, 1);
    const std::int64_t h = Open();
    qvsim_transcript_clear(id);
    EXPECT_EQ(WriteCalChecksum(h, 0x12345678u), c.expected);
    const Strings sent = Requests(id);
    if (c.refusedEcho == 252) {
        EXPECT_EQ(sent, (Strings{"OUT 225", "IN 252"}));
    } else {
        EXPECT_EQ(sent, (Strings{"OUT 225", "IN 252", "OUT 228", "IN 253"}));
    }
    EXPECT_EQ(SensorChecksum(id), c.stored ? 0x12345678u : before);  // at its place, low byte first

    std::uint32_t read = 0;
    qvsim_transcript_clear(id);
    EXPECT_EQ(ReadCalChecksum(h, &read), 1);
    EXPECT_EQ(read, SensorChecksum(id));
    EXPECT_EQ(Requests(id), (Strings{"OUT 225", "IN 229"}));
}

INSTANTIATE_TEST_SUITE_P(
    Echoes, ChecksumWrite,
    ::testing::Values(ChecksumWriteCase{"Confirmed", 0, 1, true},
                      ChecksumWriteCase{"BeginRefused", 252, -4, false},
                      // The data went out before the end was refused.
                      ChecksumWriteCase{"EndRefused", 253, -5, true}),
    [](const ::testing::TestParamInfo<ChecksumWriteCase>& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------- decoding

// Image fields written the way the factory lays them out.
void PutScaleHeader(std::uint8_t* h, unsigned na, unsigned nb, unsigned ea, unsigned eb) {
    h[0] = static_cast<std::uint8_t>(na >> 6);
    h[1] = static_cast<std::uint8_t>((na & 63) << 2 | nb >> 8);
    h[2] = static_cast<std::uint8_t>(nb & 255);
    h[3] = static_cast<std::uint8_t>(ea << 4 | eb);
}

void PutLevelEntry(std::uint8_t* e, unsigned z, unsigned y, unsigned x) {
    e[0] = static_cast<std::uint8_t>(z >> 8);
    e[1] = static_cast<std::uint8_t>(z & 255);
    e[2] = static_cast<std::uint8_t>(y >> 6);
    e[3] = static_cast<std::uint8_t>((y & 63) << 2 | x >> 8);
    e[4] = static_cast<std::uint8_t>(x & 255);
}

struct FieldCase {
    const char* name;
    unsigned na, nb, ea, eb;  // raw header fields
    unsigned z, y, x;         // raw entry fields
    double a, b;              // decoded coefficients
};

class DecodeFields : public CalImage, public ::testing::WithParamInterface<FieldCase> {};

TEST_P(DecodeFields, SignAndMagnitudeAndScale) {
    const FieldCase c = GetParam();
    Bytes image(kCalImageBytes, 0);
    // The same fields at the first hs entry of point 0 and the last ls entry of point 400.
    PutScaleHeader(&image[2 + 0], c.na, c.nb, c.ea, c.eb);
    PutLevelEntry(&image[2 + 8], c.z, c.y, c.x);
    PutScaleHeader(&image[2 + 268 * 400 + 4], c.na, c.nb, c.ea, c.eb);
    PutLevelEntry(&image[2 + 268 * 400 + 138 + 5 * 25], c.z, c.y, c.x);
    DecodeCalImage(3, image.data());

    for (const CalLevelPoint& p : {Slot(3).calPoints[0].hs[0], Slot(3).calPoints[400].ls[25]}) {
        EXPECT_DOUBLE_EQ(p.a, c.a);
        EXPECT_DOUBLE_EQ(p.b, c.b);
        EXPECT_EQ(p.z, c.z);
    }
    // Fields of the neighbours stay theirs: all zero, and a zero divisor gives 0.
    for (const CalLevelPoint& p : {Slot(3).calPoints[0].hs[1], Slot(3).calPoints[0].ls[0],
                                   Slot(3).calPoints[400].ls[24], Slot(3).calPoints[399].ls[25]}) {
        EXPECT_EQ(p.a, 0.0);
        EXPECT_EQ(p.b, 0.0);
        EXPECT_EQ(p.z, 0.0);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Fields, DecodeFields,
    ::testing::Values(
        FieldCase{"ExponentNineIsMinusOne", 1, 1, 9, 9, 0, 5, 5, 0.5, 0.5},
        FieldCase{"ExponentSevenIsSeven", 1, 1, 7, 7, 0, 1, 1, 1e7, 1e7},
        FieldCase{"LargestPositiveMantissas", 8191, 511, 0, 0, 0, 8191, 511, 1.0, 1.0},
        FieldCase{"SignBitAloneIsZero", 1, 1, 0, 0, 0, 8192, 512, 0.0, 0.0},
        FieldCase{"LargestNegativeMantissas", 1, 1, 0, 0, 0, 16383, 1023, -8191.0, -511.0},
        FieldCase{"FieldsDoNotLeakIntoEachOther", 0x2AAA, 0x155, 0xA, 0x5, 0xFFFF, 0x1555, 0x2AA,
                  0x1555 / double{0x2AAA} * 1e-2, -(0x2AA & 0x1FF) / double{0x155} * 1e5},
        // A damaged header: no infinities, no NaN.
        FieldCase{"ZeroDivisorA", 0, 4, 0, 0, 100, 5, 2, 0.0, 0.5}),
    [](const ::testing::TestParamInfo<FieldCase>& info) { return std::string(info.param.name); });

TEST_F(CalImage, TemperatureIsTheFirstTwoBytesAndDecodingLeavesTheGridAndOtherSlots) {
    Slot(1).calTmp = 1234.0;
    const double level = Slot(0).calPoints[17].ls[9].level;
    Bytes image(kCalImageBytes, 0);
    image[0] = 0x22;
    image[1] = 0xC4;
    DecodeCalImage(0, image.data());
    DecodeCalImage(13, image.data());
    DecodeCalImage(-1, image.data());
    EXPECT_EQ(Slot(0).calTmp, 8900.0);
    EXPECT_EQ(Slot(0).calPoints[17].ls[9].level, level);
    EXPECT_EQ(Slot(1).calTmp, 1234.0);
}

// ---------------------------------------------------------------- cache file

TEST_F(CalImage, FirstLoadReadsTheSensorAndCachesWhatItRead) {
    const int id = AddSensor("CAL001", 1);
    const std::int64_t h = Open();
    qvsim_transcript_clear(id);
    Bytes image(kCalImageBytes);
    LoadCalImage(h, "CAL001", image.data());

    EXPECT_EQ(image, SensorImage(id));
    EXPECT_EQ(CountRequests(id, 229), kRequestsForWholeImage);
    EXPECT_EQ(CountRequests(id, 252), 1);  // the checksum is stored again
    EXPECT_EQ(SensorChecksum(id), CalChecksum(image.size(), image.data()));
    const std::string path = CalCachePath("CAL001");
    EXPECT_EQ(path, platform::JoinPath(platform::DataDirectory(), "QV_CD_CAL001.dat"));
    EXPECT_EQ(FileBytes(path), CacheContent(image));
    // Written aside and renamed: nothing else is left in the directory.
    int files = 0;
    for (const auto& entry : fs::directory_iterator(platform::DataDirectory())) {
        EXPECT_EQ(entry.path().filename(), "QV_CD_CAL001.dat");
        ++files;
    }
    EXPECT_EQ(files, 1);
}

TEST_F(CalImage, SecondLoadTakesTheImageFromTheCacheWhateverTheCaseOfTheSerial) {
    const int id = AddSensor("CAL00X", 1);
    const std::int64_t h = Open();
    Bytes first(kCalImageBytes), second(kCalImageBytes, 0);
    LoadCalImage(h, "cal00x", first.data());
    qvsim_transcript_clear(id);
    LoadCalImage(h, "CAL00X", second.data());
    EXPECT_EQ(Requests(id), kCacheCheckOnly);
    EXPECT_EQ(second, first);
}

struct CacheCase {
    const char* name;
    std::int32_t expected;
};

class ReadCache : public CalImage, public ::testing::WithParamInterface<CacheCase> {};

// The file as a valid cache of `image` would be, then spoilt as the case says.
TEST_P(ReadCache, ValidOnlyWhenFileSensorAndTestBlockAgree) {
    const CacheCase c = GetParam();
    Bytes image(kCalImageBytes);
    for (std::size_t i = 0; i < image.size(); ++i) image[i] = static_cast<std::uint8_t>(i * 31 + 7);
    Bytes test(image.begin(), image.begin() + kCalTestBytes);
    std::uint32_t sensorChecksum = CalChecksum(image.size(), image.data());
    Bytes file = CacheContent(image);
    const std::string name(c.name);
    // The checksum only sees the last 32 bytes of what it covers.
    if (name == "SelfChecksumWrong") file[kCalImageBytes - 5] ^= 0x40;
    if (name == "SensorChecksumDiffers") sensorChecksum ^= 1;
    if (name == "TestBlockDiffers") test[1023] ^= 1;
    if (name == "ShortFile") file.pop_back();
    if (name == "LongFile") file.push_back(0);
    const std::string path = CalCachePath("CAL001");
    fs::create_directories(platform::DataDirectory());
    if (name != "NoFile") WriteBytes(path, file);

    Bytes out(kCalImageBytes, 0xEE);
    EXPECT_EQ(ReadCalCache("CAL001", kCalImageBytes, out.data(), kCalTestBytes, test.data(), sensorChecksum),
              c.expected);
    EXPECT_EQ(out, c.expected == 1 ? image : Bytes(kCalImageBytes, 0xEE));
}

INSTANTIATE_TEST_SUITE_P(
    Files, ReadCache,
    ::testing::Values(CacheCase{"Valid", 1}, CacheCase{"NoFile", -1}, CacheCase{"SelfChecksumWrong", 0},
                      CacheCase{"SensorChecksumDiffers", 0}, CacheCase{"TestBlockDiffers", 0},
                      CacheCase{"ShortFile", 0}, CacheCase{"LongFile", 0}),
    [](const ::testing::TestParamInfo<CacheCase>& info) { return std::string(info.param.name); });

// After a first load has cached the image, something changes; the next load must
// read the sensor again, cache what it read, and store its checksum in the sensor.
class CacheInvalidation : public CalImage, public ::testing::WithParamInterface<const char*> {};

TEST_P(CacheInvalidation, NextLoadReadsTheSensorAgainAndRewritesTheCache) {
    const std::string name = GetParam();
    const int id = AddSensor("CAL001", 1);
    const std::int64_t h = Open();
    Bytes image(kCalImageBytes);
    LoadCalImage(h, "CAL001", image.data());
    const std::string path = CalCachePath("CAL001");
    if (name == "FileChecksumWrong") {
        Bytes file = FileBytes(path);
        file[kCalImageBytes - 1] ^= 0x01;
        WriteBytes(path, file);
    } else if (name == "SensorChecksumDiffers") {
        const std::uint8_t other[4] = {1, 2, 3, 4};
        ASSERT_EQ(qvsim_memory_write(id, 2, 33, other, 4), 4);
    } else if (name == "TestBlockChanged") {
        // Both checksums still agree with each other; only the sensor's first bytes differ.
        const std::uint8_t changed = static_cast<std::uint8_t>(image[600] ^ 0x10);
        ASSERT_EQ(qvsim_memory_write(id, 2, 1024 + 600, &changed, 1), 1);
    }

    qvsim_transcript_clear(id);
    Bytes again(kCalImageBytes);
    LoadCalImage(h, "CAL001", again.data());
    EXPECT_EQ(CountRequests(id, 229), kRequestsForWholeImage);
    const Bytes now = SensorImage(id);
    EXPECT_EQ(again, now);
    EXPECT_EQ(FileBytes(path), CacheContent(now));
    EXPECT_EQ(SensorChecksum(id), CalChecksum(now.size(), now.data()));

    qvsim_transcript_clear(id);
    LoadCalImage(h, "CAL001", again.data());
    EXPECT_EQ(Requests(id), kCacheCheckOnly);
}

INSTANTIATE_TEST_SUITE_P(Changes, CacheInvalidation,
                         ::testing::Values("FileChecksumWrong", "SensorChecksumDiffers", "TestBlockChanged"));

// ---------------------------------------------------------------- data directory and names

class DataDirectoryTest : public CalImage {
protected:
    void SetUp() override {
        CalImage::SetUp();
        saved_ = platform::GetEnv(platform::kEnvDataDir);
    }
    void TearDown() override {
        qv::test::SetEnv(platform::kEnvDataDir, saved_);
        CalImage::TearDown();
    }
    std::string saved_;
};

TEST_F(DataDirectoryTest, MissingDirectoryIsCreatedAndAnUnusableOneStillGivesTheImage) {
    const int id = AddSensor("CAL001", 1);
    qv::test::SetEnv(platform::kEnvDataDir, saved_ + "/not/yet");
    const std::int64_t h = Open();
    Bytes image(kCalImageBytes);
    LoadCalImage(h, "CAL001", image.data());
    EXPECT_EQ(FileBytes(saved_ + "/not/yet/QV_CD_CAL001.dat"), CacheContent(image));

    const std::string blocker = saved_ + "/a-file";
    WriteBytes(blocker, Bytes{1});
    qv::test::SetEnv(platform::kEnvDataDir, blocker + "/data");
    std::uint32_t checksum = 77;
    EXPECT_EQ(WriteCalCache("CAL001", kCalImageBytes, image.data(), &checksum), -1);
    EXPECT_EQ(checksum, 77u);
    qvsim_transcript_clear(id);
    LoadCalImage(h, "CAL001", image.data());
    EXPECT_EQ(image, SensorImage(id));
    // Nothing cached, so the next load reads the sensor again.
    qvsim_transcript_clear(id);
    LoadCalImage(h, "CAL001", image.data());
    EXPECT_EQ(CountRequests(id, 229), kRequestsForWholeImage);
}

TEST_F(CalImage, AWriteThatCannotTakeItsPlaceLeavesNothingAside) {
    fs::create_directories(CalCachePath("CAL001"));  // a directory where the file goes
    Bytes image(kCalImageBytes, 1);
    std::uint32_t checksum = 77;
    EXPECT_EQ(WriteCalCache("CAL001", kCalImageBytes, image.data(), &checksum), -1);
    EXPECT_EQ(checksum, 77u);
    EXPECT_EQ(std::distance(fs::directory_iterator(platform::DataDirectory()), fs::directory_iterator()), 1);
}

class SerialInPath : public CalImage, public ::testing::WithParamInterface<const char*> {};

TEST_P(SerialInPath, NeverReachesTheFileSystem) {
    const char* serial = GetParam();
    const int id = AddSensor("CAL001", 1);
    EXPECT_EQ(CalCachePath(serial), "");
    Bytes image(kCalImageBytes, 1);
    std::uint32_t checksum = 0;
    EXPECT_EQ(WriteCalCache(serial, kCalImageBytes, image.data(), &checksum), -1);
    EXPECT_EQ(ReadCalCache(serial, kCalImageBytes, image.data(), kCalTestBytes, image.data(), 0), -1);
    LoadCalImage(Open(), serial, image.data());
    EXPECT_EQ(image, SensorImage(id));
    // Nothing was written anywhere under the test's directory but the bus file.
    const fs::path top = platform::GetEnv("QV_TEST_TMPDIR");
    for (const auto& entry : fs::recursive_directory_iterator(top))
        EXPECT_TRUE(entry.is_directory() || entry.path().filename() == "bus.qvsim") << entry.path();
}

INSTANTIATE_TEST_SUITE_P(Names, SerialInPath,
                         ::testing::Values("", "../CAL1", "CAL/01", "..", "CAL\\01", "\xC3\x84" "BC12"));

TEST_F(CalImage, NoSerialMeansNoCache) {
    EXPECT_EQ(CalCachePath(nullptr), "");
    Bytes image(kCalImageBytes);
    EXPECT_EQ(ReadCalCache(nullptr, kCalImageBytes, image.data(), 0, image.data(), 0), -1);
}

}  // namespace
