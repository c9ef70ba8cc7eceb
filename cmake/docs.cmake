# cmake --build BUILD --target docs: the API reference of include/qv_api2.h as
# HTML in BUILD/docs/html (Debian package doxygen). Any doxygen warning fails
# the target, so an export without its documentation cannot slip in.
find_program(QV_DOXYGEN doxygen)
if(QV_DOXYGEN)
  set(QV_DOCS_OUTPUT ${CMAKE_BINARY_DIR}/docs)
  configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${CMAKE_BINARY_DIR}/Doxyfile @ONLY)
  add_custom_target(docs
    COMMAND ${CMAKE_COMMAND} -E remove_directory ${QV_DOCS_OUTPUT}/html
    COMMAND ${QV_DOXYGEN} ${CMAKE_BINARY_DIR}/Doxyfile
    DEPENDS ${PROJECT_SOURCE_DIR}/include/qv_api2.h ${CMAKE_BINARY_DIR}/Doxyfile
    COMMENT "API reference into ${QV_DOCS_OUTPUT}/html"
    VERBATIM)
endif()
if(QV_BUILD_TESTS AND NOT CMAKE_CROSSCOMPILING)
  if(QV_DOXYGEN)
    add_test(NAME Docs.ApiReferenceBuildsWithoutWarnings
      COMMAND ${CMAKE_COMMAND} --build ${CMAKE_BINARY_DIR} --target docs)
  else()
    # Reported as skipped, not passed, where doxygen is missing.
    add_test(NAME Docs.ApiReferenceBuildsWithoutWarnings COMMAND ${CMAKE_COMMAND} -E echo "doxygen not found")
    set_tests_properties(Docs.ApiReferenceBuildsWithoutWarnings PROPERTIES SKIP_REGULAR_EXPRESSION "doxygen not found")
  endif()
endif()
# The header's comments and the table of result codes (tools/result_codes.json)
# must agree.
find_package(Python3 COMPONENTS Interpreter QUIET)
if(QV_BUILD_TESTS AND Python3_Interpreter_FOUND)
  add_test(NAME Docs.HeaderAgreesWithResultCodeTable
    COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/tests/docs/check_result_codes.py
            ${PROJECT_SOURCE_DIR}/include/qv_api2.h ${PROJECT_SOURCE_DIR}/tools/result_codes.json)
endif()
