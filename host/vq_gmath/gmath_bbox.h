// host/vq_gmath/gmath_bbox.h
//
// Axis-aligned box: six values, min x, y, z then max x, y, z. The empty box is inverted (+largest / -largest finite),
// so that a union with it changes nothing and no ray hits it.
#pragma once
#include <bit>
#include <limits>

#include "vq_gmath/gmath_scalar.h"
#include "vq_gmath/gmath_vec.h"

template <class T>
struct GMathBbox3 {
  GMathVec3<T> min{std::numeric_limits<T>::max(), std::numeric_limits<T>::max(), std::numeric_limits<T>::max()};
  GMathVec3<T> max{std::numeric_limits<T>::lowest(), std::numeric_limits<T>::lowest(),
                   std::numeric_limits<T>::lowest()};

  constexpr GMathBbox3() = default;
  constexpr GMathBbox3(const GMathVec3<T>& min, const GMathVec3<T>& max) : min(min), max(max) {}
  /// Ordinary conversion: double to float rounds each bound to nearest, not outwards.
  template <class U>
  constexpr explicit GMathBbox3(const GMathBbox3<U>& box) : min(box.min), max(box.max) {}

  constexpr bool operator==(const GMathBbox3&) const = default;

  constexpr void set_empty() { *this = GMathBbox3(); }
  /// True when an axis is inverted (or NaN).
  constexpr bool is_empty() const { return !(min.x <= max.x && min.y <= max.y && min.z <= max.z); }

  /// Grows to hold `p`. A NaN coordinate is ignored.
  constexpr void add(const GMathVec3<T>& p) { add(GMathBbox3(p, p)); }
  /// Grows to hold `box`: per axis the smaller minimum and the larger maximum. A NaN bound is ignored.
  constexpr void add(const GMathBbox3& box) {
    for (uint axis = 0; axis < 3; ++axis) {
      if (box.min[axis] < min[axis]) min[axis] = box.min[axis];
      if (box.max[axis] > max[axis]) max[axis] = box.max[axis];
    }
  }

  constexpr GMathVec3<T> get_center() const { return (min + max) * T(0.5); }
  constexpr GMathVec3<T> get_extent() const { return max - min; }
  /// Corner 0 to 7: bit 0 picks max x, bit 1 max y, bit 2 max z.
  constexpr GMathVec3<T> get_corner(uint corner) const {
    return {corner & 1 ? max.x : min.x, corner & 2 ? max.y : min.y, corner & 4 ? max.z : min.z};
  }
  /// Half the surface, (dy + dz) dx + dy dz: builders sort boxes by it.
  constexpr T get_half_area() const {
    const GMathVec3<T> d = get_extent();
    return (d.y + d.z) * d.x + d.y * d.z;
  }
};
static_assert(sizeof(GMathBbox3<float>) == 24 && sizeof(GMathBbox3<double>) == 48);

/// Rounds `value` up (down for a negative `direction`) to single precision: by at most two steps, exact for values that
/// are single-precision numbers, infinite beyond the range. Exact values are recognized by their bits: g++ 12 removes a
/// conversion to float and back within one function, so that a comparison may find no difference. Multiplying by a
/// little more than the rounding error is faster than std::nextafter, which took 10 % of the build of a tree over
/// curves.
inline float gmath_round_towards(double value, double direction) {
  constexpr u64 bits_beyond_single = (u64{1} << 29) - 1;
  const double magnitude = std::fabs(value);
  const bool is_held = (std::bit_cast<u64>(value) & bits_beyond_single) == 0 && (magnitude >= 0x1p-126 || value == 0.0);
  return static_cast<float>(is_held ? value : value + direction * (magnitude * 0x1.000002p-24 + 0x1p-149));
}

/// A single-precision box around `box`. NaN bounds stay.
inline GMathBbox3<float> gmath_round_outwards(const GMathBbox3<double>& box) {
  GMathBbox3<float> out;
  for (uint axis = 0; axis < 3; ++axis) {
    out.min[axis] = gmath_round_towards(box.min[axis], -1.0);
    out.max[axis] = gmath_round_towards(box.max[axis], 1.0);
  }
  return out;
}

/// True when all six bounds are finite and no axis is inverted: builders accept such boxes only.
inline bool gmath_is_valid_box(const GMathBbox3<double>& box) {
  for (uint axis = 0; axis < 3; ++axis) {
    if (!gmath_isfinited(box.min[axis]) || !gmath_isfinited(box.max[axis]) || box.min[axis] > box.max[axis])
      return false;
  }
  return true;
}
