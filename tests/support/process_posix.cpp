// POSIX side of the tests' process layer: posix_spawn, pipes and poll.
#include "support/process.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>

extern char** environ;

namespace qv::test {

std::uint32_t CurrentProcessId() { return static_cast<std::uint32_t>(getpid()); }

std::uint32_t ParentProcessId() { return static_cast<std::uint32_t>(getppid()); }

std::string CurrentProgram() {
    char path[4096];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    return n > 0 ? std::string(path, static_cast<std::size_t>(n)) : std::string();
}

void SetEnv(const std::string& name, const std::string& value) {
    setenv(name.c_str(), value.c_str(), 1);
}

void UnsetEnv(const std::string& name) { unsetenv(name.c_str()); }

std::string MakeTemporaryDirectory(const std::string& prefix) {
    std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "XXXXXX")).string();
    return mkdtemp(pattern.data()) ? pattern : std::string();
}

void RemoveNamespaceObjects(const std::string& ns) {
    DIR* dir = opendir("/dev/shm");
    if (!dir) return;
    while (dirent* e = readdir(dir)) {
        if (std::strstr(e->d_name, ns.c_str())) shm_unlink((std::string("/") + e->d_name).c_str());
    }
    closedir(dir);
}

std::vector<std::string> NamespaceObjects(const std::string& ns) {
    std::vector<std::string> names;
    DIR* dir = opendir("/dev/shm");
    if (!dir) return names;
    while (dirent* e = readdir(dir))
        if (std::strstr(e->d_name, ns.c_str())) names.emplace_back(e->d_name);
    closedir(dir);
    return names;
}

void* LoadSharedLibrary(const std::string& file) { return dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL); }

void* SharedLibraryFunction(void* library, const char* name) {
    return library ? dlsym(library, name) : nullptr;
}

void UnloadSharedLibrary(void* library) {
    if (library) dlclose(library);
}

struct ChildProcess::Impl {
    pid_t pid = -1;
    int in = -1;   // its standard input
    int out = -1;  // its standard output
    bool reaped = false;
    int status = -1;
    std::string buffer;
};

namespace {

std::string Beside(const std::string& program) {
    if (program.find('/') != std::string::npos) return program;
    return (std::filesystem::path(CurrentProgram()).parent_path() / program).string();
}

bool Named(const char* variable, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        if (std::strncmp(variable, name.c_str(), name.size()) == 0 && variable[name.size()] == '=')
            return true;
    }
    return false;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& args, const ChildOptions& options)
    : impl_(std::make_unique<Impl>()) {
    if (args.empty()) return;
    // A peer that is gone must not take us with it when we write to it.
    signal(SIGPIPE, SIG_IGN);
    std::vector<std::string> argvText = args;
    argvText[0] = Beside(args[0]);
    std::vector<char*> argv;
    for (std::string& arg : argvText) argv.push_back(arg.data());
    argv.push_back(nullptr);
    std::vector<char*> env;
    for (char** variable = environ; *variable; ++variable)
        if (!Named(*variable, options.withoutEnv)) env.push_back(*variable);
    env.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    int toChild[2] = {-1, -1}, fromChild[2] = {-1, -1};
    if (options.pipes) {
        if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(fromChild, O_CLOEXEC) != 0) {
            posix_spawn_file_actions_destroy(&actions);
            return;
        }
        posix_spawn_file_actions_adddup2(&actions, toChild[0], 0);
        posix_spawn_file_actions_adddup2(&actions, fromChild[1], 1);
    } else if (!options.outputFile.empty()) {
        posix_spawn_file_actions_addopen(&actions, 1, options.outputFile.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
    }
    if (posix_spawn(&impl_->pid, argv[0], &actions, nullptr, argv.data(), env.data()) != 0)
        impl_->pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    if (options.pipes) {
        close(toChild[0]);
        close(fromChild[1]);
        impl_->in = toChild[1];
        impl_->out = fromChild[0];
    }
}

ChildProcess::~ChildProcess() {
    if (impl_->pid > 0 && !impl_->reaped) Kill();
    if (impl_->in >= 0) close(impl_->in);
    if (impl_->out >= 0) close(impl_->out);
}

bool ChildProcess::Started() const { return impl_->pid > 0; }

bool ChildProcess::Write(const std::string& data) {
    std::size_t done = 0;
    while (impl_->in >= 0 && done < data.size()) {
        const ssize_t n = write(impl_->in, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return impl_->in >= 0;
}

std::string ChildProcess::ReadLine(int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string& buffer = impl_->buffer;
    for (;;) {
        const auto nl = buffer.find('\n');
        if (nl != std::string::npos) {
            std::string line = buffer.substr(0, nl);
            buffer.erase(0, nl + 1);
            if (!line.empty() && line.back() == '\r') line.pop_back();
            return line;
        }
        if (impl_->out < 0) return {};
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                              deadline - std::chrono::steady_clock::now())
                              .count();
        if (left <= 0) return {};
        pollfd p {impl_->out, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0) continue;
        char chunk[512];
        const ssize_t n = read(impl_->out, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return {};
        buffer.append(chunk, static_cast<std::size_t>(n));
    }
}

void ChildProcess::Kill() {
    if (impl_->pid <= 0 || impl_->reaped) return;
    kill(impl_->pid, SIGKILL);
    Wait();
}

int ChildProcess::Wait() {
    if (impl_->pid <= 0) return -1;
    if (!impl_->reaped) {
        int status = 0;
        while (waitpid(impl_->pid, &status, 0) < 0 && errno == EINTR) {
        }
        impl_->reaped = true;
        impl_->status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    return impl_->status;
}

int RunProcess(const std::vector<std::string>& argv, const ChildOptions& options) {
    ChildProcess child(argv, options);
    return child.Started() ? child.Wait() : -1;
}

}  // namespace qv::test
