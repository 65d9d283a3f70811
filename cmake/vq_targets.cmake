# One CMake target a folder. The link lists repeat the layering table of docs/architecture.md.
include_guard()
find_package(Threads REQUIRED)

# vq_add_library(NAME SOURCES a.cpp … LINK lower_library …): a shared library of the host or of vq_gas itself.
function(vq_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_library(${name} SHARED ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC ${ARG_LINK} Threads::Threads PRIVATE vq_options)
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/host)
  # A symbol of a library that is missing in the link list is an error here and not in the program that loads this one.
  # Sanitizers leave their own symbols to the program.
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND NOT VQ_SANITIZE)
    # A call from one source of the library to another is direct.
    target_link_options(${name} PRIVATE -Wl,--no-undefined -Wl,-Bsymbolic-functions)
  endif()
endfunction()

# vq_add_program(NAME SOURCES a.cpp … LINK library …): a program under bin/.
function(vq_add_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} vq_options)
endfunction()

# vq_add_test(NAME SOURCES a.cpp … LINK library …): a GoogleTest program. ctest runs each of its tests in a process of its
# own, so that all processors have work and a hang is found by name.
function(vq_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} vq_test_support)
  target_precompile_headers(${name} REUSE_FROM vq_test_support)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 TEST_PREFIX ${name}.)
endfunction()
