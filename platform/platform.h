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
inline constexpr const char* kEnvLog = "QV_API2_LOG";

// Value of an environment variable, or an empty string when unset.
std::string GetEnv(const char* name);

// ---------------------------------------------------------------- diagnostics

// Reads QV_API2_LOG; called once by the load notification. Unset or empty:
// Log does nothing. "stderr": lines go to the process's standard error.
// Anything else: a file that lines are appended to (created when missing).
void LogSetUp();

// True when QV_API2_LOG asked for lines; a plain flag, cheap to test.
bool LogEnabled();

// One line "qv_api2[PID]: TEXT" for an event a user needs to understand a
// failure. Never fails, never throws; a line that cannot be written is lost.
void Log(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// The system's text for the last error of the calling thread (errno,
// GetLastError): "Permission denied".
std::string LastErrorText();

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
// That serialisation is waited for at most kAttachWaitMs: a process stopped in
// the middle of its own attach must not hang every later load on the machine,
// so the attach then fails (base null) and the process stays unattached.
// Called from the load notification; must not load libraries or start threads.
SharedAttach SharedBlockAttach(const char* name, std::size_t size,
                               void (*setUp)(void* base, bool created));

// Longest wait for the serialisation of attaches and detaches. Its holders do
// short, bounded work only (map, set up or tear down the block's bookkeeping).
inline constexpr std::uint32_t kAttachWaitMs = 5000;

// Detaches the calling process. `tearDown` runs first, serialised like `setUp`,
// with `last` true when no other live process is attached; the block is
// discarded after it returns in that case. When the serialisation cannot be
// had within kAttachWaitMs, `last` is false and the block is left to the
// others. Called from the unload notification.
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

// Called by every attach that finds the block already set up: keeps the lock
// in existence for as long as this process stays attached, whichever process
// created it (Windows: a named mutex lives only while some process has it
// open). False when the lock does not exist.
bool LockAdopt(const char* name);

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

// Loads a library by file name or path; 0 on failure. Fails inside the load and
// unload notifications (Windows: never under the loader lock).
std::uintptr_t LibraryLoad(const char* file);
// The loader's own message for the calling thread's last failed LibraryLoad
// ("libX.so: cannot open shared object file: No such file or directory").
std::string LibraryLoadError();
void* LibrarySymbol(std::uintptr_t library, const char* name);
// Inside the unload notification the library may stay loaded until the process
// ends (Windows: FreeLibrary is not allowed under the loader lock).
void LibraryUnload(std::uintptr_t library);

// True while the unload notification runs because the whole process is ending
// rather than the library alone being unloaded (Windows: ExitProcess). Other
// libraries, the driver library among them, may then already have been told
// to unload and must not be called; the process's handles die with it.
bool ProcessEnding();

// Default file name of the sensor driver library on this platform.
const char* DefaultDriverFile();

// ---------------------------------------------------------------- files

// The directory that holds calibration caches and state files: QV_API2_DATA_DIR
// when set, else the platform's default (no trailing separator). Linux: the
// machine-wide /var/lib/qv_api2 where this user may write it, else the user's
// own $XDG_STATE_HOME/qv_api2 (~/.local/state/qv_api2 without it).
std::string DataDirectory();

// The choice DataDirectory makes when QV_API2_DATA_DIR is unset, with the
// machine-wide directory given: `preferred` when it is (or can be made)
// writable by this process, else the per-user directory; `preferred` also when
// the user has no home to fall back to.
std::string DefaultDataDirectory(const std::string& preferred);

// Joins a directory and a file name with the platform's separator.
std::string JoinPath(const std::string& directory, const std::string& file);

// Outcome of ReadFile.
enum class FileRead {
    kRead,     // contents holds the whole file
    kMissing,  // nothing at the path
    kRefused,  // something is there but is not read: a link, a device, a pipe or
               // any other non-regular file, a file larger than the bound, a read error
};

// Reads a whole regular file of at most `maxBytes` bytes. Callers run under the
// machine-wide lock, so the work is bounded whatever another local user put at
// the path: the file is opened without blocking (a FIFO never stalls the
// open), a link at the final name is not followed, anything but a regular file
// is refused, and the size is checked before a byte is read; at most that many
// bytes are read. `contents` is emptied unless the result is kRead.
FileRead ReadFile(const std::string& path, std::vector<std::uint8_t>& contents,
                  std::size_t maxBytes);

// Writes a whole file so that readers see the old or the new contents, never a
// part. The data goes to a new temporary file beside the target, created
// exclusively under a random name (nothing that exists there is followed or
// reused), flushed, and renamed over the target; a link at the target is
// replaced, not followed. Temporary files that writers left behind when they
// were killed (their process has ended) are removed from the directory first.
// Creates missing parent directories.
bool WriteFileAtomic(const std::string& path, const void* data, std::size_t size);

// True for a regular file at the path itself (a link is not followed).
bool FileExists(const std::string& path);
bool RemoveFile(const std::string& path);

// Names of the files the directory search finds for `pattern`: a path whose
// last component may hold the wildcards '*' (any run of characters, none
// included) and '?' (one character). Names come without their directory, one
// byte per character, in the order of the search; directories are left out.
// No match, or no such directory, gives an empty list.
// Windows: FindFirstFileW/FindNextFileW with the pattern widened character by
// character, keeping the low byte of each UTF-16 unit of the names found.
// POSIX: case decides (as the file system does); names in byte order.
std::vector<std::string> FindFiles(const std::string& pattern);

// ---------------------------------------------------------------- profile files
//
// INI files as the Windows private-profile functions read and write them: a
// line "[section]" opens a section, a line "key=value" holds a value. Section
// and key names match without regard to ASCII case. Blanks (spaces, tabs)
// around section names, keys and values do not count, and a value enclosed in
// matching single or double quotes loses them. Lines may end in CR LF or LF;
// a file written has CR LF throughout. The first of several equal sections or
// keys is the one that counts. A missing file reads as empty; so does one
// that ReadFile refuses or that is larger than kProfileMaxBytes, and such a
// file is never rewritten.
// One implementation for every platform (profile_file.cpp), over ReadFile and
// WriteFileAtomic: the Windows functions themselves differ between
// implementations in how they lay out a file they rewrite.

// Largest profile file read or rewritten: far beyond any state file (tens of
// kilobytes), small enough to bound the work done under the lock.
inline constexpr std::size_t kProfileMaxBytes = 1u << 20;

// One key to read and where its value goes.
struct ProfileRead {
    const char* key;
    const char* defaultValue;  // taken when the key is missing, trailing blanks dropped
    char* buffer;              // receives at most size - 1 characters and a zero
    std::uint32_t size;        // bytes of buffer; 0 writes nothing
    std::uint32_t length;      // out: characters stored, zero excluded
};

// Reads `count` keys of `section` of the file at `path`, as that many
// GetPrivateProfileStringA calls would.
void ProfileReadStrings(const std::string& path, const char* section, ProfileRead* reads,
                        std::size_t count);

// One key to write.
struct ProfileWrite {
    const char* key;
    const char* value;  // no CR or LF
};

// Writes `count` keys into `section` of the file at `path`, in order, as that
// many WritePrivateProfileStringA calls would: a key
// already in the section has its line replaced where it stands, a new one is
// added after the section's last non-blank line; a missing section is appended
// to the file, a missing file (and its directory) created. Every other line is
// kept. The file is replaced whole (temporary file and rename), so no reader
// and no crash ever sees it half-written. Writers of the same file must be
// serialised by the caller (the library's lock does it). False when nothing
// could be written: the file exists but cannot be read, a key or value holds a
// line break, or the new file could not be put in place.
bool ProfileWriteStrings(const std::string& path, const char* section,
                         const ProfileWrite* writes, std::size_t count);

// The writes of one section.
struct ProfileSectionWrite {
    const char* section;
    const ProfileWrite* writes;
    std::size_t count;
};

// Several sections' writes in one go, as ProfileWriteStrings for each in
// order, but with the file read and replaced once.
bool ProfileWriteSections(const std::string& path, const ProfileSectionWrite* sections,
                          std::size_t count);

}  // namespace qv::platform

namespace qv::frame {
// Implemented by the library frame; the platform's load and unload
// notifications (library constructor and destructor, DllMain) call them.
void ProcessAttach();
void ProcessDetach();
}  // namespace qv::frame
