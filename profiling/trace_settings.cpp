#include "profiling/trace_settings.h"

#include <cstdint>

#include "device/driver.h"
#include "device/discovery.h"
#include "device/model.h"
#include "device/transport.h"
#include "frame/lookups.h"
#include "platform/platform.h"
#include "profiling/sweep_config.h"

namespace qv {

void ResetProfilingDefaults(DeviceRecord& record) {
    TraceSettings& t = record.trace;
    t.sweepTimeIdx = 6;
    t.sweepTimeUsec = 1000;
    t.sweepDelayMode = 0;
    t.sweepDelayUsec = 0;
    t.trgSource = 0;
    t.trgEdge = 0;
    t.trgLevel = -30.0;
    t.trgLevelEff = -30.0;
    t.autoTrgLevel = -30.0;
    t.autoTrgLevelSet = 0;
    t.trgAdcHi = 0;
    t.trgAdcLo = 0;
    t.trgOut = 0;
    t.avgMode = 0;
    t.traceAvgs = 1;
    t.avgResetSens = 0.05;
    t.avgRestart = 1;
    t.avgCount = 0;
    t.filter = 9;
    t.poles = 0;
    t.timeOutUsec = 100000;
    t.autoTimeOutMode = 1;
    t.undersampling = 0;
    t.lastTmpRowHi = -1;
    t.lastTmpRowLo = -1;

    GatesAndMarkers& g = record.analysisSetup;
    for (GateRecord& gate : g.gates) {
        gate.startPos = -1;
        gate.endPos = -1;
        gate.startTime = -1.0;
        gate.endTime = -1.0;
        gate.startPosTime = -1.0;
        gate.endPosTime = -1.0;
    }
    for (MarkerRecord& marker : g.markers) {
        marker.mode = 0;
        marker.pos = -1;
        marker.deltaPos = -1;
        marker.posTime = -1.0;
        marker.time = -1.0;
        marker.deltaTime = -1.0;
        marker.deltaPosTime = -1.0;
        marker.amp = 0.0;
        marker.deltaAmp = 0.0;
    }
    g.measThreshold = -55.0;
    record.analysis.analysisValid = 0;
}

std::int32_t SweepTimeIndex(std::int32_t usec) {
    for (int i = 0; i < kSweepTimeCount; ++i)
        if (SweepConfigRow(i).sweepTimeUsec == usec) return i;
    return -1;
}

std::int32_t SearchSweepIndex(const TraceSettings& t) {
    std::int64_t span;
    if (t.sweepDelayMode != 1) {
        span = 5LL * t.sweepTimeUsec;
        if (span < 10000) span = 10000;
    } else {
        std::int64_t b = 5LL * (static_cast<std::int64_t>(t.sweepTimeUsec) + t.sweepDelayUsec);
        if (t.autoTimeOutMode == 0 && b <= t.timeOutUsec) b = t.timeOutUsec;
        span = 5 * b;
        if (span < 25000) span = 25000;
    }
    if (span < 50000) return 11;
    if (span < 100000) return 12;
    if (span < 200000) return 13;
    if (span < 500000) return 14;
    return 15;
}

std::int32_t ReadTimeOutMs(const TraceSettings& t) {
    if (t.autoTimeOutMode == 0) return t.timeOutUsec / 1000;
    return 2 * SweepConfigRow(SearchSweepIndex(t)).sweepTimeUsec / 1000 + 250;
}

namespace {

bool InRange(double v, double lo, double hi) { return v >= lo && v <= hi; }  // NaN is out

// The caller's own initialised sensor with this address: its settings, or
// null (the operation then answers its own "unknown" code).
TraceSettings* Owned(std::int32_t address) {
    const std::int32_t slot = GetOwnedSlot_Addr(address);
    return slot == kNoSlot ? nullptr : &Slot(slot).trace;
}

// A getter: copies what `field` reads; `unknown` when the sensor is not the
// caller's, -1 for a null pointer.
template <class T, class Field>
std::int32_t GetTraceField(std::int32_t address, T* out, std::int32_t unknown, Field field) {
    if (!out) return -1;
    const TraceSettings* t = Owned(address);
    if (!t) return unknown;
    *out = field(*t);
    return 1;
}

// The trigger checks: the slot of the caller's sensor (>= 0), or the answer
// for an address outside 0..255 or not found (0) or another process's (-1).
std::int32_t TriggerCheckedSlot(std::int32_t address) {
    if (address < 0 || address > 255) return -2;
    const std::int32_t slot = GetInUseSlotByAddress(address);
    if (slot == kNoSlot) return -2;
    if (!OwnedByCaller(slot)) return -1;
    return slot;
}
// What a trigger operation answers for a TriggerCheckedSlot() below 0.
std::int32_t TriggerCheckAnswer(std::int32_t checked) { return checked == -1 ? -1 : 0; }

template <class T, class Field>
std::int32_t GetTriggerField(std::int32_t address, T* out, Field field) {
    if (!out) return -1;
    const std::int32_t slot = TriggerCheckedSlot(address);
    if (slot < 0) return TriggerCheckAnswer(slot);
    *out = field(Slot(slot).trace);
    return 1;
}

// A request counts as done when the sensor moved at least one byte: both a
// failure (negative) and an empty answer (0) leave the previous mode.
bool Done(std::int32_t result) { return result >= 1; }

std::int32_t OneByteRequest(std::int64_t h, std::uint8_t request) {
    std::uint8_t reply[1] = {};
    return VendorRequestIn(h, request, reply, 1);
}

}  // namespace

// ---------------------------------------------------------------- sweep time and delay

std::int32_t SetSweepTime(std::int32_t address, std::int32_t usec) {
    const std::int32_t index = SweepTimeIndex(usec);
    if (index < 0) return 0;
    TraceSettings* t = Owned(address);
    if (!t) return 0;
    t->sweepTimeIdx = index;
    t->sweepTimeUsec = usec;
    if (index <= 9 && t->sweepDelayUsec > kMaxShortSweepDelayUsec)
        t->sweepDelayUsec = kMaxShortSweepDelayUsec;
    ArmAverageRestart(*t);
    return 1;
}

std::int32_t GetSweepTime(std::int32_t address, std::int32_t* usec) {
    return GetTraceField(address, usec, 0, [](const TraceSettings& t) { return t.sweepTimeUsec; });
}

std::int32_t SetClosestSweepTimeUSEC(std::int32_t address, std::int32_t usec) {
    if (usec < 0) return 0;
    TraceSettings* t = Owned(address);
    if (!t) return -1;
    std::int32_t index = 0;
    if (usec > SweepConfigRow(kSweepTimeCount - 1).sweepTimeUsec) {
        index = kSweepTimeCount - 1;
    } else if (usec >= SweepConfigRow(0).sweepTimeUsec) {
        for (int i = 0; i < kSweepTimeCount - 1; ++i) {
            const std::int32_t lo = SweepConfigRow(i).sweepTimeUsec;
            const std::int32_t hi = SweepConfigRow(i + 1).sweepTimeUsec;
            if (lo <= usec && usec <= hi) {
                // Half-way goes to the longer sweep.
                index = (usec - lo) >= (hi - usec) ? i + 1 : i;
                break;
            }
        }
    }
    t->sweepTimeIdx = index;
    t->sweepTimeUsec = SweepConfigRow(index).sweepTimeUsec;
    ArmAverageRestart(*t);
    return t->sweepTimeUsec;
}

std::int32_t SetSweepDelay(std::int32_t address, std::int32_t usec) {
    TraceSettings* t = Owned(address);
    if (!t) return 0;
    const std::int32_t limit =
        t->sweepTimeIdx > 9 ? kMaxLongSweepDelayUsec : kMaxShortSweepDelayUsec;
    if (usec < 0 || usec > limit) return 0;
    t->sweepDelayUsec = usec;
    return 1;
}

std::int32_t GetSweepDelay(std::int32_t address, std::int32_t* usec) {
    return GetTraceField(address, usec, 0, [](const TraceSettings& t) { return t.sweepDelayUsec; });
}

std::int32_t SetSweepDelayMode(std::int32_t address, std::int32_t mode) {
    TraceSettings* t = Owned(address);
    if (!t) return 0;
    t->sweepDelayMode = mode == 1 ? 1 : 0;
    return 1;
}

std::int32_t GetSweepDelayMode(std::int32_t address, std::int32_t* mode) {
    return GetTraceField(address, mode, 0,
                         [](const TraceSettings& t) { return t.sweepDelayMode == 1 ? 1 : 0; });
}

std::int32_t SetSweepHoldOff(std::int32_t, std::int32_t) { return 0; }
std::int32_t GetSweepHoldOff(std::int32_t, std::int32_t*) { return 0; }

// ---------------------------------------------------------------- trace filter

std::int32_t SetFilter(std::int32_t address, std::int32_t code) {
    if (code < 1 || code > 9) return 0;
    TraceSettings* t = Owned(address);
    if (!t) return 0;
    t->filter = code;
    return 1;
}

std::int32_t GetFilter(std::int32_t address, std::int32_t* code) {
    return GetTraceField(address, code, 0, [](const TraceSettings& t) { return t.filter; });
}

std::int32_t SetPoles(std::int32_t address, std::int32_t poles) {
    if (poles < 0 || poles > 2) return 0;
    TraceSettings* t = Owned(address);
    if (!t) return -1;
    t->poles = poles;
    return 1;
}

std::int32_t GetPoles(std::int32_t address, std::int32_t* poles) {
    return GetTraceField(address, poles, -1, [](const TraceSettings& t) { return t.poles; });
}

// ---------------------------------------------------------------- trigger

std::int32_t SetTriggerSoure(std::int32_t address, std::int32_t source) {
    if (source < 0 || source > 2) return 0;
    const std::int32_t slot = TriggerCheckedSlot(address);
    if (slot < 0) return TriggerCheckAnswer(slot);
    TraceSettings& t = Slot(slot).trace;
    t.trgSource = source;
    // The output's requests depend on the source: switch it off and back to
    // what it was, which stays the setting whatever the sensor answered.
    const std::int32_t previous = t.trgOut;
    SetTriggerOut(address, 0);
    SetTriggerOut(address, previous);
    t.trgOut = previous;
    return 1;
}

std::int32_t GetTriggerSoure(std::int32_t address, std::int32_t* source) {
    return GetTriggerField(address, source, [](const TraceSettings& t) { return t.trgSource; });
}

std::int32_t SetTriggerLevel(std::int32_t address, double dbm) {
    if (!InRange(dbm, -200.0, 200.0)) return 0;
    const std::int32_t slot = TriggerCheckedSlot(address);
    if (slot < 0) return TriggerCheckAnswer(slot);
    TraceSettings& t = Slot(slot).trace;
    t.trgLevel = dbm;
    t.trgLevelEff = dbm;
    return 1;
}

std::int32_t GetTriggerLevel(std::int32_t address, double* dbm) {
    return GetTriggerField(address, dbm, [](const TraceSettings& t) { return t.trgLevel; });
}

std::int32_t SetTriggerEdge(std::int32_t address, std::int32_t edge) {
    if (edge != 0 && edge != 1) return 0;
    const std::int32_t slot = TriggerCheckedSlot(address);
    if (slot < 0) return TriggerCheckAnswer(slot);
    Slot(slot).trace.trgEdge = edge;
    return 1;
}

std::int32_t GetTriggerEdge(std::int32_t address, std::int32_t* edge) {
    return GetTriggerField(address, edge, [](const TraceSettings& t) { return t.trgEdge; });
}

std::int32_t SetTriggerOut(std::int32_t address, std::int32_t mode) {
    // A mode the sensor has no requests for is refused before anything is sent.
    if (mode < 0 || mode > 2) return 0;
    if (address < 0 || address > 255) return 0;
    // Not found counts as not owned here: the slot itself is what is resolved.
    const std::int32_t slot = GetOwnedSlot_Addr(address);
    if (slot == kNoSlot) return -1;
    DeviceRecord& r = Slot(slot);
    const std::int64_t h = r.deviceHandle;
    OneByteRequest(h, kReqTriggerOutOff);
    OneByteRequest(h, kReqTriggerOutNotInverted);
    if (IsTraceCapableModel(h) != 1) return 0;
    const bool external = r.trace.trgSource == 2;
    const std::uint8_t onOff = mode == 0 ? kReqTriggerOutOff
                               : external ? kReqTriggerOutOnWithInput
                                          : kReqTriggerOutOff;
    const std::uint8_t polarity =
        mode == 2 ? kReqTriggerOutInverted : kReqTriggerOutNotInverted;
    OneByteRequest(h, onOff);
    const std::int32_t last = OneByteRequest(h, polarity);
    if ((mode != 0 && external) || Done(last)) {
        r.trace.trgOut = mode;
        return 1;
    }
    return 0;
}

std::int32_t GetTriggerOut(std::int32_t address, std::int32_t* mode) {
    return GetTraceField(address, mode, -1, [](const TraceSettings& t) { return t.trgOut; });
}

namespace {

// The trigger line as the sensor sees it: bit 0 of the second byte at 0x00F4;
// -1 when the sensor did not answer.
int TriggerLineState(std::int64_t h) {
    std::uint8_t location[2] = {0xF4, 0x00};
    VendorRequestOut(h, kReqSelectLocation, location, 2);
    std::uint8_t reply[2] = {};
    if (VendorRequestIn(h, kReqReadWord, reply, 2) < 2) return -1;
    return reply[1] & 1;
}

}  // namespace

std::int32_t CheckTrigger(std::int32_t address) {
    const std::int32_t slot = TriggerCheckedSlot(address);
    if (slot < 0) return TriggerCheckAnswer(slot);
    const std::int32_t devId = Slot(slot).devId;
    if (devId < 1 || devId > DeviceCount()) return 0;
    TransientDevice device(OpenDevice_Idx(devId), true);
    if (!device.Valid()) return 0;
    if (IsTraceCapableModel(device.get()) != 1) return 0;
    constexpr std::uint32_t kProbeUsec = 20000;
    const std::uint32_t start = platform::TickMs();
    int recorded = -1;
    int changes = 0;
    do {
        const int state = TriggerLineState(device.get());
        // A poll the sensor did not answer tells nothing about the line.
        if (state >= 0) {
            if (recorded >= 0 && state != recorded) ++changes;
            recorded = state;
        }
    } while (changes < 2 && (platform::TickMs() - start) * 1000u < kProbeUsec);
    return changes >= 2 ? 1 : 0;
}

// ---------------------------------------------------------------- read time-out, undersampling

std::int32_t SetTimeOut(std::int32_t address, std::int32_t usec) {
    TraceSettings* t = Owned(address);
    if (!t) return 0;
    t->timeOutUsec = usec < 10000 ? 10000 : usec > 11000000 ? 11000000 : usec;
    return 1;
}

std::int32_t GetTimeOut(std::int32_t address, std::int32_t* usec) {
    return GetTraceField(address, usec, 0, [](const TraceSettings& t) { return t.timeOutUsec; });
}

std::int32_t SetAutoTimeOutMode(std::int32_t address, std::int32_t mode) {
    if (mode != 0 && mode != 1) return 0;
    TraceSettings* t = Owned(address);
    if (!t) return -1;
    t->autoTimeOutMode = mode;
    return 1;
}

std::int32_t GetAutoTimeOutMode(std::int32_t address, std::int32_t* mode) {
    return GetTraceField(address, mode, 0,
                         [](const TraceSettings& t) { return t.autoTimeOutMode; });
}

std::int32_t SetUndersampling(std::int32_t address, std::int32_t on) {
    if (on != 0 && on != 1) return 0;
    TraceSettings* t = Owned(address);
    if (!t) return 0;
    t->undersampling = on;
    return 1;
}

std::int32_t GetUndersampling(std::int32_t address, std::int32_t* on) {
    return GetTraceField(address, on, 0, [](const TraceSettings& t) { return t.undersampling; });
}

// ---------------------------------------------------------------- trace averaging

std::int32_t SetAvgMode(std::int32_t address, std::int32_t mode) {
    if (mode < 0 || mode > 2) return 0;
    TraceSettings* t = Owned(address);
    if (!t) return -1;
    t->avgMode = mode;
    ArmAverageRestart(*t);
    return 1;
}

std::int32_t GetAvgMode(std::int32_t address, std::int32_t* mode) {
    return GetTraceField(address, mode, -1, [](const TraceSettings& t) { return t.avgMode; });
}

std::int32_t SetTraceAvgs(std::int32_t address, std::int32_t count) {
    if (count < 1 || count > 100) return 0;
    TraceSettings* t = Owned(address);
    if (!t) return -1;
    t->traceAvgs = count;
    ArmAverageRestart(*t);
    return 1;
}

std::int32_t GetTraceAvgs(std::int32_t address, std::int32_t* count) {
    return GetTraceField(address, count, -1, [](const TraceSettings& t) { return t.traceAvgs; });
}

std::int32_t SetAvgResetSens(std::int32_t address, double sensitivity) {
    if (!InRange(sensitivity, 0.0, 0.8)) return 0;
    TraceSettings* t = Owned(address);
    if (!t) return -1;
    t->avgResetSens = sensitivity;
    return 1;
}

std::int32_t GetAvgResetSens(std::int32_t address, double* sensitivity) {
    return GetTraceField(address, sensitivity, -1,
                         [](const TraceSettings& t) { return t.avgResetSens; });
}

std::int32_t ResetTraceAveraging(std::int32_t address) {
    TraceSettings* t = Owned(address);
    if (!t) return -1;
    ArmAverageRestart(*t);
    return 1;
}

std::int32_t NoProfilingEffect() { return 0; }

}  // namespace qv
