// What another local user or a stuck process can put in the library's way
// (os_hazards_posix.cpp, os_hazards_win32.cpp).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qv::test {

// A symbolic link at `link` to `target`; false where none that reaches its
// target can be made (Windows without the privilege, Wine).
bool MakeSymbolicLink(const std::string& target, const std::string& link);

// A FIFO at `path`; false where there are none (Windows).
bool MakeFifo(const std::string& path);

// Owner, group and permission bits (with set-group-id) of a file, directory or
// shared-memory object path; `found` false where there is no such notion (Windows).
struct FileAccess {
    bool found = false;
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::uint32_t mode = 0;
};
FileAccess AccessOf(const std::string& path);

// Makes `path` owned by `uid`:`gid` with permission bits `mode`; false on failure.
bool SetAccess(const std::string& path, std::uint32_t uid, std::uint32_t gid, std::uint32_t mode);

// The process's file creation mask; the previous one.
std::uint32_t SetFileMask(std::uint32_t mask);

bool RunningAsRoot();

// No file of this process may grow beyond `bytes`, as on a full disk: writes
// past it fail (POSIX: RLIMIT_FSIZE, its signal ignored). False where unavailable.
bool LimitFileSize(long bytes);

// Makes a directory read-only for this process, even for root (a read-only
// bind mount then); undone on destruction. Held() false when it cannot be done.
class ReadOnlyDirectory {
public:
    explicit ReadOnlyDirectory(const std::string& path);
    ~ReadOnlyDirectory();
    ReadOnlyDirectory(const ReadOnlyDirectory&) = delete;
    ReadOnlyDirectory& operator=(const ReadOnlyDirectory&) = delete;
    bool Held() const { return held_; }

private:
    std::string path_;
    bool mounted_ = false;
    bool held_ = false;
};

// Holds the library's attach guard of this process's namespace, as a process
// stopped in the middle of loading the library would, for its lifetime.
class AttachGuardHolder {
public:
    AttachGuardHolder();
    ~AttachGuardHolder();
    AttachGuardHolder(const AttachGuardHolder&) = delete;
    AttachGuardHolder& operator=(const AttachGuardHolder&) = delete;
    bool Held() const { return held_; }

private:
    std::intptr_t handle_ = -1;
    bool held_ = false;
};

}  // namespace qv::test
