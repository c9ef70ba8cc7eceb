// The twelve driver functions on libusb, plus one that tells how many USB
// devices could not be examined for lack of permission.
#include <libusb.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <type_traits>

#include "device/driver_abi.h"
#include "usb/descriptors.h"
#include "usb/qvusbdrvd.h"
#include "usb/usb_bus.h"
#include "device/driver_library.h"

using namespace qvusb;

namespace {

// Long enough for any vendor request of the sensor; a sensor that does not
// answer within it is treated as gone.
constexpr unsigned kControlTimeoutMs = 1000;
// Bulk transfers go out in pieces of at most 1 MiB. libusb splits a piece into
// the URBs the kernel takes (16 KiB each unless usbfs can scatter-gather) and
// keeps them in flight together; smaller pieces would cost a whole libusb
// transfer (submission, timer, event loop) per 16 KiB, and a cap keeps one
// read well within usbfs's machine-wide memory limit (16 MiB by default).
constexpr std::uint32_t kBulkPiece = 1u << 20;

bool IsSensorClass(const QvGuid* guid) {
    static const QvGuid kSensorClass = {
        0x8BC86AFDu, 0xF393u, 0x458Du, {0x9A, 0x8D, 0xAD, 0x9E, 0xEE, 0x17, 0x88, 0x22}};
    return guid != nullptr && guid->Data1 == kSensorClass.Data1 && guid->Data2 == kSensorClass.Data2 &&
           guid->Data3 == kSensorClass.Data3 && std::memcmp(guid->Data4, kSensorClass.Data4, 8) == 0;
}

// The string descriptor `index` as 8-bit text, or a negative libusb result.
int ReadString(OpenDevice& open, std::int32_t index, std::string& text) {
    if (index <= 0 || index > 255) return LIBUSB_ERROR_INVALID_PARAM;
    std::uint8_t buffer[255] = {};
    {
        std::lock_guard<std::mutex> lock(open.languageGuard);
        if (open.language == 0) {
            // A device that stalls the language list gets US English, as most answer to it.
            const int got = libusb_get_string_descriptor(open.handle, 0, 0, buffer, sizeof buffer);
            open.language = FirstLanguage(buffer, static_cast<std::size_t>(std::max(got, 0)));
        }
    }
    const int got = libusb_get_string_descriptor(open.handle, static_cast<std::uint8_t>(index), open.language,
                                                 buffer, sizeof buffer);
    if (got < 0) return got;
    const auto decoded = StringDescriptorText(buffer, static_cast<std::size_t>(got));
    if (!decoded) return LIBUSB_ERROR_IO;
    text = *decoded;
    return 0;
}

// The bmRequestType byte: requestType is either the type alone (1 class,
// 2 vendor) with `recipient`, or the complete byte (0x40, 0xC0, ...); the
// direction always follows the function called. Standard requests are not
// these functions' business.
int RequestTypeByte(bool in, std::int32_t requestType, std::int32_t recipient) {
    int byte = -1;
    if (requestType == 1 || requestType == 2) {
        if (recipient < 0 || recipient > 3) return -1;
        byte = (requestType << 5) | recipient;
    } else if (requestType >= 0x20 && requestType <= 0xFF) {
        byte = requestType & 0x7F;
        if ((byte & 0x60) == 0 || (byte & 0x60) == 0x60) return -1;
    } else {
        return -1;
    }
    return in ? (byte | LIBUSB_ENDPOINT_IN) : byte;
}

std::int32_t ControlRequest(bool in, QvDrvHandle winusb, std::int32_t requestType, std::int32_t recipient,
                            std::int32_t request, std::int32_t value, std::int32_t index, std::uint8_t* buffer,
                            std::int32_t length) {
    const int type = RequestTypeByte(in, requestType, recipient);
    if (type < 0 || request < 0 || request > 255 || value < 0 || value > 0xFFFF || index < 0 || index > 0xFFFF ||
        length < 0 || length > 0xFFFF || (length > 0 && buffer == nullptr))
        return LIBUSB_ERROR_INVALID_PARAM;
    const auto open = DeviceOfWinUsb(winusb);
    if (!open) return LIBUSB_ERROR_NOT_FOUND;
    const int result = libusb_control_transfer(open->handle, static_cast<std::uint8_t>(type),
                                               static_cast<std::uint8_t>(request), static_cast<std::uint16_t>(value),
                                               static_cast<std::uint16_t>(index), buffer,
                                               static_cast<std::uint16_t>(length), kControlTimeoutMs);
    return result >= 0 ? result : Failure(result);
}

// A bulk transfer of `length` bytes in pieces within one overall time-out. A
// time-out of 0 takes what comes within 1 ms rather than waiting for ever: a
// transfer that never ends would hold the machine-wide lock for good. 1 when
// it ended normally (short or whole), 0 when it timed out before any byte
// moved, a negative libusb result when it failed (a stalled pipe is cleared
// for the next transfer).
std::int32_t BulkTransfer(std::uint8_t endpoint, QvDrvHandle winusb, std::uint8_t* buffer, std::uint32_t length,
                          std::uint32_t* transferred, std::uint32_t timeoutMs) {
    if (transferred == nullptr || (length > 0 && buffer == nullptr)) return LIBUSB_ERROR_INVALID_PARAM;
    *transferred = 0;
    const auto open = DeviceOfWinUsb(winusb);
    if (!open) return LIBUSB_ERROR_NOT_FOUND;
    using Clock = std::chrono::steady_clock;
    timeoutMs = std::max<std::uint32_t>(timeoutMs, 1);
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::uint32_t done = 0;
    int result = 0;
    do {
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (ms <= 0) {
            result = LIBUSB_ERROR_TIMEOUT;
            break;
        }
        const auto left = static_cast<unsigned>(ms);
        const std::uint32_t piece = std::min(length - done, kBulkPiece);
        int moved = 0;
        result = libusb_bulk_transfer(open->handle, endpoint, buffer + done, static_cast<int>(piece), &moved, left);
        done += static_cast<std::uint32_t>(std::max(moved, 0));
        if (result != 0 || static_cast<std::uint32_t>(moved) < piece) break;
    } while (done < length);
    *transferred = done;
    if (result == 0 || (result == LIBUSB_ERROR_TIMEOUT && done > 0)) return 1;
    if (result == LIBUSB_ERROR_TIMEOUT) return 0;
    if (result == LIBUSB_ERROR_PIPE) libusb_clear_halt(open->handle, endpoint);
    return Failure(result);
}

}  // namespace

