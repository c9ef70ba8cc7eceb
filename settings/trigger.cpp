#include "settings/trigger.h"

#include "device/transport.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"

namespace qv {

std::int32_t SetTTLTriggerInEnabled(std::int32_t address, std::int32_t enabled) {
    if (enabled != 0 && enabled != 1) return -1;
    std::int32_t devId = 0, slot = kNoSlot;
    char serial[kSerialChars + 1] = {};
    if (ResolveSlot_Addr(address, &devId, &slot, serial) != 1) return -1;
    if (IsDeviceMine_Addr(address) != 1) return -1;
    DeviceRecord& r = Slot(slot);
    if (!IsHandle(r.deviceHandle)) return -1;
    std::uint8_t reply[2] = {};
    std::int32_t last = VendorRequestIn(r.deviceHandle,
                                        enabled ? kReqTriggerInOn : kReqTriggerInOff, reply, 2);
    if (r.current.TTL_TriggerOutEnabled == 1) {
        last = VendorRequestIn(r.deviceHandle,
                               enabled ? kReqTriggerOutOnWithInput : kReqTriggerOutOnWithoutInput,
                               reply, 1);
    }
    if (last > 0) r.current.TTL_TriggerInEnabled = enabled;
    return 1;
}

}  // namespace qv
