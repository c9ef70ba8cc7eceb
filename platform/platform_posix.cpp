// POSIX implementation of the platform layer (Linux).
//
// Shared block: a POSIX shared-memory object. Its lifetime follows the live
// processes that have the library loaded, not a counter: every loader holds a
// shared flock on a "presence" object for as long as it is attached, and the
// kernel drops that lock when the process dies, however it dies. An attach that
// can take the presence lock exclusively knows that nobody else is alive and
// starts from a fresh block; a detach that can do so knows it is the last one.
// A separate "guard" flock serialises attaches and detaches machine-wide.
//
// Machine-wide lock: a process-shared, robust, recursive pthread mutex in its
// own shared-memory object named after the lock. Robustness gives the lock back
// when its holder dies; the next waiter is told so (kAcquiredAbandoned).
#include "platform/platform.h"
#include "platform/temporary_files.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <atomic>
#include <mutex>
#include <string_view>

namespace qv::platform {

namespace {

// Shared-memory names allow one leading slash and no other.
std::string ObjectName(const char* base, const char* suffix) {
    std::string name = "/";
    name += base;
    for (char c : GetEnv(kEnvNamespace)) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
        name += plain ? c : '_';
    }
    name += suffix;
    return name;
}

// Who may use what the library puts on the machine. The users meant to share
// sensors are the members of the data directory's group, when that directory
// is marked shared by its set-group-id bit (tools/install-permissions.sh makes
// it so, for the group "qvpower"); everything is then 0660 (directories 2770)
// in that group. Without the mark only the owner gets in (0600, 0700). Nobody
// else ever does, and the umask is not allowed to decide either way.
struct Access {
    bool shared = false;
    gid_t group = 0;
};

Access DataAccess() {
    Access access;
    struct stat st {};
    if (stat(DataDirectory().c_str(), &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & S_ISGID)) {
        access.shared = true;
        access.group = st.st_gid;
    }
    return access;
}

mode_t FileMode(const Access& access) { return access.shared ? 0660 : 0600; }

// Gives an object or file we created the access above. An object found
// already there is used only when it lets in nobody beyond that: one left
// open to everybody, or one the wrong group shares, is tightened when it is
// ours and refused (false) when it belongs to someone else.
bool ApplyAccess(int fd, const Access& access) {
    struct stat st {};
    if (fstat(fd, &st) != 0) return false;
    const mode_t mode = FileMode(access);
    const bool groupOk = !(st.st_mode & 0070) || (access.shared && st.st_gid == access.group);
    if ((st.st_mode & 07777) == mode && groupOk) return true;
    if (st.st_uid != geteuid()) return !(st.st_mode & 0007) && groupOk;
    if (access.shared && st.st_gid != access.group && fchown(fd, static_cast<uid_t>(-1), access.group) != 0)
        return fchmod(fd, 0600) == 0;  // not a member of that group: keep it to ourselves
    return fchmod(fd, mode) == 0;
}

int OpenObject(const std::string& name, int flags) {
    int fd = shm_open(name.c_str(), flags | O_CLOEXEC, 0600);
    if (fd >= 0 && !ApplyAccess(fd, DataAccess())) {
        close(fd);
        fd = -1;
        errno = EACCES;
    }
    return fd;
}

int FlockRetry(int fd, int op) {
    int rc;
    do {
        rc = flock(fd, op);
    } while (rc != 0 && errno == EINTR);
    return rc;
}

// Takes the flock exclusively, waiting at most `timeoutMs`: its holder may be a
// process stopped in the middle of its load, which must not hang this one.
bool FlockExclusiveWithin(int fd, std::uint32_t timeoutMs) {
    const std::uint32_t start = TickMs();
    for (std::uint32_t pause = 1;; pause = std::min<std::uint32_t>(pause * 2, 20)) {
        if (FlockRetry(fd, LOCK_EX | LOCK_NB) == 0) return true;
        if (errno != EWOULDBLOCK || TickMs() - start >= timeoutMs) return false;
        SleepMs(pause);
    }
}

// Takes the guard that serialises attaches and detaches: its object, locked
// exclusively, that is still the one its name leads to. The last detach
// removes the name while holding it, so a lock won on a removed object
// serialises nothing and is given up for the object now at the name. -1 when
// it cannot be had within kAttachWaitMs.
int AcquireGuard(const std::string& name) {
    const std::uint32_t start = TickMs();
    for (;;) {
        const std::uint32_t spent = TickMs() - start;
        if (spent >= kAttachWaitMs) break;
        const int fd = OpenObject(name, O_RDWR | O_CREAT);
        if (fd < 0) break;
        if (!FlockExclusiveWithin(fd, kAttachWaitMs - spent)) {
            close(fd);
            break;
        }
        const int current = OpenObject(name, O_RDWR);
        struct stat held {}, named {};
        const bool same = current >= 0 && fstat(fd, &held) == 0 && fstat(current, &named) == 0 &&
                          held.st_dev == named.st_dev && held.st_ino == named.st_ino;
        if (current >= 0) close(current);
        if (same) return fd;
        close(fd);
    }
    Log("the library's attach guard %s could not be had within %u ms", name.c_str(), kAttachWaitMs);
    return -1;
}

void ReleaseGuard(int fd) {
    FlockRetry(fd, LOCK_UN);
    close(fd);
}

// A name kept in a global: plain storage, because the unload notification
// may run after the process's static objects have been destroyed.
struct ObjectNameBuffer {
    char text[256] = {};
    void Set(const std::string& name) {
        std::snprintf(text, sizeof text, "%s", name.c_str());
    }
    std::string Get() const { return text; }
    const char* c_str() const { return text; }
};

// Per-process attachment state; touched only by the load and unload
// notifications, which the dynamic loader serialises within a process.
struct Attachment {
    ObjectNameBuffer guardName;
    ObjectNameBuffer presenceName;
    ObjectNameBuffer blockName;
    int presenceFd = -1;
    void* base = nullptr;
    std::size_t size = 0;
};
Attachment g_attachment;

void* MapObject(int fd, std::size_t size) {
    void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return p == MAP_FAILED ? nullptr : p;
}

// ---------------------------------------------------------------- lock object

struct LockObject {
    std::uint32_t magic;
    std::uint32_t ready;
    pthread_mutex_t mutex;
};
constexpr std::uint32_t kLockMagic = 0x51564d58;  // "QVMX"

// The lock's mapping, made once per process on first open and kept: while this
// process is attached the object cannot be replaced (only the last detach
// destroys it), so a cached view is always the current one.
std::mutex g_lockMapGuard;
ObjectNameBuffer g_lockMapName;
LockObject* g_lockMap = nullptr;

LockObject* MapLock(const std::string& name, bool create) {
    const int fd = OpenObject(name, create ? (O_RDWR | O_CREAT | O_TRUNC) : O_RDWR);
    if (fd < 0) return nullptr;
    if (create && ftruncate(fd, sizeof(LockObject)) != 0) {
        close(fd);
        return nullptr;
    }
    struct stat st {};
    if (fstat(fd, &st) != 0 || static_cast<std::size_t>(st.st_size) < sizeof(LockObject)) {
        close(fd);
        return nullptr;
    }
    auto* lock = static_cast<LockObject*>(MapObject(fd, sizeof(LockObject)));
    close(fd);
    return lock;
}

}  // namespace

