#include "qvpower_os.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>

namespace qvpower {

namespace {
std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}
}  // namespace

std::string DriverFile() {
    const std::string file = Env("QV_USBDRVD");
    return file.empty() ? "libqvusbdrvd.so" : file;
}

DriverProbe ProbeDriver(const std::string& file, const std::vector<std::string>& functions) {
    DriverProbe probe;
    void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        const char* reason = dlerror();
        probe.reason = reason ? reason : "unknown reason";
        return probe;
    }
    probe.loaded = true;
    for (const std::string& name : functions)
        if (!dlsym(library, name.c_str())) probe.missing.push_back(name);
    dlclose(library);
    return probe;
}

// The library's rule: $QV_API2_DATA_DIR; else /var/lib/qv_api2 where it can
// be written (or made); else $XDG_STATE_HOME/qv_api2 or ~/.local/state/qv_api2.
std::string DataDirectory() {
    namespace fs = std::filesystem;
    const std::string set = Env("QV_API2_DATA_DIR");
    if (!set.empty()) return set;
    const fs::path preferred = "/var/lib/qv_api2";
    fs::path probe = preferred;
    std::error_code error;
    while (!fs::exists(probe, error) && probe.has_parent_path() && probe != probe.parent_path())
        probe = probe.parent_path();
    if (fs::is_directory(probe, error) && access(probe.c_str(), W_OK | X_OK) == 0) return preferred;
    const std::string xdg = Env("XDG_STATE_HOME");
    if (!xdg.empty() && xdg[0] == '/') return xdg + "/qv_api2";
    const std::string home = Env("HOME");
    if (home.empty() || home[0] != '/') return preferred;
    return home + "/.local/state/qv_api2";
}

std::string UsbAccessHint() {
    // The library has loaded the driver library already; only that one is asked.
    void* driver = dlopen(DriverFile().c_str(), RTLD_NOW | RTLD_NOLOAD);
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
