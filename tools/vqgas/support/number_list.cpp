#include "tools/vqgas/support/number_list.h"

#include <array>
#include <charconv>

std::vector<std::string> split_text(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  for (;;) {
    const std::size_t end = text.find(separator);
    pieces.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

std::vector<double> parse_numbers(std::string_view text, char separator) {
  std::vector<double> numbers;
  for (const std::string& piece : split_text(text, separator)) {
    const std::size_t first = piece.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    const std::size_t last = piece.find_last_not_of(" \t\r");
    const char* begin = piece.data() + first;
    const char* end = piece.data() + last + 1;
    if (*begin == '+') ++begin;  // from_chars knows no plus sign
    double value = 0.0;
    const std::from_chars_result result = std::from_chars(begin, end, value);
    if (result.ec != std::errc() || result.ptr != end) return {};
    numbers.push_back(value);
  }
  return numbers;
}

std::string print_number(double value) {
  std::array<char, 32> text;
  const std::to_chars_result result =
      std::to_chars(text.data(), text.data() + text.size(), value + 0.0);  // -0 becomes 0
  return std::string(text.data(), result.ptr);
}
