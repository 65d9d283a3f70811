// tools/vqgas/commands/query_lines.h
//
// Rays and beams as text, one a line.
#pragma once
#include <istream>
#include <string>
#include <vector>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/interrupt.h"
#include "tools/vqgas/support/number_list.h"

/// Reads one query a line. Skips blank lines, lines that begin with # and a first line of column names. Throws
/// InputError with the number of the line that cannot be parsed, Interrupted after a signal.
/// @param parse  bool(text, Query&)
/// @param form   for the error
template <class Query, class Parse>
std::vector<Query> read_query_lines(std::istream& input, const std::string& name, const std::string& form,
                                    const Parse& parse) {
  std::vector<Query> queries;
  std::string line;
  bool is_first = true;
  for (std::size_t number = 1; std::getline(input, line); ++number) {
    throw_if_interrupted();
    const std::size_t begin = line.find_first_not_of(" \t\r");
    if (begin == std::string::npos || line[begin] == '#') continue;
    Query query;
    if (parse(line, query)) {
      queries.push_back(query);
    } else if (!is_first || parse_numbers(line.substr(0, line.find(',')), ',').size() == 1) {
      throw InputError(name, "line " + std::to_string(number) + ": '" + line.substr(begin, 60) + "' is not " + form);
    }
    is_first = false;
  }
  return queries;
}
