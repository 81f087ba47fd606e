# Debug information for the DLL's own code, in a file beside it; the DLL itself carries none, and nothing of the
# toolchain's either. docs/debugging.md says how to use it.
#   GCC      ZoProtectorLib.dll.debug, which the DLL names in .gnu_debuglink
#   clang    ZoProtectorLib.pdb, written by lld; also MSVC

# For every object of the DLL.
set(zo_debug_options "")
if(MSVC)
    set(zo_debug_options "$<$<COMPILE_LANGUAGE:C,CXX>:/Zi>")
elseif(WIN32 AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    set(zo_debug_options -g -gcodeview)
elseif(WIN32)
    set(zo_debug_options -g)
endif()

function(zo_split_symbols target)
    set(file "$<TARGET_FILE:${target}>")
    if(MSVC)
        # /DEBUG alone keeps unused code. As below, the DLL names its .pdb without the build's folder.
        target_link_options(${target} PRIVATE /DEBUG /OPT:REF /OPT:ICF "/PDBALTPATH:%_PDB%")
        set(symbols "$<TARGET_PDB_FILE:${target}>")
    elseif(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        set(symbols "${zo_bin}/${target}.pdb")
        target_link_options(${target} PRIVATE "-Wl,--pdb=${symbols}" -Wl,--strip-debug
                            "-Wl,-Xlink=-pdbaltpath:${target}.pdb")
    else()
        set(symbols "${zo_bin}/${target}.dll.debug")
        # --preserve-dates keeps the linker's time stamp of 0; otherwise no two builds would give the same bytes.
        set(objcopy "${CMAKE_OBJCOPY}" --preserve-dates)
        add_custom_command(TARGET ${target} POST_BUILD VERBATIM BYPRODUCTS "${symbols}"
                           COMMAND ${objcopy} --only-keep-debug "${file}" "${symbols}"
                           COMMAND ${objcopy} --strip-all "--add-gnu-debuglink=${symbols}" "${file}")
    endif()
    set_property(GLOBAL PROPERTY zo_symbols_of_${target} "${symbols}")
endfunction()
