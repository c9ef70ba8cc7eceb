// The plain measurement settings of a sensor's current state: frequency,
// averaging, offset, duty cycle, units, references, pulse criteria,
// anti-aliasing and the 75-ohm correction.
//
// Every operation takes the sensor's address first and answers 1 or -1.
// Getters need the caller to own the sensor and find the slot in the table;
// setters check their value before any lookup and resolve the address on the
// bus. Outputs are written on success only.
#pragma once

#include <cstdint>

#include "frame/shared_table.h"

namespace qv {

// Slot lookups shared by the settings operations; each gives the slot index or
// kNoSlot (-1).
// Getters: the caller owns the sensor, then the first slot with the address.
std::int32_t SlotForGetter(std::int32_t address);
// Setters: the slot of the sensor answering to the address on the bus.
std::int32_t SlotForSetter(std::int32_t address);

// A getter: copies what `field` reads from the current state of the caller's
// sensor through `out`. 1; -1 for a null `out`, or a sensor not owned or not
// in the table.
template <class T, class Field>
std::int32_t GetCurrentField(std::int32_t address, T* out, Field field) {
    if (!out) return -1;
    const std::int32_t slot = SlotForGetter(address);
    if (slot == kNoSlot) return -1;
    *out = field(Slot(slot).current);
    return 1;
}

std::int32_t GetFrequency(std::int32_t address, double* hz);
std::int32_t GetAverages(std::int32_t address, std::int32_t* averages);
std::int32_t GetOffset(std::int32_t address, double* db);
std::int32_t GetOffsetEnabled(std::int32_t address, std::int32_t* enabled);
std::int32_t GetDutyCycleEnabled(std::int32_t address, std::int32_t* enabled);
std::int32_t GetDutyCyclePerCent(std::int32_t address, double* perCent);
std::int32_t GetMeasurementPowerUnits(std::int32_t address, std::int32_t* units);
std::int32_t GetCWReference(std::int32_t address, double* value, std::int32_t* units);
std::int32_t GetPulseReference(std::int32_t address, double* pulse, double* peak, double* average,
                               double* dutyCycle, std::int32_t* units);
std::int32_t GetPulseCriteria(std::int32_t address, double* db);
std::int32_t GetAutoPulseEnabled(std::int32_t address, std::int32_t* enabled);
std::int32_t GetAntiAliasingEnabled(std::int32_t address, std::int32_t* enabled);
std::int32_t Get75OhmsEnabled(std::int32_t address, std::int32_t* enabled);

// Stores the frequency first, then checks it (-1 leaves it stored); at
// 100 MHz and below also switches anti-aliasing on.
std::int32_t SetFrequency(std::int32_t address, double hz);
std::int32_t SetAverages(std::int32_t address, std::int32_t averages);
// SetOffset, SetDutyCyclePerCent and SetMeasurementPowerUnits store their
// value before testing the device handle: without one they answer -1 with the
// value kept.
std::int32_t SetOffset(std::int32_t address, double db);
std::int32_t SetOffsetEnabled(std::int32_t address, std::int32_t enabled);
std::int32_t SetDutyCycleEnabled(std::int32_t address, std::int32_t enabled);
std::int32_t SetDutyCyclePerCent(std::int32_t address, double perCent);
std::int32_t SetMeasurementPowerUnits(std::int32_t address, std::int32_t units);
std::int32_t SetCWReference(std::int32_t address, double value, std::int32_t units);
std::int32_t SetPulseReference(std::int32_t address, double pulse, double peak, double average,
                               double dutyCycle, std::int32_t units);
std::int32_t SetPulseCriteria(std::int32_t address, double db);
std::int32_t SetAutoPulseEnabled(std::int32_t address, std::int32_t enabled);
// The anti-aliasing setter's operation, also used by SetFrequency: on sends
// the shuffled table and 197, off sends 196; the field takes the value
// whatever the sensor answered. A failed request closes the slot's device
// handle and answers -1.
std::int32_t SetAntiAliasingEnabled(std::int32_t address, std::int32_t enabled);
std::int32_t Set75OhmsEnabled(std::int32_t address, std::int32_t enabled);

// Writes a shuffled permutation of 0..255 into the sensor's working buffer
// (the base that request 242 names): 1, or -1 when a request fails.
std::int32_t SendJiggleTable(std::int64_t h);

}  // namespace qv
