# Cross-build for 64-bit Windows with mingw-w64 (Debian: g++-mingw-w64-x86-64-posix).
#
#   cmake -S . -B build/win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw64.cmake
#
# The posix threads variant gives std::thread and std::mutex. Everything the
# compiler brings (libgcc, libstdc++, winpthreads) is linked statically, so the
# DLLs and programs need nothing beside them but Windows' own libraries.
# Tests run under Wine when it is installed (see CMakeLists.txt, QV_WINE).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(QV_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${QV_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${QV_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${QV_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${QV_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")
