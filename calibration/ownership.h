// Initialising a sensor into a slot, releasing it, and who owns what.
#pragma once

#include <cstdint>

#include "frame/shared_table.h"

namespace qv {

// Claims a slot for the calling process and brings the sensor up in it:
// identity, defaults, calibration, tables, device handle. The slot number
// 1..13, or -1.
std::int32_t InitializeSensorCore(const char* serial);
std::int32_t InitializeSensor_SN(const char* serial);
std::int32_t InitializeSensor_Addr(std::int32_t address);
std::int32_t InitializeSensor_Idx(std::int32_t index);

// Releases the first slot in use whose serial is `serial` (six characters,
// case-sensitive): 1, or -1 when there is none.
std::int32_t UninitializeSensorCore(const char* serial);
// The caller must own the sensor: 1, or -1.
std::int32_t UninitializeSensor_SN(const char* serial);

// Closes slot `slot` by index: the owner's handles are closed (only by the
// owner: handles mean nothing in another process) and the slot is free.
// 1, or -1 for an index outside 0..12.
std::int32_t UninitializeSlot(std::int32_t slot);

// Closes the device handles a slot keeps (by their owner only).
void CloseSlotHandles(DeviceRecord& r);

// Releases every slot the process `pid` owns (process detach).
void ReleaseSlotsOfProcess(std::uint32_t pid);

// Open and close the device again: 0 when it could be opened, else -1.
std::int32_t ReInit_Addr(std::int32_t address);
std::int32_t ReInit_Idx(std::int32_t index);

std::int32_t IsDeviceInUse_Idx(std::int32_t index);
std::int32_t IsDeviceMine_Idx(std::int32_t index);

}  // namespace qv
