// tools/vqgas/support/number_list.h
#pragma once
#include <string>
#include <string_view>
#include <vector>

/// Splits at each separator; an empty text gives one empty piece.
std::vector<std::string> split_text(std::string_view text, char separator);

/// Parses the numbers between separators, ignoring blanks around them; inf and nan are numbers. Empty when a piece is
/// not a number.
std::vector<double> parse_numbers(std::string_view text, char separator);

/// The shortest decimal text that reads back as the same double; of -0, "0".
std::string print_number(double value);
