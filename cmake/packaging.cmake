# What is installed beside the library, and the packages CPack makes of it:
#   Linux:   cpack -G DEB  (one .deb: library, header, tools, simulator, documentation)
#   Windows: cpack -G ZIP  (DLL, import library, .def, header, tools, simulator)
#
# Components: the library, header and qvpower are in the default component;
# the simulated sensors (driver library and qvsim) are in "sim", so that
#   cmake --install BUILD --component sim
# installs them alone.

if(WIN32)
  set(QV_DOC_DIR doc)
  # Programs find their DLLs beside them.
  set(QV_SIM_LIB_DIR ${CMAKE_INSTALL_BINDIR})
else()
  # Debian keeps a package's documents under the package's own name.
  set(QV_DOC_DIR ${CMAKE_INSTALL_DATADIR}/doc/qv-api2)
  # A driver library loaded by path (QV_USBDRVD), not linked against by
  # applications: it lives in a private folder, and qvsim finds it there.
  set(QV_SIM_LIB_DIR ${CMAKE_INSTALL_LIBDIR}/qv_api2)
endif()

# ---------------------------------------------------------------- simulator
if(TARGET qvsim_usbdrvd)
  if(NOT WIN32)
    file(RELATIVE_PATH QV_SIM_RPATH /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${QV_SIM_LIB_DIR})
    set_target_properties(qvsim PROPERTIES INSTALL_RPATH "$ORIGIN/${QV_SIM_RPATH}")
  endif()
  install(TARGETS qvsim_usbdrvd qvsim
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT sim
    LIBRARY DESTINATION ${QV_SIM_LIB_DIR} COMPONENT sim
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT sim)
  install(FILES ${PROJECT_SOURCE_DIR}/sim/qvsim.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qv_api2
    COMPONENT sim)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/sim.md DESTINATION ${QV_DOC_DIR} COMPONENT sim)
endif()

# ---------------------------------------------------------------- documentation
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${QV_DOC_DIR})
file(GLOB QV_DOC_PAGES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
list(FILTER QV_DOC_PAGES EXCLUDE REGEX "/sim\\.md$")
install(FILES ${QV_DOC_PAGES} DESTINATION ${QV_DOC_DIR})
# The API reference, when the target "docs" has been built before packing.
install(DIRECTORY ${CMAKE_BINARY_DIR}/docs/html/ DESTINATION ${QV_DOC_DIR}/reference OPTIONAL)
file(GLOB QV_EXAMPLE_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/*.c ${PROJECT_SOURCE_DIR}/examples/*.cpp)
install(FILES ${QV_EXAMPLE_SOURCES} DESTINATION ${QV_DOC_DIR}/examples)

# The udev rule and its probe are installed by usb/CMakeLists.txt.

# ---------------------------------------------------------------- Python package
# qvpower (python/), where Debian keeps python3 modules; it finds the library
# through its own install prefix. Debian's python3 is preferred to build it.
# On Windows the tree is a Python prefix's, Lib/site-packages beside bin/, so
# the package finds bin/QV_API2.dll the same way.
find_program(QV_PACKAGE_PYTHON3 python3 PATHS /usr/bin NO_DEFAULT_PATH)
find_program(QV_PACKAGE_PYTHON3 NAMES python3 python)
if(WIN32)
  set(QV_PYTHON_DIR_DEFAULT Lib/site-packages)
else()
  set(QV_PYTHON_DIR_DEFAULT "")
endif()
set(QV_PYTHON_DIR "${QV_PYTHON_DIR_DEFAULT}" CACHE STRING
  "Folder of the Python package qvpower, relative to the install prefix (empty: chosen at install)")
# The .deb must carry it (a missing python3 fails the install, naming what to
# get); the Windows zip carries it when a Python is there to build it.
if(QV_PACKAGE_PYTHON3 OR NOT WIN32)
  install(CODE "
    set(QV_PYTHON3 \"${QV_PACKAGE_PYTHON3}\")
    set(QV_SOURCE_DIR \"${PROJECT_SOURCE_DIR}\")
    set(QV_WORK_DIR \"${CMAKE_BINARY_DIR}/python-package\")
    set(QV_PYTHON_DIR \"${QV_PYTHON_DIR}\")
    include(\"${PROJECT_SOURCE_DIR}/cmake/python-package.cmake\")" COMPONENT python)
  file(GLOB QV_PYTHON_EXAMPLES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/python/*.py)
  install(FILES ${QV_PYTHON_EXAMPLES} DESTINATION ${QV_DOC_DIR}/examples/python COMPONENT python)
endif()

# ---------------------------------------------------------------- packages
set(CPACK_PACKAGE_NAME qv-api2)
set(CPACK_PACKAGE_VENDOR "QV_API2 developers")
set(CPACK_PACKAGE_CONTACT "QV_API2 maintainers <maintainers@qv-api2.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "driver library for USB RF power sensors")
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME qv_api2-${PROJECT_VERSION}-win64)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  # The synopsis is the summary above; CPack indents these lines and turns the
  # empty one into the paragraph break.
  set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "A library with a plain C interface (qv_api2.h) through which measurement
applications drive USB RF power sensors: discovery, calibration, CW, pulse
and burst power, power-versus-time traces and their analysis. Any number of
processes share the sensors through one machine-wide table and lock.

Also holds the command-line tool qvpower, the Python package qvpower, the
simulated sensors (qvsim and its driver library) and the documentation.")
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/sim)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  # The maintainer scripts add the group qvpower (adduser); the Python package
  # needs python3 and numpy, and matplotlib for its plots only.
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "adduser, python3, python3-numpy")
  set(CPACK_DEBIAN_PACKAGE_SUGGESTS python3-matplotlib)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/cmake/deb/postinst
    ${PROJECT_SOURCE_DIR}/cmake/deb/prerm
    ${PROJECT_SOURCE_DIR}/cmake/deb/postrm
    ${PROJECT_SOURCE_DIR}/cmake/deb/triggers)

  # Debian wants a copyright file and a compressed changelog beside the documents.
  string(TIMESTAMP QV_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/deb/changelog.in ${CMAKE_BINARY_DIR}/deb/changelog @ONLY)
  find_program(QV_GZIP gzip)
  if(QV_GZIP)
    execute_process(COMMAND ${QV_GZIP} -n -9 -f -k ${CMAKE_BINARY_DIR}/deb/changelog)
    install(FILES ${CMAKE_BINARY_DIR}/deb/changelog.gz DESTINATION ${QV_DOC_DIR})
  endif()
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/deb/copyright DESTINATION ${QV_DOC_DIR})
endif()

include(CPack)
