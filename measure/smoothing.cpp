#include "measure/smoothing.h"

#include <algorithm>

#include "frame/lookups.h"
#include "frame/shared_table.h"
#include "measure/measure.h"
#include "settings/units.h"

namespace qv {

namespace {

constexpr int kCW = 0;     // index of the CW memory in the progress and restart pairs
constexpr int kPulse = 1;  // and of the pulse memory
// Held values: [0] the CW reading, [1..4] pulse, peak, average, duty cycle.
constexpr int kHeldCW = 0;
constexpr int kHeldPulse = 1;

double WattMean(double held, double reading, double w) {
    return UnitsToDbm((1.0 - w) * DbmToUnits(held, QV_UNIT_W) + w * DbmToUnits(reading, QV_UNIT_W),
                      QV_UNIT_W);
}

// The slot of an initialised sensor owned by the caller; kNoSlot otherwise.
std::int32_t OwnedSlot(std::int32_t address) {
    if (IsDeviceMine_Addr(address) != 1) return kNoSlot;
    return GetOwnedSlot_Addr(address);
}

template <class Change>
std::int32_t ChangeState(std::int32_t address, Change change) {
    const std::int32_t slot = OwnedSlot(address);
    if (slot == kNoSlot) return -1;
    change(Slot(slot).current);
    return 1;
}

template <class T, class Field>
std::int32_t ReadState(std::int32_t address, T* out, Field field) {
    if (!out) return -1;
    const std::int32_t slot = OwnedSlot(address);
    if (slot == kNoSlot) return -1;
    *out = static_cast<T>(field(Slot(slot).current));
    return 1;
}

}  // namespace

double UpdateCWSmoothing(InstrumentState& s, double v) {
    double& held = s.MaxHoldValues[kHeldCW];
    std::int32_t& k = s.ExtendedAveragingProgress[kCW];
    if (s.MaxHoldEnabled == 1) {
        if (s.MaxHoldRestart[kCW] == 1) {
            held = v;
            k = 0;
        } else {
            v = std::max(v, held);
            held = v;
        }
    }
    s.MaxHoldRestart[kCW] = 0;
    if (s.ExtendedAveragingEnabled == 1) {
        if (k == 0) {
            k = 1;
        } else {
            const std::int32_t n = static_cast<std::int32_t>(s.ExtendedAveragingCount);
            k = (k > 0 && k < n) ? k + 1 : n;
            v = WattMean(held, v, 1.0 / (k + 1));
        }
        held = v;
    }
    s.MaxHoldRestart[kPulse] = 1;
    s.ExtendedAveragingProgress[kPulse] = 0;
    return v;
}

void UpdatePulseSmoothing(InstrumentState& s, PulseReadings& r) {
    double* held = &s.MaxHoldValues[kHeldPulse];
    double* const values[4] = {&r.pulse, &r.peak, &r.average, &r.dutyCycle};
    std::int32_t& k = s.ExtendedAveragingProgress[kPulse];
    if (s.MaxHoldEnabled == 1) {
        if (s.MaxHoldRestart[kPulse] == 1) {
            for (int i = 0; i < 4; ++i) held[i] = *values[i];
            k = 0;
        } else {
            for (int i = 0; i < 4; ++i) held[i] = *values[i] = std::max(*values[i], held[i]);
        }
    }
    s.MaxHoldRestart[kPulse] = 0;
    if (s.ExtendedAveragingEnabled == 1) {
        if (k == 0) {
            k = 1;
        } else {
            const std::int32_t n = static_cast<std::int32_t>(s.ExtendedAveragingCount);
            k = k < n ? k + 1 : n;
            const double w = 1.0 / (k + 1);
            for (int i = 0; i < 3; ++i) *values[i] = WattMean(held[i], *values[i], w);
            r.dutyCycle = (1.0 - w) * held[3] + w * r.dutyCycle;  // a fraction: averaged as is
        }
        for (int i = 0; i < 4; ++i) held[i] = *values[i];
    }
    s.MaxHoldRestart[kCW] = 1;
    s.ExtendedAveragingProgress[kCW] = 0;
}

std::int32_t GetExtendedAveragingEnabled(std::int32_t address, std::int32_t* enabled) {
    return ReadState(address, enabled,
                     [](const InstrumentState& s) { return s.ExtendedAveragingEnabled; });
}

std::int32_t SetExtendedAveragingEnabled(std::int32_t address, std::int32_t enabled) {
    return ChangeState(address, [&](InstrumentState& s) { s.ExtendedAveragingEnabled = enabled; });
}

std::int32_t GetExtendedAveraging(std::int32_t address, std::int32_t* count) {
    return ReadState(address, count,
                     [](const InstrumentState& s) { return s.ExtendedAveragingCount; });
}

std::int32_t SetExtendedAveraging(std::int32_t address, std::int32_t count) {
    return ChangeState(address, [&](InstrumentState& s) {
        s.ExtendedAveragingCount = count;
        s.ExtendedAveragingProgress[kCW] = s.ExtendedAveragingProgress[kPulse] = 0;
    });
}

std::int32_t ResetExtendedAveraging(std::int32_t address) {
    return ChangeState(address, [](InstrumentState& s) {
        s.ExtendedAveragingProgress[kCW] = s.ExtendedAveragingProgress[kPulse] = 0;
    });
}

std::int32_t GetMaxHoldEnabled(std::int32_t address, std::int32_t* enabled) {
    return ReadState(address, enabled, [](const InstrumentState& s) { return s.MaxHoldEnabled; });
}

std::int32_t SetMaxHoldEnabled(std::int32_t address, std::int32_t enabled) {
    return ChangeState(address, [&](InstrumentState& s) {
        s.MaxHoldEnabled = enabled;
        s.MaxHoldRestart[kCW] = s.MaxHoldRestart[kPulse] = 1;
    });
}

std::int32_t ResetMaxHold(std::int32_t address) {
    return ChangeState(address, [](InstrumentState& s) {
        s.MaxHoldRestart[kCW] = s.MaxHoldRestart[kPulse] = 1;
    });
}

}  // namespace qv
