// Evaluation of a recorded hit of a displaced mesh: surface point, normals, texture coordinates, proximity to an edge.
#include <algorithm>
#include <cmath>

#include "vq_geometry/displaced_mesh.h"
#include "vq_geometry/geometry_intersection.h"

namespace {

using Vec = GMathVec3<double>;

Vec interpolate(const Vec& a, const Vec& b, const Vec& c, const GeometryIntersection& hit) {
  return a * (1.0 - hit.u - hit.v) + b * hit.u + c * hit.v;
}

}  // namespace

/// Micro-vertices of one primitive at one time, near a micro-triangle that was hit.
class DisplacedMesh::MicroVertices {
 public:
  MicroVertices(const DisplacedMesh& mesh, uint primitive, const MicroTriangle& triangle, double time)
      : mesh_(mesh), primitive_(primitive), moment_(mesh.get_moment(time)), part_(triangle.part) {
    mesh.for_each_tile(primitive, [&](const TilePlace& place) {
      const bool is_here = place.part == triangle.part && place.row == triangle.i / mesh.tile_cells_ &&
                           place.column == triangle.j / mesh.tile_cells_;
      if (is_here) tile_ = mesh.cache_->find({place.index, moment_.first_frame});
      return !is_here;
    });
  }

  /// From the tile if it is cached and holds the micro-vertex, else computed.
  Vec get(uint part, uint i, uint j) const {
    GMathVec3<float> positions[2];
    if (!read(part, i, j, positions))
      DisplacedMeshPatch(*mesh_.input_, primitive_, part, moment_.first_frame, moment_.frame_count)
          .get_positions(i, j, positions);
    if (moment_.frame_count == 1) return Vec(positions[0]);
    return Vec(positions[0]) * (1.0 - moment_.fraction) + Vec(positions[1]) * moment_.fraction;
  }
  /// The sum of the area vectors of the polygon's micro-triangles around the micro-vertex, as a unit vector.
  Vec get_normal(uint i, uint j) const;

 private:
  bool read(uint part, uint i, uint j, GMathVec3<float>* positions) const;
  Vec get_area_around(uint part, uint i, uint j) const;
  bool find_in_part(uint part, const u32* corners, const uint* steps, uint& i, uint& j) const;

  const DisplacedMesh& mesh_;
  uint primitive_;
  Moment moment_;
  uint part_;
  DisplacedMeshCache::Pin tile_;
};

bool DisplacedMesh::MicroVertices::read(uint part, uint i, uint j, GMathVec3<float>* positions) const {
  if (tile_ == nullptr || part != part_ || i < tile_->get_first_i() || j < tile_->get_first_j()) return false;
  const DisplacedMeshTileShape& shape = tile_->get_shape();
  const uint row = i - tile_->get_first_i(), column = j - tile_->get_first_j();
  if (column >= shape.get_row_length(row)) return false;
  for (uint frame = 0; frame < moment_.frame_count; ++frame)
    positions[frame] = tile_->get_vertices(frame)[shape.get_vertex(row, column)];
  return true;
}

/// Up to six micro-triangles of one patch. Its neighbors in counter-clockwise order; those outside are skipped.
Vec DisplacedMesh::MicroVertices::get_area_around(uint part, uint i, uint j) const {
  static constexpr int ring[6][2] = {{1, 0}, {0, 1}, {-1, 1}, {-1, 0}, {0, -1}, {1, -1}};
  const int rate = static_cast<int>(mesh_.rate_), row = static_cast<int>(i), column = static_cast<int>(j);
  const Vec center = get(part, i, j);
  Vec spokes[6], area;
  bool exists[6];
  for (uint k = 0; k < 6; ++k) {
    const int to_row = row + ring[k][0], to_column = column + ring[k][1];
    exists[k] = to_row >= 0 && to_column >= 0 && to_row + to_column <= rate;
    if (exists[k]) spokes[k] = get(part, static_cast<uint>(to_row), static_cast<uint>(to_column)) - center;
  }
  for (uint k = 0; k < 6; ++k) {
    const uint next = k == 5 ? 0 : k + 1;
    if (exists[k] && exists[next]) area += spokes[k].cross(spokes[next]);
  }
  return area;
}

