// Profile (INI) files, read and written the same way on every platform.
//
// The text is parsed and edited here, over the platform's ReadFile and
// WriteFileAtomic, rather than by the Windows private-profile functions, whose
// implementations differ in how they lay out a file they rewrite (Wine's drops
// blank lines and keeps a replaced key's old spelling): one reader and one
// writer give the same files everywhere, and the tests hold the code that
// ships to platform.h on both platforms.
#include <algorithm>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "platform/platform.h"

namespace qv::platform {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view Trim(std::string_view s) {
    while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
    while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
    return s;
}

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool EqualNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (Lower(a[i]) != Lower(b[i])) return false;
    return true;
}

// True when `line` opens a section; its name in `name`.
bool SectionLine(std::string_view line, std::string_view& name) {
    line = Trim(line);
    if (line.empty() || line.front() != '[') return false;
    line.remove_prefix(1);
    name = Trim(line.substr(0, line.find(']')));
    return true;
}

// True when `line` is "key=value" (not a section line).
bool KeyLine(std::string_view line, std::string_view& key, std::string_view& value) {
    std::string_view section;
    if (SectionLine(line, section)) return false;
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return false;
    key = Trim(line.substr(0, equals));
    value = Trim(line.substr(equals + 1));
    return true;
}

// The file as lines without their ends. A missing file is empty; false when
// the file exists but cannot be read.
bool LoadProfile(const std::string& path, std::vector<std::string>& lines) {
    lines.clear();
    std::vector<std::uint8_t> bytes;
    if (!ReadFile(path, bytes)) return !FileExists(path);
    std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    // Editors may put a UTF-8 byte-order mark in front; it is not part of
    // the first line.
    if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        lines.emplace_back(line);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return true;
}

// Lines [begin, end) of the first section named `section`; begin is the line
// after its header. False when there is none.
bool FindSection(const std::vector<std::string>& lines, std::string_view section,
                 std::size_t& begin, std::size_t& end) {
    std::string_view name;
    std::size_t i = 0;
    while (i < lines.size() && !(SectionLine(lines[i], name) && EqualNoCase(name, section))) ++i;
    if (i == lines.size()) return false;
    begin = ++i;
    while (i < lines.size() && !SectionLine(lines[i], name)) ++i;
    end = i;
    return true;
}

std::string LowerCase(std::string_view s) {
    std::string lower(s);
    for (char& c : lower) c = Lower(c);
    return lower;
}

bool HasLineBreak(const char* text) { return std::strpbrk(text, "\r\n") != nullptr; }

}  // namespace

void ProfileReadStrings(const std::string& path, const char* section, ProfileRead* reads,
                        std::size_t count) {
    std::vector<std::string> lines;
    std::size_t begin = 0, end = 0;
    bool found = false;
    try {
        found = LoadProfile(path, lines) && FindSection(lines, section, begin, end);
    } catch (...) {
        // Out of memory: read as a missing file.
    }
    for (std::size_t r = 0; r < count; ++r) {
        ProfileRead& read = reads[r];
        // The default loses trailing blanks only, as on Windows.
        std::string_view text = read.defaultValue ? read.defaultValue : "";
        while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
        for (std::size_t i = begin; found && i < end; ++i) {
            std::string_view key, value;
            if (!KeyLine(lines[i], key, value) || !EqualNoCase(key, read.key)) continue;
            if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
                value.back() == value.front())
                value = value.substr(1, value.size() - 2);
            text = value;
            break;
        }
        read.length = 0;
        if (read.size == 0 || !read.buffer) continue;
        read.length = static_cast<std::uint32_t>(std::min<std::size_t>(text.size(), read.size - 1));
        std::memcpy(read.buffer, text.data(), read.length);
        read.buffer[read.length] = '\0';
    }
}

namespace {

bool HasLineBreaks(const ProfileSectionWrite& s) {
    if (HasLineBreak(s.section)) return true;
    for (std::size_t w = 0; w < s.count; ++w)
        if (HasLineBreak(s.writes[w].key) || HasLineBreak(s.writes[w].value)) return true;
    return false;
}

// Applies one section's writes to the lines of a file held in memory.
void ApplySection(std::vector<std::string>& lines, const char* section,
                  const ProfileWrite* writes, std::size_t count) {
    std::size_t begin = 0, end = 0;
    if (!FindSection(lines, section, begin, end)) {
        lines.push_back(std::string("[") + section + "]");
        begin = end = lines.size();
    }
    // Keys already in the section, first occurrence only. New lines go after
    // the section's last non-blank line, so no indexed line ever moves.
    std::unordered_map<std::string, std::size_t> keyLines;
    std::size_t insertAt = begin;
    for (std::size_t i = begin; i < end; ++i) {
        std::string_view key, value;
        if (KeyLine(lines[i], key, value)) keyLines.emplace(LowerCase(key), i);
        if (!Trim(lines[i]).empty()) insertAt = i + 1;
    }
    for (std::size_t w = 0; w < count; ++w) {
        std::string line = std::string(writes[w].key) + "=" + writes[w].value;
        const auto [at, added] = keyLines.emplace(LowerCase(Trim(writes[w].key)), insertAt);
        if (added) {
            lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(insertAt++), std::move(line));
        } else {
            lines[at->second] = std::move(line);
        }
    }
}

}  // namespace

bool ProfileWriteSections(const std::string& path, const ProfileSectionWrite* sections,
                          std::size_t count) try {
    for (std::size_t i = 0; i < count; ++i)
        if (HasLineBreaks(sections[i])) return false;
    std::vector<std::string> lines;
    if (!LoadProfile(path, lines)) return false;
    for (std::size_t i = 0; i < count; ++i)
        ApplySection(lines, sections[i].section, sections[i].writes, sections[i].count);

    std::string text;
    for (const std::string& line : lines) {
        text += line;
        text += "\r\n";
    }
    return WriteFileAtomic(path, text.data(), text.size());
} catch (...) {
    return false;  // out of memory: the file stays as it was
}

bool ProfileWriteStrings(const std::string& path, const char* section,
                         const ProfileWrite* writes, std::size_t count) {
    const ProfileSectionWrite one {section, writes, count};
    return ProfileWriteSections(path, &one, 1);
}

}  // namespace qv::platform
