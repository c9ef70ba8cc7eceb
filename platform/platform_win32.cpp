// Windows implementation of the platform layer.
//
// Shared block: a named file mapping backed by the paging file, in the session
// namespace (Local\, like the lock; see docs/decisions.md). Windows discards
// it when its last handle closes, which also happens when a process is
// killed, so the first attach after every user is gone finds no mapping and
// starts from a fresh, zero-filled one (`created`: the mapping did not exist).
// Attaches and detaches are serialised machine-wide by a named mutex of their
// own (the guard); a detach is the last when no other process shows a presence
// event, which each attached process holds open and which dies with it.
//
// Machine-wide lock: the named mutex QV_MTX_101848 (recursive by nature; a
// holder that dies leaves it abandoned, and the next waiter is told so). Every
// attached process keeps one handle to it, so it lives exactly as long as some
// process has the library loaded; each entry frame opens its own handle with
// SYNCHRONIZE, waits, releases and closes it.
//
// Load and unload notifications: DllMain in QV_API2.dll, which runs under the
// loader lock: it maps memory, creates and waits on kernel objects and lists
// processes, and never loads or frees a library (LibraryLoad fails there,
// LibraryUnload keeps the library). Linked into a program instead (white-box
// tests, the test peer), the same work runs from its constructor and
// destructor.
#include "platform/platform.h"
#include "platform/temporary_files.h"

#include <windows.h>

#include <ntsecapi.h>
#include <psapi.h>
#include <sddl.h>

#include <atomic>
#include <cstdio>
#include <cstring>

namespace qv::platform {

namespace {

// ---------------------------------------------------------------- names

constexpr std::size_t kNameChars = 512;

// "Local\<base><namespace><suffix>" as a wide string in plain storage; names
// are ASCII after the namespace is cleaned.
void ObjectName(const char* base, const char* suffix, wchar_t (&out)[kNameChars]) {
    std::string name = "Local\\";
    name += base;
    for (char c : GetEnv(kEnvNamespace)) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
        name += plain ? c : '_';
    }
    name += suffix;
    std::size_t i = 0;
    for (; i < name.size() && i + 1 < kNameChars; ++i) out[i] = static_cast<wchar_t>(name[i]);
    out[i] = L'\0';
}

// Named objects are open to every authenticated user of the session, so that an
// elevated application and an ordinary one meet (an elevated process's default
// DACL would lock the other out). Made once, on first use from the load
// notification; default security if that fails.
SECURITY_ATTRIBUTES* SharedObjectSecurity() {
    static SECURITY_ATTRIBUTES attributes;
    static bool tried = false;
    static bool ready = false;
    if (!tried) {
        tried = true;
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        if (ConvertStringSecurityDescriptorToSecurityDescriptorW(
                L"D:(A;;GA;;;AU)(A;;GA;;;SY)(A;;GA;;;BA)", SDDL_REVISION_1, &descriptor,
                nullptr)) {
            attributes.nLength = sizeof attributes;
            attributes.lpSecurityDescriptor = descriptor;  // kept for the life of the process
            attributes.bInheritHandle = FALSE;
            ready = true;
        }
    }
    return ready ? &attributes : nullptr;
}

// Holds a named mutex for a scope, waiting at most `timeoutMs`; a holder that
// died leaves it abandoned, which counts as acquired.
class NamedMutexScope {
public:
    NamedMutexScope(const wchar_t* name, std::uint32_t timeoutMs) {
        mutex_ = CreateMutexW(SharedObjectSecurity(), FALSE, name);
        if (!mutex_) return;
        const DWORD waited = WaitForSingleObject(mutex_, timeoutMs);
        held_ = waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED;
    }
    ~NamedMutexScope() {
        if (held_) ReleaseMutex(mutex_);
        if (mutex_) CloseHandle(mutex_);
    }
    NamedMutexScope(const NamedMutexScope&) = delete;
    NamedMutexScope& operator=(const NamedMutexScope&) = delete;
    bool Held() const { return held_; }

private:
    HANDLE mutex_ = nullptr;
    bool held_ = false;
};

// ---------------------------------------------------------------- attachment

// Per-process attachment state, in plain storage: linked into a program, the
// unload notification may run after the program's static objects are gone.
struct Attachment {
    wchar_t guardName[kNameChars];
    wchar_t blockName[kNameChars];
    char presenceBase[kNameChars];  // + ".live.<pid>"
    HANDLE mapping;
    HANDLE presence;
    void* base;
};
Attachment g_attachment;

// This process's handle to the machine-wide lock, held while it is attached.
HANDLE g_lockKept = nullptr;

void KeepLock(HANDLE lock) {
    if (g_lockKept) CloseHandle(g_lockKept);
    g_lockKept = lock;
}

void ReleaseKeptLock() {
    if (g_lockKept) CloseHandle(g_lockKept);
    g_lockKept = nullptr;
}

void PresenceName(std::uint32_t pid, wchar_t (&out)[kNameChars]) {
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, ".live.%lu", static_cast<unsigned long>(pid));
    ObjectName(g_attachment.presenceBase, suffix, out);
}

