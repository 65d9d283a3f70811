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

// Where positions are read for one ray: of vertices in the mesh, at rest or in motion, or of corners in a record.

struct PolyMesh::AtRest {
  const GMathVec3<float>* positions;
  AtRest(const PolyMesh& mesh, const CtxShader&, const GeometryRaytraceCtx&, uint /*ray*/)
      : positions(mesh.positions_.get()) {}
  const GMathVec3<float>& operator()(u32 vertex) const { return positions[vertex]; }
  static constexpr bool is_in_record() { return true; }
  auto get_corners(const GMathVec3<float>* part) const {
    return [part](uint k) -> const GMathVec3<float>& { return part[k]; };
  }
};

struct PolyMesh::InMotion {
  const PolyMesh& mesh;
  MotionBlend blend;
  InMotion(const PolyMesh& mesh, const CtxShader& shader, const GeometryRaytraceCtx& query, uint ray)
      : mesh(mesh), blend(mesh.get_motion_blend(shader, query, ray)) {}
  GMathVec3<double> operator()(u32 vertex) const { return mesh.get_moved_position(blend, vertex); }
  bool is_in_record() const { return !blend.rest; }  // a record has the samples alone
  auto get_corners(const GMathVec3<float>* part) const {
    return [this, first = part + 3 * blend.first](uint k) { return blend.mix(first[k], first[3 * blend.step + k]); };
  }
};

// A function of its own for each kind of mesh.
template <bool all_triangles, bool has_record, class Positions>
[[gnu::noinline]] void PolyMesh::test_rays(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                           uint primitive, const GMathVec3<float>* record) const {
  for (uint ray = query.first_ray; ray <= query.last_ray; ++ray)
    test_ray<all_triangles, has_record, Positions>(ctx, shader, query, primitive, record, ray);
}

template <bool all_triangles, bool has_record, class Positions>
[[gnu::always_inline]] inline void PolyMesh::test_ray(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                                      uint primitive, const GMathVec3<float>* record, uint ray) const {
  if (!query.is_nearest() && query.is_stopped(ray)) return;
  ++query.counter;
  const GeometryShearedRay sheared(query.get_ray(ray));
  const Positions positions(*this, shader, query, ray);
  const u32* vertices =
      all_triangles ? polygon_vertices_.get() + std::size_t{3} * primitive : get_part_vertices(primitive, 0);
  for (uint part = 0, count = all_triangles ? 1 : get_part_count(primitive); part < count; ++part, vertices += 3) {
    GeometryCandidate hit;
    const bool is_recorded = has_record && (all_triangles || part < record_parts_) && positions.is_in_record();
    const bool is_hit = is_recorded
                            ? hit_triangle(sheared, positions.get_corners(record), hit)
                            : hit_triangle(
                                  sheared, [&](uint k) -> decltype(auto) { return positions(vertices[k]); }, hit);
    if (is_recorded && !all_triangles) record += 3 * record_samples_;
    if (!is_hit) continue;
    hit.primitive = primitive;
    hit.part = part;
    push_hit<Positions>(ctx, shader, query, ray, hit);
    if (!all_triangles && !query.is_nearest() && query.is_stopped(ray)) return;
  }
}

/// Gives the hit to the query, unless a neighbor has given it. A call, so that a test that misses, as most do, has no
/// registers to save for it.
template <class Positions>
[[gnu::noinline]] void PolyMesh::push_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint ray,
                                          const GeometryCandidate& hit) const {
  if (geometry_may_be_on_edge(hit) && is_known(query, ray, hit, Positions(*this, shader, query, ray))) return;
  query.push_intersection(ctx, shader, ray, hit);
}

