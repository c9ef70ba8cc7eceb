// Slot lookups: translate between serial number, address, device index and
// slot index. All search slots 0..12 in ascending order and take the first
// match. They read the table only; the caller holds the lock.
#pragma once

#include <cstdint>

namespace qv {

// Compares the first six characters without regard to case; a string that
// ends earlier matches only one that ends at the same place.
bool SerialNumbersMatch(const char* a, const char* b);

// The first six characters, case-sensitive (how initialisation and release
// compare a caller's serial with a slot's).
bool SerialNumbersEqualExactly(const char* stored, const char* serial);

// 1 when the first slot in use (in-use > 0) with this address belongs to the
// calling process; 0 when it belongs to another or there is none.
std::int32_t IsDeviceMine_Addr(std::int32_t address);
// Slot index of the first slot with in-use exactly 1 and this address when
// the caller owns it; else -1.
std::int32_t GetOwnedSlot_Addr(std::int32_t address);
std::int32_t IsDeviceMine_SN(const char* serial);
// 1 when the first slot with this address has in-use exactly 1.
std::int32_t IsDeviceInUse_Addr(std::int32_t address);
// 1 when the first slot whose serial matches has in-use of 1 or more.
std::int32_t IsDeviceInUse_SN(const char* serial);

// First slot with this address, in use or not: 1 with its device index, slot
// index and serial (six characters and a zero); else -1. `serial` has room
// for seven bytes.
std::int32_t LookupSlot_Addr(std::int32_t address, std::int32_t* devId, std::int32_t* slot,
                             char* serial);
// The same keyed on the device index.
std::int32_t LookupSlot_DevId(std::int32_t devId, std::int32_t* address, std::int32_t* slot,
                              char* serial);
// First slot in use (exactly 1) whose serial matches.
std::int32_t LookupSlot_SN(const char* serial, std::int32_t* address, std::int32_t* devId,
                           std::int32_t* slot);
// Asks the bus: the device answering to the address, its serial number, then
// the first slot holding that serial. 1 with `slot` set; else -1.
std::int32_t ResolveSlot_Addr(std::int32_t address, std::int32_t* devId, std::int32_t* slot,
                              char* serial);

// Index of the first slot with in-use exactly 1 holding `serial`; -1 if none.
std::int32_t InUseSlotBySerial(const char* serial);
// Index of the first slot with in-use exactly 1 holding `address`; -1 if none.
std::int32_t GetInUseSlotByAddress(std::int32_t address);
// Index of the first slot with in-use exactly 1 holding device index `devId`.
std::int32_t InUseSlotByDevId(std::int32_t devId);

// True when slot `slot` belongs to the calling process.
bool OwnedByCaller(std::int32_t slot);

}  // namespace qv