// Whether any process but this one is attached: each attached process holds
// its presence event open, and the event vanishes with the last handle.
bool OtherProcessAttached() {
    const std::uint32_t self = GetCurrentProcessId();
    for (std::uint32_t pid : RunningProcessIds(1u << 16)) {
        if (pid == self) continue;
        wchar_t name[kNameChars];
        PresenceName(pid, name);
        if (HANDLE event = OpenEventW(SYNCHRONIZE, FALSE, name)) {
            CloseHandle(event);
            return true;
        }
    }
    return false;
}

// The thread running a load or unload notification, and whether that unload
// is the process ending (DllMain's reserved argument).
std::atomic<DWORD> g_notificationThread {0};
std::atomic<bool> g_processEnding {false};

bool InNotification() { return g_notificationThread.load() == GetCurrentThreadId(); }

}  // namespace

std::string GetEnv(const char* name) {
    char small[512];
    const DWORD n = GetEnvironmentVariableA(name, small, sizeof small);
    if (n == 0) return std::string();
    if (n < sizeof small) return std::string(small, n);
    std::string value(n, '\0');
    const DWORD m = GetEnvironmentVariableA(name, value.data(), n);
    value.resize(m < n ? m : 0);
    return value;
}

// ---------------------------------------------------------------- shared block

SharedAttach SharedBlockAttach(const char* name, std::size_t size,
                               void (*setUp)(void* base, bool created)) {
    SharedAttach result;
    Attachment& a = g_attachment;
    ObjectName(name, ".guard", a.guardName);
    ObjectName(name, "", a.blockName);
    std::snprintf(a.presenceBase, sizeof a.presenceBase, "%s", name);

    // Bounded: a process stopped in the middle of its load must not hang this one.
    NamedMutexScope guard(a.guardName, kAttachWaitMs);
    if (!guard.Held()) return result;
    const auto size64 = static_cast<std::uint64_t>(size);
    a.mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, SharedObjectSecurity(), PAGE_READWRITE,
                                   static_cast<DWORD>(size64 >> 32), static_cast<DWORD>(size64),
                                   a.blockName);
    if (!a.mapping) return result;
    // No mapping by this name means no live process has the block: the paging
    // file gives a zero-filled one.
    const bool created = GetLastError() != ERROR_ALREADY_EXISTS;
    a.base = MapViewOfFile(a.mapping, FILE_MAP_ALL_ACCESS, 0, 0, size);
    wchar_t presence[kNameChars];
    PresenceName(GetCurrentProcessId(), presence);
    if (a.base) a.presence = CreateEventW(SharedObjectSecurity(), TRUE, FALSE, presence);
    if (!a.base || !a.presence) {
        if (a.base) UnmapViewOfFile(a.base);
        CloseHandle(a.mapping);
        a.base = nullptr;
        a.mapping = nullptr;
        return result;
    }
    result.base = a.base;
    result.created = created;
    setUp(a.base, created);
    return result;
}

void SharedBlockDetach(void (*tearDown)(void* base, bool last)) {
    Attachment& a = g_attachment;
    if (!a.base) return;
    NamedMutexScope guard(a.guardName, kAttachWaitMs);
    const bool last = guard.Held() && !OtherProcessAttached();
    tearDown(a.base, last);
    // Windows discards the mapping and the lock with the last handles.
    UnmapViewOfFile(a.base);
    CloseHandle(a.mapping);
    CloseHandle(a.presence);
    a.base = nullptr;
    a.mapping = nullptr;
    a.presence = nullptr;
    ReleaseKeptLock();
}

// ---------------------------------------------------------------- machine-wide lock

