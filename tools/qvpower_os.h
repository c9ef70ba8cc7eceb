// What `qvpower doctor` asks the operating system directly, beside the
// library: whether the driver library loads (and the loader's reason when it
// does not), where the library keeps its files, and USB devices it may not open. One implementation per
// OS (qvpower_os_posix.cpp, qvpower_os_win32.cpp).
#pragma once

#include <string>
#include <vector>

namespace qvpower {

// The driver library the library loads: $QV_USBDRVD, else the platform's default name.
std::string DriverFile();

struct DriverProbe {
    bool loaded = false;
    std::string reason;                 // the loader's message when not loaded
    std::vector<std::string> missing;   // required functions it lacks
};
DriverProbe ProbeDriver(const std::string& file, const std::vector<std::string>& functions);

// The directory the library keeps state files and calibration caches in,
// chosen as the library chooses it.
std::string DataDirectory();

// A line telling the user to install the udev rule when the driver library
// in use reports USB devices it could not open for lack of permission; empty
// otherwise (and always with a driver library that cannot tell).
std::string UsbAccessHint();

}  // namespace qvpower
