#include "tools/vqgas/import/point_write.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>

#include "tools/vqgas/support/csv_field.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/output_file.h"

namespace {

constexpr std::size_t piece_bytes = std::size_t{1} << 16;

bool has_color(const PointRow& row) { return row.color != core_invalid_index; }

bool has_any_color(const PointRows& points) { return std::any_of(points.rows.begin(), points.rows.end(), has_color); }

/// Red, green, blue.
std::array<u8, 3> get_components(const PointRow& row) {
  const u32 rgb = has_color(row) ? row.color : 0xFFFFFF;
  return {static_cast<u8>(rgb >> 16), static_cast<u8>(rgb >> 8), static_cast<u8>(rgb)};
}

/// Both forms hold a name in one line.
std::string remove_line_ends(std::string name) {
  std::replace_if(
      name.begin(), name.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return name;
}

template <class T>
void append_text(std::string& line, T number) {
  std::array<char, 32> digits;
  line.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

template <class T>
void append_bytes(std::string& bytes, T number) {
  static_assert(std::endian::native == std::endian::little);
  bytes.append(reinterpret_cast<const char*>(&number), sizeof(T));
}

/// Calls `append(text, row)` for each row and writes the text in pieces.
template <class Append>
void write_rows(const std::string& path, std::string text, const PointRows& points, const Append& append) {
  OutputFile file(path);
  for (const PointRow& row : points.rows) {
    append(text, row);
    if (text.size() < piece_bytes) continue;
    file.write(text.data(), text.size());
    text.clear();
  }
  file.write(text.data(), text.size());
  file.commit();
}

void write_csv(const std::string& path, const PointRows& points) {
  const bool has_colors = has_any_color(points);
  std::vector<std::string> names;
  for (const std::string& name : points.object_names) names.push_back(print_csv_field(remove_line_ends(name)));
  const std::string head = has_colors ? "x,y,z,red,green,blue,object,name,point\n" : "x,y,z,object,name,point\n";
  write_rows(path, head, points, [&](std::string& text, const PointRow& row) {
    for (const float x : {row.position.x, row.position.y, row.position.z}) {
      append_text(text, x);
      text += ',';
    }
    if (has_colors) {
      for (const u8 component : get_components(row)) {
        append_text(text, component);
        text += ',';
      }
    }
    append_text(text, row.object);
    text += ',' + names[row.object] + ',';
    append_text(text, row.point);
    text += '\n';
  });
}

std::string print_header(const PointRows& points, bool has_colors) {
  std::string header = "ply\nformat binary_little_endian 1.0\n";
  for (std::size_t object = 0; object < points.object_names.size(); ++object)
    header += "comment object " + std::to_string(object) + " " + remove_line_ends(points.object_names[object]) + "\n";
  header += "element vertex " + std::to_string(points.rows.size()) + "\n";
  header += "property float x\nproperty float y\nproperty float z\n";
  if (has_colors) header += "property uchar red\nproperty uchar green\nproperty uchar blue\n";
  return header + "property uint object\nproperty uint point\nend_header\n";
}

void write_ply(const std::string& path, const PointRows& points) {
  const bool has_colors = has_any_color(points);
  write_rows(path, print_header(points, has_colors), points, [&](std::string& bytes, const PointRow& row) {
    for (const float x : {row.position.x, row.position.y, row.position.z}) append_bytes(bytes, x);
    if (has_colors) {
      for (const u8 component : get_components(row)) append_bytes(bytes, component);
    }
    append_bytes(bytes, row.object);
    append_bytes(bytes, row.point);
  });
}

}  // namespace

bool is_point_output(const std::string& path) {
  const std::string extension = get_extension(path);
  return extension == ".csv" || extension == ".ply";
}

void write_points(const std::string& path, const PointRows& points) {
  return get_extension(path) == ".csv" ? write_csv(path, points) : write_ply(path, points);
}
