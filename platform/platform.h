// The operating-system face of QV_API2.
//
// Everything the library needs from the operating system goes through the
// functions declared here and nothing else: no file above platform/ includes an
// OS header. One implementation per OS lives beside this file
// (platform_posix.cpp, platform_win32.cpp). All types are plain C++ types so
// that either implementation fits without change.
//
// Unless a function says otherwise it is mandatory, never throws, and may be
// called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qv::platform {

// ---------------------------------------------------------------- names

// Environment variables that redirect machine-wide names.
inline constexpr const char* kEnvNamespace = "QV_API2_NAMESPACE";
inline constexpr const char* kEnvDataDir = "QV_API2_DATA_DIR";
inline constexpr const char* kEnvDriver = "QV_USBDRVD";

// Value of an environment variable, or an empty string when unset.
std::string GetEnv(const char* name);

// ---------------------------------------------------------------- shared block

// Result of attaching the calling process to the machine-wide shared block.
struct SharedAttach {
    void* base = nullptr;   // this process's view of the block; null on failure
    bool created = false;   // true when no other live process had the block: it
                            // was created zero-filled and the caller must set it up
};

// Attaches the calling process to the block named `name` (the namespace suffix
// is appended by the implementation) of `size` bytes. The block exists while at
// least one live process is attached; processes that died without detaching do
// not count, so the first attach after they are gone gets a fresh block.
// `setUp` runs before this returns, serialised with every other process's
// attach and detach, with `created` true when the block is new (zero-filled).
// Called from the load notification; must not load libraries or start threads.
SharedAttach SharedBlockAttach(const char* name, std::size_t size,
                               void (*setUp)(void* base, bool created));

// Detaches the calling process. `tearDown` runs first, serialised like `setUp`,
// with `last` true when no other live process is attached; the block is
// discarded after it returns in that case. Called from the unload notification.
void SharedBlockDetach(void (*tearDown)(void* base, bool last));

// ---------------------------------------------------------------- machine-wide lock

// An open reference to the machine-wide lock; 0 means none.
using LockRef = std::uintptr_t;

enum class LockWaitResult {
    kAcquired,          // the caller owns the lock
    kAcquiredAbandoned, // the caller owns the lock; its previous owner died holding it
    kTimedOut,
    kFailed,
};

// Creates the lock `name` (namespace appended). Called once per machine by the
// first load, before any LockOpen can succeed. Returns a value to keep in the
// shared block's lockHandle (opaque to the caller), 0 on failure.
std::uint64_t LockCreate(const char* name);

// Gives the lock up; called by the last detach with the value LockCreate returned.
void LockDestroy(std::uint64_t created);

// Opens the lock by name for waiting; 0 when it does not exist.
LockRef LockOpen(const char* name);

// Waits at most `timeoutMs` milliseconds. The lock is recursive: the owning
// thread may wait again and must release once for every successful wait.
LockWaitResult LockWait(LockRef lock, std::uint32_t timeoutMs);

// Releases one successful wait of the calling thread.
void LockRelease(LockRef lock);

// Closes a reference obtained from LockOpen.
void LockClose(LockRef lock);

// ---------------------------------------------------------------- processes and time

std::uint32_t CurrentProcessId();

// Ids of the processes running on the machine, at most `max` of them.
std::vector<std::uint32_t> RunningProcessIds(std::size_t max);

void SleepMs(std::uint32_t ms);

// Milliseconds since an arbitrary start, monotonic; wraps like a 32-bit tick count.
std::uint32_t TickMs();

// ---------------------------------------------------------------- dynamic libraries

// Loads a library by file name or path; 0 on failure.
std::uintptr_t LibraryLoad(const char* file);
void* LibrarySymbol(std::uintptr_t library, const char* name);
void LibraryUnload(std::uintptr_t library);

// Default file name of the sensor driver library on this platform.
const char* DefaultDriverFile();

// ---------------------------------------------------------------- files

// The directory that holds calibration caches and state files: QV_API2_DATA_DIR
// when set, else the platform's default (no trailing separator).
std::string DataDirectory();

// Joins a directory and a file name with the platform's separator.
std::string JoinPath(const std::string& directory, const std::string& file);

// Reads a whole file; false when it cannot be opened or read.
bool ReadFile(const std::string& path, std::vector<std::uint8_t>& contents);

// Writes a whole file so that readers see the old or the new contents, never a
// part (temporary file and rename). Creates missing parent directories.
bool WriteFileAtomic(const std::string& path, const void* data, std::size_t size);

bool FileExists(const std::string& path);
bool RemoveFile(const std::string& path);

}  // namespace qv::platform

namespace qv::frame {
// Implemented by the library frame; the platform's load and unload
// notifications (library constructor and destructor, DllMain) call them.
void ProcessAttach();
void ProcessDetach();
}  // namespace qv::frame
