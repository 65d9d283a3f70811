// host/vq_geometry/geometry_ray_packet.h
//
// Memory and set-up of a query with a packet of rays:
//
//   GeometryRayPacket packet;
//   packet.resize(1);
//   packet.set_ray(0, origin, direction);
//   structure.ray_hit_nearest_static(ctx, shader, packet.begin_nearest(shading));
//   if (packet.get_nearest(0).geometry != nullptr) ...
//
// Rays keep their values between queries; begin_* copies their intervals and clears the results.
#pragma once
#include <vector>

#include "vq_core/core_export.h"
#include "vq_geometry/geometry_raytrace_ctx.h"

/// One thread at a time. The packet must not move between begin_* and the reading of the results, and `shading` must
/// live as long as the query.
class VQ_EXPORT GeometryRayPacket {
 public:
  GeometryRayPacket() = default;
  GeometryRayPacket(const GeometryRayPacket&) = delete;
  GeometryRayPacket& operator=(const GeometryRayPacket&) = delete;

  /// Sets how many rays the next query has. The memory grows and never shrinks; existing rays keep their values.
  void resize(uint count);
  uint get_count() const { return count_; }

  /// For reading, and for changing the interval, time, extent or type. Change directions with set(), which also updates
  /// the inverse.
  GMathRay& get_ray(uint ray) { return rays_[ray]; }
  const GMathRay& get_ray(uint ray) const { return rays_[ray]; }
  /// `direction` need not be of unit length: distances are in units of it.
  void set_ray(uint ray, const GMathVec3<double>& origin, const GMathVec3<double>& direction, double tnear = 0.0,
               double tfar = DBL_MAX, double time = 0.0, GMathRay::Type type = GMathRay::camera) {
    GMathRay& written = rays_[ray];
    written.set(origin, direction);
    written.type = type;
    written.tnear = tnear;
    written.tfar = tfar;
    written.time = time;
    written.extent = 0.0;
  }

  /// Ends a ray of an all-hits query after `max_hits` hits or when the weights of its hits add up to `opacity_stop`.
  /// Applies to queries begun after this call; without a rule no ray ends early.
  void set_stop_rule(uint max_hits, double opacity_stop = DBL_MAX);
  void remove_stop_rule() { has_stop_rule_ = false; }

  /// Prepares a query for the nearest hit of each ray. The packet owns the context; the caller may change filters
  /// and settings before the query. Does not allocate when the packet was used at this size before.
  GeometryRaytraceCtx& begin_nearest(const ShadingGroupTable& shading);
  /// The same for whether a ray hits anything: each ray ends at the first hit found. To be passed to the queries for
  /// the nearest hit.
  GeometryRaytraceCtx& begin_any_hit(const ShadingGroupTable& shading);
  /// The same for all hits of each ray.
  GeometryRaytraceCtx& begin_all_hits(const ShadingGroupTable& shading);

  /// The nearest hit of a ray. When nothing was hit its geometry is null, its distance the ray's tfar, its primitive
  /// core_invalid_index, and the rest undefined.
  const GeometryIntersection& get_nearest(uint ray) { return nearest_.get_records()[ray]; }
  /// After a query for the nearest or for any hit. The record of any hit has all but the distance.
  bool has_hit(uint ray) { return get_nearest(ray).geometry != nullptr; }
  /// From the space of the hit's geometry to the caller's; null: identity.
  const GeometryHitTransform* get_nearest_transform(uint ray);
  /// The objects through which a ray's nearest hit was found, outermost first; empty for a query of one structure
  /// alone. Valid until the next query.
  std::span<const GeometryIntersectionPathElement> get_nearest_path(uint ray);
  /// Medium and custom data of a ray's nearest hit.
  GeometryHitData get_nearest_data(uint ray) const { return nearest_.get_data(ray); }
  /// The hits of the last all-hits query, unsorted.
  GeometryHitList& get_hits() { return hits_; }

 private:
  void begin(const ShadingGroupTable& shading);

  std::vector<GMathRay> rays_;
  std::vector<GeometryRayInterval> intervals_;
  std::vector<GeometryRaySpan> spans_;
  std::vector<u64> flags_;
  std::vector<GeometryRayTally> tallies_;
  GeometryNearestHits nearest_;
  GeometryIntersectionMap map_;
  GeometryHitList hits_;
  GeometryRaytraceCtx query_;
  uint count_ = 0;
  bool has_stop_rule_ = false;
  uint max_hits_ = 0xFFFFFFFFu;
  double opacity_stop_ = DBL_MAX;
};
