// gas/structure/gas_leaf.h
//
// What a leaf does around the test of each primitive: looks up the shading of the primitive's group, makes the
// primitive the query's current one, and pushes the filter of its clip map.
#pragma once
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_object.h"
#include "vq_geometry/geometry_raytrace_ctx.h"
#include "vq_module/ctx_helpers.h"
#include "vq_shading_variable/shading_variables.h"

/// Whether primitives with these links can be hit.
inline bool gas_is_shaded(const ShadingGroupLinks* links) {
  return links != nullptr && links->material != ShadingGroupLinks::material_empty;
}

/// Filters by the clip map of the links, if they have one, for as long as it lives.
class GasClipMapScope {
 public:
  GasClipMapScope(const ShadingGroupLinks& links, GeometryRaytraceCtx& query)
      : query_(query),
        pushed_(links.clip_map != nullptr &&
                query.push_filter({CtxHelpers::filter_clip_map_callback, 0.0, 0.0, 0, nullptr})) {}
  ~GasClipMapScope() {
    if (pushed_) query_.pop_filter();
  }
  GasClipMapScope(const GasClipMapScope&) = delete;
  GasClipMapScope& operator=(const GasClipMapScope&) = delete;

 private:
  GeometryRaytraceCtx& query_;
  bool pushed_;
};

/// Calls describe(links) and test() for a primitive that can be hit; the query's primitive filter is asked in between.
/// @param group  of the whole scene
template <class Describe, class Test>
inline void gas_test_primitive(GeometryRaytraceCtx& query, const GeometryObject* owner, uint primitive, uint group,
                               const Describe& describe, const Test& test) {
  const ShadingGroupLinks* links = CtxHelpers::get_shading(query, group);
  if (!gas_is_shaded(links)) return;
  query.geometry = owner;
  query.shading_group = group;
  query.current_instance = query.instance;
  describe(*links);
  if (!query.apply_primitive_filters(primitive)) return;
  const GasClipMapScope clip_map(*links, query);
  test();
}

/// The same for a frustum, with the primitive's own test.
inline void gas_test_primitive(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                               const GeometryObject* owner, uint primitive, uint group) {
  if (!gas_is_shaded(CtxHelpers::get_shading(query, group))) return;
  query.geometry = owner;
  query.shading_group = group;
  query.current_instance = query.instance;
  owner->frustum_hit_primitive(ctx, shader, query, primitive);
}
