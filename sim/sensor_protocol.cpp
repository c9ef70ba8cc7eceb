// The vendor requests a sensor understands and what each does to its state.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "sensor.h"

namespace qvsim {

namespace {

enum Request : int {
    kSweepStart = 177,
    kPacketStatus = 178,
    kStop1 = 179,
    kStop3 = 187,
    kTriggerInOff = 190,
    kTriggerInOn = 191,
    kTriggerOutOff = 192,
    kMeasureStart = 193,
    kMeasureGo = 194,
    kStop2 = 195,
    kAntiAliasOff = 196,
    kAntiAliasOn = 197,
    kRecorderOff = 198,
    kRecorderOn = 199,
    kTriggerOutOnWithInput = 200,
    kTriggerOutOnWithoutInput = 201,
    kTriggerInNormal = 202,
    kTriggerInInverted = 203,
    kTriggerOutNormal = 204,
    kTriggerOutInverted = 205,
    kLedOn = 206,
    kLedOff = 207,
    kThreshold = 212,
    kWorkingSelect = 216,
    kWorkingWriteByte = 217,
    kWorkingReadWord = 218,
    kWorkingWriteBlock = 219,
    kWorkingReadBlock = 220,
    kMemoryPointer = 225,
    kMemoryWrite = 228,
    kMemoryRead = 229,
    kInitPing = 239,
    kBufferBase = 242,
    kFirmwareLocation = 243,
    kWriteBegin = 252,
    kWriteEnd = 253,
};

constexpr int kOutRequests[] = {kSweepStart,      kMeasureStart,      kThreshold,     kWorkingSelect,
                                kWorkingWriteByte, kWorkingWriteBlock, kMemoryPointer, kMemoryWrite};

constexpr int kInRequests[] = {kPacketStatus,  kStop1,          kStop3,
                               kTriggerInOff,  kTriggerInOn,    kTriggerOutOff,
                               kMeasureGo,     kStop2,          kAntiAliasOff,
                               kAntiAliasOn,   kRecorderOff,    kRecorderOn,
                               kTriggerOutOnWithInput,          kTriggerOutOnWithoutInput,
                               kTriggerInNormal, kTriggerInInverted, kTriggerOutNormal,
                               kTriggerOutInverted, kLedOn,     kLedOff,
                               kWorkingReadWord, kWorkingReadBlock, kMemoryRead,
                               kInitPing,      kBufferBase,     kFirmwareLocation,
                               kWriteBegin,    kWriteEnd};

void SetLed(DeviceState& state, bool on) {
    if (state.ledOn != static_cast<std::uint8_t>(on)) ++state.ledToggles;
    state.ledOn = on ? 1 : 0;
}

// 179 [195] 187 ends whatever the sensor is running; any other request in between
// breaks the sequence.
void TrackStopSequence(DeviceState& state, int request) {
    switch (request) {
        case kStop1:
            state.stopStage = 1;
            break;
        case kStop2:
            state.stopStage = state.stopStage == 1 ? 2 : 0;
            break;
        case kStop3:
            if (state.stopStage != 0) {
                state.runningMode = QVSIM_RUN_IDLE;
                ++state.stopSequences;
            }
            state.stopStage = 0;
            break;
        default:
            state.stopStage = 0;
            break;
    }
}

// Working-memory and SensorMemory transfers move their location on by the bytes
// moved, wrapping within the 64 KiB space, so consecutive requests continue.
void CopyFromWorking(SensorRecord& sensor, std::uint8_t* out, int length) {
    for (int i = 0; i < length; ++i) out[i] = sensor.working[sensor.state.workingLocation++];
}

void CopyToWorking(SensorRecord& sensor, const std::uint8_t* data, int length) {
    for (int i = 0; i < length; ++i) sensor.working[sensor.state.workingLocation++] = data[i];
}

void PutLocation(std::uint8_t* reply, int request, int location) {
    reply[0] = static_cast<std::uint8_t>(request);
    reply[1] = static_cast<std::uint8_t>(location >> 8);
    reply[2] = static_cast<std::uint8_t>(location & 0xFF);
}

}  // namespace

int TriggerOutLevel(const DeviceState& state) {
    return state.triggerOutEnabled != 0 && state.triggerOutInverted == 0 ? 1 : 0;
}

bool IsKnownRequest(Direction direction, int request) {
    auto listed = [request](const auto& requests) {
        return std::find(std::begin(requests), std::end(requests), request) != std::end(requests);
    };
    return direction == Direction::Out ? listed(kOutRequests) : listed(kInRequests);
}

std::uint8_t* RegionMemory(SensorRecord& sensor, int region) {
    if (region == QVSIM_REGION_CAL_A) return sensor.region2;
    if (region == QVSIM_REGION_CAL_B) return sensor.region6;
    return nullptr;
}

int SensorRequestOut(SensorRecord& sensor, int request, const std::uint8_t* data, int length, std::uint64_t nowNs) {
    DeviceState& state = sensor.state;
    if (length > kMaxControlData) return -1;
    TrackStopSequence(state, request);
    switch (request) {
        case kSweepStart:
            if (length < 4 || !ConfigureSweep(sensor, data, nowNs)) return -1;
            std::memcpy(state.sweepCommand, data, 4);
            StopAcquisition(sensor);
            state.runningMode = QVSIM_RUN_SWEEP;
            ++state.sweepStarts;
            break;
        case kMeasureStart:
            if (length < 1) return -1;
            state.measureReadings = data[0];
            EndSweep(sensor);
            StartAcquisition(sensor, request, data[0], nowNs);
            state.runningMode = QVSIM_RUN_MEASURING;
            break;
        case kThreshold:
            if (length < 3 || data[0] > 3) return -1;
            state.thresholds[data[0]] = data[1] << 8 | data[2];
            break;
        case kWorkingSelect:
            if (length < 2) return -1;
            state.workingLocation = static_cast<std::uint16_t>(data[0] << 8 | data[1]);
            break;
        case kWorkingWriteByte:
        case kWorkingWriteBlock:
            CopyToWorking(sensor, data, length);
            break;
        case kMemoryPointer:
            if (length < 3) return -1;
            state.memoryRegion = data[0];
            state.memoryPosition = static_cast<std::uint16_t>(data[1] << 8 | data[2]);
            break;
        case kMemoryWrite: {
            // Non-volatile memory only takes data inside a 252 ... 253 write; the
            // transfer itself still completes, as the bus cannot refuse it.
            if (state.writeOpen == 0) {
                ++state.ignoredWrites;
                break;
            }
            std::uint8_t* memory = RegionMemory(sensor, state.memoryRegion);
            for (int i = 0; i < length; ++i, ++state.memoryPosition)
                if (memory != nullptr) memory[state.memoryPosition] = data[i];
            break;
        }
        default:
            return -1;
    }
    return length;
}

int SensorRequestIn(SensorRecord& sensor, int request, std::uint8_t* reply, int length, std::uint64_t nowNs) {
    DeviceState& state = sensor.state;
    if (length > kMaxControlData) return -1;
    TrackStopSequence(state, request);
    if (state.runningMode != QVSIM_RUN_MEASURING) StopAcquisition(sensor);
    const int triggerOutLevel = TriggerOutLevel(state);
    // Replies are composed at full size and cut to the length asked for.
    std::uint8_t answer[kMaxControlData] = {};
    answer[0] = static_cast<std::uint8_t>(request);
    switch (request) {
        case kPacketStatus:
            ArmSweepPacket(sensor, nowNs);
            SweepStatus(sensor, answer);
            break;
        case kStop1:
        case kStop2:
        case kStop3:
        case kInitPing:
            if (request == kInitPing) ++state.initPings;
            break;
        case kTriggerInOff:
        case kTriggerInOn:
            state.triggerInEnabled = request == kTriggerInOn;
            break;
        case kTriggerOutOff:
            state.triggerOutEnabled = 0;
            break;
        case kTriggerOutOnWithInput:
        case kTriggerOutOnWithoutInput:
            state.triggerOutEnabled = 1;
            state.triggerOutVariant = static_cast<std::uint16_t>(request);
            break;
        case kTriggerInNormal:
        case kTriggerInInverted:
            state.triggerInInverted = request == kTriggerInInverted;
            break;
        case kTriggerOutNormal:
        case kTriggerOutInverted:
            state.triggerOutInverted = request == kTriggerOutInverted;
            break;
        case kAntiAliasOff:
        case kAntiAliasOn:
            state.antiAliasing = request == kAntiAliasOn;
            break;
        case kRecorderOff:
        case kRecorderOn:
            state.recorderOut = request == kRecorderOn;
            break;
        case kMeasureGo:
            // Re-arms: the run starts afresh with the last 193's count (one block
            // when there was none since power-up).
            EndSweep(sensor);
            StartAcquisition(sensor, request, state.measureReadings >= 0 ? state.measureReadings : 1, nowNs);
            state.runningMode = QVSIM_RUN_MEASURING;
            ++state.measureStarts;
            break;
        case kLedOn:
        case kLedOff:
            SetLed(state, request == kLedOn);
            break;
        case kWorkingReadWord:
            // The trigger line's state, bit 0 of its second byte, follows a periodic
            // trigger in real time (the host polls it by the clock); without one it
            // is whatever was written there.
            if (state.workingLocation == QVSIM_WM_TRIGGER_LINE && sensor.triggerPeriodUs > 0.0) {
                std::uint8_t& line = sensor.working[QVSIM_WM_TRIGGER_LINE + 1];
                line = static_cast<std::uint8_t>((line & 0xFE) | TriggerLineLevel(sensor, SteadyClockNs()));
            }
            [[fallthrough]];
        case kWorkingReadBlock:
            CopyFromWorking(sensor, answer, request == kWorkingReadWord ? std::min(length, 2) : length);
            break;
        case kMemoryRead: {
            const std::uint8_t* memory = RegionMemory(sensor, state.memoryRegion);
            for (int i = 0; i < length; ++i, ++state.memoryPosition)
                answer[i] = memory != nullptr ? memory[state.memoryPosition] : 0xFF;
            break;
        }
        case kBufferBase:
            PutLocation(answer, request, QVSIM_WM_BUFFER_BASE);
            break;
        case kFirmwareLocation:
            PutLocation(answer, request, QVSIM_WM_FIRMWARE);
            break;
        case kWriteBegin:
            state.writeOpen = 1;
            break;
        case kWriteEnd:
            state.writeOpen = 0;
            break;
        default:
            return -1;
    }
    if (TriggerOutLevel(state) != triggerOutLevel) ++sensor.acquisition.triggerOutEdges;
    if (length > 0) std::memcpy(reply, answer, static_cast<std::size_t>(length));
    return length;
}

void StoreFirmwareText(SensorRecord& sensor) {
    std::uint8_t* text = sensor.working + QVSIM_WM_FIRMWARE;
    std::memset(text, 0, QVSIM_LONG_TEXT_CHARS);
    std::memcpy(text, sensor.identity.firmware, std::strlen(sensor.identity.firmware));
}

void PowerOff(SensorRecord& sensor) {
    sensor.state = DeviceState{};
    sensor.acquisition = Acquisition{};
    sensor.sweep = SweepRun{};
    std::memset(sensor.working, 0, sizeof sensor.working);
}

void PowerOn(SensorRecord& sensor) {
    PowerOff(sensor);
    DeviceState& state = sensor.state;
    state.measureReadings = -1;
    state.recorderWord = -1;
    std::fill(std::begin(state.thresholds), std::end(state.thresholds), -1);
    StoreFirmwareText(sensor);
}

}  // namespace qvsim
