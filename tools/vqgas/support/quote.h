// tools/vqgas/support/quote.h
#pragma once
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

/// What an error quotes of a text: its first letters, without control characters.
inline std::string quote(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text.substr(0, 60)) quoted += static_cast<unsigned char>(c) < ' ' || c == '\x7f' ? '?' : c;
  return quoted + "'";
}

/// "a", "a and b", "a, b and c".
inline std::string join_words(const std::vector<std::string>& words) {
  std::string joined;
  for (std::size_t k = 0; k < words.size(); ++k)
    joined += (k == 0 ? "" : k + 1 == words.size() ? " and " : ", ") + words[k];
  return joined;
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
