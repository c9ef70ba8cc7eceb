#include "support/os_hazards.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace qv::test {

bool MakeSymbolicLink(const std::string& target, const std::string& link) {
    return symlink(target.c_str(), link.c_str()) == 0;
}

bool MakeFifo(const std::string& path) { return mkfifo(path.c_str(), 0666) == 0; }

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
