// host/vq_curve/curve_segment_frame.h
//
// The frame of a segment's surface parameters, shared by the ray test, which computes u and v of a point, and by
// curve_get_surface_point(), which computes the point from them: both must get the same bits.
#pragma once
#include "vq_curve/curve_segment.h"

/// A ball of the curve and the circle where it touches the surface: there the normal has the component -slope along the
/// tangent.
struct CurveFrame {
  CurvePoint<double> ball;
  GMathVec3<double> tangent;
  GMathVec3<double> side[2];  ///< v = 0 and v = 1/4; with the tangent a right-handed unit frame
  double slope = 0.0;         ///< change of the radius per length of the curve, clamped to [-1, 1]
};

/// The frame at `u` in [0, 1]. It is continuous along the segment, except at cusps and where the tangent is parallel to
/// the normal of the plane in which a cubic's control points bend most.
template <CurveShape shape>
CurveFrame curve_get_frame(const CurveSegment<shape>& segment, double u);

/// u and v, as for curve_get_surface_point(), of the surface point in the direction `normal` (any length) from the
/// center of the ball at `u` in [0, 1].
template <CurveShape shape>
GMathVec2<double> curve_get_uv(const CurveSegment<shape>& segment, double u, const GMathVec3<double>& normal);
