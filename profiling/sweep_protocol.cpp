#include "profiling/sweep_protocol.h"

#include <cmath>
#include <vector>

#include "calibration/cal_tables.h"
#include "device/driver.h"
#include "device/transport.h"
#include "profiling/trace_settings.h"
#include "settings/limits.h"

namespace qv {

namespace {

std::int32_t OneByteIn(std::int64_t h, std::uint8_t request) {
    std::uint8_t reply[1] = {};
    return VendorRequestIn(h, request, reply, 1);
}

void StopSequence(std::int64_t h) {
    OneByteIn(h, kReqStop1);
    OneByteIn(h, kReqStop3);
}

std::uint16_t Word(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}

// Reads `length` bytes from pipe 0x82 in pieces of at most 64 KiB; false at
// the first piece that does not come whole (time-out, short read, driver fault).
bool ReadPipe(std::int64_t winusb, std::uint8_t* buffer, std::int64_t length,
              std::uint32_t timeoutMs) {
    for (std::int64_t done = 0; done < length;) {
        const std::int64_t left = length - done;
        const std::uint32_t piece =
            static_cast<std::uint32_t>(left < kMaxPipePiece ? left : kMaxPipePiece);
        std::uint32_t transferred = 0;
        try {
            driver::PipeRead(winusb, buffer + done, piece, &transferred, timeoutMs);
        } catch (const DriverFault&) {
            return false;
        }
        if (transferred != piece) return false;
        done += piece;
    }
    return true;
}

// Where the sensor is told which packet to send next: 256 above the base of
// its working buffer (request 242, bytes 2 and 3).
bool SelectPacket(std::int64_t h, int packet, int packets) {
    std::uint8_t base[3] = {};
    if (VendorRequestIn(h, kReqWorkingBase, base, 3) < 3) return false;
    const int location = base[1] * 256 + base[2] + 256;
    std::uint8_t select[2] = {static_cast<std::uint8_t>((location >> 8) & 0xFF),
                              static_cast<std::uint8_t>(location & 0xFF)};
    VendorRequestOut(h, kReqSelectLocation, select, 2);
    std::uint8_t number[1] = {static_cast<std::uint8_t>(packet * (96 / packets) + 2)};
    VendorRequestOut(h, kReqWriteByte, number, 1);
    std::uint8_t status[5] = {};
    VendorRequestIn(h, kReqPacketStatus, status, 5);
    return true;
}

// The record's WinUSB handle for pipe transfers, obtained once and kept.
std::int64_t CachedWinUsb(DeviceRecord& r) {
    if (IsHandle(r.winUsbHandle)) return r.winUsbHandle;
    try {
        const std::int64_t winusb = driver::OpenWinUSBHandle(r.deviceHandle);
        if (!IsHandle(winusb)) return -1;
        r.winUsbHandle = winusb;
        return winusb;
    } catch (const DriverFault&) {
        return -1;
    }
}

}  // namespace

std::uint8_t SweepModeByte(const TraceSettings& t, SweepForm form) {
    if (t.trgSource == 2) return 0x28;
    const bool triggered = form == SweepForm::kTriggered;
    int mode = triggered ? 0x28 : 0x68;
    if (triggered || t.trgSource == 1) mode += 1;
    if (t.trgLevelEff < (triggered ? -10.0 : -25.0)) mode += 2;
    if (t.trgEdge == 1) mode += 4;
    return static_cast<std::uint8_t>(mode);
}

std::int32_t SendSweepCommand(std::int64_t h, const TraceSettings& t, int row, SweepForm form) {
    StopSequence(h);
    // The external input's slope is set apart from the command; its form is always triggered.
    if (t.trgSource == 2)
        OneByteIn(h, t.trgEdge == 1 ? kReqTriggerInInverted : kReqTriggerInNotInverted);
    const SweepConfig& c = SweepConfigRow(row);
    std::uint8_t command[4] = {SweepModeByte(t, form), c.commandBytes[0], c.commandBytes[1],
                               c.commandBytes[2]};
    return VendorRequestOut(h, kReqSweepStart, command, 4);
}

std::int64_t PacketRead(int slot, int row, std::uint8_t* buffer) {
    DeviceRecord& r = Slot(slot);
    const TraceSettings& t = r.trace;
    const SweepConfig& c = SweepConfigRow(row);
    std::int32_t timeoutMs = ReadTimeOutMs(t);
    if (timeoutMs < 101) timeoutMs = 120;
    const std::int64_t h = r.deviceHandle;
    StopSequence(h);
    const std::int64_t winusb = CachedWinUsb(r);
    if (winusb == -1) return 0;

    // The trigger output marks the sweep: set before the first packet...
    if (t.trgSource != 2) {
        if (t.trgOut == 1) OneByteIn(h, kReqTriggerOutInverted);
        if (t.trgOut == 2) OneByteIn(h, kReqTriggerOutNotInverted);
    } else if (t.trgOut == 1 || t.trgOut == 2) {
        OneByteIn(h, t.trgOut == 1 ? kReqTriggerOutNotInverted : kReqTriggerOutInverted);
        OneByteIn(h, kReqTriggerOutOnWithInput);
    }
    for (int p = 0; p < c.packets; ++p) {
        SelectPacket(h, p, c.packets);
        if (!ReadPipe(winusb, buffer + static_cast<std::int64_t>(p) * c.packetBytes,
                      c.packetBytes, static_cast<std::uint32_t>(timeoutMs))) {
            StopSequence(h);
            return 0;
        }
        // ...and flipped back once the first packet is in.
        if (p == 0 && t.trgSource != 2) {
            if (t.trgOut == 1) OneByteIn(h, kReqTriggerOutNotInverted);
            if (t.trgOut == 2) OneByteIn(h, kReqTriggerOutInverted);
        }
    }
    StopSequence(h);
    return c.totalBytes;
}

std::int64_t SearchPacketRead(int slot, int row, std::uint8_t* buffer) {
    DeviceRecord& r = Slot(slot);
    const SweepConfig& c = SweepConfigRow(row);
    std::int32_t timeoutMs = ReadTimeOutMs(r.trace);
    if (timeoutMs < 100) timeoutMs = 250;
    const std::int64_t h = r.deviceHandle;
    StopSequence(h);
    std::int64_t winusb = -1;
    try {
        winusb = driver::OpenWinUSBHandle(h);
    } catch (const DriverFault&) {
        winusb = -1;
    }
    if (!IsHandle(winusb)) return 0;
    SelectPacket(h, 0, c.packets);
    const bool whole =
        ReadPipe(winusb, buffer, c.packetBytes, static_cast<std::uint32_t>(timeoutMs));
    try {
        driver::CloseWinUSBHandle(winusb);
    } catch (const DriverFault&) {
    }
    StopSequence(h);
    return whole ? c.packetBytes : 0;
}

namespace {

template <class Count>
RecordTemperatures Split(const std::uint8_t* buffer, const SweepConfig& row, int packets,
                         std::int64_t first, std::int64_t count, Count* hi, Count* lo) {
    std::int64_t sumHi = 0, sumLo = 0;
    for (int p = 0; p < packets; ++p) {
        const std::uint8_t* packet = buffer + static_cast<std::int64_t>(p) * row.packetBytes;
        sumLo += Word(packet);
        sumHi += Word(packet + 2);
    }
    const std::int64_t recordPoints = static_cast<std::int64_t>(packets) * row.samplesPerPacket;
    std::int64_t i = 0;
    for (; i < count && first + i < 0; ++i) hi[i] = lo[i] = 0;
    // Point k x packets + p is sample k of packet p: walk p and k along.
    std::int64_t p = (first + i) % packets, k = (first + i) / packets;
    for (; i < count && first + i < recordPoints; ++i) {
        const std::uint8_t* sample = buffer + p * row.packetBytes + 4 + 4 * k;
        lo[i] = Word(sample);
        hi[i] = Word(sample + 2);
        if (++p == packets) p = 0, ++k;
    }
    for (; i < count; ++i) hi[i] = lo[i] = 0;
    return {static_cast<std::int32_t>(sumHi / packets), static_cast<std::int32_t>(sumLo / packets)};
}

}  // namespace

RecordTemperatures SplitPackets(const std::uint8_t* buffer, const SweepConfig& row, int packets,
                                std::int64_t first, std::int64_t count, double* hi, double* lo) {
    return Split(buffer, row, packets, first, count, hi, lo);
}

RecordTemperatures SplitPackets(const std::uint8_t* buffer, const SweepConfig& row, int packets,
                                std::int64_t first, std::int64_t count, std::uint16_t* hi,
                                std::uint16_t* lo) {
    return Split(buffer, row, packets, first, count, hi, lo);
}

namespace {

// Count of the threshold at `level` on one path: the entry s of the path's
// segments, count = (level - intercept) / slope, held within 0..65535.
std::int32_t ThresholdCount(const CalSegment (&entries)[kCalLevels], double level,
                            double firstLevel) {
    int s = static_cast<int>((level - firstLevel) / 2.0);
    s = s < 4 ? 4 : s > 25 ? 25 : s;
    double count = (level - entries[s].intercept) / entries[s].slope;
    // A flat segment (slope 0) of a damaged calibration gives no count: 0.
    if (std::isnan(count)) count = 0.0;
    count = count < 0.0 ? 0.0 : count > 65535.0 ? 65535.0 : count;
    return static_cast<std::int32_t>(count);
}

// The row a trace's temperature pointed to, if it lies well inside the table;
// else a row in the middle of the usual range.
int ThresholdRow(std::int32_t lastRow) { return lastRow >= 1 && lastRow <= 348 ? lastRow : 140; }

}  // namespace

void InternalLevelThresholds(int slot) {
    DeviceRecord& r = Slot(slot);
    TraceSettings& t = r.trace;
    const InstrumentState& s = r.current;
    double level = t.trgLevel;
    if (s.OffsetEnabled == 1) level -= s.Offset_DB;
    if (s.ResponseEnabled == 1) level -= ResponseCorrection(slot, s.Freq);
    level = level < -60.0 ? -60.0 : level > 20.0 ? 20.0 : level;
    t.trgLevelEff = level;
    t.trgAdcHi = ThresholdCount(r.tempRows[ThresholdRow(t.lastTmpRowHi)].hs, level, -70.0);
    t.trgAdcLo = ThresholdCount(r.tempRows[ThresholdRow(t.lastTmpRowLo)].ls, level, -30.0);
    t.autoTrgLevelSet = 0;
}

double CountToDbm(const CalSegment (&entries)[kCalLevels], double count) {
    int j = kCalLevels - 1;
    while (j > 0 && !(entries[j].count > count)) --j;
    return entries[j].slope * count + entries[j].intercept;
}

AutoLevel AutoLevelFromSamples(int slot, const double* hi, const double* lo, int n,
                               RecordTemperatures temperatures) {
    DeviceRecord& r = Slot(slot);
    // Counts below these mean a signal is present on the path.
    double limitHi = 60000.0, limitLo = 45000.0;
    const std::int32_t model = r.identity.ModelIndex;
    if (model == 7 || model == 8 || model == 71) {
        limitLo = 60000.0;
    } else if (model == 3) {
        const double f = r.tempRows[0].freq;
        if (f > 9e9) limitHi = 51000.0, limitLo = 36000.0;
        else if (f > 8e9) limitHi = 54000.0, limitLo = 39000.0;
        else if (f > 6e9) limitHi = 57000.0, limitLo = 42000.0;
    }
    struct Spread {
        double min = 65536.0;
        double max = 0.0;
    } sHi, sLo;
    for (int i = 0; i < n; ++i) {
        if (hi[i] < sHi.min) sHi.min = static_cast<std::int32_t>(hi[i]);
        if (hi[i] > sHi.max) sHi.max = hi[i];
        if (lo[i] < sLo.min) sLo.min = static_cast<std::int32_t>(lo[i]);
        if (lo[i] > sLo.max) sLo.max = lo[i];
    }
    const bool seenHi = sHi.max - sHi.min > 1000.0 && sHi.min < limitHi;
    const bool seenLo = sLo.max - sLo.min > 1000.0 && sLo.min < limitLo;
    if (!seenHi && !seenLo) return {false, -80.0};
    if (!seenHi) sHi.min = sHi.max = 32000.0;
    if (!seenLo) sLo.min = sLo.max = 32000.0;
    const CalTempRow& rowHi = r.tempRows[ClampTempRow(TempRowIndex(slot, temperatures.tmpHi))];
    const CalTempRow& rowLo = r.tempRows[ClampTempRow(TempRowIndex(slot, temperatures.tmpLo))];
    const double minHiDbm = CountToDbm(rowHi.hs, sHi.min), maxHiDbm = CountToDbm(rowHi.hs, sHi.max);
    const double minLoDbm = CountToDbm(rowLo.ls, sLo.min), maxLoDbm = CountToDbm(rowLo.ls, sLo.max);
    TraceSettings& t = r.trace;
    t.trgAdcHi = static_cast<std::int32_t>(sHi.min + 600.0);
    t.trgAdcLo = static_cast<std::int32_t>(sLo.min + 600.0);
    bool useHi;
    if (seenHi && seenLo) useHi = (minHiDbm - maxHiDbm) > (minLoDbm - maxLoDbm);
    else useHi = seenHi;
    const double m = useHi ? minHiDbm : minLoDbm;
    const double d = m - (useHi ? maxHiDbm : maxLoDbm);
    return {true, d > 1.0 ? m - 1.0 : m - d / 5.0};
}

AutoLevel AutomaticTriggerLevel(int slot, int /*row*/) {
    DeviceRecord& r = Slot(slot);
    TraceSettings& t = r.trace;
    const std::int32_t userIdx = t.sweepTimeIdx, userUsec = t.sweepTimeUsec;
    const int search = SearchSweepIndex(t);
    t.sweepTimeIdx = search;
    t.sweepTimeUsec = SweepConfigRow(search).sweepTimeUsec;
    const SweepConfig& c = SweepConfigRow(search);
    std::vector<std::uint8_t> packet(static_cast<std::size_t>(c.packetBytes), 0);
    SendSweepCommand(r.deviceHandle, t, search, SweepForm::kFreeRunning);
    const std::int64_t got = SearchPacketRead(slot, search, packet.data());
    t.sweepTimeIdx = userIdx;
    t.sweepTimeUsec = userUsec;
    // A search read that brings nothing sees no signal either.
    if (got == 0) return {false, -80.0};
    std::vector<double> hi(static_cast<std::size_t>(c.samplesPerPacket));
    std::vector<double> lo(hi.size());
    const RecordTemperatures temps =
        SplitPackets(packet.data(), c, 1, 0, c.samplesPerPacket, hi.data(), lo.data());
    return AutoLevelFromSamples(slot, hi.data(), lo.data(), c.samplesPerPacket, temps);
}

void SendThresholds(int slot) {
    DeviceRecord& r = Slot(slot);
    const std::int32_t values[2] = {r.trace.trgAdcLo, r.trace.trgAdcHi};
    const std::uint8_t selectors[2] = {3, 2};
    for (int i = 0; i < 2; ++i) {
        const std::int32_t v = values[i] < 0 ? 0 : values[i] > 65535 ? 65535 : values[i];
        std::uint8_t payload[3] = {selectors[i], static_cast<std::uint8_t>((v >> 8) & 0xFF),
                                   static_cast<std::uint8_t>(v & 0xFF)};
        VendorRequestOut(r.deviceHandle, kReqTriggerThreshold, payload, 3);
    }
}

}  // namespace qv
