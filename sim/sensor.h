// The sensor's side of the wire: what a simulated sensor does with each vendor
// request and bulk transfer, and what it holds when powered up. Called with the
// bus lock held.
#ifndef QVSIM_SENSOR_H
#define QVSIM_SENSOR_H

#include <cstdint>

#include "bus_layout.h"

namespace qvsim {

enum class Direction { Out, In };

// Largest data stage the sensor's control endpoint takes in one request.
inline constexpr int kMaxControlData = 64;

// Whether the sensor knows this request in this direction.
bool IsKnownRequest(Direction direction, int request);

// Carries out a known request at sensor time nowNs (SensorNowNs). Returns bytes
// accepted (Out) or returned (In), or -1 when the sensor refuses it (payload too
// short or too long, bad selector).
int SensorRequestOut(SensorRecord& sensor, int request, const std::uint8_t* data, int length, std::uint64_t nowNs);
int SensorRequestIn(SensorRecord& sensor, int request, std::uint8_t* reply, int length, std::uint64_t nowNs);

// Level of the TTL trigger output: high while it is on and not inverted.
int TriggerOutLevel(const DeviceState& state);

// RAM state of a sensor that was just powered up / pulled out.
void PowerOn(SensorRecord& sensor);
void PowerOff(SensorRecord& sensor);

// Writes the firmware text where request 243 points.
void StoreFirmwareText(SensorRecord& sensor);

// Non-volatile memory access by region; null for regions the sensor does not have.
std::uint8_t* RegionMemory(SensorRecord& sensor, int region);

// What a factory leaves in a new sensor: non-volatile memory (address, due date,
// the calibration image of the sensor's detector and its checksum), the detector
// itself and a temperature at the calibration temperature. The identity strings
// must be set first: the detector follows the serial and the product string.
struct FactoryData {
    int address;                // 0..255
    int dueYear, dueMonth, dueDay;  // -1: erased
};
void WriteFactoryImage(SensorRecord& sensor, const FactoryData& factory);

// Measurement runs (acquisition.cpp). The sensor's time: with the timing model's
// sampled blocks the steady clock, otherwise a clock of its own that moves on by
// each block it sends (and by the time-outs it lets pass).
std::uint64_t SensorNowNs(const SensorRecord& sensor, const TimingModel& timing);
// 193 (count = its byte) and 194 (count = the last 193's) start a run afresh.
void StartAcquisition(SensorRecord& sensor, int request, int count, std::uint64_t nowNs);
void StopAcquisition(SensorRecord& sensor);
// Up to length bytes of measurement blocks for a pipe read with this time-out;
// *readyNs receives how long after now the last byte is ready (timing model).
std::uint32_t ProduceMeasurementBytes(SensorRecord& sensor, const TimingModel& timing, std::uint8_t* out,
                                      std::uint32_t length, std::uint32_t timeoutMs, std::uint64_t* readyNs);

// Trigger input. NextTrigger: the first edge the sensor takes at or after fromNs and
// no later than deadlineNs (a hand-fired one at once, else one of the periodic
// line's), or kNoTrigger. TriggerLineLevel: the periodic line's level at nowNs.
inline constexpr std::uint64_t kNoTrigger = ~std::uint64_t{0};
std::uint64_t NextTrigger(SensorRecord& sensor, std::uint64_t fromNs, std::uint64_t nowNs, std::uint64_t deadlineNs);
int TriggerLineLevel(const SensorRecord& sensor, std::uint64_t nowNs);
std::uint64_t SteadyClockNs();

// Sweeps (sweep.cpp). 177 sets one up (false: a command value of 0), 178 arms
// its next packet, a pipe read takes the armed packet's bytes; 193 / 194 end it.
bool ConfigureSweep(SensorRecord& sensor, const std::uint8_t* command, std::uint64_t nowNs);
void ArmSweepPacket(SensorRecord& sensor, std::uint64_t nowNs);
void EndSweep(SensorRecord& sensor);
// The 178 reply: [178, armed, packet number, trigger kind (0 free, 1 level, 2 TTL), 0].
void SweepStatus(const SensorRecord& sensor, std::uint8_t* reply);
std::uint32_t ProduceSweepBytes(SensorRecord& sensor, const TimingModel& timing, std::uint8_t* out,
                                std::uint32_t length, std::uint32_t timeoutMs, std::uint64_t* readyNs);

// What a pipe 0x82 transfer carried: the request that started it (193 / 194 for a
// measurement run with its count, 177 for a sweep with its command, 0 for bytes a
// test queued).
struct PipeSource {
    std::uint8_t request = 0;
    std::uint8_t payloadLength = 0;
    std::uint8_t payload[4] = {};
};

// Capture and replay (capture.cpp). Begin functions return a QVSIM_ code.
int CaptureBegin(SensorRecord& sensor, const char* path);
void CaptureTransfer(SensorRecord& sensor, const PipeSource& source, std::uint32_t asked, std::uint32_t timeoutMs,
                     const std::uint8_t* data, std::uint32_t moved);
int ReplayBegin(SensorRecord& sensor, const char* path);
// Up to length bytes of the captured transfers started by `request` (193 and 194
// count as one kind), in order; fewer once the file has no more.
std::uint32_t ReplayTake(SensorRecord& sensor, int request, std::uint8_t* out, std::uint32_t length);

// Bulk pipes (bulk.cpp). ProduceBulkIn fills at most length bytes for a read of pipe
// 0x82 and returns how many; 0 means the sensor has nothing to send and the read times
// out. Bytes queued by tests come first, then measurement blocks. ConsumeBulkOut
// takes a write to pipe 0x01.
std::uint32_t ProduceBulkIn(SensorRecord& sensor, const TimingModel& timing, std::uint8_t* out, std::uint32_t length,
                            std::uint32_t timeoutMs, std::uint64_t* readyNs, PipeSource* source);
void ConsumeBulkOut(SensorRecord& sensor, const std::uint8_t* data, std::uint32_t length);
bool QueueBulkIn(SensorRecord& sensor, const std::uint8_t* data, std::uint32_t length);

}  // namespace qvsim

#endif
