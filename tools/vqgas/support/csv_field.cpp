#include "tools/vqgas/support/csv_field.h"

std::string print_csv_field(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char letter : text) quoted += letter == '"' ? "\"\"" : std::string(1, letter);
  return quoted + "\"";
}
