// gas/structure/gas_wireframe_filter.h
//
// Geometries in the render mode of wireframes are hit along their edges only: a filter of the query sees to that.
#pragma once
#include "gas/bvh/bvh_kernel.h"

class GeometryObject;

/// Makes a structure's base geometry the query's current one and, for as long as it lives, filters what lies between
/// its edges when the geometry is a wireframe, the last override on the query's path leaves it one, and the query does
/// not filter already. Without a free place among the filters it is hit whole.
class GasWireframeScope {
 public:
  GasWireframeScope(const GeometryObject* base_geometry, GeometryRaytraceCtx& query, BvhHits hits);
  ~GasWireframeScope();
  GasWireframeScope(const GasWireframeScope&) = delete;
  GasWireframeScope& operator=(const GasWireframeScope&) = delete;

 private:
  GeometryRaytraceCtx& query_;
  bool pushed_;
};
