# What is installed beside program, libraries, module and types, and the CMake
# package by which others build against the installed libraries.

# Manual pages, completions, files for editors.
install(FILES docs/man/trovik.1 docs/man/trovik-image.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES docs/man/tvx.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
install(FILES completions/trovik.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME trovik)
install(FILES completions/trovik.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
install(FILES completions/_trovik DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT source)
install(DIRECTORY editors DESTINATION ${TROVIK_DATA_DIR})

# Where the zsh and the vim of Debian look below /usr.
install(FILES completions/_trovik DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions
  COMPONENT trovik EXCLUDE_FROM_ALL)
install(DIRECTORY editors/vim/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vim/vimfiles
  COMPONENT trovik EXCLUDE_FROM_ALL)

# The demo scenes, and the documents in the order of the sources, so that their
# links lead to each other; what else they name is linked to where it lies.
install(DIRECTORY demo DESTINATION ${TROVIK_DATA_DIR})
install(FILES README.md CONTRIBUTING.md DESTINATION ${TROVIK_DOC_DIR})
install(DIRECTORY docs DESTINATION ${TROVIK_DOC_DIR} PATTERN man EXCLUDE)
foreach(pair "demo:${TROVIK_DATA_DIR}/demo" "catalogue:${TROVIK_MODULE_INSTALL_DIR}")
  string(REGEX REPLACE ":.*" "" name "${pair}")
  string(REGEX REPLACE ".*:" "" target "${pair}")
  file(RELATIVE_PATH there "/${TROVIK_DOC_DIR}" "/${target}")
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/links)
  file(CREATE_LINK "${there}" ${PROJECT_BINARY_DIR}/links/${name} SYMBOLIC)
  install(FILES ${PROJECT_BINARY_DIR}/links/${name} DESTINATION ${TROVIK_DOC_DIR})
endforeach()

# The CMake package.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Trovik)
set(TROVIK_PROGRAM ${CMAKE_INSTALL_BINDIR}/trovik)

install(EXPORT TrovikTargets NAMESPACE Trovik:: DESTINATION ${package_dir} COMPONENT trovik-dev)

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
  DESTINATION ${package_dir} COMPONENT trovik-dev)

# How an installation from the sources is removed; last, since the list that is
# written then holds all files.
configure_file(${CMAKE_CURRENT_LIST_DIR}/uninstall.in ${PROJECT_BINARY_DIR}/uninstall @ONLY)
install(PROGRAMS ${PROJECT_BINARY_DIR}/uninstall DESTINATION ${TROVIK_DATA_DIR} COMPONENT source)
install(SCRIPT ${CMAKE_CURRENT_LIST_DIR}/AfterInstall.cmake COMPONENT source)
