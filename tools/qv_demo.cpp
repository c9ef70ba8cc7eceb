// Shows what the library sees on the bus: every sensor the driver library
// enumerates, with its serial number, product and address as read from it.
//
// Until the discovery exports exist this goes through the library's device
// layer directly, inside the library's entry frame like any export.
#include <cstdio>
#include <string>

#include "device/discovery.h"
#include "device/transport.h"
#include "frame/frame.h"
#include "qv_api2.h"

using namespace qv;

int main() {
    std::printf("QV_API2 version %d\n", QV_DriverVersion());
    if (!DriverAvailable()) {
        std::printf("driver library not found (set QV_USBDRVD)\n");
        return 1;
    }
    const std::int32_t rc = Enter([] {
        const std::int32_t n = DeviceCount();
        std::printf("%d sensor(s) on the bus\n", n);
        std::printf("%-6s %-8s %-8s %-16s %s\n", "index", "path", "serial", "product", "address");
        for (std::int32_t i = 1; i <= n; ++i) {
            char pathSerial[kSerialChars + 1] = {};
            SerialFromDevicePath(i, pathSerial);
            TransientDevice device(OpenDevice_Idx(i), true);
            char serial[100] = {}, product[64] = {};
            std::int32_t address = -1;
            if (device.Valid()) {
                ReadSerialNumberString(device.get(), serial, sizeof serial);
                ReadProductString(device.get(), product, sizeof product);
                ReadSensorAddress(device.get(), &address);
            }
            std::printf("%-6d %-8s %-8s %-16s %d\n", i, pathSerial, serial, product, address);
        }
        return kSuccess;
    });
    return rc == kSuccess ? 0 : 1;
}
