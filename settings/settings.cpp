#include "settings/settings.h"

#include <cstdint>
#include <utility>

#include "calibration/ownership.h"
#include "device/transport.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"
#include "settings/recorder.h"
#include "settings/units.h"

namespace qv {

std::int32_t SlotForGetter(std::int32_t address) {
    if (IsDeviceMine_Addr(address) != 1) return kNoSlot;
    std::int32_t devId = 0, slot = kNoSlot;
    char serial[kSerialChars + 1] = {};
    if (LookupSlot_Addr(address, &devId, &slot, serial) != 1) return kNoSlot;
    return slot;
}

std::int32_t SlotForSetter(std::int32_t address) {
    std::int32_t devId = 0, slot = kNoSlot;
    char serial[kSerialChars + 1] = {};
    if (ResolveSlot_Addr(address, &devId, &slot, serial) != 1) return kNoSlot;
    return slot;
}

namespace {

// The slot of a setter that needs the caller to own the sensor.
std::int32_t OwnedSlotForSetter(std::int32_t address) {
    if (IsDeviceMine_Addr(address) != 1) return kNoSlot;
    return SlotForSetter(address);
}

bool InRange(double v, double lo, double hi) { return v >= lo && v <= hi; }  // NaN is out
bool IsFlag(std::int32_t v) { return v == 0 || v == 1; }
bool IsReferenceUnit(std::int32_t u) { return u >= QV_UNIT_DBM && u <= QV_UNIT_V; }

// The tail of the setters that change how a result is scaled: the stored value
// stays even when there is no handle, and the recorder output goes off.
std::int32_t RequireHandleThenRecorderOff(std::int32_t slot) {
    const DeviceRecord& r = Slot(slot);
    if (!IsHandle(r.deviceHandle)) return -1;
    RecorderOutOff(r.deviceHandle, slot);  // its result is not reported
    return 1;
}

// 15-bit pseudo-random numbers, 0..32767, for the table shuffle. Our own
// generator, because the C library's rand() has a wider range on some
// platforms; never seeded, one state per thread.
std::int32_t NextShuffleRandom() {
    thread_local std::uint32_t state = 1;
    state = state * 214013u + 2531011u;
    return static_cast<std::int32_t>((state >> 16) & 0x7FFF);
}

}  // namespace

// ---------------------------------------------------------------- getters

std::int32_t GetFrequency(std::int32_t address, double* hz) {
    return GetCurrentField(address, hz, [](const InstrumentState& s) { return s.Freq; });
}

std::int32_t GetAverages(std::int32_t address, std::int32_t* averages) {
    return GetCurrentField(address, averages, [](const InstrumentState& s) { return s.Averages; });
}

std::int32_t GetOffset(std::int32_t address, double* db) {
    return GetCurrentField(address, db, [](const InstrumentState& s) { return s.Offset_DB; });
}

std::int32_t GetOffsetEnabled(std::int32_t address, std::int32_t* enabled) {
    return GetCurrentField(address, enabled,
                           [](const InstrumentState& s) { return s.OffsetEnabled; });
}

std::int32_t GetDutyCycleEnabled(std::int32_t address, std::int32_t* enabled) {
    return GetCurrentField(address, enabled,
                           [](const InstrumentState& s) { return s.DutyCycleEnabled; });
}

std::int32_t GetDutyCyclePerCent(std::int32_t address, double* perCent) {
    return GetCurrentField(address, perCent,
                           [](const InstrumentState& s) { return s.DutyeCycle * 100.0; });
}

std::int32_t GetMeasurementPowerUnits(std::int32_t address, std::int32_t* units) {
    return GetCurrentField(address, units, [](const InstrumentState& s) { return s.PowerUnits; });
}

std::int32_t GetCWReference(std::int32_t address, double* value, std::int32_t* units) {
    if (!value || !units) return -1;
    const std::int32_t slot = SlotForGetter(address);
    if (slot == kNoSlot) return -1;
    const InstrumentState& s = Slot(slot).current;
    *value = s.CWRef;
    *units = s.CWRefUnits;
    return 1;
}

std::int32_t GetPulseReference(std::int32_t address, double* pulse, double* peak, double* average,
                               double* dutyCycle, std::int32_t* units) {
    if (!pulse || !peak || !average || !dutyCycle || !units) return -1;
    const std::int32_t slot = SlotForGetter(address);
    if (slot == kNoSlot) return -1;
    const InstrumentState& s = Slot(slot).current;
    *pulse = s.PlsRefPulse;
    *peak = s.PlsRefPeak;
    *average = s.PlsRefAvg;
    *dutyCycle = s.PlsRefDC;
    *units = s.PulseRefUnits;
    return 1;
}

std::int32_t GetPulseCriteria(std::int32_t address, double* db) {
    return GetCurrentField(address, db,
                           [](const InstrumentState& s) { return s.PulseCriteria_DB; });
}

std::int32_t GetAutoPulseEnabled(std::int32_t address, std::int32_t* enabled) {
    return GetCurrentField(address, enabled,
                           [](const InstrumentState& s) { return s.AutoPulseCriteriaEnabled; });
}

std::int32_t GetAntiAliasingEnabled(std::int32_t address, std::int32_t* enabled) {
    return GetCurrentField(address, enabled,
                           [](const InstrumentState& s) { return s.AntiAliasingEnabled; });
}

std::int32_t Get75OhmsEnabled(std::int32_t address, std::int32_t* enabled) {
    if (!enabled) return -1;
    if (IsDeviceMine_Addr(address) != 1) return -1;
    const std::int32_t slot = GetOwnedSlot_Addr(address);
    if (slot == kNoSlot) return -1;
    *enabled = Slot(slot).current.Enabled75Ohms;
    return 1;
}

// ---------------------------------------------------------------- setters

std::int32_t SetFrequency(std::int32_t address, double hz) {
    const std::int32_t slot = OwnedSlotForSetter(address);
    if (slot == kNoSlot) return -1;
    // Stored before the check: a refused frequency stays in the record.
    Slot(slot).current.Freq = hz;
    if (IsValidFrequency(slot, hz) != 1) return -1;
    if (hz <= 1.0e8) SetAntiAliasingEnabled(address, 1);  // result not reported
    return 1;
}

std::int32_t SetAverages(std::int32_t address, std::int32_t averages) {
    if (averages < 1 || averages > 100000) return -1;
    const std::int32_t slot = OwnedSlotForSetter(address);
    if (slot == kNoSlot) return -1;
    Slot(slot).current.Averages = averages;
    return 1;
}

std::int32_t SetOffset(std::int32_t address, double db) {
    if (!InRange(db, -200.0, 200.0)) return -1;
    const std::int32_t slot = OwnedSlotForSetter(address);
    if (slot == kNoSlot) return -1;
    Slot(slot).current.Offset_DB = db;
    return RequireHandleThenRecorderOff(slot);
}

std::int32_t SetOffsetEnabled(std::int32_t address, std::int32_t enabled) {
    if (!IsFlag(enabled)) return -1;
    const std::int32_t slot = SlotForSetter(address);
    if (slot == kNoSlot) return -1;
    DeviceRecord& r = Slot(slot);
    r.current.OffsetEnabled = enabled;
    // No ownership needed here, so never the slot's handle: one of our own.
    TransientDevice device(OpenDevice_Idx(r.devId), true);
    if (device.Valid()) RecorderOutOff(device.get(), slot);
    return 1;
}

std::int32_t SetDutyCycleEnabled(std::int32_t address, std::int32_t enabled) {
    if (!IsFlag(enabled)) return -1;
    const std::int32_t slot = OwnedSlotForSetter(address);
    if (slot == kNoSlot) return -1;
    DeviceRecord& r = Slot(slot);
    if (!IsHandle(r.deviceHandle)) return -1;
    r.current.DutyCycleEnabled = enabled;
    RecorderOutOff(r.deviceHandle, slot);
    return 1;
}

std::int32_t SetDutyCyclePerCent(std::int32_t address, double perCent) {
    if (!InRange(perCent, 0.001, 100.0)) return -1;
    const std::int32_t slot = OwnedSlotForSetter(address);
    if (slot == kNoSlot) return -1;
    Slot(slot).current.DutyeCycle = perCent / 100.0;
    return RequireHandleThenRecorderOff(slot);
}

std::int32_t SetMeasurementPowerUnits(std::int32_t address, std::int32_t units) {
    if (units < QV_UNIT_DBM || units > QV_UNIT_DB_REL) return -1;
    const std::int32_t slot = OwnedSlotForSetter(address);
    if (slot == kNoSlot) return -1;
    Slot(slot).current.PowerUnits = units;
    return RequireHandleThenRecorderOff(slot);
}

std::int32_t SetCWReference(std::int32_t address, double value, std::int32_t units) {
    if (!IsReferenceUnit(units)) return -1;
    const std::int32_t slot = SlotForSetter(address);
    if (slot == kNoSlot) return -1;
    InstrumentState& s = Slot(slot).current;
    s.CWRef = value;
    s.CWRefUnits = units;
    return 1;
}

std::int32_t SetPulseReference(std::int32_t address, double pulse, double peak, double average,
                               double dutyCycle, std::int32_t units) {
    if (!IsReferenceUnit(units)) return -1;
    const std::int32_t slot = OwnedSlotForSetter(address);
    if (slot == kNoSlot) return -1;
    InstrumentState& s = Slot(slot).current;
    s.PulseRefUnits = units;
    s.PlsRefPulse = pulse;
    s.PlsRefPeak = peak;
    s.PlsRefAvg = average;
    s.PlsRefDC = dutyCycle;
    return 1;
}

std::int32_t SetPulseCriteria(std::int32_t address, double db) {
    if (!InRange(db, 0.001, 200.0)) return -1;
    const std::int32_t slot = SlotForSetter(address);
    if (slot == kNoSlot) return -1;
    Slot(slot).current.PulseCriteria_DB = db;
    return 1;
}

std::int32_t SetAutoPulseEnabled(std::int32_t address, std::int32_t enabled) {
    if (!IsFlag(enabled)) return -1;
    const std::int32_t slot = SlotForSetter(address);
    if (slot == kNoSlot) return -1;
    Slot(slot).current.AutoPulseCriteriaEnabled = enabled;
    return 1;
}

std::int32_t SetAntiAliasingEnabled(std::int32_t address, std::int32_t enabled) {
    if (!IsFlag(enabled)) return -1;
    const std::int32_t slot = OwnedSlotForSetter(address);
    if (slot == kNoSlot) return -1;
    DeviceRecord& r = Slot(slot);
    if (!IsHandle(r.deviceHandle)) return -1;
    std::uint8_t reply[2] = {};
    std::int32_t last;
    if (enabled == 1) {
        last = SendJiggleTable(r.deviceHandle);
        if (last == 1) last = VendorRequestIn(r.deviceHandle, kReqAntiAliasingOn, reply, 2);
    } else {
        last = VendorRequestIn(r.deviceHandle, kReqAntiAliasingOff, reply, 2);
    }
    r.current.AntiAliasingEnabled = enabled;
    if (last >= 0) return 1;
    // The handle is closed here, so the record must not keep it: marked as none,
    // later operations refuse cleanly (and the release does not close it twice)
    // instead of using a value the driver may since have given to another open.
    CloseSlotHandles(r);
    r.deviceHandle = kNoHandle;
    r.winUsbHandle = kNoHandle;
    return -1;
}

std::int32_t Set75OhmsEnabled(std::int32_t address, std::int32_t enabled) {
    // No range: any value other than 1 counts as off where it is used.
    const std::int32_t slot = GetOwnedSlot_Addr(address);
    if (slot == kNoSlot) return -1;
    Slot(slot).current.Enabled75Ohms = enabled;
    return 1;
}

// ---------------------------------------------------------------- jiggle table

std::int32_t SendJiggleTable(std::int64_t h) {
    constexpr int kTableBytes = 256;
    constexpr int kBlockBytes = 64;
    std::uint8_t jiggleTable[kTableBytes];
    for (int i = 0; i < kTableBytes; ++i) jiggleTable[i] = static_cast<std::uint8_t>(i);
    for (int pass = 0; pass < 10; ++pass) {
        for (int i = 0; i < kTableBytes; ++i) {
            const std::int32_t r = NextShuffleRandom();
            const int j = static_cast<int>(r / 32767.0 * 255.0);
            std::swap(jiggleTable[i], jiggleTable[j]);
        }
    }
    std::uint8_t cmdBuff[3] = {};
    if (VendorRequestIn(h, kReqWorkingBase, cmdBuff, 3) < 0) return -1;
    // The reply's first byte is the echo; the location follows as sent.
    cmdBuff[0] = cmdBuff[1];
    cmdBuff[1] = cmdBuff[2];
    if (VendorRequestOut(h, kReqSelectLocation, cmdBuff, 2) < 0) return -1;
    for (int block = 0; block < kTableBytes / kBlockBytes; ++block) {
        if (VendorRequestOut(h, kReqWriteBlock, jiggleTable + block * kBlockBytes, kBlockBytes) < 0)
            return -1;
    }
    return 1;
}

}  // namespace qv
