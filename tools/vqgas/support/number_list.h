// tools/vqgas/support/number_list.h
#pragma once
#include <string>
#include <string_view>
#include <vector>

/// The pieces between separators, as they stand; an empty text is one empty piece.
std::vector<std::string> split_text(std::string_view text, char separator);

/// The numbers between separators, blanks around them ignored; inf and nan count as numbers. Empty when a piece is not
/// a number.
std::vector<double> parse_numbers(std::string_view text, char separator);

/// The shortest decimal text that reads back as the same double.
std::string print_number(double value);
