// Windows side of the tests' process layer: CreateProcess, anonymous pipes read
// by a thread of ours (they cannot be polled), TerminateProcess.
#include "support/process.h"

#include <windows.h>

#include <tlhelp32.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>

namespace qv::test {

std::uint32_t CurrentProcessId() { return GetCurrentProcessId(); }

std::uint32_t ParentProcessId() {
    const DWORD self = GetCurrentProcessId();
    DWORD parent = 0;
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) return 0;
    PROCESSENTRY32 entry;
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32First(snapshot, &entry); more; more = Process32Next(snapshot, &entry)) {
        if (entry.th32ProcessID == self) {
            parent = entry.th32ParentProcessID;
            break;
        }
    }
    CloseHandle(snapshot);
    return parent;
}

std::string CurrentProgram() {
    char path[MAX_PATH * 4];
    const DWORD n = GetModuleFileNameA(nullptr, path, sizeof path);
    return n > 0 && n < sizeof path ? std::string(path, n) : std::string();
}

// _putenv changes the C runtime's copy (getenv) and the process's environment
// (GetEnvironmentVariable, children) together.
void SetEnv(const std::string& name, const std::string& value) {
    _putenv((name + "=" + value).c_str());
    SetEnvironmentVariableA(name.c_str(), value.c_str());
}

void UnsetEnv(const std::string& name) {
    _putenv((name + "=").c_str());
    SetEnvironmentVariableA(name.c_str(), nullptr);
}

std::string MakeTemporaryDirectory(const std::string& prefix) {
    char base[MAX_PATH + 1];
    const DWORD n = GetTempPathA(sizeof base, base);
    if (n == 0 || n > MAX_PATH) return {};
    for (unsigned attempt = 0; attempt < 1000; ++attempt) {
        const std::string path = std::string(base, n) + prefix + std::to_string(GetCurrentProcessId()) +
                                 "_" + std::to_string(GetTickCount()) + "_" + std::to_string(attempt);
        if (CreateDirectoryA(path.c_str(), nullptr)) return path;
        if (GetLastError() != ERROR_ALREADY_EXISTS) return {};
    }
    return {};
}

void RemoveNamespaceObjects(const std::string&) {
    // Named kernel objects vanish with their last handle, killed holders included.
}

std::vector<std::string> NamespaceObjects(const std::string&) { return {}; }

void* LoadSharedLibrary(const std::string& file) {
    return reinterpret_cast<void*>(LoadLibraryA(file.c_str()));
}

void* SharedLibraryFunction(void* library, const char* name) {
    return library ? reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name))
                   : nullptr;
}

void UnloadSharedLibrary(void* library) {
    if (library) FreeLibrary(static_cast<HMODULE>(library));
}

namespace {

// Quotes one argument so that the child's C runtime splits it back out whole.
std::string Quoted(const std::string& arg) {
    if (!arg.empty() && arg.find_first_of(" \t\n\v\"") == std::string::npos) return arg;
    std::string out = "\"";
    std::size_t backslashes = 0;
    for (char c : arg) {
        if (c == '\\') {
            ++backslashes;
            continue;
        }
        if (c == '"') out.append(backslashes * 2 + 1, '\\');
        else out.append(backslashes, '\\');
        backslashes = 0;
        out += c;
    }
    out.append(backslashes * 2, '\\');
    return out + "\"";
}

std::string Beside(const std::string& program) {
    if (program.find_first_of("\\/") != std::string::npos) return program;
    return (std::filesystem::path(CurrentProgram()).parent_path() / program).string();
}

bool Named(const char* variable, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        if (_strnicmp(variable, name.c_str(), name.size()) == 0 && variable[name.size()] == '=')
            return true;
    }
    return false;
}

// Our environment without some variables, as CreateProcess takes it.
std::string EnvironmentWithout(const std::vector<std::string>& names) {
    std::string block;
    char* strings = GetEnvironmentStringsA();
    for (const char* variable = strings; *variable; variable += std::strlen(variable) + 1) {
        if (Named(variable, names)) continue;
        block += variable;
        block += '\0';
    }
    FreeEnvironmentStringsA(strings);
    block += '\0';
    return block;
}

HANDLE Inheritable(HANDLE handle) {
    HANDLE copy = nullptr;
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return nullptr;
    if (!DuplicateHandle(GetCurrentProcess(), handle, GetCurrentProcess(), &copy, 0, TRUE,
                         DUPLICATE_SAME_ACCESS))
        return nullptr;
    return copy;
}

// Handles are made inheritable only while one child is started, so that no
// child inherits the pipes of another (it would keep them open after that
// one's end).
std::mutex g_startGuard;

}  // namespace

struct ChildProcess::Impl {
    HANDLE process = nullptr;
    HANDLE in = nullptr;   // write end of its standard input
    HANDLE out = nullptr;  // read end of its standard output
    bool reaped = false;
    bool killed = false;
    int status = -1;

    // Its output, read by `reader` as it comes.
    std::thread reader;
    std::mutex guard;
    std::condition_variable arrived;
    std::string buffer;
    bool ended = false;

