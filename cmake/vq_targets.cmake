# One CMake target a folder. The link lists repeat the layering table of docs/architecture.md.
include_guard()
find_package(Threads REQUIRED)

# vq_add_library(NAME SOURCES a.cpp … HEADERS a.h … LINK lower_library …): a shared library of the host or of vq_gas itself.
# HEADERS are its public headers, with paths below its folder: they are installed, and may include public ones alone.
function(vq_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;HEADERS;LINK" ${ARGN})
  add_library(${name} SHARED ${ARG_SOURCES})
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  target_link_libraries(${name} PUBLIC ${ARG_LINK} Threads::Threads PRIVATE vq_options)
  # A symbol of a library that is missing in the link list is an error here and not in the program that loads this one.
  # Sanitizers leave their own symbols to the program.
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND NOT VQ_SANITIZE)
    # A call from one source of the library to another is direct. Each library names the C library, also those that call
    # nothing in it: Debian requires that.
    target_link_options(${name} PRIVATE
      -Wl,--no-undefined -Wl,-Bsymbolic-functions -Wl,--push-state,--no-as-needed,-lc,--pop-state)
  endif()
  vq_publish_library(${name} PUBLIC ${ARG_HEADERS})
endfunction()

# vq_publish_library(NAME PUBLIC|INTERFACE a.h …): makes the library vq_gas::NAME, in this build and where it is installed.
# INTERFACE: it consists of headers.
function(vq_publish_library name scope)
  add_library(vq_gas::${name} ALIAS ${name})
  target_compile_features(${name} ${scope} cxx_std_20)
  target_include_directories(${name} ${scope}
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/host>)
  cmake_path(GET CMAKE_CURRENT_SOURCE_DIR PARENT_PATH base)
  target_sources(${name} ${scope} FILE_SET HEADERS BASE_DIRS ${base} FILES ${ARGN})
  set_property(GLOBAL APPEND PROPERTY VQ_LIBRARIES ${name})
endfunction()

# vq_add_program(NAME SOURCES a.cpp … LINK library …): a program under bin/.
function(vq_add_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} vq_options)
endfunction()

# vq_add_test(NAME [INTERNAL] SOURCES a.cpp … LINK library …): a GoogleTest program. ctest runs each of its tests in a
# process of its own, so that all processors have work and a hang is found by name. INTERNAL: it calls what the shared
# libraries do not export, and links their objects instead.
function(vq_add_test name)
  cmake_parse_arguments(ARG "INTERNAL" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  if(ARG_INTERNAL)
    set(tested vq_internal)
  else()
    set(tested vq_gas::vq_gas vq_gas::host)
  endif()
  target_link_libraries(${name} PRIVATE ${ARG_LINK} vq_test_support ${tested})
  target_precompile_headers(${name} REUSE_FROM vq_test_support)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 TEST_PREFIX ${name}.)
endfunction()
