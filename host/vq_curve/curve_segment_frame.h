// host/vq_curve/curve_segment_frame.h
//
// The frame that a fibre's surface parameters are measured in, shared by the ray test, which names the point it found,
// and by curve_get_surface_point(), which finds the point again: both must see the same bits.
#pragma once
#include "vq_curve/curve_segment.h"

/// A ball of the fibre and the circle on which it touches the surface: the points whose normal has the component
/// -slope along the tangent.
struct CurveFrame {
  CurvePoint<double> ball;
  GMathVec3<double> tangent;
  GMathVec3<double> side[2];  ///< v = 0 and v = 1/4; with the tangent a right-handed unit frame
  double slope = 0.0;         ///< how fast the radius grows along the fibre, cut to [-1, 1]
};

/// The frame at `u` in [0, 1]. It turns continuously along the segment, except where the tangent runs through the
/// normal of the plane in which a cubic's control points bend most, and at cusps.
template <CurveShape shape>
CurveFrame curve_get_frame(const CurveSegment<shape>& segment, double u);

/// The u and v of the point of the surface that lies along `normal`, of any length, from the centre of the ball of `u`
/// in [0, 1]: what curve_get_surface_point() takes.
template <CurveShape shape>
GMathVec2<double> curve_get_uv(const CurveSegment<shape>& segment, double u, const GMathVec3<double>& normal);
