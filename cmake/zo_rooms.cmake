# A room is a folder of the library. It becomes an object library that is given the include folders of the rooms that it
# names under SEES and nothing else, so that an include that goes upwards or sideways does not compile.
#
#   zo_room(signer CORE manifest_text.cpp SHELL key_store.cpp sign.cpp SEES base)
#
# CORE  sources without any Windows header: built on every platform, as the object library NAME_core
# SHELL sources that call the platform: built for Windows only, as the object library NAME
# SEES  rooms below whose headers this room may include, or their include folders; and its own include folder

function(zo_room name)
    cmake_parse_arguments(room "" "" "CORE;SHELL;SEES" ${ARGN})
    set(parts)
    if(room_CORE)
        add_library(${name}_core OBJECT ${room_CORE})
        list(APPEND parts ${name}_core)
    endif()
    if(WIN32 AND room_SHELL)
        add_library(${name} OBJECT ${room_SHELL})
        list(APPEND parts ${name})
    endif()
    foreach(part ${parts})
        target_link_libraries(${part} PRIVATE zo_settings)
        target_compile_definitions(${part} PRIVATE ZO_BUILDING_LIBRARY)
        target_include_directories(${part} PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
        foreach(seen ${room_SEES})
            target_include_directories(${part} PRIVATE "${CMAKE_SOURCE_DIR}/${seen}")
        endforeach()
        target_compile_options(${part} PRIVATE ${zo_debug_options})
        if(WIN32 AND NOT MSVC)
            # The library's guards for function-local statics leave kernel handles behind at every load and unload.
            target_compile_options(${part} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-threadsafe-statics>)
        endif()
    endforeach()
endfunction()
