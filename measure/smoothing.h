// Extended averaging and max hold: smoothing of finished readings across
// calls. The CW readings keep one memory, the pulse readings another, both in
// the current state; each kind of reading restarts the other's memory.
#pragma once

#include <cstdint>

#include "qv_api2.h"

namespace qv {

// Max hold, then extended averaging, of a CW reading in dBm; the reading as
// they leave it. Restarts the pulse memories.
double UpdateCWSmoothing(InstrumentState& state, double dbm);

// The same for the pulse set: three powers in dBm and the duty cycle as a
// fraction, updated in place. Restarts the CW memories.
struct PulseReadings {
    double pulse;
    double peak;
    double average;
    double dutyCycle;
};
void UpdatePulseSmoothing(InstrumentState& state, PulseReadings& readings);

}  // namespace qv
