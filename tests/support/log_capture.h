// Turns the library's diagnostic lines on for one test (white-box tests: the
// library is linked in), into a fresh file that the test reads.
#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "support/process.h"

namespace qv::test {

class LogCapture {
public:
    LogCapture() {
        std::remove(path_.c_str());
        SetEnv(platform::kEnvLog, path_);
        platform::LogSetUp();
    }
    ~LogCapture() {
        UnsetEnv(platform::kEnvLog);
        platform::LogSetUp();
        std::remove(path_.c_str());
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> Lines() const {
        std::ifstream in(path_);
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }

private:
    const std::string path_ = platform::JoinPath(platform::GetEnv("QV_TEST_TMPDIR"), "qv_api2.log");
};

}  // namespace qv::test