std::uint64_t LockCreate(const char* name) {
    wchar_t wide[kNameChars];
    ObjectName(name, "", wide);
    HANDLE lock = CreateMutexW(SharedObjectSecurity(), FALSE, wide);
    if (!lock) return 0;
    KeepLock(lock);
    // Handles mean nothing in other processes: the value only marks "created".
    return 1;
}

void LockDestroy(std::uint64_t) { ReleaseKeptLock(); }

bool LockAdopt(const char* name) {
    wchar_t wide[kNameChars];
    ObjectName(name, "", wide);
    HANDLE lock = OpenMutexW(SYNCHRONIZE, FALSE, wide);
    if (!lock) return false;
    KeepLock(lock);
    return true;
}

LockRef LockOpen(const char* name) {
    wchar_t wide[kNameChars];
    ObjectName(name, "", wide);
    return reinterpret_cast<LockRef>(OpenMutexW(SYNCHRONIZE, FALSE, wide));
}

LockWaitResult LockWait(LockRef lock, std::uint32_t timeoutMs) {
    if (!lock) return LockWaitResult::kFailed;
    switch (WaitForSingleObject(reinterpret_cast<HANDLE>(lock), timeoutMs)) {
        case WAIT_OBJECT_0:
            return LockWaitResult::kAcquired;
        case WAIT_ABANDONED:
            return LockWaitResult::kAcquiredAbandoned;
        case WAIT_TIMEOUT:
            return LockWaitResult::kTimedOut;
        default:
            return LockWaitResult::kFailed;
    }
}

void LockRelease(LockRef lock) {
    if (lock) ReleaseMutex(reinterpret_cast<HANDLE>(lock));
}

void LockClose(LockRef lock) {
    if (lock) CloseHandle(reinterpret_cast<HANDLE>(lock));
}

// ---------------------------------------------------------------- processes and time

std::uint32_t CurrentProcessId() { return GetCurrentProcessId(); }

std::vector<std::uint32_t> RunningProcessIds(std::size_t max) {
    std::vector<DWORD> ids(1024);
    for (;;) {
        DWORD bytes = 0;
        const auto capacity = static_cast<DWORD>(ids.size() * sizeof(DWORD));
        if (!EnumProcesses(ids.data(), capacity, &bytes)) return {};
        // A full buffer may have cut the list short: ask again with more room.
        if (bytes < capacity || ids.size() >= (1u << 20)) {
            ids.resize(bytes / sizeof(DWORD));
            break;
        }
        ids.resize(ids.size() * 2);
    }
    std::vector<std::uint32_t> result;
    for (DWORD pid : ids) {
        if (result.size() >= max) break;
        if (pid != 0) result.push_back(pid);
    }
    return result;
}

void SleepMs(std::uint32_t ms) { Sleep(ms); }

std::uint32_t TickMs() { return GetTickCount(); }

// ---------------------------------------------------------------- dynamic libraries

namespace {
thread_local char t_loadError[512];

std::string ErrorText(DWORD code) {
    char text[256] = {};
    DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0, text,
                             sizeof text, nullptr);
    while (n > 0 && (text[n - 1] == '\r' || text[n - 1] == '\n' || text[n - 1] == '.')) text[--n] = '\0';
    return n > 0 ? std::string(text, n) : "error " + std::to_string(code);
}
}  // namespace

std::string LastErrorText() { return ErrorText(GetLastError()); }

std::string LibraryLoadError() { return t_loadError; }

std::uintptr_t LibraryLoad(const char* file) {
    if (InNotification()) {
        std::snprintf(t_loadError, sizeof t_loadError, "not loaded while the loader lock is held");
        return 0;
    }
    HMODULE library = LoadLibraryA(file);
    if (!library) std::snprintf(t_loadError, sizeof t_loadError, "%s", ErrorText(GetLastError()).c_str());
    return reinterpret_cast<std::uintptr_t>(library);
}

void* LibrarySymbol(std::uintptr_t library, const char* name) {
    if (!library) return nullptr;
    return reinterpret_cast<void*>(GetProcAddress(reinterpret_cast<HMODULE>(library), name));
}

void LibraryUnload(std::uintptr_t library) {
    // Under the loader lock the reference is kept; the process's end frees it.
    if (library && !InNotification()) FreeLibrary(reinterpret_cast<HMODULE>(library));
}

const char* DefaultDriverFile() { return "QVUSBDRVD.dll"; }

bool ProcessEnding() { return InNotification() && g_processEnding.load(); }

