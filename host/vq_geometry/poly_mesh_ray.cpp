// Ray test of polygons. An edge function of zero is a hit of the triangles on both sides. Two triangles of one polygon
// then give one hit, those of two polygons one each, or one in all when the query asks for it.
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_ray_triangle.h"
#include "vq_geometry/poly_mesh.h"

namespace {

template <class T>
inline bool hit_triangle(const GeometryShearedRay& ray, const GMathVec3<T>& position_a, const GMathVec3<T>& position_b,
                         const GMathVec3<T>& position_c, GeometryCandidate& hit) {
  const GeometryShearedVertex a(ray, position_a), b(ray, position_b), c(ray, position_c);
  return geometry_hit_triangle(ray, a, b, c, hit);
}

bool has_vertex(const u32* triangle, u32 vertex) {
  return triangle[0] == vertex || triangle[1] == vertex || triangle[2] == vertex;
}

/// True if both triangles, given by their vertices, share an edge or a vertex that the ray's line meets exactly. Edge
/// functions depend on the edge alone, so that both triangles get the same zero.
template <class GetPosition>
bool share_met_edge(const GeometryShearedRay& ray, const u32* triangle, const u32* other,
                    const GetPosition& get_position) {
  for (uint k = 0; k < 3; ++k) {
    const u32 from = triangle[k], to = triangle[k == 2 ? 0 : k + 1];
    if (!has_vertex(other, from)) continue;
    const GeometryShearedVertex a(ray, get_position(from));
    if (a.x == 0.0 && a.y == 0.0) return true;
    if (has_vertex(other, to) && geometry_get_edge_function(a, GeometryShearedVertex(ray, get_position(to))) == 0.0)
      return true;
  }
  return false;
}

/// True if one of the `part` triangles before `triangle` in the polygon has given a hit at the same point: the ray
/// meets the shared edge or vertex exactly. A tolerance on distances would not do: at a flat angle rounding may
/// separate the two distances without bound. Searched backwards, because the neighbor is often the triangle before.
template <class GetPosition>
[[gnu::noinline]] bool is_already_offered(const GeometryRaytraceCtx& query, uint ray, const GeometryShearedRay& sheared,
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
  const GeometryShearedRay sheared(query.get_ray(ray));
  const u32* vertices = get_part_vertices(primitive, 0);
  for (uint part = 0, count = get_part_count(primitive); part < count; ++part, vertices += 3) {
    GeometryCandidate hit;
    if (!hit_triangle(sheared, get_position(vertices[0]), get_position(vertices[1]), get_position(vertices[2]), hit))
      continue;
    // On an inner edge the ray meets the triangles on both sides at one point of the polygon: one hit.
    if (part != 0 && geometry_may_be_on_edge(hit) &&
        is_already_offered(query, ray, sheared, vertices, part, get_position))
      continue;
    if (query.settings.merge_edge_hits && geometry_may_be_on_edge(hit) &&
        query.has_listed_hit(ray, [&](uint other, uint other_part) {
          return share_met_edge(sheared, vertices, get_part_vertices(other, other_part), get_position);
        }))
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
  // The usual case: the rays' spans are those of the mesh's own samples, too, and need not be searched for each
  // triangle.
  const CtxMotionBlur* motion_blur = moving ? shader.motion_blur : nullptr;
  const bool has_own_spans = motion_blur != nullptr && motion_blur->get_stamp() == query.span_stamp &&
                             motion_blur->get_time_sampling() == motion_sampling_;
  const GMathVec3<float>* positions = positions_.get();
  for (uint ray = query.first_ray; ray <= query.last_ray; ++ray) {
    if (!query.is_nearest() && query.is_stopped(ray)) continue;
    ++query.counter;
    if (moving) {
      const GeometryRaySpan& span = query.spans[ray];
      const MotionBlend blend = has_own_spans ? MotionBlend{false, span.first, span.second - span.first, span.fraction}
                                              : get_motion_blend(span.time);
      test_ray(ctx, shader, query, primitive, ray, [&](u32 vertex) { return get_moved_position(blend, vertex); });
    } else {
      test_ray(ctx, shader, query, primitive, ray,
               [&](u32 vertex) -> const GMathVec3<float>& { return positions[vertex]; });
    }
  }
}
