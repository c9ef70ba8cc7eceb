// Defaults and resets of the measurement settings record.
#pragma once

#include "frame/shared_table.h"

namespace qv {

// Full reset: every field, persisted and run-time, takes its default.
void ResetInstrumentState(InstrumentState& state);

// The persisted fields only; the run-time fields (extended averaging, max hold,
// 75-ohm correction) keep whatever they hold. Applied to the record's current
// state it also puts the pulse-profiling settings, gates and markers to their
// defaults; nothing else resets those.
void ResetPersistedSettings(DeviceRecord& record, InstrumentState& state);

}  // namespace qv
