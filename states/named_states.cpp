#include "states/named_states.h"

#include <cstring>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "frame/lookups.h"
#include "platform/platform.h"
#include "states/state_file.h"

namespace qv {

namespace {

constexpr char kNameSeparator = '\t';
constexpr std::size_t kExtensionChars = 4;  // ".ini"

// Every named state file of the slot.
std::vector<std::string> FindNamedStateFiles(std::int32_t slot) {
    return platform::FindFiles(NamedStatePattern(slot));
}

// Slot of a sensor the caller owns, found with the lookup and its fallback.
std::int32_t OwnedSlotWithFallback(std::int32_t address) {
    if (IsDeviceMine_Addr(address) != 1) return kNoSlot;
    return StateSlot(address, true);
}

}  // namespace

std::int32_t ListNamedStates(std::int32_t slot, char* buffer, std::int32_t size) {
    const std::size_t skip = NamedStateFilePrefix(slot).size();
    std::int32_t written = 0;
    for (const std::string& file : FindNamedStateFiles(slot)) {
        if (file.size() < skip + kExtensionChars) continue;
        const std::size_t length = file.size() - skip - kExtensionChars;
        // A name the library cannot have written (over 20 characters) is left
        // out: the name rule would refuse it to every other named-state call.
        if (length > kStateNameMaxChars) continue;
        // Files added since the caller counted may not fit: the list ends
        // with the last whole entry that does.
        if (static_cast<std::int64_t>(length) + 1 > size - written) break;
        std::memcpy(buffer + written, file.data() + skip, length);
        written += static_cast<std::int32_t>(length);
        buffer[written++] = kNameSeparator;
    }
    return written;
}

std::int32_t GetNamedStateCount(std::int32_t address) {
    const std::int32_t slot = OwnedSlotWithFallback(address);
    if (slot == kNoSlot) return kFailure;
    return static_cast<std::int32_t>(FindNamedStateFiles(slot).size());
}

std::int32_t GetNamedStateNames(std::int32_t address, char* buffer, std::int32_t* size) {
    if (!buffer || !size || *size < kNamedStateEntryBytes) return kFailure;
    const std::int64_t count = GetNamedStateCount(address);
    if (*size < count * kNamedStateEntryBytes) return kFailure;
    if (IsDeviceMine_Addr(address) != 1) return kFailure;
    std::memset(buffer, 0, static_cast<std::size_t>(*size));
    const std::int32_t slot = StateSlot(address, true);
    if (slot == kNoSlot) return kFailure;
    *size = ListNamedStates(slot, buffer, *size);
    return kSuccess;
}

std::int32_t DeleteNamedState(std::int32_t address, const char* name) {
    if (IsDeviceMine_Addr(address) != 1 || !name) return kFailure;
    if (!IsValidStateName(name)) return kFailure;
    const std::int32_t slot = StateSlot(address, true);
    if (slot == kNoSlot) return kFailure;
    return platform::RemoveFile(StateFilePath(slot, name)) ? 1 : 0;
}

}  // namespace qv
