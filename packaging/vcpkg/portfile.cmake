# vcpkg port, built from this working copy: vcpkg install serialcomm --overlay-ports=packaging/vcpkg
vcpkg_check_linkage(ONLY_DYNAMIC_LIBRARY)
cmake_path(SET SOURCE_PATH NORMALIZE "${CURRENT_PORT_DIR}/../..")

vcpkg_check_features(OUT_FEATURE_OPTIONS options FEATURES tool SERIALCOMM_TOOL)
vcpkg_cmake_configure(SOURCE_PATH "${SOURCE_PATH}" OPTIONS ${options} -DSERIALCOMM_WATCH=OFF)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(PACKAGE_NAME serialComm CONFIG_PATH lib/cmake/serialComm)
vcpkg_fixup_pkgconfig()
if("tool" IN_LIST FEATURES)
    vcpkg_copy_tools(TOOL_NAMES serialcomm AUTO_CLEAN)
endif()
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share")
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/LICENSE")
