#include "measure/acquisition.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "calibration/cal_tables.h"
#include "device/driver.h"
#include "device/transport.h"
#include "frame/lookups.h"
#include "measure/conversion.h"
#include "settings/trigger.h"

namespace qv {

namespace {

constexpr double kRebuildDistanceHz = 20000.0;
constexpr std::uint32_t kFreeRunningMsPerBlock = 100;
constexpr std::uint32_t kTriggeredMsPerBlock = 15;
constexpr std::uint32_t kPulseMsPerBlock = 15;

void CloseWinUsb(std::int64_t winusb) {
    if (!IsHandle(winusb)) return;
    try {
        driver::CloseWinUSBHandle(winusb);
    } catch (const DriverFault&) {
    }
}

// The handles of one acquisition. The device handle is the slot's, or one
// opened for this call; the WinUSB handle is the slot's, or one opened on the
// device handle, which is kept in the slot only where the sequence says so
// and only when the device handle is the slot's own (a WinUSB handle must
// not outlive its device handle). Whatever was opened for this call alone is
// closed on every path out.
class AcquisitionHandles {
public:
    AcquisitionHandles(DeviceRecord& r, std::int64_t device, bool deviceForThisCall)
        : r_(r), device_(device), ownDevice_(deviceForThisCall) {}
    ~AcquisitionHandles() {
        if (ownWinUsb_) CloseWinUsb(winusb_);
        if (ownDevice_) CloseDevice(device_);
    }
    AcquisitionHandles(const AcquisitionHandles&) = delete;
    AcquisitionHandles& operator=(const AcquisitionHandles&) = delete;

    std::int64_t Device() const { return device_; }

    std::int64_t WinUsb(bool keepInSlot) {
        if (IsHandle(winusb_)) return winusb_;
        if (IsHandle(r_.winUsbHandle)) return winusb_ = r_.winUsbHandle;
        try {
            winusb_ = driver::OpenWinUSBHandle(device_);
        } catch (const DriverFault&) {
            winusb_ = kNoHandle;
        }
        if (!IsHandle(winusb_)) return winusb_;
        if (keepInSlot && !ownDevice_) {
            r_.winUsbHandle = winusb_;
        } else {
            ownWinUsb_ = true;
        }
        return winusb_;
    }

    // Closes both handles and marks the slot as having none.
    void CloseAll() {
        if (ownWinUsb_) CloseWinUsb(winusb_);
        CloseWinUsb(r_.winUsbHandle);
        CloseDevice(device_);
        r_.winUsbHandle = r_.deviceHandle = kNoHandle;
        winusb_ = device_ = kNoHandle;
        ownWinUsb_ = ownDevice_ = false;
    }

