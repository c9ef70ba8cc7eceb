#include "profiling/trace_acquisition.h"

#include <cmath>

#include "calibration/cal_tables.h"
#include "device/driver.h"
#include "device/transport.h"
#include "frame/lookups.h"
#include "profiling/sweep_config.h"
#include "profiling/sweep_protocol.h"
#include "profiling/trace_conversion.h"

namespace qv {

bool TakesDelayedPath(const TraceSettings& t) {
    if (t.sweepDelayMode == 1) return true;
    return t.undersampling == 1 &&
           (t.sweepTimeUsec == 20000 || t.sweepTimeUsec == 50000 || t.sweepTimeUsec == 100000);
}

std::int32_t EffectiveDelayUsec(const TraceSettings& t) {
    return t.sweepDelayMode == 1 ? t.sweepDelayUsec : 0;
}

namespace {

int UndersampledRow(std::int64_t span) {
    if (span <= 100000) return 23;
    if (span <= 200000) return 24;
    if (span <= 500000) return 25;
    if (span <= 1000000) return 26;
    return 27;
}

}  // namespace

DelayedPlan PlanDelayed(int u, std::int32_t delayUsec, std::int32_t undersampling,
                        std::int32_t length) {
    DelayedPlan plan {kDelayedRowAboveUser, false, 0, 0};
    if (u < 0 || u > 15) return plan;
    const std::int64_t d = delayUsec;
    const std::int64_t span = SweepConfigRow(u).sweepTimeUsec + d;
    // Rows 10 and 11 have two readings: at their own equivalent rate (up to
    // 10 ms of delay, no undersampling), or undersampled at the 2 us base rate
    // like the longer sweeps. The second reading is followed through: row,
    // span, start and resampling all take the undersampled record as it is,
    // so the trace covers exactly the sweep time after the delay.
    const bool fast1011 = d <= 10000 && undersampling == 0;
    if (u <= 4) {
        plan.acqRow = d > 5000 ? 18 : d > 1000 ? 17 : 16;
    } else if (u == 5) {
        plan.acqRow = 19;
    } else if (u <= 9) {
        plan.acqRow = 20;
    } else if (u <= 11) {
        plan.acqRow = fast1011 ? (u == 10 ? 21 : 22) : UndersampledRow(span);
    } else {
        plan.acqRow = span <= 200000 ? 24 : UndersampledRow(span);
    }
    plan.undersampled = plan.acqRow >= 23;

    const SweepConfig& a = SweepConfigRow(plan.acqRow);
    if (!plan.undersampled) {
        plan.spanPoints = static_cast<std::int64_t>(a.packets) *
                          (SweepConfigRow(u).sweepTimeUsec / 2 + 1);
    } else {
        static constexpr double kSpanFactors[6] = {1, 2.5, 5, 10, 25, 50};
        plan.spanPoints = std::llround(static_cast<double>(length) * kSpanFactors[u - 10]);
    }
    const std::int64_t limit = u <= 9 ? 10000 : 4999000;
    const std::int64_t clamped = d < 0 ? 0 : d > limit ? limit : d;
    // The acquisition row's own rate: 48, 24 or 12 samples per us below 20 ms,
    // 6 and 3 for 20 and 50 ms at their own rate, 0.5 when undersampled.
    const double rate = plan.undersampled ? kBaseSamplesPerUsec : a.samplesPerUsec;
    plan.startPoint = static_cast<std::int64_t>(clamped * rate);
    return plan;
}

namespace {

// Points of a direct-path record that reach the trace: the sweep's span, one
// more that the edge correction looks ahead to, and one spare. Everything
// after them is the sensor's run-out beyond the sweep and changes nothing.
std::int64_t UsedRecordPoints(int row) {
    const std::int64_t record = RecordPoints(SweepConfigRow(row));
    const std::int64_t used = SweepSpanPoints(row) + 2;
    return used < record ? used : record;
}

void Size(TraceScratch& s, std::int64_t n) {
    if (static_cast<std::int64_t>(s.hi.size()) < n) {
        s.hi.resize(static_cast<std::size_t>(n));
        s.lo.resize(static_cast<std::size_t>(n));
        s.converted.resize(static_cast<std::size_t>(n));
    }
}

}  // namespace

std::int32_t ConvertDirect(int slot, int row, const std::uint8_t* raw, double* trace,
                           std::int32_t length, TraceScratch& scratch) {
    const SweepConfig& c = SweepConfigRow(row);
    const std::int64_t record = RecordPoints(c);
    const std::int64_t n = UsedRecordPoints(row);
    Size(scratch, n);
    const RecordTemperatures temps =
        SplitPackets(raw, c, c.packets, 0, n, scratch.hi.data(), scratch.lo.data());
    const bool watts = LineariseMergeCorrect(slot, scratch.hi.data(), scratch.lo.data(),
                                             scratch.converted.data(), n, temps.tmpHi, temps.tmpLo);
    const double* x = scratch.converted.data();
    if (c.traceLength >= record) {
        if (record != length) return kTraceCopyFailed;
        CopyToWatts(x, trace, length, watts);
    } else if (!IntervalResample(x, record, SweepSpanPoints(row), trace, length, watts)) {
        return kTraceResampleFailed;
    }
    const TraceSettings& t = Slot(slot).trace;
    if (FilterTrace(row, t.filter, t.poles, trace, length) != 1) return kTraceFilterFailed;
    if (AverageTrace(slot, trace, length) != 1) return kTraceAverageFailed;
    return 1;
}

std::int32_t ConvertDelayed(int slot, int u, const DelayedPlan& plan, const std::uint8_t* raw,
                            double* trace, std::int32_t length, TraceScratch& scratch) {
    const SweepConfig& a = SweepConfigRow(plan.acqRow);
    const std::int64_t w = plan.spanPoints;
    // A caller's length so large that its span outgrows the whole acquisition
    // cannot be resampled from it: refused before anything is allocated.
    if (w > RecordPoints(a)) return 0;
    Size(scratch, w);
    const RecordTemperatures temps = SplitPackets(raw, a, a.packets, plan.startPoint, w,
                                                  scratch.hi.data(), scratch.lo.data());
    const bool watts = LineariseMergeCorrect(slot, scratch.hi.data(), scratch.lo.data(),
                                             scratch.converted.data(), w, temps.tmpHi, temps.tmpLo);
    const double* x = scratch.converted.data();
    if (SweepConfigRow(u).traceLength >= w) {
        if (w < length) return 0;
        CopyToWatts(x, trace, length, watts);
    } else if (plan.undersampled) {
        if (!SlowDecimate(u, x, w, trace, length, watts)) return 0;
    } else if (!IntervalResample(x, w, SweepSpanPoints(u), trace, length, watts)) {
        return 0;
    }
    const TraceSettings& t = Slot(slot).trace;
    const std::int32_t filtered = FilterTrace(u, t.filter, t.poles, trace, length);
    if (filtered != 1) return filtered;
    return AverageTrace(slot, trace, length);
}

namespace {

// Trigger preparation before a sweep of `row`: true when the sweep is to wait
// for the trigger the preparation found (automatic level) or set.
bool PrepareTrigger(int slot, int row) {
    TraceSettings& t = Slot(slot).trace;
    switch (t.trgSource) {
        case 0: {
            const AutoLevel found = AutomaticTriggerLevel(slot, row);
            if (found.found) {
                t.autoTrgLevel = found.level;
                t.trgLevelEff = found.level;
                t.autoTrgLevelSet = 1;
            }
            SendThresholds(slot);
            return found.found;
        }
        case 1:
            InternalLevelThresholds(slot);
            SendThresholds(slot);
            return true;
        default:
            return true;
    }
}

// The handles of a sensor that was unplugged are dead for good, even once it
// is back. A trace that read nothing gives them up and opens the sensor afresh
// at its place (only when the same sensor answers there); when it is not back
// yet, the next trace tries again. Which slots wait for that is this process's
// own business (it owns them): kept here, not in the shared table.
bool g_handleLost[kSlotCount] = {};

void RenewHandles(int slot) {
    DeviceRecord& r = Slot(slot);
    if (IsHandle(r.winUsbHandle)) {
        try {
            driver::CloseWinUSBHandle(r.winUsbHandle);
        } catch (const DriverFault&) {
        }
    }
    CloseDevice(r.deviceHandle);
    r.winUsbHandle = kNoHandle;
    const std::int64_t h = OpenKnownDevice_Idx(r.devId, r.serial);
    r.deviceHandle = IsHandle(h) ? h : kNoHandle;
    g_handleLost[slot] = !IsHandle(h);
}

std::int32_t DirectPath(int slot, double* trace, std::int32_t length) {
    DeviceRecord& r = Slot(slot);
    const int row = r.trace.sweepTimeIdx;
    const bool triggered = PrepareTrigger(slot, row);
    SendSweepCommand(r.deviceHandle, r.trace, row,
                     triggered ? SweepForm::kTriggered : SweepForm::kFreeRunning);
    const SweepConfig& c = SweepConfigRow(row);
    std::vector<std::uint8_t> raw(static_cast<std::size_t>(c.totalBytes), 0);
    const std::int64_t got = PacketRead(slot, row, raw.data());
    if (got == 0) return kTraceNothingRead;
    if (got != static_cast<std::int64_t>(c.packets) * c.packetBytes) return kTraceSizeMismatch;
    TraceScratch scratch;
    return ConvertDirect(slot, row, raw.data(), trace, length, scratch);
}

std::int32_t DelayedPath(int slot, double* trace, std::int32_t length) {
    DeviceRecord& r = Slot(slot);
    const int u = r.trace.sweepTimeIdx;
    const DelayedPlan plan =
        PlanDelayed(u, EffectiveDelayUsec(r.trace), r.trace.undersampling, length);
    if (plan.acqRow == kDelayedRowAboveUser) return kDelayedRowAboveUser;
    PrepareTrigger(slot, plan.acqRow);
    // A delay counts from a trigger: this sweep always waits for one.
    SendSweepCommand(r.deviceHandle, r.trace, plan.acqRow, SweepForm::kTriggered);
    const SweepConfig& a = SweepConfigRow(plan.acqRow);
    std::vector<std::uint8_t> raw(static_cast<std::size_t>(a.totalBytes), 0);
    const std::int64_t got = PacketRead(slot, plan.acqRow, raw.data());
    if (got == 0) return kDelayedNothingRead;
    if (got != static_cast<std::int64_t>(a.packets) * a.packetBytes) return kDelayedSizeMismatch;
    TraceScratch scratch;
    return ConvertDelayed(slot, u, plan, raw.data(), trace, length, scratch);
}

}  // namespace

std::int32_t GetTrace(std::int32_t address, double* trace, std::int32_t length,
                      std::int32_t* count) {
    tableView->burstRunning = 0;
    if (address < 0 || address > 255) return kTraceAddressOutOfRange;
    if (!trace || !count) return -1;
    if (IsDeviceMine_Addr(address) != 1) return kTraceNotOwned;
    const std::int32_t slot = GetOwnedSlot_Addr(address);
    if (slot == kNoSlot) return kTraceNoSlot;
    DeviceRecord& r = Slot(slot);
    if (r.devId < 1) return kTraceNoDeviceIndex;
    if (r.current.Freq != r.tempRows[0].freq && BuildCalTables(slot, r.current.Freq) < 0)
        return kTraceCalibrationFailed;

    const TraceSettings& t = r.trace;
    const bool delayed = TakesDelayedPath(t);
    const int idx = t.sweepTimeIdx;
    if (idx == -1) return delayed ? kDelayedNoSweepTime : kTraceNoSweepTime;
    // An index without a row of its own (or, on the direct path, without a
    // user sweep behind it) has no sweep time it could agree with.
    const bool known = idx >= 0 && idx < (delayed ? kSweepRows : kUserSweepRows);
    if (known && length < SweepConfigRow(idx).traceLength)
        return delayed ? kDelayedBufferShort : kTraceBufferShort;
    if (!known || t.sweepTimeUsec != SweepConfigRow(idx).sweepTimeUsec)
        return delayed ? kDelayedSweepTimeInconsistent : kTraceSweepTimeInconsistent;
    if (!IsHandle(r.deviceHandle) && g_handleLost[slot]) RenewHandles(slot);
    if (!IsHandle(r.deviceHandle)) return delayed ? kDelayedNoDeviceHandle : kTraceNoDeviceHandle;
    g_handleLost[slot] = false;

    const std::int32_t result = delayed ? DelayedPath(slot, trace, length)
                                        : DirectPath(slot, trace, length);
    if (result == kTraceNothingRead || result == kDelayedNothingRead) RenewHandles(slot);
    if (result == 1) *count = length;
    return result;
}

std::int32_t GetTraceLength(std::int32_t address) {
    if (IsDeviceMine_Addr(address) != 1) return -1;
    const std::int32_t slot = GetOwnedSlot_Addr(address);
    if (slot == kNoSlot) return 0;
    const std::int32_t idx = Slot(slot).trace.sweepTimeIdx;
    if (idx < 0 || idx >= kSweepRows) return 0;
    return SweepConfigRow(idx).traceLength;
}

}  // namespace qv
