# What `cmake --install` puts where, and how others find it: a CMake package and a pkg-config file, both relocatable.
# Each file belongs to a component (runtime, development, zoctl, simulator, symbols), and each component but symbols
# works by itself: the DLL therefore is part of several.

include(CMakePackageConfigHelpers)

install(TARGETS ZoProtectorLib EXPORT ZoProtectorLibTargets
        RUNTIME DESTINATION bin COMPONENT runtime
        ARCHIVE DESTINATION lib COMPONENT development)
foreach(component development zoctl)
    install(FILES $<TARGET_FILE:ZoProtectorLib> DESTINATION bin COMPONENT ${component})
endforeach()
install(EXPORT ZoProtectorLibTargets NAMESPACE ZoProtectorLib:: DESTINATION lib/cmake/ZoProtectorLib
        COMPONENT development)
install(FILES sdk/include/zoprotector.h sdk/include/zoprotector_status.h sdk/include/driver_records.h
              sdk/include/zostatus.hpp sdk/include/zoprotector.hpp
              signer/include/zosigner.h signer/include/zosigner.hpp
              crash_report/include/zocrashreport.h crash_report/include/zocrashreport.hpp
        DESTINATION include COMPONENT development)
install(FILES README.md CHANGELOG.md SECURITY.md DESTINATION share/doc/ZoProtectorLib COMPONENT runtime)
install(DIRECTORY docs examples DESTINATION share/doc/ZoProtectorLib COMPONENT development)
install(DIRECTORY bindings DESTINATION share/ZoProtectorLib COMPONENT development
        PATTERN node_modules EXCLUDE PATTERN __pycache__ EXCLUDE PATTERN test EXCLUDE PATTERN .npmrc EXCLUDE)
# Only where scripts/reference has made them.
install(DIRECTORY "${ZO_REFERENCE_FOLDER}/html" DESTINATION share/doc/ZoProtectorLib/reference COMPONENT development
        OPTIONAL)
install(DIRECTORY "${ZO_REFERENCE_FOLDER}/man" DESTINATION share COMPONENT zoctl OPTIONAL)
install(DIRECTORY "${ZO_REFERENCE_FOLDER}/completion" DESTINATION share/ZoProtectorLib COMPONENT zoctl OPTIONAL)

get_property(zo_symbols GLOBAL PROPERTY zo_symbols_of_ZoProtectorLib)
install(FILES "${zo_symbols}" DESTINATION bin COMPONENT symbols)

if(MINGW)
    # GNU linkers take lib/libZoProtectorLib.dll.a. Those of MSVC want an import library of their own kind.
    set(zo_def "${CMAKE_BINARY_DIR}/lib/ZoProtectorLib.def")
    set(zo_msvc_import_library "${CMAKE_BINARY_DIR}/lib/ZoProtectorLib.lib")
    target_link_options(ZoProtectorLib PRIVATE "-Wl,--output-def,${zo_def}")
    find_program(ZO_LLD_LINK NAMES lld-link-19 lld-link)
    if(ZO_LLD_LINK)
        set(make_library "${ZO_LLD_LINK}" /lib /machine:x64 "/def:${zo_def}" "/out:${zo_msvc_import_library}")
    else()
        set(make_library "${CMAKE_DLLTOOL}" -m i386:x86-64 -d "${zo_def}" -l "${zo_msvc_import_library}")
    endif()
    add_custom_command(TARGET ZoProtectorLib POST_BUILD VERBATIM
                       COMMAND "${CMAKE_COMMAND}" "-DDEFINITION=${zo_def}" -DNAME=ZoProtectorLib.dll
                               -P "${CMAKE_SOURCE_DIR}/cmake/name_library.cmake"
                       COMMAND ${make_library}
                       BYPRODUCTS "${zo_def}" "${zo_msvc_import_library}")
    install(FILES "${zo_msvc_import_library}" DESTINATION lib COMPONENT development)
endif()

configure_package_config_file(cmake/ZoProtectorLibConfig.cmake.in "${CMAKE_BINARY_DIR}/ZoProtectorLibConfig.cmake"
                              INSTALL_DESTINATION lib/cmake/ZoProtectorLib)
write_basic_package_version_file("${CMAKE_BINARY_DIR}/ZoProtectorLibConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_BINARY_DIR}/ZoProtectorLibConfig.cmake" "${CMAKE_BINARY_DIR}/ZoProtectorLibConfigVersion.cmake"
        DESTINATION lib/cmake/ZoProtectorLib COMPONENT development)

configure_file(cmake/zoprotectorlib.pc.in "${CMAKE_BINARY_DIR}/zoprotectorlib.pc" @ONLY)
install(FILES "${CMAKE_BINARY_DIR}/zoprotectorlib.pc" DESTINATION lib/pkgconfig COMPONENT development)

# Two thirds of a program would be the toolchain's debug information; nobody debugs these without building them.
if(NOT MSVC)
    foreach(program zoctl simctl simulator_dbgeng simulator_dbghelp trust_certificate)
        target_link_options(${program} PRIVATE $<$<CONFIG:Release>:-s>)
    endforeach()
endif()
install(TARGETS zoctl RUNTIME DESTINATION bin COMPONENT zoctl)

# The simulator keeps a folder of its own, so that nobody takes its driver for the real one. Its zoctl is the same
# program as bin/zoctl.exe, but the crash reporter takes the debugger engine from beside the executable: here the
# stand-in, there the system's own. A stand-in in bin/ would displace the real one.
if(NOT MSVC)
    install(TARGETS ZoProtectorDriver ZoProtectorDriver_1_0_1 ZoProtectorDriver_0_9_9 ZoProtectorDriver_noversion
            LIBRARY DESTINATION simulator COMPONENT simulator)
endif()
install(TARGETS zoctl simctl simulator_dbgeng simulator_dbghelp trust_certificate
        RUNTIME DESTINATION simulator COMPONENT simulator)
install(FILES $<TARGET_FILE:ZoProtectorLib> DESTINATION simulator COMPONENT simulator)
install(DIRECTORY simulator/crash_server DESTINATION simulator COMPONENT simulator USE_SOURCE_PERMISSIONS
        PATTERN CMakeLists.txt EXCLUDE PATTERN "*.cpp" EXCLUDE PATTERN __pycache__ EXCLUDE)
# Where the server finds its default key.
install(FILES cmake/zo_crash_settings.cmake DESTINATION simulator/crash_server COMPONENT simulator)
install(FILES simulator/installed/README.md simulator/vocabulary.json DESTINATION simulator COMPONENT simulator)
install(FILES simulator/debug_engine/README.md DESTINATION simulator/debug_engine COMPONENT simulator)
install(PROGRAMS simulator/debug_engine/make_dump.py DESTINATION simulator/debug_engine COMPONENT simulator)
install(FILES simulator/include/zoprotector_simulator.h DESTINATION include COMPONENT simulator)