    // Closes both handles and opens the device afresh for the slot's
    // enumeration index, keeping the new handle in the slot. False when it
    // could not be opened or another sensor now has that place (the slot then
    // has no handle).
    bool ReopenDevice() {
        CloseAll();
        const std::int64_t h = OpenKnownDevice_Idx(r_.devId, r_.serial);
        r_.deviceHandle = device_ = IsHandle(h) ? h : kNoHandle;
        return IsHandle(device_);
    }

private:
    DeviceRecord& r_;
    std::int64_t device_;
    bool ownDevice_;
    std::int64_t winusb_ = kNoHandle;
    bool ownWinUsb_ = false;
};

// Start (193) and re-arm (194), on the device handle (vendor request type 2)
// or directly on the WinUSB handle with the complete request-type byte.
std::int32_t StartOnDevice(std::int64_t device, std::int32_t readings) {
    std::uint8_t payload[1] = {static_cast<std::uint8_t>(readings & 0xFF)};
    return VendorRequestOut(device, kReqMeasureStart, payload, 1);
}

std::int32_t ArmOnDevice(std::int64_t device) {
    std::uint8_t reply[2] = {};
    return VendorRequestIn(device, kReqMeasureAck, reply, 2);
}

std::int32_t StartOnWinUsb(std::int64_t winusb, std::int32_t readings) {
    std::uint8_t payload[1] = {static_cast<std::uint8_t>(readings & 0xFF)};
    try {
        return driver::RequestOut(winusb, kRequestTypeVendorOut, kReqMeasureStart, payload, 1);
    } catch (const DriverFault&) {
        return -2;
    }
}

std::int32_t ArmOnWinUsb(std::int64_t winusb) {
    std::uint8_t reply[2] = {};
    try {
        return driver::RequestIn(winusb, kRequestTypeVendorIn, kReqMeasureAck, reply, 2);
    } catch (const DriverFault&) {
        return -2;
    }
}

// One read of n blocks into the slot's raw buffer. Its result as the
// sequences test it: the driver's result, except that a read that brought no
// byte, failed, or made the driver fail counts as 0 ("nothing came"), so that
// every way of getting nothing takes the retry path.
std::int32_t ReadBlocks(std::int64_t winusb, DeviceRecord& r, std::int32_t n,
                        std::uint32_t timeoutMs) {
    std::uint32_t moved = 0;
    std::int32_t result = 0;
    try {
        result = driver::PipeRead(winusb, r.samples.raw,
                                  static_cast<std::uint32_t>(n) * kBlockBytes, &moved, timeoutMs);
    } catch (const DriverFault&) {
        return 0;
    }
    return (result >= 1 && moved > 0) ? result : 0;
}

std::uint32_t Milliseconds(std::int64_t ms) {
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(ms, 0, 0xFFFFFFFF));
}

// The time-out of a first read: with the TTL input on the sensor waits for
// its trigger, so the caller's trigger time-out counts, else `msPerBlock`.
std::uint32_t FirstTimeout(const InstrumentState& s, std::int32_t n, std::uint32_t msPerBlock) {
    if (s.TTL_TriggerInEnabled == 1) return Milliseconds(std::int64_t{n} + s.TriggerDelay_mSec);
    return Milliseconds(std::int64_t{n} * msPerBlock);
}

// The recorder and (for pulses) triggered reads: a read that brings nothing is
// tried again with twice the time-out, then once more after a re-arm with
// twice that again.
std::int32_t ReadTwiceMoreThenRearm(AcquisitionHandles& h, std::int64_t winusb, DeviceRecord& r,
                                    std::int32_t n, std::uint32_t t) {
    std::int32_t result = ReadBlocks(winusb, r, n, t);
    if (result == 0) {
        t *= 2;
        result = ReadBlocks(winusb, r, n, t);
    }
    if (result == 0) {
        ArmOnDevice(h.Device());
        t *= 2;
        result = ReadBlocks(winusb, r, n, t);
    }
    return result < 1 ? kCoreReadFailed : 1;
}

std::int32_t RecorderModeCW(DeviceRecord& r, AcquisitionHandles& h, std::int32_t n) {
    if (r.streamArmed == 0 || r.singleAverageStream == 0) {
        StartOnDevice(h.Device(), 0);
        ArmOnDevice(h.Device());
        r.streamArmed = r.singleAverageStream = 1;
    }
    // Kept in the slot: the recorder update after the reading writes over it.
    const std::int64_t winusb = h.WinUsb(true);
    return ReadTwiceMoreThenRearm(h, winusb, r, n, FirstTimeout(r.current, n, kFreeRunningMsPerBlock));
}

std::int32_t TriggeredModeCW(DeviceRecord& r, AcquisitionHandles& h, std::int32_t n) {
    const std::int64_t winusb = h.WinUsb(true);
    std::uint8_t reply[2] = {};
    VendorRequestIn(h.Device(), kReqTriggerInOn, reply, 2);
    r.streamArmed = r.singleAverageStream = 0;
    StartOnWinUsb(winusb, n);
    ArmOnWinUsb(winusb);
    std::uint32_t t = FirstTimeout(r.current, n, kTriggeredMsPerBlock);
    std::int32_t result = ReadBlocks(winusb, r, n, t);
    if (result == 0) {
        t *= 4;
        ArmOnWinUsb(winusb);
        result = ReadBlocks(winusb, r, n, t);
    }
    return result < 1 ? kCoreReadFailed : 1;
}

// A sensor armed for a continuous stream keeps streaming: a later reading of
// more blocks drops only the armed flag and reads them from the stream.
std::int32_t FreeRunningModeCW(DeviceRecord& r, AcquisitionHandles& h, std::int32_t n) {
    const std::int64_t winusb = h.WinUsb(true);
    if (r.singleAverageStream == 0) {
        // 0 arms a continuous stream of one block per reading.
        if (StartOnWinUsb(winusb, n == 1 ? 0 : n) < 1) {
            h.CloseAll();
            return kCoreStartFailed;
        }
        r.singleAverageStream = n == 1 ? 1 : 0;
    }
    if (!(r.streamArmed == 1 && r.singleAverageStream == 1 && n == 1)) {
        if (ArmOnWinUsb(winusb) == 0) return kCoreStartFailed;
        r.streamArmed = (n == 1 && r.singleAverageStream == 1) ? 1 : 0;
    }
    std::memset(r.samples.raw, 0, sizeof r.samples.raw);
    const std::uint32_t t = FirstTimeout(r.current, n, kFreeRunningMsPerBlock);
    if (ReadBlocks(winusb, r, n, t) != 0) return 1;
    r.streamArmed = r.singleAverageStream = 0;
    StartOnDevice(h.Device(), n);
    if (ReadBlocks(winusb, r, n, t) >= 1) return 1;
    // The sensor stopped answering: reopen it so that the next reading can
    // start afresh. This reading fails rather than being made from the
    // zeroed buffer, which would read as a power far above the highest
    // calibrated level.
    if (!h.ReopenDevice()) return -1;
    return kCoreReadFailed;
}

}  // namespace

