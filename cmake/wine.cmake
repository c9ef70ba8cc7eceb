# Windows programs of a cross-build run under Wine: the tests, their discovery and
# anything else CMake starts through CMAKE_CROSSCOMPILING_EMULATOR. Each build tree
# gets a Wine prefix of its own (<build>/wineprefix), made on first use.
find_program(QV_WINE64 wine64 PATHS /usr/lib/wine)
find_program(QV_WINESERVER wineserver PATHS /usr/lib/wine)
if(QV_WINE64 AND QV_WINESERVER)
  set(QV_WINEPREFIX ${CMAKE_BINARY_DIR}/wineprefix)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/wine-run.sh.in ${CMAKE_BINARY_DIR}/wine-run.sh @ONLY
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_BINARY_DIR}/wine-run.sh)
else()
  message(STATUS "Wine not found: the Windows programs are built but cannot be run here")
endif()
