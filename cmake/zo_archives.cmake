# The ZIP archives that CPack writes: one for each component or, with CPACK_ARCHIVE_COMPONENT_INSTALL off, one of
# everything. All unpack into a folder of the same name, so that several add up. scripts/release runs CPack.

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_FILE_NAME "${PROJECT_NAME}-${PROJECT_VERSION}-windows-x64")
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL runtime development zoctl simulator symbols)
set(CPACK_STRIP_FILES OFF)  # a stripped DLL would no longer name its debug information
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)

# For scripts/release, which refuses these before it builds: for each development setting a line with its name, a tab
# and its meaning.
get_property(settings GLOBAL PROPERTY zo_development_settings)
set(lines "")
foreach(setting ${settings})
    get_property(meaning CACHE ${setting} PROPERTY HELPSTRING)
    string(APPEND lines "${setting}\t${meaning}\n")
endforeach()
file(WRITE "${CMAKE_BINARY_DIR}/development_settings.txt" "${lines}")
