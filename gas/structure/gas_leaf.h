// gas/structure/gas_leaf.h
//
// The steps of a leaf before the test of a primitive: looks up the shading of its group, makes it the query's current
// primitive, and pushes the filter of its clip map.
#pragma once
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_object.h"
#include "vq_geometry/geometry_raytrace_ctx.h"
#include "vq_module/ctx_helpers.h"
#include "vq_shading_variable/shading_variables.h"

/// True if primitives with these links can be hit.
inline bool gas_is_shaded(const ShadingGroupLinks* links) {
  return links != nullptr && links->material != ShadingGroupLinks::material_empty;
}

/// Makes primitives of one owner and group the query's current ones.
/// @param group  number of the shading group in the whole scene
inline void gas_set_current(GeometryRaytraceCtx& query, const GeometryObject* owner, uint group) {
  query.geometry = owner;
  query.shading_group = group;
  query.current_instance = query.instance;
}

/// While it exists, hits are filtered by the clip map of the links, if there is one.
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

/// Tests a primitive unless its group is not shaded or the query's primitive filter rejects it. Calls describe(links)
/// before the filter and test() after it.
/// @param group  number of the shading group in the whole scene
template <class Describe, class Test>
inline void gas_test_primitive(GeometryRaytraceCtx& query, const GeometryObject* owner, uint primitive, uint group,
                               const Describe& describe, const Test& test) {
  const ShadingGroupLinks* links = CtxHelpers::get_shading(query, group);
  if (!gas_is_shaded(links)) return;
  gas_set_current(query, owner, group);
  describe(*links);
  if (!query.apply_primitive_filters(primitive)) return;
  const GasClipMapScope clip_map(*links, query);
  test();
}

/// The same for a frustum query; the owner tests the primitive.
inline void gas_test_primitive(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                               const GeometryObject* owner, uint primitive, uint group) {
  if (!gas_is_shaded(CtxHelpers::get_shading(query, group))) return;
  query.geometry = owner;
  query.shading_group = group;
  query.current_instance = query.instance;
  owner->frustum_hit_primitive(ctx, shader, query, primitive);
}
