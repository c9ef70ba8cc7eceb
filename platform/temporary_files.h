// Names of the temporary files WriteFileAtomic writes beside its target, shared
// by both implementations of the platform layer (not part of its face).
//
// A name is "<target>.tmp<pid>.<16 hex digits>": the random part makes it
// unguessable, so nobody can put anything there in advance (the file is
// created exclusively all the same); the process id tells a later writer
// whether the file's writer is still running or was killed halfway.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qv::platform {

// The temporary name for `target` written by process `pid`.
std::string TemporaryName(const std::string& target, std::uint32_t pid, std::uint64_t random);

// True when `name` (a file name without directory) has the form of a
// temporary name; its writer's process id in `pid`. Names of the form
// "<target>.tmp<pid>" (no random part) count too: older writers left those.
bool ParseTemporaryName(std::string_view name, std::uint32_t* pid);

}  // namespace qv::platform
