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
    const FileRead read = ReadFile(path, bytes, kProfileMaxBytes);
    if (read != FileRead::kRead) return read == FileRead::kMissing;
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

// A file held in memory while sections are written into it. Every change is
// recorded against the original lines and the new text is put together in one
// pass at the end: replacing a line or adding one costs the same whatever the
// size of the file (inserting into the line array would move every later line,
// for every key added).
class ProfileEdit {
public:
    // Finds the sections that will be written in one pass over the file.
    ProfileEdit(std::vector<std::string> lines, const ProfileSectionWrite* sections,
                std::size_t count)
        : lines_(std::move(lines)) {
        std::unordered_map<std::string, Section> wanted;
        for (std::size_t i = 0; i < count; ++i)
            wanted.try_emplace(LowerCase(Trim(sections[i].section)));
        // The first section of each name counts; its lines are [begin, end).
        std::string_view name;
        Section* open = nullptr;
        for (std::size_t i = 0; i < lines_.size(); ++i) {
            if (!SectionLine(lines_[i], name)) continue;
            if (open) open->end = i;
            open = nullptr;
            const auto found = wanted.find(LowerCase(name));
            if (found == wanted.end()) continue;
            const auto [at, added] = sections_.try_emplace(found->first);
            if (added) open = &at->second;
            if (open) open->begin = open->end = i + 1;
        }
        if (open) open->end = lines_.size();
        additions_.resize(lines_.size() + 1);
    }

    void Apply(const char* section, const ProfileWrite* writes, std::size_t count) {
        const auto [at, added] = sections_.try_emplace(LowerCase(Trim(section)));
        Section& s = at->second;
        if (added) {
            // A missing section goes after everything else.
            s.appended = true;
            s.appendedIndex = appended_.size();
            appended_.push_back({std::string("[") + section + "]"});
        }
        if (!s.indexed) Index(s);
        for (std::size_t w = 0; w < count; ++w) {
            std::string line = std::string(writes[w].key) + "=" + writes[w].value;
            const auto [key, isNew] = s.keys.try_emplace(LowerCase(Trim(writes[w].key)), Place {});
            if (!isNew) {
                Line(s, key->second) = std::move(line);
                continue;
            }
            // New keys go after the section's last non-blank line, in order.
            std::vector<std::string>& list = s.appended ? appended_[s.appendedIndex]
                                                        : additions_[s.insertAt];
            key->second = Place {true, list.size()};
            list.push_back(std::move(line));
        }
    }

    std::string Text() const {
        std::size_t bytes = 0;
        for (const std::string& line : lines_) bytes += line.size() + 2;
        std::string text;
        text.reserve(bytes);
        const auto put = [&text](const std::string& line) {
            text += line;
            text += "\r\n";
        };
        for (std::size_t i = 0; i <= lines_.size(); ++i) {
            for (const std::string& line : additions_[i]) put(line);
            if (i < lines_.size()) put(lines_[i]);
        }
        for (const auto& section : appended_)
            for (const std::string& line : section) put(line);
        return text;
    }

private:
    // Where a key's line is: one of the file's lines, or an added one.
    struct Place {
        bool added = false;
        std::size_t index = 0;
    };
    struct Section {
        std::size_t begin = 0, end = 0;  // the file's lines after the header
        bool appended = false;            // not in the file: appended_[appendedIndex]
        std::size_t appendedIndex = 0;
        bool indexed = false;
        std::size_t insertAt = 0;  // additions_ slot of new keys
        std::unordered_map<std::string, Place> keys;  // first occurrence counts
    };

    // Keys of a section, looked at only once the section is written.
    void Index(Section& s) {
        s.indexed = true;
        if (s.appended) return;
        s.insertAt = s.begin;
        for (std::size_t i = s.begin; i < s.end; ++i) {
            std::string_view key, value;
            if (KeyLine(lines_[i], key, value)) s.keys.try_emplace(LowerCase(key), Place {false, i});
            if (!Trim(lines_[i]).empty()) s.insertAt = i + 1;
        }
    }

    std::string& Line(Section& s, const Place& place) {
        if (!place.added) return lines_[place.index];
        if (s.appended) return appended_[s.appendedIndex][place.index];
        return additions_[s.insertAt][place.index];
    }

    std::vector<std::string> lines_;
    std::unordered_map<std::string, Section> sections_;
    std::vector<std::vector<std::string>> additions_;  // [i]: new lines before line i
    std::vector<std::vector<std::string>> appended_;   // header and keys of new sections
};

}  // namespace

bool ProfileWriteSections(const std::string& path, const ProfileSectionWrite* sections,
                          std::size_t count) try {
    for (std::size_t i = 0; i < count; ++i)
        if (HasLineBreaks(sections[i])) return false;
    std::vector<std::string> lines;
    if (!LoadProfile(path, lines)) return false;
    ProfileEdit edit(std::move(lines), sections, count);
    for (std::size_t i = 0; i < count; ++i)
        edit.Apply(sections[i].section, sections[i].writes, sections[i].count);
    const std::string text = edit.Text();
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
