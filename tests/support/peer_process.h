// Starts a peer process (support/peer.cpp) and talks to it line by line.
#pragma once

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "support/process.h"

namespace qv::test {

class PeerProcess {
public:
    // `program` is support/peer.cpp unless another peer program is named.
    explicit PeerProcess(const char* program = QV_PEER_PATH)
        : child_({program}, ChildOptions{true, {}, {}}) {
        // It answers once it has the library loaded: processes that must overlap
        // wait for this line, never for a time.
        const std::string ready = ReadLine();
        if (ready.rfind("ready ", 0) == 0) peerPid_ = std::stoi(ready.substr(6));
    }

    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    bool Started() const { return peerPid_ > 0; }
    int Pid() const { return peerPid_; }

    void Send(const std::string& command) { child_.Write(command + "\n"); }

    // The next line the peer writes; empty after `timeoutMs` or at its end.
    std::string ReadLine(int timeoutMs = 10000) { return child_.ReadLine(timeoutMs); }

    std::string Ask(const std::string& command, int timeoutMs = 10000) {
        Send(command);
        return ReadLine(timeoutMs);
    }

    // Asks the peer to unload the library and leave; its exit status.
    int Exit() {
        Ask("exit");
        return child_.Wait();
    }

    // Waits for it to end (after Send("exit")); its exit status.
    int Wait() { return child_.Wait(); }

    void Kill() { child_.Kill(); }

private:
    ChildProcess child_;
    int peerPid_ = -1;
};

// Turns the library's diagnostic lines on, into a file, for the peers started
// while it lives.
class PeerLog {
public:
    PeerLog() { SetEnv("QV_API2_LOG", path_); }
    ~PeerLog() { UnsetEnv("QV_API2_LOG"); }
    std::string Text() const {
        std::ifstream in(path_);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

private:
    const std::string path_ = std::string(std::getenv("QV_TEST_TMPDIR")) + "/peers.log";
};

}  // namespace qv::test
