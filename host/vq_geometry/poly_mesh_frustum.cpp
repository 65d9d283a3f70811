// Frustum test of polygons. A triangle touches the frustum when a part of it remains after clipping it by every plane
// (Sutherland, Hodgman 1974, "Reentrant polygon clipping").
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/poly_mesh.h"

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

bool touches(const GeometryFrustumData& frustum, ClippedPolygon polygon) {
  for (uint k = 0; k < frustum.plane_count && polygon.count > 0; ++k) polygon.clip(frustum.planes[k]);
  for (uint k = 0; k < frustum.end_plane_count && polygon.count > 0; ++k) polygon.clip(frustum.end_planes[k]);
  return polygon.count > 0;
}

}  // namespace

bool PolyMesh::touches_frustum(const GeometryFrustumCtx& query, uint primitive) const {
  for (uint part = 0, count = get_part_count(primitive); part < count; ++part) {
    const u32* vertices = get_part_vertices(primitive, part);
    ClippedPolygon triangle;
    for (uint k = 0; k < 3; ++k) triangle.points[triangle.count++] = GMathVec3<double>(positions_[vertices[k]]);
    if (touches(query, triangle)) return true;
  }
  return false;
}

bool PolyMesh::lies_in_frustum(const GeometryFrustumCtx& query, uint primitive) const {
  for (uint corner = get_first_corner(primitive); corner < get_first_corner(primitive + 1); ++corner)
    if (!query.contains(GMathVec3<double>(positions_[polygon_vertices_[corner]]))) return false;
  return true;
}

void PolyMesh::frustum_hit_primitive(const CtxEval& /*ctx*/, CtxShader& /*shader*/, GeometryFrustumCtx& query,
                                     const uint& primitive) const {
  if (!is_polygon_valid(primitive)) return;
  switch (static_cast<GeometryFrustumMode>(query.mode)) {
    case GeometryFrustumMode::any:
      if (!touches_frustum(query, primitive)) return;
      ++query.result.hit_count;
      query.result.finished = 1;
      return;
    case GeometryFrustumMode::all:
      if (lies_in_frustum(query, primitive))
        ++query.result.hit_count;
      else
        query.result.outside = 1;
      return;
    case GeometryFrustumMode::points:
    case GeometryFrustumMode::vertices:
      for (uint corner = get_first_corner(primitive); corner < get_first_corner(primitive + 1); ++corner) {
        const uint vertex = polygon_vertices_[corner];
        if (vertex < query.mask.size() && query.contains(GMathVec3<double>(positions_[vertex]))) query.mask[vertex] = 1;
      }
      return;
  }
}
