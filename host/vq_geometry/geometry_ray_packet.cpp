#include "vq_geometry/geometry_ray_packet.h"

void GeometryRayPacket::resize(uint count) {
  count_ = count;
  if (count <= rays_.size()) return;
  rays_.resize(count);
  intervals_.resize(count);
  spans_.resize(count);
  flags_.resize(count);
  nearest_.resize(count);
}

void GeometryRayPacket::set_stop_rule(uint max_hits, double opacity_stop) {
  has_stop_rule_ = true;
  max_hits_ = max_hits;
  opacity_stop_ = opacity_stop;
}

void GeometryRayPacket::begin(const ShadingGroupTable& shading) {
  for (uint ray = 0; ray < count_; ++ray) {
    const GMathRay& from = rays_[ray];
    intervals_[ray] = {from.tnear, from.tfar, from.time, from.extent, from.type, 0};
    flags_[ray] = 0;
  }
  query_ = GeometryRaytraceCtx();
  query_.rays = reinterpret_cast<const u8*>(rays_.data());
  query_.ray_count = count_;
  // The range is inclusive: an empty one has first_ray > last_ray.
  query_.first_ray = count_ == 0 ? 1 : 0;
  query_.last_ray = count_ == 0 ? 0 : count_ - 1;
  query_.intervals = intervals_.data();
  query_.spans = spans_.data();
  query_.ray_flags = flags_.data();
  query_.shading = &shading;
}

GeometryRaytraceCtx& GeometryRayPacket::begin_nearest(const ShadingGroupTable& shading) {
  begin(shading);
  map_ = GeometryIntersectionMap(nearest_, 0);
  for (uint ray = 0; ray < count_; ++ray) {
    // Only the fields that mean "no hit": a hit writes the others.
    GeometryIntersection& record = map_.get_record(ray);
    record.distance = rays_[ray].tfar;
    record.geometry = nullptr;
    record.primitive = core_invalid_index;
    record.transform = core_invalid_index;
    record.path = core_invalid_index;
    record.data = core_invalid_index;
  }
  query_.map = &map_;
  return query_;
}

GeometryRaytraceCtx& GeometryRayPacket::begin_any_hit(const ShadingGroupTable& shading) {
  begin_nearest(shading).settings.any_hit = true;
  return query_;
}

GeometryRaytraceCtx& GeometryRayPacket::begin_all_hits(const ShadingGroupTable& shading) {
  begin(shading);
  hits_.clear();
  query_.hits = &hits_;
  if (!has_stop_rule_) return query_;
  tallies_.assign(count_, GeometryRayTally());
  query_.tallies = tallies_.data();
  query_.settings.max_hits = max_hits_;
  query_.settings.opacity_stop = opacity_stop_;
  return query_;
}

const GeometryHitTransform* GeometryRayPacket::get_nearest_transform(uint ray) {
  const uint transform = get_nearest(ray).transform;
  return transform == core_invalid_index ? nullptr : nearest_.get_transforms() + transform;
}

std::span<const GeometryIntersectionPathElement> GeometryRayPacket::get_nearest_path(uint ray) {
  const uint path = get_nearest(ray).path;
  if (path == core_invalid_index) return {};
  return nearest_.get_paths()[path].get_elements();
}
