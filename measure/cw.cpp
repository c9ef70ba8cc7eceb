// The CW reading: acquisition (split when large), trigger-output pulse,
// smoothing, corrections, unit and the recorder output.
#include <cmath>

#include "device/transport.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"
#include "measure/acquisition.h"
#include "measure/conversion.h"
#include "measure/measure.h"
#include "measure/corrections.h"
#include "measure/smoothing.h"
#include "settings/limits.h"
#include "settings/recorder.h"
#include "settings/units.h"

namespace qv {

namespace {

constexpr double kFailedReading = -80.0;   // dBm, when the trigger output could not be put back
constexpr double kFloorModel1 = -37.0;     // dBm
constexpr double kFloor = -80.0;           // dBm
constexpr std::int32_t kMeasModeCW = 1;
constexpr std::int32_t kMeasModeCWLimits = 2;

// Averages blocks in one acquisition, or, above 100, in several of at most
// 100 whose readings are averaged in watts. Averages is the caller's again on
// every path out.
std::int32_t AcquireCW(DeviceRecord& r, double* dbm) {
    InstrumentState& s = r.current;
    double hs = 0.0, ls = 0.0;
    if (s.Averages <= kMaxBlocksPerRun) {
        if (MeasureCWCore(r.serial, &hs, &ls) < 1) return QV_ERR_ACQUISITION;
        *dbm = hs;
        return 1;
    }
    const AveragingSplit split = SplitAverages(s.Averages);
    AveragesOverride runAverages(s, split.blocks);
    double sumW = 0.0;
    for (std::int32_t run = 0; run < split.runs; ++run) {
        if (MeasureCWCore(r.serial, &hs, &ls) < 1) return QV_ERR_ACQUISITION;
        sumW += DbmToWatts(hs);
    }
    *dbm = WattsToDbm(sumW / split.runs);
    return 1;
}

// Floor, offset, frequency response, 75 ohm, duty cycle and the unit.
double CorrectCW(std::int32_t slot, double v) {
    const DeviceRecord& r = Slot(slot);
    const InstrumentState& s = r.current;
    const double floor = r.identity.ModelIndex == 1 ? kFloorModel1 : kFloor;
    if (v < floor) v = floor;
    if (s.OffsetEnabled == 1) v += s.Offset_DB;
    if (s.ResponseEnabled == 1) v += ResponseCorrection(slot, s.Freq);
    if (s.Enabled75Ohms == 1) v += Correction75Ohms(s.PowerUnits);
    if (s.DutyCycleEnabled == 1) v -= 10.0 * std::log10(s.DutyeCycle);
    if (s.PowerUnits == QV_UNIT_DB_REL) return v - UnitsToDbm(s.CWRef, s.CWRefUnits);
    return DbmToUnits(v, s.PowerUnits);
}

}  // namespace

std::int32_t MeasureCW(std::int32_t address, double* reading) {
    if (!reading) return -1;
    const std::int32_t slot = OwnedMeasurementSlot(address);
    if (slot == kNoSlot) return -1;
    DeviceRecord& r = Slot(slot);
    InstrumentState& s = r.current;
    s.MeasMode = kMeasModeCW;

    const bool pulseTrigger = PulsesTriggerOutput(s);
    if (pulseTrigger) FlipTriggerOutput(address, s);
    double v = 0.0;
    if (AcquireCW(r, &v) < 1) return QV_ERR_ACQUISITION;
    std::int32_t status = 1;
    if (pulseTrigger) status = FlipTriggerOutput(address, s);  // back as it was
    if (status < 1) v = kFailedReading;

    v = UpdateCWSmoothing(s, v);
    v = CorrectCW(slot, v);
    if (IsHandle(r.deviceHandle) && s.RecorderOutEnabled == 1)
        status = RecorderOutputValue(r.deviceHandle, slot, CWReadingToDbm(slot, v));
    *reading = v;
    return status;
}

std::int32_t MeasureCW_PF(std::int32_t address, double* reading, std::int32_t* passFail) {
    if (!reading || !passFail) return -1;
    if (MeasureCW(address, reading) < 1) return -1;
    const std::int32_t slot = OwnedMeasurementSlot(address);
    if (slot == kNoSlot) return -1;
    Slot(slot).current.MeasMode = kMeasModeCWLimits;
    *passFail = LimitVerdict(slot, CWReadingToDbm(slot, *reading));
    return 1;
}

}  // namespace qv
