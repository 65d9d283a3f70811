#include "tools/vqgas/import/hair_text.h"

#include <filesystem>
#include <fstream>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/interrupt.h"
#include "tools/vqgas/support/number_list.h"
#include "tools/vqgas/support/quote.h"

namespace {

/// Replaces blanks by single spaces, and removes them at both ends and a comment from # on.
std::string tidy(const std::string& line) {
  std::string text;
  for (const char c : line.substr(0, line.find('#'))) {
    const bool is_blank = c == ' ' || c == '\t' || c == '\r';
    if (is_blank && (text.empty() || text.back() == ' ')) continue;
    text += is_blank ? ' ' : c;
  }
  if (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

}  // namespace

HairSource read_hair_text(const std::string& path) {
  HairSource source;
  CurveData& data = source.data;
  std::ifstream file(path);
  std::string line;
  bool in_curve = false, has_segment = false;
  for (std::size_t number = 1; std::getline(file, line); ++number) {
    throw_if_interrupted();
    const std::string text = tidy(line);
    if (text.empty()) {
      in_curve &= line.find('#') != std::string::npos;  // a comment line does not end the curve
      continue;
    }
    const std::vector<double> v = parse_numbers(text, ' ');
    if (v.size() != 4)
      throw InputError(path, "line " + std::to_string(number) + ": " + quote(text) + " is not x y z radius");
    const GMathVec3<double> position(v[0], v[1], v[2]);
    data.points.push_back({GMathVec3<float>(position), static_cast<float>(v[3])});
    if (!in_curve) data.curve_sizes.push_back(0);
    has_segment |= ++data.curve_sizes.back() >= 2;
    in_curve = true;
  }
  if (!has_segment) throw InputError(path, "holds no strand of two points");
  data.group_names.emplace_back(std::filesystem::path(path).stem().c_str());
  source.group_colors = {color_from_srgb(0x9a6b42)};
  return source;
}
