#include "gas/structure/gas_wireframe_filter.h"

#include "vq_geometry/geometry_intersection_path.h"
#include "vq_module/ctx_helpers.h"

void GasWireframeScope::push_filter(BvhHits hits) {
  const GeometryIntersectionPathElement* entry = query_.path != nullptr ? query_.path->get_last() : nullptr;
  const GeometryOverride* replaced = entry != nullptr ? entry->geometry_override : nullptr;
  const bool is_overridden = replaced != nullptr && replaced->has_render_mode &&
                             replaced->render_mode != GeometryObject::render_mode_wireframe;
  if (is_overridden || query_.has_filter(CtxHelpers::filter_wireframes_callback)) return;
  is_pushed_ = query_.push_filter(
      {CtxHelpers::filter_wireframes_callback, 0.8, 0.5, static_cast<u8>(hits == BvhHits::nearest ? 1 : 0), nullptr});
}
