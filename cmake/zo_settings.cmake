# Compiler and linker settings that hold for everything built here, and the header-only libraries of the build machine.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
# "$<0:>" is empty. It keeps generators with several configurations from adding a folder for each: programs look beside
# themselves for the DLL, the simulator and the tests' files.
set(zo_bin "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${zo_bin}$<0:>")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib$<0:>")

option(ZO_BUILD_TESTS "Build the tests and benchmarks too, which need GoogleTest and Python 3" ON)
option(ZO_COMPILE_TOGETHER "Compile the files of programs that parse large headers as one; not for the linter" ON)
option(ZO_SANITIZE "Build natively under AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(ZO_WARNINGS_ARE_ERRORS "Stop the build at the first warning" ON)

# Parsing the header-only libraries costs more than the code of a program itself: its files pay that once.
function(zo_compile_together target)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ${ZO_COMPILE_TOGETHER} UNITY_BUILD_BATCH_SIZE 0)
endfunction()

# zo_flags is how things are compiled and linked; zo_settings, what everything here links, adds text formatting.
add_library(zo_flags INTERFACE)
add_library(zo_settings INTERFACE)
target_link_libraries(zo_settings INTERFACE zo_flags)

if(MSVC)
    # Not for the resource compiler, which does not know them.
    set(zo_msvc_options /W4 /utf-8 /permissive- /Zc:__cplusplus /EHsc /guard:cf
        $<$<BOOL:${ZO_WARNINGS_ARE_ERRORS}>:/WX>)
    target_compile_options(zo_flags INTERFACE "$<$<COMPILE_LANGUAGE:C,CXX>:${zo_msvc_options}>")
    # Its replacements for getenv and _wfopen are not standard, and a warning about those would stop the build.
    target_compile_definitions(zo_flags INTERFACE _CRT_SECURE_NO_WARNINGS)
    target_link_options(zo_flags INTERFACE /DYNAMICBASE /NXCOMPAT /HIGHENTROPYVA /guard:cf /CETCOMPAT /Brepro)
    set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
else()
    target_compile_options(zo_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                           $<$<BOOL:${ZO_WARNINGS_ARE_ERRORS}>:-Werror>
                           "-ffile-prefix-map=${CMAKE_SOURCE_DIR}=." "-ffile-prefix-map=${CMAKE_BINARY_DIR}=build")
endif()

if(WIN32)
    target_compile_definitions(zo_flags INTERFACE UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX
                               _WIN32_WINNT=0x0A00 WINVER=0x0A00)
    if(NOT MSVC)
        # No runtime DLLs beside ours; the time stamp is left out so that two builds give the same bytes.
        target_compile_options(zo_flags INTERFACE -fstack-protector-strong -ffunction-sections -fdata-sections)
        target_link_options(zo_flags INTERFACE -static -fstack-protector-strong -Wl,--gc-sections
                            -Wl,--dynamicbase,--nxcompat,--high-entropy-va,--no-insert-timestamp)
        if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
            target_link_libraries(zo_flags INTERFACE pthread)  # GCC's POSIX driver adds it by itself
        endif()
    endif()
elseif(ZO_SANITIZE)
    target_compile_options(zo_flags INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
                           -fno-omit-frame-pointer)
    target_link_options(zo_flags INTERFACE -fsanitize=address,undefined)
endif()

include(zo_symbols)

# std::format where the library has it, {fmt} otherwise.
include(CheckCXXSourceCompiles)
if(MSVC)
    set(CMAKE_REQUIRED_FLAGS "/std:c++20")
else()
    set(CMAKE_REQUIRED_FLAGS "-std=c++20")
endif()
check_cxx_source_compiles("#include <format>\nint main() { return std::format(\"{}\", 1).empty(); }" ZO_HAVE_STD_FORMAT)
unset(CMAKE_REQUIRED_FLAGS)

# Header-only libraries. A cross build must not get the whole of /usr/include, so their folders alone are copied.
add_library(zo_fmt INTERFACE)
add_library(zo_tool_headers INTERFACE)  # CLI11 and nlohmann-json, for the tools only
target_link_libraries(zo_tool_headers INTERFACE zo_fmt)
if(CMAKE_HOST_UNIX)
    set(zo_headers "${CMAKE_BINARY_DIR}/header_only")
    foreach(folder fmt CLI nlohmann)
        file(COPY "/usr/include/${folder}" DESTINATION "${zo_headers}")
    endforeach()
    target_include_directories(zo_fmt SYSTEM INTERFACE "${zo_headers}")
else()
    find_package(CLI11 REQUIRED)
    find_package(nlohmann_json REQUIRED)
    target_link_libraries(zo_tool_headers INTERFACE CLI11::CLI11 nlohmann_json::nlohmann_json)
    if(NOT ZO_HAVE_STD_FORMAT)
        find_package(fmt REQUIRED)
        target_link_libraries(zo_fmt INTERFACE fmt::fmt-header-only)
    endif()
endif()
if(ZO_HAVE_STD_FORMAT)
    target_compile_definitions(zo_settings INTERFACE ZO_HAVE_STD_FORMAT=1)
else()
    # What header-only use of {fmt} would compile again into every user of text formatting is compiled once.
    add_library(zo_fmt_code STATIC "${CMAKE_SOURCE_DIR}/base/fmt_code.cpp")
    target_link_libraries(zo_fmt_code PRIVATE zo_flags zo_fmt)
    target_compile_options(zo_fmt_code PRIVATE ${zo_debug_options})
    if(WIN32 AND NOT MSVC)
        # It becomes part of the DLL: see zo_rooms.cmake.
        target_compile_options(zo_fmt_code PRIVATE -fno-threadsafe-statics)
    endif()
    target_link_libraries(zo_settings INTERFACE zo_fmt zo_fmt_code)
endif()
