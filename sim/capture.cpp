// Capture files: every transfer a sensor sends on pipe 0x82, with the request that
// started it, so that a reading can be taken again outside the library, or served
// again in place of the signal model. Format in docs/sim.md; all numbers
// little-endian.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "sensor.h"

namespace qvsim {

namespace {

constexpr char kFileMagic[8] = {'Q', 'V', 'S', 'I', 'M', 'C', 'A', 'P'};
constexpr std::uint32_t kFileVersion = 1;
constexpr std::uint32_t kFileHeaderBytes = 128;
constexpr std::uint32_t kRecordHeaderBytes = 32;
constexpr std::uint32_t kRecordMark = 0x52435651u;  // "QVCR"

void Put32(std::uint8_t* at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) at[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::uint32_t Get32(const std::uint8_t* at) {
    return std::uint32_t{at[0]} | std::uint32_t{at[1]} << 8 | std::uint32_t{at[2]} << 16 | std::uint32_t{at[3]} << 24;
}

// Every process that moves the bytes opens the file, so it is named absolutely.
bool AbsolutePath(const char* path, char (&out)[kFilePathChars]) {
    if (path == nullptr || *path == '\0') return false;
    std::error_code error;
    const std::string absolute = std::filesystem::absolute(path, error).string();
    if (error || absolute.size() >= kFilePathChars) return false;
    std::memset(out, 0, sizeof out);
    std::memcpy(out, absolute.data(), absolute.size());
    return true;
}

// 193 and 194 both start measurement runs; their bytes are one kind.
int KindOf(int request) { return request == 194 ? 193 : request; }

}  // namespace

int CaptureBegin(SensorRecord& sensor, const char* path) {
    char absolute[kFilePathChars];
    if (!AbsolutePath(path, absolute)) return QVSIM_E_ARG;
    std::uint8_t header[kFileHeaderBytes] = {};
    std::memcpy(header, kFileMagic, sizeof kFileMagic);
    Put32(header + 8, kFileVersion);
    Put32(header + 12, kFileHeaderBytes);
    Put32(header + 16, kRecordHeaderBytes);
    Put32(header + 20, 0x82);
    Put32(header + 24, static_cast<std::uint32_t>(sensor.detector.modelIndex));
    Put32(header + 28, sensor.detector.calTemperature);
    std::memcpy(header + 32, sensor.identity.serial, QVSIM_TEXT_CHARS);
    std::memcpy(header + 64, sensor.identity.product, QVSIM_LONG_TEXT_CHARS);
    std::FILE* file = std::fopen(absolute, "wb");
    if (file == nullptr) return QVSIM_E_IO;
    const bool written = std::fwrite(header, 1, sizeof header, file) == sizeof header;
    if (std::fclose(file) != 0 || !written) return QVSIM_E_IO;
    std::memcpy(sensor.files.capturePath, absolute, sizeof absolute);
    sensor.files.captureTransfers = 0;
    sensor.files.captureFailures = 0;
    return QVSIM_OK;
}

void CaptureTransfer(SensorRecord& sensor, const PipeSource& source, std::uint32_t asked, std::uint32_t timeoutMs,
                     const std::uint8_t* data, std::uint32_t moved) {
    PipeFiles& files = sensor.files;
    if (files.capturePath[0] == '\0') return;
    std::uint8_t header[kRecordHeaderBytes] = {};
    Put32(header, kRecordMark);
    Put32(header + 4, files.captureTransfers);
    header[8] = source.request;
    header[9] = source.payloadLength;
    std::memcpy(header + 10, source.payload, sizeof source.payload);
    header[14] = 0x82;
    Put32(header + 16, asked);
    Put32(header + 20, timeoutMs);
    Put32(header + 24, moved);
    Put32(header + 28, static_cast<std::uint32_t>(sensor.temperature));
    std::FILE* file = std::fopen(files.capturePath, "ab");
    bool written = file != nullptr && std::fwrite(header, 1, sizeof header, file) == sizeof header &&
                   (moved == 0 || std::fwrite(data, 1, moved, file) == moved);
    if (file != nullptr && std::fclose(file) != 0) written = false;
    if (written) ++files.captureTransfers;
    else ++files.captureFailures;
}

int ReplayBegin(SensorRecord& sensor, const char* path) {
    char absolute[kFilePathChars];
    if (!AbsolutePath(path, absolute)) return QVSIM_E_ARG;
    std::FILE* file = std::fopen(absolute, "rb");
    if (file == nullptr) return QVSIM_E_IO;
    std::uint8_t header[kFileHeaderBytes] = {};
    const bool read = std::fread(header, 1, sizeof header, file) == sizeof header;
    std::fclose(file);
    if (!read || std::memcmp(header, kFileMagic, sizeof kFileMagic) != 0 || Get32(header + 8) != kFileVersion ||
        Get32(header + 16) != kRecordHeaderBytes)
        return QVSIM_E_BAD_FILE;
    PipeFiles& files = sensor.files;
    std::memcpy(files.replayPath, absolute, sizeof absolute);
    files.replayOffset = Get32(header + 12);
    files.replayRecordLeft = 0;
    files.replayEnded = 0;
    return QVSIM_OK;
}

std::uint32_t ReplayTake(SensorRecord& sensor, int request, std::uint8_t* out, std::uint32_t length) {
    PipeFiles& files = sensor.files;
    if (files.replayEnded != 0) return 0;
    std::FILE* file = std::fopen(files.replayPath, "rb");
    if (file == nullptr) return 0;
    std::uint32_t taken = 0;
    while (taken < length) {
        if (files.replayRecordLeft == 0) {
            // The next record of this kind; records of other kinds are passed over.
            std::uint8_t header[kRecordHeaderBytes];
            if (std::fseek(file, static_cast<long>(files.replayOffset), SEEK_SET) != 0 ||
                std::fread(header, 1, sizeof header, file) != sizeof header || Get32(header) != kRecordMark) {
                files.replayEnded = 1;
                break;
            }
            const std::uint32_t bytes = Get32(header + 24);
            files.replayOffset += kRecordHeaderBytes;
            if (KindOf(header[8]) != KindOf(request)) {
                files.replayOffset += bytes;
                continue;
            }
            files.replayRecordLeft = bytes;
            continue;
        }
        const std::uint32_t wanted = std::min(length - taken, files.replayRecordLeft);
        if (std::fseek(file, static_cast<long>(files.replayOffset), SEEK_SET) != 0) break;
        const auto got = static_cast<std::uint32_t>(std::fread(out + taken, 1, wanted, file));
        taken += got;
        files.replayOffset += got;
        files.replayRecordLeft -= got;
        if (got < wanted) {
            files.replayEnded = 1;  // the file ends inside a record
            break;
        }
    }
    std::fclose(file);
    return taken;
}

}  // namespace qvsim
