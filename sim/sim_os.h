// The only face of the operating system that the simulator sees: a file mapped
// into every process that uses the bus, a lock inside it that survives the death
// of its holder, process ids and sleeping. sim_os_posix.cpp implements it; a
// Windows port implements the same functions in its own file and nothing else
// in sim/ changes.
#ifndef QVSIM_SIM_OS_H
#define QVSIM_SIM_OS_H

#include <cstddef>
#include <cstdint>

namespace qvsim::os {

// A shared, writable mapping of a whole file.
struct MappedFile {
    void* base = nullptr;
    std::size_t size = 0;
};

// Fills a freshly created, zeroed mapping before other processes can see it.
using InitMapping = void (*)(void* base, std::size_t size, void* context);

// Creates the file at path with size bytes (replacing any file there), lets init
// fill it, then publishes it under path in one step, so a process that opens the
// path sees either the old file or the complete new one. Returns true with out
// filled; false if the file cannot be created or mapped (nothing is left behind).
bool CreateMappedFile(const char* path, std::size_t size, InitMapping init, void* context,
                      MappedFile* out);

// Maps an existing file whole. Returns false if it does not exist or cannot be
// mapped, or is smaller than minimumSize.
bool OpenMappedFile(const char* path, std::size_t minimumSize, MappedFile* out);

// Unmaps; the file stays. Safe on an empty MappedFile.
void CloseMappedFile(MappedFile* file);

// Bytes a lock needs inside the mapping (storage passed below must hold that many
// and be 64-byte aligned).
inline constexpr std::size_t kSharedLockBytes = 64;

// Prepares storage as a lock shared by every process that maps it, recursive for
// the thread that holds it. Called once, by the creator, inside InitMapping.
bool InitSharedLock(void* storage);

enum class LockResult {
    Acquired,
    AcquiredAfterOwnerDied,  // the previous holder died holding it; the lock is made usable again
    Failed,
};

LockResult LockShared(void* storage);
void UnlockShared(void* storage);

std::uint32_t CurrentProcessId();

// False only when the process certainly no longer runs.
bool ProcessAlive(std::uint32_t pid);

void SleepMicroseconds(std::uint64_t micros);

// A number that differs between bus files created at different times or by
// different processes.
std::uint64_t UniqueStamp();

}  // namespace qvsim::os

#endif
