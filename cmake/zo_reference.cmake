# The reference: API pages from the public headers, zoctl's manual pages, and its completion for shells. None of it is
# part of the ordinary build, because it takes Doxygen and runs zoctl: scripts/reference makes all of it.
#   reference_pages   the API pages alone

set(ZO_REFERENCE_FOLDER "${CMAKE_BINARY_DIR}/reference")
find_program(ZO_DOXYGEN doxygen)
find_package(Python3 COMPONENTS Interpreter)
configure_file(cmake/reference/Doxyfile.in "${ZO_REFERENCE_FOLDER}/Doxyfile" @ONLY)
if(ZO_DOXYGEN)
    add_custom_target(reference_pages COMMAND "${ZO_DOXYGEN}" "${ZO_REFERENCE_FOLDER}/Doxyfile" VERBATIM
                      COMMENT "API pages: ${ZO_REFERENCE_FOLDER}/html/index.html")
endif()
