# Runs at the beginning of an installation from the sources: notes which of the
# shared folders are there already.
cmake_policy(VERSION 3.25)

set(trovik_tree "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")
set(trovik_folders_before "")
foreach(folder IN LISTS trovik_shared_folders)
  # With each folder those above it.
  while(NOT folder STREQUAL "")
    if(IS_DIRECTORY "${trovik_tree}/${folder}")
      list(APPEND trovik_folders_before "${folder}")
    endif()
    get_filename_component(folder "${folder}" DIRECTORY)
  endwhile()
endforeach()
