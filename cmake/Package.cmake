# The CMake package by which others build against the installed libraries.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Trovik)
set(TROVIK_PROGRAM ${CMAKE_INSTALL_BINDIR}/trovik)

install(EXPORT TrovikTargets NAMESPACE Trovik:: DESTINATION ${package_dir})

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/TrovikConfig.cmake.in ${PROJECT_BINARY_DIR}/TrovikConfig.cmake
  INSTALL_DESTINATION ${package_dir}
  PATH_VARS TROVIK_MODULE_INSTALL_DIR TROVIK_PROGRAM)
# Before version 1 every minor version may change the contract.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TrovikConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/TrovikConfig.cmake
  ${PROJECT_BINARY_DIR}/TrovikConfigVersion.cmake
  DESTINATION ${package_dir})
