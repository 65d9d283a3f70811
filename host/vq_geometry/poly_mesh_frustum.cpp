// Frustum test of polygons.
#include "vq_geometry/geometry_frustum_clip.h"
#include "vq_geometry/poly_mesh.h"

bool PolyMesh::touches_frustum(const GeometryFrustumCtx& query, uint primitive) const {
  for (uint part = 0, count = get_part_count(primitive); part < count; ++part) {
    const u32* vertices = get_part_vertices(primitive, part);
    if (geometry_touches_frustum(query, GMathVec3<double>(positions_[vertices[0]]),
                                 GMathVec3<double>(positions_[vertices[1]]),
                                 GMathVec3<double>(positions_[vertices[2]])))
      return true;
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
  query.add_primitive([&] { return touches_frustum(query, primitive); },
                      [&] { return lies_in_frustum(query, primitive); });
  const auto mode = static_cast<GeometryFrustumMode>(query.mode);
  if (mode != GeometryFrustumMode::points && mode != GeometryFrustumMode::vertices) return;
  for (uint corner = get_first_corner(primitive); corner < get_first_corner(primitive + 1); ++corner) {
    const uint vertex = polygon_vertices_[corner];
    if (vertex < query.mask.size() && query.contains(GMathVec3<double>(positions_[vertex]))) query.mask[vertex] = 1;
  }
}
