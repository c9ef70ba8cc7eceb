// Runs one test program in a namespace of its own.
//
// Every machine-wide name the library uses (shared block, lock, data directory,
// simulated bus) is redirected into a fresh namespace, so that tests running
// side by side never meet each other or a real installation; afterwards the
// namespace's shared-memory objects and files are removed.
//
//   qv_test_env PROGRAM [ARGS...]
#include <dirent.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void RemoveTree(const std::string& path) {
    if (DIR* dir = opendir(path.c_str())) {
        while (dirent* e = readdir(dir)) {
            if (!std::strcmp(e->d_name, ".") || !std::strcmp(e->d_name, "..")) continue;
            const std::string child = path + "/" + e->d_name;
            if (e->d_type == DT_DIR) RemoveTree(child);
            else unlink(child.c_str());
        }
        closedir(dir);
    }
    rmdir(path.c_str());
}

void RemoveSharedObjects(const std::string& ns) {
    DIR* dir = opendir("/dev/shm");
    if (!dir) return;
    while (dirent* e = readdir(dir)) {
        if (std::strstr(e->d_name, ns.c_str())) shm_unlink((std::string("/") + e->d_name).c_str());
    }
    closedir(dir);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: qv_test_env PROGRAM [ARGS...]\n");
        return 2;
    }
    const std::string ns = "qvtest" + std::to_string(getpid());
    char dirTemplate[] = "/tmp/qv_api2_test_XXXXXX";
    if (!mkdtemp(dirTemplate)) {
        std::perror("mkdtemp");
        return 2;
    }
    const std::string dir = dirTemplate;
    setenv("QV_API2_NAMESPACE", ns.c_str(), 1);
    setenv("QV_API2_DATA_DIR", (dir + "/data").c_str(), 1);
    setenv("QV_SIM_BUS", (dir + "/bus.qvsim").c_str(), 1);
#ifdef QV_TEST_DRIVER
    if (!getenv("QV_USBDRVD")) setenv("QV_USBDRVD", QV_TEST_DRIVER, 1);
#endif
    setenv("QV_TEST_TMPDIR", dir.c_str(), 1);

    const pid_t child = fork();
    if (child == 0) {
        execv(argv[1], argv + 1);
        std::perror("execv");
        _exit(127);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
    }
    RemoveSharedObjects(ns);
    RemoveTree(dir);
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    std::fprintf(stderr, "qv_test_env: %s ended by signal %d\n", argv[1], WTERMSIG(status));
    return 1;
}
