#include "settings/limits.h"

#include <algorithm>
#include <vector>

#include "device/transport.h"
#include "frame/lookups.h"
#include "frame/shared_table.h"
#include "settings/recorder.h"
#include "settings/settings.h"
#include "settings/units.h"

namespace qv {

namespace {

bool IsLimitUnit(std::int32_t u) { return u >= QV_UNIT_DBM && u <= QV_UNIT_V; }
bool IsLimitRule(std::int32_t r) { return r >= 0 && r <= 3; }
bool IsLimitValue(double v) { return v >= -200.0 && v <= 200.0; }  // NaN is out
bool IsValidSlot(std::int32_t slot) { return slot >= 0 && slot < kSlotCount; }

// The slot of a 5.2 setter: resolved on the bus, then owned by the caller.
std::int32_t ResolvedOwnedSlot(std::int32_t address) {
    const std::int32_t slot = SlotForSetter(address);
    if (slot == kNoSlot) return kNoSlot;
    if (IsDeviceMine_Addr(address) != 1) return kNoSlot;
    return slot;
}

}  // namespace

double LimitUnitsToDbm(std::int32_t slot, double value, std::int32_t unit) {
    if (unit != QV_UNIT_DB_REL || !IsValidSlot(slot)) return UnitsToDbm(value, unit);
    // A relative value undone: the measurement made it reading - reference.
    const InstrumentState& s = Slot(slot).current;
    return value + UnitsToDbm(s.CWRef, s.CWRefUnits);
}

std::int32_t EvaluateSingleSidedLimit(std::int32_t slot, double p) {
    if (!IsValidSlot(slot)) return QV_LIMIT_NOT_EVALUATED;  // neither pass nor fail
    const InstrumentState& s = Slot(slot).current;
    const double l = LimitUnitsToDbm(slot, s.SingleSidedLimit, s.SingleSideLimitUnits);
    switch (s.SingleSidedLimitsRule) {
        case 0: return p >= l ? QV_LIMIT_ABOVE : QV_LIMIT_PASS;
        case 1: return p > l ? QV_LIMIT_ABOVE : QV_LIMIT_PASS;
        case 2: return p <= l ? QV_LIMIT_BELOW : QV_LIMIT_PASS;
        case 3: return p < l ? QV_LIMIT_BELOW : QV_LIMIT_PASS;
        default: return QV_LIMIT_NOT_EVALUATED;
    }
}

std::int32_t EvaluateDoubleSidedLimit(std::int32_t slot, double p) {
    if (!IsValidSlot(slot)) return QV_LIMIT_NOT_EVALUATED;
    const InstrumentState& s = Slot(slot).current;
    const double lo = LimitUnitsToDbm(slot, s.DoubleSidedLowerLimit, s.DoubleSideLimitUnits);
    const double hi = LimitUnitsToDbm(slot, s.DoubleSidedUpperLimit, s.DoubleSideLimitUnits);
    switch (s.DoubleSidedLimitsRule) {
        case 0:
            if (p <= lo) return QV_LIMIT_BELOW;
            return p >= hi ? QV_LIMIT_ABOVE : QV_LIMIT_PASS;
        case 1:
            if (p < lo) return QV_LIMIT_BELOW;
            return p > hi ? QV_LIMIT_ABOVE : QV_LIMIT_PASS;
        case 2: return (p >= lo && p <= hi) ? QV_LIMIT_INSIDE : QV_LIMIT_PASS;
        case 3: return (p > lo && p < hi) ? QV_LIMIT_STRICTLY_INSIDE : QV_LIMIT_PASS;
        default: return QV_LIMIT_NOT_EVALUATED;
    }
}

double ResponseCorrection(std::int32_t slot, double f) {
    if (!IsValidSlot(slot)) return 0.0;  // no table, no correction
    const InstrumentState& s = Slot(slot).current;
    const QV_ResponsePoint* e = s.Response;
    const std::int32_t n = std::min(s.NumberOfResponsePoints, QV_RESPONSE_POINTS);
    if (n < 1 || e[0].Frequency > f) return 0.0;
    // The first point at or above f; the search does not assume a sorted table.
    std::int32_t i = 1;
    while (i < n && !(e[i].Frequency >= f)) ++i;
    if (i >= n) return 0.0;
    // From there down, the first point at or below f (point 0 is one).
    std::int32_t j = i;
    while (j > 0 && !(e[j].Frequency <= f)) --j;
    if (!(e[j].Frequency <= f)) return 0.0;  // only a NaN point 0 gets here
    if (j == i) return e[i].Amplitude;
    if (e[j].Frequency == e[i].Frequency) return 0.0;
    return e[j].Amplitude + (e[i].Amplitude - e[j].Amplitude) /
                                (e[i].Frequency - e[j].Frequency) * (f - e[j].Frequency);
}

// ---------------------------------------------------------------- limits

std::int32_t SetSingleSidedLimit(std::int32_t address, double limit, std::int32_t units,
                                 std::int32_t rule) {
    if (!IsLimitUnit(units) || !IsLimitRule(rule) || !IsLimitValue(limit)) return -1;
    const std::int32_t slot = ResolvedOwnedSlot(address);
    if (slot == kNoSlot) return -1;
    InstrumentState& s = Slot(slot).current;
    s.SingleSidedLimit = limit;
    s.SingleSideLimitUnits = units;
    s.SingleSidedLimitsRule = rule;
    return 1;
}

std::int32_t GetSingleSidedLimit(std::int32_t address, double* limit, std::int32_t* units,
                                 std::int32_t* rule) {
    if (!limit || !units || !rule) return -1;
    const std::int32_t slot = SlotForGetter(address);
    if (slot == kNoSlot) return -1;
    const InstrumentState& s = Slot(slot).current;
    *limit = s.SingleSidedLimit;
    *units = s.SingleSideLimitUnits;
    *rule = s.SingleSidedLimitsRule;
    return 1;
}

std::int32_t SetDoubleSidedLimit(std::int32_t address, double lower, double upper,
                                 std::int32_t units, std::int32_t rule) {
    if (!IsLimitUnit(units) || !(lower <= upper) || !IsLimitValue(lower) ||
        !IsLimitValue(upper) || !IsLimitRule(rule))
        return -1;
    const std::int32_t slot = ResolvedOwnedSlot(address);
    if (slot == kNoSlot) return -1;
    InstrumentState& s = Slot(slot).current;
    s.DoubleSidedLowerLimit = lower;
    s.DoubleSidedUpperLimit = upper;
    s.DoubleSideLimitUnits = units;
    s.DoubleSidedLimitsRule = rule;
    return 1;
}

std::int32_t GetDoubleSidedLimit(std::int32_t address, double* lower, double* upper,
                                 std::int32_t* units, std::int32_t* rule) {
    if (!lower || !upper || !units || !rule) return -1;
    const std::int32_t slot = SlotForGetter(address);
    if (slot == kNoSlot) return -1;
    const InstrumentState& s = Slot(slot).current;
    *lower = s.DoubleSidedLowerLimit;
    *upper = s.DoubleSidedUpperLimit;
    *units = s.DoubleSideLimitUnits;
    *rule = s.DoubleSidedLimitsRule;
    return 1;
}

std::int32_t SetLimitEnabled(std::int32_t address, std::int32_t mode) {
    if (mode < QV_LIMITS_OFF || mode > QV_LIMITS_DOUBLE_SIDED) return -1;
    const std::int32_t slot = ResolvedOwnedSlot(address);
    if (slot == kNoSlot) return -1;
    Slot(slot).current.LimitsEnabled = mode;
    return 1;
}

std::int32_t GetLimitEnabled(std::int32_t address, std::int32_t* mode) {
    return GetCurrentField(address, mode, [](const InstrumentState& s) { return s.LimitsEnabled; });
}

// ---------------------------------------------------------------- response table

std::int32_t SetResponse(std::int32_t address, const QV_ResponsePoint* points,
                         std::int32_t count) {
    if (!points) return -1;  // also with a count of 0: every pointer is checked
    const std::int32_t slot = ResolvedOwnedSlot(address);
    if (slot == kNoSlot) return -1;
    if (count < 0 || count > QV_RESPONSE_POINTS) return -1;
    for (std::int32_t i = 0; i < count; ++i) {
        if (!IsLimitValue(points[i].Amplitude)) return -1;
        if (IsValidFrequency(slot, points[i].Frequency) != 1) return -1;
    }
    DeviceRecord& r = Slot(slot);
    if (!IsHandle(r.deviceHandle)) return -1;
    RecorderOutOff(r.deviceHandle, slot);  // result not reported
    InstrumentState& s = r.current;
    for (std::int32_t i = 0; i < QV_RESPONSE_POINTS; ++i)
        s.Response[i] = i < count ? points[i] : QV_ResponsePoint{0.0, 0.0};
    s.NumberOfResponsePoints = count;
    return 1;
}

std::int32_t SetResponse_Flat(std::int32_t address, const double* frequencies,
                              const double* amplitudes, std::int32_t count) {
    if (!frequencies || !amplitudes) return -1;
    // SetResponse refuses such a count too; no array can be sized for it.
    if (count < 0 || count > QV_RESPONSE_POINTS) return -1;
    // Under the lock, and freed on every path; at least one entry so that an
    // empty table still passes a valid pointer.
    std::vector<QV_ResponsePoint> points(static_cast<std::size_t>(std::max(count, 1)));
    for (std::int32_t i = 0; i < count; ++i) points[i] = {frequencies[i], amplitudes[i]};
    return SetResponse(address, points.data(), count);
}

std::int32_t GetResponse(std::int32_t address, QV_ResponsePoint* points, std::int32_t* count) {
    if (!points || !count) return -1;
    const std::int32_t wanted = *count;
    if (wanted < 0 || wanted > QV_RESPONSE_POINTS) return -1;
    std::int32_t devId = 0, slot = kNoSlot;
    char serial[kSerialChars + 1] = {};
    if (LookupSlot_Addr(address, &devId, &slot, serial) != 1) return -1;
    if (wanted == 0) return 1;
    const InstrumentState& s = Slot(slot).current;
    // Entries beyond those in use are copied too; the count says which matter.
    std::copy(s.Response, s.Response + wanted, points);
    if (wanted > s.NumberOfResponsePoints) *count = s.NumberOfResponsePoints;
    return 1;
}

std::int32_t GetResponse_Flat(std::int32_t address, double* frequencies, double* amplitudes,
                              std::int32_t* count) {
    if (!frequencies || !amplitudes || !count) return -1;
    if (*count < 0 || *count > QV_RESPONSE_POINTS) return -1;
    std::vector<QV_ResponsePoint> points(static_cast<std::size_t>(std::max(*count, 1)));
    const std::int32_t result = GetResponse(address, points.data(), count);
    if (result != 1) return result;
    for (std::int32_t i = 0; i < *count; ++i) {
        frequencies[i] = points[i].Frequency;
        amplitudes[i] = points[i].Amplitude;
    }
    return result;
}

std::int32_t SetResponseEnabled(std::int32_t address, std::int32_t enabled) {
    if (enabled != 0 && enabled != 1) return -1;
    const std::int32_t slot = ResolvedOwnedSlot(address);
    if (slot == kNoSlot) return -1;
    DeviceRecord& r = Slot(slot);
    if (!IsHandle(r.deviceHandle)) return -1;
    RecorderOutOff(r.deviceHandle, slot);  // result not reported
    r.current.ResponseEnabled = enabled;
    return 1;
}

std::int32_t GetResponseEnabled(std::int32_t address, std::int32_t* enabled) {
    return GetCurrentField(address, enabled,
                           [](const InstrumentState& s) { return s.ResponseEnabled; });
}

}  // namespace qv
