// Texture coordinates at a point of a polygon: of a UV map, or projected.
#include <algorithm>
#include <cmath>

#include "vq_geometry/poly_mesh.h"

namespace {

using Vec = GMathVec3<double>;

/// The axis with the largest value.
uint find_largest(const Vec& v) {
  const uint larger = v.y > v.x ? 1 : 0;
  return v.z > v[larger] ? 2 : larger;
}

Vec get_magnitudes(const Vec& v) { return {std::fabs(v.x), std::fabs(v.y), std::fabs(v.z)}; }

}  // namespace

GMathVec3<float> PolyMesh::get_polygon_uv(const CtxEval& /*ctx*/, uint map, uint polygon,
                                          const GMathVec3<double>& uvw) const {
  if (polygon >= polygon_count_ || !is_polygon_valid(polygon) || map >= get_uv_count()) return {};
  const bool is_quad = get_polygon_vertex_count(polygon) == 4;
  const double both = is_quad ? uvw.x * uvw.y : 0.0;  // bilinear in a quadrilateral
  const double weight[4] = {1.0 - uvw.x - uvw.y + both, uvw.x - both, is_quad ? both : uvw.y, uvw.y - both};
  const auto blend = [&](const auto& get) {
    Vec out;
    for (uint corner = 0; corner < (is_quad ? 4u : 3u); ++corner) out = out + get(corner) * weight[corner];
    return out;
  };
  if (uv_maps_.empty()) {
    const Vec position = blend([&](uint corner) { return Vec(positions_[get_polygon_vertex(polygon, corner)]); });
    return GMathVec3<float>(get_projected_uv(polygon, position));
  }
  const GeometryUvMap& uvs = uv_maps_[map];
  return GMathVec3<float>(
      blend([&](uint corner) { return Vec(uvs.positions[uvs.corner_positions[get_first_corner(polygon) + corner]]); }));
}

GMathVec3<double> PolyMesh::get_projected_uv(uint polygon, const GMathVec3<double>& position) const {
  const Vec size = bbox_.max - bbox_.min;
  const double scale = 1.0 / std::max({size.x, size.y, size.z, 1e-300});
  const Vec place = (position - bbox_.min) * scale;
  if (uv_projection_ == PolyMeshProjection::planar) {
    const uint axis = find_largest(size * -1.0);
    return {place[(axis + 1) % 3], place[(axis + 2) % 3], 0.0};
  }
  const auto corner = [&](uint k) { return Vec(positions_[get_polygon_vertex(polygon, k)]); };
  const Vec normal = (corner(1) - corner(0)).cross(corner(2) - corner(0));
  const uint axis = find_largest(get_magnitudes(normal));
  constexpr double cell = 1.0 / 3.0, margin = 0.05;  // of the cell, between neighbors
  const bool is_behind = normal[axis] < 0.0;         // seen from there, right is left
  const double right = is_behind ? size[(axis + 1) % 3] * scale - place[(axis + 1) % 3] : place[(axis + 1) % 3];
  const auto shrink = [&](double value) { return cell * (0.5 * margin + (1.0 - margin) * value); };
  return {cell * axis + shrink(right), (is_behind ? 0.5 : 0.0) + shrink(place[(axis + 2) % 3]), 0.0};
}
