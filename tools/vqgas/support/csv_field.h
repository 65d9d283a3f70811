// tools/vqgas/support/csv_field.h
#pragma once
#include <string>

/// A field of a CSV line, quoted if necessary (RFC 4180).
std::string print_csv_field(const std::string& text);
