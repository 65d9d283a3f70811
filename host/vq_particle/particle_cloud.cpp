#include "vq_particle/particle_cloud.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "vq_core/core_class_info.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_curve/curve_frustum.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_raytrace_ctx.h"
#include "vq_gmath/gmath_key_bbox.h"

namespace {

constexpr double at_rest = std::numeric_limits<double>::quiet_NaN();

/// A sentence about the first error of the input; null without one.
const char* find_fault(const ParticleData& data) {
  const std::size_t count = data.positions.size();
  if (count >= core_invalid_index) return "There are too many particles.";
  if (data.radii.size() > 1 && data.radii.size() != count) return "There must be one radius per particle, or one.";
  for (const auto& sample : data.motion_positions)
    if (sample.size() != count) return "Every motion sample must have as many positions as there are particles.";
  if (data.motion_positions.size() < 2) return nullptr;
  if (!gmath_isfinited(data.motion_begin) || !gmath_isfinited(data.motion_step) || data.motion_step <= 0.0)
    return "The motion samples must begin at a finite time and follow each other in positive steps.";
  return nullptr;
}

template <class T>
u64 get_bytes(const std::vector<T>& items) {
  return items.capacity() * sizeof(T);
}

}  // namespace

const CoreClassInfo& ParticleCloud::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("ParticleCloud", core_destroy_object, GeometryObject::class_info(), nullptr);
  return info;
}

ParticleCloud::ParticleCloud() {
  if (group_names_.resize(1)) group_names_[0] = "default";
}

bool ParticleCloud::create(ParticleData&& data, CoreString& error) {
  if (const char* fault = find_fault(data); fault != nullptr) {
    error = fault;
    return false;
  }
  data_ = std::move(data);
  for (float& radius : data_.radii)
    if (radius < 0.0f) radius = 0.0f;
  motion_sampling_ = GMathTimeSampling(data_.motion_begin, data_.motion_step,
                                       std::max<uint>(1, static_cast<uint>(data_.motion_positions.size())));
  point_cloud_ = GeometryPointCloud(data_.positions.data(), static_cast<uint>(data_.positions.size()));
  return true;
}

uint ParticleCloud::get_point_count(const AppBase& /*app*/, const CtxEval& /*ctx*/) const {
  return get_point_cloud()->get_count();
}

float ParticleCloud::get_radius(uint particle) const {
  if (data_.radii.empty()) return 0.0f;
  return data_.radii.size() == 1 ? data_.radii.front() : data_.radii[particle];
}

ParticleCloud::Ball ParticleCloud::get_ball(uint particle, double time) const {
  GMathVec3<double> center(data_.positions[particle]);
  if (has_motion() && !std::isnan(time)) {
    uint first;
    double fraction;
    motion_sampling_.get_span(time, first, fraction);
    const uint second = std::min(first + 1, motion_sampling_.get_sample_count() - 1);
    center = GMathVec3<double>(data_.motion_positions[first][particle]) * (1.0 - fraction) +
             GMathVec3<double>(data_.motion_positions[second][particle]) * fraction;
  }
  const CurvePoint<double> point{center, get_radius(particle)};
  return {{point, point}};
}

GMathBbox3<double> ParticleCloud::get_primitive_bbox(const CtxEval& /*ctx*/, const uint& primitive) const {
  return GMathBbox3<double>(gmath_round_outwards(curve_get_bbox(get_ball(primitive, at_rest))));
}

GMathBbox3<double> ParticleCloud::get_primitive_bbox_at(const CtxEval& ctx, const double& time,
                                                        const uint& primitive) const {
  const CtxMotionBlur* motion_blur = ctx.get_motion_blur();
  const GMathBbox3<double> box = gmath_get_bbox_between_keys(
      motion_blur != nullptr ? &motion_blur->get_time_sampling() : nullptr, motion_sampling_, time,
      [&](double at) { return curve_get_bbox(get_ball(primitive, at)); });
  return GMathBbox3<double>(gmath_round_outwards(box));
}

void ParticleCloud::ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                      const uint& primitive) const {
  const bool is_moving = has_motion() && query.spans != nullptr && query.span_stamp != 0;
  for (uint ray = query.first_ray; ray <= query.last_ray; ++ray) {
    if (!query.is_nearest() && query.is_stopped(ray)) continue;
    ++query.counter;
    const Ball ball = get_ball(primitive, is_moving ? query.spans[ray].time : at_rest);
    CurveHit hit;
    if (curve_hit_segment(query.get_ray(ray), ball, query.get_tnear(ray), query.get_limit(ray), hit))
      query.push_intersection(ctx, shader, ray, {hit.distance, hit.u, hit.v, primitive, 0});
  }
}

void ParticleCloud::frustum_hit_primitive(const CtxEval& /*ctx*/, CtxShader& /*shader*/, GeometryFrustumCtx& query,
                                          const uint& primitive) const {
  const Ball ball = get_ball(primitive, at_rest);
  query.add_primitive([&] { return curve_touches_frustum(ball, query); },
                      [&] { return curve_lies_in_frustum(ball, query); });
  const bool is_marked = query.mode == static_cast<uint>(GeometryFrustumMode::points) ||
                         query.mode == static_cast<uint>(GeometryFrustumMode::vertices);
  if (is_marked && primitive < query.mask.size() && query.contains(ball.point[0].position)) query.mask[primitive] = 1;
}

GeometrySurfacePoint ParticleCloud::get_surface_point(const GeometryIntersection& hit, const double& time) const {
  const CurveSurfacePoint point = curve_get_surface_point(get_ball(hit.primitive, time), hit.u, hit.v);
  return {point.position, point.normal, point.normal, {}};
}

u64 ParticleCloud::get_memory_size() const {
  u64 size = sizeof(*this) + get_bytes(data_.positions) + get_bytes(data_.radii) + get_bytes(data_.motion_positions);
  for (const auto& sample : data_.motion_positions) size += get_bytes(sample);
  return size;
}
