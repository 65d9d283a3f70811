# Holds every #include line to the layering table of docs/architecture.md:  cmake -D root=FOLDER -P layering.cmake
cmake_minimum_required(VERSION 3.25)

# Rank, letter of the group, and how the paths of the group's files begin; the longest beginning counts. A file may
# include its own group and the ranks before it. What only "host/" or "gas/bvh/" matches may include nothing.
set(table
  "01a host/vq_core/" "01b host/" "01c gas/bvh/" "02a host/vq_simd/" "03a host/vq_sys/" "03b host/vq_gmath/"
  "03c host/vq_event/" "04a host/vq_resource/" "04b host/vq_app_base/" "05a host/vq_of/" "06a host/vq_ctx/"
  "06b host/vq_shading_variable/" "07a host/vq_geometry/" "08a host/vq_curve/" "09a host/vq_gas_base/"
  "09b host/vq_particle/" "10a host/vq_module/" "11a gas/frame/" "12a gas/bvh/bvh_layout" "12a gas/bvh/bvh_quantize"
  "12a gas/bvh/bvh_oriented" "13a gas/bvh/bvh_start" "13a gas/bvh/gas_bvh" "14a gas/bvh/gas_bvh_motion"
  "15a gas/bvh/bvh_build" "15a gas/bvh/bvh_finalize" "15a gas/bvh/bvh_node_pool"
  "15b gas/bvh/bvh_cluster" "15c gas/bvh/bvh_kernel" "15c gas/bvh/bvh_frustum" "15c gas/bvh/bvh_scratch"
  "13a gas/bvh/bvh_visit" "13a gas/bvh/bvh_order_work" "15d gas/bvh/bvh_statistics" "16a gas/structure/" "17a gas/"
  "18a tools/vqgas/support/" "19a tools/vqgas/image/" "20a tools/vqgas/source/" "21a tools/vqgas/demo/"
  "21b tools/vqgas/import/" "22a tools/vqgas/scene/" "23a tools/vqgas/render/" "24a tools/vqgas/report/"
  "24a tools/vqgas/commands/" "25a tools/"
  "25b bench/" "25c examples/" "25d tests/")

function(find_place path result)
  set(longest 0)
  foreach(entry IN LISTS table)
    string(SUBSTRING "${entry}" 4 -1 start)
    string(FIND "${path}" "${start}" at)
    string(LENGTH "${start}" length)
    if(at EQUAL 0 AND length GREATER longest)
      set(longest ${length})
      string(SUBSTRING "${entry}" 0 3 place)
    endif()
  endforeach()
  set(${result} ${place} PARENT_SCOPE)
endfunction()

# Sets allowed: whether `from` may include `to`. Tools and tests may look into the other folders as the conditions say;
# headers of the standard library have no ending; vq_core asks the system for large pages, vq_simd for intrinsics.
function(check_include from to)
  string(REGEX MATCH "^[a-z]+/" top "${from}")
  set(allowed TRUE)
  if(to MATCHES "^<(.*)>")
    if(to MATCHES "intrin\\.h>|<arm_neon\\.h>")
      string(REGEX MATCH "^host/vq_simd/" allowed "${from}")
    elseif(top MATCHES "host|gas" AND to MATCHES "[./]")
      string(REGEX MATCH "^host/vq_core/.*<sys/mman.h>" allowed "${from}${to}")
    endif()
  elseif(top STREQUAL "examples/" AND to MATCHES "^gas/")
    string(REGEX MATCH "^gas/[^/]+$" allowed "${to}")
  elseif(NOT to MATCHES "^(host/|gas/|${top})")
    string(REGEX MATCH "^tests/.*>tools/|^tests/docs/.*>examples/" allowed "${from}>${to}")
  else()
    find_place("${from}" own)
    find_place("${to}" other)
    string(SUBSTRING ${own} 0 2 rank)
    if(NOT own STREQUAL other AND NOT other STRLESS rank)
      set(allowed FALSE)
    endif()
  endif()
  set(allowed "${allowed}" PARENT_SCOPE)
endfunction()

foreach(wrong  # the table tells right from wrong
    "host/vq_sys/a.cpp;host/vq_ctx/b.h" "host/vq_unheard_of/a.cpp;host/vq_core/b.h" "gas/frame/a.h;gas/bvh/bvh_layout.h"
    "gas/bvh/bvh_builder.cpp;gas/bvh/bvh_kernel.h" "gas/bvh/bvh_unheard_of.cpp;gas/bvh/bvh_layout.h" "gas/a.cpp;<unistd.h>"
    "bench/a.cpp;tests/support/a.h" "examples/a.cpp;gas/bvh/bvh_layout.h" "gas/a.cpp;<immintrin.h>")
  check_include(${wrong})
  if(allowed)
    message(SEND_ERROR "the table lets ${wrong} pass")
  endif()
endforeach()

set(count 0)
file(GLOB_RECURSE files RELATIVE ${root} ${root}/host/* ${root}/gas/* ${root}/tools/* ${root}/bench/* ${root}/examples/*
     ${root}/tests/*)
list(FILTER files INCLUDE REGEX "\\.(h|cpp)$")
foreach(file IN LISTS files)
  file(STRINGS ${root}/${file} lines REGEX "^ *# *(include|pragma once)")
  if(file MATCHES "\\.h$" AND NOT "#pragma once" IN_LIST lines)
    message(SEND_ERROR "${file} lacks #pragma once")
  endif()
  list(FILTER lines INCLUDE REGEX "include")
  foreach(line IN LISTS lines)
    math(EXPR count "${count} + 1")
    string(REGEX REPLACE "^ *# *include *\"?([^\"]+).*" "\\1" name "${line}")
    foreach(start host/ tests/)
      if(EXISTS ${root}/${start}${name})
        set(name ${start}${name})
      endif()
    endforeach()
    check_include(${file} ${name})
    if(NOT allowed OR NOT (name MATCHES "^<" OR EXISTS ${root}/${name}))
      message(SEND_ERROR "${file} may not have ${line}")
    endif()
  endforeach()
endforeach()
if(count LESS 1000)
  message(FATAL_ERROR "only ${count} #include lines were found in ${root}")
endif()
