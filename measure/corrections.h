// What the CW and pulse readings share once acquired: finding the caller's
// sensor, the 75-ohm correction, relative readings undone for the limits and
// the recorder, and the limit verdict.
#pragma once

#include <cstdint>

namespace qv {

// The slot of the initialised sensor at `address` when the calling process
// owns it (the acquisition uses the handles kept there); kNoSlot otherwise.
// Looks in the table only, so that a streaming reading sends nothing but its
// pipe read.
std::int32_t OwnedMeasurementSlot(std::int32_t address);

// dB added for a 75-ohm input: 5.72 for power units, 7.48 for voltage units,
// nothing for relative readings.
double Correction75Ohms(std::int32_t powerUnits);

// A CW reading in the slot's PowerUnits, in dBm. A relative reading (unit 8)
// is taken against the CW reference, so that limits and the recorder see the
// absolute power the caller means instead of -9999.999.
double CWReadingToDbm(std::int32_t slot, double reading);
// The same for a pulse power, relative readings against the pulse reference.
double PulseReadingToDbm(std::int32_t slot, double reading);

// The LimitStatus of `dbm` under the slot's LimitsEnabled: single-sided (1),
// double-sided (2), else 5 (not evaluated).
std::int32_t LimitVerdict(std::int32_t slot, double dbm);

}  // namespace qv
