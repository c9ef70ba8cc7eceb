#include "usb_access.h"

#include <dlfcn.h>

#include <cstdint>
#include <cstdlib>

namespace qvpower {

std::string UsbAccessHint() {
    // The library has loaded the driver library already; only that one is asked.
    const char* name = std::getenv("QV_USBDRVD");
    void* driver = dlopen(name && *name ? name : "libqvusbdrvd.so", RTLD_NOW | RTLD_NOLOAD);
    if (driver == nullptr) return {};
    using Denied = std::int32_t (*)();
    const auto denied = reinterpret_cast<Denied>(dlsym(driver, "qvusbdrvd_denied_devices"));
    const std::int32_t n = denied ? denied() : 0;
    dlclose(driver);
    if (n <= 0) return {};
    return std::to_string(n) + " USB device" + (n == 1 ? "" : "s") +
           " could not be opened for lack of permission: install the udev rule "
           "(see README.md, \"Real sensors on Linux\") and plug the sensor in again";
}

}  // namespace qvpower
