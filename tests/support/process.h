// What the tests need from the operating system beyond the library itself:
// starting programs and talking to them through pipes, killing them, and a few
// process-wide odds and ends. process_posix.cpp and process_win32.cpp implement
// it; no test includes an OS header for these.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace qv::test {

std::uint32_t CurrentProcessId();

// The process that started this one: one that is certainly running (it waits
// for us) and is not us.
std::uint32_t ParentProcessId();

// Full path of the running program.
std::string CurrentProgram();

// Environment of this process, seen by getenv, by the library and by children.
void SetEnv(const std::string& name, const std::string& value);
void UnsetEnv(const std::string& name);

// Creates a new, empty directory in the system's temporary directory, its name
// starting with `prefix`; its path (empty on failure).
std::string MakeTemporaryDirectory(const std::string& prefix);

// Removes the machine-wide objects of the library's namespace `ns` that killed
// processes may have left behind (POSIX: shared-memory objects; Windows: none
// outlive their last handle).
void RemoveNamespaceObjects(const std::string& ns);

// Names of the machine-wide objects of namespace `ns` that exist now (POSIX:
// shared-memory objects; Windows: none outlive their last handle).
std::vector<std::string> NamespaceObjects(const std::string& ns);

// Dynamic libraries, for programs that load the library at run time as
// applications do. Null on failure.
void* LoadSharedLibrary(const std::string& file);
void* SharedLibraryFunction(void* library, const char* name);
void UnloadSharedLibrary(void* library);

struct ChildOptions {
    // The child's standard input and output are pipes to us (Write, ReadLine);
    // its standard error is ours.
    bool pipes = false;
    // Otherwise, when set: its standard output and error go into this file.
    std::string outputFile;
    // Variables of our environment that the child does not get.
    std::vector<std::string> withoutEnv;
};

// A program started with arguments (argv[0] is the program; one named without
// a directory is the one beside the running program).
class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string>& argv, const ChildOptions& options = {});
    ~ChildProcess();  // kills it if it is still running
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool Started() const;
    // Writes to its standard input (pipes only); false when it is gone.
    bool Write(const std::string& data);
    // The next line it writes, without the line end; empty after `timeoutMs`
    // or at the end of its output.
    std::string ReadLine(int timeoutMs);
    // Ends it at once (SIGKILL, TerminateProcess) and waits for it.
    void Kill();
    // Waits for it to end; its exit status, or -1 when it did not exit by itself.
    int Wait();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Starts a program and waits for it; its exit status, -1 when it could not be
// started or did not exit by itself.
int RunProcess(const std::vector<std::string>& argv, const ChildOptions& options = {});

}  // namespace qv::test
