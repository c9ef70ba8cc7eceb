#include "support/os_hazards.h"

#include <windows.h>

#include <cstdlib>

namespace qv::test {

bool MakeSymbolicLink(const std::string& target, const std::string& link) {
    if (!CreateSymbolicLinkA(link.c_str(), target.c_str(), 0)) return false;
    // Wine makes a host link whose target the host cannot resolve: no use here.
    if (GetFileAttributesA(link.c_str()) != INVALID_FILE_ATTRIBUTES) return true;
    DeleteFileA(link.c_str());
    return false;
}

bool MakeFifo(const std::string&) { return false; }

// Windows objects carry security descriptors instead (see platform_win32.cpp).
FileAccess AccessOf(const std::string&) { return {}; }
bool SetAccess(const std::string&, std::uint32_t, std::uint32_t, std::uint32_t) { return false; }
std::uint32_t SetFileMask(std::uint32_t) { return 0; }
bool RunningAsRoot() { return false; }

bool LimitFileSize(long) { return false; }
ReadOnlyDirectory::ReadOnlyDirectory(const std::string& path) : path_(path) {}
ReadOnlyDirectory::~ReadOnlyDirectory() {}

// The guard is the named mutex "Local\<block><namespace>.guard".
AttachGuardHolder::AttachGuardHolder() {
    const char* ns = std::getenv("QV_API2_NAMESPACE");
    const std::string name = std::string("Local\\qv_api2_shared_vars") + (ns ? ns : "") + ".guard";
    HANDLE mutex = CreateMutexA(nullptr, FALSE, name.c_str());
    handle_ = reinterpret_cast<std::intptr_t>(mutex);
    if (!mutex) handle_ = -1;
    const DWORD waited = mutex ? WaitForSingleObject(mutex, INFINITE) : WAIT_FAILED;
    held_ = waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED;
}

AttachGuardHolder::~AttachGuardHolder() {
    if (handle_ == -1) return;
    HANDLE mutex = reinterpret_cast<HANDLE>(handle_);
    if (held_) ReleaseMutex(mutex);
    CloseHandle(mutex);
}

}  // namespace qv::test
