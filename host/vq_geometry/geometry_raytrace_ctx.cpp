#include "vq_geometry/geometry_raytrace_ctx.h"

#include <algorithm>

#include "vq_ctx/ctx_motion_blur.h"

namespace {

/// From the space of `query` to the outermost: the matrices of all levels between, innermost first.
GMathMatrix4x4<double> compose_matrices(const GeometryRaytraceData& query, uint ray) {
  GMathMatrix4x4<double> out = query.matrices[ray].matrix;
  for (const GeometryRaytraceData* level = query.parent; level != nullptr && level->matrices != nullptr;
       level = level->parent)
    out = level->matrices[ray].matrix * out;
  return out;
}

}  // namespace

bool GeometryRaytraceCtx::push_filter(const GeometryRaytraceFilter& filter) {
  if (filter_count_ == filter_capacity) return false;
  filters_[filter_count_++] = filter;
  return true;
}

bool GeometryRaytraceCtx::has_filter(GeometryFilterFunction function) const {
  return std::any_of(filters_, filters_ + filter_count_,
                     [&](const GeometryRaytraceFilter& filter) { return filter.function == function; });
}

bool GeometryRaytraceCtx::push_filtered(const CtxEval& ctx, CtxShader& shader, uint ray,
                                        const GeometryCandidate& candidate, const GeometryHitData* data) {
  // The interval is tested first: a filter may read a texture, and cannot accept a hit outside of the interval.
  if (!(candidate.distance >= get_tnear(ray) && candidate.distance < get_limit(ray))) return false;
  GeometryIntersection hit;
  write_hit(hit, candidate);
  for (uint k = filter_count_; k-- > 0;) {
    const GeometryRaytraceFilter filter = filters_[k];
    if (!filter.function(ctx, shader, *this, hit, filter)) return false;
  }
  if (!is_nearest()) return append_hit(ray, hit, data);
  end_if_any_hit(hit);
  map->get_record(ray) = hit;
  if (data != nullptr) map->record_data(ray, *data);
  if (path != nullptr && level == 0) map->record_path(ray, *path);
  return true;
}

bool GeometryRaytraceCtx::is_in_current_instance(uint ray, const GeometryIntersection& listed) const {
  if (listed.geometry != geometry || listed.instance != current_instance || listed.depth != depth) return false;
  // Matrices tell instances of nested bundles apart, which have no path.
  const GeometryHitTransform* transform = hits->get_transform(listed);
  if (transform == nullptr || matrices == nullptr) return transform == nullptr && matrices == nullptr;
  if (!(transform->matrix == compose_matrices(*this, ray))) return false;
  const auto elements = hits->get_path(listed);
  if (path == nullptr) return elements.empty();
  return std::ranges::equal(elements, path->get_elements(), {}, &GeometryIntersectionPathElement::object_index,
                            &GeometryIntersectionPathElement::object_index);
}

bool GeometryRaytraceCtx::append_hit(uint ray, const GeometryIntersection& hit, const GeometryHitData* data) {
  GeometryIntersection appended = hit;
  if (hits != nullptr) {
    if (matrices != nullptr)
      hits->append(ray, hit, compose_matrices(*this, ray));
    else
      hits->append(ray, hit);
    if (path != nullptr) hits->record_path(*path);
    if (data != nullptr) hits->record_data(*data);
    appended = hits->get_hits().back().hit;
  }
  if (hit_callback != nullptr) hit_callback(*this, ray, appended, hit_user);
  if (tallies != nullptr) {
    GeometryRayTally& tally = tallies[ray];
    tally.weight += hit.weight;
    ++tally.hit_count;
    if (tally.hit_count >= settings.max_hits || tally.weight >= settings.opacity_stop) ray_flags[ray] |= 1u;
  }
  return true;
}

void CtxMotionBlur::init_raytrace_ctx(GeometryRaytraceCtx& query) const {
  if (query.spans == nullptr) return;
  const uint last_sample = sampling_.get_sample_count() - 1;
  for (uint ray = query.first_ray; ray <= query.last_ray && ray < query.ray_count; ++ray) {
    GeometryRaySpan& span = query.spans[ray];
    span.time = query.intervals[ray].time;
    sampling_.get_span(span.time, span.first, span.fraction);
    span.second = std::min(span.first + 1, last_sample);  // a single sample has no next one
  }
  query.span_stamp = stamp_;
}
