#include "gas/structure/gas_wireframe_filter.h"

#include "vq_geometry/geometry_intersection_path.h"
#include "vq_geometry/geometry_object.h"
#include "vq_module/ctx_helpers.h"

namespace {

bool needs_filter(const GeometryObject& geometry, const GeometryRaytraceCtx& query) {
  if (geometry.get_render_mode() != GeometryObject::render_mode_wireframe) return false;
  const GeometryIntersectionPathElement* entry = query.path != nullptr ? query.path->get_last() : nullptr;
  const GeometryOverride* replaced = entry != nullptr ? entry->geometry_override : nullptr;
  const bool overridden = replaced != nullptr && replaced->has_render_mode &&
                          replaced->render_mode != GeometryObject::render_mode_wireframe;
  return !overridden && !query.has_filter(CtxHelpers::filter_wireframes_callback);
}

}  // namespace

GasWireframeScope::GasWireframeScope(const GeometryObject* base_geometry, GeometryRaytraceCtx& query, BvhHits hits)
    : query_(query),
      pushed_(base_geometry != nullptr && needs_filter(*base_geometry, query) &&
              query.push_filter({CtxHelpers::filter_wireframes_callback, 0.8, 0.5,
                                 static_cast<u8>(hits == BvhHits::nearest ? 1 : 0), nullptr})) {
  query.geometry = base_geometry;
}

GasWireframeScope::~GasWireframeScope() {
  if (pushed_) query_.pop_filter();
}
