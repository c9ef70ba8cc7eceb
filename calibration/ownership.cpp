#include "calibration/ownership.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "device/discovery.h"
#include "device/driver.h"
#include "device/transport.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"

namespace qv {

void CloseSlotHandles(DeviceRecord& r) {
    if (IsHandle(r.winUsbHandle)) {
        try {
            driver::CloseWinUSBHandle(r.winUsbHandle);
        } catch (const DriverFault&) {
        }
    }
    CloseDevice(r.deviceHandle);
}

std::int32_t UninitializeSlot(std::int32_t slot) {
    if (slot < 0 || slot >= kSlotCount) return -1;
    if (OwnedByCaller(slot)) CloseSlotHandles(Slot(slot));
    ResetReleasedRecord(slot);
    return 1;
}

std::int32_t UninitializeSensorCore(const char* serial) {
    for (int s = 0; s < kSlotCount; ++s) {
        DeviceRecord& r = Slot(s);
        if (r.inUse == 0 || !SerialNumbersEqualExactly(r.serial, serial)) continue;
        if (OwnedByCaller(s) && r.deviceHandle != -1) CloseSlotHandles(r);
        ResetReleasedRecord(s);
        return 1;
    }
    return -1;
}

std::int32_t UninitializeSensor_SN(const char* serial) {
    if (!IsValidSerialNumber(serial)) return -1;
    bool owned = false;
    for (int s = 0; s < kSlotCount && !owned; ++s) {
        const DeviceRecord& r = Slot(s);
        owned = r.inUse > 0 && SerialNumbersMatch(r.serial, serial) && OwnedByCaller(s);
    }
    if (!owned) return -1;
    return UninitializeSensorCore(serial);
}

void ReleaseSlotsOfProcess(std::uint32_t pid) {
    if (pid == 0) return;
    for (int s = 0; s < kSlotCount; ++s) {
        if (Slot(s).ownerPid != pid) continue;
        char serial[kSerialChars + 1];
        std::memcpy(serial, Slot(s).serial, sizeof serial);
        // A slot whose serial is lost still must not outlive its owner.
        if (UninitializeSensorCore(serial) != 1 || Slot(s).ownerPid == pid) UninitializeSlot(s);
    }
}

std::int32_t ReInit_Idx(std::int32_t index) {
    TransientDevice device(OpenDevice_Idx(index), true);
    return device.Valid() ? 0 : -1;
}

std::int32_t ReInit_Addr(std::int32_t address) {
    const std::int32_t index = GetIndex_Addr(address);
    // An index taken from a slot may be stale: the sensor there must still be
    // the slot's (departure, docs/decisions.md).
    const std::int32_t slot = InUseSlotByDevId(index);
    if (slot == kNoSlot || Slot(slot).address != address) return ReInit_Idx(index);
    TransientDevice device(OpenKnownDevice_Idx(index, Slot(slot).serial), true);
    return device.Valid() ? 0 : -1;
}

std::int32_t IsDeviceInUse_Idx(std::int32_t index) {
    const std::int32_t device = DeviceIndexMagnitude(index);
    for (int s = 0; s < kSlotCount; ++s)
        if (Slot(s).devId == device) return Slot(s).inUse == 1 ? 1 : 0;
    return 0;
}

std::int32_t IsDeviceMine_Idx(std::int32_t index) {
    const std::int32_t device = DeviceIndexMagnitude(index);
    for (int s = 0; s < kSlotCount; ++s)
        if (Slot(s).inUse > 0 && Slot(s).devId == device) return OwnedByCaller(s) ? 1 : 0;
    return 0;
}

}  // namespace qv
