#include "bus.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>

#include "sensor.h"

namespace qvsim {

namespace {

void InitializeBusFile(void* base, std::size_t size, void* context) {
    auto* ok = static_cast<bool*>(context);
    auto* header = static_cast<BusHeader*>(base);
    header->magic = kBusMagic;
    header->version = kBusVersion;
    header->headerBytes = static_cast<std::uint32_t>(kHeaderBytes);
    header->recordBytes = static_cast<std::uint32_t>(kRecordBytes);
    header->maxSensors = kMaxSensors;
    header->fileBytes = size;
    header->busStamp = os::UniqueStamp();
    header->nextAddSequence = 1;
    header->nextHandleNonce = 1;
    *ok = os::InitSharedLock(header->lock);
}

bool HeaderMatches(const BusHeader& header, std::size_t fileBytes) {
    return header.magic == kBusMagic && header.version == kBusVersion &&
           header.headerBytes == kHeaderBytes && header.recordBytes == kRecordBytes &&
           header.maxSensors == kMaxSensors && header.fileBytes == kBusFileBytes &&
           fileBytes >= kBusFileBytes;
}

std::mutex attachMutex;
std::shared_ptr<Bus> attachedBus;

// Device handle: sensor id + 1 in bits 40..47, handle-table entry in bits 32..39,
// the entry's nonce in bits 0..31. A WinUSB handle is its device handle with bit 56
// set, so each function can tell which kind it was given.
constexpr QvDrvHandle kWinUsbTag = QvDrvHandle{1} << 56;

struct HandleParts {
    int id;
    int entry;
    std::uint32_t nonce;
};

bool SplitHandle(QvDrvHandle handle, HandleParts* parts) {
    if (handle <= 0 || (handle >> 48) != 0) return false;
    parts->id = static_cast<int>((handle >> 40) & 0xFF) - 1;
    parts->entry = static_cast<int>((handle >> 32) & 0xFF);
    parts->nonce = static_cast<std::uint32_t>(handle & 0xFFFFFFFFu);
    return parts->id >= 0 && parts->id < kMaxSensors && parts->entry < kMaxHandles && parts->nonce != 0;
}

}  // namespace

std::shared_ptr<Bus> Bus::Create(const char* path, int* error) {
    os::MappedFile file;
    bool lockReady = false;
    if (!os::CreateMappedFile(path, kBusFileBytes, InitializeBusFile, &lockReady, &file)) {
        *error = QVSIM_E_IO;
        return nullptr;
    }
    std::shared_ptr<Bus> bus(new Bus(file));
    if (!lockReady) {
        *error = QVSIM_E_IO;
        return nullptr;
    }
    return bus;
}

std::shared_ptr<Bus> Bus::Open(const char* path, int* error) {
    os::MappedFile file;
    if (!os::OpenMappedFile(path, sizeof(BusHeader), &file)) {
        *error = QVSIM_E_IO;
        return nullptr;
    }
    std::shared_ptr<Bus> bus(new Bus(file));
    if (!HeaderMatches(bus->header(), file.size)) {
        *error = QVSIM_E_BAD_FILE;
        return nullptr;
    }
    return bus;
}

Bus::~Bus() { os::CloseMappedFile(&file_); }

SensorRecord& Bus::record(int id) {
    auto* base = static_cast<unsigned char*>(file_.base) + kHeaderBytes + static_cast<std::size_t>(id) * kRecordBytes;
    return *reinterpret_cast<SensorRecord*>(base);
}

SensorRecord* Bus::sensor(int id) {
    if (id < 0 || id >= kMaxSensors) return nullptr;
    SensorRecord& candidate = record(id);
    return candidate.inUse != 0 ? &candidate : nullptr;
}

bool Bus::Lock() {
    switch (os::LockShared(header().lock)) {
        case os::LockResult::Acquired:
            return true;
        case os::LockResult::AcquiredAfterOwnerDied:
            // The dead holder may have left one record half-updated; every field is
            // still in range, so the simulation goes on.
            ++header().lockRecoveries;
            return true;
        case os::LockResult::Failed:
            break;
    }
    return false;
}

void Bus::Unlock() { os::UnlockShared(header().lock); }

std::shared_ptr<Bus> AttachedBus() {
    std::lock_guard<std::mutex> guard(attachMutex);
    if (!attachedBus) {
        const char* path = std::getenv(QVSIM_BUS_ENV);
        int error = 0;
        if (path != nullptr && *path != '\0') attachedBus = Bus::Open(path, &error);
    }
    return attachedBus;
}

void AttachBus(std::shared_ptr<Bus> bus) {
    std::lock_guard<std::mutex> guard(attachMutex);
    attachedBus = std::move(bus);
}

int PluggedSensors(Bus& bus, int ids[kMaxSensors]) {
    int count = 0;
    for (int id = 0; id < kMaxSensors; ++id) {
        const SensorRecord* sensor = bus.sensor(id);
        if (sensor != nullptr && sensor->plugged != 0) ids[count++] = id;
    }
    std::sort(ids, ids + count, [&bus](int a, int b) {
        return bus.record(a).addSequence < bus.record(b).addSequence;
    });
    return count;
}

int PluggedSensorAt(Bus& bus, int index0) {
    int ids[kMaxSensors];
    const int count = PluggedSensors(bus, ids);
    return index0 >= 0 && index0 < count ? ids[index0] : -1;
}

int EnumerationIndexOf(Bus& bus, int id) {
    int ids[kMaxSensors];
    const int count = PluggedSensors(bus, ids);
    for (int i = 0; i < count; ++i)
        if (ids[i] == id) return i;
    return -1;
}

QvDrvHandle OpenDeviceHandle(Bus& bus, int id) {
    SensorRecord& sensor = bus.record(id);
    const std::uint32_t self = os::CurrentProcessId();
    auto freeEntry = [&sensor]() -> int {
        for (int entry = 0; entry < kMaxHandles; ++entry)
            if (sensor.handles[entry].nonce == 0) return entry;
        return -1;
    };
    int entry = freeEntry();
    if (entry < 0) {
        // The operating system closes a dead process's handles; so do we, lazily.
        for (HandleEntry& handle : sensor.handles)
            if (handle.pid != self && !os::ProcessAlive(handle.pid)) handle = HandleEntry{};
        entry = freeEntry();
        if (entry < 0) return QV_DRV_INVALID_HANDLE;
    }
    BusHeader& header = bus.header();
    if (header.nextHandleNonce == 0) header.nextHandleNonce = 1;
    const std::uint32_t nonce = header.nextHandleNonce++;
    sensor.handles[entry] = HandleEntry{nonce, self};
    ++sensor.opens;
    return (static_cast<QvDrvHandle>(id + 1) << 40) | (static_cast<QvDrvHandle>(entry) << 32) | nonce;
}

int SensorOfDeviceHandle(Bus& bus, QvDrvHandle device) {
    HandleParts parts{};
    if (!SplitHandle(device, &parts)) return -1;
    const SensorRecord* sensor = bus.sensor(parts.id);
    if (sensor == nullptr || sensor->plugged == 0 || sensor->handles[parts.entry].nonce != parts.nonce) return -1;
    return parts.id;
}

bool CloseDeviceHandle(Bus& bus, QvDrvHandle device) {
    const int id = SensorOfDeviceHandle(bus, device);
    if (id < 0) return false;
    HandleParts parts{};
    SplitHandle(device, &parts);
    SensorRecord& sensor = bus.record(id);
    sensor.handles[parts.entry] = HandleEntry{};
    ++sensor.closes;
    return true;
}

int SensorOfWinUsbHandle(Bus& bus, QvDrvHandle winusb) {
    if ((winusb & kWinUsbTag) == 0) return -1;
    return SensorOfDeviceHandle(bus, winusb & ~kWinUsbTag);
}

QvDrvHandle WinUsbHandleOf(QvDrvHandle device) { return device | kWinUsbTag; }

int OpenHandleCount(const SensorRecord& sensor) {
    return static_cast<int>(std::count_if(std::begin(sensor.handles), std::end(sensor.handles),
                                          [](const HandleEntry& handle) { return handle.nonce != 0; }));
}

void DropAllHandles(SensorRecord& sensor) {
    for (HandleEntry& handle : sensor.handles) handle = HandleEntry{};
}

FiredFault TakeFault(SensorRecord& sensor, int kind, int code, bool anyCode) {
    for (FaultRule& rule : sensor.faults) {
        if (rule.kind != kind || (rule.code != code && (rule.code != 0 || !anyCode))) continue;
        if (rule.skip > 0) {
            --rule.skip;
            continue;
        }
        FiredFault fired{true, rule.arg};
        if (rule.remaining != QVSIM_ALWAYS && --rule.remaining <= 0) rule = FaultRule{};
        return fired;
    }
    return FiredFault{};
}

void AppendTranscript(SensorRecord& sensor, int kind, int code, int length, int result, int transferred,
                      const std::uint8_t* data, int dataLength) {
    TranscriptEntry& entry = sensor.transcript[sensor.transcriptTotal % kTranscriptEntries];
    entry = TranscriptEntry{};
    entry.seq = sensor.transcriptTotal++;
    entry.kind = kind;
    entry.code = code;
    entry.length = length;
    entry.result = result;
    entry.transferred = transferred;
    const int kept = data == nullptr ? 0 : std::clamp(dataLength, 0, 8);
    entry.dataLength = static_cast<std::uint8_t>(kept);
    if (kept > 0) std::memcpy(entry.data, data, static_cast<std::size_t>(kept));
}

void Unplug(SensorRecord& sensor) {
    sensor.plugged = 0;
    DropAllHandles(sensor);
    PowerOff(sensor);
}

}  // namespace qvsim
