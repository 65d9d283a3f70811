// tools/vqgas/commands/query_lines.h
//
// Rays and beams as text, of the command line or one a line, and where the answers go.
#pragma once
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/support/csv_table.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/interrupt.h"
#include "tools/vqgas/support/number_list.h"
#include "tools/vqgas/support/output_file.h"
#include "tools/vqgas/support/quote.h"

/// True for several column names between commas: each a letter, then letters, digits and underscores.
inline bool is_column_header(const std::string& line) {
  const std::vector<std::string> names = split_text(line, ',');
  const auto is_letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  const auto is_name = [&](const std::string& piece) {
    const std::size_t begin = piece.find_first_not_of(" \t\r\"");
    if (begin == std::string::npos || !is_letter(piece[begin])) return false;
    const std::string name = piece.substr(begin, piece.find_last_not_of(" \t\r\"") + 1 - begin);
    return std::ranges::all_of(name, [&](char c) { return is_letter(c) || c == '_' || (c >= '0' && c <= '9'); });
  };
  return names.size() > 1 && std::ranges::all_of(names, is_name);
}

/// Reads one query a line. Skips a byte order mark, blank lines, lines that begin with # and a first line of column
/// names. Throws InputError with the number of the line that cannot be parsed, Interrupted after a signal.
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
    if (number == 1 && line.starts_with("\xEF\xBB\xBF")) line.erase(0, 3);
    const std::size_t begin = line.find_first_not_of(" \t\r");
    if (begin == std::string::npos || line[begin] == '#') continue;
    Query query;
    if (parse(line, query)) {
      queries.push_back(query);
    } else if (!is_first || !is_column_header(line)) {
      throw InputError(name, "line " + std::to_string(number) + ": " + quote(line.substr(begin)) + " is not " + form);
    }
    is_first = false;
  }
  return queries;
}

/// The queries of the command line, else those of standard input.
/// @param texts  of the command line; `parse` takes each
/// @param kind   of the queries, for the user at a terminal
template <class Query, class Parse>
std::vector<Query> get_queries(const std::vector<std::string>& texts, const std::string& kind, bool is_quiet,
                               const std::string& form, const Parse& parse) {
  std::vector<Query> queries(texts.size());
  for (std::size_t k = 0; k < queries.size(); ++k) parse(texts[k], queries[k]);
  if (!queries.empty()) return queries;
  if (isatty(STDIN_FILENO) && !is_quiet) std::cerr << "Reading " << kind << " from the terminal, one a line:\n";
  std::istringstream lines(read_standard_input());
  return read_query_lines<Query>(lines, "standard input", form, parse);
}

/// Writes JSON to the file `path` if there is one, and to standard output what `format` says.
/// @param print_json, print_csv  std::string(); called at most once
template <class PrintJson, class PrintCsv>
void write_answers(const std::string& path, AnswerFormat format, const PrintJson& print_json,
                   const PrintCsv& print_csv) {
  const bool is_json_printed = format == AnswerFormat::json || path == "-";
  if (!path.empty() || is_json_printed) {
    const std::string text = print_json();
    if (!path.empty() && path != "-") write_text_file(path, text);
    if (is_json_printed) write_text_file("-", text);
  }
  if (!is_json_printed)
    write_text_file("-", format == AnswerFormat::table ? align_csv(print_csv()) : std::string(print_csv()));
}