std::string GetEnv(const char* name) {
    const char* value = std::getenv(name);
    return value ? std::string(value) : std::string();
}

std::string LastErrorText() { return std::strerror(errno); }

// ---------------------------------------------------------------- shared block

SharedAttach SharedBlockAttach(const char* name, std::size_t size,
                               void (*setUp)(void* base, bool created)) {
    SharedAttach result;
    Attachment& a = g_attachment;
    a.guardName.Set(ObjectName(name, ".guard"));
    a.presenceName.Set(ObjectName(name, ".live"));
    a.blockName.Set(ObjectName(name, ""));
    a.size = size;

    const int guardFd = AcquireGuard(a.guardName.Get());
    if (guardFd < 0) return result;
    a.presenceFd = OpenObject(a.presenceName.Get(), O_RDWR | O_CREAT);
    if (a.presenceFd >= 0) {
        const bool alone = FlockRetry(a.presenceFd, LOCK_EX | LOCK_NB) == 0;
        int blockFd = -1;
        if (!alone) blockFd = OpenObject(a.blockName.Get(), O_RDWR);
        if (blockFd < 0) {
            // Nobody alive (or a live process lost the block): start afresh.
            // A block left by processes that were killed is discarded here.
            shm_unlink(a.blockName.c_str());
            blockFd = OpenObject(a.blockName.Get(), O_RDWR | O_CREAT | O_EXCL);
            if (blockFd >= 0 && ftruncate(blockFd, static_cast<off_t>(size)) != 0) {
                close(blockFd);
                blockFd = -1;
            }
            result.created = true;
        }
        if (blockFd >= 0) {
            struct stat st {};
            if (fstat(blockFd, &st) == 0 && static_cast<std::size_t>(st.st_size) >= size)
                a.base = MapObject(blockFd, size);
            close(blockFd);
        }
        // Held shared for the life of the attachment (converted from the
        // exclusive probe when we were alone; the guard makes that safe).
        if (a.base && FlockRetry(a.presenceFd, LOCK_SH) == 0) {
            result.base = a.base;
            setUp(a.base, result.created);
        } else {
            if (a.base) munmap(a.base, size);
            a.base = nullptr;
            result.created = false;
            close(a.presenceFd);
            a.presenceFd = -1;
        }
    }
    ReleaseGuard(guardFd);
    return result;
}

