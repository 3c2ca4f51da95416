# What `find_package(Tarsil)` finds after `cmake --install`. The targets themselves are exported where they are made.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(TARSIL_PACKAGE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/Tarsil)
configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/TarsilConfig.cmake.in ${PROJECT_BINARY_DIR}/TarsilConfig.cmake
  INSTALL_DESTINATION ${TARSIL_PACKAGE_FOLDER})
# Before 1.0 every minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TarsilConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TarsilConfig.cmake ${PROJECT_BINARY_DIR}/TarsilConfigVersion.cmake
        DESTINATION ${TARSIL_PACKAGE_FOLDER})
