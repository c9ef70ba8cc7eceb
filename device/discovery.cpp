#include "device/discovery.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "calibration/ownership.h"
#include "platform/platform.h"
#include "device/transport.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"

namespace qv {

std::int32_t DeviceCount() {
    try {
        return driver::GetDevCount();
    } catch (const DriverFault&) {
        return -2;
    }
}

std::int32_t ReadSensorAddress(std::int64_t h, std::int32_t* address) {
    std::uint8_t value = 0;
    const std::int32_t r = SensorMemoryRead(h, kAddressRegion, kAddressPosition, &value, 1);
    if (r < 0) return r;
    *address = value;
    return 1;
}

std::int32_t WriteSensorAddress(std::int64_t h, std::int32_t address) {
    if (address < 1 || address > 255) return -1;
    const std::uint8_t value = static_cast<std::uint8_t>(address);
    return SensorMemoryWrite(h, kAddressRegion, kAddressPosition, &value, 1, -4, -5);
}

std::int32_t SerialFromDevicePath(std::int32_t index, char* serial) {
    const std::int32_t device = DeviceIndexMagnitude(index);
    const std::int32_t n = DeviceCount();
    if (device < 1 || n < device) return -5;
    std::string path;
    try {
        path = driver::GetDevicePath(device - 1);
    } catch (const DriverFault&) {
        return -5;
    }
    const std::size_t first = path.find('#');
    const std::size_t second = first == std::string::npos ? first : path.find('#', first + 1);
    if (second == std::string::npos || path.size() < second + 1 + kSerialChars) return -5;
    char found[kSerialChars + 1] = {};
    for (int i = 0; i < kSerialChars; ++i) {
        const char c = path[second + 1 + i];
        found[i] = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
        serial[i] = found[i];
    }
    std::int32_t address = 0, devId = 0, slot = kNoSlot;
    if (LookupSlot_SN(found, &address, &devId, &slot) == 1 && devId != device)
        Slot(slot).devId = device;
    return 1;
}

std::int32_t GetIndex_Addr(std::int32_t address) {
    if (address < 0 || address > 255) return -1;
    const std::int32_t n = DeviceCount();
    if (n < 1) return 0;
    for (std::int32_t i = 1; i <= n; ++i) {
        const std::int32_t slot = InUseSlotByDevId(i);
        if (slot != kNoSlot) {
            if (Slot(slot).address == address) return i;
            continue;
        }
        TransientDevice device(OpenDevice_Idx(i), true);
        if (!device.Valid()) return -5;
        std::int32_t tempAddr = 0;
        const bool read = ReadSensorAddress(device.get(), &tempAddr) == 1;
        device.Close();
        if (read && tempAddr == address) return i;
    }
    return 0;
}

}  // namespace qv

// ---------------------------------------------------------------- validity rules

