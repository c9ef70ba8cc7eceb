// qvusb-probe BUSNUM DEVNUM: run by the udev rule (as root) for each USB
// device plugged in. Prints QV_POWER_SENSOR=1 when the device announces the
// sensors' interface GUID, which the rule turns into access for the user.
// Exit status: 0 a sensor, 1 not a sensor or not found, 2 usage.
#include <cstdio>
#include <cstdlib>

#include "usb/usb_bus.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: qvusb-probe BUSNUM DEVNUM\n");
        return 2;
    }
    char* end1 = nullptr;
    char* end2 = nullptr;
    const long bus = std::strtol(argv[1], &end1, 10);
    const long address = std::strtol(argv[2], &end2, 10);
    if (*end1 != '\0' || *end2 != '\0' || bus < 1 || bus > 255 || address < 1 || address > 127) {
        std::fprintf(stderr, "qvusb-probe: BUSNUM and DEVNUM are numbers (1-255, 1-127)\n");
        return 2;
    }
    libusb_context* context = qvusb::Context();
    if (!context) return 1;
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    bool sensor = false;
    for (ssize_t i = 0; i < count; ++i) {
        libusb_device* device = list[i];
        if (libusb_get_bus_number(device) != bus || libusb_get_device_address(device) != address) continue;
        libusb_device_descriptor d{};
        libusb_device_handle* h = nullptr;
        if (libusb_get_device_descriptor(device, &d) == 0 && libusb_open(device, &h) == 0) {
            sensor = qvusb::AnnouncesSensorGuid(h, d);
            libusb_close(h);
        }
        break;
    }
    if (count >= 0) libusb_free_device_list(list, 1);
    if (!sensor) return 1;
    std::printf("QV_POWER_SENSOR=1\n");
    return 0;
}
