// Windows implementation of sim_os.h: a file mapping of the bus file and a named
// mutex as the bus lock.
//
// The lock's 64 bytes in the file hold the mutex's name (a stamp drawn when the
// bus file is made), so every process that maps the file finds the same mutex
// and a replaced bus file comes with a lock of its own. Windows mutexes are
// recursive, and one whose holder dies is abandoned: the next locker gets it
// and is told so.
#include "sim_os.h"

#include <windows.h>

#include <cstdio>
#include <mutex>
#include <string>

namespace qvsim::os {

namespace {

struct LockStorage {
    std::uint32_t magic;
    std::uint32_t reserved;
    std::uint64_t stamp;  // names the mutex
};
static_assert(sizeof(LockStorage) <= kSharedLockBytes, "lock storage too small");
constexpr std::uint32_t kLockMagic = 0x4B4C5351;  // "QSLK"

bool MapHandle(HANDLE file, std::size_t size, MappedFile* out) {
    HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READWRITE, 0, 0, nullptr);
    if (mapping == nullptr) return false;
    void* base = MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, size);
    // The view keeps the file and the mapping alive.
    CloseHandle(mapping);
    if (base == nullptr) return false;
    out->base = base;
    out->size = size;
    return true;
}

// Shared with deletion so that a bus file can be renamed while others use it.
HANDLE OpenShared(const char* path, DWORD disposition) {
    return CreateFileA(path, GENERIC_READ | GENERIC_WRITE,
                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, disposition,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Puts `temporary` in place of `path`. A file that is mapped somewhere cannot be
// replaced, but it can be renamed: the old bus moves aside for the processes
// still attached to it. Deleting it then works where the file system lets a
// mapped file go (Wine); on Windows it is left behind.
bool Publish(const std::string& temporary, const char* path) {
    if (MoveFileExA(temporary.c_str(), path, MOVEFILE_REPLACE_EXISTING)) return true;
    char aside[64];
    std::snprintf(aside, sizeof aside, ".old.%llu", static_cast<unsigned long long>(UniqueStamp()));
    const std::string old = std::string(path) + aside;
    if (!MoveFileExA(path, old.c_str(), 0)) return false;
    if (!MoveFileExA(temporary.c_str(), path, MOVEFILE_REPLACE_EXISTING)) {
        MoveFileExA(old.c_str(), path, 0);
        return false;
    }
    DeleteFileA(old.c_str());
    return true;
}

// Mutex handles of this process, by stamp; kept until the process ends, since
// the bus a stamp names may be attached again.
struct KnownLock {
    std::uint64_t stamp;
    HANDLE mutex;
};
std::mutex g_knownGuard;
KnownLock g_known[64];
std::size_t g_knownCount = 0;

HANDLE MutexFor(void* storage) {
    const auto* lock = static_cast<const LockStorage*>(storage);
    if (lock->magic != kLockMagic) return nullptr;
    const std::uint64_t stamp = lock->stamp;
    std::lock_guard<std::mutex> guard(g_knownGuard);
    for (std::size_t i = 0; i < g_knownCount; ++i)
        if (g_known[i].stamp == stamp) return g_known[i].mutex;
    char name[64];
    std::snprintf(name, sizeof name, "Local\\qvsim_bus_%016llx", static_cast<unsigned long long>(stamp));
    HANDLE mutex = CreateMutexA(nullptr, FALSE, name);
    if (mutex == nullptr) return nullptr;
    if (g_knownCount == sizeof g_known / sizeof g_known[0]) {
        // Oldest first: a process that went through this many buses is done with it.
        CloseHandle(g_known[0].mutex);
        for (std::size_t i = 1; i < g_knownCount; ++i) g_known[i - 1] = g_known[i];
        --g_knownCount;
    }
    g_known[g_knownCount++] = KnownLock{stamp, mutex};
    return mutex;
}

}  // namespace

bool CreateMappedFile(const char* path, std::size_t size, InitMapping init, void* context,
                      MappedFile* out) {
    // Built under a private name and renamed into place: processes still mapping
    // an older bus keep it, new ones never see a half-made file.
    const std::string temporary = std::string(path) + ".new." + std::to_string(GetCurrentProcessId());
    HANDLE file = OpenShared(temporary.c_str(), CREATE_ALWAYS);
    if (file == INVALID_HANDLE_VALUE) return false;
    LARGE_INTEGER end;
    end.QuadPart = static_cast<LONGLONG>(size);
    MappedFile mapped;
    const bool ok = SetFilePointerEx(file, end, nullptr, FILE_BEGIN) && SetEndOfFile(file) &&
                    MapHandle(file, size, &mapped);
    CloseHandle(file);
    if (!ok) {
        DeleteFileA(temporary.c_str());
        return false;
    }
    init(mapped.base, size, context);
    if (!Publish(temporary, path)) {
        CloseMappedFile(&mapped);
        DeleteFileA(temporary.c_str());
        return false;
    }
    *out = mapped;
    return true;
}

bool OpenMappedFile(const char* path, std::size_t minimumSize, MappedFile* out) {
    HANDLE file = OpenShared(path, OPEN_EXISTING);
    if (file == INVALID_HANDLE_VALUE) return false;
    LARGE_INTEGER size {};
    const bool ok = GetFileSizeEx(file, &size) && size.QuadPart > 0 &&
                    static_cast<std::uint64_t>(size.QuadPart) >= minimumSize &&
                    MapHandle(file, static_cast<std::size_t>(size.QuadPart), out);
    CloseHandle(file);
    return ok;
}

void CloseMappedFile(MappedFile* file) {
    if (file->base != nullptr) UnmapViewOfFile(file->base);
    file->base = nullptr;
    file->size = 0;
}

bool InitSharedLock(void* storage) {
    auto* lock = static_cast<LockStorage*>(storage);
    lock->stamp = UniqueStamp();
    lock->magic = kLockMagic;
    return MutexFor(storage) != nullptr;
}

LockResult LockShared(void* storage) {
    HANDLE mutex = MutexFor(storage);
    if (mutex == nullptr) return LockResult::Failed;
    switch (WaitForSingleObject(mutex, INFINITE)) {
        case WAIT_OBJECT_0:
            return LockResult::Acquired;
        case WAIT_ABANDONED:
            return LockResult::AcquiredAfterOwnerDied;
        default:
            return LockResult::Failed;
    }
}

void UnlockShared(void* storage) {
    if (HANDLE mutex = MutexFor(storage)) ReleaseMutex(mutex);
}

std::uint32_t CurrentProcessId() { return GetCurrentProcessId(); }

bool ProcessAlive(std::uint32_t pid) {
    if (pid == 0) return false;
    HANDLE process = OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
    if (process == nullptr) return GetLastError() != ERROR_INVALID_PARAMETER;  // no such process
    const bool running = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
    CloseHandle(process);
    return running;
}

void SleepMicroseconds(std::uint64_t micros) {
    Sleep(static_cast<DWORD>((micros + 999) / 1000));
}

std::uint64_t UniqueStamp() {
    LARGE_INTEGER counter {};
    QueryPerformanceCounter(&counter);
    FILETIME now {};
    GetSystemTimeAsFileTime(&now);
    const std::uint64_t wall = (static_cast<std::uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return (wall * 1000003u) ^ static_cast<std::uint64_t>(counter.QuadPart) ^
           (static_cast<std::uint64_t>(GetCurrentProcessId()) << 48);
}

}  // namespace qvsim::os
