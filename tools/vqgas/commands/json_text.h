#pragma once
#include <nlohmann/json.hpp>
#include <string>

/// A report with the version of its form: docs/schemas/NAME.json. A new field needs its place in the schema; a removed
/// or changed one a new version.
inline nlohmann::ordered_json begin_report(const std::string& name) { return {{"schema", "vqgas." + name + "/1"}}; }

/// A report as text. Names from files may hold bytes that are not UTF-8; they are replaced.
inline std::string print_json_text(const nlohmann::ordered_json& report) {
  return report.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}
