// How do I add moving primitives of my own? As in 06_own_geometry.cpp, here of balls with a radius of their own, but
// with samples of their centers over time. Three things are new: has_motion(), boxes at a time, and a ray test at the
// time of each ray.
#include <cmath>

#include "examples/example_world.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_gmath/gmath_key_bbox.h"
#include "vq_gmath/gmath_time_sampling.h"

class MovingBalls final : public GeometryObject {
 public:
  struct Ball {
    std::vector<GMathVec3<double>> centers;  ///< at each sample time; straight lines between
    double radius;
  };
  MovingBalls(std::vector<Ball> balls, const GMathTimeSampling& keys)
      : balls_(std::move(balls)), keys_(keys), groups_(1) {
    groups_[0] = CoreString("balls");
  }

  uint get_primitive_count() const override { return static_cast<uint>(balls_.size()); }
  const CoreArray<CoreString>& get_shading_groups() const override { return groups_; }
  uint get_primitive_shading_group(const uint&) const override { return 0; }

  // Without this the motion queries answer as the static ones.
  bool has_motion() const override { return true; }

  /// At rest: at the first sample.
  GMathBbox3<double> get_primitive_bbox(const CtxEval&, const uint& primitive) const override {
    return get_box(primitive, keys_.get_begin());
  }

  // The structure asks for boxes at the samples of the shutter, and blends those of two neighboring samples. The
  // shutter may have fewer samples than the balls: between two of its samples a ball may turn off, and leave the
  // blended box. gmath_get_bbox_between_keys() adds the room for that.
  GMathBbox3<double> get_primitive_bbox_at(const CtxEval& ctx, const double& time,
                                           const uint& primitive) const override {
    const CtxMotionBlur* shutter = ctx.get_motion_blur();
    return gmath_get_bbox_between_keys(shutter != nullptr ? &shutter->get_time_sampling() : nullptr, keys_, time,
                                       [&](double at) { return get_box(primitive, at); });
  }

  // Each ray has its own time; a query at rest has no spans.
  void ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                         const uint& primitive) const override {
    const bool moving = query.spans != nullptr && query.span_stamp != 0;
    for (uint r = query.first_ray; r <= query.last_ray; ++r) {
      const double time = moving ? query.spans[r].time : keys_.get_begin();
      test_ray(ctx, shader, query, primitive, r, get_center(primitive, time));
    }
  }

  /// Frustum queries use the shape at rest.
  void frustum_hit_primitive(const CtxEval& ctx, CtxShader&, GeometryFrustumCtx& query,
                             const uint& primitive) const override {
    const GeometryBoxPlace place = query.classify(GMathBbox3<float>(get_primitive_bbox(ctx, primitive)));
    query.add_primitive([&] { return place != GeometryBoxPlace::outside; },
                        [&] { return place == GeometryBoxPlace::inside; });
  }

  GeometrySurfacePoint get_surface_point(const GeometryIntersection& hit, const double& time) const override {
    const double around = std::sqrt(std::fmax(0.0, 1.0 - hit.v * hit.v));
    const GMathVec3<double> normal(around * std::cos(hit.u), around * std::sin(hit.u), hit.v);
    return {get_center(hit.primitive, time) + normal * balls_[hit.primitive].radius, normal, normal, {}};
  }

 private:
  GMathVec3<double> get_center(uint primitive, double time) const {
    uint sample;
    double fraction;
    keys_.get_span(time, sample, fraction);
    const std::vector<GMathVec3<double>>& centers = balls_[primitive].centers;
    return centers[sample] * (1.0 - fraction) + centers[sample + 1] * fraction;
  }
  GMathBbox3<double> get_box(uint primitive, double time) const {
    const double radius = balls_[primitive].radius;
    const GMathVec3<double> center = get_center(primitive, time), reach(radius, radius, radius);
    return {center - reach, center + reach};
  }
  void test_ray(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint primitive, uint r,
                const GMathVec3<double>& center) const {
    const auto& ray = query.get_ray(r);
    const GMathVec3<double> offset = ray.origin - center;
    const double radius = balls_[primitive].radius;
    const double a = ray.direction.dot(ray.direction), b = offset.dot(ray.direction);
    const double root = std::sqrt(b * b - a * (offset.dot(offset) - radius * radius));  // NaN: the ray misses
    for (const double distance : {(-b - root) / a, (-b + root) / a}) {
      if (std::isnan(distance) || query.is_stopped(r)) break;
      const GMathVec3<double> normal = (offset + ray.direction * distance) * (1.0 / radius);
      query.push_intersection(ctx, shader, r, {distance, std::atan2(normal.y, normal.x), normal.z, primitive, 0});
    }
  }

  std::vector<Ball> balls_;
  GMathTimeSampling keys_;
  CoreArray<CoreString> groups_;
};

int main() {
  ExampleWorld world;
  // From x = 0 at time 0 up to y = 3 at time 0.5 and down to x = 4 at time 1.
  const GMathTimeSampling keys(/*begin=*/0.0, /*step=*/0.5, /*count=*/3);
  const MovingBalls balls({{{{0, 0, 0}, {2, 3, 0}, {4, 0, 0}}, 0.5}}, keys);
  GasGeometryBvh4 structure;
  structure.create(world.ctx, &balls, &balls, nullptr);

  // The shutter samples the ends only; rays at time 0.5 still find the ball at its highest point.
  const CtxMotionBlur shutter(/*open=*/0.0, /*close=*/1.0, /*sample_count=*/2);
  world.ctx.set_motion_blur(&shutter);  // for boxes
  world.shader.motion_blur = &shutter;  // for queries
  GeometryRayPacket packet;
  packet.resize(3);
  for (uint ray = 0; ray < 3; ++ray) {
    const double time = 0.5 * ray;
    packet.set_ray(ray, {2.0 * ray, ray == 1 ? 3.0 : 0.0, 5}, {0, 0, -1}, 0.0, DBL_MAX, time);
  }
  structure.ray_hit_nearest_motion(world.ctx, world.shader, packet.begin_nearest(world.shading));
  for (uint ray = 0; ray < 3; ++ray) {
    const GeometryIntersection& hit = packet.get_nearest(ray);
    expect(hit.geometry == &balls && hit.distance == 4.5, "each ray hits the ball where it is at the ray's time");
    const GMathVec3<double> at = balls.get_surface_point(hit, packet.get_ray(ray).time).position;
    std::printf("time %.1f: hit at (%g, %g, %g)\n", packet.get_ray(ray).time, at.x, at.y, at.z);
  }
  structure.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
  expect(packet.get_nearest(0).geometry == &balls && packet.get_nearest(1).geometry == nullptr, "at rest at x = 0");
}
