// Particles as balls, against spheres in double precision.
#include "vq_particle/particle_cloud.h"

#include <gtest/gtest.h>

#include "gas/gas_geometry_bvh4.h"
#include "support/hit_check.h"
#include "support/key_bbox_check.h"
#include "support/random_values.h"
#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

using Vec = GMathVec3<double>;

ParticleData make_particles(uint count, uint samples) {
  RandomValues random(count);
  ParticleData data;
  data.motion_begin = -0.2;
  data.motion_step = 0.37;
  data.motion_positions.resize(samples);
  for (uint k = 0; k < count; ++k) {
    data.positions.push_back(random.get_vec<float>());
    data.radii.push_back(static_cast<float>(random.get(-0.01, 0.1)));
    for (auto& sample : data.motion_positions) sample.push_back(random.get_vec<float>());
    if (k % 16 == 0) data.positions[k].x = NAN;
    if (k % 16 == 1) data.radii[k] = k % 32 == 1 ? NAN : HUGE_VALF;
  }
  return data;
}

Vec get_center(const ParticleData& data, uint particle, double time) {
  if (data.motion_positions.empty()) return Vec(data.positions[particle]);
  const double last = static_cast<double>(data.motion_positions.size()) - 1;
  const double place = std::clamp((time - data.motion_begin) / data.motion_step, 0.0, last);
  const double first = std::min(std::floor(place), std::max(last - 1, 0.0)), second = std::min(first + 1, last);
  return Vec(data.motion_positions[uint(first)][particle]) * (1 - (place - first)) +
         Vec(data.motion_positions[uint(second)][particle]) * (place - first);
}

/// The entry into a sphere from outside. Close to the border and to the ends of the interval nobody can say.
SureHit find_entry(const TestRay& ray, const Vec& center, float radius) {
  if (!(radius > 0.0f) || !std::isfinite(center.x + radius)) return {};
  const double length = ray.direction.get_length();
  const Vec along = ray.direction * (1.0 / length), way = center - ray.origin;
  const double middle = way.dot(along), beside = (way - along * middle).get_length();
  if (std::fabs(beside - radius) < 1e-7) return {SureAnswer::close, -HUGE_VAL, HUGE_VAL};
  if (beside > radius) return {};
  const double entry = (middle - std::sqrt(double(radius) * radius - beside * beside)) / length, slack = 1e-5 / length;
  if (entry < ray.tnear || entry >= ray.tfar) return {};
  return {SureAnswer::hit, entry - slack, entry + slack};
}

}  // namespace

TEST(ParticleCloud, rays_hit_the_balls_at_their_time) {
  for (const uint samples : {0u, 1u, 2u, 4u}) {
    QueryWorld world;
    const CtxMotionBlur shutter(0.0, 1.0, 3);
    world.ctx.set_motion_blur(&shutter);
    ParticleCloud cloud;
    CoreString error;
    const ParticleData data = make_particles(200, samples);
    ASSERT_TRUE(cloud.create(ParticleData(data), error)) << error.get_data();
    for (uint k = 2; k < 16; ++k) EXPECT_EQ(cloud.get_radius(k), std::max(0.0f, data.radii[k]));
    GasGeometryBvh4 structure;
    ASSERT_TRUE(structure.create(world.ctx, &cloud, &cloud, nullptr));
    RandomValues random(samples);
    HitCheck check{{}, {}, samples > 0 ? &shutter : nullptr};
    for (uint r = 0; r < 300; ++r) {
      TestRay ray{random.get_vec().get_normalized() * 3.0, {}};
      ray.time = random.get(0.0, 1.0);
      const Vec target = get_center(data, 2 + 16 * random.get_index(12), ray.time) + random.get_vec(0.03);
      ray.direction = (target - ray.origin) * random.get(0.1, 2.0);
      check.rays.push_back(ray);
      std::vector<SureHit>& truth = check.truth.emplace_back();
      for (uint k = 0; k < 200; ++k) {
        const bool is_placed = gmath_isfinited(data.positions[k].x);  // without a place at rest it gets no leaf
        truth.push_back(is_placed ? find_entry(ray, get_center(data, k, ray.time), data.radii[k]) : SureHit{});
      }
    }
    EXPECT_GT(check.count_sure_hits(), 100u);
    check.check(world, structure);
    for (uint k = 2; k < 8 && samples > 0; ++k) {
      const GMathTimeSampling keys(data.motion_begin, data.motion_step, samples);
      check_boxes_between_keys(world.ctx, shutter, keys, 1e-6, [&](double time) {
        const auto box = cloud.get_primitive_bbox_at(world.ctx, time, k);
        const Vec center = get_center(data, k, time);
        for (uint axis = 0; axis < 3; ++axis) {
          EXPECT_LE(box.min[axis], center[axis] - std::max(0.0f, data.radii[k]) + 1e-12);
          EXPECT_GE(box.max[axis], center[axis] + std::max(0.0f, data.radii[k]) - 1e-12);
        }
        return box;
      });
    }
  }
}

TEST(ParticleCloud, frustums_take_balls_by_their_radius_and_bad_input_changes_nothing) {
  QueryWorld world;
  ParticleCloud cloud;
  CoreString error;
  ASSERT_TRUE(cloud.create({{{0, 0, 0}, {1, 0, 0}, {3, 0, 0}}, {0.5f}, {}}, error));
  for (int bad = 0; bad < 6; ++bad) {
    ParticleData data = make_particles(5, 3);
    if (bad == 0) data.radii.pop_back();
    if (bad == 1) data.motion_positions[1].pop_back();
    if (bad == 2) data.motion_begin = NAN;
    if (bad > 2) data.motion_step = std::array{0.0, -1.0, HUGE_VAL}[bad - 3];
    error = "";
    EXPECT_FALSE(cloud.create(std::move(data), error)) << bad;
    EXPECT_FALSE(error.is_empty()) << bad;
  }
  EXPECT_EQ(cloud.get_primitive_count(), 3u);
  EXPECT_EQ(cloud.get_radius(2), 0.5f);
  GasGeometryBvh4 structure;
  ASSERT_TRUE(structure.create(world.ctx, &cloud, &cloud, nullptr));
  for (const auto& [x, touched, inside] :
       {std::array{0.6, 2.0, 1.0}, {-0.6, 0.0, 0.0}, {2.4, 2.0, 2.0}, {3.6, 3.0, 3.0}}) {
    GeometryFrustumCtx query;
    query.shading = &world.shading;
    query.add_plane({{x, 0, 0}, {-1, 0, 0}});
    uint count = 0;
    for (uint k = 0; k < 3; ++k) {
      query.clear_results();
      query.mode = 0;
      cloud.frustum_hit_primitive(world.ctx, world.shader, query, k);
      count += query.result.hit_count;
    }
    EXPECT_EQ(count, touched) << x;
    query.clear_results();
    query.mode = 1;
    structure.frustum_hit(world.ctx, world.shader, query);
    EXPECT_EQ(query.result.hit_count, inside) << x;
    query.mode = 2;
    query.mask.assign(3, 0);
    for (uint k = 0; k < 3; ++k) cloud.frustum_hit_primitive(world.ctx, world.shader, query, k);
    EXPECT_EQ(std::count(query.mask.begin(), query.mask.end(), 1), (x > 0) + (x > 1) + (x > 3)) << x;
  }
}
