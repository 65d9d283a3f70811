// host/vq_curve/curve_segment.h
//
// One piece of a fibre as a solid: the union of the balls whose centres run along a curve while their radii change.
//
//   linear   two balls and what lies between them (a cone with round ends)         points 0 and 1
//   cubic    a Bézier curve of centres and, of the same degree, of radii           points 0 to 3
//
// u runs from 0 at the first end to 1 at the last. On the round ends it goes beyond: -h on the first end and 1 + h on
// the last, h being how high a point lies over the end's rim (0 on the rim, 1 at the very tip). v is the angle around
// the fibre in whole turns, 0 included and 1 not. Where the curve stands still a whole ball may show: then v is below
// 0, minus the angle to 1e-8 turns, and its last bits say how far the normal leans. See curve_get_surface_point().
#pragma once
#include "vq_gmath/gmath_bbox.h"
#include "vq_gmath/gmath_linear_space.h"
#include "vq_gmath/gmath_ray.h"

enum class CurveShape { linear, cubic };

/// A ball: a control point of a fibre. Radii below 0 count as 0.
template <class T>
struct CurvePoint {
  GMathVec3<T> position;
  T radius{};
  constexpr bool operator==(const CurvePoint&) const = default;
};
static_assert(sizeof(CurvePoint<float>) == 16 && sizeof(CurvePoint<double>) == 32);

template <CurveShape shape>
struct CurveSegment {
  static constexpr uint point_count = shape == CurveShape::linear ? 2 : 4;
  CurvePoint<double> point[point_count];

  /// Centre and radius at `u` in [0, 1].
  CurvePoint<double> get_ball(double u) const;
  /// How they change with u.
  CurvePoint<double> get_ball_derivative(double u) const;
};

struct CurveHit {
  double distance = 0.0;  ///< in units of the ray's direction
  double u = 0.0, v = 0.0;
};

/// Where the ray's line crosses the solid's surface first within [t_near, t_far): where it enters or, from inside,
/// where it leaves. False when it does not, and for segments and rays with a NaN or infinite value. Double precision
/// throughout, about the point of the ray nearest to the segment's first point, so that nothing is lost far away. A
/// segment whose radii are all 0 is hit by nothing. No allocation.
template <CurveShape shape>
bool curve_hit_segment(const GMathBasicRay<double>& ray, const CurveSegment<shape>& segment, double t_near,
                       double t_far, CurveHit& hit);

/// The box of the solid along the axes of `space`; `curve_get_bbox` along the world's. Exact but for rounding: of a
/// cubic the extremes of the curve itself, not of its control points, are looked for where that matters. Not a valid
/// box when a coordinate or a radius is NaN or infinite.
template <CurveShape shape>
GMathBbox3<double> curve_get_bbox_in_space(const CurveSegment<shape>& segment, const GMathLinearSpace3<double>& space);
template <CurveShape shape>
GMathBbox3<double> curve_get_bbox(const CurveSegment<shape>& segment);

/// A frame along the segment: the first axis from its first to its last point, the second towards where it bends.
template <CurveShape shape>
GMathLinearSpace3<double> curve_get_space(const CurveSegment<shape>& segment);

struct CurveSurfacePoint {
  GMathVec3<double> position;
  GMathVec3<double> normal;   ///< unit length, outwards
  GMathVec3<double> tangent;  ///< unit length, along the fibre as u grows
};
/// The point of the surface that a hit's u and v name; it lies where the ray met the segment, but for some 1e-7 of the
/// radius. v = 0 points along the normal of the plane in which a cubic's control points bend most, or towards the axis
/// that a straight segment follows least; it turns continuously along the segment.
template <CurveShape shape>
CurveSurfacePoint curve_get_surface_point(const CurveSegment<shape>& segment, double u, double v);
