// Evaluation of a recorded hit: surface point, normals, texture coordinates, and proximity to an edge.
#include <algorithm>
#include <cmath>

#include "vq_geometry/geometry_intersection.h"
#include "vq_geometry/poly_mesh.h"

namespace {

using Vec = GMathVec3<double>;

Vec interpolate(const Vec& a, const Vec& b, const Vec& c, const GeometryIntersection& hit) {
  return a * (1.0 - hit.u - hit.v) + b * hit.u + c * hit.v;
}

/// Values with one index per corner, interpolated at the hit.
Vec interpolate(const std::vector<GMathVec3<float>>& values, const std::vector<u32>& corner_indices,
                const GMathVec3<u32>& corners, const GeometryIntersection& hit) {
  const auto get = [&](u32 corner) { return Vec(values[corner_indices[corner]]); };
  return interpolate(get(corners.x), get(corners.y), get(corners.z), hit);
}

double get_segment_distance(const Vec& p, const Vec& a, const Vec& b) {
  const Vec edge = b - a;
  const double square = edge.dot(edge);
  const double parameter = square > 0.0 ? std::clamp((p - a).dot(edge) / square, 0.0, 1.0) : 0.0;
  return (p - (a + edge * parameter)).get_length();
}

/// True if the point, projected along the triangle's normal, is in the triangle.
bool is_over_triangle(const Vec& p, const Vec (&corner)[3]) {
  const Vec normal = (corner[1] - corner[0]).cross(corner[2] - corner[0]);
  for (uint k = 0; k < 3; ++k) {
    const Vec& from = corner[k];
    if (!((corner[(k + 1) % 3] - from).cross(p - from).dot(normal) >= 0.0)) return false;
  }
  return true;
}

/// The visible edges of a polygon, for distances to the nearest of them.
struct VisibleEdges {
  std::vector<Vec> ends;  // two per edge

  double get_distance(const Vec& p) const {
    double nearest = HUGE_VAL;
    for (std::size_t k = 0; k + 1 < ends.size(); k += 2)
      nearest = std::min(nearest, get_segment_distance(p, ends[k], ends[k + 1]));
    return nearest;
  }
};

}  // namespace

GMathVec3<u32> PolyMesh::get_part_corners(uint polygon, uint part) const {
  if (is_all_triangles()) return {3 * polygon, 3 * polygon + 1, 3 * polygon + 2};
  const u32* corner = triangle_corners_.get() + std::size_t{3} * (first_triangle_[polygon] + part);
  return {corner[0], corner[1], corner[2]};
}

GeometrySurfacePoint PolyMesh::get_surface_point(const GeometryIntersection& hit, const double& time) const {
  const MotionBlend blend = get_motion_blend(time);
  const u32* vertices = get_part_vertices(hit.primitive, hit.part);
  const Vec a = get_moved_position(blend, vertices[0]), b = get_moved_position(blend, vertices[1]),
            c = get_moved_position(blend, vertices[2]);
  const GMathVec3<u32> corners = get_part_corners(hit.primitive, hit.part);
  GeometrySurfacePoint point;
  point.position = interpolate(a, b, c, hit);
  point.normal = (b - a).cross(c - a).get_normalized();
  if (!corner_normals_.empty())
    point.shading_normal = interpolate(normals_, corner_normals_, corners, hit).get_normalized();
  if (point.shading_normal == Vec()) point.shading_normal = point.normal;
  if (!uv_maps_.empty()) {
    point.uv = interpolate(uv_maps_[0].positions, uv_maps_[0].corner_positions, corners, hit);
  } else if (uv_projection_ != PolyMeshProjection::none) {
    const auto rest = [&](uint k) { return Vec(positions_[vertices[k]]); };
    point.uv = get_projected_uv(hit.primitive, interpolate(rest(0), rest(1), rest(2), hit));
  }
  return point;
}

GMathVec3<double> PolyMesh::get_smooth_position(const GeometryIntersection& hit, const double& time,
                                                bool is_behind) const {
  const MotionBlend blend = get_motion_blend(time);
  const u32* vertices = get_part_vertices(hit.primitive, hit.part);
  const GMathVec3<u32> corners = get_part_corners(hit.primitive, hit.part);
  const double weights[3] = {1.0 - hit.u - hit.v, hit.u, hit.v};
  Vec corner[3], flat;
  for (uint k = 0; k < 3; ++k) {
    corner[k] = get_moved_position(blend, vertices[k]);
    flat += corner[k] * weights[k];
  }
  Vec smooth = flat;
  for (uint k = 0; k < 3 && !corner_normals_.empty(); ++k) {
    const Vec normal = Vec(normals_[corner_normals_[corners[k]]]).get_normalized() * (is_behind ? -1.0 : 1.0);
    const double height = (flat - corner[k]).dot(normal);  // above the plane through the corner
    if (height < 0.0) smooth += normal * (-height * weights[k]);
  }
  return smooth;
}

