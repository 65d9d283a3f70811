#include "gas/structure/gas_world_bbox.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

/// Bounds within this limit have finite extents, also those of the boxes around them.
constexpr float outermost = std::numeric_limits<float>::max() / 4;

GMathBbox3<float> bring_into_bounds(GMathBbox3<float> box) {
  for (uint axis = 0; axis < 3; ++axis) {
    box.min[axis] = std::clamp(box.min[axis], -outermost, outermost);
    box.max[axis] = std::clamp(box.max[axis], -outermost, outermost);
  }
  return box;
}

/// The extremes of the eight transformed corners. A corner is a sum of products, and a rounded sum does not decrease if
/// a term increases. So the smallest corner is the sum of the smaller products: equal in every bit, except for the
/// signs of zeros. If a sum is not finite, the result is not valid.
GMathBbox3<double> get_corner_extremes(const GMathBbox3<float>& box, const GMathMatrix4x4<double>& matrix) {
  GMathBbox3<double> extremes;
  for (uint row = 0; row < 3; ++row) {
    double low = 0.0, high = 0.0;
    for (uint axis = 0; axis < 3; ++axis) {
      const double a = matrix.m[row][axis] * box.min[axis], b = matrix.m[row][axis] * box.max[axis];
      low += std::min(a, b);
      high += std::max(a, b);
    }
    extremes.min[row] = low + matrix.m[row][3];
    extremes.max[row] = high + matrix.m[row][3];
  }
  return extremes;
}

bool is_finite(const GMathBbox3<double>& box) {
  for (uint axis = 0; axis < 3; ++axis) {
    if (!gmath_isfinited(box.min[axis]) || !gmath_isfinited(box.max[axis])) return false;
  }
  return true;
}

}  // namespace

GMathBbox3<float> gas_get_world_bbox(const GMathBbox3<float>& local, const GMathMatrix4x4<double>& matrix,
                                     const GasBboxSurplus& surplus) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  const GMathBbox3<float> bounded = bring_into_bounds(local);  // infinity times 0 in the matrix would be NaN
  GMathBbox3<double> extremes = get_corner_extremes(bounded, matrix);
  extremes.min = extremes.min - surplus.low;
  extremes.max = extremes.max + surplus.high;
  if (!local.is_empty() && is_finite(extremes)) return bring_into_bounds(GMathBbox3<float>(extremes));
  GMathBbox3<float> box({infinity, infinity, infinity}, {-infinity, -infinity, -infinity});
  for (uint corner = 0; corner < 8; ++corner)
    box.add(GMathVec3<float>(matrix.transform_point(GMathVec3<double>(bounded.get_corner(corner)))));
  if (!local.is_empty() && !box.is_empty()) return bring_into_bounds(box);
  GMathVec3<float> place;
  for (uint axis = 0; axis < 3; ++axis) {
    const float value = static_cast<float>(matrix.m[axis][3]);
    if (std::isfinite(value)) place[axis] = value;
  }
  return {place, place};
}

void GasBboxSurplus::raise(const GasBboxSurplus& other) {
  for (uint axis = 0; axis < 3; ++axis) {
    low[axis] = std::max(low[axis], other.low[axis]);
    high[axis] = std::max(high[axis], other.high[axis]);
  }
}

// A corner's coordinate is a sum of products m b of a matrix entry and a bound. Between the samples m and b both change
// linearly; at the fraction f their product is the blend of the products at the samples, minus f (1 - f) dm db, and
// f (1 - f) is at most 1/4.
GasBboxSurplus gas_get_motion_surplus(const GMathBbox3<float>& box0, const GMathMatrix4x4<double>& matrix0,
                                      const GMathBbox3<float>& box1, const GMathMatrix4x4<double>& matrix1) {
  GasBboxSurplus surplus;
  // The usual case: the boxes of a rigid object do not change.
  if (box0 == box1 || box0.is_empty() || box1.is_empty()) return surplus;
  const GMathBbox3<double> a(bring_into_bounds(box0)), b(bring_into_bounds(box1));
  for (uint row = 0; row < 3; ++row) {
    for (uint axis = 0; axis < 3; ++axis) {
      const double turn = (matrix1.m[row][axis] - matrix0.m[row][axis]) * 0.25;
      const double of_min = turn * (b.min[axis] - a.min[axis]), of_max = turn * (b.max[axis] - a.max[axis]);
      // 0 is the first argument, so it is the result if a product is NaN.
      surplus.low[row] += std::max({0.0, of_min, of_max});
      surplus.high[row] += std::max({0.0, -of_min, -of_max});
    }
  }
  return surplus;
}

bool gas_is_invertible(const GMathMatrix4x4<double>& matrix) {
  const double determinant = matrix.get_determinant();
  return determinant != 0.0 && gmath_isfinited(determinant);
}

GMathBbox3<float> gas_blend_bboxes(const GMathBbox3<float>& a, const GMathBbox3<float>& b, double fraction) {
  if (fraction == 0.0 || fraction == 1.0) return fraction == 0.0 ? a : b;  // exact, also if the other is infinite
  const auto blend = [&](double x, double y) { return static_cast<float>(x * (1.0 - fraction) + y * fraction); };
  GMathBbox3<float> box;
  for (uint axis = 0; axis < 3; ++axis) {
    box.min[axis] = blend(a.min[axis], b.min[axis]);
    box.max[axis] = blend(a.max[axis], b.max[axis]);
  }
  return box;
}
