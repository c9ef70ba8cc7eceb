#include "usb/descriptors.h"

#include <algorithm>
#include <cctype>

namespace qvusb {

const char* const kSensorGuidText = "{8bc86afd-f393-458d-9a8d-ad9eee178822}";

namespace {

constexpr std::uint8_t kTypeString = 0x03;
constexpr std::uint8_t kTypeBos = 0x0F;
constexpr std::uint8_t kTypeDeviceCapability = 0x10;
constexpr std::uint8_t kCapabilityPlatform = 0x05;

// {D8DD60DF-4589-4CC7-9CD2-659D9E648A9F} in its on-the-wire (mixed-endian) layout.
constexpr std::uint8_t kMsOs20PlatformUuid[16] = {0xDF, 0x60, 0xDD, 0xD8, 0x89, 0x45, 0xC7, 0x4C,
                                                  0x9C, 0xD2, 0x65, 0x9D, 0x9E, 0x64, 0x8A, 0x9F};

constexpr std::uint16_t kMsOs20SetHeader = 0x00;
constexpr std::uint16_t kMsOs20RegistryProperty = 0x04;
constexpr std::uint16_t kMsOs20HeaderLength = 10;

constexpr std::uint32_t kRegSz = 1;
constexpr std::uint32_t kRegMultiSz = 7;

std::uint16_t U16(const std::uint8_t* p) { return static_cast<std::uint16_t>(p[0] | (p[1] << 8)); }

std::uint32_t U32(const std::uint8_t* p) {
    return std::uint32_t{p[0]} | (std::uint32_t{p[1]} << 8) | (std::uint32_t{p[2]} << 16) |
           (std::uint32_t{p[3]} << 24);
}

// UTF-16LE code units as 8-bit text, NULs kept (they separate REG_MULTI_SZ items).
std::string Narrow(const std::uint8_t* p, std::size_t bytes) {
    std::string text;
    text.reserve(bytes / 2);
    for (std::size_t i = 0; i + 1 < bytes; i += 2) {
        const std::uint16_t unit = U16(p + i);
        text.push_back(unit < 0x100 ? static_cast<char>(unit) : '?');
    }
    return text;
}

std::string UpToNul(const std::string& text) { return text.substr(0, text.find('\0')); }

bool IsInterfaceGuidName(const std::string& name) {
    return name == "DeviceInterfaceGUID" || name == "DeviceInterfaceGUIDs";
}

// The values of one registry property whose name is one of the interface-GUID
// names: one for REG_SZ, each item for REG_MULTI_SZ; nothing otherwise.
void AddGuids(std::uint32_t type, const std::string& name, const std::string& data,
              std::vector<std::string>& out) {
    if (!IsInterfaceGuidName(UpToNul(name))) return;
    if (type == kRegSz) {
        const std::string value = UpToNul(data);
        if (!value.empty()) out.push_back(value);
    } else if (type == kRegMultiSz) {
        std::size_t start = 0;
        while (start < data.size()) {
            const std::size_t end = std::min(data.find('\0', start), data.size());
            if (end == start) break;  // the empty item ends the list
            out.push_back(data.substr(start, end - start));
            start = end + 1;
        }
    }
}

}  // namespace

std::optional<MsOs20Location> FindMsOs20(const std::uint8_t* bos, std::size_t size) {
    if (bos == nullptr || size < 5 || bos[0] < 5 || bos[1] != kTypeBos) return std::nullopt;
    const std::size_t total = std::min<std::size_t>(U16(bos + 2), size);
    for (std::size_t at = bos[0]; at + 3 <= total;) {
        const std::size_t length = bos[at];
        if (length < 3 || at + length > total) break;
        const std::uint8_t* cap = bos + at;
        // Platform capability: header 4, UUID 16, then descriptor-set records of 8.
        if (cap[1] == kTypeDeviceCapability && cap[2] == kCapabilityPlatform && length >= 28 &&
            std::equal(kMsOs20PlatformUuid, kMsOs20PlatformUuid + 16, cap + 4)) {
            for (std::size_t r = 20; r + 8 <= length; r += 8) {
                MsOs20Location where{cap[r + 6], U16(cap + r + 4)};
                if (where.totalLength >= kMsOs20HeaderLength) return where;
            }
        }
        at += length;
    }
    return std::nullopt;
}

std::vector<std::string> MsOs20InterfaceGuids(const std::uint8_t* set, std::size_t size) {
    std::vector<std::string> guids;
    if (set == nullptr || size < kMsOs20HeaderLength || U16(set) != kMsOs20HeaderLength ||
        U16(set + 2) != kMsOs20SetHeader)
        return guids;
    const std::size_t total = std::min<std::size_t>(U16(set + 8), size);
    // Subset headers are 8 bytes long whatever their subset length says, so one
    // flat walk visits every descriptor of every subset.
    for (std::size_t at = kMsOs20HeaderLength; at + 4 <= total;) {
        const std::size_t length = U16(set + at);
        if (length < 4 || at + length > total) break;
        const std::uint8_t* d = set + at;
        if (U16(d + 2) == kMsOs20RegistryProperty && length >= 8) {
            const std::uint32_t type = U16(d + 4);
            const std::size_t nameLength = U16(d + 6);
            if (8 + nameLength + 2 <= length) {
                const std::size_t dataLength = U16(d + 8 + nameLength);
                if (8 + nameLength + 2 + dataLength <= length)
                    AddGuids(type, Narrow(d + 8, nameLength), Narrow(d + 10 + nameLength, dataLength),
                             guids);
            }
        }
        at += length;
    }
    return guids;
}

std::optional<std::uint8_t> MsOs10VendorCode(const std::uint8_t* descriptor, std::size_t size) {
    static const char kSignature[] = "MSFT100";
    if (descriptor == nullptr || size < 18 || descriptor[0] < 18 || descriptor[1] != kTypeString)
        return std::nullopt;
    if (Narrow(descriptor + 2, 14) != std::string(kSignature, 7)) return std::nullopt;
    return descriptor[16];
}

std::vector<std::string> MsOs10InterfaceGuids(const std::uint8_t* descriptor, std::size_t size) {
    std::vector<std::string> guids;
    // Header: dwLength, bcdVersion 1.00, wIndex 5, wCount.
    if (descriptor == nullptr || size < 10 || U16(descriptor + 4) != 0x0100 || U16(descriptor + 6) != 5)
        return guids;
    const std::size_t total = std::min<std::size_t>(U32(descriptor), size);
    std::size_t at = 10;
    for (unsigned n = U16(descriptor + 8); n > 0 && at + 14 <= total; --n) {
        const std::uint8_t* s = descriptor + at;
        const std::size_t sectionSize = U32(s);
        if (sectionSize < 14 || sectionSize > total - at) break;
        const std::uint32_t type = U32(s + 4);
        const std::size_t nameLength = U16(s + 8);
        if (10 + nameLength + 4 <= sectionSize) {
            const std::size_t dataLength = U32(s + 10 + nameLength);
            if (dataLength <= sectionSize - (14 + nameLength))
                AddGuids(type, Narrow(s + 10, nameLength), Narrow(s + 14 + nameLength, dataLength), guids);
        }
        at += sectionSize;
    }
    return guids;
}

std::optional<std::string> StringDescriptorText(const std::uint8_t* descriptor, std::size_t size) {
    if (descriptor == nullptr || size < 2 || descriptor[1] != kTypeString || descriptor[0] < 2)
        return std::nullopt;
    const std::size_t length = std::min<std::size_t>(descriptor[0], size);
    return UpToNul(Narrow(descriptor + 2, length - 2));
}

std::uint16_t FirstLanguage(const std::uint8_t* descriptor, std::size_t size) {
    if (descriptor == nullptr || size < 4 || descriptor[0] < 4 || descriptor[1] != kTypeString) return 0x0409;
    return U16(descriptor + 2);
}

bool IsSensorInterfaceGuid(const std::string& text) {
    std::string bare = text;
    if (bare.size() == 38 && bare.front() == '{' && bare.back() == '}') bare = bare.substr(1, 36);
    const std::string wanted = std::string(kSensorGuidText).substr(1, 36);
    return bare.size() == wanted.size() &&
           std::equal(bare.begin(), bare.end(), wanted.begin(), [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) == b;
           });
}

}  // namespace qvusb
