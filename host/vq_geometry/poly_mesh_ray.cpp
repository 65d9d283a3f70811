// Ray test of polygons: the watertight test of Woop, Benthin, Wald 2013, "Watertight Ray/Triangle Intersection", in
// double precision. The space is sheared so that the ray becomes the z axis; a triangle is then hit when its three edge
// functions agree in sign at the origin. The products in an edge function round monotonically, so that the sign of the
// difference is right or zero, and two triangles get opposite signs for their common edge: no ray passes between them.
// A zero is a hit of both. Two triangles of one polygon then give one hit, those of two polygons one each.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "vq_geometry/geometry_raytrace_ctx.h"
#include "vq_geometry/poly_mesh.h"

namespace {

/// Component `axis`, read by its address: operator[] compares, which would cost more than the arithmetic.
template <class T>
inline double load_axis(const GMathVec3<T>& v, uint axis) {
  static_assert(sizeof(v) == 3 * sizeof(T));
  T value;
  std::memcpy(&value, reinterpret_cast<const u8*>(&v) + axis * sizeof(T), sizeof value);
  return value;
}

/// A ray as the z axis of its sheared space. z is the axis along which the direction is longest.
struct ShearedRay {
  uint x, y, z;
  double origin_x, origin_y, origin_z;
  double shear_x, shear_y, scale_z;

  explicit ShearedRay(const GMathBasicRay<double>& ray) {
    const double length_x = std::fabs(ray.direction.x), length_y = std::fabs(ray.direction.y);
    z = length_y > length_x ? 1 : 0;
    if (std::fabs(ray.direction.z) > (length_y > length_x ? length_y : length_x)) z = 2;
    x = z == 2 ? 0 : z + 1;
    y = x == 2 ? 0 : x + 1;
    origin_x = load_axis(ray.origin, x);
    origin_y = load_axis(ray.origin, y);
    origin_z = load_axis(ray.origin, z);
    scale_z = load_axis(ray.inverse, z);
    shear_x = load_axis(ray.direction, x) * scale_z;
    shear_y = load_axis(ray.direction, y) * scale_z;
  }
};

struct ShearedVertex {
  double x, y, z;  ///< z is not scaled to distances yet

  template <class T>
  ShearedVertex(const ShearedRay& ray, const GMathVec3<T>& position) {
    z = load_axis(position, ray.z) - ray.origin_z;
    x = load_axis(position, ray.x) - ray.origin_x - ray.shear_x * z;
    y = load_axis(position, ray.y) - ray.origin_y - ray.shear_y * z;
  }
};

/// Twice the area between the origin and the edge from a to b. Exactly the negative for the edge from b to a.
inline double get_edge_function(const ShearedVertex& a, const ShearedVertex& b) { return a.x * b.y - a.y * b.x; }

/// Intersects the ray's line with the triangle. Edges and corners belong to the triangle, both faces can be hit, a
/// triangle seen edge-on is missed. push_intersection() tests the ray's interval. A NaN anywhere gives false or a NaN
/// distance, which is in no interval.
template <class T>
inline bool hit_triangle(const ShearedRay& ray, const GMathVec3<T>& position_a, const GMathVec3<T>& position_b,
                         const GMathVec3<T>& position_c, GeometryCandidate& hit) {
  const ShearedVertex a(ray, position_a), b(ray, position_b), c(ray, position_c);
  const double weight_a = get_edge_function(c, b);
  const double weight_b = get_edge_function(a, c);
  const double weight_c = get_edge_function(b, a);
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
bool may_be_on_edge(const GeometryCandidate& hit) {
  return hit.u == 0.0 || hit.v == 0.0 || hit.u + hit.v > 1.0 - 1e-14;
}

bool has_vertex(const u32* triangle, u32 vertex) {
  return triangle[0] == vertex || triangle[1] == vertex || triangle[2] == vertex;
}

/// True if both triangles, given by their vertices, share an edge or a vertex that the ray's line meets exactly. Edge
/// functions depend on the edge alone, so that both triangles get the same zero.
template <class GetPosition>
bool share_met_edge(const ShearedRay& ray, const u32* triangle, const u32* other, const GetPosition& get_position) {
  for (uint k = 0; k < 3; ++k) {
    const u32 from = triangle[k], to = triangle[k == 2 ? 0 : k + 1];
    if (!has_vertex(other, from)) continue;
    const ShearedVertex a(ray, get_position(from));
    if (a.x == 0.0 && a.y == 0.0) return true;
    if (has_vertex(other, to) && get_edge_function(a, ShearedVertex(ray, get_position(to))) == 0.0) return true;
  }
  return false;
}

/// True if one of the `part` triangles before `triangle` in the polygon has given a hit at the same point: the ray
/// meets the shared edge or vertex exactly. A tolerance on distances would not do: at a flat angle rounding may
/// separate the two distances without bound. Searched backwards, because the neighbor is often the triangle before.
template <class GetPosition>
[[gnu::noinline]] bool is_already_offered(const GeometryRaytraceCtx& query, uint ray, const ShearedRay& sheared,
                                          const u32* triangle, uint part, const GetPosition& get_position) {
  for (const u32* other = triangle; part-- > 0;) {
    other -= 3;
    GeometryCandidate hit;
    if (share_met_edge(sheared, triangle, other, get_position) &&
        hit_triangle(sheared, get_position(other[0]), get_position(other[1]), get_position(other[2]), hit) &&
        hit.distance >= query.get_tnear(ray) && hit.distance < query.get_tfar(ray))
      return true;
  }
  return false;
}

}  // namespace

template <class GetPosition>
inline void PolyMesh::test_ray(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint primitive,
                               uint ray, const GetPosition& get_position) const {
  const ShearedRay sheared(query.get_ray(ray));
  const u32* vertices = get_part_vertices(primitive, 0);
  for (uint part = 0, count = get_part_count(primitive); part < count; ++part, vertices += 3) {
    GeometryCandidate hit;
    if (!hit_triangle(sheared, get_position(vertices[0]), get_position(vertices[1]), get_position(vertices[2]), hit))
      continue;
    // On an inner edge the ray meets the triangles on both sides at one point of the polygon: one hit.
    if (part != 0 && may_be_on_edge(hit) && is_already_offered(query, ray, sheared, vertices, part, get_position))
      continue;
    hit.primitive = primitive;
    hit.part = part;
    query.push_intersection(ctx, shader, ray, hit);
    if (!query.is_nearest() && query.is_stopped(ray)) return;
  }
}

void PolyMesh::ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                 const uint& primitive) const {
  const bool moving = has_motion() && query.spans != nullptr && query.span_stamp != 0;
  const GMathVec3<float>* positions = positions_.get();
  for (uint ray = query.first_ray; ray <= query.last_ray; ++ray) {
    if (!query.is_nearest() && query.is_stopped(ray)) continue;
    ++query.counter;
    if (moving) {
      const MotionBlend blend = get_motion_blend(query.spans[ray].time);
      test_ray(ctx, shader, query, primitive, ray, [&](u32 vertex) { return get_moved_position(blend, vertex); });
    } else {
      test_ray(ctx, shader, query, primitive, ray,
               [&](u32 vertex) -> const GMathVec3<float>& { return positions[vertex]; });
    }
  }
}
