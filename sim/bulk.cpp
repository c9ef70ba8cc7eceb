// The sensor's bulk pipes. ProduceBulkIn is the single source of everything the
// sensor sends on pipe 0x82: the bytes tests queue with qvsim_bulk_in_push, then
// measurement blocks (after 193/194, acquisition.cpp) or sweep packets (after
// 177/178, sweep.cpp).
#include <algorithm>
#include <cstring>

#include "sensor.h"

namespace qvsim {

namespace {

std::uint32_t TakeQueued(DeviceState& state, const std::uint8_t* ring, std::uint8_t* out, std::uint32_t length) {
    const std::uint32_t taken = std::min(length, state.bulkInCount);
    for (std::uint32_t i = 0; i < taken; ++i) out[i] = ring[(state.bulkInHead + i) % kBulkInBytes];
    state.bulkInHead = (state.bulkInHead + taken) % kBulkInBytes;
    state.bulkInCount -= taken;
    return taken;
}

}  // namespace

std::uint32_t ProduceBulkIn(SensorRecord& sensor, const TimingModel& timing, std::uint8_t* out, std::uint32_t length,
                            std::uint32_t timeoutMs, std::uint64_t* readyNs, PipeSource* source) {
    *readyNs = 0;
    *source = PipeSource{};
    const std::uint32_t queued = TakeQueued(sensor.state, sensor.bulkIn, out, length);
    if (queued > 0) return queued;
    if (sensor.sweep.armed != 0) {
        *source = PipeSource{177, 4, {}};
        std::memcpy(source->payload, sensor.state.sweepCommand, sizeof source->payload);
        return ProduceSweepBytes(sensor, timing, out, length, timeoutMs, readyNs);
    }
    const Acquisition& run = sensor.acquisition;
    *source = PipeSource{run.startRequest, 1, {run.count, 0, 0, 0}};
    return ProduceMeasurementBytes(sensor, timing, out, length, timeoutMs, readyNs);
}

bool QueueBulkIn(SensorRecord& sensor, const std::uint8_t* data, std::uint32_t length) {
    DeviceState& state = sensor.state;
    if (length > kBulkInBytes - state.bulkInCount) return false;
    for (std::uint32_t i = 0; i < length; ++i)
        sensor.bulkIn[(state.bulkInHead + state.bulkInCount + i) % kBulkInBytes] = data[i];
    state.bulkInCount += length;
    return true;
}

void ConsumeBulkOut(SensorRecord& sensor, const std::uint8_t* data, std::uint32_t length) {
    // The recorder output takes two-byte words, high byte first; the sensor keeps
    // what arrived last.
    DeviceState& state = sensor.state;
    ++state.bulkOutWrites;
    if (length >= 2) state.recorderWord = data[0] << 8 | data[1];
    state.bulkOutLength = length;
    std::memset(state.bulkOutLast, 0, sizeof state.bulkOutLast);
    std::memcpy(state.bulkOutLast, data, std::min<std::size_t>(length, sizeof state.bulkOutLast));
}

}  // namespace qvsim
