// host/vq_gas_base/gas_ray_range.h
//
// What every ray query of a tree does around its loop over the rays.
#pragma once
#include "vq_geometry/geometry_raytrace_ctx.h"

/// True if the query was begun for this kind of hits: a nearest-hit query has one record per ray, an all-hits query one
/// flag word per ray.
inline bool gas_is_begun_for(const GeometryRaytraceCtx& query, bool nearest) {
  return nearest ? query.is_nearest() : !query.is_nearest() && query.ray_flags != nullptr;
}

/// Restores the active range of a query, also when a callback throws.
class GasActiveRangeScope {
 public:
  explicit GasActiveRangeScope(GeometryRaytraceCtx& query)
      : query_(query), first_(query.first_ray), last_(query.last_ray) {}
  ~GasActiveRangeScope() {
    query_.first_ray = first_;
    query_.last_ray = last_;
  }
  GasActiveRangeScope(const GasActiveRangeScope&) = delete;
  GasActiveRangeScope& operator=(const GasActiveRangeScope&) = delete;

 private:
  GeometryRaytraceCtx& query_;
  const uint first_, last_;
};
