# What a deployment sets for the crash reporter, with development defaults under which the simulator's crash server
# works unasked. A room that needs them links zo_crash_settings and gets ZO_CRASH_SERVER_URL, ZO_CRASH_CONTACT and
# ZO_CRASH_SCRAMBLER_KEY as narrow string literals. The crash server reads its default key out of this file.

set(zo_crash_default_SERVER_URL "https://localhost:8443/crash")
set(zo_crash_default_CONTACT "crash-reports@teskshield.example")
set(zo_crash_default_SCRAMBLER_KEY "5a6f437261736844656b6f64654b6579")

set(ZO_CRASH_SERVER_URL "${zo_crash_default_SERVER_URL}" CACHE STRING
    "Where crash reports are posted; it begins with https:// and its path is /crash")
set(ZO_CRASH_CONTACT "${zo_crash_default_CONTACT}" CACHE STRING
    "E-mail address of the team that operates the crash server")
set(ZO_CRASH_SCRAMBLER_KEY "${zo_crash_default_SCRAMBLER_KEY}" CACHE STRING
    "Key of the built-in body scrambler, 16 bytes as 32 hexadecimal digits; the crash server needs the same")

if(NOT ZO_CRASH_SERVER_URL MATCHES "^https://[^/]+")
    message(FATAL_ERROR "ZO_CRASH_SERVER_URL must begin with https:// and a host, but is '${ZO_CRASH_SERVER_URL}'")
endif()
string(REGEX MATCH "^[0-9A-Fa-f]+$" zo_crash_key_digits "${ZO_CRASH_SCRAMBLER_KEY}")
string(LENGTH "${zo_crash_key_digits}" zo_crash_key_length)
if(NOT zo_crash_key_length EQUAL 32)
    message(FATAL_ERROR "ZO_CRASH_SCRAMBLER_KEY must be 32 hexadecimal digits")
endif()

add_library(zo_crash_settings INTERFACE)
foreach(setting SERVER_URL CONTACT SCRAMBLER_KEY)
    target_compile_definitions(zo_crash_settings INTERFACE "ZO_CRASH_${setting}=\"${ZO_CRASH_${setting}}\"")
    if(ZO_CRASH_${setting} STREQUAL zo_crash_default_${setting})
        set_property(GLOBAL APPEND PROPERTY zo_development_settings "ZO_CRASH_${setting}")
    endif()
endforeach()