void SharedBlockDetach(void (*tearDown)(void* base, bool last)) {
    Attachment& a = g_attachment;
    if (!a.base) return;
    const int guardFd = AcquireGuard(a.guardName.Get());
    // Trying to upgrade to exclusive tells whether anyone else is still alive.
    const bool last = guardFd >= 0 && FlockRetry(a.presenceFd, LOCK_EX | LOCK_NB) == 0;
    tearDown(a.base, last);
    munmap(a.base, a.size);
    a.base = nullptr;
    if (last) {
        // Nothing of the namespace stays behind. The guard's name goes last,
        // while it is still held: a process waiting on the old guard finds,
        // once it has it, that the name no longer leads to it and starts over
        // on a new one (AcquireGuard), so attaches stay serialised.
        shm_unlink(a.blockName.c_str());
        shm_unlink(a.presenceName.c_str());
        shm_unlink(a.guardName.c_str());
    }
    close(a.presenceFd);
    a.presenceFd = -1;
    if (guardFd >= 0) ReleaseGuard(guardFd);
}

// ---------------------------------------------------------------- machine-wide lock

std::uint64_t LockCreate(const char* name) {
    const std::string objectName = ObjectName(name, "");
    std::lock_guard<std::mutex> guard(g_lockMapGuard);
    if (g_lockMap) {
        munmap(g_lockMap, sizeof(LockObject));
        g_lockMap = nullptr;
    }
    LockObject* lock = MapLock(objectName, true);
    if (!lock) return 0;
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    const int rc = pthread_mutex_init(&lock->mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    if (rc != 0) {
        munmap(lock, sizeof(LockObject));
        shm_unlink(objectName.c_str());
        return 0;
    }
    lock->magic = kLockMagic;
    lock->ready = 1;
    g_lockMap = lock;
    g_lockMapName.Set(objectName);
    return 1;  // the object is found by name; the value only marks "created"
}

void LockDestroy(std::uint64_t created) {
    std::lock_guard<std::mutex> guard(g_lockMapGuard);
    if (created == 0) return;
    if (g_lockMap) {
        munmap(g_lockMap, sizeof(LockObject));
        g_lockMap = nullptr;
    }
    if (g_lockMapName.text[0]) shm_unlink(g_lockMapName.c_str());
}

bool LockAdopt(const char* name) {
    // The lock object lives until the last detach unlinks it: nothing to hold,
    // but its name is kept, for this process may be that last one without
    // ever having opened the lock.
    std::lock_guard<std::mutex> guard(g_lockMapGuard);
    if (!g_lockMapName.text[0]) g_lockMapName.Set(ObjectName(name, ""));
    return true;
}

LockRef LockOpen(const char* name) {
    std::lock_guard<std::mutex> guard(g_lockMapGuard);
    if (!g_lockMap) {
        const std::string objectName = ObjectName(name, "");
        LockObject* lock = MapLock(objectName, false);
        if (!lock) return 0;
        if (lock->magic != kLockMagic || lock->ready != 1) {
            munmap(lock, sizeof(LockObject));
            return 0;
        }
        g_lockMap = lock;
        g_lockMapName.Set(objectName);
    }
    return reinterpret_cast<LockRef>(g_lockMap);
}

LockWaitResult LockWait(LockRef ref, std::uint32_t timeoutMs) {
    auto* lock = reinterpret_cast<LockObject*>(ref);
    if (!lock) return LockWaitResult::kFailed;
    timespec deadline {};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += static_cast<time_t>(timeoutMs / 1000);
    deadline.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000L;
    }
    int rc;
    do {
        rc = pthread_mutex_clocklock(&lock->mutex, CLOCK_MONOTONIC, &deadline);
    } while (rc == EINTR);
    switch (rc) {
        case 0:
            return LockWaitResult::kAcquired;
        case EOWNERDEAD:
            pthread_mutex_consistent(&lock->mutex);
            return LockWaitResult::kAcquiredAbandoned;
        case ETIMEDOUT:
            return LockWaitResult::kTimedOut;
        default:
            return LockWaitResult::kFailed;
    }
}

