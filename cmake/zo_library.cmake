# The DLL out of its rooms.

add_library(ZoProtectorLib SHARED)
add_library(ZoProtectorLib::ZoProtectorLib ALIAS ZoProtectorLib)
target_link_libraries(ZoProtectorLib PRIVATE base_core base sdk_log_core sdk_log sdk_core sdk driver_service signer_core
                                             signer crash_report_core crash_report)
target_link_libraries(ZoProtectorLib PRIVATE zo_settings bcrypt advapi32 version wininet shlwapi shell32 ole32 user32)
if(MSVC)
    # The libraries that the DLL imports come from System32 only. Not for programs: the DLL stands beside them.
    target_link_options(ZoProtectorLib PRIVATE /DEPENDENTLOADFLAG:0x800)
endif()
set_target_properties(ZoProtectorLib PROPERTIES PREFIX "" OUTPUT_NAME ZoProtectorLib)
foreach(folder sdk signer crash_report)
    target_include_directories(ZoProtectorLib INTERFACE $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/${folder}/include>)
endforeach()
target_include_directories(ZoProtectorLib INTERFACE $<INSTALL_INTERFACE:include>)

zo_split_symbols(ZoProtectorLib)

# What a deployment has not set. The private half of the development key is in tests/signer, and the address and the
# scrambler key of the crash reporter are known to everyone who has the sources: no such DLL is to be shipped.
get_property(zo_development_settings GLOBAL PROPERTY zo_development_settings)
list(JOIN zo_development_settings ", " zo_development_settings)
set(zo_special_build "")
if(zo_development_settings)
    message(NOTICE "Development settings, not to be shipped (README.md, Building): ${zo_development_settings}")
    set(zo_special_build "development settings: ${zo_development_settings}")
endif()
get_property(zo_embedded_public_key GLOBAL PROPERTY zo_embedded_public_key)
zo_version_resource(ZoProtectorLib TYPE VFT_DLL SPECIAL_BUILD "${zo_special_build}"
                    PUBLIC_KEY "${zo_embedded_public_key}"
                    DESCRIPTION "ZoProtector driver SDK, directory signer and crash reporter")
