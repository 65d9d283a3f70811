# How everything is compiled: C++20, all warnings, no fused multiply-add, the optional sanitizers. Warnings are errors in
# this project's presets alone: who embeds the library may have a newer compiler, which warns of more.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Release, Debug or RelWithDebInfo" FORCE)
endif()

add_library(vq_options INTERFACE)
target_compile_options(vq_options INTERFACE -Wall -Wextra -Wpedantic)

# The builder, the refit and the kernels decode the same 8-bit boxes; the three results must agree in every bit, so the
# compiler may not fuse a multiply and an add in one of them. Exact edge functions in the triangle test need the same.
target_compile_options(vq_options INTERFACE -ffp-contract=off)

# Calls inside one shared library need no detour through its symbol table.
target_compile_options(vq_options INTERFACE -fno-semantic-interposition)

# x86-64-v2 is the oldest processor served; other processors take the plain C++ form of vq_simd.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  target_compile_options(vq_options INTERFACE -msse4.2 -mpopcnt)
endif()

if(VQ_SANITIZE)
  target_compile_options(vq_options INTERFACE -fsanitize=${VQ_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(vq_options INTERFACE -fsanitize=${VQ_SANITIZE})
  # GCC: checks of a sanitizer hide from this warning what is set before use, in the standard library's headers too.
  target_compile_options(vq_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()