void LockRelease(LockRef ref) {
    auto* lock = reinterpret_cast<LockObject*>(ref);
    if (lock) pthread_mutex_unlock(&lock->mutex);
}

void LockClose(LockRef) {
    // The mapping is kept for the life of the attachment (see LockOpen).
}

// ---------------------------------------------------------------- processes and time

std::uint32_t CurrentProcessId() { return static_cast<std::uint32_t>(getpid()); }

std::vector<std::uint32_t> RunningProcessIds(std::size_t max) {
    std::vector<std::uint32_t> ids;
    DIR* dir = opendir("/proc");
    if (!dir) return ids;
    while (dirent* entry = readdir(dir)) {
        if (ids.size() >= max) break;
        char* end = nullptr;
        const unsigned long pid = std::strtoul(entry->d_name, &end, 10);
        if (end == entry->d_name || *end != '\0' || pid == 0) continue;
        // A zombie has exited: it no longer counts as running.
        char statPath[64];
        std::snprintf(statPath, sizeof statPath, "/proc/%lu/stat", pid);
        if (FILE* f = std::fopen(statPath, "r")) {
            char buffer[512];
            const size_t n = std::fread(buffer, 1, sizeof buffer - 1, f);
            std::fclose(f);
            buffer[n] = '\0';
            const char* close = std::strrchr(buffer, ')');
            if (close && close[1] == ' ' && close[2] == 'Z') continue;
        }
        ids.push_back(static_cast<std::uint32_t>(pid));
    }
    closedir(dir);
    return ids;
}

void SleepMs(std::uint32_t ms) {
    timespec t {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&t, &t) != 0 && errno == EINTR) {
    }
}

std::uint32_t TickMs() {
    timespec t {};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(t.tv_sec) * 1000u +
                                      static_cast<std::uint64_t>(t.tv_nsec) / 1000000u);
}

// ---------------------------------------------------------------- dynamic libraries

namespace {
void DetachAtExit() { qv::frame::ProcessDetach(); }
}  // namespace

namespace {
thread_local char t_loadError[512];
}  // namespace

std::string LibraryLoadError() { return t_loadError; }

std::uintptr_t LibraryLoad(const char* file) {
    void* library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        const char* reason = dlerror();
        std::snprintf(t_loadError, sizeof t_loadError, "%s", reason ? reason : "unknown reason");
    }
    // At exit the loaded library's static objects are destroyed before our
    // destructor runs, and calling it then crashes. Exit handlers run in the
    // reverse order of their registration, so one registered now detaches
    // this process (closing its handles) while the library still works. At
    // dlclose it runs too, as part of our own unloading; detaching twice does
    // nothing.
    if (library) std::atexit(DetachAtExit);
    return reinterpret_cast<std::uintptr_t>(library);
}

void* LibrarySymbol(std::uintptr_t library, const char* name) {
    if (!library) return nullptr;
    return dlsym(reinterpret_cast<void*>(library), name);
}

void LibraryUnload(std::uintptr_t library) {
    if (library) dlclose(reinterpret_cast<void*>(library));
}

// Our own driver library on libusb (usb/), found by the dynamic loader.
const char* DefaultDriverFile() { return "libqvusbdrvd.so"; }

// Never needed here: at exit the process detaches from an exit handler while the
// driver library still works (see LibraryLoad).
bool ProcessEnding() { return false; }

// ---------------------------------------------------------------- files

