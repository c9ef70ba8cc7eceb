// Diagnostic lines (QV_API2_LOG), the same on every platform: stdio only.
#include "platform/platform.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace qv::platform {

namespace {

// Plain storage: set from the load notification, possibly before the
// library's static objects are constructed.
std::atomic<bool> g_enabled {false};
bool g_toStderr = false;
char g_path[4096] = {};

}  // namespace

void LogSetUp() {
    const std::string target = GetEnv(kEnvLog);
    g_toStderr = target == "stderr";
    std::snprintf(g_path, sizeof g_path, "%s", g_toStderr ? "" : target.c_str());
    g_enabled.store(!target.empty() && target.size() < sizeof g_path, std::memory_order_release);
}

bool LogEnabled() { return g_enabled.load(std::memory_order_relaxed); }

void Log(const char* format, ...) {
    if (!LogEnabled()) return;
    char line[1024];
    int n = std::snprintf(line, sizeof line, "qv_api2[%u]: ", CurrentProcessId());
    if (n < 0) return;
    va_list args;
    va_start(args, format);
    const int m = std::vsnprintf(line + n, sizeof line - static_cast<std::size_t>(n), format, args);
    va_end(args);
    if (m < 0) return;
    n = static_cast<int>(std::strlen(line));
    if (n > static_cast<int>(sizeof line) - 2) n = static_cast<int>(sizeof line) - 2;
    line[n++] = '\n';
    line[n] = '\0';
    // One write per line, the file opened for appending each time: lines of
    // several processes interleave whole, and nothing stays open between events.
    if (g_toStderr) {
        std::fputs(line, stderr);
        std::fflush(stderr);
        return;
    }
    if (FILE* file = std::fopen(g_path, "a")) {
        std::fwrite(line, 1, static_cast<std::size_t>(n), file);
        std::fclose(file);
    }
}

}  // namespace qv::platform
