// Profile files and the directory search on POSIX: what the library relies on
// from the Windows functions they stand in for.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "support/files.h"

using namespace qv::platform;

namespace {

namespace fs = std::filesystem;

class ProfileFile : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(GetEnv(kEnvDataDir).empty()) << "run under qv_test_env";
        dir_ = JoinPath(DataDirectory(), "profile");
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        path_ = JoinPath(dir_, "p.ini");
    }

    void Put(const std::string& text) { qv::test::WriteFile(path_, text); }
    std::string Text() const { return qv::test::FileText(path_); }
    std::string Read(const char* section, const char* key, const char* defaultValue = "dflt") {
        char buffer[100];
        ProfileRead read {key, defaultValue, buffer, sizeof buffer, 0};
        ProfileReadStrings(path_, section, &read, 1);
        EXPECT_EQ(read.length, std::strlen(buffer));
        return buffer;
    }
    bool Write(const char* section, const char* key, const char* value) {
        const ProfileWrite write {key, value};
        return ProfileWriteStrings(path_, section, &write, 1);
    }

    std::string dir_;
    std::string path_;
};

struct ReadCase {
    const char* name;
    const char* file;
    const char* section;
    const char* key;
    const char* expected;
};

class ProfileReading : public ProfileFile, public ::testing::WithParamInterface<ReadCase> {};

TEST_P(ProfileReading, FindsTheValueAsWindowsWould) {
    Put(GetParam().file);
    EXPECT_EQ(Read(GetParam().section, GetParam().key), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ProfileReading,
    ::testing::Values(
        ReadCase {"NamesInOtherCase", "[currstate]\r\nfreq=5\r\n", "CurrState", "FREQ", "5"},
        ReadCase {"BlanksAroundNamesAndValue", " [ A ] \n\t k \t=  5 000 \t\n", "A", "k", "5 000"},
        ReadCase {"SingleQuotesGo", "[A]\nk='x y'\n", "A", "k", "x y"},
        ReadCase {"EverythingAfterTheFirstEquals", "[A]\nk=a=b\n", "A", "k", "a=b"},
        ReadCase {"FirstOfTwoKeys", "[A]\nk=1\nK=2\n", "A", "k", "1"},
        ReadCase {"AKeyOfAnotherSection", "[A]\nj=1\n[B]\nk=2\n", "A", "k", "dflt"},
        ReadCase {"ACommentLine", "[A]\n;k=1\nk=2\n", "A", "k", "2"},
        ReadCase {"AByteOrderMark", "\xEF\xBB\xBF[A]\r\nk=1\r\n", "A", "k", "1"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ProfileFile, MissingFileOrKeyGivesTheDefaultWithoutTrailingBlanks) {
    EXPECT_EQ(Read("A", "k", "  d e \t "), "  d e");
    EXPECT_EQ(Read("A", "k", nullptr), "");
    EXPECT_FALSE(fs::exists(path_));
}

class ProfileReadBound : public ProfileFile, public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(ProfileReadBound, NeverWritesPastTheBuffer) {
    Put("[A]\nk=hello\n");
    const std::uint32_t size = GetParam();
    char buffer[16];
    std::memset(buffer, 'X', sizeof buffer);
    ProfileRead read {"k", "", buffer, size, 99};
    ProfileReadStrings(path_, "A", &read, 1);
    const std::uint32_t stored = size == 0 ? 0 : std::min(5u, size - 1);
    EXPECT_EQ(read.length, stored);
    EXPECT_EQ(std::string(buffer, stored), std::string("hello", stored));
    if (size > 0) {
        EXPECT_EQ(buffer[stored], '\0');
    }
    for (std::size_t i = size; i < sizeof buffer; ++i) EXPECT_EQ(buffer[i], 'X') << i;
}

INSTANTIATE_TEST_SUITE_P(Sizes, ProfileReadBound, ::testing::Values(0u, 1u, 5u, 6u));

TEST_F(ProfileFile, WritingCreatesTheFileAndReplacesAKeyWhereItStands) {
    path_ = JoinPath(JoinPath(dir_, "new"), "q.ini");
    ASSERT_TRUE(Write("A", "k", "1"));
    EXPECT_EQ(Text(), "[A]\r\nk=1\r\n");
    Put("; note\n[A]\nx=1\n K = old \ny=2\n\n[B]\nk=3\n");
    ASSERT_TRUE(Write("a", "k", "new"));
    EXPECT_EQ(Text(), "; note\r\n[A]\r\nx=1\r\nk=new\r\ny=2\r\n\r\n[B]\r\nk=3\r\n");
}

TEST_F(ProfileFile, NewKeysFollowTheSectionsLastKeyInOrder) {
    Put("[A]\nx=1\n\n[B]\ny=2");
    const ProfileWrite writes[] = {{"z", "3"}, {"x", "4"}, {"w", "5"}};
    ASSERT_TRUE(ProfileWriteStrings(path_, "A", writes, 3));
    EXPECT_EQ(Text(), "[A]\r\nx=4\r\nz=3\r\nw=5\r\n\r\n[B]\r\ny=2\r\n");
    ASSERT_TRUE(Write("C", "k", "6"));
    EXPECT_EQ(Text(), "[A]\r\nx=4\r\nz=3\r\nw=5\r\n\r\n[B]\r\ny=2\r\n[C]\r\nk=6\r\n");
    EXPECT_EQ(Read("c", "K"), "6");
}

TEST_F(ProfileFile, ALineBreakInAValueIsRefusedAndNoTemporaryFileStays) {
    Put("[A]\nk=1\n");
    EXPECT_FALSE(Write("A", "k", "2\r\nj=3"));
    EXPECT_EQ(Text(), "[A]\nk=1\n");
    ASSERT_TRUE(Write("A", "k", "2"));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 1);
    fs::create_directories(path_ + "x");  // a directory by the file's name is not replaced
    path_ += "x";
    EXPECT_FALSE(Write("A", "k", "1"));
}

TEST_F(ProfileFile, DirectorySearchMatchesWildcardsAndSkipsDirectories) {
    for (const char* name : {"QV_1_a.ini", "QV_1_bc.ini", "QV_1_.ini", "QV_12_c.ini",
                             "QV_1_e.ini.tmp9", "XQV_1_f.ini"})
        std::ofstream(JoinPath(dir_, name)) << "x";
    fs::create_directories(JoinPath(dir_, "QV_1_g.ini"));
    using Names = std::vector<std::string>;
    EXPECT_EQ(FindFiles(JoinPath(dir_, "QV_1_*.ini")), (Names {"QV_1_.ini", "QV_1_a.ini", "QV_1_bc.ini"}));
    EXPECT_EQ(FindFiles(JoinPath(dir_, "QV_1_?.ini")), (Names {"QV_1_a.ini"}));
    EXPECT_EQ(FindFiles(JoinPath(dir_, "*c.ini")), (Names {"QV_12_c.ini", "QV_1_bc.ini"}));
    EXPECT_TRUE(FindFiles(JoinPath(JoinPath(dir_, "none"), "*.ini")).empty());
}

}  // namespace