namespace {

std::string WithoutTrailingSlashes(std::string dir) {
    while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
    return dir;
}

// Writable by this process: an existing directory it may create files in, or
// a missing one whose nearest existing ancestor is such a directory (the first
// write makes it). `why` gets the system's reason when not.
bool DirectoryWritable(const std::string& dir, std::string& why) {
    std::string probe = dir;
    for (;;) {
        struct stat st {};
        if (stat(probe.c_str(), &st) == 0) {
            if (!S_ISDIR(st.st_mode)) {
                why = probe + " is not a directory";
                return false;
            }
            if (access(probe.c_str(), W_OK | X_OK) == 0) return true;
            why = probe + ": " + LastErrorText();
            return false;
        }
        if (errno != ENOENT) {
            why = probe + ": " + LastErrorText();
            return false;
        }
        const std::size_t slash = probe.rfind('/');
        if (slash == std::string::npos || slash == 0) {
            probe = slash == 0 ? "/" : ".";
            continue;
        }
        probe.resize(slash);
    }
}

// $XDG_STATE_HOME when it is an absolute path (relative ones are to be
// ignored), else ~/.local/state; empty without a home.
std::string UserStateDirectory() {
    const std::string xdg = GetEnv("XDG_STATE_HOME");
    if (!xdg.empty() && xdg[0] == '/') return WithoutTrailingSlashes(xdg);
    const std::string home = GetEnv("HOME");
    if (home.empty() || home[0] != '/') return {};
    return WithoutTrailingSlashes(home) + "/.local/state";
}

}  // namespace

std::string DefaultDataDirectory(const std::string& preferred) {
    std::string why;
    if (DirectoryWritable(preferred, why)) return preferred;
    // Said once per process: the choice is made again for every file.
    static std::atomic<bool> told {false};
    const std::string state = UserStateDirectory();
    if (state.empty()) {
        if (LogEnabled() && !told.exchange(true))
            Log("data directory %s is not writable (%s), and there is no home directory to use instead",
                preferred.c_str(), why.c_str());
        return preferred;
    }
    const std::string fallback = state + "/qv_api2";
    if (LogEnabled() && !told.exchange(true))
        Log("data directory %s is not writable (%s); using %s", preferred.c_str(), why.c_str(),
            fallback.c_str());
    return fallback;
}

std::string DataDirectory() {
    const std::string dir = GetEnv(kEnvDataDir);
    if (!dir.empty()) return WithoutTrailingSlashes(dir);
    return DefaultDataDirectory("/var/lib/qv_api2");
}

std::string JoinPath(const std::string& directory, const std::string& file) {
    if (directory.empty()) return file;
    if (directory.back() == '/') return directory + file;
    return directory + "/" + file;
}

FileRead ReadFile(const std::string& path, std::vector<std::uint8_t>& contents,
                  std::size_t maxBytes) {
    contents.clear();
    // O_NONBLOCK: a FIFO put at the path opens at once instead of waiting for a
    // writer; it is then refused as not regular. O_NOFOLLOW: a link is refused.
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return errno == ENOENT || errno == ENOTDIR ? FileRead::kMissing : FileRead::kRefused;
    FileRead result = FileRead::kRefused;
    struct stat st {};
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size >= 0 &&
        static_cast<std::uint64_t>(st.st_size) <= maxBytes) {
        try {
            contents.resize(static_cast<std::size_t>(st.st_size));
            // At most the size seen: a file that grows meanwhile is read as it was.
            std::size_t done = 0;
            bool ok = true;
            while (done < contents.size()) {
                const ssize_t n = read(fd, contents.data() + done, contents.size() - done);
                if (n < 0 && errno == EINTR) continue;
                if (n < 0) ok = false;
                if (n <= 0) break;
                done += static_cast<std::size_t>(n);
            }
            contents.resize(done);
            if (ok) result = FileRead::kRead;
        } catch (...) {
        }
    }
    close(fd);
    if (result != FileRead::kRead) contents.clear();
    return result;
}

namespace {
// Directories made here inherit the set-group-id mark and group of a shared
// parent (the kernel does that); the mode is set explicitly so that no umask
// opens or closes them for the group.
void MakeParents(const std::string& path) {
    for (std::size_t i = 1; i < path.size(); ++i) {
        if (path[i] != '/') continue;
        const std::string prefix = path.substr(0, i);
        if (mkdir(prefix.c_str(), 0700) != 0) continue;
        struct stat st {};
        if (stat(prefix.c_str(), &st) == 0)
            chmod(prefix.c_str(), (st.st_mode & S_ISGID) ? 02770 : 0700);
    }
}

std::uint64_t RandomValue() {
    std::uint64_t value = 0;
    if (getrandom(&value, sizeof value, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof value))
        return value;
    // No entropy yet (early boot): unique still, and the file is created exclusively.
    static std::atomic<std::uint64_t> counter {0};
    timespec t {};
    clock_gettime(CLOCK_REALTIME, &t);
    return (static_cast<std::uint64_t>(t.tv_sec) << 32) ^ static_cast<std::uint64_t>(t.tv_nsec) ^
           (static_cast<std::uint64_t>(getpid()) << 20) ^ (counter++ * 0x9E3779B97F4A7C15ull);
}

bool ProcessRunning(std::uint32_t pid) {
    if (pid == 0 || pid > static_cast<std::uint32_t>(INT32_MAX)) return false;
    return kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

// Removes the temporary files in the directory of `path` whose writer has ended
// (killed between creating and renaming them). Regular files only.
void RemoveLeftoverTemporaries(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash);
    DIR* dir = opendir(directory.empty() ? "/" : directory.c_str());
    if (!dir) return;
    const int dirFd = dirfd(dir);
    while (dirent* entry = readdir(dir)) {
        std::uint32_t pid = 0;
        if (!ParseTemporaryName(entry->d_name, &pid) || ProcessRunning(pid)) continue;
        struct stat st {};
        if (fstatat(dirFd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode))
            unlinkat(dirFd, entry->d_name, 0);
    }
    closedir(dir);
}
}  // namespace