    void Read() {
        char chunk[512];
        for (;;) {
            DWORD n = 0;
            const BOOL ok = ::ReadFile(out, chunk, sizeof chunk, &n, nullptr);
            std::lock_guard<std::mutex> lock(guard);
            if (!ok || n == 0) {
                ended = true;
                arrived.notify_all();
                return;
            }
            buffer.append(chunk, n);
            arrived.notify_all();
        }
    }
};

ChildProcess::ChildProcess(const std::vector<std::string>& args, const ChildOptions& options)
    : impl_(std::make_unique<Impl>()) {
    if (args.empty()) return;
    const std::string program = Beside(args[0]);
    std::string commandLine = Quoted(program);
    for (std::size_t i = 1; i < args.size(); ++i) {
        commandLine += ' ';  // appended apart: GCC 12 -O3 takes " " + string for an overlapping copy
        commandLine += Quoted(args[i]);
    }
    const std::string environment = EnvironmentWithout(options.withoutEnv);

    std::lock_guard<std::mutex> start(g_startGuard);
    HANDLE childIn = nullptr, childOut = nullptr, childErr = nullptr;
    if (options.pipes) {
        HANDLE inRead = nullptr, outWrite = nullptr;
        if (!CreatePipe(&inRead, &impl_->in, nullptr, 0)) return;
        if (!CreatePipe(&impl_->out, &outWrite, nullptr, 0)) {
            CloseHandle(inRead);
            return;
        }
        childIn = Inheritable(inRead);
        childOut = Inheritable(outWrite);
        CloseHandle(inRead);
        CloseHandle(outWrite);
        childErr = Inheritable(GetStdHandle(STD_ERROR_HANDLE));
    } else {
        childIn = Inheritable(GetStdHandle(STD_INPUT_HANDLE));
        if (!options.outputFile.empty()) {
            SECURITY_ATTRIBUTES inherit {sizeof inherit, nullptr, TRUE};
            childOut = CreateFileA(options.outputFile.c_str(), GENERIC_WRITE,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, CREATE_ALWAYS,
                                   FILE_ATTRIBUTE_NORMAL, nullptr);
            if (childOut == INVALID_HANDLE_VALUE) childOut = nullptr;
            childErr = Inheritable(childOut);
        } else {
            childOut = Inheritable(GetStdHandle(STD_OUTPUT_HANDLE));
            childErr = Inheritable(GetStdHandle(STD_ERROR_HANDLE));
        }
    }

    STARTUPINFOA startup {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = childIn;
    startup.hStdOutput = childOut;
    startup.hStdError = childErr;
    PROCESS_INFORMATION info {};
    std::string mutableLine = commandLine;
    if (CreateProcessA(program.c_str(), mutableLine.data(), nullptr, nullptr, TRUE, 0,
                       const_cast<char*>(environment.c_str()), nullptr, &startup, &info)) {
        impl_->process = info.hProcess;
        CloseHandle(info.hThread);
    }
    for (HANDLE h : {childIn, childOut, childErr})
        if (h) CloseHandle(h);
    if (impl_->out) impl_->reader = std::thread([impl = impl_.get()] { impl->Read(); });
}

ChildProcess::~ChildProcess() {
    if (impl_->process && !impl_->reaped) Kill();
    if (impl_->in) CloseHandle(impl_->in);
    // Its end closed the other end of the pipe, so the reader has stopped.
    if (impl_->reader.joinable()) impl_->reader.join();
    if (impl_->out) CloseHandle(impl_->out);
    if (impl_->process) CloseHandle(impl_->process);
}

bool ChildProcess::Started() const { return impl_->process != nullptr; }

bool ChildProcess::Write(const std::string& data) {
    std::size_t done = 0;
    while (impl_->in && done < data.size()) {
        DWORD n = 0;
        if (!WriteFile(impl_->in, data.data() + done, static_cast<DWORD>(data.size() - done), &n,
                       nullptr) ||
            n == 0)
            return false;
        done += n;
    }
    return impl_->in != nullptr;
}

std::string ChildProcess::ReadLine(int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::unique_lock<std::mutex> lock(impl_->guard);
    for (;;) {
        const auto nl = impl_->buffer.find('\n');
        if (nl != std::string::npos) {
            std::string line = impl_->buffer.substr(0, nl);
            impl_->buffer.erase(0, nl + 1);
            if (!line.empty() && line.back() == '\r') line.pop_back();
            return line;
        }
        if (impl_->ended || !impl_->out) return {};
        if (impl_->arrived.wait_until(lock, deadline) == std::cv_status::timeout) return {};
    }
}

void ChildProcess::Kill() {
    if (!impl_->process || impl_->reaped) return;
    TerminateProcess(impl_->process, 1);
    impl_->killed = true;
    Wait();
}

int ChildProcess::Wait() {
    if (!impl_->process) return -1;
    if (!impl_->reaped) {
        WaitForSingleObject(impl_->process, INFINITE);
        DWORD code = 0;
        GetExitCodeProcess(impl_->process, &code);
        impl_->reaped = true;
        impl_->status = impl_->killed ? -1 : static_cast<int>(code);
    }
    return impl_->status;
}

int RunProcess(const std::vector<std::string>& argv, const ChildOptions& options) {
    ChildProcess child(argv, options);
    return child.Started() ? child.Wait() : -1;
}

}  // namespace qv::test
