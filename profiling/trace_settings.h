// Pulse-profiling settings of a slot.
#pragma once

#include "frame/shared_table.h"

namespace qv {

// Pulse-profiling settings, gates and markers to their defaults; the gate
// modes and the analysis trace itself survive.
void ResetProfilingDefaults(DeviceRecord& record);

}  // namespace qv
