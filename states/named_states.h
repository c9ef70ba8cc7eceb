// The named state files of a sensor: count, list and delete.
#pragma once

#include <cstdint>

namespace qv {

// Bytes a name takes in a list: at most 20 characters and a TAB.
inline constexpr std::int32_t kNamedStateEntryBytes = 21;

// Writes the names of slot `slot`'s named states into `buffer`, each followed
// by TAB, in the order of the directory search, never more than `size` bytes;
// the bytes written.
std::int32_t ListNamedStates(std::int32_t slot, char* buffer, std::int32_t size);

// Operations behind the exports.
std::int32_t GetNamedStateCount(std::int32_t address);
std::int32_t GetNamedStateNames(std::int32_t address, char* buffer, std::int32_t* size);
std::int32_t DeleteNamedState(std::int32_t address, const char* name);

}  // namespace qv
