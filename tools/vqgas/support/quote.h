// tools/vqgas/support/quote.h
#pragma once
#include <string>
#include <string_view>

/// What an error quotes of a text: its first letters, without control characters.
inline std::string quote(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text.substr(0, 60)) quoted += static_cast<unsigned char>(c) < ' ' || c == '\x7f' ? '?' : c;
  return quoted + "'";
}