bool WriteFileAtomic(const std::string& path, const void* data, std::size_t size) {
    MakeParents(path);
    RemoveLeftoverTemporaries(path);
    // A new file under a fresh random name: O_EXCL and O_NOFOLLOW make sure that
    // nothing already there (a link planted by someone else) is written through.
    std::string temp;
    int fd = -1;
    for (int attempt = 0; attempt < 8 && fd < 0; ++attempt) {
        temp = TemporaryName(path, CurrentProcessId(), RandomValue());
        fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && errno != EEXIST) break;
    }
    const std::size_t slash = path.rfind('/');
    const std::string parent = slash == std::string::npos ? "." : path.substr(0, slash);
    if (fd < 0) {
        // Mostly a data directory that cannot be made or written.
        const std::string why = LastErrorText();
        Log("cannot write %s: directory %s cannot be made or written (%s)", path.c_str(),
            parent.c_str(), why.c_str());
        return false;
    }
    // A file in a shared directory already has the directory's group.
    {
        struct stat dir {};
        const bool shared = stat((parent + "/").c_str(), &dir) == 0 && (dir.st_mode & S_ISGID);
        fchmod(fd, shared ? 0660 : 0600);
    }
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    std::size_t done = 0;
    bool ok = true;
    while (done < size) {
        const ssize_t n = write(fd, bytes + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ok = false;
            break;
        }
        done += static_cast<std::size_t>(n);
    }
    if (ok && fsync(fd) != 0) ok = false;
    if (close(fd) != 0) ok = false;
    // rename replaces whatever is at the target, a link included, without following it.
    if (ok && rename(temp.c_str(), path.c_str()) != 0) ok = false;
    if (!ok) {
        Log("cannot write %s (%s)", path.c_str(), LastErrorText().c_str());
        unlink(temp.c_str());
    }
    return ok;
}

bool FileExists(const std::string& path) {
    struct stat st {};
    return lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool RemoveFile(const std::string& path) { return unlink(path.c_str()) == 0; }

namespace {
// '*' any run of characters, '?' one; everything else itself.
bool MatchesPattern(std::string_view name, std::string_view pattern) {
    std::size_t n = 0, p = 0;
    std::size_t starP = std::string_view::npos, starN = 0;
    while (n < name.size()) {
        if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == name[n])) {
            ++n;
            ++p;
        } else if (p < pattern.size() && pattern[p] == '*') {
            starP = p++;
            starN = n;
        } else if (starP != std::string_view::npos) {
            p = starP + 1;
            n = ++starN;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
}
}  // namespace

std::vector<std::string> FindFiles(const std::string& pattern) {
    std::vector<std::string> names;
    const std::size_t slash = pattern.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : pattern.substr(0, slash + 1);
    const std::string_view namePattern =
        std::string_view(pattern).substr(slash == std::string::npos ? 0 : slash + 1);
    DIR* dir = opendir(directory.c_str());
    if (!dir) return names;
    while (dirent* entry = readdir(dir)) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == ".." || !MatchesPattern(name, namePattern)) continue;
        if (entry->d_type == DT_DIR) continue;
        if (entry->d_type == DT_UNKNOWN) {
            struct stat st {};
            const std::string path = directory + entry->d_name;
            if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) continue;
        }
        names.emplace_back(name);
    }
    closedir(dir);
    // readdir's order is arbitrary; a stable one makes listings repeatable.
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace qv::platform

// Load and unload notifications of the library.
__attribute__((constructor)) static void QvLibraryLoaded() { qv::frame::ProcessAttach(); }
__attribute__((destructor)) static void QvLibraryUnloaded() { qv::frame::ProcessDetach(); }
