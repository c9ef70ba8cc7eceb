#include "support/os_hazards.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dirent.h>

#include <csignal>
#include <cstdlib>
#include <fstream>

namespace qv::test {

bool MakeSymbolicLink(const std::string& target, const std::string& link) {
    return symlink(target.c_str(), link.c_str()) == 0;
}

bool MakeFifo(const std::string& path) { return mkfifo(path.c_str(), 0666) == 0; }

FileAccess AccessOf(const std::string& path) {
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0) return {};
    return {true, st.st_uid, st.st_gid, static_cast<std::uint32_t>(st.st_mode & 07777)};
}

bool SetAccess(const std::string& path, std::uint32_t uid, std::uint32_t gid, std::uint32_t mode) {
    return chown(path.c_str(), uid, gid) == 0 && chmod(path.c_str(), mode) == 0;
}

std::uint32_t SetFileMask(std::uint32_t mask) { return umask(static_cast<mode_t>(mask)); }

bool RunningAsRoot() { return geteuid() == 0; }

bool LimitFileSize(long bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit {static_cast<rlim_t>(bytes), static_cast<rlim_t>(bytes)};
    return setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

namespace {
bool Writable(const std::string& dir) {
    const std::string probe = dir + "/.probe";
    const int fd = open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (fd < 0) return false;
    close(fd);
    unlink(probe.c_str());
    return true;
}
}  // namespace

ReadOnlyDirectory::ReadOnlyDirectory(const std::string& path) : path_(path) {
    chmod(path.c_str(), 0555);
    if (Writable(path) && mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0) {
        mounted_ = true;
        mount(nullptr, path.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr);
    }
    held_ = !Writable(path);
}

ReadOnlyDirectory::~ReadOnlyDirectory() {
    if (mounted_) umount(path_.c_str());
    chmod(path_.c_str(), 0700);
}

// The guard is the flock on the shared-memory object "<block><namespace>.guard".
AttachGuardHolder::AttachGuardHolder() {
    const char* ns = std::getenv("QV_API2_NAMESPACE");
    const std::string name = std::string("/qv_api2_shared_vars") + (ns ? ns : "") + ".guard";
    const int fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    handle_ = fd;
    held_ = fd >= 0 && flock(fd, LOCK_EX) == 0;
}

AttachGuardHolder::~AttachGuardHolder() {
    if (handle_ >= 0) close(static_cast<int>(handle_));
}

}  // namespace qv::test
