// A whole file read into a string, and a string written as a whole file, byte
// for byte (no line-end translation).
#pragma once

#include <fstream>
#include <iterator>
#include <string>

namespace qv::test {

inline std::string FileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

inline void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

}  // namespace qv::test
