// Starts a peer process (support/peer.cpp) and talks to it line by line.
#pragma once

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>

extern char** environ;

namespace qv::test {

class PeerProcess {
public:
    PeerProcess() {
        int toChild[2], fromChild[2];
        if (pipe(toChild) != 0 || pipe(fromChild) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, toChild[0], 0);
        posix_spawn_file_actions_adddup2(&actions, fromChild[1], 1);
        posix_spawn_file_actions_addclose(&actions, toChild[1]);
        posix_spawn_file_actions_addclose(&actions, fromChild[0]);
        char path[] = QV_PEER_PATH;
        char* argv[] = {path, nullptr};
        if (posix_spawn(&pid_, path, &actions, nullptr, argv, environ) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(toChild[0]);
        close(fromChild[1]);
        in_ = toChild[1];
        out_ = fromChild[0];
        const std::string ready = ReadLine();
        if (ready.rfind("ready ", 0) == 0) peerPid_ = std::stoi(ready.substr(6));
    }

    ~PeerProcess() {
        if (pid_ > 0 && !reaped_) {
            kill(pid_, SIGKILL);
            Wait();
        }
        if (in_ >= 0) close(in_);
        if (out_ >= 0) close(out_);
    }

    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    bool Started() const { return peerPid_ > 0; }
    int Pid() const { return peerPid_; }

    void Send(const std::string& command) {
        const std::string line = command + "\n";
        if (write(in_, line.data(), line.size()) < 0) {
        }
    }

    // The next line the peer writes; empty after `timeoutMs` or at its end.
    std::string ReadLine(int timeoutMs = 10000) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        for (;;) {
            const auto nl = buffer_.find('\n');
            if (nl != std::string::npos) {
                std::string line = buffer_.substr(0, nl);
                buffer_.erase(0, nl + 1);
                return line;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                                  deadline - std::chrono::steady_clock::now())
                                  .count();
            if (left <= 0) return {};
            pollfd p {out_, POLLIN, 0};
            if (poll(&p, 1, static_cast<int>(left)) <= 0) continue;
            char chunk[512];
            const ssize_t n = read(out_, chunk, sizeof chunk);
            if (n <= 0) return {};
            buffer_.append(chunk, static_cast<std::size_t>(n));
        }
    }

    std::string Ask(const std::string& command, int timeoutMs = 10000) {
        Send(command);
        return ReadLine(timeoutMs);
    }

    // Asks the peer to unload the library and leave; its exit status.
    int Exit() {
        Ask("exit");
        return Wait();
    }

    void Kill() {
        kill(pid_, SIGKILL);
        Wait();
    }

private:
    int Wait() {
        int status = 0;
        if (!reaped_) {
            waitpid(pid_, &status, 0);
            reaped_ = true;
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    pid_t pid_ = -1;
    int peerPid_ = -1;
    int in_ = -1;
    int out_ = -1;
    bool reaped_ = false;
    std::string buffer_;
};

}  // namespace qv::test
