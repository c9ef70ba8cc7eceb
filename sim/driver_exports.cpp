// The twelve driver functions: each finds the sensor its handle or index names,
// applies that sensor's injected faults and hands the work to the sensor side.
#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "bus.h"
#include "qvsim_driver.h"
#include "sensor.h"
#include "device/driver_library.h"

namespace qvsim {

namespace {

// {8BC86AFD-F393-458D-9A8D-AD9EEE178822}
constexpr QvGuid kSensorClass = {0x8BC86AFDu, 0xF393u, 0x458Du, {0x9A, 0x8D, 0xAD, 0x9E, 0xEE, 0x17, 0x88, 0x22}};
constexpr const char* kPathPrefix = "\\\\?\\usb#vid_5156&pid_0001#";
constexpr const char* kPathSuffix = "#{8bc86afd-f393-458d-9a8d-ad9eee178822}";
constexpr int kStringDescriptorArg = QV_DRV_STRING_DESCRIPTOR_ARG;

class SimulatedDriverFault : public std::runtime_error {
public:
    SimulatedDriverFault() : std::runtime_error("simulated driver fault") {}
};

bool IsSensorClass(const QvGuid* guid) {
    return guid != nullptr && guid->Data1 == kSensorClass.Data1 && guid->Data2 == kSensorClass.Data2 &&
           guid->Data3 == kSensorClass.Data3 && std::memcmp(guid->Data4, kSensorClass.Data4, 8) == 0;
}

void ThrowIfFaulted(SensorRecord& sensor, int function) {
    if (TakeFault(sensor, QVSIM_FAULT_THROWS, function)) throw SimulatedDriverFault();
}

// One driver call on one sensor, with the bus locked.
struct SensorCall {
    Bus& bus;
    int id;
    SensorRecord& sensor;
    const TimingModel& timing;
    std::uint64_t pauseMicros;  // slept once the bus lock is released
};

// Runs operation on the sensor selected by pick (id or -1) with the bus locked,
// after that sensor's "throws" fault for function; returns failure when there is
// no bus or no such sensor.
template <typename Result, typename Pick, typename Operation>
Result OnSensor(Result failure, int function, Pick pick, Operation operation) {
    std::shared_ptr<Bus> bus = AttachedBus();
    if (!bus) return failure;
    std::uint64_t pauseMicros = 0;
    Result result = failure;
    {
        BusLock lock(*bus);
        if (!lock.held()) return failure;
        const int id = pick(*bus);
        if (id < 0) return failure;
        SensorCall call{*bus, id, bus->record(id), bus->header().timing, 0};
        ThrowIfFaulted(call.sensor, function);
        result = operation(call);
        pauseMicros = call.pauseMicros;
    }
    if (pauseMicros > 0) os::SleepMicroseconds(pauseMicros);
    return result;
}

template <typename Operation>
int32_t OnWinUsb(QvDrvHandle winusb, int function, Operation operation, int32_t failure = -1) {
    return OnSensor<int32_t>(failure, function, [winusb](Bus& bus) { return SensorOfWinUsbHandle(bus, winusb); },
                             operation);
}

bool IsVendorType(Direction direction, int32_t requestType) {
    return requestType == 2 || requestType == (direction == Direction::Out ? 0x40 : 0xC0);
}

// One control transfer as the sensor sees it, faults first.
int32_t ControlTransfer(SensorRecord& sensor, const TimingModel& timing, Direction direction, int32_t requestType,
                        int32_t recipient, int32_t request, int32_t value, int32_t index, uint8_t* buffer,
                        int32_t length) {
    if (!IsVendorType(direction, requestType) || recipient != 0 || value != 0 || index != 0 || length < 0 ||
        (length > 0 && buffer == nullptr) || !IsKnownRequest(direction, request))
        return -1;
    if (FiredFault failed = TakeFault(sensor, QVSIM_FAULT_REQUEST_FAILS, request)) return failed.arg < 0 ? failed.arg : -1;
    if (TakeFault(sensor, QVSIM_FAULT_REQUEST_EMPTY, request)) return 0;
    const std::uint64_t nowNs = SensorNowNs(sensor, timing);
    if (direction == Direction::Out) return SensorRequestOut(sensor, request, buffer, length, nowNs);
    if (length <= kMaxControlData && TakeFault(sensor, QVSIM_FAULT_NO_ECHO, request)) {
        std::memset(buffer, 0, static_cast<std::size_t>(length));
        if (length > 0) buffer[0] = static_cast<uint8_t>(~request);
        return length;
    }
    return SensorRequestIn(sensor, request, buffer, length, nowNs);
}

int32_t VendorRequest(Direction direction, QvDrvHandle winusb, int32_t requestType, int32_t recipient,
                      int32_t request, int32_t value, int32_t index, uint8_t* buffer, int32_t length) {
    const int function = direction == Direction::Out ? QVSIM_FN_REQUEST_OUT : QVSIM_FN_REQUEST_IN;
    return OnWinUsb(winusb, function, [&](SensorCall& call) {
        SensorRecord& sensor = call.sensor;
        call.pauseMicros = call.timing.controlMicros;
        if (FiredFault unplug = TakeFault(sensor, QVSIM_FAULT_UNPLUG, request)) {
            // arg > 0: sensor arg - 1 is pulled out instead, and this request goes on.
            SensorRecord* other = unplug.arg > 0 ? call.bus.sensor(unplug.arg - 1) : nullptr;
            if (unplug.arg <= 0) {
                Unplug(sensor);
                return -1;
            }
            if (other != nullptr && other->plugged != 0) Unplug(*other);
        }
        const int32_t result =
            ControlTransfer(sensor, call.timing, direction, requestType, recipient, request, value, index, buffer, length);
        const int transferred = std::max(result, 0);
        const int shown = direction == Direction::Out ? length : transferred;
        AppendTranscript(sensor, direction == Direction::Out ? QVSIM_XFER_OUT : QVSIM_XFER_IN, request, length, result,
                         transferred, buffer, shown);
        return result;
    });
}

int32_t PipeTransfer(Direction direction, QvDrvHandle winusb, int32_t pipe, uint8_t* buffer, uint32_t length,
                     uint32_t* transferred, uint32_t timeoutMs) {
    if (transferred != nullptr) *transferred = 0;
    const int function = direction == Direction::In ? QVSIM_FN_PIPE_READ : QVSIM_FN_PIPE_WRITE;
    return OnWinUsb(winusb, function, [&](SensorCall& call) {
        SensorRecord& sensor = call.sensor;
        const int32_t expectedPipe = direction == Direction::In ? QV_DRV_PIPE_IN : QV_DRV_PIPE_OUT;
        const int kind = direction == Direction::In ? QVSIM_XFER_PIPE_READ : QVSIM_XFER_PIPE_WRITE;
        const int shownLength = static_cast<int>(std::min<uint32_t>(length, INT32_MAX));
        if (pipe != expectedPipe || transferred == nullptr || (length > 0 && buffer == nullptr)) {
            AppendTranscript(sensor, kind, pipe, shownLength, -1, 0, nullptr, 0);
            return -1;
        }
        uint32_t limit = length;
        if (TakeFault(sensor, QVSIM_FAULT_PIPE_TIMEOUT, pipe)) {
            limit = 0;
        } else if (FiredFault shortened = TakeFault(sensor, QVSIM_FAULT_PIPE_SHORT, pipe)) {
            limit = std::min(limit, static_cast<uint32_t>(std::max(shortened.arg, 0)));
        }
        uint32_t moved = 0;
        std::uint64_t readyNs = 0;
        PipeSource source;
        if (direction == Direction::In) {
            moved = limit > 0 ? ProduceBulkIn(sensor, call.timing, buffer, limit, timeoutMs, &readyNs, &source) : 0;
            CaptureTransfer(sensor, source, length, timeoutMs, buffer, moved);
        } else if (limit > 0) {
            moved = limit;
            ConsumeBulkOut(sensor, buffer, moved);
        }
        *transferred = moved;
        const bool timedOut = moved == 0 && length > 0;
        if (timedOut && call.timing.realTimeouts != 0) call.pauseMicros = std::uint64_t{timeoutMs} * 1000;
        // Blocks still being sampled are waited for (their time includes the
        // transfer); anything else takes its transfer time.
        if (!timedOut && readyNs > 0)
            call.pauseMicros = (readyNs + 999) / 1000;
        else if (!timedOut && call.timing.bulkBytesPerSecond != 0)
            call.pauseMicros = std::uint64_t{moved} * 1000000 / call.timing.bulkBytesPerSecond;
        const int32_t result = timedOut ? 0 : 1;
        AppendTranscript(sensor, kind, pipe, shownLength, result, static_cast<int>(moved), buffer,
                         static_cast<int>(std::min<uint32_t>(moved, 8)));
        return result;
    });
}

const char* StringOf(SensorRecord& sensor, int32_t stringIndex) {
    if (stringIndex == QV_DRV_STRING_PRODUCT) return sensor.identity.product;
    if (stringIndex == QV_DRV_STRING_SERIAL) return sensor.identity.serial;
    return nullptr;
}

// The string a descriptor request may read, or null when the sensor stalls it.
const char* DescriptorString(SensorRecord& sensor, int32_t arg27, int32_t stringIndex) {
    if (arg27 != kStringDescriptorArg) return nullptr;
    if (TakeFault(sensor, QVSIM_FAULT_STRING_FAILS, stringIndex)) return nullptr;
    return StringOf(sensor, stringIndex);
}

std::string DevicePath(const SensorRecord& sensor) {
    return std::string(kPathPrefix) + sensor.identity.pathSerial + kPathSuffix;
}

}  // namespace

}  // namespace qvsim