std::int32_t SlotBySerial(const char* serial) {
    if (!serial) return kNoSlot;
    for (std::int32_t s = 0; s < kSlotCount; ++s)
        if (SerialNumbersMatch(Slot(s).serial, serial)) return s;
    return kNoSlot;
}

void FollowFrequency(std::int32_t slot) {
    DeviceRecord& r = Slot(slot);
    if (std::fabs(r.current.Freq - r.tempRows[0].freq) > kRebuildDistanceHz)
        BuildCalTables(slot, r.current.Freq);
}

std::int32_t MeasureCWCore(const char* serial, double* hsValue, double* lsValue) {
    const std::int32_t slot = SlotBySerial(serial);
    if (slot == kNoSlot) return kCoreNoSlot;
    DeviceRecord& r = Slot(slot);
    // 0 is no handle here either (-1 and -2 are none everywhere).
    const bool slotHasDevice = IsHandle(r.deviceHandle) && r.deviceHandle != 0;
    AcquisitionHandles h(r, slotHasDevice ? r.deviceHandle : OpenKnownDevice_Idx(r.devId, r.serial),
                         !slotHasDevice);
    FollowFrequency(slot);
    const InstrumentState& s = r.current;
    const std::int32_t n = s.Averages;
    // No block to average (a count below 1 can come only from a restored
    // state): nothing to split, and nothing is sent.
    if (n < 1) return kCoreParseFailed;

    std::int32_t result;
    if (s.RecorderOutEnabled == 1) {
        result = RecorderModeCW(r, h, n);
    } else if (s.TTL_TriggerInEnabled == 1 || s.TTL_TriggerOutEnabled == 1) {
        result = TriggeredModeCW(r, h, n);
    } else {
        result = FreeRunningModeCW(r, h, n);
    }
    if (result < 1) return result;

    SampleBuffers& b = r.samples;
    std::int32_t loTmp = kTempSampleCapacity, hiTmp = kTempSampleCapacity;
    std::int32_t loPwr = kPowerSampleCapacity, hiPwr = kPowerSampleCapacity;
    const std::int32_t samples = ParseRawBlocks(b.raw, n * kBlockBytes, b.loTmpCnt, b.hiTmpCnt,
                                                b.loPwrCnt, b.hiPwrCnt, &loTmp, &hiTmp, &loPwr,
                                                &hiPwr);
    if (samples < 0) return kCoreParseFailed;

    const double reading = ConvertAndMergeCW(slot, n);
    *hsValue = *lsValue = reading;
    return 1;
}

std::int32_t AcquirePulseBlocks(std::int32_t slot, std::int32_t n) {
    DeviceRecord& r = Slot(slot);
    const InstrumentState& s = r.current;
    AcquisitionHandles h(r, r.deviceHandle, false);
    std::uint32_t t = FirstTimeout(s, n, kPulseMsPerBlock);
    if (s.RecorderOutEnabled == 1 || s.TTL_TriggerInEnabled == 1 || s.TTL_TriggerOutEnabled == 1) {
        r.streamArmed = r.singleAverageStream = 0;
        StartOnDevice(h.Device(), s.RecorderOutEnabled == 1 ? 0 : n);
        ArmOnDevice(h.Device());
        return ReadTwiceMoreThenRearm(h, h.WinUsb(true), r, n, t);
    }
    if (r.singleAverageStream == 0) {
        StartOnDevice(h.Device(), n == 1 ? 0 : n);
        r.singleAverageStream = n == 1 ? 1 : 0;
    }
    if (!(r.streamArmed == 1 && r.singleAverageStream == 1 && n == 1)) {
        ArmOnDevice(h.Device());
        r.streamArmed = (n == 1 && r.singleAverageStream == 1) ? 1 : 0;
    }
    const std::int64_t winusb = h.WinUsb(false);
    if (ReadBlocks(winusb, r, n, t) != 0) return 1;
    r.streamArmed = r.singleAverageStream = 0;
    StartOnDevice(h.Device(), n);
    ArmOnDevice(h.Device());
    return ReadBlocks(winusb, r, n, t) < 1 ? kCoreReadFailed : 1;
}

bool PulsesTriggerOutput(const InstrumentState& s) {
    return s.RecorderOutEnabled == 0 && s.TTL_TriggerOutEnabled == 1 && s.TTL_TriggerInEnabled == 0;
}

std::int32_t FlipTriggerOutput(std::int32_t address, const InstrumentState& s) {
    return SetTTLTriggerOutInverted(address, s.TTL_TriggerOutInvertEnabled == 1 ? 0 : 1);
}

AveragingSplit SplitAverages(std::int32_t averages) {
    const std::int32_t runs = averages / kMaxBlocksPerRun + 1;
    return {runs, averages / runs + 1};
}

}  // namespace qv
