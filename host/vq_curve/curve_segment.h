// host/vq_curve/curve_segment.h
//
// A segment of a curve as a solid: the union of balls whose centers and radii are polynomials in u.
//
//   linear   a cone with round ends                                                control points 0 and 1
//   cubic    Bézier, for centers and radii                                         control points 0 to 3
//
// u is 0 at the first end and 1 at the last. On the round ends it is -h (first end) or 1 + h (last end), where h is the
// height of the point above the rim of the end: 0 on the rim, 1 at the tip. v is the angle around the curve in turns,
// in [0, 1). Where the derivative of the curve is 0, any point of the ball may be on the surface: then v is negative,
// minus the angle to 1e-8 turns, and its lowest bits hold the angle between normal and tangent. See
// curve_get_surface_point().
#pragma once
#include "vq_core/core_export.h"
#include "vq_gmath/gmath_bbox.h"
#include "vq_gmath/gmath_linear_space.h"
#include "vq_gmath/gmath_ray.h"

enum class VQ_EXPORT CurveShape { linear, cubic };

/// A control point of a curve: a ball. Negative radii are read as 0.
template <class T>
struct CurvePoint {
  GMathVec3<T> position;
  T radius{};
  constexpr bool operator==(const CurvePoint&) const = default;
};
static_assert(sizeof(CurvePoint<float>) == 16 && sizeof(CurvePoint<double>) == 32);

template <CurveShape shape>
struct VQ_EXPORT CurveSegment {
  static constexpr uint point_count = shape == CurveShape::linear ? 2 : 4;
  CurvePoint<double> point[point_count];

  /// Centre and radius at `u` in [0, 1].
  CurvePoint<double> get_ball(double u) const;
  /// Their derivatives in u.
  CurvePoint<double> get_ball_derivative(double u) const;
};

struct CurveHit {
  double distance = 0.0;  ///< in units of the ray's direction
  double u = 0.0, v = 0.0;
};

/// Finds the first point in [t_near, t_far) where the ray crosses the surface: the entry or, from inside, the exit.
/// False without one, and for segments and rays with a NaN or infinite value. Computed in double precision relative to
/// the ray's point nearest to the segment, so that distant segments keep their precision. A segment whose radii are all
/// 0 is never hit. No allocation.
template <CurveShape shape>
VQ_EXPORT bool curve_hit_segment(const GMathBasicRay<double>& ray, const CurveSegment<shape>& segment, double t_near,
                                 double t_far, CurveHit& hit);

/// The box of the solid along the axes of `space`; `curve_get_bbox` along the world's. Tight, except for
/// rounding: of a cubic, the extremes of the curve itself and not of its control points. Not a valid box when a
/// coordinate or a radius is NaN or infinite.
template <CurveShape shape>
VQ_EXPORT GMathBbox3<double> curve_get_bbox_in_space(const CurveSegment<shape>& segment,
                                                     const GMathLinearSpace3<double>& space);
template <CurveShape shape>
VQ_EXPORT GMathBbox3<double> curve_get_bbox(const CurveSegment<shape>& segment);

/// A frame along the segment: the first axis from its first to its last point, the second in the direction of its bend.
template <CurveShape shape>
VQ_EXPORT GMathLinearSpace3<double> curve_get_space(const CurveSegment<shape>& segment);

struct CurveSurfacePoint {
  GMathVec3<double> position;
  GMathVec3<double> normal;   ///< unit length, outwards
  GMathVec3<double> tangent;  ///< unit length, along the curve as u grows
};
/// The point of the surface with the parameters u and v of a hit; within about 1e-7 radii of the ray's crossing. v = 0
/// is the direction of the normal of the plane in which a cubic's control points bend most; for a straight segment the
/// coordinate axis most perpendicular to it. This direction changes continuously along the segment.
template <CurveShape shape>
VQ_EXPORT CurveSurfacePoint curve_get_surface_point(const CurveSegment<shape>& segment, double u, double v);