using namespace qvsim;

extern "C" {

int32_t QV_USBDRVD_GetDevCount(const QvGuid* classGuid) {
    if (!IsSensorClass(classGuid)) return 0;
    std::shared_ptr<Bus> bus = AttachedBus();
    if (!bus) return 0;
    BusLock lock(*bus);
    if (!lock.held()) return 0;
    int ids[kMaxSensors];
    const int count = PluggedSensors(*bus, ids);
    for (int i = 0; i < count; ++i) {
        if (TakeFault(bus->record(ids[i]), QVSIM_FAULT_THROWS, QVSIM_FN_GET_DEV_COUNT, false))
            throw SimulatedDriverFault();
    }
    return count;
}

int32_t QV_USBDRVD_GetDevicePath(int32_t index0, const QvGuid* classGuid, QvWideChar* path, int32_t pathChars) {
    if (!IsSensorClass(classGuid) || path == nullptr || pathChars <= 0) return 0;
    return OnSensor<int32_t>(
        0, QVSIM_FN_GET_DEVICE_PATH, [index0](Bus& bus) { return PluggedSensorAt(bus, index0); },
        [&](SensorCall& call) { return WriteDevicePath(DevicePath(call.sensor), path, pathChars); });
}

QvDrvHandle QV_USBDRVD_OpenDevHandle(int32_t index0, int32_t /*flags*/, const QvGuid* classGuid) {
    if (!IsSensorClass(classGuid)) return QV_DRV_INVALID_HANDLE;
    return OnSensor<QvDrvHandle>(
        QV_DRV_INVALID_HANDLE, QVSIM_FN_OPEN_DEV_HANDLE, [index0](Bus& bus) { return PluggedSensorAt(bus, index0); },
        [](SensorCall& call) -> QvDrvHandle {
            if (FiredFault refused = TakeFault(call.sensor, QVSIM_FAULT_OPEN_FAILS, 0))
                return refused.arg == 0 ? 0 : QV_DRV_INVALID_HANDLE;
            return OpenDeviceHandle(call.bus, call.id);
        });
}

int32_t QV_USBDRVD_CloseDevHandle(QvDrvHandle device) {
    return OnSensor<int32_t>(
        0, QVSIM_FN_CLOSE_DEV_HANDLE, [device](Bus& bus) { return SensorOfDeviceHandle(bus, device); },
        [device](SensorCall& call) { return CloseDeviceHandle(call.bus, device) ? 1 : 0; });
}

QvDrvHandle QV_USBDRVD_OpenWinUSBHandle(QvDrvHandle device) {
    // Derived from the device handle rather than allocated: the library asks for one
    // before every request and never frees it.
    return OnSensor<QvDrvHandle>(
        QV_DRV_INVALID_HANDLE, QVSIM_FN_OPEN_WINUSB_HANDLE,
        [device](Bus& bus) { return SensorOfDeviceHandle(bus, device); },
        [device](SensorCall&) { return WinUsbHandleOf(device); });
}

int32_t QV_USBDRVD_CloseWinUSBHandle(QvDrvHandle winusb) {
    return OnWinUsb(
        winusb, QVSIM_FN_CLOSE_WINUSB_HANDLE, [](SensorCall&) { return 1; }, 0);
}

int32_t QV_USBDRVD_GetStringDescriptorLengthA(QvDrvHandle winusb, int32_t arg27, int32_t stringIndex) {
    return OnWinUsb(winusb, QVSIM_FN_GET_STRING_LENGTH,
                    [&](SensorCall& call) {
                        SensorRecord& sensor = call.sensor;
                        call.pauseMicros = call.timing.controlMicros;
                        const char* text = DescriptorString(sensor, arg27, stringIndex);
                        const int32_t result = text == nullptr ? -1 : static_cast<int32_t>(std::strlen(text) + 1);
                        AppendTranscript(sensor, QVSIM_XFER_STRING, stringIndex, 0, result, 0, nullptr, 0);
                        return result;
                    });
}

int32_t QV_USBDRVD_GetStringDescriptorA(QvDrvHandle winusb, int32_t arg27, int32_t stringIndex, int32_t length,
                                        char* buffer) {
    return OnWinUsb(winusb, QVSIM_FN_GET_STRING, [&](SensorCall& call) {
        SensorRecord& sensor = call.sensor;
        call.pauseMicros = call.timing.controlMicros;
        const char* text = length > 0 && buffer != nullptr ? DescriptorString(sensor, arg27, stringIndex) : nullptr;
        int32_t result = -1;
        if (text != nullptr) {
            // A buffer too small gets as much as fits, still terminated.
            const auto characters = static_cast<int32_t>(std::min<std::size_t>(std::strlen(text), static_cast<std::size_t>(length - 1)));
            std::memcpy(buffer, text, static_cast<std::size_t>(characters));
            buffer[characters] = '\0';
            result = characters + 1;
        }
        AppendTranscript(sensor, QVSIM_XFER_STRING, stringIndex, length, result, std::max(result, 0),
                         reinterpret_cast<const uint8_t*>(buffer), std::max(result, 0));
        return result;
    });
}

int32_t QV_USBDRVD_VendorOrClassRequestOut(QvDrvHandle winusb, int32_t requestType, int32_t recipient, int32_t request,
                                           int32_t value, int32_t index, uint8_t* buffer, int32_t length) {
    return VendorRequest(Direction::Out, winusb, requestType, recipient, request, value, index, buffer, length);
}

int32_t QV_USBDRVD_VendorOrClassRequestIn(QvDrvHandle winusb, int32_t requestType, int32_t recipient, int32_t request,
                                          int32_t value, int32_t index, uint8_t* buffer, int32_t length) {
    return VendorRequest(Direction::In, winusb, requestType, recipient, request, value, index, buffer, length);
}

int32_t QV_USBDRVD_PipeReadTimeout(QvDrvHandle winusb, int32_t pipe, uint8_t* buffer, uint32_t length,
                                   uint32_t* transferred, uint32_t timeoutMs) {
    return PipeTransfer(Direction::In, winusb, pipe, buffer, length, transferred, timeoutMs);
}

int32_t QV_USBDRVD_PipeWriteTimeout(QvDrvHandle winusb, int32_t pipe, uint8_t* buffer, uint32_t length,
                                    uint32_t* transferred, uint32_t timeoutMs) {
    return PipeTransfer(Direction::Out, winusb, pipe, buffer, length, transferred, timeoutMs);
}

}  // extern "C"
