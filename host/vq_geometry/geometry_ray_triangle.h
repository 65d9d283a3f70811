// host/vq_geometry/geometry_ray_triangle.h
//
// Ray test of a triangle: the watertight test of Woop, Benthin, Wald 2013, "Watertight Ray/Triangle Intersection", in
// double precision. The space is sheared so that the ray becomes the z axis; a triangle is then hit when its three edge
// functions agree in sign at the origin. The products in an edge function round monotonically, so that the sign of the
// difference is right or zero, and two triangles get opposite signs for their common edge: no ray passes between them.
// A zero is a hit of both; the caller decides if that is one hit or two.
#pragma once
#include <algorithm>
#include <cmath>
#include <cstring>

#include "vq_geometry/geometry_raytrace_ctx.h"

/// Component `axis`, read by its address: operator[] compares, which would cost more than the arithmetic.
template <class T>
inline double geometry_load_axis(const GMathVec3<T>& v, uint axis) {
  static_assert(sizeof(v) == 3 * sizeof(T));
  T value;
  std::memcpy(&value, reinterpret_cast<const u8*>(&v) + axis * sizeof(T), sizeof value);
  return value;
}

/// A ray as the z axis of its sheared space. z is the axis along which the direction is longest.
struct GeometryShearedRay {
  uint x, y, z;
  double origin_x, origin_y, origin_z;
  double shear_x, shear_y, scale_z;

  explicit GeometryShearedRay(const GMathBasicRay<double>& ray) {
    // Without branches: the longest axis is as unpredictable as the ray.
    const double length_x = std::fabs(ray.direction.x), length_y = std::fabs(ray.direction.y);
    const uint is_z = std::fabs(ray.direction.z) > std::max(length_x, length_y);
    z = is_z << 1 | (uint{length_y > length_x} & ~is_z);
    x = 0b001001u >> 2 * z & 3u;  // (z + 1) % 3, two bits for each z
    y = 0b010010u >> 2 * z & 3u;  // (z + 2) % 3
    origin_x = geometry_load_axis(ray.origin, x);
    origin_y = geometry_load_axis(ray.origin, y);
    origin_z = geometry_load_axis(ray.origin, z);
    scale_z = geometry_load_axis(ray.inverse, z);
    shear_x = geometry_load_axis(ray.direction, x) * scale_z;
    shear_y = geometry_load_axis(ray.direction, y) * scale_z;
  }
};

struct GeometryShearedVertex {
  double x, y, z;  ///< z is not scaled to distances yet

  GeometryShearedVertex() = default;
  template <class T>
  GeometryShearedVertex(const GeometryShearedRay& ray, const GMathVec3<T>& position) {
    z = geometry_load_axis(position, ray.z) - ray.origin_z;
    x = geometry_load_axis(position, ray.x) - ray.origin_x - ray.shear_x * z;
    y = geometry_load_axis(position, ray.y) - ray.origin_y - ray.shear_y * z;
  }
};

/// Twice the area between the origin and the edge from a to b. Exactly the negative for the edge from b to a.
inline double geometry_get_edge_function(const GeometryShearedVertex& a, const GeometryShearedVertex& b) {
  return a.x * b.y - a.y * b.x;
}

/// Intersects the ray's line with the triangle. Edges and corners belong to the triangle, both faces can be hit, a
/// triangle seen edge-on is missed. push_intersection() tests the ray's interval. A NaN anywhere gives false or a NaN
/// distance, which is in no interval.
inline bool geometry_hit_triangle(const GeometryShearedRay& ray, const GeometryShearedVertex& a,
                                  const GeometryShearedVertex& b, const GeometryShearedVertex& c,
                                  GeometryCandidate& hit) {
  const double weight_a = geometry_get_edge_function(c, b);
  const double weight_b = geometry_get_edge_function(a, c);
  const double weight_c = geometry_get_edge_function(b, a);
  // One branch instead of six unpredictable ones.
  const double least = std::min(std::min(weight_a, weight_b), weight_c);
  const double most = std::max(std::max(weight_a, weight_b), weight_c);
  if (least < 0.0 && most > 0.0) return false;
  const double sum = weight_a + weight_b + weight_c;
  if (!(sum < 0.0 || sum > 0.0)) return false;
  const double scale = 1.0 / sum;
  // Relative to a, so that rounding grows with the depth of the triangle and not with its distance.
  const double depth = a.z + (weight_b * (b.z - a.z) + weight_c * (c.z - a.z)) * scale;
  hit.distance = depth * ray.scale_z;
  hit.u = weight_b * scale;
  hit.v = weight_c * scale;
  return true;
}

/// False only if no edge function was zero.
inline bool geometry_may_be_on_edge(const GeometryCandidate& hit) {
  return hit.u == 0.0 || hit.v == 0.0 || hit.u + hit.v > 1.0 - 1e-14;
}
