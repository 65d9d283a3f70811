// host/vq_module/ctx_helpers.h
//
// Helpers for leaf callbacks: the links of a shading group, and the hit filters that structures use.
#pragma once
#include "vq_core/core_export.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_raytrace_ctx.h"
#include "vq_shading_variable/shading_variables.h"

struct VQ_EXPORT CtxHelpers {
  /// The links of a scene-wide shading group; null without a table, beyond it, and for groups that are not shaded.
  /// O(1).
  static const ShadingGroupLinks* get_shading(const GeometryRaytraceCtx& query, const uint& group) {
    return query.shading == nullptr ? nullptr : query.shading->get_links(group);
  }
  static const ShadingGroupLinks* get_shading(const GeometryFrustumCtx& query, const uint& group) {
    return query.shading == nullptr ? nullptr : query.shading->get_links(group);
  }

  /// True if the object of `element`, or its instance, is matte.
  static bool is_matte_object(const GeometryRaytraceCtx& query, const GeometryIntersectionPathElement& element);

  /// Hit filter: rejects hits where the clip map of the hit's shading group is transparent. The map is read at the
  /// hit's first UV coordinates. Hits of groups without a clip map pass.
  static bool filter_clip_map_callback(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                       GeometryIntersection& hit, const GeometryRaytraceFilter& filter);

  /// Hit filter: keeps only bands along visible polygon edges. With e the hit's edge proximity, hits with e below
  /// filter.a are rejected; the weight of the others is multiplied by a factor that is filter.b at the band's inner
  /// border and rises linearly in e to 1 on the edge.
  static bool filter_wireframes_callback(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                         GeometryIntersection& hit, const GeometryRaytraceFilter& filter);
};
