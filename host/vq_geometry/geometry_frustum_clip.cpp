#include "vq_geometry/geometry_frustum_clip.h"

namespace {

/// A convex polygon that is being clipped: every plane adds at most one corner.
struct ClippedPolygon {
  static constexpr uint capacity = 3 + GeometryFrustumData::plane_capacity + 2;
  GMathVec3<double> points[capacity];
  uint count = 0;

  void clip(const GeometryPlane& plane);
};

void ClippedPolygon::clip(const GeometryPlane& plane) {
  const ClippedPolygon whole = *this;
  count = 0;
  for (uint k = 0; k < whole.count; ++k) {
    const GMathVec3<double>& from = whole.points[k];
    const GMathVec3<double>& to = whole.points[k + 1 < whole.count ? k + 1 : 0];
    const double from_measure = plane.measure(from), to_measure = plane.measure(to);
    if (from_measure >= 0.0 && count < capacity) points[count++] = from;
    const bool crosses = (from_measure < 0.0 && to_measure > 0.0) || (from_measure > 0.0 && to_measure < 0.0);
    if (crosses && count < capacity)
      points[count++] = from + (to - from) * (from_measure / (from_measure - to_measure));
  }
}

}  // namespace

bool geometry_touches_frustum(const GeometryFrustumData& frustum, const GMathVec3<double>& a,
                              const GMathVec3<double>& b, const GMathVec3<double>& c) {
  ClippedPolygon polygon{{a, b, c}, 3};
  for (uint k = 0; k < frustum.plane_count && polygon.count > 0; ++k) polygon.clip(frustum.planes[k]);
  for (uint k = 0; k < frustum.end_plane_count && polygon.count > 0; ++k) polygon.clip(frustum.end_planes[k]);
  return polygon.count > 0;
}
