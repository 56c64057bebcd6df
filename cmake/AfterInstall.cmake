# Runs at the end of an installation from the sources: writes the list by which
# the script "uninstall" beside it removes the installation. Paths are relative
# to the prefix, since the tree may be moved; a folder ends with a slash, and
# stands behind all that is in it.
cmake_policy(VERSION 3.25)

# The prefix is cut off before the text is read as a list: its name may hold
# any character, also the one that separates the pieces of a list.
string(REPLACE ";${CMAKE_INSTALL_PREFIX}/" ";" trovik_files ";${CMAKE_INSTALL_MANIFEST_FILES}")
list(POP_FRONT trovik_files)
set(trovik_list "${trovik_data_dir}/installed.txt")
list(APPEND trovik_files "${trovik_list}")

set(trovik_folders "")
foreach(file IN LISTS trovik_files)
  get_filename_component(folder "${file}" DIRECTORY)
  while(NOT folder STREQUAL "" AND NOT "${folder}/" IN_LIST trovik_folders)
    if(NOT folder IN_LIST trovik_folders_before)
      list(APPEND trovik_folders "${folder}/")
    endif()
    get_filename_component(folder "${folder}" DIRECTORY)
  endwhile()
endforeach()
if(NOT "." IN_LIST trovik_folders_before)
  list(APPEND trovik_folders "./")
endif()

# What an earlier installation into the same place left.
if(EXISTS "${trovik_tree}/${trovik_list}")
  file(STRINGS "${trovik_tree}/${trovik_list}" trovik_earlier)
  foreach(line IN LISTS trovik_earlier)
    if(line MATCHES "/$")
      list(APPEND trovik_folders "${line}")
    else()
      list(APPEND trovik_files "${line}")
    endif()
  endforeach()
endif()

list(REMOVE_DUPLICATES trovik_files)
list(REMOVE_DUPLICATES trovik_folders)
list(SORT trovik_files)
list(SORT trovik_folders ORDER DESCENDING)
list(JOIN trovik_files "\n" trovik_files)
list(JOIN trovik_folders "\n" trovik_folders)
file(WRITE "${trovik_tree}/${trovik_list}" "${trovik_files}\n${trovik_folders}\n")
