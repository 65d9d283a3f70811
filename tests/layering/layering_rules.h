// tests/layering/layering_rules.h
//
// The layering table of docs/architecture.md as code, and the other rules of the layering test. Each is a function of
// paths or text alone. Paths are relative to the root of the repository.
#pragma once
#include <optional>
#include <string>
#include <vector>

#include "layering/source_scan.h"

/// Why `from` may not include `to`, or nothing when it may.
std::optional<std::string> find_layer_fault(const std::string& from, const std::string& to);

/// A path of the host or of the library.
bool is_library_path(const std::string& path);

/// A header of a structure class: directly in gas.
bool is_structure_header(const std::string& path);

/// Whether the header with the code `other` defines a base of a class in `code`, or no derived class at all, which
/// makes it a helper and not a structure.
bool is_base_or_helper(const std::string& code, const std::string& other);

/// A header of the C++20 standard library.
bool is_standard_header(const std::string& name);

/// A header of processor intrinsics.
bool is_intrinsics_header(const std::string& name);

/// The headers of the operating system that a few folders may use, vq_core for large pages.
bool is_system_header_of(const std::string& path, const std::string& name);

/// The first intrinsics header, type or function that `file` uses; empty when there is none.
std::string find_intrinsic(const ScanFile& file);

/// Lines of `text` ("number: line") that speak of a document the repository does not hold or of a place on one machine.
std::vector<std::string> find_outside_words(const std::string& text);

/// Binary files, and the pages written for those who steer the development.
bool may_speak_of_anything(const std::string& path, const std::string& text);
