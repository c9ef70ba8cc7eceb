// TTL trigger input and output of a sensor.
#pragma once

#include <cstdint>

namespace qv {

// Switches the trigger input on (1) or off (0); re-arms a trigger output that
// is on with the request that matches the input (200 with, 201 without).
// 1 (also when the sensor refused: the field then keeps its value); -1 for a
// bad value, a sensor not found or not owned, or no device handle.
std::int32_t SetTTLTriggerInEnabled(std::int32_t address, std::int32_t enabled);

}  // namespace qv
