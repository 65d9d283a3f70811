// A piece of a curve is behind a plane when all its control balls are. If that gives no decision, the piece is halved
// (de Casteljau), which distinguishes curves that pass a corner of the frustum from curves that enter it.
#include "vq_curve/curve_frustum.h"

#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

using Ball = CurvePoint<double>;

constexpr uint most_halvings = 8;

template <class Test>
bool all_planes(const GeometryFrustumData& frustum, const Test& test) {
  for (uint k = 0; k < frustum.plane_count + frustum.end_plane_count; ++k)
    if (!test(k < frustum.plane_count ? frustum.planes[k] : frustum.end_planes[k - frustum.plane_count])) return false;
  return true;
}

bool reaches(const Ball& ball, const GeometryPlane& plane) {
  return plane.measure(ball.position) + ball.radius * plane.normal.get_length() >= 0.0;
}

Ball get_middle(const Ball& a, const Ball& b) { return {(a.position + b.position) * 0.5, (a.radius + b.radius) * 0.5}; }

/// Halves `segment`: it becomes the first half; returns the second.
template <CurveShape shape>
CurveSegment<shape> halve(CurveSegment<shape>& segment) {
  constexpr uint last = CurveSegment<shape>::point_count - 1;
  CurveSegment<shape> second = segment;
  for (uint level = 1; level <= last; ++level) {
    for (uint k = 0; k + level <= last; ++k) second.point[k] = get_middle(second.point[k], second.point[k + 1]);
    segment.point[level] = second.point[0];
  }
  return second;
}

template <CurveShape shape>
bool touches(CurveSegment<shape> piece, const GeometryFrustumData& frustum, uint halvings) {
  constexpr uint last = CurveSegment<shape>::point_count - 1;
  const bool may_touch = all_planes(frustum, [&](const GeometryPlane& plane) {
    for (const Ball& ball : piece.point)
      if (reaches(ball, plane)) return true;
    return false;
  });
  if (!may_touch) return false;
  const auto holds = [&](const Ball& ball) {
    return all_planes(frustum, [&](const GeometryPlane& plane) { return reaches(ball, plane); });
  };
  if (halvings == 0 || holds(piece.point[0]) || holds(piece.point[last])) return true;
  const CurveSegment<shape> second = halve(piece);
  return touches(piece, frustum, halvings - 1) || touches(second, frustum, halvings - 1);
}

}  // namespace

template <CurveShape shape>
bool curve_touches_frustum(const CurveSegment<shape>& segment, const GeometryFrustumData& frustum) {
  return gmath_is_valid_box(curve_get_bbox(segment)) && touches(segment, frustum, most_halvings);
}

template <CurveShape shape>
bool curve_lies_in_frustum(const CurveSegment<shape>& segment, const GeometryFrustumData& frustum) {
  if (!gmath_is_valid_box(curve_get_bbox(segment))) return false;
  return all_planes(frustum, [&](const GeometryPlane& plane) {
    // The box with the plane's normal as its axis gives the extent of the solid along the normal.
    const GMathLinearSpace3<double> space(plane.normal, plane.normal, plane.normal);
    return curve_get_bbox_in_space(segment, space).min.x + plane.offset >= 0.0;
  });
}

template bool curve_touches_frustum(const CurveSegment<CurveShape::linear>&, const GeometryFrustumData&);
template bool curve_lies_in_frustum(const CurveSegment<CurveShape::linear>&, const GeometryFrustumData&);
template bool curve_touches_frustum(const CurveSegment<CurveShape::cubic>&, const GeometryFrustumData&);
template bool curve_lies_in_frustum(const CurveSegment<CurveShape::cubic>&, const GeometryFrustumData&);
