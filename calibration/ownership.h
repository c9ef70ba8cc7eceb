// Ownership of slots: releasing a sensor's slot.
#pragma once

#include <cstdint>

namespace qv {

// Closes slot `slot`: the owner's device handles are closed (only by the
// owner: handles mean nothing in another process), the record is reset and
// the slot is free. Returns 1, or -1 for an index outside 0..12.
std::int32_t UninitializeSlot(std::int32_t slot);

// Releases every slot the process `pid` owns (process detach).
void ReleaseSlotsOfProcess(std::uint32_t pid);

}  // namespace qv
