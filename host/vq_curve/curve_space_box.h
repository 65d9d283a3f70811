// host/vq_curve/curve_space_box.h
//
// The box of many segments at rest along the axes of one space, four floats per operation. A lane is an axis:
//
//   place_k    (p_k - origin) . axis        of control point k; lanes x, y, z, 0
//   radius_k   its radius
//   above_k    radius_k + place_k           control values of the upper bound
//   below_k    radius_k - place_k           minus the lower bound
//
// The bounds of a cubic are the extremes of the polynomials with these control values. Most segments of a set lie
// inside the box of those before them, which the control values alone show. Coordinates are relative to a point of the
// set, so that rounding errors are relative to its size; the box is enlarged by them.
#pragma once
#include <algorithm>
#include <limits>
#include <optional>

#include "vq_curve/curve_segment.h"
#include "vq_simd/simd_float.h"

class CurveSpaceBox {
 public:
  CurveSpaceBox(const GMathLinearSpace3<double>& space, const GMathVec3<float>& origin)
      : origin_(origin.x, origin.y, origin.z, 0.0f), offset_(space.measure(GMathVec3<double>(origin))) {
    for (uint k = 0; k < 3; ++k) columns_[k] = join(space.axis[0][k], space.axis[1][k], space.axis[2][k]);
  }

  /// @param points  the segment's control points, 16-byte aligned
  template <CurveShape shape>
  void add(const CurvePoint<float>* points) {
    constexpr uint count = CurveSegment<shape>::point_count;
    SimdF above[count], below[count];
    for (uint k = 0; k < count; ++k) measure(points[k], above[k], below[k]);
    SimdF hull_above = above[0], hull_below = below[0];
    for (uint k = 1; k < count; ++k) {
      hull_above = max(above[k], hull_above);
      hull_below = max(below[k], hull_below);
    }
    if (((hull_above > above_).get_bits() | (hull_below > below_).get_bits()) == 0) return;
    largest_ = max(max(hull_above, hull_below), largest_);
    if constexpr (shape == CurveShape::linear) {
      above_ = max(hull_above, above_);
      below_ = max(hull_below, below_);
    } else {
      above_ = max(get_maximum(above), above_);
      below_ = max(get_maximum(below), below_);
    }
  }

  /// Nothing if the segments are so large or so small that products of coordinates leave the range of floats.
  std::optional<GMathBbox3<double>> get_bbox() const {
    float below[4], above[4], largest[4];
    below_.store_unaligned(below);
    above_.store_unaligned(above);
    largest_.store_unaligned(largest);
    const float reach = std::max({largest[0], largest[1], largest[2]});
    if (!(reach >= 1e-12f && reach <= 1e12f)) return std::nullopt;
    // At most 20 roundings by 2^-24 of the distance from the origin, which is less than twice `reach`.
    const double slack = 0x1p-18 * reach;
    GMathBbox3<double> box;
    for (uint axis = 0; axis < 3; ++axis) {
      box.min[axis] = offset_[axis] - below[axis] - slack;
      box.max[axis] = offset_[axis] + above[axis] + slack;
    }
    return box;
  }

 private:
  static SimdF join(double x, double y, double z) {
    return {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z), 0.0f};
  }

  void measure(const CurvePoint<float>& point, SimdF& above, SimdF& below) const {
    const SimdF at = SimdF::load(&point.position.x) - origin_;
    const SimdF place =
        columns_[0] * broadcast<0>(at) + columns_[1] * broadcast<1>(at) + columns_[2] * broadcast<2>(at);
    const SimdF radius = max(broadcast<3>(at), SimdF(0.0f));
    above = radius + place;
    below = radius - place;
  }

  /// Largest value of the cubic with these Bernstein coefficients over [0, 1], in each lane.
  static SimdF get_maximum(const SimdF (&value)[4]) {
    const auto& [a, b, c, d] = value;
    const SimdF zero(0.0f), one(1.0f), three(3.0f);
    // The derivative divided by 3 is p + 2 q u + r u^2; only the root with a negative slope can be a maximum.
    const SimdF p = b - a, q = (c - b) - p, r = (d - c) - (c - b) - q;
    const SimdF root = sqrt(max(q * q - p * r, zero));
    const auto falls = q <= zero;
    const SimdF at = select(falls, p, zero - (q + root)) / select(falls, root - q, r);
    const SimdF u = min(max(at, zero), one), v = one - u;  // NaN, where there is no root, becomes 0
    return max(v * v * (v * a + three * u * b) + u * u * (three * v * c + u * d), max(a, d));
  }

  SimdF columns_[3];  ///< components x, y, z of the three axes
  SimdF origin_;
  GMathVec3<double> offset_;  ///< the origin along the axes
  SimdF above_{std::numeric_limits<float>::lowest()}, below_{std::numeric_limits<float>::lowest()};
  SimdF largest_{0.0f};
};
