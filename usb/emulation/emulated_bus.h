// Simulated sensors on an emulated USB bus: each sensor of the attached
// simulator bus becomes a USB device in a umockdev test bed (sysfs entry and
// device node), and the usbdevfs requests libusb makes on its node (control
// transfers, bulk URBs submitted, reaped and discarded) are answered by the
// simulated sensor through the simulator's own driver functions. libusb,
// libqvusbdrvd and QV_API2 then run unchanged, as with hardware.
//
// The process must run with umockdev's preload library (umockdev-wrapper), and
// the bed must be complete before libusb is first used in it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace qvusb {

class EmulatedBus {
public:
    // How a device tells Windows its interface GUID.
    enum class Announce { MsOs20, MsOs10, Nothing };
    struct Device {
        int simIndex = 0;  // the simulated sensor's place in the simulator's enumeration
        std::uint16_t vendor = 0x5156;
        std::uint16_t product = 0x0001;
        Announce announce = Announce::MsOs20;
        std::string guid = "{8BC86AFD-F393-458D-9A8D-AD9EEE178822}";
    };
    // What the emulated devices were asked, for tests and benchmarks.
    struct Counts {
        std::uint64_t ioctls = 0, controlUrbs = 0, bulkUrbs = 0, emptyReaps = 0, discards = 0;
        // CPU time the handler thread spent inside the simulated sensor, and
        // that thread's id: the rest of its time is the emulation's own cost.
        std::uint64_t sensorNs = 0, sensorCalls = 0;
        long handlerThread = 0;
    };

    EmulatedBus();
    ~EmulatedBus();
    EmulatedBus(const EmulatedBus&) = delete;
    EmulatedBus& operator=(const EmulatedBus&) = delete;

    // False when the process does not run under umockdev's preload library.
    static bool Available();
    // Adds one device on bus 1; false when the bed or the simulated sensor is missing.
    bool Add(const Device& device);
    Counts counts() const;

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace qvusb
