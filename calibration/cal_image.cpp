#include "calibration/cal_image.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "device/transport.h"
#include "frame/shared_table.h"
#include "platform/platform.h"

namespace qv {

namespace {

constexpr std::uint8_t kChecksumRegion = 2;
constexpr std::uint8_t kChecksumPosHi = 0;
constexpr std::uint8_t kChecksumPosLo = 0x21;
constexpr std::int32_t kMaxCalBlock = 64000;
constexpr std::int32_t kPieceBytes = 64;
constexpr std::uint8_t kImagePosHi = 4;   // the image starts at position 1024
constexpr std::uint8_t kImagePosLo = 0;
constexpr std::int32_t kCalReadFailed = -3;

// Image layout: the calibration temperature, then one record per frequency point.
constexpr std::size_t kRecordBytes = 268;
constexpr std::size_t kHsHeader = 0;
constexpr std::size_t kLsHeader = 4;
constexpr std::size_t kHsEntries = 8;
constexpr std::size_t kLsEntries = 138;
constexpr std::size_t kEntryBytes = 5;

constexpr double XP[15] = {1e-7, 1e-6, 1e-5, 1e-4, 1e-3, 1e-2, 1e-1, 1e0,
                           1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7};

// Sign and magnitude: the top bit of the field is the sign.
int SignMagnitude4(unsigned v) { return v > 7 ? -static_cast<int>(v & 7) : static_cast<int>(v); }
int SignMagnitude14(unsigned v) { return v > 8191 ? -static_cast<int>(v & 0x1FFF) : static_cast<int>(v); }
int SignMagnitude10(unsigned v) { return v > 511 ? -static_cast<int>(v & 0x1FF) : static_cast<int>(v); }

void PutLittleEndian(std::uint32_t value, std::uint8_t* bytes) {
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::uint32_t GetLittleEndian(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

bool IsAsciiLetterOrDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// One path of one frequency record: scale header, then 26 level entries.
void DecodePath(const std::uint8_t* header, const std::uint8_t* entries, CalLevelPoint* levels) {
    const unsigned na = header[0] * 64u + (header[1] >> 2);
    const unsigned nb = (header[1] & 3u) * 256u + header[2];
    const int ea = SignMagnitude4(header[3] >> 4);
    const int eb = SignMagnitude4(header[3] & 15u);
    for (int j = 0; j < kCalLevels; ++j) {
        const std::uint8_t* e = entries + kEntryBytes * j;
        const unsigned z = e[0] * 256u + e[1];
        const int y = SignMagnitude14(e[2] * 64u + (e[3] >> 2));
        const int x = SignMagnitude10((e[3] & 3u) * 256u + e[4]);
        // A zero divisor only comes from a damaged header. Its coefficient becomes
        // 0 (no temperature correction) rather than inf or NaN, which would spoil
        // every temperature row and every reading built on them.
        levels[j].a = na != 0 ? (static_cast<double>(y) / na) * XP[ea + 7] : 0.0;
        levels[j].b = nb != 0 ? (static_cast<double>(x) / nb) * XP[eb + 7] : 0.0;
        levels[j].z = static_cast<double>(z);
    }
}

}  // namespace

std::int32_t ReadCalBlock(std::int64_t h, std::int32_t region, std::uint8_t* buffer,
                          std::int32_t length, std::uint8_t posHi, std::uint8_t posLo) {
    if (region != 2 && region != 6) return -1;
    if (length < 1 || length > kMaxCalBlock) return -2;
    // Every result is examined: a failed piece would otherwise leave a wrong
    // image that is cached, accepted later (the file's checksum sees only its
    // last 32 bytes) and whose checksum overwrites the sensor's own.
    std::uint8_t pointer[3] = {static_cast<std::uint8_t>(region), posHi, posLo};
    if (VendorRequestOut(h, kReqMemoryPointer, pointer, 3) != 3) return kCalReadFailed;
    for (std::int32_t done = 0; done < length; done += kPieceBytes) {
        const std::int32_t piece = std::min(kPieceBytes, length - done);
        if (VendorRequestIn(h, kReqMemoryRead, buffer + done, piece) != piece) return kCalReadFailed;
    }
    return length;
}

std::int32_t ReadCalChecksum(std::int64_t h, std::uint32_t* value) {
    std::uint8_t pointer[3] = {kChecksumRegion, kChecksumPosHi, kChecksumPosLo};
    VendorRequestOut(h, kReqMemoryPointer, pointer, 3);
    // The bytes land in the value as they arrive: a failed read leaves it as it was.
    std::uint8_t bytes[4];
    PutLittleEndian(*value, bytes);
    VendorRequestIn(h, kReqMemoryRead, bytes, 4);
    *value = GetLittleEndian(bytes);
    return 1;
}

std::int32_t WriteCalChecksum(std::int64_t h, std::uint32_t value) {
    std::uint8_t bytes[4];
    PutLittleEndian(value, bytes);
    return SensorMemoryWrite(h, kChecksumRegion,
                             static_cast<std::uint16_t>(kChecksumPosHi << 8 | kChecksumPosLo), bytes,
                             4, -4, -5);
}

std::uint32_t CalChecksum(std::size_t length, const std::uint8_t* bytes) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < length; ++i) sum = sum * 2u + bytes[i];
    return sum;
}

std::string CalCachePath(const char* serial) {
    if (serial == nullptr || *serial == '\0') return {};
    std::string name = "QV_CD_";
    // The serial comes from the caller: only ASCII letters and digits may reach the
    // file system (no separators, no dots, nothing a locale calls a letter). Upper
    // case, because a sensor is found by its serial without regard to case, and it
    // must find its cache however the caller spelt it.
    for (const char* c = serial; *c != '\0'; ++c) {
        if (!IsAsciiLetterOrDigit(*c)) return {};
        name += (*c >= 'a' && *c <= 'z') ? static_cast<char>(*c - 'a' + 'A') : *c;
    }
    name += ".dat";
    return platform::JoinPath(platform::DataDirectory(), name);
}

std::int32_t ReadCalCache(const char* serial, std::int32_t imageLength, std::uint8_t* image,
                          std::int32_t testLength, const std::uint8_t* test,
                          std::uint32_t sensorChecksum) {
    const std::string path = CalCachePath(serial);
    if (path.empty() || imageLength < 0) return -1;
    // The cache has one size: nothing larger is read. A file of any other size,
    // or anything that is not a regular file (a link, a FIFO, a device), was cut
    // short or is not ours: present, not valid, and replaced by the next write.
    const std::size_t size = static_cast<std::size_t>(imageLength) + 4;
    std::vector<std::uint8_t> file;
    const platform::FileRead read = platform::ReadFile(path, file, size);
    if (read == platform::FileRead::kMissing) return -1;
    if (read != platform::FileRead::kRead || file.size() != size) return 0;
    const std::uint32_t stored = GetLittleEndian(file.data() + imageLength);
    if (CalChecksum(static_cast<std::size_t>(imageLength), file.data()) != stored ||
        stored != sensorChecksum)
        return 0;
    const std::int32_t compared = std::clamp(testLength, 0, imageLength);
    if (std::memcmp(file.data(), test, static_cast<std::size_t>(compared)) != 0) return 0;
    std::memcpy(image, file.data(), static_cast<std::size_t>(imageLength));
    return 1;
}

std::int32_t WriteCalCache(const char* serial, std::int32_t imageLength, const std::uint8_t* image,
                           std::uint32_t* checksum) {
    const std::string path = CalCachePath(serial);
    if (path.empty() || imageLength < 0) return -1;
    const std::uint32_t sum = CalChecksum(static_cast<std::size_t>(imageLength), image);
    std::vector<std::uint8_t> file(static_cast<std::size_t>(imageLength) + 4);
    std::memcpy(file.data(), image, static_cast<std::size_t>(imageLength));
    PutLittleEndian(sum, file.data() + imageLength);
    // Written aside and renamed into place: a crash leaves the old file or the new
    // one, never a part that a later load would have to recognise.
    if (!platform::WriteFileAtomic(path, file.data(), file.size())) return -1;
    *checksum = sum;
    return 1;
}

namespace {
bool ReadImageFromSensor(std::int64_t h, std::uint8_t* image) {
    // A sensor that does not answer leaves zeros, not whatever the buffer held before.
    std::memset(image, 0, kCalImageBytes);
    return ReadCalBlock(h, 2, image, kCalPartOneBytes, kImagePosHi, kImagePosLo) ==
               kCalPartOneBytes &&
           ReadCalBlock(h, 6, image + kCalPartOneBytes, kCalPartTwoBytes, kImagePosHi,
                        kImagePosLo) == kCalPartTwoBytes;
}
}  // namespace

std::int32_t LoadCalImage(std::int64_t h, const char* serial, std::uint8_t* image) {
    std::uint8_t rawTest[kCalTestBytes] = {};
    ReadCalBlock(h, 2, rawTest, kCalTestBytes, kImagePosHi, kImagePosLo);
    std::uint32_t chkSum = 0;
    ReadCalChecksum(h, &chkSum);
    if (ReadCalCache(serial, kCalImageBytes, image, kCalTestBytes, rawTest, chkSum) == 1) return 1;

    // One failed request may be a passing disturbance: the image is read once
    // more. A second failure leaves the cache and the sensor's checksum alone.
    if (!ReadImageFromSensor(h, image) && !ReadImageFromSensor(h, image)) return -1;
    WriteCalCache(serial, kCalImageBytes, image, &chkSum);
    WriteCalChecksum(h, chkSum);
    return 1;
}

void DecodeCalImage(std::int32_t slot, const std::uint8_t* image) {
    if (slot < 0 || slot >= kSlotCount || tableView == nullptr) return;
    DeviceRecord& r = Slot(slot);
    r.calTmp = static_cast<double>(image[0] * 256u + image[1]);
    for (int i = 0; i < kCalFreqPoints; ++i) {
        const std::uint8_t* record = image + 2 + kRecordBytes * i;
        DecodePath(record + kHsHeader, record + kHsEntries, r.calPoints[i].hs);
        DecodePath(record + kLsHeader, record + kLsEntries, r.calPoints[i].ls);
    }
}

}  // namespace qv
