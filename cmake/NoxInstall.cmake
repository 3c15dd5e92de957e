# `cmake --install`: the libraries (installed where each is defined, by nox_add_library), their
# headers under the same include paths as in the tree, the tools, and the CMake package that lets
# another project say find_package(NoxEvpn) and link NoxEvpn::noxevpn.
include(CMakePackageConfigHelpers)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform ${PROJECT_SOURCE_DIR}/NoxEvpn
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

set(NOX_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/NoxEvpn)
install(EXPORT NoxEvpnTargets NAMESPACE NoxEvpn:: DESTINATION ${NOX_PACKAGE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/NoxEvpnConfig.cmake.in
  ${PROJECT_BINARY_DIR}/NoxEvpnConfig.cmake INSTALL_DESTINATION ${NOX_PACKAGE_DIR})
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/NoxEvpnConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/NoxEvpnConfig.cmake ${PROJECT_BINARY_DIR}/NoxEvpnConfigVersion.cmake
        DESTINATION ${NOX_PACKAGE_DIR})
