// Layout of the bus file: one header page, then one fixed-size record per sensor.
// Every process that uses the bus maps this file, so the structures hold no
// pointers, only fixed-width fields. docs/sim.md describes the same layout; change
// kBusVersion whenever it changes.
#ifndef QVSIM_BUS_LAYOUT_H
#define QVSIM_BUS_LAYOUT_H

#include <cstddef>
#include <cstdint>

#include "detector_model.h"
#include "qvsim.h"
#include "signal_model.h"
#include "sim_os.h"

namespace qvsim {

inline constexpr std::uint32_t kBusMagic = 0x53425651u;  // "QVBS" in a little-endian dump
inline constexpr std::uint32_t kBusVersion = 4;
inline constexpr std::size_t kPageBytes = 4096;

inline constexpr int kMaxSensors = QVSIM_MAX_SENSORS;
inline constexpr int kMaxHandles = 64;  // open device handles per sensor
inline constexpr int kMaxFaults = 16;
inline constexpr std::uint32_t kTranscriptEntries = QVSIM_TRANSCRIPT_ENTRIES;
inline constexpr std::uint32_t kBulkInBytes = QVSIM_BULK_IN_BYTES;
inline constexpr std::uint32_t kBulkOutKept = 64;
inline constexpr std::uint32_t kMemoryBytes = QVSIM_MEMORY_BYTES;

struct TimingModel {
    std::uint32_t controlMicros;
    std::uint32_t bulkBytesPerSecond;
    std::uint32_t realTimeouts;
    std::uint32_t sampledBlocks;  // 1: measurement blocks take their sampling and transfer time
};

struct BusHeader {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint32_t headerBytes;   // offset of the first sensor record
    std::uint32_t recordBytes;   // stride of the sensor records
    std::uint32_t maxSensors;
    std::uint32_t lockRecoveries;  // times a dead holder's lock was taken over
    std::uint64_t fileBytes;
    std::uint64_t busStamp;        // differs for every bus file created
    std::uint64_t nextAddSequence;  // enumeration order of sensors
    std::uint32_t nextHandleNonce;
    std::uint32_t reserved;
    TimingModel timing;
    alignas(64) unsigned char lock[os::kSharedLockBytes];
};

// The sensor's measurement run: RAM, lost at every unplug. A reading is what one
// trigger releases: the whole count of a counted run, one block of a triggered
// stream; an untriggered stream is one endless reading.
struct Acquisition {
    std::uint8_t armed;           // 193 or 194 started it; a stop, a sweep or the last block ends it
    std::uint8_t count;           // blocks per start (193's byte); 0: continuous stream
    std::uint8_t startRequest;    // 193 or 194, for capture records
    std::uint8_t triggered;       // the current reading has had its trigger
    std::uint32_t partialBytes;   // bytes of the current block already sent
    std::uint64_t block;          // block of the current reading to send next
    std::uint64_t readingStartNs; // first sample of the current reading; before its trigger: waiting since
    std::uint64_t clockNs;        // sensor time with the timing model off: end of the last block sent
    std::uint64_t blocksSent;     // complete blocks sent since power-up
    std::uint64_t overruns;       // finished blocks a streaming sensor dropped unread
    std::uint32_t pendingTriggers;  // trigger edges not used yet
    std::uint32_t triggerOutEdges;  // changes of the trigger output level
};

// Capture and replay of pipe 0x82 (capture.cpp): files named here are opened by
// whichever process moves the bytes. Outlive unplug, like fault rules.
inline constexpr int kFilePathChars = 256;
struct PipeFiles {
    char capturePath[kFilePathChars];  // empty: no capture
    char replayPath[kFilePathChars];   // empty: blocks come from the signal model
    std::uint64_t replayOffset;        // file offset of the next byte to read
    std::uint32_t replayRecordLeft;    // bytes left in the record being served
    std::uint32_t replayEnded;         // the file has no more blocks
    std::uint32_t captureTransfers;    // records written
    std::uint32_t captureFailures;     // records that could not be written
};

// The sensor's sweep (sweep.cpp): RAM, lost at every unplug. 177 sets it up, 178
// arms one packet at a time, which waits for its trigger and is then sent.
struct SweepRun {
    std::uint8_t configured;     // a 177 set the sweep up; 193 / 194 end it
    std::uint8_t mode;           // 177's mode byte
    std::uint8_t armed;          // a packet waits for its trigger or is being sent
    std::uint8_t triggered;      // the armed packet has had its trigger
    std::uint8_t packetNumber;   // the byte at working buffer + 256 when it was armed
    std::uint8_t reserved[3];
    std::uint32_t packetBytes;   // 2 x command value + 8
    std::uint32_t sentBytes;     // of the armed packet
    std::uint64_t armedNs;       // waiting for the trigger since
    std::uint64_t startNs;       // the trigger: the packet's samples count from here
    std::uint64_t packetsSent;   // complete packets since power-up
    std::uint32_t triggerTimeouts;  // reads that ended waiting for a trigger
    std::uint32_t reserved2;
};

// Fields of a fault rule follow qvsim_fault; kind 0 marks a free rule.
struct FaultRule {
    std::int32_t kind;
    std::int32_t code;
    std::int32_t skip;
    std::int32_t remaining;  // QVSIM_ALWAYS or times left
    std::int32_t arg;
    std::int32_t reserved;
};

// One open device handle; nonce 0 marks a free entry.
struct HandleEntry {
    std::uint32_t nonce;
    std::uint32_t pid;
};

struct TranscriptEntry {
    std::uint64_t seq;
    std::int32_t kind;
    std::int32_t code;
    std::int32_t length;
    std::int32_t result;
    std::int32_t transferred;
    std::uint8_t dataLength;
    std::uint8_t data[8];
    std::uint8_t reserved[3];
};

struct Identity {
    char serial[QVSIM_TEXT_CHARS];
    char pathSerial[QVSIM_TEXT_CHARS];
    char product[QVSIM_LONG_TEXT_CHARS];
    char firmware[QVSIM_LONG_TEXT_CHARS];
};

// What the sensor's firmware holds in RAM: lost at every unplug.
struct DeviceState {
    std::uint8_t ledOn;
    std::uint8_t triggerInEnabled;
    std::uint8_t triggerInInverted;
    std::uint8_t triggerOutEnabled;
    std::uint8_t triggerOutInverted;
    std::uint8_t antiAliasing;
    std::uint8_t recorderOut;
    std::uint8_t runningMode;
    std::uint8_t stopStage;  // 1 after 179, 2 after 179 195
    std::uint8_t writeOpen;
    std::uint8_t memoryRegion;
    std::uint8_t sweepCommand[4];
    std::uint8_t reserved;
    std::uint16_t memoryPosition;
    std::uint16_t workingLocation;
    std::uint16_t triggerOutVariant;
    std::int32_t thresholds[4];
    std::int32_t measureReadings;
    std::uint32_t ledToggles;
    std::uint32_t stopSequences;
    std::uint32_t initPings;
    std::uint32_t measureStarts;
    std::uint32_t sweepStarts;
    std::uint32_t ignoredWrites;
    std::int32_t recorderWord;  // -1 until a write of two or more bytes
    std::uint32_t bulkOutWrites;
    std::uint32_t bulkOutLength;
    std::uint8_t bulkOutLast[kBulkOutKept];
    std::uint32_t bulkInHead;   // ring of kBulkInBytes
    std::uint32_t bulkInCount;
};

struct SensorRecord {
    std::uint32_t inUse;
    std::uint32_t plugged;
    std::uint64_t addSequence;
    std::uint32_t opens;
    std::uint32_t closes;
    Identity identity;
    DeviceState state;
    FaultRule faults[kMaxFaults];
    HandleEntry handles[kMaxHandles];
    std::uint64_t transcriptTotal;
    TranscriptEntry transcript[kTranscriptEntries];
    std::uint8_t region2[kMemoryBytes];  // non-volatile
    std::uint8_t region6[kMemoryBytes];  // non-volatile
    std::uint8_t working[kMemoryBytes];  // volatile
    std::uint8_t bulkIn[kBulkInBytes];
    // The physical sensor: its detector (fixed at the factory) and its temperature.
    // Both outlive unplug and replug.
    DetectorModel detector;
    std::int32_t temperature;  // temperature count now
    std::uint32_t reserved;
    // What reaches the sensor's inputs: outlives unplug and replug.
    SignalModel signal;
    double triggerPeriodUs;    // periodic trigger on the TTL input; 0: none
    Acquisition acquisition;   // RAM
    PipeFiles files;
    SweepRun sweep;            // RAM
};

inline constexpr std::size_t RoundToPage(std::size_t bytes) {
    return (bytes + kPageBytes - 1) / kPageBytes * kPageBytes;
}

inline constexpr std::size_t kHeaderBytes = RoundToPage(sizeof(BusHeader));
inline constexpr std::size_t kRecordBytes = RoundToPage(sizeof(SensorRecord));
inline constexpr std::size_t kBusFileBytes = kHeaderBytes + kMaxSensors * kRecordBytes;

// The offsets docs/sim.md gives; a change here is a new kBusVersion.
static_assert(kHeaderBytes == kPageBytes, "header fits one page");
static_assert(offsetof(BusHeader, timing) == 56 && offsetof(BusHeader, lock) == 128, "header layout");
static_assert(sizeof(TranscriptEntry) == 40 && sizeof(FaultRule) == 24 && sizeof(DeviceState) == 152 &&
                  sizeof(Acquisition) == 56 && sizeof(SweepRun) == 48,
              "entry layouts");
static_assert(offsetof(SensorRecord, identity) == 24 && offsetof(SensorRecord, state) == 216 &&
                  offsetof(SensorRecord, faults) == 368 && offsetof(SensorRecord, handles) == 752 &&
                  offsetof(SensorRecord, transcriptTotal) == 1264 && offsetof(SensorRecord, transcript) == 1272 &&
                  offsetof(SensorRecord, region2) == 165112 && offsetof(SensorRecord, bulkIn) == 361720 &&
                  offsetof(SensorRecord, detector) == 623864 && offsetof(SensorRecord, temperature) == 624072 &&
                  offsetof(SensorRecord, signal) == 624080 && offsetof(SensorRecord, triggerPeriodUs) == 624184 &&
                  offsetof(SensorRecord, acquisition) == 624192 && offsetof(SensorRecord, files) == 624248 &&
                  offsetof(SensorRecord, sweep) == 624784,
              "sensor record layout");
static_assert(kRecordBytes == 626688, "record stride");

}  // namespace qvsim

#endif
