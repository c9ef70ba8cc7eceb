#include "settings/recorder.h"

#include <initializer_list>

#include "device/driver.h"
#include "device/transport.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"
#include "settings/settings.h"
#include "settings/trigger.h"
#include "settings/units.h"

namespace qv {

namespace {

constexpr std::uint32_t kRecorderWriteTimeoutMs = 1000;

// Sends each request as a command (1-byte reply echoing the code); the last
// result, or -1 at the first that is not echoed.
std::int32_t CommandSequence(std::int64_t h, std::initializer_list<RequestCode> requests) {
    std::int32_t result = -1;
    for (const RequestCode request : requests) {
        std::uint8_t reply[1] = {};
        result = VendorRequestIn(h, request, reply, 1);
        if (result < 1 || reply[0] != request) return -1;
    }
    return result;
}

}  // namespace

std::int32_t RecorderOutOff(std::int64_t h, std::int32_t slot) {
    const std::int32_t result =
        CommandSequence(h, {kReqStop1, kReqStop2, kReqStop3, kReqRecorderOff});
    if (result < 0) return -1;
    if (slot >= 0 && slot < kSlotCount) Slot(slot).current.RecorderOutEnabled = 0;
    return result;
}

std::int32_t RecorderOutOn(std::int64_t h, std::int32_t /*slot*/) {
    return CommandSequence(h, {kReqStop1, kReqStop2, kReqStop3, kReqTriggerOutOnWithInput,
                               kReqTriggerInOff, kReqAntiAliasingOff, kReqRecorderOn});
}

std::int32_t RecorderCode(double value, double level0V, double level1V) {
    const double span = level1V - level0V;
    double scaled;
    if (span == 0.0) {
        // Equal levels: a comparator. At or below the common level 0 V, above
        // it 1 V, which is where the mapping tends as the levels close in.
        scaled = value > level0V ? QV_RECORDER_FULL_SCALE : 0.0;
    } else {
        scaled = (value - level0V) / span * static_cast<double>(QV_RECORDER_FULL_SCALE);
    }
    // Limited before the conversion so that no value overflows it; a NaN
    // (no result to show) gives 0 V.
    if (!(scaled > 0.0)) return 0;
    if (scaled >= QV_RECORDER_FULL_SCALE) return QV_RECORDER_FULL_SCALE;
    return static_cast<std::int32_t>(scaled);  // towards zero
}

std::int32_t RecorderOutputValue(std::int64_t /*h*/, std::int32_t slot, double dbm) {
    if (slot < 0 || slot >= kSlotCount) return -1;
    const DeviceRecord& r = Slot(slot);
    const InstrumentState& s = r.current;
    const std::int32_t code = RecorderCode(DbmToUnits(dbm, s.RecorderOutUnits),
                                           s.RecorderOut_OV_Level, s.RecorderOut_1V_Level);
    if (r.winUsbHandle == kNoHandle) return -1;
    std::uint8_t word[2] = {static_cast<std::uint8_t>(code >> 8),
                            static_cast<std::uint8_t>(code & 0xFF)};
    std::uint32_t transferred = 0;
    try {
        driver::PipeWrite(r.winUsbHandle, word, 2, &transferred, kRecorderWriteTimeoutMs);
    } catch (const DriverFault&) {
        return -1;  // the driver failed abnormally: not a result to ignore
    }
    return 1;  // the write's own result is not examined
}

std::int32_t SetRecorderOutEnabled(std::int32_t address, std::int32_t enabled) {
    if (enabled != 0 && enabled != 1) return -1;
    const std::int32_t slot = SlotForSetter(address);
    if (slot == kNoSlot) return -1;
    if (IsDeviceMine_Addr(address) != 1) return -1;
    DeviceRecord& r = Slot(slot);
    if (r.deviceHandle == kNoHandle) return -1;
    for (double& v : r.bookkeeping.values) v = 0.0;
    std::int32_t result;
    if (enabled == 0) {
        RecorderOutOff(r.deviceHandle, slot);
        // Stopping the recorder stops the trigger output too; re-send its setting.
        result = SetTTLTriggerOutEnabled(address, r.current.TTL_TriggerOutEnabled);
    } else {
        result = RecorderOutOn(r.deviceHandle, slot);
    }
    if (result < 0) return -1;
    r.current.RecorderOutEnabled = enabled;
    return 1;
}

std::int32_t GetRecorderOutEnabled(std::int32_t address, std::int32_t* enabled) {
    return GetCurrentField(address, enabled,
                           [](const InstrumentState& s) { return s.RecorderOutEnabled; });
}

std::int32_t SetRecorderOutSetup(std::int32_t address, double level0V, double level1V,
                                 std::int32_t units) {
    if (units < QV_UNIT_DBM || units > QV_UNIT_V) return -1;
    const std::int32_t slot = SlotForSetter(address);
    if (slot == kNoSlot) return -1;
    if (IsDeviceMine_Addr(address) != 1) return -1;
    DeviceRecord& r = Slot(slot);
    if (!IsHandle(r.deviceHandle)) return QV_ERR_DEVICE_UNAVAILABLE;
    RecorderOutOff(r.deviceHandle, slot);  // result not reported
    InstrumentState& s = r.current;
    s.RecorderOut_OV_Level = level0V;
    s.RecorderOut_1V_Level = level1V;
    s.RecorderOutUnits = units;
    return 1;
}

std::int32_t GetRecorderOutSetup(std::int32_t address, double* level0V, double* level1V,
                                 std::int32_t* units) {
    if (!level0V || !level1V || !units) return -1;
    const std::int32_t slot = SlotForGetter(address);
    if (slot == kNoSlot) return -1;
    const DeviceRecord& r = Slot(slot);
    if (!IsHandle(r.deviceHandle)) return -1;
    *level0V = r.current.RecorderOut_OV_Level;
    *level1V = r.current.RecorderOut_1V_Level;
    *units = r.current.RecorderOutUnits;
    return 1;
}

}  // namespace qv
