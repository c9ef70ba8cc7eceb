// Starts a peer process (support/peer.cpp) and talks to it line by line.
#pragma once

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

    void Kill() { child_.Kill(); }

private:
    ChildProcess child_;
    int peerPid_ = -1;
};

}  // namespace qv::test
