// The descriptor parsers on byte arrays: well-formed descriptors as devices
// send them, then every way of cutting or lying about lengths.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "usb/descriptors.h"

namespace {

using qvusb::Bytes;

const std::string kGuid = "{8BC86AFD-F393-458D-9A8D-AD9EEE178822}";

void Put16(Bytes& b, std::size_t v) { b.insert(b.end(), {std::uint8_t(v), std::uint8_t(v >> 8)}); }
void Put32(Bytes& b, std::size_t v) { Put16(b, v & 0xFFFF); Put16(b, v >> 16); }
Bytes Utf16(const std::string& s) {
    Bytes b;
    for (char c : s) Put16(b, static_cast<unsigned char>(c));
    return b;
}

// BOS: header, a USB 2.0 extension capability, the MS OS 2.0 platform capability.
Bytes Bos(std::uint8_t vendorCode, std::uint16_t setLength) {
    Bytes b = {5, 0x0F, 0, 0, 2, 7, 0x10, 0x02, 0, 0, 0, 0, 28, 0x10, 0x05, 0};
    const Bytes uuid = {0xDF, 0x60, 0xDD, 0xD8, 0x89, 0x45, 0xC7, 0x4C,
                        0x9C, 0xD2, 0x65, 0x9D, 0x9E, 0x64, 0x8A, 0x9F};
    b.insert(b.end(), uuid.begin(), uuid.end());
    Put32(b, 0x06030000);
    Put16(b, setLength);
    b.insert(b.end(), {vendorCode, 0});
    b[2] = static_cast<std::uint8_t>(b.size());
    return b;
}

// MS OS 2.0 set: header, configuration and function subsets, compatible ID, the
// GUID property (REG_MULTI_SZ: the GUID, an empty item ending the list).
Bytes Set20(const std::string& name, const std::string& value, std::uint16_t type = 7) {
    Bytes b;
    Put16(b, 10); Put16(b, 0); Put32(b, 0x06030000); Put16(b, 0);
    Put16(b, 8); Put16(b, 1); b.insert(b.end(), {0, 0}); Put16(b, 0);
    Put16(b, 8); Put16(b, 2); b.insert(b.end(), {0, 0}); Put16(b, 0);
    Bytes compat = {20, 0, 3, 0, 'W', 'I', 'N', 'U', 'S', 'B', 0, 0};
    compat.resize(20, 0);
    b.insert(b.end(), compat.begin(), compat.end());
    const Bytes n = Utf16(name + '\0'), d = Utf16(value + std::string(type == 7 ? 2 : 1, '\0'));
    Put16(b, 10 + n.size() + d.size()); Put16(b, 4); Put16(b, type); Put16(b, n.size());
    b.insert(b.end(), n.begin(), n.end());
    Put16(b, d.size());
    b.insert(b.end(), d.begin(), d.end());
    b[8] = static_cast<std::uint8_t>(b.size());
    return b;
}

Bytes ExtendedProperties10(const std::string& name, const std::string& value) {
    const Bytes n = Utf16(name + '\0'), d = Utf16(value + '\0');
    Bytes b;
    Put32(b, 0); Put16(b, 0x0100); Put16(b, 5); Put16(b, 1);
    Put32(b, 14 + n.size() + d.size()); Put32(b, 1); Put16(b, n.size());
    b.insert(b.end(), n.begin(), n.end());
    Put32(b, d.size());
    b.insert(b.end(), d.begin(), d.end());
    b[0] = static_cast<std::uint8_t>(b.size());
    return b;
}

TEST(MsOsDescriptors, WellFormedDescriptorsYieldTheSensorGuid) {
    const Bytes bos = Bos(0x21, 0xB2);
    const auto where = qvusb::FindMsOs20(bos.data(), bos.size());
    ASSERT_TRUE(where);
    EXPECT_EQ(where->vendorCode, 0x21);
    EXPECT_EQ(where->totalLength, 0xB2);

    for (const auto& set : {Set20("DeviceInterfaceGUIDs", kGuid), Set20("DeviceInterfaceGUID", kGuid, 1)}) {
        const auto guids = qvusb::MsOs20InterfaceGuids(set.data(), set.size());
        ASSERT_EQ(guids.size(), 1u);
        EXPECT_TRUE(qvusb::IsSensorInterfaceGuid(guids[0]));
    }
    const Bytes ext = ExtendedProperties10("DeviceInterfaceGUID", kGuid);
    const auto guids = qvusb::MsOs10InterfaceGuids(ext.data(), ext.size());
    ASSERT_EQ(guids.size(), 1u);
    EXPECT_EQ(guids[0], kGuid);

    Bytes signature = {18, 3};
    const Bytes msft = Utf16("MSFT100");
    signature.insert(signature.end(), msft.begin(), msft.end());
    signature.insert(signature.end(), {0x42, 0});
    EXPECT_EQ(qvusb::MsOs10VendorCode(signature.data(), signature.size()), 0x42);
    signature[4] = 'X';
    EXPECT_FALSE(qvusb::MsOs10VendorCode(signature.data(), signature.size()));
}

TEST(MsOsDescriptors, OtherPropertiesAndGuidsAreNotSensors) {
    const Bytes other = Set20("DeviceInterfaceGUIDs", "{00000000-F393-458D-9A8D-AD9EEE178822}");
    const auto guids = qvusb::MsOs20InterfaceGuids(other.data(), other.size());
    ASSERT_EQ(guids.size(), 1u);
    EXPECT_FALSE(qvusb::IsSensorInterfaceGuid(guids[0]));
    const Bytes label = Set20("Label", kGuid);
    EXPECT_TRUE(qvusb::MsOs20InterfaceGuids(label.data(), label.size()).empty());
    for (const std::string text : {"8bc86afd-f393-458d-9a8d-ad9eee178822", "{8bc86afd-f393-458d-9a8d-ad9eee178822}"})
        EXPECT_TRUE(qvusb::IsSensorInterfaceGuid(text)) << text;
    for (const std::string text : {"", "{8bc86afd-f393-458d-9a8d-ad9eee17882}", "{8bc86afd-f393-458d-9a8d-ad9eee178822"})
        EXPECT_FALSE(qvusb::IsSensorInterfaceGuid(text)) << text;
}

// Every prefix of a valid descriptor, and every single length byte set to each
// of a few hostile values: no crash (the sanitizer build reads past no end) and
// never a GUID that the bytes present do not hold.
TEST(MsOsDescriptors, TruncatedAndHostileDescriptorsAreRefusedSafely) {
    const Bytes bos = Bos(0x21, 0xB2);
    const Bytes set = Set20("DeviceInterfaceGUIDs", kGuid);
    const Bytes ext = ExtendedProperties10("DeviceInterfaceGUID", kGuid);
    for (std::size_t n = 0; n < bos.size(); ++n) {
        const Bytes cut(bos.begin(), bos.begin() + static_cast<long>(n));
        EXPECT_FALSE(qvusb::FindMsOs20(cut.data(), cut.size())) << n;
    }
    for (std::size_t n = 0; n < set.size(); ++n) {
        const Bytes cut(set.begin(), set.begin() + static_cast<long>(n));
        EXPECT_TRUE(qvusb::MsOs20InterfaceGuids(cut.data(), cut.size()).empty()) << n;
    }
    for (std::size_t n = 0; n < ext.size(); ++n) {
        const Bytes cut(ext.begin(), ext.begin() + static_cast<long>(n));
        EXPECT_TRUE(qvusb::MsOs10InterfaceGuids(cut.data(), cut.size()).empty()) << n;
    }
    for (const Bytes* original : {&bos, &set, &ext}) {
        for (std::size_t at = 0; at < original->size(); ++at) {
            for (std::uint8_t value : {0x00, 0x01, 0x03, 0x7F, 0xFF}) {
                Bytes bad = *original;
                bad[at] = value;
                (void)qvusb::FindMsOs20(bad.data(), bad.size());
                for (const auto& g : qvusb::MsOs20InterfaceGuids(bad.data(), bad.size())) EXPECT_LE(g.size(), bad.size());
                for (const auto& g : qvusb::MsOs10InterfaceGuids(bad.data(), bad.size())) EXPECT_LE(g.size(), bad.size());
                (void)qvusb::StringDescriptorText(bad.data(), bad.size());
            }
        }
    }
    EXPECT_FALSE(qvusb::FindMsOs20(nullptr, 100));
    EXPECT_TRUE(qvusb::MsOs20InterfaceGuids(nullptr, 100).empty());
}

TEST(StringDescriptors, TextIsEightBitAndEndsAtTheDescriptorOrItsFirstNul) {
    struct Case { Bytes bytes; std::optional<std::string> text; };
    const std::vector<Case> cases = {
        {{8, 3, 'A', 0, 'B', 0, '1', 0}, "AB1"},
        {{8, 3, 'A', 0, 0xE9, 0, 0x20, 0xAC}, "A\xE9?"},  // Latin-1 kept, the rest '?'
        {{8, 3, 'A', 0, 0, 0, 'C', 0}, "A"},
        {{2, 3}, ""},
        {{200, 3, 'A', 0, 'B', 0}, "AB"},                 // bLength beyond the bytes read
        {{7, 3, 'A', 0, 'B', 0, 'C'}, "AB"},              // odd length: the half unit is dropped
        {{8, 2, 'A', 0, 'B', 0, 'C', 0}, std::nullopt},   // not a string descriptor
        {{1, 3}, std::nullopt},
        {{}, std::nullopt},
    };
    for (const Case& c : cases) EXPECT_EQ(qvusb::StringDescriptorText(c.bytes.data(), c.bytes.size()), c.text);
    const Bytes languages = {4, 3, 0x07, 0x04};
    EXPECT_EQ(qvusb::FirstLanguage(languages.data(), languages.size()), 0x0407);
    EXPECT_EQ(qvusb::FirstLanguage(languages.data(), 2), 0x0409);
}

}  // namespace
