// Why a sensor on the bench may not show up: USB devices the driver library
// was not allowed to open.
#pragma once

#include <string>

namespace qvpower {

// A line telling the user to install the udev rule when the driver library
// in use reports USB devices it could not open for lack of permission; empty
// otherwise (and always with a driver library that cannot tell).
std::string UsbAccessHint();

}  // namespace qvpower
