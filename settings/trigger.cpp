#include "settings/trigger.h"

#include "device/transport.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"
#include "settings/settings.h"

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

namespace qv {

namespace {

// A one-byte request whose result alone decides whether the field may change.
bool SentOneByte(std::int64_t h, std::uint8_t request) {
    std::uint8_t reply[1] = {};
    return VendorRequestIn(h, request, reply, 1) >= 0;
}

}  // namespace

std::int32_t GetTTLTriggerInEnabled(std::int32_t address, std::int32_t* enabled) {
    return GetCurrentField(address, enabled,
                           [](const InstrumentState& s) { return s.TTL_TriggerInEnabled; });
}

std::int32_t SetTTLTriggerInInverted(std::int32_t address, std::int32_t inverted) {
    if (inverted != 0 && inverted != 1) return -1;
    const std::int32_t slot = SlotForSetter(address);
    if (slot == kNoSlot) return -1;
    if (IsDeviceMine_Addr(address) != 1) return -1;
    DeviceRecord& r = Slot(slot);
    if (!IsHandle(r.deviceHandle)) return -1;
    if (!SentOneByte(r.deviceHandle,
                     inverted ? kReqTriggerInInverted : kReqTriggerInNotInverted))
        return -1;
    r.current.TTL_TriggerInIvertedEnabled = inverted;
    return 1;
}

std::int32_t GetTTLTriggerInInverted(std::int32_t address, std::int32_t* inverted) {
    return GetCurrentField(address, inverted,
                           [](const InstrumentState& s) { return s.TTL_TriggerInIvertedEnabled; });
}

std::int32_t SetTTLTriggerInTimeOut(std::int32_t address, std::int32_t milliseconds) {
    const std::int32_t slot = SlotForSetter(address);
    if (slot == kNoSlot) return -1;
    if (IsDeviceMine_Addr(address) != 1) return -1;
    if (milliseconds < 0 || milliseconds > 30000) return -1;
    Slot(slot).current.TriggerDelay_mSec = milliseconds;
    return 1;
}

std::int32_t GetTTLTriggerInTimeOut(std::int32_t address, std::int32_t* milliseconds) {
    return GetCurrentField(address, milliseconds,
                           [](const InstrumentState& s) { return s.TriggerDelay_mSec; });
}

std::int32_t SetTTLTriggerOutEnabled(std::int32_t address, std::int32_t enabled) {
    const std::int32_t slot = SlotForSetter(address);
    if (slot == kNoSlot) return -1;
    if (IsDeviceMine_Addr(address) != 1) return -1;
    DeviceRecord& r = Slot(slot);
    if (r.deviceHandle == kNoHandle) return -1;
    std::uint8_t reply[1] = {};
    if (enabled == 1) {
        // The request that switches the output on depends on the input.
        VendorRequestIn(r.deviceHandle,
                        r.current.TTL_TriggerInEnabled == 1 ? kReqTriggerOutOnWithInput
                                                            : kReqTriggerOutOnWithoutInput,
                        reply, 1);
        r.current.TTL_TriggerOutEnabled = 1;
    } else {
        VendorRequestIn(r.deviceHandle, kReqTriggerOutOff, reply, 1);
        r.current.TTL_TriggerOutEnabled = 0;
    }
    return 1;
}

std::int32_t GetTTLTriggerOutEnabled(std::int32_t address, std::int32_t* enabled) {
    return GetCurrentField(address, enabled,
                           [](const InstrumentState& s) { return s.TTL_TriggerOutEnabled; });
}

std::int32_t SetTTLTriggerOutInverted(std::int32_t address, std::int32_t inverted) {
    if (inverted != 0 && inverted != 1) return -1;
    // The table first; the bus only for an address the table does not know.
    std::int32_t devId = 0, slot = kNoSlot;
    char serial[kSerialChars + 1] = {};
    if (LookupSlot_Addr(address, &devId, &slot, serial) != 1) slot = SlotForSetter(address);
    if (slot == kNoSlot) return -1;
    if (IsDeviceMine_Addr(address) != 1) return -1;
    DeviceRecord& r = Slot(slot);
    if (!IsHandle(r.deviceHandle)) return -1;
    if (!SentOneByte(r.deviceHandle,
                     inverted ? kReqTriggerOutInverted : kReqTriggerOutNotInverted))
        return -1;
    r.current.TTL_TriggerOutInvertEnabled = inverted;
    return 1;
}

std::int32_t GetTTLTriggerOutInverted(std::int32_t address, std::int32_t* inverted) {
    return GetCurrentField(address, inverted,
                           [](const InstrumentState& s) { return s.TTL_TriggerOutInvertEnabled; });
}

}  // namespace qv
