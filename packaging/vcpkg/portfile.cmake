# The sources are in the port's own folder: a release is not published at any fixed address.
vcpkg_check_linkage(ONLY_DYNAMIC_LIBRARY)
set(VCPKG_POLICY_SKIP_CRT_LINKAGE_CHECK enabled)  # the DLL holds its runtime, so that it needs no other

vcpkg_extract_source_archive(SOURCE_PATH ARCHIVE "${CMAKE_CURRENT_LIST_DIR}/@SOURCE_ARCHIVE@")
vcpkg_cmake_configure(
    SOURCE_PATH "${SOURCE_PATH}"
    OPTIONS -DZO_BUILD_TESTS=OFF -DZO_WARNINGS_ARE_ERRORS=OFF
)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(CONFIG_PATH lib/cmake/ZoProtectorLib)
vcpkg_fixup_pkgconfig()
vcpkg_copy_tools(TOOL_NAMES zoctl AUTO_CLEAN)

# The simulator is a program of its own and comes with the release, not with the port.
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/simulator" "${CURRENT_PACKAGES_DIR}/debug/simulator"
                    "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share")
file(REMOVE "${CURRENT_PACKAGES_DIR}/include/zoprotector_simulator.h")
file(INSTALL "${CMAKE_CURRENT_LIST_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
set(VCPKG_POLICY_SKIP_COPYRIGHT_CHECK enabled)  # the sources come without a licence file
