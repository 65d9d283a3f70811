# `cpack` in the build folder makes three Debian packages: libvq-gas1, libvq-gas-dev and vqgas.
set(VQ_DEB_MAINTAINER "The vq_gas developers <vq-gas@example.org>" CACHE STRING "Maintainer field of the Debian packages")
set(library_package libvq-gas${PROJECT_VERSION_MAJOR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "the vq_gas developers")
set(CPACK_PACKAGE_CONTACT ${VQ_DEB_MAINTAINER})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library dev)
if(TARGET vqgas)
  list(APPEND CPACK_COMPONENTS_ALL tool)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/deb/remove_rpath.cmake)

# The first line is the synopsis, what follows the long description.
set(about "A renderer builds four-wide trees of boxes, or grids, over its geometry, and
queries them from any number of threads, static or with motion blur.")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "ray and frustum queries over meshes, hair, points and scenes
${about}
.
This package has the shared libraries.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/deb/triggers)

set(CPACK_COMPONENT_DEV_DESCRIPTION "ray and frustum queries (headers, CMake and pkg-config files)
${about}
.
This package has what programs that use the libraries are built with.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvq-gas-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")

set(CPACK_COMPONENT_TOOL_DESCRIPTION "renders, traces and measures scenes with vq_gas
The program renders pictures of meshes, hair and point clouds, traces rays
through them, selects objects in a frustum and reports on the structures.")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME vqgas)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")

# Debian requires both files in every package; other installations leave them out.
execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/cmake/deb/changelog
  OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz COMMAND_ERROR_IS_FATAL ANY)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  install(FILES cmake/deb/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
    DESTINATION share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()
if(TARGET vqgas)  # Debian's zsh does not read site-functions below /usr
  install(FILES ${manual}/_vqgas DESTINATION share/zsh/vendor-completions COMPONENT tool EXCLUDE_FROM_ALL)
endif()
include(CPack)