/// The same micro-vertex in another patch of the polygon. `corners` are those of its own patch, `steps` its distances
/// from the opposite edges. False if it is not on the other patch's border.
bool DisplacedMesh::MicroVertices::find_in_part(uint part, const u32* corners, const uint* steps, uint& i,
                                                uint& j) const {
  const GMathVec3<u32> others = mesh_.base_->get_part_corners(primitive_, part);
  uint found = 0, other_steps[3] = {0, 0, 0};
  for (uint k = 0; k < 3; ++k)
    for (uint other = 0; other < 3; ++other)
      if (corners[k] == others[other]) found += other_steps[other] = steps[k];
  i = other_steps[1];
  j = other_steps[2];
  return found == mesh_.rate_;
}

Vec DisplacedMesh::MicroVertices::get_normal(uint i, uint j) const {
  const uint steps[3] = {mesh_.rate_ - i - j, i, j};
  Vec area = get_area_around(part_, i, j);
  if (steps[0] != 0 && steps[1] != 0 && steps[2] != 0) return area.get_normalized();
  const GMathVec3<u32> own = mesh_.base_->get_part_corners(primitive_, part_);
  const u32 corners[3] = {own.x, own.y, own.z};
  for (uint part = 0; part < mesh_.base_->get_part_count(primitive_); ++part) {
    uint other_i, other_j;
    if (part != part_ && find_in_part(part, corners, steps, other_i, other_j))
      area += get_area_around(part, other_i, other_j);
  }
  return area.get_normalized();
}

/// Inverse of get_part_number(): (rate - i)^2 micro-triangles are in row i and after.
DisplacedMesh::MicroTriangle DisplacedMesh::get_micro_triangle(u32 part_number) const {
  MicroTriangle triangle;
  const u32 patch_size = rate_ * rate_;
  triangle.part = part_number / patch_size;
  const u32 number = part_number % patch_size;
  triangle.i = rate_ - static_cast<uint>(std::ceil(std::sqrt(static_cast<double>(patch_size - number))));
  const u32 in_row = number - triangle.i * (2 * rate_ - triangle.i);
  triangle.j = in_row / 2;
  triangle.upper = in_row % 2 != 0;
  return triangle;
}

/// The same point of the base mesh.
GeometryIntersection DisplacedMesh::get_base_hit(const GeometryIntersection& hit) const {
  const MicroTriangle triangle = get_micro_triangle(hit.part);
  GeometryIntersection base_hit = hit;
  base_hit.part = triangle.part;
  base_hit.u = (triangle.upper ? triangle.i + 1 - hit.u : triangle.i + hit.u) / rate_;
  base_hit.v = (triangle.upper ? triangle.j + 1 - hit.v : triangle.j + hit.v) / rate_;
  return base_hit;
}

GeometrySurfacePoint DisplacedMesh::get_surface_point(const GeometryIntersection& hit, const double& time) const {
  const MicroTriangle triangle = get_micro_triangle(hit.part);
  const MicroVertices vertices(*this, hit.primitive, triangle, time);
  const uint i = triangle.i, j = triangle.j, turn = triangle.upper ? 1 : 0;
  const uint cells[3][2] = {{i + turn, j + turn}, {i + 1 - turn, j + turn}, {i + turn, j + 1 - turn}};
  Vec positions[3], normals[3];
  for (uint k = 0; k < 3; ++k) {
    positions[k] = vertices.get(triangle.part, cells[k][0], cells[k][1]);
    normals[k] = vertices.get_normal(cells[k][0], cells[k][1]);
  }
  GeometrySurfacePoint point;
  point.position = interpolate(positions[0], positions[1], positions[2], hit);
  point.normal = (positions[1] - positions[0]).cross(positions[2] - positions[0]).get_normalized();
  point.shading_normal = interpolate(normals[0], normals[1], normals[2], hit).get_normalized();
  if (point.shading_normal == Vec()) point.shading_normal = point.normal;
  point.uv = base_->get_surface_point(get_base_hit(hit), time).uv;
  return point;
}

double DisplacedMesh::get_edge_proximity(const GeometryIntersection& hit) const {
  if (hit.primitive >= get_primitive_count()) return 0.0;
  return base_->get_edge_proximity(get_base_hit(hit));
}
