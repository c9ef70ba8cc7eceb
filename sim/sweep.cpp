// A sensor's sweeps: 177 sets one up, each 178 arms a packet that waits for its
// trigger (none, the level on a detector path, or the TTL line), samples the signal
// from there and is sent on pipe 0x82.
//
// What the sensor is told: the packet size B (177's command value, (B - 8) / 2) and,
// per packet, its number n = p x (96 / P) + 2 at working buffer + 256. It never
// learns P and needs not: packet n starts (n - 2) / 96 of the 2 us sample interval
// after its trigger, so sample k of packet p lands on point k x P + p of the host's
// interleaved record whatever P is.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "sensor.h"
#include "signal_model.h"

namespace qvsim {

namespace {

constexpr int kFreeRunningBit = 0x40;
constexpr int kLevelBit = 0x01;
constexpr int kHighSenseBit = 0x02;
constexpr int kFallingBit = 0x04;
constexpr int kHighSenseSelector = 2;
constexpr int kLowSenseSelector = 3;
constexpr std::uint32_t kPacketNumberOffset = 256;
constexpr int kSweepRequest = 177;

enum class TriggerKind { Free = 0, Level = 1, Line = 2 };

TriggerKind KindOf(int mode) {
    if ((mode & kFreeRunningBit) != 0) return TriggerKind::Free;
    return (mode & kLevelBit) != 0 ? TriggerKind::Level : TriggerKind::Line;
}

// The level trigger compares one path's count with its threshold (212). Counts fall
// as power rises, so edge 0 (power rising) is the count falling through it.
std::uint64_t LevelTrigger(const SensorRecord& sensor, std::uint64_t fromNs, std::uint64_t deadlineNs) {
    const int mode = sensor.sweep.mode;
    const bool highSense = (mode & kHighSenseBit) != 0;
    const int threshold = sensor.state.thresholds[highSense ? kHighSenseSelector : kLowSenseSelector];
    if (threshold < 0) return kNoTrigger;
    const double levelDbm = DetectorPower(sensor.detector, highSense ? kPathHs : kPathLs, threshold,
                                          sensor.signal.freqHz, sensor.temperature);
    if (!std::isfinite(levelDbm)) return kNoTrigger;
    const double crossing = NextLevelCrossingNs(sensor.signal, static_cast<double>(fromNs), levelDbm,
                                                (mode & kFallingBit) == 0);
    if (crossing < 0.0) return kNoTrigger;
    const auto edge = static_cast<std::uint64_t>(std::llround(crossing));
    return edge <= deadlineNs ? edge : kNoTrigger;
}

std::uint64_t SweepTrigger(SensorRecord& sensor, std::uint64_t nowNs, std::uint64_t deadlineNs) {
    const SweepRun& sweep = sensor.sweep;
    switch (KindOf(sweep.mode)) {
        case TriggerKind::Free:
            return sweep.armedNs;
        case TriggerKind::Level:
            return LevelTrigger(sensor, sweep.armedNs, deadlineNs);
        case TriggerKind::Line:
            break;
    }
    return NextTrigger(sensor, sweep.armedNs, nowNs, deadlineNs);
}

int PacketPhase(int packetNumber) { return std::clamp(packetNumber - 2, 0, kSweepPhases - 1); }

}  // namespace

bool ConfigureSweep(SensorRecord& sensor, const std::uint8_t* command, std::uint64_t nowNs) {
    const std::uint32_t value = std::uint32_t{command[1]} << 16 | std::uint32_t{command[2]} << 8 | command[3];
    // An odd value leaves half a sample, which goes to the unused tail.
    if (value == 0) return false;
    SweepRun& sweep = sensor.sweep;
    sweep.configured = 1;
    sweep.mode = command[0];
    sweep.packetBytes = 2 * value + 8;
    // The command arms its first packet, so a read that sends no 178 still gets one.
    ArmSweepPacket(sensor, nowNs);
    return true;
}

void ArmSweepPacket(SensorRecord& sensor, std::uint64_t nowNs) {
    SweepRun& sweep = sensor.sweep;
    if (sweep.configured == 0) return;
    sweep.armed = 1;
    sweep.triggered = 0;
    sweep.sentBytes = 0;
    sweep.armedNs = nowNs;
    sweep.packetNumber = sensor.working[(QVSIM_WM_BUFFER_BASE + kPacketNumberOffset) % kMemoryBytes];
}

void EndSweep(SensorRecord& sensor) {
    sensor.sweep.configured = 0;
    sensor.sweep.armed = 0;
}

void SweepStatus(const SensorRecord& sensor, std::uint8_t* reply) {
    const SweepRun& sweep = sensor.sweep;
    reply[1] = sweep.armed;
    reply[2] = sweep.packetNumber;
    reply[3] = sweep.configured != 0 ? static_cast<std::uint8_t>(KindOf(sweep.mode)) : 0;
    reply[4] = 0;
}

std::uint32_t ProduceSweepBytes(SensorRecord& sensor, const TimingModel& timing, std::uint8_t* out,
                                std::uint32_t length, std::uint32_t timeoutMs, std::uint64_t* readyNs) {
    SweepRun& sweep = sensor.sweep;
    *readyNs = 0;
    if (sweep.armed == 0 || length == 0) return 0;
    const bool timed = timing.sampledBlocks != 0;
    const std::uint64_t nowNs = SensorNowNs(sensor, timing);
    const std::uint64_t deadlineNs = nowNs + std::uint64_t{timeoutMs} * 1000000u;
    if (sweep.triggered == 0) {
        const std::uint64_t edge = SweepTrigger(sensor, nowNs, deadlineNs);
        if (edge == kNoTrigger) {
            ++sweep.triggerTimeouts;
            if (!timed) sensor.acquisition.clockNs = deadlineNs;  // the sensor waited the time-out
            return 0;
        }
        sweep.triggered = 1;
        sweep.startNs = edge;
    }
    const int phase = PacketPhase(sweep.packetNumber);
    const std::uint64_t samples = (sweep.packetBytes - 8) / 4;
    const std::uint64_t phaseNs = static_cast<std::uint64_t>(phase) * kSampleIntervalNs / kSweepPhases;
    const std::uint64_t sweepEndNs = sweep.startNs + samples * kSampleIntervalNs + phaseNs;
    std::uint32_t wanted = std::min(length, sweep.packetBytes - sweep.sentBytes);
    if (timed) {
        // The packet's bytes leave after its sweep, at the bus's throughput.
        const double bytesPerNs = timing.bulkBytesPerSecond != 0 ? timing.bulkBytesPerSecond / 1.0e9 : 0.0;
        const auto readyAt = [&](std::uint32_t end) {
            return sweepEndNs + (bytesPerNs > 0.0 ? static_cast<std::uint64_t>(end / bytesPerNs) : 0);
        };
        bool cutShort = false;
        if (readyAt(sweep.sentBytes + wanted) > deadlineNs) {
            cutShort = true;
            const double ready = deadlineNs < sweepEndNs ? 0.0
                                 : bytesPerNs > 0.0     ? static_cast<double>(deadlineNs - sweepEndNs) * bytesPerNs
                                                        : static_cast<double>(sweep.packetBytes);
            const double more = std::max(0.0, std::floor(ready) - sweep.sentBytes);
            wanted = static_cast<std::uint32_t>(std::min<double>(wanted, more));
        }
        if (wanted == 0) return 0;
        const std::uint64_t endNs = cutShort ? deadlineNs : readyAt(sweep.sentBytes + wanted);
        *readyNs = endNs > nowNs ? endNs - nowNs : 0;
    }
    if (sensor.files.replayPath[0] != '\0') {
        // A capture stands in for the signal; triggers and timing stay the sensor's.
        wanted = ReplayTake(sensor, kSweepRequest, out, wanted);
        if (wanted == 0) return 0;
    } else {
        FillSweepBytes(sensor.detector, sensor.signal, sensor.temperature,
                       SweepPacket{sweep.startNs, phase, sweep.packetBytes}, sweep.sentBytes, out, wanted);
    }
    sweep.sentBytes += wanted;
    if (!timed) sensor.acquisition.clockNs = std::max(sensor.acquisition.clockNs, sweepEndNs);
    if (sweep.sentBytes == sweep.packetBytes) {
        sweep.armed = 0;
        ++sweep.packetsSent;
    }
    return wanted;
}

}  // namespace qvsim
