# What `cmake --install` leaves under the prefix, in the components library, dev and tool:
#
#   lib/libvq_*.so.1*                      library
#   lib/libvq_*.so, include/vq_gas/        dev
#   lib/cmake/vq_gas/, lib/pkgconfig/      dev      find_package(vq_gas 1), pkg-config vq_gas
#   bin/vqgas, share/                      tool     with manual pages, completion for shells, schemas of its reports
#
# Everything finds the rest by relative paths, so that the tree can be moved.
include(CMakePackageConfigHelpers)

# Debian keeps libraries in a folder of their architecture, under /usr/local too.
if(EXISTS /etc/debian_version AND CMAKE_LIBRARY_ARCHITECTURE)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Folder of libraries, below the prefix")
endif()
include(GNUInstallDirs)

get_property(libraries GLOBAL PROPERTY VQ_LIBRARIES)
set_target_properties(${libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS ${libraries} vq_host EXPORT vq_gas-targets
  LIBRARY COMPONENT library NAMELINK_COMPONENT dev
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vq_gas COMPONENT dev)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/vq_gas)
install(EXPORT vq_gas-targets NAMESPACE vq_gas:: DESTINATION ${package_folder} COMPONENT dev)
configure_package_config_file(cmake/vq_gas-config.cmake.in vq_gas-config.cmake
  INSTALL_DESTINATION ${package_folder} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(vq_gas-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vq_gas-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/vq_gas-config-version.cmake
  DESTINATION ${package_folder} COMPONENT dev)

# Every library is named, because inline functions of headers call all of them.
set(link_flags "")
foreach(library IN LISTS libraries)
  get_target_property(type ${library} TYPE)
  if(type STREQUAL "SHARED_LIBRARY")
    string(PREPEND link_flags " -l${library}")
  endif()
endforeach()
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_INCLUDEDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
  OUTPUT_VARIABLE include_folder)
configure_file(cmake/vq_gas.pc.in vq_gas.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vq_gas.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

if(TARGET vqgas)
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR}
    OUTPUT_VARIABLE library_folder)
  set_target_properties(vqgas PROPERTIES INSTALL_RPATH "$ORIGIN/${library_folder}")
  install(TARGETS vqgas RUNTIME COMPONENT tool)
  get_target_property(manual vqgas VQGAS_MANUAL)
  install(DIRECTORY ${manual}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool FILES_MATCHING PATTERN "*.1.gz")
  install(FILES ${manual}/vqgas.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tool
    RENAME vqgas)
  install(FILES ${manual}/_vqgas DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT tool)
  install(FILES ${manual}/vqgas.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tool)
  install(DIRECTORY docs/schemas DESTINATION ${CMAKE_INSTALL_DATADIR}/vq_gas COMPONENT tool)
endif()
