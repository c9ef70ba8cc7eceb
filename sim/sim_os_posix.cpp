// POSIX implementation of sim_os.h: mmap of a regular file, a robust
// process-shared pthread mutex, kill(pid, 0) and nanosleep.
#include "sim_os.h"

#include <cerrno>
#include <csignal>
#include <cstdio>  // rename
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qvsim::os {

static_assert(sizeof(pthread_mutex_t) <= kSharedLockBytes, "lock storage too small");

namespace {

bool MapDescriptor(int fd, std::size_t size, MappedFile* out) {
    void* base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (base == MAP_FAILED) return false;
    out->base = base;
    out->size = size;
    return true;
}

}  // namespace

bool CreateMappedFile(const char* path, std::size_t size, InitMapping init, void* context,
                      MappedFile* out) {
    // Built under a private name and renamed into place: processes still mapping
    // an older bus keep it, new ones never see a half-made file.
    const std::string temporary =
        std::string(path) + ".new." + std::to_string(static_cast<unsigned long>(getpid()));
    int fd = open(temporary.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    MappedFile mapped;
    const bool ok = ftruncate(fd, static_cast<off_t>(size)) == 0 && MapDescriptor(fd, size, &mapped);
    close(fd);
    if (!ok) {
        unlink(temporary.c_str());
        return false;
    }
    init(mapped.base, size, context);
    if (rename(temporary.c_str(), path) != 0) {
        CloseMappedFile(&mapped);
        unlink(temporary.c_str());
        return false;
    }
    *out = mapped;
    return true;
}

bool OpenMappedFile(const char* path, std::size_t minimumSize, MappedFile* out) {
    int fd = open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat info {};
    bool ok = fstat(fd, &info) == 0 && static_cast<std::size_t>(info.st_size) >= minimumSize &&
              info.st_size > 0 && MapDescriptor(fd, static_cast<std::size_t>(info.st_size), out);
    close(fd);
    return ok;
}

void CloseMappedFile(MappedFile* file) {
    if (file->base != nullptr) munmap(file->base, file->size);
    file->base = nullptr;
    file->size = 0;
}

bool InitSharedLock(void* storage) {
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0) return false;
    bool ok = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0 &&
              pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
              pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0 &&
              pthread_mutex_init(static_cast<pthread_mutex_t*>(storage), &attributes) == 0;
    pthread_mutexattr_destroy(&attributes);
    return ok;
}

LockResult LockShared(void* storage) {
    auto* mutex = static_cast<pthread_mutex_t*>(storage);
    const int rc = pthread_mutex_lock(mutex);
    if (rc == 0) return LockResult::Acquired;
    if (rc == EOWNERDEAD) {
        pthread_mutex_consistent(mutex);
        return LockResult::AcquiredAfterOwnerDied;
    }
    return LockResult::Failed;
}

void UnlockShared(void* storage) { pthread_mutex_unlock(static_cast<pthread_mutex_t*>(storage)); }

std::uint32_t CurrentProcessId() { return static_cast<std::uint32_t>(getpid()); }

bool ProcessAlive(std::uint32_t pid) {
    if (pid == 0) return false;
    return kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH;
}

void SleepMicroseconds(std::uint64_t micros) {
    timespec wait{static_cast<time_t>(micros / 1000000), static_cast<long>(micros % 1000000) * 1000};
    while (nanosleep(&wait, &wait) != 0 && errno == EINTR) {
    }
}

std::uint64_t UniqueStamp() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return (static_cast<std::uint64_t>(now.tv_sec) * 1000000000u + static_cast<std::uint64_t>(now.tv_nsec)) ^
           (static_cast<std::uint64_t>(getpid()) << 48);
}

}  // namespace qvsim::os