double PolyMesh::get_edge_proximity(const GeometryIntersection& hit) const {
  if (hit.primitive >= polygon_count_ || hit.part >= get_part_count(hit.primitive)) return 0.0;
  return get_polygon_vertex_count(hit.primitive) == 3 ? get_triangle_edge_proximity(hit)
                                                      : get_polygon_edge_proximity(hit);
}

/// The distance from an edge is the barycentric weight of the opposite corner. At the point farthest from n edges it is
/// 1 / n for each.
double PolyMesh::get_triangle_edge_proximity(const GeometryIntersection& hit) const {
  const double weights[3] = {1.0 - hit.u - hit.v, hit.u, hit.v};
  const GMathVec3<u32> corners = get_part_corners(hit.primitive, hit.part);
  const u32 first = get_first_corner(hit.primitive);
  double nearest = HUGE_VAL;
  uint visible = 0;
  for (uint k = 0; k < 3; ++k) {
    if (!is_edge_visible(hit.primitive, corners[k] - first)) continue;
    ++visible;
    nearest = std::min(nearest, weights[(k + 2) % 3]);
  }
  return visible == 0 ? 0.0 : std::clamp(1.0 - visible * nearest, 0.0, 1.0);
}

double PolyMesh::get_polygon_edge_proximity(const GeometryIntersection& hit) const {
  const uint count = get_polygon_vertex_count(hit.primitive);
  VisibleEdges edges;
  for (uint k = 0; k < count; ++k) {
    if (!is_edge_visible(hit.primitive, k)) continue;
    for (const uint corner : {k, k + 1 < count ? k + 1 : 0})
      edges.ends.emplace_back(positions_[get_polygon_vertex(hit.primitive, corner)]);
  }
  if (edges.ends.empty()) return 0.0;
  double farthest = 0.0;
  for (const Vec& candidate : get_inner_points(hit.primitive))
    farthest = std::max(farthest, edges.get_distance(candidate));
  const u32* vertices = get_part_vertices(hit.primitive, hit.part);
  const double distance = edges.get_distance(
      interpolate(Vec(positions_[vertices[0]]), Vec(positions_[vertices[1]]), Vec(positions_[vertices[2]]), hit));
  return farthest > 0.0 ? std::clamp(1.0 - distance / farthest, 0.0, 1.0) : 1.0;
}

/// Some points of the polygon, among them one far from its visible edges: corners (far when few edges are visible),
/// centers of triangles, and the center of the polygon if it is inside.
std::vector<GMathVec3<double>> PolyMesh::get_inner_points(uint polygon) const {
  constexpr uint most = 32;  // of each kind: a polygon may have thousands of corners, and this runs for every hit
  const uint parts = get_part_count(polygon), count = get_polygon_vertex_count(polygon);
  std::vector<Vec> points;
  for (uint k = 0; k < count; k += 1 + count / most) points.emplace_back(positions_[get_polygon_vertex(polygon, k)]);
  Vec center;
  double area = 0.0;
  const auto get_triangle = [&](uint part, Vec(&corner)[3]) {
    const u32* vertices = get_part_vertices(polygon, part);
    for (uint k = 0; k < 3; ++k) corner[k] = Vec(positions_[vertices[k]]);
    return (corner[0] + corner[1] + corner[2]) * (1.0 / 3.0);
  };
  Vec corner[3];
  for (uint part = 0; part < parts; ++part) {
    const Vec middle = get_triangle(part, corner);
    const double part_area = (corner[1] - corner[0]).cross(corner[2] - corner[0]).get_length();
    center += middle * part_area;
    area += part_area;
    if (part % (1 + parts / most) == 0) points.push_back(middle);
  }
  center = center * (area > 0.0 ? 1.0 / area : 0.0);
  for (uint part = 0; part < parts; ++part) {
    get_triangle(part, corner);
    if (!is_over_triangle(center, corner)) continue;
    points.push_back(center);
    break;
  }
  return points;
}
