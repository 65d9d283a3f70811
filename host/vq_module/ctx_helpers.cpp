#include "vq_module/ctx_helpers.h"

#include "vq_geometry/geometry_object.h"
#include "vq_module/module_scene_object.h"

bool CtxHelpers::is_matte_object(const GeometryRaytraceCtx& /*query*/, const GeometryIntersectionPathElement& element) {
  if (element.geometry_override != nullptr && element.geometry_override->has_matte) return true;
  return element.object != nullptr && element.object->is_matte();
}

bool CtxHelpers::filter_clip_map_callback(const CtxEval& /*ctx*/, CtxShader& /*shader*/, GeometryRaytraceCtx& query,
                                          GeometryIntersection& hit, const GeometryRaytraceFilter& /*filter*/) {
  const ShadingGroupLinks* links = get_shading(query, hit.shading_group);
  if (links == nullptr || links->clip_map == nullptr) return true;
  const GMathVec3<double> uv = hit.geometry->get_surface_point(hit, 0.0).uv;  // texture coordinates do not move
  return links->clip_map->is_opaque_at(uv.x, uv.y);
}

bool CtxHelpers::filter_wireframes_callback(const CtxEval& /*ctx*/, CtxShader& /*shader*/,
                                            GeometryRaytraceCtx& /*query*/, GeometryIntersection& hit,
                                            const GeometryRaytraceFilter& filter) {
  const double proximity = hit.geometry->get_edge_proximity(hit);
  if (proximity < filter.a) return false;
  // A band of width 0 contains only the edge.
  const double place = filter.a < 1.0 ? (proximity - filter.a) / (1.0 - filter.a) : 1.0;
  hit.weight *= filter.b + (1.0 - filter.b) * place;
  return true;
}
