#include "device/transport.h"

#include <cstring>

#include "device/discovery.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"

namespace qv {

void TransientDevice::Close() {
    if (owned_) CloseDevice(handle_);
    handle_ = -1;
    owned_ = false;
}

std::int64_t OpenDevice_Idx(std::int32_t index) {
    // Indices start at 1; below that there is no device (and index - 1 must not overflow).
    if (index < 1) return -1;
    try {
        const QvDrvHandle h = driver::OpenDevHandle(index - 1);
        return (h > 0 && h != -1) ? h : -1;
    } catch (const DriverFault&) {
        return -1;
    }
}

std::int64_t OpenKnownDevice_Idx(std::int32_t index, const char* serial) {
    TransientDevice device(OpenDevice_Idx(index), true);
    if (!device.Valid()) return -1;
    char found[kSerialChars + 1] = {};
    const std::int32_t r = ReadSerialNumberString(device.get(), found, sizeof found);
    if (r < 1 || !SerialNumbersMatch(found, serial)) return -1;
    return device.Release();
}

std::int64_t CloseDevice(std::int64_t h) {
    if (!IsHandle(h)) return 0;
    try {
        driver::CloseDevHandle(h);
    } catch (const DriverFault&) {
        // Closing is best effort: the handle is forgotten either way.
    }
    return h;
}

namespace {
// Whether the place holds a sensor in use, which is reached only through its
// slot. A slot's remembered index goes stale when its sensor is unplugged and
// a later one moves up: the place counts as free only when its path names a
// sensor that is neither the slot's nor in any other slot.
bool PlaceInUse(std::int32_t index) {
    const std::int32_t slot = InUseSlotByDevId(index);
    if (slot == kNoSlot) return false;
    char here[kSerialChars + 1] = {};
    if (SerialFromDevicePath(index, here) != 1) return true;
    char prefix[kSerialChars + 1] = {};
    std::memcpy(prefix, here, strnlen(Slot(slot).serial, kSerialChars));
    return SerialNumbersMatch(prefix, Slot(slot).serial) || InUseSlotBySerial(here) != kNoSlot;
}
}  // namespace

std::int64_t OpenDevice_SN(const char* serial) {
    const std::int32_t n = DeviceCount();
    if (n < 1) return -1;
    // A sensor in use is reached only through its slot.
    if (InUseSlotBySerial(serial) != kNoSlot) return -1;
    for (std::int32_t i = 1; i <= n; ++i) {
        if (PlaceInUse(i)) continue;
        TransientDevice device(OpenDevice_Idx(i), true);
        if (!device.Valid()) continue;
        char found[100] = {};
        const std::int32_t r = ReadSerialNumberString(device.get(), found, sizeof found);
        if (r > 0 && SerialNumbersMatch(found, serial)) return device.Release();
    }
    return -1;
}

std::int64_t OpenDevice_Addr(std::int32_t address, bool* lent) {
    if (lent) *lent = false;
    const std::int32_t n = DeviceCount();
    if (n < 1) return -1;
    for (std::int32_t i = 1; i <= n; ++i) {
        std::int32_t slotAddress = -1, slot = kNoSlot;
        char serial[kSerialChars + 1] = {};
        TransientDevice device;
        bool fromSlot = false;
        if (LookupSlot_DevId(i, &slotAddress, &slot, serial) == 1) {
            if (slotAddress != address) continue;
            if (!OwnedByCaller(slot)) return -1;
            device.Reset(Slot(slot).deviceHandle, false);
            fromSlot = true;
        } else {
            device.Reset(OpenDevice_Idx(i), true);
        }
        if (!device.Valid()) return -1;
        std::int32_t found = 0;
        if (ReadSensorAddress(device.get(), &found) == 1 && found == address) {
            if (lent) *lent = fromSlot;
            return device.Release();
        }
    }
    return -1;
}

namespace {

std::int32_t VendorRequest(bool in, std::int64_t h, std::uint8_t request, std::uint8_t* buffer,
                           std::int32_t length) {
    try {
        // The driver is relied on to make this cheap; the handle is not closed.
        const QvDrvHandle winusb = driver::OpenWinUSBHandle(h);
        if (winusb == -1) return -2;
        return in ? driver::RequestIn(winusb, kRequestTypeVendor, request, buffer, length)
                  : driver::RequestOut(winusb, kRequestTypeVendor, request, buffer, length);
    } catch (const DriverFault&) {
        return -2;
    }
}

// Closes a WinUSB handle obtained for one string read, on every path.
class WinUsbScope {
public:
    explicit WinUsbScope(std::int64_t device) : handle_(driver::OpenWinUSBHandle(device)) {}
    ~WinUsbScope() {
        try {
            if (handle_ != -1) driver::CloseWinUSBHandle(handle_);
        } catch (const DriverFault&) {
        }
    }
    WinUsbScope(const WinUsbScope&) = delete;
    WinUsbScope& operator=(const WinUsbScope&) = delete;
    QvDrvHandle get() const { return handle_; }

private:
    QvDrvHandle handle_;
};

}  // namespace

std::int32_t VendorRequestOut(std::int64_t h, std::uint8_t request, std::uint8_t* buffer,
                              std::int32_t length) {
    return VendorRequest(false, h, request, buffer, length);
}

std::int32_t VendorRequestIn(std::int64_t h, std::uint8_t request, std::uint8_t* buffer,
                             std::int32_t length) {
    return VendorRequest(true, h, request, buffer, length);
}

bool CommandRequest(std::int64_t h, std::uint8_t request, std::int32_t length) {
    std::uint8_t reply[4] = {};
    const std::int32_t n = VendorRequestIn(h, request, reply, length);
    return n >= 1 && reply[0] == request;
}

std::int32_t ReadSerialNumberString(std::int64_t h, char* buffer, std::int32_t size) {
    if (!IsHandle(h)) return -5;
    try {
        std::int32_t length;
        {
            WinUsbScope winusb(h);
            length = driver::GetStringDescriptorLength(winusb.get(), QV_DRV_STRING_SERIAL);
        }
        if (length > size || length < 2) return length == 1 ? -2 : -3;
        WinUsbScope winusb(h);
        return driver::GetStringDescriptor(winusb.get(), QV_DRV_STRING_SERIAL, length, buffer);
    } catch (const DriverFault&) {
        return -5;
    }
}

std::int32_t ReadProductString(std::int64_t h, char* buffer, std::int32_t size) {
    if (!IsHandle(h)) return -5;
    try {
        WinUsbScope winusb(h);
        const std::int32_t length =
            driver::GetStringDescriptorLength(winusb.get(), QV_DRV_STRING_PRODUCT);
        if (length >= 1 && length < size)
            return driver::GetStringDescriptor(winusb.get(), QV_DRV_STRING_PRODUCT, size, buffer);
        return length == 1 ? -2 : -3;
    } catch (const DriverFault&) {
        return -5;
    }
}

std::int32_t SensorMemoryRead(std::int64_t h, std::uint8_t region, std::uint16_t position,
                              std::uint8_t* data, std::int32_t length) {
    std::uint8_t pointer[3] = {region, static_cast<std::uint8_t>(position >> 8),
                               static_cast<std::uint8_t>(position & 0xFF)};
    std::int32_t r = VendorRequestOut(h, kReqMemoryPointer, pointer, 3);
    if (r < 0) return r;
    r = VendorRequestIn(h, kReqMemoryRead, data, length);
    if (r < 0) return r;
    return 1;
}

std::int32_t SensorMemoryWrite(std::int64_t h, std::uint8_t region, std::uint16_t position,
                               const std::uint8_t* data, std::int32_t length,
                               std::int32_t noBeginEcho, std::int32_t noEndEcho) {
    std::uint8_t pointer[3] = {region, static_cast<std::uint8_t>(position >> 8),
                               static_cast<std::uint8_t>(position & 0xFF)};
    std::uint8_t payload[64];
    if (length < 0 || length > static_cast<std::int32_t>(sizeof payload)) return noBeginEcho;
    // Only the 252 and 253 echoes confirm a write; the other results say nothing.
    VendorRequestOut(h, kReqMemoryPointer, pointer, 3);
    if (!CommandRequest(h, kReqBeginWrite, 1)) return noBeginEcho;
    std::memcpy(payload, data, static_cast<std::size_t>(length));
    VendorRequestOut(h, kReqMemoryWrite, payload, length);
    if (!CommandRequest(h, kReqEndWrite, 1)) return noEndEcho;
    return 1;
}

}  // namespace qv
