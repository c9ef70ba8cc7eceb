#include "qvpower_os.h"

#include <windows.h>

#include <cstdlib>

namespace qvpower {

namespace {
std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string ErrorText(DWORD code) {
    char text[256] = {};
    DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0, text,
                             sizeof text, nullptr);
    while (n > 0 && (text[n - 1] == '\r' || text[n - 1] == '\n' || text[n - 1] == '.')) text[--n] = '\0';
    return n > 0 ? std::string(text, n) : "error " + std::to_string(code);
}
}  // namespace

std::string DriverFile() {
    const std::string file = Env("QV_USBDRVD");
    return file.empty() ? "QVUSBDRVD.dll" : file;
}

DriverProbe ProbeDriver(const std::string& file, const std::vector<std::string>& functions) {
    DriverProbe probe;
    HMODULE library = LoadLibraryA(file.c_str());
    if (!library) {
        probe.reason = ErrorText(GetLastError());
        return probe;
    }
    probe.loaded = true;
    for (const std::string& name : functions)
        if (!GetProcAddress(library, name.c_str())) probe.missing.push_back(name);
    FreeLibrary(library);
    return probe;
}

// The library's rule: $QV_API2_DATA_DIR, else the system directory.
std::string DataDirectory() {
    const std::string set = Env("QV_API2_DATA_DIR");
    if (!set.empty()) return set;
    char system[MAX_PATH + 1];
    const UINT n = GetSystemDirectoryA(system, sizeof system);
    return n > 0 && n < sizeof system ? std::string(system, n) : std::string();
}

// WinUSB needs no permission of its own: nothing to tell.
std::string UsbAccessHint() { return {}; }

}  // namespace qvpower
