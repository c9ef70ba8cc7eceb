#include "states/registers.h"

#include <cstring>

#include "frame/frame.h"
#include "frame/lookups.h"
#include "settings/instrument_state.h"
#include "settings/units.h"
#include "states/state_file.h"

namespace qv {

namespace {

constexpr double kLevelLimit = 200.0;  // references, offsets, levels, limits: +-200
constexpr double kMinFraction = 1e-5;  // PlsRefDC and DutyeCycle: 1e-5 to 1

// Inclusive; NaN is never within.
bool Within(double v, double low, double high) { return v >= low && v <= high; }
bool Within(std::int32_t v, std::int32_t low, std::int32_t high) { return v >= low && v <= high; }
bool IsLevel(double v) { return Within(v, -kLevelLimit, kLevelLimit); }
bool IsFlag(std::int32_t v) { return v == 0 || v == 1; }

bool IsValidRegister(std::int32_t reg) { return reg >= 0 && reg < kRegisterCount; }

// Slot of a sensor the caller owns, found with LookupSlot_Addr; kNoSlot if not.
std::int32_t OwnedStateSlot(std::int32_t address) {
    if (IsDeviceMine_Addr(address) != 1) return kNoSlot;
    return StateSlot(address, false);
}

// The persisted fields (1 to 34 and 42 to 45), field by field.
void CopyPersisted(const InstrumentState& from, InstrumentState& to) {
    to.MeasMode = from.MeasMode;
    to.Freq = from.Freq;
    to.CWRef = from.CWRef;
    to.PlsRefPulse = from.PlsRefPulse;
    to.PlsRefPeak = from.PlsRefPeak;
    to.PlsRefAvg = from.PlsRefAvg;
    to.PlsRefDC = from.PlsRefDC;
    to.PulseCriteria_DB = from.PulseCriteria_DB;
    to.Offset_DB = from.Offset_DB;
    to.DutyeCycle = from.DutyeCycle;
    to.RecorderOut_OV_Level = from.RecorderOut_OV_Level;
    to.RecorderOut_1V_Level = from.RecorderOut_1V_Level;
    to.SingleSidedLimit = from.SingleSidedLimit;
    to.DoubleSidedLowerLimit = from.DoubleSidedLowerLimit;
    to.DoubleSidedUpperLimit = from.DoubleSidedUpperLimit;
    to.Averages = from.Averages;
    to.TriggerDelay_mSec = from.TriggerDelay_mSec;
    to.PowerUnits = from.PowerUnits;
    to.CWRefUnits = from.CWRefUnits;
    to.PulseRefUnits = from.PulseRefUnits;
    to.SingleSideLimitUnits = from.SingleSideLimitUnits;
    to.DoubleSideLimitUnits = from.DoubleSideLimitUnits;
    to.RecorderOutUnits = from.RecorderOutUnits;
    to.AntiAliasingEnabled = from.AntiAliasingEnabled;
    to.OffsetEnabled = from.OffsetEnabled;
    to.ResponseEnabled = from.ResponseEnabled;
    to.DutyCycleEnabled = from.DutyCycleEnabled;
    to.AutoPulseCriteriaEnabled = from.AutoPulseCriteriaEnabled;
    to.TTL_TriggerInEnabled = from.TTL_TriggerInEnabled;
    to.TTL_TriggerInIvertedEnabled = from.TTL_TriggerInIvertedEnabled;
    to.TTL_TriggerOutEnabled = from.TTL_TriggerOutEnabled;
    to.TTL_TriggerOutInvertEnabled = from.TTL_TriggerOutInvertEnabled;
    to.RecorderOutEnabled = from.RecorderOutEnabled;
    to.LimitsEnabled = from.LimitsEnabled;
    to.SingleSidedLimitsRule = from.SingleSidedLimitsRule;
    to.DoubleSidedLimitsRule = from.DoubleSidedLimitsRule;
    to.NumberOfResponsePoints = from.NumberOfResponsePoints;
    std::memcpy(to.Response, from.Response, sizeof to.Response);
}

}  // namespace

std::int32_t CheckInstrumentState(std::int32_t slot, const InstrumentState& s) {
    const bool passes =
        IsValidFrequency(slot, s.Freq) == 1 &&
        Within(s.Averages, 1, 100000) &&
        IsLevel(s.CWRef) && IsLevel(s.PlsRefPulse) && IsLevel(s.PlsRefPeak) &&
        IsLevel(s.PlsRefAvg) &&
        Within(s.PlsRefDC, kMinFraction, 1.0) &&
        Within(s.PowerUnits, 0, 8) && Within(s.CWRefUnits, 0, 7) && Within(s.PulseRefUnits, 0, 7) &&
        Within(s.SingleSideLimitUnits, 0, 8) && Within(s.DoubleSideLimitUnits, 0, 8) &&
        Within(s.RecorderOutUnits, 0, 7) &&
        IsFlag(s.AntiAliasingEnabled) && IsFlag(s.OffsetEnabled) && IsFlag(s.ResponseEnabled) &&
        IsFlag(s.DutyCycleEnabled) && IsFlag(s.AutoPulseCriteriaEnabled) &&
        IsFlag(s.TTL_TriggerInEnabled) && IsFlag(s.TTL_TriggerInIvertedEnabled) &&
        IsFlag(s.TTL_TriggerOutEnabled) && IsFlag(s.TTL_TriggerOutInvertEnabled) &&
        IsFlag(s.RecorderOutEnabled) &&
        !(s.RecorderOutEnabled == 1 && s.TTL_TriggerInEnabled != 0) &&
        Within(s.LimitsEnabled, 0, 2) &&
        Within(s.SingleSidedLimitsRule, 0, 3) && Within(s.DoubleSidedLimitsRule, 0, 3) &&
        Within(s.TriggerDelay_mSec, 1, 30000) &&
        IsLevel(s.PulseCriteria_DB) && IsLevel(s.Offset_DB) &&
        Within(s.DutyeCycle, kMinFraction, 1.0) &&
        IsLevel(s.RecorderOut_OV_Level) && IsLevel(s.RecorderOut_1V_Level) &&
        IsLevel(s.SingleSidedLimit) && IsLevel(s.DoubleSidedLowerLimit) &&
        IsLevel(s.DoubleSidedUpperLimit) &&
        Within(s.NumberOfResponsePoints, 0, QV_RESPONSE_POINTS);
    if (!passes) return kFailure;
    for (std::int32_t i = 0; i < s.NumberOfResponsePoints; ++i) {
        if (!IsLevel(s.Response[i].Amplitude) || IsValidFrequency(slot, s.Response[i].Frequency) != 1)
            return kFailure;
    }
    return kSuccess;
}

void StoreRegister(std::int32_t slot, std::int32_t n) {
    DeviceRecord& r = Slot(slot);
    CopyPersisted(r.current, r.registers[n]);
}

void RecallRegister(std::int32_t slot, std::int32_t n) {
    DeviceRecord& r = Slot(slot);
    CopyPersisted(r.registers[n], r.current);
}

std::int32_t GetCurrentState(std::int32_t address, InstrumentState* state) {
    if (!state) return kFailure;
    const std::int32_t slot = OwnedStateSlot(address);
    if (slot == kNoSlot) return kFailure;
    *state = Slot(slot).current;
    return kSuccess;
}

std::int32_t SetCurrentState(std::int32_t address, const InstrumentState& state) {
    const std::int32_t slot = OwnedStateSlot(address);
    if (slot == kNoSlot) return kFailure;
    // A state that fails the check is dropped without a word: the caller
    // learns it only by reading the state back.
    if (CheckInstrumentState(slot, state) == kSuccess) Slot(slot).current = state;
    return kSuccess;
}

std::int32_t GetRegState(std::int32_t address, std::int32_t reg, InstrumentState* state) {
    if (!IsValidRegister(reg) || !state) return kFailure;
    const std::int32_t slot = OwnedStateSlot(address);
    if (slot == kNoSlot) return kFailure;
    *state = Slot(slot).registers[reg];
    return kSuccess;
}

std::int32_t SetRegState(std::int32_t address, std::int32_t reg, const InstrumentState& state) {
    if (!IsValidRegister(reg)) return kFailure;
    const std::int32_t slot = OwnedStateSlot(address);
    if (slot == kNoSlot) return kFailure;
    if (CheckInstrumentState(slot, state) == kSuccess) Slot(slot).registers[reg] = state;
    return kSuccess;
}

std::int32_t Store(std::int32_t address, std::int32_t reg) {
    if (!IsValidRegister(reg)) return kFailure;
    const std::int32_t slot = StateSlot(address, true);
    if (slot == kNoSlot) return kFailure;
    StoreRegister(slot, reg);
    return kSuccess;
}

std::int32_t Recall(std::int32_t address, std::int32_t reg) {
    if (!IsValidRegister(reg)) return kFailure;
    const std::int32_t slot = OwnedStateSlot(address);
    if (slot == kNoSlot) return kFailure;
    RecallRegister(slot, reg);
    return Slot(slot).current.MeasMode;
}

std::int32_t ResetCurrentState(std::int32_t address) {
    const std::int32_t slot = OwnedStateSlot(address);
    if (slot == kNoSlot) return kFailure;
    ResetInstrumentState(Slot(slot).current);
    return kSuccess;
}

std::int32_t ResetRegStates(std::int32_t address) {
    const std::int32_t slot = OwnedStateSlot(address);
    if (slot == kNoSlot) return kFailure;
    for (InstrumentState& reg : Slot(slot).registers) ResetInstrumentState(reg);
    return kSuccess;
}

}  // namespace qv
