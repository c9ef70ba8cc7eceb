#include "usb_access.h"

namespace qvpower {

// WinUSB needs no permission of its own: nothing to tell.
std::string UsbAccessHint() { return {}; }

}  // namespace qvpower
