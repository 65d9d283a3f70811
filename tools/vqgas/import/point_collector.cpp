#include "tools/vqgas/import/point_collector.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/vqgas/support/input_error.h"

namespace {

/// Primitives have numbers of 32 bits, of which the last one is invalid.
constexpr u64 most_points = core_invalid_index;

u64 get_point_bytes(const PointFields& fields) {
  return sizeof(GMathVec3<float>) + (fields.has_colors ? sizeof(u32) : 0) + (fields.has_radii ? sizeof(float) : 0);
}

u64 check_count(const std::string& path, u64 count, u64 point_bytes, const PointCollecting& collecting) {
  if (count >= most_points) throw InputError(path, "has " + std::to_string(count) + " points, more than 4294967294");
  const u64 bytes = count * point_bytes;
  if (bytes > collecting.memory) {
    std::array<char, 128> text;
    std::snprintf(text.data(), text.size(), "needs %.2f GB for %llu points; no more than %.2f GB may be allocated",
                  1e-9 * static_cast<double>(bytes), static_cast<unsigned long long>(count),
                  1e-9 * static_cast<double>(collecting.memory));
    throw InputError(path, text.data());
  }
  if (collecting.reading.announce) collecting.reading.announce(count, bytes);
  return count;
}

}  // namespace

PointField get_point_field(std::string_view name) {
  std::string lower(name);
  for (char& c : lower) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  constexpr std::array<std::string_view, point_field_count> names = {"x", "y", "z", "red", "green", "blue", "radius"};
  constexpr std::array<std::string_view, point_field_count> others = {"", "", "", "r", "g", "b", ""};
  for (std::size_t k = 0; k < point_field_count; ++k) {
    if (!lower.empty() && (lower == names[k] || lower == others[k])) return static_cast<PointField>(k);
  }
  return PointField::other;
}

PointFields check_fields(const std::string& path, const std::string& place, std::vector<PointField>& fields) {
  std::array<std::size_t, point_field_count> counts = {};
  for (const PointField field : fields) {
    if (field != PointField::other && ++counts[static_cast<std::size_t>(field)] == 2)
      throw InputError(path, place + ": names x, y, z, a color or the radius twice");
  }
  if (counts[0] + counts[1] + counts[2] != 3) throw InputError(path, place + ": does not name x, y and z");
  const bool has_colors = counts[3] + counts[4] + counts[5] == 3;
  for (PointField& field : fields) {
    if (!has_colors && field >= PointField::red && field <= PointField::blue) field = PointField::other;
  }
  return {true, has_colors, counts[6] == 1};
}

PointCollector::PointCollector(const std::string& path, const PointFields& fields, u64 count, float color_range,
                               const PointCollecting& collecting)
    : path_(path),
      fields_(fields),
      color_range_(color_range),
      progress_(collecting.reading.progress, "Read points", 1.0,
                static_cast<uint>(check_count(path, count, get_point_bytes(fields), collecting))) {
  source_.name = path;
  source_.positions.reserve(count);
  if (fields_.has_colors) source_.colors.reserve(count);
  if (fields_.has_radii) source_.radii.reserve(count);
}

bool PointCollector::add(const PointValues& values) {
  const auto get = [&](PointField field) { return values[static_cast<std::size_t>(field)]; };
  if (fields_.has_colors && !add_color(values)) return false;
  const GMathVec3<float> position(get(PointField::x), get(PointField::y), get(PointField::z));
  source_.positions.push_back(position);
  bool is_finite = std::isfinite(position.x) && std::isfinite(position.y) && std::isfinite(position.z);
  if (fields_.has_radii) {
    source_.radii.push_back(get(PointField::radius));
    is_finite &= std::isfinite(source_.radii.back());
  }
  source_.non_finite_count += is_finite ? 0 : 1;
  progress_.step(static_cast<uint>(source_.positions.size()));
  return true;
}

bool PointCollector::add_color(const PointValues& values) {
  const float* color = &values[static_cast<std::size_t>(PointField::red)];
  u32 rgb = 0;
  for (int k = 0; k < 3; ++k) {
    if (!(color[k] >= 0.0f && color[k] <= 65535.0f)) return false;
    if (color[k] > color_range_) raise_color_range(color[k]);
  }
  for (int k = 0; k < 3; ++k) rgb = rgb << 8 | static_cast<u32>(color[k] * 255.0f / color_range_ + 0.5f);
  source_.colors.push_back(rgb);
  return true;
}

/// Colors read so far were taken for shares of a smaller range. Eight bits are enough to correct that: whole components
/// of 0 and 1 were stored exactly, and the larger range has no finer steps than these.
void PointCollector::raise_color_range(float greatest) {
  const float range = greatest > 255.0f ? 65535.0f : 255.0f;
  const float scale = color_range_ / range;
  for (u32& rgb : source_.colors) {
    u32 scaled = 0;
    for (const u32 shift : {16, 8, 0}) scaled |= static_cast<u32>(float(rgb >> shift & 0xff) * scale + 0.5f) << shift;
    rgb = scaled;
  }
  color_range_ = range;
}

PointSource PointCollector::finish() {
  if (source_.positions.empty()) throw InputError(path_, "holds no point");
  return std::move(source_);
}
