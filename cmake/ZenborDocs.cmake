# The `docs` target: the API reference, HTML from the public headers and the
# guide pages in Docs/. Doxygen fails on any warning, among them every
# undocumented declaration, so the reference cannot fall behind the headers.
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  message(STATUS "Doxygen not found: no docs target")
  return()
endif()
set(ZB_DOCS_SOURCE_DIR ${CMAKE_SOURCE_DIR}/Docs)
set(ZB_DOCS_OUTPUT_DIR ${CMAKE_BINARY_DIR}/docs)
configure_file(${ZB_DOCS_SOURCE_DIR}/Doxyfile.in ${ZB_DOCS_OUTPUT_DIR}/Doxyfile @ONLY)
add_custom_target(docs
  COMMAND ${DOXYGEN_EXECUTABLE} ${ZB_DOCS_OUTPUT_DIR}/Doxyfile
  WORKING_DIRECTORY ${ZB_DOCS_OUTPUT_DIR}
  COMMENT "Building the API reference in ${ZB_DOCS_OUTPUT_DIR}/html"
  VERBATIM)
