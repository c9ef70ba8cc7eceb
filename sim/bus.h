// Access to the shared bus: attaching this process, the bus lock, enumeration,
// device and WinUSB handles, fault rules and the transcript. Everything taking a
// Bus& or SensorRecord& expects the caller to hold the bus lock.
#ifndef QVSIM_BUS_H
#define QVSIM_BUS_H

#include <cstdint>
#include <memory>

#include "bus_layout.h"
#include "device/driver_abi.h"

namespace qvsim {

class Bus {
public:
    // Make a new bus file / map an existing one; null with *error set to a QVSIM_E_ code.
    static std::shared_ptr<Bus> Create(const char* path, int* error);
    static std::shared_ptr<Bus> Open(const char* path, int* error);

    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    BusHeader& header() { return *static_cast<BusHeader*>(file_.base); }
    SensorRecord& record(int id);
    SensorRecord* sensor(int id);  // null unless id names a sensor on the bus

    bool Lock();
    void Unlock();

private:
    explicit Bus(os::MappedFile file) : file_(file) {}
    os::MappedFile file_;
};

// Holds the bus lock for a scope.
class BusLock {
public:
    explicit BusLock(Bus& bus) : bus_(bus), held_(bus.Lock()) {}
    ~BusLock() {
        if (held_) bus_.Unlock();
    }
    BusLock(const BusLock&) = delete;
    BusLock& operator=(const BusLock&) = delete;
    bool held() const { return held_; }

private:
    Bus& bus_;
    bool held_;
};

// The bus this process works on: the one attached last, else $QV_SIM_BUS opened now.
// Null if there is none.
std::shared_ptr<Bus> AttachedBus();
void AttachBus(std::shared_ptr<Bus> bus);  // null detaches

// Plugged sensors in enumeration order; returns how many.
int PluggedSensors(Bus& bus, int ids[kMaxSensors]);
int PluggedSensorAt(Bus& bus, int index0);  // id, or -1
int EnumerationIndexOf(Bus& bus, int id);   // index0, or -1 if unplugged

// Device handles: positive, unique per open, dead once closed or the sensor unplugged.
QvDrvHandle OpenDeviceHandle(Bus& bus, int id);  // -1 when the handle table is full
bool CloseDeviceHandle(Bus& bus, QvDrvHandle device);
int SensorOfDeviceHandle(Bus& bus, QvDrvHandle device);  // id, or -1
int SensorOfWinUsbHandle(Bus& bus, QvDrvHandle winusb);  // id, or -1
QvDrvHandle WinUsbHandleOf(QvDrvHandle device);
int OpenHandleCount(const SensorRecord& sensor);
void DropAllHandles(SensorRecord& sensor);

// The first rule of this kind that matches code and is due to fire now, consumed;
// nothing fires if none is due. Rules passed over count down their skip. With
// anyCode false, rules with code 0 (any) do not match.
struct FiredFault {
    bool fired = false;
    std::int32_t arg = 0;
    explicit operator bool() const { return fired; }
};
FiredFault TakeFault(SensorRecord& sensor, int kind, int code, bool anyCode = true);

void AppendTranscript(SensorRecord& sensor, int kind, int code, int length, int result,
                      int transferred, const std::uint8_t* data, int dataLength);

// The simulated sensor leaves the bus: handles die, RAM is lost.
void Unplug(SensorRecord& sensor);

}  // namespace qvsim

#endif
