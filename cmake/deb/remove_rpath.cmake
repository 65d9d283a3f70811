# Run by cpack on the staged files: what is installed under /usr finds its libraries without a search path of its own.
file(GLOB_RECURSE files ${CPACK_TEMPORARY_DIRECTORY}/*/usr/bin/* ${CPACK_TEMPORARY_DIRECTORY}/*/usr/lib/*.so.*)
foreach(file IN LISTS files)
  if(NOT IS_SYMLINK ${file})
    file(RPATH_REMOVE FILE ${file})
  endif()
endforeach()
