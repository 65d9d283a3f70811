// host/vq_core/core_string.h
//
// The text that crosses the boundary between host and library: bytes, ended by a zero.
#pragma once
#include <compare>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "vq_core/core_export.h"

class VQ_EXPORT CoreString {
 public:
  CoreString() = default;
  /// A null pointer gives the empty string.
  CoreString(const char* text) : text_(text ? text : "") {}
  explicit CoreString(std::string_view text) : text_(text) {}

  const char* get_data() const { return text_.c_str(); }
  std::size_t get_length() const { return text_.size(); }
  bool is_empty() const { return text_.empty(); }
  std::string_view get_view() const { return text_; }
  CoreString& append(std::string_view more);

  friend bool operator==(const CoreString& a, const CoreString& b) { return a.text_ == b.text_; }
  friend std::strong_ordering operator<=>(const CoreString& a, const CoreString& b) { return a.text_ <=> b.text_; }

 private:
  std::string text_;
};

/// @cond  the reference has no place for a member of std
template <>
struct std::hash<CoreString> {
  std::size_t operator()(const CoreString& text) const { return std::hash<std::string_view>()(text.get_view()); }
};
/// @endcond
