// The shared table's slots as tests arrange them: all free, or one taken as
// initialisation would take it.
#pragma once

#include <cstdint>

#include "frame/lookups.h"
#include "frame/shared_table.h"

namespace qv::test {

inline constexpr std::uint32_t kOtherPid = 0x7ffffff0u;  // no real process has it

inline void ClearSlots() {
    for (int s = 0; s < kSlotCount; ++s) {
        ResetDeviceRecord(s);
        Slot(s).ownerPid = 0;
        Slot(s).singleAverageStream = 0;
    }
}

inline DeviceRecord& Claim(int slot, const char* serial, int address, int devId, std::uint32_t owner,
                           int inUse = 1) {
    DeviceRecord& r = Slot(slot);
    r.inUse = inUse;
    r.ownerPid = owner;
    StoreSerial(r.serial, serial);
    r.address = address;
    r.devId = devId;
    return r;
}

}  // namespace qv::test
