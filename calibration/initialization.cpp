#include "calibration/ownership.h"

#include <cstring>

#include "calibration/cal_image.h"
#include "calibration/cal_tables.h"
#include "device/discovery.h"
#include "device/model.h"
#include "device/transport.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"
#include "platform/platform.h"
#include "settings/instrument_state.h"
#include "settings/trigger.h"

namespace qv {

namespace {

std::int32_t SlotNumber(std::int32_t slot) { return slot + 1; }

// Identity and defaults of a sensor taken into a free slot.
void SetUpIdentity(std::int32_t slot, const char* serial) {
    DeviceRecord& r = Slot(slot);
    StoreSerial(r.serial, serial);
    IdentityBlock& id = r.identity;
    std::int32_t model = kUnknownModel;
    GetModelNumber_SN(serial, &model);
    id.ModelIndex = model;
    std::memcpy(id.serial, r.serial, sizeof id.serial);
    const std::int32_t address = GetAddress_SN(serial);
    id.address = address >= 1 ? address : -1;
    ResetInstrumentState(r.current);
    for (int n = 0; n < kDefaultRegisters; ++n) ResetInstrumentState(r.registers[n]);
    id.valid = 1;
}

}  // namespace

std::int32_t InitializeSensorCore(const char* serial) {
    const std::uint32_t me = platform::CurrentProcessId();
    for (int s = 0; s < kSlotCount; ++s) {
        const DeviceRecord& r = Slot(s);
        if (r.inUse != 0 && SerialNumbersEqualExactly(r.serial, serial))
            return r.ownerPid == me ? SlotNumber(s) : -1;
    }
    std::int32_t slot = kNoSlot;
    for (int s = 0; s < kSlotCount && slot == kNoSlot; ++s)
        if (Slot(s).inUse == 0) slot = s;
    if (slot == kNoSlot) return -1;
    DeviceRecord& r = Slot(slot);
    SetUpIdentity(slot, serial);

    const std::int32_t index = GetIndex_SN(serial);
    SetModelGrid(slot);
    if (r.identity.ModelIndex == 8 || r.identity.ModelIndex == 71)
        r.analysisSetup.measThreshold = -40.0;
    if (index < 1) return -1;

    // Departure: each open by index confirms the serial number (docs/decisions.md).
    std::int64_t h = OpenKnownDevice_Idx(index, serial);
    if (!IsHandle(h)) return -1;
    std::uint8_t cmdBuff[1] = {};
    VendorRequestIn(h, kReqInitPing, cmdBuff, 1);
    std::int32_t tmpAddr = 0;
    ReadSensorAddress(h, &tmpAddr);
    r.devId = index;
    r.address = tmpAddr;

    // The slot's raw transfer buffer holds the image while it is decoded:
    // nothing is allocated per sensor.
    std::uint8_t* image = r.samples.raw;
    static_assert(sizeof(r.samples.raw) >= kCalImageBytes);
    // Departure: a calibration that could not be read fails the initialisation
    // rather than going on with a wrong image (docs/decisions.md).
    const std::int32_t loaded = LoadCalImage(h, serial, image);
    CloseDevice(h);
    if (loaded != 1) return -1;
    DecodeCalImage(slot, image);
    // Rows left by the slot's previous sensor may have been built for the
    // same frequency; they must not pass for this sensor's.
    r.tempRows[0].freq = 0.0;
    BuildCalTables(slot, 1.0e9);

    h = OpenKnownDevice_Idx(r.devId, serial);
    if (!IsHandle(h)) return -1;
    r.deviceHandle = h;
    r.ownerPid = me;
    r.inUse = 1;
    r.trace.filter = 9;
    SetTTLTriggerInEnabled(r.address, 0);
    return SlotNumber(slot);
}

std::int32_t InitializeSensor_SN(const char* serial) {
    if (!IsValidSerialNumber(serial)) return -1;
    return InitializeSensorCore(serial);
}

std::int32_t InitializeSensor_Addr(std::int32_t address) {
    if (!IsValidAddress(address)) return -1;
    for (int s = 0; s < kSlotCount; ++s)
        if (Slot(s).address == address) return OwnedByCaller(s) ? 1 : -1;
    char serial[20] = {};
    const std::int32_t r = GetSerNo_Addr(address, serial);
    if (r < 1) return r;
    return InitializeSensorCore(serial);
}

std::int32_t InitializeSensor_Idx(std::int32_t index) {
    if (!IsValidDeviceIndex(index)) return -1;
    for (int s = 0; s < kSlotCount; ++s) {
        if (Slot(s).devId != index) continue;
        if (Slot(s).inUse == 0 || !OwnedByCaller(s)) return -1;
        return SlotNumber(s);
    }
    char serial[20] = {};
    const std::int32_t r = GetSerNo_Idx(index, serial);
    if (r < 1) return r;
    return InitializeSensorCore(serial);
}

}  // namespace qv
