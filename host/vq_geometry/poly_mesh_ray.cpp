// Ray test of polygons. An edge function of zero is a hit of the triangles on both sides. Two triangles of one polygon
// then give one hit, those of two polygons one each, or one in all when the query asks for it.
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_ray_triangle.h"
#include "vq_geometry/poly_mesh.h"

namespace {

/// @param get_corner  position of corner 0, 1 or 2
template <class GetCorner>
inline bool hit_triangle(const GeometryShearedRay& ray, const GetCorner& get_corner, GeometryCandidate& hit) {
  const GeometryShearedVertex a(ray, get_corner(0)), b(ray, get_corner(1)), c(ray, get_corner(2));
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
bool is_already_offered(const GeometryRaytraceCtx& query, uint ray, const GeometryShearedRay& sheared,
                        const u32* triangle, uint part, const GetPosition& get_position) {
  for (const u32* other = triangle; part-- > 0;) {
    other -= 3;
    GeometryCandidate hit;
    if (share_met_edge(sheared, triangle, other, get_position) &&
        hit_triangle(
            sheared, [&](uint k) { return get_position(other[k]); }, hit) &&
        hit.distance >= query.get_tnear(ray) && hit.distance < query.get_tfar(ray))
      return true;
  }
  return false;
}

}  // namespace

// A function of its own for each kind of mesh: that of triangles at rest, which most meshes are, has no loop over
// parts.
template <bool all_triangles, bool copied, class GetPositions>
[[gnu::noinline]] void PolyMesh::test_rays(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                           uint primitive, GetPositions get_positions) const {
  for (uint ray = query.first_ray; ray <= query.last_ray; ++ray) {
    if (!query.is_nearest() && query.is_stopped(ray)) continue;
    ++query.counter;
    test_ray<all_triangles, copied>(ctx, shader, query, primitive, ray, get_positions(ray));
  }
}

template <bool all_triangles, bool copied, class GetPosition>
inline void PolyMesh::test_ray(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint primitive,
                               uint ray, GetPosition get_position) const {
  const GeometryShearedRay sheared(query.get_ray(ray));
  const u32* vertices =
      all_triangles ? polygon_vertices_.get() + std::size_t{3} * primitive : get_part_vertices(primitive, 0);
  const GMathVec3<float>* corners = nullptr;
  if constexpr (copied)
    corners = triangle_positions_.get() + std::size_t{3} * (all_triangles ? primitive : get_first_part(primitive));
  for (uint part = 0, count = all_triangles ? 1 : get_part_count(primitive); part < count; ++part, vertices += 3) {
    const auto get_corner = [&](uint k) -> decltype(auto) {
      if constexpr (copied) {
        return corners[3 * part + k];
      } else {
        return get_position(vertices[k]);
      }
    };
    GeometryCandidate hit;
    if (!hit_triangle(sheared, get_corner, hit)) continue;
    hit.primitive = primitive;
    hit.part = part;
    if (geometry_may_be_on_edge(hit) && is_known(query, ray, hit, vertices, get_position)) continue;
    query.push_intersection(ctx, shader, ray, hit);
    if (!query.is_nearest() && query.is_stopped(ray)) return;
  }
}

/// True if the hit is on an edge and was given by the triangle on the other side.
template <class GetPosition>
[[gnu::noinline]] bool PolyMesh::is_known(const GeometryRaytraceCtx& query, uint ray, const GeometryCandidate& hit,
                                          const u32* vertices, GetPosition get_position) const {
  const GeometryShearedRay sheared(query.get_ray(ray));
  // On an inner edge the ray meets the triangles on both sides at one point of the polygon: one hit.
  if (is_already_offered(query, ray, sheared, vertices, hit.part, get_position)) return true;
  return query.settings.merge_edge_hits && query.has_listed_hit(ray, [&](uint other, uint other_part) {
    return share_met_edge(sheared, vertices, get_part_vertices(other, other_part), get_position);
  });
}

void PolyMesh::ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                 const uint& primitive) const {
  const auto test = [&]<bool copied>(std::bool_constant<copied>, const auto& get_positions) {
    if (is_all_triangles())
      test_rays<true, copied>(ctx, shader, query, primitive, get_positions);
    else
      test_rays<false, copied>(ctx, shader, query, primitive, get_positions);
  };
  const bool moving = has_motion() && query.spans != nullptr && query.span_stamp != 0;
  if (!moving) {
    const auto at_rest = [positions = positions_.get()](uint /*ray*/) {
      return [positions](u32 vertex) -> const GMathVec3<float>& { return positions[vertex]; };
    };
    if (triangle_positions_) [[unlikely]]  // large meshes wait for memory anyway
      return test(std::true_type(), at_rest);
    return test(std::false_type(), at_rest);
  }
  // The usual case: the rays' spans are those of the mesh's own samples, too, and need not be searched for each
  // triangle.
  const CtxMotionBlur* motion_blur = shader.motion_blur;
  const bool has_own_spans = motion_blur != nullptr && motion_blur->get_stamp() == query.span_stamp &&
                             motion_blur->get_time_sampling() == motion_sampling_;
  test(std::false_type(), [this, &query, has_own_spans](uint ray) {
    const GeometryRaySpan& span = query.spans[ray];
    const MotionBlend blend = has_own_spans ? MotionBlend{false, span.first, span.second - span.first, span.fraction}
                                            : get_motion_blend(span.time);
    return [this, blend](u32 vertex) { return get_moved_position(blend, vertex); };
  });
}