namespace qv {

// Process ids the stale-owner sweep asks for: every process, in practice.
constexpr std::size_t kMaxProcessIds = 1u << 20;

std::int32_t DeviceIndexMagnitude(std::int32_t index) {
    if (index == INT32_MIN) return -1;
    return index < 0 ? -index : index;
}

bool IsValidSerialNumber(const char* serial) {
    if (!serial) return false;
    // The caller's text may have no terminator within its buffer: never more
    // than one byte past the longest valid serial is read.
    std::size_t n = 0;
    while (n <= kSerialChars && serial[n] != '\0') ++n;
    return n == 5 || n == 6;
}

bool IsValidAddress(std::int32_t address) { return address >= 1 && address <= 255; }

bool IsValidDeviceIndex(std::int32_t index) { return index >= 1 && index <= DeviceCount(); }

bool IsByteAddress(std::int32_t address) { return address >= 0 && address <= 255; }

namespace {

// A sensor as one operation reaches it: through the caller's slot, or opened
// for this operation alone and closed on every path out of it.
//
// A slot whose initialisation failed keeps its serial, address and index but
// holds no sensor, so only slots in use (in-use exactly 1) stand for a sensor here.
struct Reach {
    std::int32_t slot = kNoSlot;
    bool othersSlot = false;
    TransientDevice device;
};

void UseSlot(Reach& reach, std::int32_t slot) {
    reach.slot = slot;
    reach.othersSlot = !OwnedByCaller(slot);
    if (!reach.othersSlot) reach.device.Reset(Slot(slot).deviceHandle, false);
}

// The sensor with this serial number: through the slot in use that holds it,
// else opened for this operation.
void ReachBySerial(Reach& reach, const char* serial) {
    const std::int32_t slot = InUseSlotBySerial(serial);
    if (slot != kNoSlot) UseSlot(reach, slot);
    else reach.device.Reset(OpenDevice_SN(serial), true);
}

// The same for device `index`.
void ReachByIndex(Reach& reach, std::int32_t index) {
    const std::int32_t slot = InUseSlotByDevId(index);
    if (slot != kNoSlot) UseSlot(reach, slot);
    else reach.device.Reset(OpenDevice_Idx(index), true);
}

// The address of device `index` for the conflict checks: from its slot, else
// read from the sensor. 1 with the address, 0 when unreadable, -5 when it
// cannot be opened.
std::int32_t AddressOfDevice(std::int32_t index, std::int32_t* address) {
    const std::int32_t slot = InUseSlotByDevId(index);
    if (slot != kNoSlot) {
        *address = Slot(slot).address;
        return 1;
    }
    TransientDevice device(OpenDevice_Idx(index), true);
    if (!device.Valid()) return -5;
    return ReadSensorAddress(device.get(), address) == 1 ? 1 : 0;
}

}  // namespace

std::int32_t BlinkLED(std::int64_t h) {
    for (int flash = 0; flash < 4; ++flash) {
        std::uint8_t reply[1] = {};
        if (VendorRequestIn(h, kReqLedOn, reply, 1) < 1) return -2;
        platform::SleepMs(125);
        if (VendorRequestIn(h, kReqLedOff, reply, 1) < 1) return -2;
        platform::SleepMs(125);
    }
    return 1;
}

std::int32_t SensorCnt() { return DeviceCount(); }

std::int32_t SensorList(SensorListEntry* list, std::int32_t length) {
    if (!list || length < 0) return -1;
    const std::int32_t n = DeviceCount();
    // Stale-owner sweep. All running processes are asked for, not only the
    // first 4,096: a live owner must never be taken for a dead one.
    const std::vector<std::uint32_t> running = platform::RunningProcessIds(kMaxProcessIds);
    if (!running.empty()) {
        for (int s = 0; s < kSlotCount; ++s) {
            const DeviceRecord& r = Slot(s);
            if (r.ownerPid == 0) continue;  // free, or never owned: nothing to reclaim
            if (std::find(running.begin(), running.end(), r.ownerPid) == running.end()) {
                platform::Log("sensor %.*s (address %d) reclaimed from process %u, which has ended",
                              static_cast<int>(sizeof r.serial), r.serial, static_cast<int>(r.address),
                              static_cast<unsigned>(r.ownerPid));
                UninitializeSlot(s);
            }
        }
    }
    if (n < 1) return 1;
    // Never beyond the caller's length: a list that does not fit is filled as
    // far as it goes and the call fails.
    const std::int32_t fit = std::min(n, length);
    for (std::int32_t i = 1; i <= fit; ++i) {
        char tmpSN[kSerialChars + 1] = {};
        SerialFromDevicePath(i, tmpSN);
        list[i - 1].DeviceIndex = i;
        std::memcpy(list[i - 1].SerialNumber, tmpSN, sizeof tmpSN);
    }
    for (std::int32_t i = 1; i <= fit; ++i) {
        SensorListEntry& entry = list[i - 1];
        const std::int32_t slot = InUseSlotBySerial(entry.SerialNumber);
        if (slot != kNoSlot) {
            entry.Address = Slot(slot).address;
            if (IsDeviceMine_Addr(entry.Address) == 0) entry.DeviceIndex = -i;
            continue;
        }
        const std::int32_t address = GetAddress_SN(entry.SerialNumber);
        if (address < 1) return -1;
        entry.Address = address;
    }
    return fit == n ? 1 : -1;
}

std::int32_t GetIndex_SN(const char* serial) {
    if (!IsValidSerialNumber(serial)) return -2;
    const std::int32_t n = DeviceCount();
    if (n < 1) return 0;
    const std::int32_t held = InUseSlotBySerial(serial);
    if (held != kNoSlot) return Slot(held).devId;
    for (std::int32_t i = 1; i <= n; ++i) {
        if (InUseSlotByDevId(i) != kNoSlot) continue;
        TransientDevice device(OpenDevice_Idx(i), true);
        if (!device.Valid()) return -5;
        char found[kSerialChars + 1] = {};
        ReadSerialNumberString(device.get(), found, sizeof found);
        device.Close();
        if (SerialNumbersMatch(found, serial)) return i;
    }
    return 0;
}

std::int32_t GetSerNo_Addr(std::int32_t address, char* serial) {
    if (!serial) return -1;
    if (!IsValidAddress(address)) return -2;
    const std::int32_t n = DeviceCount();
    if (n < 1) return -1;
    std::int32_t devId = 0, slot = kNoSlot;
    char fromSlot[kSerialChars + 1] = {};
    if (LookupSlot_Addr(address, &devId, &slot, fromSlot) == 1) {
        std::memcpy(serial, fromSlot, kSerialChars);
        serial[kSerialChars] = '\0';
        return 1;
    }
    for (std::int32_t i = 1; i <= n; ++i) {
        TransientDevice device(OpenDevice_Idx(i), true);
        if (!device.Valid()) continue;
        std::int32_t found = 0;
        if (ReadSensorAddress(device.get(), &found) != 1) return -2;
        if (found != address) continue;
        char text[20] = {};
        const std::int32_t r = ReadSerialNumberString(device.get(), text, sizeof text);
        if (r < kSerialChars + 1) return 0;
        std::memcpy(serial, text, kSerialChars);
        serial[kSerialChars] = '\0';
        return 1;
    }
    return -2;
}

std::int32_t GetSerNo_Idx(std::int32_t index, char* serial) {
    if (!serial) return -1;
    return SerialFromDevicePath(index, serial);
}

std::int32_t GetAddress_SN(const char* serial) {
    if (!IsValidSerialNumber(serial)) return -2;
    if (DeviceCount() < 1) return -1;
    Reach reach;
    ReachBySerial(reach, serial);
    // Another process's sensor is answered from the table, untouched.
    if (reach.othersSlot) return Slot(reach.slot).address;
    if (reach.slot == kNoSlot && !reach.device.Valid()) return -5;
    std::int32_t tempAddr = 0;
    if (ReadSensorAddress(reach.device.get(), &tempAddr) != 1) tempAddr = 0;
    return tempAddr;
}

std::int32_t GetAddress_Idx(std::int32_t index) {
    if (!IsValidDeviceIndex(index)) {
        if (index >= 0 || index == INT32_MIN) return -2;
        const std::int32_t slot = InUseSlotByDevId(-index);
        return slot == kNoSlot ? -2 : Slot(slot).address;
    }
    Reach reach;
    ReachByIndex(reach, index);
    const std::int32_t slot = reach.slot;
    if (reach.othersSlot) return Slot(slot).address;
    if (!reach.device.Valid()) return -5;
    std::int32_t address = 0;
    if (ReadSensorAddress(reach.device.get(), &address) != 1) {
        // The sensor is taken to be gone: its slot is released.
        reach.device.Close();
        if (slot != kNoSlot) UninitializeSlot(slot);
        return -7;
    }
    if (slot != kNoSlot && Slot(slot).address != address) Slot(slot).address = address;
    return address;
}

namespace {

// The address write, with one departure (docs/decisions.md): when only its
// confirmation is lost (no 253 echo) the byte may have been stored all the
// same, so the address is read back. A write that took effect counts as done
// (1), whatever became of its echo: the table must say what the sensor holds.
std::int32_t WriteSensorAddressCheckingLostEcho(std::int64_t h, std::int32_t address) {
    const std::int32_t r = WriteSensorAddress(h, address);
    if (r != -5) return r;
    std::int32_t held = -1;
    return ReadSensorAddress(h, &held) == 1 && held == address ? 1 : r;
}

// Steps shared by the two address setters once the sensor is reached.
std::int32_t WriteAddressThrough(Reach& reach, std::int32_t address) {
    const std::int32_t r = WriteSensorAddressCheckingLostEcho(reach.device.get(), address);
    if (r >= 0) {
        if (reach.slot != kNoSlot) Slot(reach.slot).address = address;
        return 1;
    }
    if (reach.slot != kNoSlot) {
        char serial[kSerialChars + 1];
        std::memcpy(serial, Slot(reach.slot).serial, sizeof serial);
        reach.device.Release();  // the slot's handle: closed by the release
        UninitializeSensor_SN(serial);
    }
    return r;
}

}  // namespace

std::int32_t SetAddress_SN(const char* serial, std::int32_t address) {
    if (!serial) return -1;
    Reach reach;
    ReachBySerial(reach, serial);
    if (reach.othersSlot) return -5;
    if (reach.slot == kNoSlot && !reach.device.Valid()) return -4;
    return WriteAddressThrough(reach, address);
}

std::int32_t SetAddress_Idx(std::int32_t index, std::int32_t address) {
    Reach reach;
    ReachByIndex(reach, index);
    if (reach.othersSlot || !reach.device.Valid()) return -5;
    return WriteAddressThrough(reach, address);
}

std::int32_t ChangeAddress(std::int32_t oldAddress, std::int32_t newAddress) {
    if (!IsValidAddress(oldAddress) || !IsValidAddress(newAddress)) return -5;
    if (WillAddressConflict(newAddress) == 1) return -1;
    const std::int32_t n = DeviceCount();
    if (n < 1) return -1;
    std::vector<SensorListEntry> list(static_cast<std::size_t>(n));
    if (SensorList(list.data(), n) != 1) return -1;
    if (std::none_of(list.begin(), list.end(),
                     [&](const SensorListEntry& e) { return e.Address == oldAddress; }))
        return -1;
    Reach reach;
    const std::int32_t slot = GetInUseSlotByAddress(oldAddress);
    if (slot != kNoSlot) {
        UseSlot(reach, slot);
        if (reach.othersSlot) return -5;
        if (!reach.device.Valid()) return -5;
    } else {
        reach.device.Reset(OpenDevice_Addr(oldAddress), true);
        if (!reach.device.Valid()) return -5;
    }
    const std::int32_t r = WriteSensorAddressCheckingLostEcho(reach.device.get(), newAddress);
    reach.device.Close();
    if (r < 1) return -1;
    for (int s = 0; s < kSlotCount; ++s) {
        if (Slot(s).address != oldAddress) continue;
        Slot(s).address = newAddress;
        break;
    }
    return 1;
}

std::int32_t AddressConflictExists() {
    const std::int32_t n = DeviceCount();
    if (n < 1) return 0;
    std::int32_t usedAddresses[256] = {};
    for (std::int32_t i = 1; i <= n; ++i) {
        std::int32_t address = -1;
        const std::int32_t r = AddressOfDevice(i, &address);
        if (r == -5) return -5;
        if (r != 1 || !IsByteAddress(address)) continue;
        if (usedAddresses[address] != 0) return 1;
        ++usedAddresses[address];
    }
    return 0;
}

std::int32_t WillAddressConflict(std::int32_t address) {
    if (!IsValidAddress(address)) return -2;
    const std::int32_t n = DeviceCount();
    if (n < 1) return 0;
    for (std::int32_t i = 1; i <= n; ++i) {
        std::int32_t found = -1;
        const std::int32_t r = AddressOfDevice(i, &found);
        if (r == -5) return -5;
        if (r == 1 && found == address) return 1;
    }
    return 0;
}

std::int32_t IsSensorConnected_SN(const char* serial) {
    if (!serial) return -1;
    if (DeviceCount() < 1) return 0;
    Reach reach;
    ReachBySerial(reach, serial);
    if (reach.othersSlot) return -5;
    if (!reach.device.Valid()) return 0;
    BlinkLED(reach.device.get());
    return 1;
}

std::int32_t IsSensorConnected_Addr(std::int32_t address) {
    if (!IsByteAddress(address)) return -1;
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        if (r.inUse != 1 || r.address != address) continue;
        if (!OwnedByCaller(s)) return -5;
        if (r.deviceHandle != -1) {
            std::int32_t found = 0;
            return ReadSensorAddress(r.deviceHandle, &found) == 1 && found == address ? 1 : -1;
        }
        if (r.devId >= 1 && r.devId <= kSlotCount) {
            TransientDevice device(OpenKnownDevice_Idx(r.devId, r.serial), true);
            return device.Valid() ? 1 : -1;
        }
    }
    const std::int32_t n = DeviceCount();
    if (n < 1) return 0;
    for (std::int32_t i = 1; i <= n; ++i) {
        TransientDevice device(OpenDevice_Idx(i), true);
        if (!device.Valid()) return -5;
        std::int32_t found = 0;
        if (ReadSensorAddress(device.get(), &found) == 1 && found == address) return 1;
    }
    return 0;
}

namespace {

std::int32_t BlinkThrough(Reach& reach) {
    if (reach.othersSlot || !reach.device.Valid()) return -5;
    return BlinkLED(reach.device.get()) < 0 ? -5 : 1;
}

}  // namespace

std::int32_t BlinkLED_SN(const char* serial) {
    if (!serial) return -1;
    Reach reach;
    ReachBySerial(reach, serial);
    return BlinkThrough(reach);
}

std::int32_t BlinkLED_Addr(std::int32_t address) {
    Reach reach;
    const std::int32_t slot = GetInUseSlotByAddress(address);
    if (slot != kNoSlot) {
        UseSlot(reach, slot);
    } else {
        bool lent = false;
        const std::int64_t h = OpenDevice_Addr(address, &lent);
        reach.device.Reset(h, !lent);
    }
    return BlinkThrough(reach);
}

std::int32_t BlinkLED_Idx(std::int32_t index) {
    Reach reach;
    ReachByIndex(reach, index);
    return BlinkThrough(reach);
}

}  // namespace qv
