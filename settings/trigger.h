// TTL trigger input and output of a sensor.
#pragma once

#include <cstdint>

namespace qv {

// Switches the trigger input on (1) or off (0); re-arms a trigger output that
// is on with the request that matches the input (200 with, 201 without).
// 1 (also when the sensor refused: the field then keeps its value); -1 for a
// bad value, a sensor not found or not owned, or no device handle.
std::int32_t SetTTLTriggerInEnabled(std::int32_t address, std::int32_t enabled);
std::int32_t GetTTLTriggerInEnabled(std::int32_t address, std::int32_t* enabled);

// 203 (inverted) or 202; the field changes only when the request succeeded.
std::int32_t SetTTLTriggerInInverted(std::int32_t address, std::int32_t inverted);
std::int32_t GetTTLTriggerInInverted(std::int32_t address, std::int32_t* inverted);

// The trigger-input time-out, 0..30000 ms; checked after the lookups, sends nothing.
std::int32_t SetTTLTriggerInTimeOut(std::int32_t address, std::int32_t milliseconds);
std::int32_t GetTTLTriggerInTimeOut(std::int32_t address, std::int32_t* milliseconds);

// The trigger-output setter's operation: 1 switches the output on (200 while
// the input is on, else 201), any other value off (192); the field follows
// whatever the sensor answered. 1; -1 when the sensor is not found, not owned
// or has no device handle. Also used by the recorder output.
std::int32_t SetTTLTriggerOutEnabled(std::int32_t address, std::int32_t enabled);
std::int32_t GetTTLTriggerOutEnabled(std::int32_t address, std::int32_t* enabled);

// 205 (inverted) or 204; the field changes only when the request succeeded.
std::int32_t SetTTLTriggerOutInverted(std::int32_t address, std::int32_t inverted);
std::int32_t GetTTLTriggerOutInverted(std::int32_t address, std::int32_t* inverted);

}  // namespace qv
