// tools/vqgas/support/quote.h
#pragma once
#include <algorithm>
#include <string>
#include <string_view>

/// What an error quotes of a text: its first letters, without control characters.
inline std::string quote(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text.substr(0, 60)) quoted += static_cast<unsigned char>(c) < ' ' || c == '\x7f' ? '?' : c;
  return quoted + "'";
}

/// The text of another library's error, which may have several lines and quote a file to its end.
inline std::string make_one_line(std::string text) {
  constexpr std::size_t most_letters = 300;
  text.resize(std::min(text.size(), most_letters));
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') c = ' ';
  }
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text.empty() ? "cannot be read" : text;
}
