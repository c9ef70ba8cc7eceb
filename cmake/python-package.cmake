# Run at install time (install(CODE) in packaging.cmake): builds the Python
# package qvpower as a wheel, offline, and unpacks it into QV_PYTHON_DEST.
# Unpacking the wheel rather than letting pip install it leaves what a Debian
# python3 module has: the modules and a .dist-info of METADATA, WHEEL,
# top_level.txt and RECORD; no byte-code, no INSTALLER, no direct_url.json
# naming the build machine's folders.
#   QV_PYTHON3     interpreter with pip, setuptools and wheel
#   QV_SOURCE_DIR  the source tree (python/ and tools/result_codes.json)
#   QV_WORK_DIR    scratch folder in the build tree
#   QV_PYTHON_DIR  destination relative to the prefix; empty: where python3
#                  looks, lib/python3/dist-packages under /usr (Debian's python3
#                  modules), lib/python3.X/dist-packages elsewhere (Debian's
#                  python3 searches that one under /usr/local)
if(NOT QV_PYTHON3)
  message(FATAL_ERROR "no python3 to build the Python package qvpower with (tools/setup.sh installs one)")
endif()
if(NOT QV_PYTHON_DIR)
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(QV_PYTHON_DIR lib/python3/dist-packages)
  else()
    execute_process(COMMAND "${QV_PYTHON3}" -c "import sys; print('%d.%d' % sys.version_info[:2])"
      OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE)
    set(QV_PYTHON_DIR lib/python${version}/dist-packages)
  endif()
endif()
set(QV_PYTHON_DEST "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${QV_PYTHON_DIR}")

# pip builds in the folder it is given: a copy keeps build/ and *.egg-info out
# of the source tree. setup.py takes the code table from ../tools.
file(REMOVE_RECURSE "${QV_WORK_DIR}")
file(MAKE_DIRECTORY "${QV_WORK_DIR}/src/tools" "${QV_WORK_DIR}/wheel")
file(COPY "${QV_SOURCE_DIR}/python" DESTINATION "${QV_WORK_DIR}/src"
  PATTERN "__pycache__" EXCLUDE PATTERN "build" EXCLUDE PATTERN "*.egg-info" EXCLUDE
  PATTERN "*.so*" EXCLUDE PATTERN "*.dll" EXCLUDE PATTERN "*.dylib" EXCLUDE)
file(COPY "${QV_SOURCE_DIR}/tools/result_codes.json" DESTINATION "${QV_WORK_DIR}/src/tools")

execute_process(
  COMMAND "${CMAKE_COMMAND}" -E env PYTHONDONTWRITEBYTECODE=1 PIP_NO_CACHE_DIR=1
          "${QV_PYTHON3}" -m pip wheel -q --disable-pip-version-check --no-deps --no-index
          --no-build-isolation --wheel-dir "${QV_WORK_DIR}/wheel" "${QV_WORK_DIR}/src/python"
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
file(GLOB wheel "${QV_WORK_DIR}/wheel/qvpower-*.whl")
if(NOT result EQUAL 0 OR NOT wheel)
  message(FATAL_ERROR "building the qvpower wheel failed (${QV_PYTHON3} needs pip, setuptools and wheel):\n${output}")
endif()

message(STATUS "Installing: ${QV_PYTHON_DEST}/qvpower")
file(MAKE_DIRECTORY "${QV_PYTHON_DEST}")
file(ARCHIVE_EXTRACT INPUT "${wheel}" DESTINATION "${QV_PYTHON_DEST}")
# Zip entries carry no usable modes; these are plain, world-readable files.
file(GLOB_RECURSE installed LIST_DIRECTORIES true RELATIVE "${QV_PYTHON_DEST}"
  "${QV_PYTHON_DEST}/qvpower/*" "${QV_PYTHON_DEST}/qvpower-*.dist-info/*")
foreach(f qvpower ${installed})
  if(IS_DIRECTORY "${QV_PYTHON_DEST}/${f}")
    file(CHMOD "${QV_PYTHON_DEST}/${f}" DIRECTORY_PERMISSIONS
      OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  else()
    file(CHMOD "${QV_PYTHON_DEST}/${f}" FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${QV_PYTHON_DEST}/${f}")
  endif()
endforeach()
