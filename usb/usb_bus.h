// The sensors as libusb sees them: which USB devices are sensors, in what
// order, and the handles this process has open on them.
#pragma once

#include <libusb.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace qvusb {

// A sensor found on the bus. Holds a reference on its libusb device.
struct SensorDevice {
    libusb_device* device = nullptr;
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    std::string serial;  // as read at enumeration; empty when the device has none
    std::string place;   // bus and port path, "1-2.3"
    SensorDevice() = default;
    SensorDevice(const SensorDevice&) = delete;
    SensorDevice& operator=(const SensorDevice&) = delete;
    ~SensorDevice();
};

// A device opened by this process, its interface claimed. Shared by every
// device handle of this process on the same device.
struct OpenDevice {
    libusb_device_handle* handle = nullptr;
    int interfaceNumber = 0;
    std::uint16_t language = 0;  // of its string descriptors; 0 until read
    std::mutex languageGuard;
    OpenDevice() = default;
    OpenDevice(const OpenDevice&) = delete;
    OpenDevice& operator=(const OpenDevice&) = delete;
    ~OpenDevice();
};

// libusb's context of this process; null when libusb cannot start.
libusb_context* Context();

// Whether this opened device announces the sensors' interface GUID in its
// Microsoft OS descriptors (2.0 first, then 1.0).
bool AnnouncesSensorGuid(libusb_device_handle* handle, const libusb_device_descriptor& descriptor);

// The sensors now present, in a stable order (bus, then port path). Devices
// that could not be opened for lack of permission are counted in *denied.
std::vector<std::shared_ptr<SensorDevice>> ListSensors(int* denied = nullptr);

// The device-interface path of a sensor in its Windows form.
std::string DevicePath(const SensorDevice& sensor);

// Opens sensor index0 and claims its interface; 0 when that fails. The
// result is a fresh device handle number.
std::int64_t OpenHandle(int index0);
bool CloseHandle(std::int64_t device);
// The WinUSB handle of an open device handle: a number derived from it, so
// that asking again is free and closing the device handle invalidates it.
std::int64_t WinUsbOf(std::int64_t device);
std::shared_ptr<OpenDevice> DeviceOfWinUsb(std::int64_t winusb);

// Libusb's result as a negative driver result (libusb codes are negative).
inline int Failure(int libusbResult) { return libusbResult < 0 ? libusbResult : -1; }

// Devices whose examination failed for lack of permission at the last enumeration.
int DeniedDevices();

}  // namespace qvusb
