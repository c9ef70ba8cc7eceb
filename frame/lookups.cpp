#include "frame/lookups.h"

#include <cstring>

#include "device/discovery.h"
#include "frame/shared_table.h"
#include "platform/platform.h"

namespace qv {

namespace {

char Upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

std::uint32_t Me() { return platform::CurrentProcessId(); }

void CopySerial(char* to, const DeviceRecord& r, std::size_t bytes) {
    std::memcpy(to, r.serial, bytes);
    if (bytes < sizeof r.serial) to[bytes] = '\0';
}

}  // namespace

bool SerialNumbersMatch(const char* a, const char* b) {
    if (!a || !b) return false;
    for (int i = 0; i < kSerialChars; ++i) {
        if (Upper(a[i]) != Upper(b[i])) return false;
        if (a[i] == '\0') return true;
    }
    return true;
}

bool SerialNumbersEqualExactly(const char* stored, const char* serial) {
    return stored && serial && std::strncmp(stored, serial, kSerialChars) == 0;
}

bool OwnedByCaller(std::int32_t slot) {
    return slot >= 0 && slot < kSlotCount && Slot(slot).ownerPid == Me();
}

std::int32_t IsDeviceMine_Addr(std::int32_t address) {
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        if (r.inUse > 0 && r.address == address) return r.ownerPid == Me() ? 1 : 0;
    }
    return 0;
}

std::int32_t GetOwnedSlot_Addr(std::int32_t address) {
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        if (r.inUse == 1 && r.address == address) return r.ownerPid == Me() ? s : kNoSlot;
    }
    return kNoSlot;
}

std::int32_t IsDeviceMine_SN(const char* serial) {
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        if (r.inUse > 0 && SerialNumbersMatch(r.serial, serial)) return r.ownerPid == Me() ? 1 : 0;
    }
    return 0;
}

std::int32_t IsDeviceInUse_Addr(std::int32_t address) {
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        if (r.address == address) return r.inUse == 1 ? 1 : 0;
    }
    return 0;
}

std::int32_t IsDeviceInUse_SN(const char* serial) {
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        if (SerialNumbersMatch(r.serial, serial)) return r.inUse >= 1 ? 1 : 0;
    }
    return 0;
}

std::int32_t LookupSlot_Addr(std::int32_t address, std::int32_t* devId, std::int32_t* slot,
                             char* serial) {
    serial[0] = '\0';
    *slot = kNoSlot;
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        if (r.address != address) continue;
        *devId = r.devId;
        *slot = s;
        CopySerial(serial, r, kSerialChars);
        return 1;
    }
    return -1;
}

std::int32_t LookupSlot_DevId(std::int32_t devId, std::int32_t* address, std::int32_t* slot,
                              char* serial) {
    *address = -1;
    *slot = kNoSlot;
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        if (r.devId != devId) continue;
        *address = r.address;
        *slot = s;
        CopySerial(serial, r, kSerialChars + 1);
        return 1;
    }
    return -1;
}

std::int32_t LookupSlot_SN(const char* serial, std::int32_t* address, std::int32_t* devId,
                           std::int32_t* slot) {
    *address = -1;
    *slot = kNoSlot;
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        if (r.inUse != 1 || !SerialNumbersMatch(r.serial, serial)) continue;
        *address = r.address;
        *devId = r.devId;
        *slot = s;
        return 1;
    }
    return -1;
}

std::int32_t ResolveSlot_Addr(std::int32_t address, std::int32_t* devId, std::int32_t* slot,
                              char* serial) {
    *slot = kNoSlot;
    const std::int32_t index = GetIndex_Addr(address);
    if (index < 1) return -1;
    *devId = index;
    char found[kSerialChars + 1] = {};
    if (SerialFromDevicePath(index, found) != 1) return -1;
    std::memcpy(serial, found, sizeof found);
    for (int s = 0; s < kSlotCount; ++s) {
        if (!SerialNumbersMatch(Slot(s).serial, found)) continue;
        *slot = s;
        return 1;
    }
    return -1;
}

std::int32_t InUseSlotBySerial(const char* serial) {
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        if (r.inUse == 1 && SerialNumbersMatch(r.serial, serial)) return s;
    }
    return kNoSlot;
}

std::int32_t GetInUseSlotByAddress(std::int32_t address) {
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        if (r.inUse == 1 && r.address == address) return s;
    }
    return kNoSlot;
}

std::int32_t InUseSlotByDevId(std::int32_t devId) {
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        if (r.inUse == 1 && r.devId == devId) return s;
    }
    return kNoSlot;
}

}  // namespace qv