// ---------------------------------------------------------------- files

namespace {

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

void MakeParents(const std::string& path) {
    for (std::size_t i = 1; i < path.size(); ++i) {
        if (!IsSeparator(path[i])) continue;
        const std::string prefix = path.substr(0, i);
        if (prefix.back() == ':' || IsSeparator(prefix.back())) continue;  // "C:", "\\"
        CreateDirectoryA(prefix.c_str(), nullptr);
    }
}

std::uint64_t RandomValue() {
    std::uint64_t value = 0;
    if (RtlGenRandom(&value, sizeof value)) return value;
    // Unique still; the file is created exclusively all the same.
    static std::atomic<std::uint64_t> counter {0};
    LARGE_INTEGER now {};
    QueryPerformanceCounter(&now);
    return static_cast<std::uint64_t>(now.QuadPart) ^
           (static_cast<std::uint64_t>(GetCurrentProcessId()) << 32) ^
           (counter++ * 0x9E3779B97F4A7C15ull);
}

bool ProcessRunning(std::uint32_t pid) {
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, pid);
    if (!process) return GetLastError() == ERROR_ACCESS_DENIED;  // someone else's: alive
    const bool running = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
    CloseHandle(process);
    return running;
}

std::string DirectoryOf(const std::string& path) {
    std::size_t i = path.size();
    while (i > 0 && !IsSeparator(path[i - 1])) --i;
    return path.substr(0, i);  // with its separator; empty: the current directory
}

// Removes the temporary files in the directory of `path` whose writer has ended
// (killed between creating and renaming them). Files only, not reparse points.
void RemoveLeftoverTemporaries(const std::string& path) {
    const std::string directory = DirectoryOf(path);
    WIN32_FIND_DATAA found;
    HANDLE search = FindFirstFileA((directory + "*.tmp*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return;
    do {
        std::uint32_t pid = 0;
        if (found.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT))
            continue;
        if (!ParseTemporaryName(found.cFileName, &pid) || ProcessRunning(pid)) continue;
        DeleteFileA((directory + found.cFileName).c_str());
    } while (FindNextFileA(search, &found));
    FindClose(search);
}

enum class NewFile { kWritten, kNameTaken, kFailed };

// CREATE_NEW: the call fails if anything exists at the name, a link included,
// so nothing planted there is written through or reused.
NewFile WriteNew(const std::string& path, const void* data, std::size_t size) {
    HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        return error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS ? NewFile::kNameTaken
                                                                           : NewFile::kFailed;
    }
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    std::size_t done = 0;
    bool ok = true;
    while (ok && done < size) {
        const std::size_t chunk = size - done < (1u << 30) ? size - done : (1u << 30);
        DWORD written = 0;
        ok = WriteFile(file, bytes + done, static_cast<DWORD>(chunk), &written, nullptr) &&
             written > 0;
        done += written;
    }
    if (ok) ok = FlushFileBuffers(file) != 0;
    if (!CloseHandle(file)) ok = false;
    if (!ok) DeleteFileA(path.c_str());
    return ok ? NewFile::kWritten : NewFile::kFailed;
}

