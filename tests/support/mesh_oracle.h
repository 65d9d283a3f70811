// tests/support/mesh_oracle.h
//
// What a ray surely hits of a mesh and what it surely misses, found by testing every polygon in long double. Between
// the two answers lies a band: the structures cull boxes in single precision, so a hit within a few units in the last
// place of an edge may be lost, while a hit that is reported was tested in double precision and must be real.
#pragma once
#include <algorithm>
#include <cmath>
#include <vector>

#include "support/sure_answer.h"
#include "vq_geometry/poly_mesh.h"

using Long3 = GMathVec3<long double>;

struct OracleRay {
  Long3 origin, direction;
  long double tnear = 0, tfar = 0;
};

struct OracleHit {
  SureAnswer answer = SureAnswer::missed;
  long double t = 0;          ///< where the ray meets the polygon's plane
  long double tolerance = 0;  ///< of t
  Long3 point;
  long double edge_distance = 0;  ///< from the ray to the nearest edge, in units in the last place of single precision
};

inline long double get_size(const Long3& v) { return std::max({std::fabs(v.x), std::fabs(v.y), std::fabs(v.z)}); }

inline long double get_segment_distance(const Long3& p, const Long3& a, const Long3& b) {
  const Long3 edge = b - a;
  const long double square = edge.dot(edge);
  const long double place = square > 0 ? std::clamp((p - a).dot(edge) / square, 0.0L, 1.0L) : 0.0L;
  return (p - a - edge * place).get_length();
}

/// Crossing number of a flat polygon, seen along the longest component of its normal.
inline bool is_inside_polygon(const Long3& p, const std::vector<Long3>& corners, const Long3& normal) {
  uint drop = 0;
  for (uint axis = 1; axis < 3; ++axis)
    if (std::fabs(normal[axis]) > std::fabs(normal[drop])) drop = axis;
  const uint x = (drop + 1) % 3, y = (drop + 2) % 3;
  bool inside = false;
  for (std::size_t k = 0; k < corners.size(); ++k) {
    const Long3 &a = corners[k], &b = corners[(k + 1) % corners.size()];
    if ((a[y] > p[y]) == (b[y] > p[y])) continue;
    if (p[x] < a[x] + (b[x] - a[x]) * (p[y] - a[y]) / (b[y] - a[y])) inside = !inside;
  }
  return inside;
}

/// Whether the line of the ray surely stays away from a ball around all corners.
inline bool is_far_from(const OracleRay& ray, const std::vector<Long3>& corners) {
  Long3 centre;
  for (const Long3& corner : corners) centre += corner * (1.0L / corners.size());
  long double radius = 0;
  for (const Long3& corner : corners) radius = std::max(radius, (corner - centre).get_length());
  const Long3 way = centre - ray.origin, d = ray.direction.get_normalized();
  return way.cross(d).get_length() > 1.01L * radius + 1e-6L * (get_size(ray.origin) + get_size(centre));
}

/// A flat polygon against a ray. Corners with a NaN or infinity: missed.
inline OracleHit oracle_intersect(const OracleRay& ray, const std::vector<Long3>& corners) {
  OracleHit hit;
  if (corners.size() < 3) return hit;
  long double size = get_size(ray.origin);
  Long3 normal;
  for (std::size_t k = 0; k < corners.size(); ++k) {
    if (!std::isfinite(get_size(corners[k]))) return hit;
    size = std::max(size, get_size(corners[k]));
    normal += (corners[k] - corners[0]).cross(corners[(k + 1) % corners.size()] - corners[0]);
  }
  const long double slope = normal.dot(ray.direction);
  const long double cosine = std::fabs(slope) / (normal.get_length() * ray.direction.get_length());
  // Seen edge-on, or without area (then the cosine is NaN): nobody can say where it would be hit.
  if (!(cosine > 1e-7L)) {
    hit.answer = is_far_from(ray, corners) ? SureAnswer::missed : SureAnswer::close;
    hit.t = std::nanl("");
    return hit;
  }
  hit.t = normal.dot(corners[0] - ray.origin) / slope;
  hit.point = ray.origin + ray.direction * hit.t;
  long double margin = HUGE_VALL;
  for (std::size_t k = 0; k < corners.size(); ++k)
    margin = std::min(margin, get_segment_distance(hit.point, corners[k], corners[(k + 1) % corners.size()]));
  const long double single = 0x1p-24L, twice = 0x1p-53L;
  // Corners of a flat polygon of more than three are rounded, so its triangles are not quite in one plane.
  const long double flatness = corners.size() == 3 ? 0 : 4 * single * size;
  // Where the plane is met is worked out from the weights of the corners, which a sliver makes uncertain.
  long double length = 0;
  for (const Long3& corner : corners) length = std::max(length, (corner - corners[0]).get_length());
  const long double slenderness = 1 + length * length / normal.get_length();
  hit.tolerance = (64 * twice * size * slenderness + flatness) / (cosine * ray.direction.get_length());
  hit.edge_distance = margin * cosine / (single * size);
  const bool inside = is_inside_polygon(hit.point, corners, normal);
  const long double band = inside ? 32 * single * size : 64 * twice * size + flatness;
  if (margin * cosine <= band) {
    hit.answer = SureAnswer::close;
  } else if (!inside) {
    hit.answer = SureAnswer::missed;
    return hit;
  } else {
    hit.answer = SureAnswer::hit;
  }
  if (hit.t < ray.tnear - hit.tolerance || hit.t >= ray.tfar + hit.tolerance || !(ray.tnear <= ray.tfar)) {
    hit.answer = SureAnswer::missed;
    return hit;
  }
  const long double end_band = 8 * single * std::max(std::fabs(hit.t), size / ray.direction.get_length()) / cosine;
  if (hit.t < ray.tnear + end_band || hit.t > ray.tfar - end_band) hit.answer = SureAnswer::close;
  return hit;
}

/// The corners of all polygons at `time`; NaN: at rest. Piecewise linear between the mesh's motion samples.
inline std::vector<std::vector<Long3>> get_all_corners(const PolyMeshData& data, long double time = std::nanl("")) {
  const std::size_t samples = data.motion_positions.size();
  const bool is_at_rest = samples == 0 || std::isnan(time);
  long double place = is_at_rest ? 0.0L : (time - data.motion_begin) / data.motion_step;
  place = std::clamp(place, 0.0L, std::max(1.0L, static_cast<long double>(samples)) - 1.0L);
  const std::size_t before = static_cast<std::size_t>(place);
  const auto& first = is_at_rest ? data.positions : data.motion_positions[before];
  const auto& second = is_at_rest ? data.positions : data.motion_positions[std::min(before + 1, samples - 1)];
  std::vector<std::vector<Long3>> all;
  auto vertex = data.polygon_vertices.begin();
  for (const u32 size : data.polygon_sizes) {
    std::vector<Long3> corners;
    for (u32 k = 0; k < size; ++k, ++vertex) {
      const Long3 a(first[*vertex]), b(second[*vertex]);
      corners.push_back(is_at_rest ? a : a + (b - a) * (place - before));
    }
    all.push_back(corners);
  }
  return all;
}
