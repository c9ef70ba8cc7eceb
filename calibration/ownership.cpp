#include "calibration/ownership.h"

#include "device/driver.h"
#include "device/transport.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"

namespace qv {

std::int32_t UninitializeSlot(std::int32_t slot) {
    if (slot < 0 || slot >= kSlotCount) return -1;
    DeviceRecord& r = Slot(slot);
    if (OwnedByCaller(slot)) {
        if (IsHandle(r.winUsbHandle)) {
            try {
                driver::CloseWinUSBHandle(r.winUsbHandle);
            } catch (const DriverFault&) {
            }
        }
        CloseDevice(r.deviceHandle);
    }
    ResetDeviceRecord(slot);
    r.ownerPid = 0;
    return 1;
}

void ReleaseSlotsOfProcess(std::uint32_t pid) {
    for (int s = 0; s < kSlotCount; ++s)
        if (Slot(s).ownerPid == pid && pid != 0) UninitializeSlot(s);
}

}  // namespace qv