bool ReplaceWith(const std::string& temporary, const std::string& path) {
    if (MoveFileExA(temporary.c_str(), path.c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return true;
    DeleteFileA(temporary.c_str());
    return false;
}

}  // namespace

// The system directory is where state files have always been; no per-user
// fallback on Windows.
std::string DefaultDataDirectory(const std::string& preferred) { return preferred; }

std::string DataDirectory() {
    std::string dir = GetEnv(kEnvDataDir);
    if (dir.empty()) {
        char system[MAX_PATH + 1];
        const UINT n = GetSystemDirectoryA(system, sizeof system);
        if (n > 0 && n < sizeof system) dir.assign(system, n);
    }
    // Keep "C:\" whole: without its separator it would mean the current directory of C:.
    while (dir.size() > 1 && IsSeparator(dir.back()) && !(dir.size() == 3 && dir[1] == ':'))
        dir.pop_back();
    return dir;
}

std::string JoinPath(const std::string& directory, const std::string& file) {
    if (directory.empty()) return file;
    if (IsSeparator(directory.back())) return directory + file;
    return directory + "\\" + file;
}

FileRead ReadFile(const std::string& path, std::vector<std::uint8_t>& contents,
                  std::size_t maxBytes) {
    contents.clear();
    // Others may replace the file while we read it (their rename needs
    // FILE_SHARE_DELETE). FILE_FLAG_OPEN_REPARSE_POINT opens a link itself rather
    // than what it points at; it is then refused below.
    HANDLE file = CreateFileA(path.c_str(), GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        // Some implementations (Wine) answer "not found" for a link opened as
        // itself: missing only when nothing at all is at the name.
        const DWORD error = GetLastError();
        const bool nothing = (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) &&
                             GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES;
        return nothing ? FileRead::kMissing : FileRead::kRefused;
    }
    FileRead result = FileRead::kRefused;
    BY_HANDLE_FILE_INFORMATION info {};
    const bool regular =
        GetFileType(file) == FILE_TYPE_DISK && GetFileInformationByHandle(file, &info) &&
        !(info.dwFileAttributes &
          (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DEVICE));
    const std::uint64_t size =
        static_cast<std::uint64_t>(info.nFileSizeHigh) << 32 | info.nFileSizeLow;
    if (regular && size <= maxBytes) {
        try {
            contents.resize(static_cast<std::size_t>(size));
            std::size_t done = 0;
            bool ok = true;
            while (ok && done < contents.size()) {
                DWORD n = 0;
                ok = ::ReadFile(file, contents.data() + done, static_cast<DWORD>(contents.size() - done),
                                &n, nullptr) != 0;
                if (n == 0) break;
                done += n;
            }
            contents.resize(done);
            if (ok) result = FileRead::kRead;
        } catch (...) {
        }
    }
    CloseHandle(file);
    if (result != FileRead::kRead) contents.clear();
    return result;
}

bool WriteFileAtomic(const std::string& path, const void* data, std::size_t size) {
    MakeParents(path);
    RemoveLeftoverTemporaries(path);
    for (int attempt = 0; attempt < 8; ++attempt) {
        const std::string temporary = TemporaryName(path, GetCurrentProcessId(), RandomValue());
        const NewFile written = WriteNew(temporary, data, size);
        if (written == NewFile::kWritten) {
            if (ReplaceWith(temporary, path)) return true;
            Log("cannot write %s (%s)", path.c_str(), LastErrorText().c_str());
            return false;
        }
        if (written == NewFile::kFailed) break;
    }
    Log("cannot write %s: its directory cannot be made or written (%s)", path.c_str(), LastErrorText().c_str());
    return false;
}

bool FileExists(const std::string& path) {
    const DWORD attributes = GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES &&
           !(attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT));
}

bool RemoveFile(const std::string& path) { return DeleteFileA(path.c_str()) != 0; }

std::vector<std::string> FindFiles(const std::string& pattern) {
    std::wstring wide;
    for (char c : pattern) wide.push_back(static_cast<wchar_t>(static_cast<unsigned char>(c)));
    std::vector<std::string> names;
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW(wide.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return names;
    do {
        if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
        std::string name;
        for (const wchar_t* c = found.cFileName; *c; ++c)
            name.push_back(static_cast<char>(static_cast<unsigned>(*c) & 0xFF));
        names.push_back(name);
    } while (FindNextFileW(search, &found));
    FindClose(search);
    return names;
}

}  // namespace qv::platform

// ---------------------------------------------------------------- load and unload notifications

extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace {

// True when this code is part of a program rather than of QV_API2.dll.
bool LinkedIntoProgram() {
    return reinterpret_cast<HMODULE>(&__ImageBase) == GetModuleHandleW(nullptr);
}

}  // namespace

// In a program, constructors and destructors run outside the loader lock.
__attribute__((constructor)) static void QvProgramStarts() {
    if (LinkedIntoProgram()) qv::frame::ProcessAttach();
}
__attribute__((destructor)) static void QvProgramEnds() {
    if (LinkedIntoProgram()) qv::frame::ProcessDetach();
}

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved) {
    using qv::platform::g_notificationThread;
    switch (reason) {
        case DLL_PROCESS_ATTACH:
            g_notificationThread = GetCurrentThreadId();
            qv::frame::ProcessAttach();
            g_notificationThread = 0;
            break;
        case DLL_PROCESS_DETACH:
            // reserved is non-null when the process is ending (ExitProcess).
            qv::platform::g_processEnding = reserved != nullptr;
            g_notificationThread = GetCurrentThreadId();
            qv::frame::ProcessDetach();
            g_notificationThread = 0;
            break;
        default:
            break;
    }
    // The load notification always reports success.
    return TRUE;
}
