# Where things lie, in an installation and, in the same places below it, in the
# build tree: program and libraries find each other by the same relative paths
# in both, so that a file is linked once and installed as it is.
#
# Every install rule belongs to one of three parts (CMake's components):
#   trovik      what users need; the Debian package of that name
#   trovik-dev  what is needed to build against it; likewise
#   source      what only an installation from the sources has
# cmake --install without a part installs all of them, but not the rules of
# trovik with EXCLUDE_FROM_ALL: those are places that the system's own programs
# search below /usr alone.
include(GNUInstallDirs)

foreach(name BINDIR LIBDIR INCLUDEDIR DATADIR MANDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${name}}")
    message(FATAL_ERROR "CMAKE_INSTALL_${name} is \"${CMAKE_INSTALL_${name}}\": give it relative to the prefix, "
                        "since an installation may be moved")
  endif()
endforeach()

# A folder of our own: no search path then leads to one that others share.
set(TROVIK_LIBRARY_DIR "${CMAKE_INSTALL_LIBDIR}/trovik")
set(TROVIK_MODULE_INSTALL_DIR "${TROVIK_LIBRARY_DIR}/modules")
set(TROVIK_DATA_DIR "${CMAKE_INSTALL_DATADIR}/trovik")
set(TROVIK_DOC_DIR "${CMAKE_INSTALL_DATADIR}/doc/trovik")

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME trovik)

# Puts a target into its place of the build tree. With LIBRARIES it searches
# the folder of the host libraries, by a path relative to itself.
#
# CMake would otherwise link with the build tree's paths, padded with colons so
# that it can write others over them when it installs; the loader reads an
# empty piece between colons as the current directory.
function(trovik_place target folder)
  cmake_parse_arguments(PARSE_ARGV 2 place "LIBRARIES" "" "")
  set(search "")
  if(place_LIBRARIES)
    file(RELATIVE_PATH there "/${folder}" "/${TROVIK_LIBRARY_DIR}")
    string(JOIN "/" search "$ORIGIN" ${there})
    string(REGEX REPLACE "/$" "" search "${search}")
  endif()
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/${folder}"
    LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/${folder}"
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "${search}"
    INSTALL_RPATH_USE_LINK_PATH OFF)
endfunction()

# The tests and whatever else is linked to the libraries.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# The module and the types of the build tree under a shorter name.
set(short_name "${CMAKE_BINARY_DIR}/modules")
if(NOT IS_SYMLINK "${short_name}")
  file(REMOVE_RECURSE "${short_name}")
endif()
file(CREATE_LINK "${TROVIK_MODULE_INSTALL_DIR}" "${short_name}" SYMBOLIC)

# The folders below the prefix that others install into as well. Those that are
# there before an installation stay when it is removed, be they empty; all
# other folders are ours.
set(shared_folders "." "${CMAKE_INSTALL_LIBDIR}/cmake" "${CMAKE_INSTALL_DATADIR}/doc"
  "${CMAKE_INSTALL_BINDIR}" "${CMAKE_INSTALL_INCLUDEDIR}"
  "${CMAKE_INSTALL_MANDIR}/man1" "${CMAKE_INSTALL_MANDIR}/man5"
  "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
  "${CMAKE_INSTALL_DATADIR}/zsh/site-functions"
  "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")
install(CODE "set(trovik_shared_folders \"${shared_folders}\")
set(trovik_data_dir \"${TROVIK_DATA_DIR}\")" COMPONENT source)
install(SCRIPT ${CMAKE_CURRENT_LIST_DIR}/BeforeInstall.cmake COMPONENT source)
