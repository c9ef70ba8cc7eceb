// Slot lookups: which slot each one takes when several could match.
#include <gtest/gtest.h>

#include <cstring>

#include "frame/lookups.h"
#include "frame/shared_table.h"
#include "platform/platform.h"
#include "support/slots.h"

using namespace qv;

namespace {

using qv::test::kOtherPid;

class Lookups : public ::testing::Test {
protected:
    void SetUp() override { qv::test::ClearSlots(); }
    void TearDown() override { qv::test::ClearSlots(); }

    static void Put(int slot, int inUse, std::uint32_t owner, const char* serial, int address, int devId) {
        qv::test::Claim(slot, serial, address, devId, owner, inUse);
    }

    const std::uint32_t me = platform::CurrentProcessId();
};

struct SerialCase {
    const char* a;
    const char* b;
    bool match;
};

class SerialMatch : public ::testing::TestWithParam<SerialCase> {};

TEST_P(SerialMatch, ComparesSixCharactersWithoutCase) {
    const SerialCase c = GetParam();
    EXPECT_EQ(SerialNumbersMatch(c.a, c.b), c.match);
    EXPECT_EQ(SerialNumbersMatch(c.b, c.a), c.match);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SerialMatch,
    ::testing::Values(SerialCase{"AbC12z", "aBc12Z", true}, SerialCase{"ABC123", "ABC124", false},
                      SerialCase{"ABC12", "ABC123", false}, SerialCase{"ABC123X", "ABC123Y", true},
                      SerialCase{"", "A", false}, SerialCase{nullptr, "ABC123", false}));

TEST_F(Lookups, IsDeviceMineJudgesTheFirstSlotInUseOnly) {
    Put(2, 1, kOtherPid, "OTHER1", 5, 1);
    Put(4, 1, me, "MINE01", 5, 2);
    EXPECT_EQ(IsDeviceMine_Addr(5), 0);  // the other's slot comes first
    EXPECT_EQ(IsDeviceMine_SN("MINE01"), 1);
    Put(2, 0, kOtherPid, "OTHER1", 5, 1);  // a free slot does not count
    EXPECT_EQ(IsDeviceMine_Addr(5), 1);
    Put(2, 2, kOtherPid, "OTHER1", 5, 1);  // any in-use value above 0 counts
    EXPECT_EQ(IsDeviceMine_Addr(5), 0);
    EXPECT_EQ(IsDeviceMine_Addr(6), 0);
    EXPECT_EQ(IsDeviceMine_SN("NOSUCH"), 0);
}

TEST_F(Lookups, GetOwnedSlotWantsInUseExactlyOneAndTheCallerAsOwner) {
    Put(1, 2, me, "MINE01", 7, 1);
    Put(3, 1, me, "MINE02", 7, 2);
    EXPECT_EQ(GetOwnedSlot_Addr(7), 3);
    Put(0, 1, kOtherPid, "OTHER1", 7, 3);
    EXPECT_EQ(GetOwnedSlot_Addr(7), -1);  // first match is not ours
    EXPECT_EQ(GetOwnedSlot_Addr(8), -1);
}

TEST_F(Lookups, IsDeviceInUseByAddressLooksAtTheFirstSlotWithThatAddress) {
    Put(1, 0, 0, "", 9, 0);
    Put(2, 1, me, "MINE01", 9, 1);
    EXPECT_EQ(IsDeviceInUse_Addr(9), 0);  // slot 1 comes first and is free
    Put(1, 1, kOtherPid, "OTHER1", 9, 2);
    EXPECT_EQ(IsDeviceInUse_Addr(9), 1);
    Put(1, 2, kOtherPid, "OTHER1", 9, 2);
    EXPECT_EQ(IsDeviceInUse_Addr(9), 0);  // exactly 1
}

TEST_F(Lookups, IsDeviceInUseBySerialAcceptsOneOrMore) {
    Put(5, 2, kOtherPid, "SER001", 4, 1);
    EXPECT_EQ(IsDeviceInUse_SN("ser001"), 1);
    Put(5, 0, 0, "SER001", 4, 1);
    EXPECT_EQ(IsDeviceInUse_SN("SER001"), 0);
}

TEST_F(Lookups, LookupByAddressTakesFreeSlotsToo) {
    Put(6, 0, 0, "FREE01", 12, 4);
    Put(8, 1, me, "MINE01", 12, 5);
    int32_t devId = 0, slot = 99;
    char serial[7] = "xxxxxx";
    EXPECT_EQ(LookupSlot_Addr(12, &devId, &slot, serial), 1);
    EXPECT_EQ(slot, 6);
    EXPECT_EQ(devId, 4);
    EXPECT_STREQ(serial, "FREE01");
    EXPECT_EQ(LookupSlot_Addr(13, &devId, &slot, serial), -1);
    EXPECT_EQ(slot, -1);
    EXPECT_EQ(serial[0], '\0');
}

TEST_F(Lookups, LookupByDeviceIndexCopiesTheWholeSerial) {
    Put(4, 1, kOtherPid, "DEV004", 33, 2);
    int32_t address = 0, slot = 0;
    char serial[7] = {};
    EXPECT_EQ(LookupSlot_DevId(2, &address, &slot, serial), 1);
    EXPECT_EQ(address, 33);
    EXPECT_EQ(slot, 4);
    EXPECT_STREQ(serial, "DEV004");
    EXPECT_EQ(LookupSlot_DevId(3, &address, &slot, serial), -1);
    EXPECT_EQ(address, -1);
    EXPECT_EQ(slot, -1);
}

TEST_F(Lookups, LookupBySerialWantsInUseExactlyOne) {
    Put(0, 2, me, "SER777", 1, 1);
    Put(9, 1, kOtherPid, "ser777", 2, 3);
    int32_t address = 0, devId = 0, slot = 0;
    EXPECT_EQ(LookupSlot_SN("SER777", &address, &devId, &slot), 1);
    EXPECT_EQ(slot, 9);
    EXPECT_EQ(address, 2);
    EXPECT_EQ(devId, 3);
    EXPECT_EQ(LookupSlot_SN("SER778", &address, &devId, &slot), -1);
    EXPECT_EQ(address, -1);
    EXPECT_EQ(slot, -1);
}

}  // namespace
