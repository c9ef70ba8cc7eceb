#include "settings/instrument_state.h"

#include "profiling/trace_settings.h"

namespace qv {

namespace {
void ResetPersistedFields(InstrumentState& s) {
    s.MeasMode = 1;
    s.Freq = 1.0e9;
    s.CWRef = 0.0;
    s.PlsRefPulse = 0.0;
    s.PlsRefPeak = 0.0;
    s.PlsRefAvg = 0.0;
    s.PlsRefDC = 0.0;
    s.PulseCriteria_DB = 3.0;
    s.Offset_DB = 0.0;
    s.DutyeCycle = 0.1;
    s.RecorderOut_OV_Level = -20.0;
    s.RecorderOut_1V_Level = 10.0;
    s.SingleSidedLimit = 0.0;
    s.DoubleSidedLowerLimit = -10.0;
    s.DoubleSidedUpperLimit = 10.0;
    s.Averages = 75;
    s.TriggerDelay_mSec = 500;
    s.PowerUnits = 0;
    s.CWRefUnits = 0;
    s.PulseRefUnits = 0;
    s.SingleSideLimitUnits = 0;
    s.DoubleSideLimitUnits = 0;
    s.RecorderOutUnits = 0;
    s.AntiAliasingEnabled = 0;
    s.OffsetEnabled = 0;
    s.ResponseEnabled = 0;
    s.DutyCycleEnabled = 0;
    s.AutoPulseCriteriaEnabled = 0;
    s.TTL_TriggerInEnabled = 0;
    s.TTL_TriggerInIvertedEnabled = 0;
    s.TTL_TriggerOutEnabled = 0;
    s.TTL_TriggerOutInvertEnabled = 0;
    s.RecorderOutEnabled = 0;
    s.LimitsEnabled = 0;
    s.SingleSidedLimitsRule = 2;
    s.DoubleSidedLimitsRule = 0;
    s.NumberOfResponsePoints = 0;
    for (auto& point : s.Response) {
        point.Frequency = 1.0e9;
        point.Amplitude = 0.0;
    }
}
}  // namespace

void ResetInstrumentState(InstrumentState& s) {
    ResetPersistedFields(s);
    s.ExtendedAveragingEnabled = 0;
    s.MaxHoldEnabled = 0;
    s.ExtendedAveragingCount = 1;
    s.ExtendedAveragingProgress[0] = 0;
    s.ExtendedAveragingProgress[1] = 0;
    s.MaxHoldRestart[0] = 1;
    s.MaxHoldRestart[1] = 1;
    for (double& held : s.MaxHoldValues) held = -100.0;
    s.Enabled75Ohms = 0;
}

void ResetPersistedSettings(DeviceRecord& record, InstrumentState& state) {
    ResetPersistedFields(state);
    if (&state == &record.current) ResetProfilingDefaults(record);
}

}  // namespace qv
