// tools/vqgas/import/point_collector.h
//
// The points of a file while it is read, in any format.
#pragma once
#include <array>
#include <string_view>
#include <vector>

#include "tools/vqgas/import/point_file.h"
#include "vq_app_base/app_progress_scope.h"

/// What a column or property of a point file holds.
enum class PointField : u8 { x, y, z, red, green, blue, radius, other };
inline constexpr std::size_t point_field_count = 7;

/// By its usual names, in any case.
PointField get_point_field(std::string_view name);

/// The values of one point by field. Those that the file lacks are not read.
using PointValues = std::array<float, point_field_count>;

/// The fields that a file has.
struct PointFields {
  bool has_positions = false, has_colors = false, has_radii = false;
};

/// The file has a color if it has all of its components; else it makes those it has PointField::other. Throws
/// InputError when the file has no x, y or z, or a field twice.
/// @param place  of the names, for the error
PointFields check_fields(const std::string& path, const std::string& place, std::vector<PointField>& fields);

/// Who follows the reading, and how much memory the points may take.
struct PointCollecting {
  const PointReading& reading;
  u64 memory;  ///< in bytes
};

class PointCollector {
 public:
  /// Announces the points, then allocates memory for them. Throws InputError when they are too many.
  /// @param count        points, or an upper bound
  /// @param color_range  value of a full color component, if it is known; 1 if larger values are to raise it
  PointCollector(const std::string& path, const PointFields& fields, u64 count, float color_range,
                 const PointCollecting& collecting);

  /// False when a component of the color is negative, not finite or above 65535; the point is then left out.
  bool add(const PointValues& values);
  u64 get_count() const { return source_.positions.size(); }
  /// Throws InputError when there is no point.
  PointSource finish();

 private:
  bool add_color(const PointValues& values);
  void raise_color_range(float greatest);

  const std::string& path_;
  const PointFields fields_;
  float color_range_;
  PointSource source_;
  AppProgressScope progress_;
};