/// True if the hit is on an edge and was given by the triangle on the other side.
template <class GetPosition>
[[gnu::noinline]] bool PolyMesh::is_known(const GeometryRaytraceCtx& query, uint ray, const GeometryCandidate& hit,
                                          GetPosition get_position) const {
  const u32* vertices = get_part_vertices(hit.primitive, hit.part);
  const GeometryShearedRay sheared(query.get_ray(ray));
  // On an inner edge the ray meets the triangles on both sides at one point of the polygon: one hit.
  if (is_already_offered(query, ray, sheared, vertices, hit.part, get_position)) return true;
  return query.settings.merge_edge_hits && query.has_listed_hit(ray, [&](uint other, uint other_part) {
    return share_met_edge(sheared, vertices, get_part_vertices(other, other_part), get_position);
  });
}

// In the usual case the rays' spans are those of the mesh's own samples, and need not be searched for each triangle.
inline PolyMesh::MotionBlend PolyMesh::get_motion_blend(const CtxShader& shader, const GeometryRaytraceCtx& query,
                                                        uint ray) const {
  const GeometryRaySpan& span = query.spans[ray];
  const CtxMotionBlur* motion_blur = shader.motion_blur;
  const bool has_own_spans = motion_blur != nullptr && motion_blur->get_stamp() == query.span_stamp &&
                             motion_blur->get_time_sampling() == motion_sampling_;
  return has_own_spans ? MotionBlend{false, span.first, span.second - span.first, span.fraction}
                       : get_motion_blend(span.time);
}

/// Usually one ray is active, and a triangle is then tested without a loop.
template <bool all_triangles, bool has_record, class Positions>
inline void PolyMesh::test_active(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint primitive,
                                  const GMathVec3<float>* record) const {
  if (query.first_ray != query.last_ray)
    return test_rays<all_triangles, has_record, Positions>(ctx, shader, query, primitive, record);
  test_ray<all_triangles, has_record, Positions>(ctx, shader, query, primitive, record, query.first_ray);
}

template <bool has_record>
inline void PolyMesh::test_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint primitive,
                                     const GMathVec3<float>* record) const {
  if (has_motion()) return test_moving<has_record>(ctx, shader, query, primitive, record);
  if (is_all_triangles()) return test_active<true, has_record, AtRest>(ctx, shader, query, primitive, record);
  test_rays<false, has_record, AtRest>(ctx, shader, query, primitive, record);
}

/// A record has the positions of the samples alone: at rest it is not read.
template <bool has_record>
[[gnu::noinline]] void PolyMesh::test_moving(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                             uint primitive, const GMathVec3<float>* record) const {
  const bool in_motion = query.spans != nullptr && query.span_stamp != 0;
  if (!is_all_triangles()) {
    if (in_motion) return test_rays<false, has_record, InMotion>(ctx, shader, query, primitive, record);
    return test_rays<false, false, AtRest>(ctx, shader, query, primitive, nullptr);
  }
  if (in_motion) return test_active<true, has_record, InMotion>(ctx, shader, query, primitive, record);
  test_active<true, false, AtRest>(ctx, shader, query, primitive, nullptr);
}

void PolyMesh::ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                 const uint& primitive) const {
  test_primitive<false>(ctx, shader, query, primitive, nullptr);
}

void PolyMesh::ray_hit_record(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, const uint& primitive,
                              const void* record) const {
  test_primitive<true>(ctx, shader, query, primitive, static_cast<const GMathVec3<float>*>(record));
}

void PolyMesh::write_record(const uint& primitive, void* record) const {
  auto* to = static_cast<GMathVec3<float>*>(record);
  const uint count = std::min(get_part_count(primitive), record_parts_);
  for (uint part = 0; part < record_parts_; ++part) {
    for (uint sample = 0; sample < record_samples_; ++sample) {
      for (uint k = 0; k < 3; ++k, ++to) {
        if (part >= count) {
          *to = GMathVec3<float>();
          continue;
        }
        const u32 vertex = get_part_vertices(primitive, part)[k];
        *to = has_motion() ? get_motion_position(vertex, sample) : positions_[vertex];
      }
    }
  }
}
