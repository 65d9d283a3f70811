#include "tools/vqgas/support/csv_table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "tools/vqgas/support/number_list.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;

Rows read_rows(const std::string& csv) {
  Rows rows;
  std::vector<std::string> row(1);
  bool is_quoted = false;
  for (std::size_t k = 0; k < csv.size(); ++k) {
    const char letter = csv[k];
    if (letter == '"' && is_quoted && k + 1 < csv.size() && csv[k + 1] == '"') {
      row.back() += csv[++k];
    } else if (letter == '"') {
      is_quoted = !is_quoted;
    } else if (letter == ',' && !is_quoted) {
      row.emplace_back();
    } else if (letter == '\n' && !is_quoted) {
      rows.push_back(std::move(row));
      row.assign(1, "");
    } else {
      row.back() += letter == '\n' || letter == '\r' ? ' ' : letter;
    }
  }
  return rows;
}

bool is_number(const std::string& field) { return parse_numbers(field, ',').size() == 1; }

/// Whole numbers keep all digits.
std::string round_field(const std::string& field) {
  if (field.empty()) return "-";
  if (!is_number(field) || field.find_first_not_of("-0123456789") == std::string::npos) return field;
  char text[32];
  std::snprintf(text, sizeof(text), "%.6g", parse_numbers(field, ',')[0]);
  return text;
}

}  // namespace

std::string align_csv(const std::string& csv) {
  Rows rows = read_rows(csv);
  if (rows.empty()) return "";
  const std::size_t columns = rows[0].size();
  std::vector<std::size_t> widths(columns, 0);
  std::vector<bool> are_numbers(columns, true);
  for (std::size_t k = 0; k < rows.size(); ++k) {
    rows[k].resize(columns);
    for (std::size_t column = 0; column < columns; ++column) {
      std::string& field = rows[k][column];
      if (k > 0 && !field.empty() && !is_number(field)) are_numbers[column] = false;
      if (k > 0) field = round_field(field);
      widths[column] = std::max(widths[column], field.size());
    }
  }
  std::string table;
  for (const std::vector<std::string>& row : rows) {
    for (std::size_t column = 0; column < columns; ++column) {
      const std::string blanks(widths[column] - row[column].size(), ' ');
      table += column == 0 ? "" : "  ";
      table += are_numbers[column] ? blanks + row[column] : row[column] + blanks;
    }
    table.erase(table.find_last_not_of(' ') + 1);
    table += '\n';
  }
  return table;
}
