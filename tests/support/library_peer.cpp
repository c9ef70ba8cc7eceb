// A process that loads the library at run time, the way applications do
// (QV_API2.dll, libqv_api2.so), and obeys commands one per line like
// support/peer.cpp. The library's own load and unload notifications run here:
// at "load", at "unload", and at the end of the process when it leaves with
// the library still loaded.
#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>

#include "support/process.h"

using namespace qv::test;

namespace {

using SerialFunction = std::int32_t (*)(const char*);
using IntFunction = std::int32_t (*)(std::int32_t);

void* g_library = nullptr;

template <class Fn>
Fn Function(const char* name) {
    return reinterpret_cast<Fn>(SharedLibraryFunction(g_library, name));
}

void Reply(const std::string& line) { std::cout << line << std::endl; }

}  // namespace

int main() {
    Reply("ready " + std::to_string(CurrentProcessId()));
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream in(line);
        std::string command;
        in >> command;
        if (command == "exit") {
            // Leaves with the library loaded: its unload notification runs as the process ends.
            Reply("bye");
            return 0;
        } else if (command == "load") {
            if (!g_library) g_library = LoadSharedLibrary(QV_API2_LIBRARY);
            Reply(g_library ? "loaded" : "not-loaded");
        } else if (command == "unload") {
            UnloadSharedLibrary(g_library);
            g_library = nullptr;
            Reply("unloaded");
        } else if (command == "init" || command == "uninit") {
            std::string serial;
            in >> serial;
            const auto fn = Function<SerialFunction>(
                command == "init" ? "QV_InitializeSensor_SN" : "QV_UninitializeSensor_SN");
            Reply(fn ? std::to_string(fn(serial.c_str())) : "no-function");
        } else if (command == "set-timeout") {
            int value = 0;
            in >> value;
            const auto fn = Function<IntFunction>("QV_SetSysTimeOut");
            Reply(fn ? std::to_string(fn(value)) : "no-function");
        } else {
            Reply("unknown " + command);
        }
    }
    return 0;
}
