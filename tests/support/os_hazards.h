// What another local user or a stuck process can put in the library's way
// (os_hazards_posix.cpp, os_hazards_win32.cpp).
#pragma once

#include <cstdint>
#include <string>

namespace qv::test {

// A symbolic link at `link` to `target`; false where none that reaches its
// target can be made (Windows without the privilege, Wine).
bool MakeSymbolicLink(const std::string& target, const std::string& link);

// A FIFO at `path`; false where there are none (Windows).
bool MakeFifo(const std::string& path);

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
