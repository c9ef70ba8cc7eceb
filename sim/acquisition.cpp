// A sensor's measurement runs: 193 and 194 start them, pipe 0x82 reads take their
// blocks, the TTL input gates them, and the timing model decides when each block
// is finished.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>

#include "sensor.h"
#include "signal_model.h"

namespace qvsim {

namespace {

// Finished blocks a streaming sensor holds for a busy host (about 4 ms, enough to
// ride out a loaded machine's scheduling); older ones are lost.
constexpr std::uint64_t kHeldBlocks = 16;
constexpr int kMeasureStartRequest = 193;

std::uint64_t SteadyNowNs() {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch()).count());
}

// Sampling plus, under the timing model, the block's own USB transfer.
std::uint64_t BlockPeriodNs(const TimingModel& timing) {
    std::uint64_t period = kBlockSamplingNs;
    if (timing.sampledBlocks != 0 && timing.bulkBytesPerSecond != 0)
        period += std::uint64_t{kBlockBytes} * 1000000000u / timing.bulkBytesPerSecond;
    return period;
}

}  // namespace

// The periodic line is high for the first half of each period: its rising edges
// fall on the multiples of the period, its falling ones half a period later, and
// the inverted input (203) takes the falling ones.
std::uint64_t NextTrigger(SensorRecord& sensor, std::uint64_t fromNs, std::uint64_t nowNs, std::uint64_t deadlineNs) {
    Acquisition& run = sensor.acquisition;
    if (run.pendingTriggers > 0) {
        --run.pendingTriggers;
        return std::max(fromNs, nowNs);
    }
    if (sensor.triggerPeriodUs > 0.0) {
        const auto periodNs = static_cast<std::uint64_t>(sensor.triggerPeriodUs * 1000.0);
        if (periodNs == 0) return fromNs;
        const std::uint64_t shift = sensor.state.triggerInInverted != 0 ? periodNs / 2 : 0;
        const std::uint64_t from = std::max(fromNs, shift) - shift;
        const std::uint64_t edge = (from + periodNs - 1) / periodNs * periodNs + shift;
        if (edge <= deadlineNs) return edge;
    }
    return kNoTrigger;
}

int TriggerLineLevel(const SensorRecord& sensor, std::uint64_t nowNs) {
    const auto periodNs = static_cast<std::uint64_t>(sensor.triggerPeriodUs * 1000.0);
    return periodNs > 0 && nowNs % periodNs < periodNs / 2 ? 1 : 0;
}

std::uint64_t SteadyClockNs() { return SteadyNowNs(); }

std::uint64_t SensorNowNs(const SensorRecord& sensor, const TimingModel& timing) {
    return timing.sampledBlocks != 0 ? SteadyNowNs() : sensor.acquisition.clockNs;
}

void StartAcquisition(SensorRecord& sensor, int request, int count, std::uint64_t nowNs) {
    Acquisition& run = sensor.acquisition;
    run.armed = 1;
    run.count = static_cast<std::uint8_t>(count);
    run.startRequest = static_cast<std::uint8_t>(request);
    run.triggered = 0;
    run.partialBytes = 0;
    run.block = 0;
    run.readingStartNs = nowNs;
}

void StopAcquisition(SensorRecord& sensor) {
    Acquisition& run = sensor.acquisition;
    run.armed = 0;
    run.partialBytes = 0;
}

std::uint32_t ProduceMeasurementBytes(SensorRecord& sensor, const TimingModel& timing, std::uint8_t* out,
                                      std::uint32_t length, std::uint32_t timeoutMs, std::uint64_t* readyNs) {
    Acquisition& run = sensor.acquisition;
    *readyNs = 0;
    if (run.armed == 0) return 0;
    const bool timed = timing.sampledBlocks != 0;
    const std::uint64_t nowNs = SensorNowNs(sensor, timing);
    const std::uint64_t deadlineNs = nowNs + std::uint64_t{timeoutMs} * 1000000u;
    const std::uint64_t periodNs = BlockPeriodNs(timing);
    const bool gated = sensor.state.triggerInEnabled != 0;
    const std::uint64_t readingBlocks = run.count > 0 ? run.count : gated ? 1 : kNoTrigger;
    std::uint64_t lastReadyNs = nowNs;
    bool cutShort = false;
    std::uint32_t moved = 0;
    std::uint8_t block[kBlockBytes];

    while (moved < length) {
        if (run.block >= readingBlocks) {
            // A triggered stream waits for the next edge once its block is out.
            run.readingStartNs += run.block * periodNs;
            run.block = 0;
            run.triggered = 0;
        }
        if (gated && run.triggered == 0) {
            const std::uint64_t edge = NextTrigger(sensor, run.readingStartNs, nowNs, deadlineNs);
            if (edge == kNoTrigger) {
                if (!timed && moved == 0) run.clockNs = deadlineNs;  // the sensor waited the time-out
                break;
            }
            run.triggered = 1;
            run.readingStartNs = edge;
        }
        if (timed && !gated && run.count == 0) {
            // The stream keeps sampling while the host is away; it holds the newest blocks.
            const std::uint64_t finished = nowNs > run.readingStartNs ? (nowNs - run.readingStartNs) / periodNs : 0;
            if (finished > run.block + kHeldBlocks) {
                run.overruns += finished - kHeldBlocks - run.block;
                run.block = finished - kHeldBlocks;
                run.partialBytes = 0;
            }
        }
        const std::uint64_t startNs = run.readingStartNs + run.block * periodNs;
        const std::uint64_t finishedNs = startNs + periodNs;
        if (timed && finishedNs > deadlineNs) {
            cutShort = true;
            break;
        }
        lastReadyNs = std::max(lastReadyNs, finishedNs);
        std::uint32_t taken = std::min<std::uint32_t>(kBlockBytes - run.partialBytes, length - moved);
        if (sensor.files.replayPath[0] != '\0') {
            // A capture stands in for the signal: its bytes in order, as far as they go.
            taken = ReplayTake(sensor, kMeasureStartRequest, out + moved, taken);
            if (taken == 0) break;
        } else {
            FillMeasurementBlock(sensor.detector, sensor.signal, sensor.temperature, startNs, block);
            std::memcpy(out + moved, block + run.partialBytes, taken);
        }
        moved += taken;
        run.partialBytes += taken;
        if (!timed) run.clockNs = std::max(run.clockNs, finishedNs);
        if (run.partialBytes == kBlockBytes) {
            run.partialBytes = 0;
            ++run.block;
            ++run.blocksSent;
            if (run.count > 0 && run.block >= run.count) {
                run.armed = 0;  // a counted run ends with its last block
                break;
            }
        }
    }
    // A read the time-out cut short ends at its time-out; one that got all the sensor
    // will send ends with the last block.
    if (timed && moved > 0) *readyNs = (cutShort ? deadlineNs : lastReadyNs) - nowNs;
    return moved;
}

}  // namespace qvsim
