# The DLL out of its rooms.

set(zo_rooms base_core base sdk_log_core sdk_log sdk_core sdk driver_service signer_core signer crash_report_core crash_report)
add_library(ZoProtectorLib SHARED "${CMAKE_BINARY_DIR}/zoprotector_version.rc")
add_library(ZoProtectorLib::ZoProtectorLib ALIAS ZoProtectorLib)
foreach(room ${zo_rooms})
    if(TARGET ${room})
        target_link_libraries(ZoProtectorLib PRIVATE ${room})
    endif()
endforeach()
target_link_libraries(ZoProtectorLib PRIVATE zo_settings bcrypt advapi32 version wininet shlwapi shell32 ole32 user32)
set_target_properties(ZoProtectorLib PROPERTIES PREFIX "" OUTPUT_NAME ZoProtectorLib)
foreach(folder sdk signer crash_report)
    target_include_directories(ZoProtectorLib INTERFACE $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/${folder}/include>)
endforeach()
target_include_directories(ZoProtectorLib INTERFACE $<INSTALL_INTERFACE:include>)

configure_file("${CMAKE_SOURCE_DIR}/cmake/zoprotector_version.rc.in" "${CMAKE_BINARY_DIR}/zoprotector_version.rc" @ONLY)
