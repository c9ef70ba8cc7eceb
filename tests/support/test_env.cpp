// Runs one test program in a namespace of its own.
//
// Every machine-wide name the library uses (shared block, lock, data directory,
// simulated bus) is redirected into a fresh namespace, so that tests running
// side by side never meet each other or a real installation; afterwards the
// namespace's leftovers and files are removed.
//
//   qv_test_env PROGRAM [ARGS...]
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "support/process.h"

using namespace qv::test;

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: qv_test_env PROGRAM [ARGS...]\n");
        return 2;
    }
    const std::string ns = "qvtest" + std::to_string(CurrentProcessId());
    const std::string dir = MakeTemporaryDirectory("qv_api2_test_");
    if (dir.empty()) {
        std::fprintf(stderr, "qv_test_env: cannot make a temporary directory\n");
        return 2;
    }
    const std::filesystem::path base(dir);
    SetEnv("QV_API2_NAMESPACE", ns);
    SetEnv("QV_API2_DATA_DIR", (base / "data").string());
    SetEnv("QV_SIM_BUS", (base / "bus.qvsim").string());
#ifdef QV_TEST_DRIVER
    if (!std::getenv("QV_USBDRVD")) SetEnv("QV_USBDRVD", QV_TEST_DRIVER);
#endif
    SetEnv("QV_TEST_TMPDIR", dir);

    std::fflush(stdout);
    std::fflush(stderr);
    const int status = RunProcess(std::vector<std::string>(argv + 1, argv + argc));
    RemoveNamespaceObjects(ns);
    std::error_code ignored;
    std::filesystem::remove_all(base, ignored);
    if (status < 0) {
        std::fprintf(stderr, "qv_test_env: %s did not exit by itself\n", argv[1]);
        return 1;
    }
    return status;
}
