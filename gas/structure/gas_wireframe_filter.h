// gas/structure/gas_wireframe_filter.h
//
// Geometries in wireframe mode are hit along their edges only, by a filter of the query.
#pragma once
#include "gas/bvh/bvh_kernel.h"
#include "vq_geometry/geometry_object.h"
#include "vq_geometry/geometry_raytrace_ctx.h"

/// While it exists, base_geometry is the query's current geometry; if its render mode is wireframe, hits off its edges
/// are filtered. No filter is pushed if the last override of the query's path sets another mode or the query already
/// has the filter. If the query's filters are full, the surface is hit as a whole.
class GasWireframeScope {
 public:
  GasWireframeScope(const GeometryObject* base_geometry, GeometryRaytraceCtx& query, BvhHits hits) : query_(query) {
    query.geometry = base_geometry;
    if (base_geometry != nullptr && base_geometry->get_render_mode() == GeometryObject::render_mode_wireframe)
      push_filter(hits);
  }
  ~GasWireframeScope() {
    if (is_pushed_) query_.pop_filter();
  }
  GasWireframeScope(const GasWireframeScope&) = delete;
  GasWireframeScope& operator=(const GasWireframeScope&) = delete;

 private:
  void push_filter(BvhHits hits);
  GeometryRaytraceCtx& query_;
  bool is_pushed_ = false;
};