extern "C" {

int32_t QV_USBDRVD_GetDevCount(const QvGuid* classGuid) {
    if (!IsSensorClass(classGuid)) return 0;
    return static_cast<int32_t>(ListSensors().size());
}

int32_t QV_USBDRVD_GetDevicePath(int32_t index0, const QvGuid* classGuid, QvWideChar* path, int32_t pathChars) {
    if (!IsSensorClass(classGuid) || path == nullptr || pathChars <= 0 || index0 < 0) return 0;
    const auto sensors = ListSensors();
    if (static_cast<std::size_t>(index0) >= sensors.size()) return 0;
    return WriteDevicePath(DevicePath(*sensors[static_cast<std::size_t>(index0)]), path, pathChars);
}

QvDrvHandle QV_USBDRVD_OpenDevHandle(int32_t index0, int32_t /*flags*/, const QvGuid* classGuid) {
    if (!IsSensorClass(classGuid)) return QV_DRV_INVALID_HANDLE;
    const std::int64_t handle = OpenHandle(index0);
    return handle > 0 ? handle : QV_DRV_INVALID_HANDLE;
}

int32_t QV_USBDRVD_CloseDevHandle(QvDrvHandle device) { return CloseHandle(device) ? 1 : 0; }

QvDrvHandle QV_USBDRVD_OpenWinUSBHandle(QvDrvHandle device) { return WinUsbOf(device); }

int32_t QV_USBDRVD_CloseWinUSBHandle(QvDrvHandle winusb) {
    // Nothing to free: it lives as long as its device handle.
    return DeviceOfWinUsb(winusb) ? 1 : 0;
}

// The second argument (27) is passed through by the library unchanged and has
// no meaning here.
int32_t QV_USBDRVD_GetStringDescriptorLengthA(QvDrvHandle winusb, int32_t, int32_t stringIndex) {
    const auto open = DeviceOfWinUsb(winusb);
    if (!open) return LIBUSB_ERROR_NOT_FOUND;
    std::string text;
    const int result = ReadString(*open, stringIndex, text);
    return result < 0 ? Failure(result) : static_cast<int32_t>(text.size() + 1);
}

int32_t QV_USBDRVD_GetStringDescriptorA(QvDrvHandle winusb, int32_t, int32_t stringIndex, int32_t length,
                                        char* buffer) {
    if (length <= 0 || buffer == nullptr) return LIBUSB_ERROR_INVALID_PARAM;
    const auto open = DeviceOfWinUsb(winusb);
    if (!open) return LIBUSB_ERROR_NOT_FOUND;
    std::string text;
    const int result = ReadString(*open, stringIndex, text);
    if (result < 0) return Failure(result);
    // A buffer too small gets as much as fits, still terminated.
    const auto characters = std::min<std::size_t>(text.size(), static_cast<std::size_t>(length - 1));
    std::memcpy(buffer, text.data(), characters);
    buffer[characters] = '\0';
    return static_cast<int32_t>(characters + 1);
}

int32_t QV_USBDRVD_VendorOrClassRequestOut(QvDrvHandle winusb, int32_t requestType, int32_t recipient, int32_t request,
                                           int32_t value, int32_t index, uint8_t* buffer, int32_t length) {
    return ControlRequest(false, winusb, requestType, recipient, request, value, index, buffer, length);
}

int32_t QV_USBDRVD_VendorOrClassRequestIn(QvDrvHandle winusb, int32_t requestType, int32_t recipient, int32_t request,
                                          int32_t value, int32_t index, uint8_t* buffer, int32_t length) {
    return ControlRequest(true, winusb, requestType, recipient, request, value, index, buffer, length);
}

int32_t QV_USBDRVD_PipeReadTimeout(QvDrvHandle winusb, int32_t pipe, uint8_t* buffer, uint32_t length,
                                   uint32_t* transferred, uint32_t timeoutMs) {
    if (transferred != nullptr) *transferred = 0;
    if (pipe != QV_DRV_PIPE_IN) return LIBUSB_ERROR_INVALID_PARAM;
    return BulkTransfer(QV_DRV_PIPE_IN, winusb, buffer, length, transferred, timeoutMs);
}

int32_t QV_USBDRVD_PipeWriteTimeout(QvDrvHandle winusb, int32_t pipe, uint8_t* buffer, uint32_t length,
                                    uint32_t* transferred, uint32_t timeoutMs) {
    if (transferred != nullptr) *transferred = 0;
    if (pipe != QV_DRV_PIPE_OUT) return LIBUSB_ERROR_INVALID_PARAM;
    return BulkTransfer(QV_DRV_PIPE_OUT, winusb, buffer, length, transferred, timeoutMs);
}

int32_t qvusbdrvd_denied_devices(void) {
    ListSensors();
    return DeniedDevices();
}

}  // extern "C"
