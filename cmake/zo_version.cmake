# Gives a file that is shipped its version resource, with the project's version:
#   zo_version_resource(zoctl TYPE VFT_APP DESCRIPTION "..." [MANIFEST zoctl.manifest]
#                       [SPECIAL_BUILD "..."] [PUBLIC_KEY ...])
# SPECIAL_BUILD says why this build is not to be shipped; empty, or left out, when it may be.
# PUBLIC_KEY is the hexadecimal text of a key that the file carries, so that tools can name it.

function(zo_version_resource target)
    cmake_parse_arguments(zo_version "" "TYPE;DESCRIPTION;MANIFEST;SPECIAL_BUILD;PUBLIC_KEY" "" ${ARGN})
    set(zo_version_flags "0")
    set(zo_version_special "")
    if(zo_version_SPECIAL_BUILD)
        set(zo_version_flags "VS_FF_SPECIALBUILD")
        set(zo_version_special "VALUE \"SpecialBuild\", \"${zo_version_SPECIAL_BUILD}\"")
    endif()
    set(zo_version_key "")
    if(zo_version_PUBLIC_KEY)
        set(zo_version_key "VALUE \"EmbeddedPublicKey\", \"${zo_version_PUBLIC_KEY}\"")
    endif()
    set(zo_version_manifest "")
    if(zo_version_MANIFEST AND MSVC)
        target_sources(${target} PRIVATE ${zo_version_MANIFEST})  # this linker merges it with the one that it writes
    elseif(zo_version_MANIFEST)
        get_filename_component(manifest "${zo_version_MANIFEST}" ABSOLUTE)
        set(zo_version_manifest "1 RT_MANIFEST \"${manifest}\"")
    endif()
    set(extension ".dll")
    if(zo_version_TYPE STREQUAL "VFT_APP")
        set(extension ".exe")
    endif()
    set(resource "${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc")
    configure_file("${CMAKE_SOURCE_DIR}/cmake/zo_version.rc.in" "${resource}" @ONLY)
    target_sources(${target} PRIVATE "${resource}")
endfunction()
