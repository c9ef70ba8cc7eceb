#include "platform/temporary_files.h"

#include <cstdio>

namespace qv::platform {

namespace {
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsHexDigit(char c) { return IsDigit(c) || (c >= 'a' && c <= 'f'); }
}  // namespace

std::string TemporaryName(const std::string& target, std::uint32_t pid, std::uint64_t random) {
    char suffix[48];
    std::snprintf(suffix, sizeof suffix, ".tmp%lu.%016llx", static_cast<unsigned long>(pid),
                  static_cast<unsigned long long>(random));
    return target + suffix;
}

bool ParseTemporaryName(std::string_view name, std::uint32_t* pid) {
    const std::size_t tmp = name.rfind(".tmp");
    if (tmp == std::string_view::npos || tmp == 0) return false;
    std::size_t i = tmp + 4;
    std::uint64_t value = 0;
    const std::size_t digitsStart = i;
    while (i < name.size() && IsDigit(name[i]) && i - digitsStart < 10)
        value = value * 10 + static_cast<std::uint64_t>(name[i++] - '0');
    if (i == digitsStart || value == 0 || value > 0xFFFFFFFFu) return false;
    if (i < name.size()) {
        if (name[i] != '.' || name.size() - i - 1 != 16) return false;
        for (++i; i < name.size(); ++i)
            if (!IsHexDigit(name[i])) return false;
    }
    *pid = static_cast<std::uint32_t>(value);
    return true;
}

}  // namespace qv::platform
