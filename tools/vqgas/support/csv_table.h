// tools/vqgas/support/csv_table.h
#pragma once
#include <string>

/// CSV with a header as a table for people: columns as wide as their longest field, numbers at the right and rounded to
/// six digits, a dash for an empty field. Line breaks in fields become blanks.
std::string align_csv(const std::string& csv);
