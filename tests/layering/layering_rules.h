// tests/layering/layering_rules.h
//
// The layering table of docs/architecture.md as code, and the other rules of the layering test. Each is a function of
// paths or text alone. Paths are relative to the root of the repository.
#pragma once
#include <string>
#include <vector>

#include "layering/source_scan.h"

/// Why `from` may not include `to`; empty when it may.
std::string find_layer_fault(const std::string& from, const std::string& to);

/// A path of the host or of the library.
inline bool is_library_path(const std::string& path) { return path.starts_with("host/") || path.starts_with("gas/"); }

/// A header of a structure class: directly in gas.
inline bool is_structure_header(const std::string& path) {
  return path.starts_with("gas/") && path.find('/', 4) == std::string::npos && path.ends_with(".h");
}

/// Whether the header with the code `other` defines a base of a class in `code`, or no derived class at all, which
/// makes it a helper and not a structure.
bool is_base_or_helper(const std::string& code, const std::string& other);

inline bool is_intrinsics_header(const std::string& name) {
  return name.ends_with("intrin.h") || name == "arm_neon.h" || name == "arm_sve.h" || name == "altivec.h";
}

/// The first intrinsics header, type or function that `file` uses; empty when there is none.
std::string find_intrinsic(const ScanFile& file);

/// Lines of `text` ("number: line") that speak of a document the repository does not hold or of a place on one machine.
std::vector<std::string> find_outside_words(const std::string& text);
