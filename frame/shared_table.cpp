#include "frame/shared_table.h"

#include <cstring>
#include <limits>

#include "settings/instrument_state.h"

namespace qv {

SharedBlock* tableView = nullptr;

namespace {

void ResetHeader(DeviceRecord& r) {
    r.calTmp = kResetCalTmp;
    std::memset(r.serial, 0, sizeof r.serial);
    r.inUse = 0;
    r.deviceHandle = kNoHandle;
    r.winUsbHandle = kNoHandle;
    r.devId = 0;
    r.address = 0;
    r.streamArmed = 0;
}

// The grid every slot starts with, before a sensor's calibration replaces it:
// 10 MHz, then steps of 25 MHz; levels in steps of 2 dB from each path's bottom.
void ResetCalibrationGrid(DeviceRecord& r) {
    for (int i = 0; i < kCalFreqPoints; ++i) {
        CalFreqPoint& point = r.calPoints[i];
        point.freq = i == 0 ? 1.0e7 : i * 2.5e7;
        for (int j = 0; j < kCalLevels; ++j) {
            point.hs[j].level = -70.0 + 2.0 * j;
            point.ls[j].level = -30.0 + 2.0 * j;
        }
    }
}

}  // namespace

void ResetReleasedRecord(int index) {
    DeviceRecord& r = Slot(index);
    ResetHeader(r);
    r.ownerPid = 0;
    ResetCalibrationGrid(r);
}

void ResetDeviceRecord(int index) {
    DeviceRecord& r = Slot(index);
    ResetHeader(r);
    r.bookkeeping.counter = 0;
    r.bookkeeping.value = -1;
    for (double& v : r.bookkeeping.values) v = 0.0;
    ResetCalibrationGrid(r);
    ResetPersistedSettings(r, r.current);
    for (int n = 0; n < kDefaultRegisters; ++n) ResetPersistedSettings(r, r.registers[n]);
}

void SetUpFreshBlock(SharedBlock& block) {
    // The block arrives zero-filled; only the non-zero starting values are set.
    block.sysTimeOut = 500;
    for (int s = 0; s < kSlotCount; ++s) {
        DeviceRecord& r = block.table[s];
        r.ownerPid = 0;
        ResetHeader(r);
        ResetCalibrationGrid(r);
        IdentityBlock& id = r.identity;
        id.ModelIndex = -1;  // no sensor, so no model
        std::memset(id.serial, 0, sizeof id.serial);
        id.address = -1;
        ResetInstrumentState(r.current);
        for (int n = 0; n < kDefaultRegisters; ++n) ResetInstrumentState(r.registers[n]);
        id.valid = 1;
    }
    for (int s = 0; s < kSlotCount; ++s) ResetDeviceRecord(s);
    block.positiveInfinity = std::numeric_limits<double>::infinity();
}

}  // namespace qv
