#include "tools/vqgas/import/ply_header.h"

#include "tools/vqgas/support/quote.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <sstream>

namespace {

std::vector<std::string> list_words(std::string_view line) {
  std::istringstream stream{std::string(line)};
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

std::optional<PlyType> find_ply_type(const std::string& name) {
  constexpr std::array<std::string_view, 8> names = {"char", "uchar", "short", "ushort",
                                                     "int",  "uint",  "float", "double"};
  constexpr std::array<std::string_view, 8> sized_names = {"int8",  "uint8",  "int16",   "uint16",
                                                           "int32", "uint32", "float32", "float64"};
  for (std::size_t k = 0; k < names.size(); ++k) {
    if (name == names[k] || name == sized_names[k]) return static_cast<PlyType>(k);
  }
  return std::nullopt;
}

std::optional<PlyFormat> find_ply_format(const std::vector<std::string>& words) {
  if (words.size() != 3 || words[2] != "1.0") return std::nullopt;
  if (words[1] == "ascii") return PlyFormat::ascii;
  if (words[1] == "binary_little_endian") return PlyFormat::little_endian;
  if (words[1] == "binary_big_endian") return PlyFormat::big_endian;
  return std::nullopt;
}

/// property TYPE NAME, or property list TYPE TYPE NAME
std::optional<PlyProperty> find_ply_property(const std::vector<std::string>& words) {
  const bool is_list = words.size() == 5 && words[1] == "list";
  if (words.size() != 3 && !is_list) return std::nullopt;
  const auto type = find_ply_type(words[words.size() - 2]), count_type = find_ply_type(words[is_list ? 2 : 1]);
  if (!type || !count_type) return std::nullopt;
  return PlyProperty{words.back(), *type, is_list, *count_type};
}

/// element NAME COUNT
std::optional<PlyElement> find_ply_element(const std::vector<std::string>& words) {
  u64 count = 0;
  if (words.size() != 3) return std::nullopt;
  const char* end = words[2].data() + words[2].size();
  const auto [next, error] = std::from_chars(words[2].data(), end, count);
  if (error != std::errc() || next != end) return std::nullopt;
  const auto is_control = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
  if (std::any_of(words[1].begin(), words[1].end(), is_control)) return std::nullopt;  // errors print the name
  return PlyElement{words[1], count, {}};
}

/// False when the line is invalid.
bool read_header_line(const std::vector<std::string>& words, PlyHeader& header) {
  if (words.empty() || words[0] == "comment" || words[0] == "obj_info") return true;
  if (words[0] == "format") {
    const std::optional<PlyFormat> format = find_ply_format(words);
    header.format = format.value_or(PlyFormat::ascii);
    return format.has_value();
  }
  if (words[0] == "element") {
    std::optional<PlyElement> element = find_ply_element(words);
    if (element) header.elements.push_back(std::move(*element));
    return element.has_value();
  }
  std::optional<PlyProperty> property = words[0] == "property" ? find_ply_property(words) : std::nullopt;
  if (!property || header.elements.empty()) return false;
  header.elements.back().properties.push_back(std::move(*property));
  return true;
}

}  // namespace

bool PlyElement::has_list() const {
  return std::any_of(properties.begin(), properties.end(),
                     [](const PlyProperty& property) { return property.is_list; });
}

u64 PlyElement::get_least_bytes(PlyFormat format) const {
  if (format == PlyFormat::ascii) return 2 * properties.size();  // each number has a digit, and a blank or line end
  u64 bytes = 0;
  for (const PlyProperty& property : properties)
    bytes += get_size(property.is_list ? property.count_type : property.type);
  return bytes;
}

const PlyElement* PlyHeader::find(const std::string& name) const {
  const auto found = std::find_if(elements.begin(), elements.end(),
                                  [&](const PlyElement& element) { return element.name == name && element.count > 0; });
  return found == elements.end() ? nullptr : &*found;
}

PlyHeader read_ply_header(PointLines& lines) {
  PlyHeader header;
  std::string_view line;
  if (!lines.read(line) || line != "ply") lines.fail("is not the first line of a PLY file");
  bool has_format = false;
  while (lines.read(line)) {
    const std::vector<std::string> words = list_words(line);
    if (words.size() == 1 && words[0] == "end_header") {
      if (!has_format) lines.fail("the header ends without a format");
      return header;
    }
    if (!read_header_line(words, header)) lines.fail(quote(line) + " is no valid line of a PLY header");
    has_format |= !words.empty() && words[0] == "format";
  }
  lines.fail("the header has no end");
}
