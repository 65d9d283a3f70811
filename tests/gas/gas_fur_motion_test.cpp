// Curves in motion: hits where they are at the time of the ray, and refits that hold their items at every sample. What
// all refits share, who makes them and when, is tested with meshes.
#include <cstring>

#include "support/curve_check.h"
#include "support/oriented_check.h"
#include "support/test_scale.h"
#include "vq_app_base/app_progress_bar.h"

namespace {

using Boxes = std::vector<GMathBbox3<float>>;

CurveData make_moving_hair(uint curve_count, uint samples, uint seed) {
  CurveData data = seed == 0
                       ? make_tufts(curve_count, 1)
                       : make_hair(seed % 2 ? CurveBasis::bspline : CurveBasis::linear, curve_count, seed, 0.05, 0.3);
  add_motion(data, samples, 0.0, samples > 1 ? 1.0 / (samples - 1) : 1.0, seed);
  return data;
}

/// One sample, as the structure does it. With a progress bar on the threads of its application.
bool refit(const QueryWorld& world, const BuiltFur& built, GasBvhMotion<4>& motion, uint sample, double time,
           AppProgressBar* progress = nullptr) {
  const uint count = built.geometry.get_primitive_count();
  Boxes boxes(count);
  GasFur::compute_bboxes_at(world.ctx, &built.geometry, time, 0, count, boxes.data(), nullptr);
  GasFur::ComputeSpaceBboxesData measured{&world.ctx, &built.geometry, time};
  const auto measure = [](const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space, void* owner,
                          SysThreadManager* threads) {
    return GasFur::compute_space_bbox_at(items, space, static_cast<GasFur::ComputeSpaceBboxesData*>(owner), threads);
  };
  return motion.update_sample_unaligned(sample, boxes, {measure, &measured}, progress);
}

TEST(GasFurMotion, curves_are_found_where_they_are_at_the_time_of_the_ray) {
  QueryWorld world;
  for (const uint shutter_samples : {1u, 2u, 3u, 8u}) {
    const CtxMotionBlur shutter(0.0, shutter_samples == 1 ? 0.0 : 1.0, shutter_samples);
    uint seed = shutter_samples;
    for (CurveScene& scene : make_curve_scenes(25, 70)) {
      if (scene.name == "huge" || scene.name == "far away") continue;
      // The curves' own samples: as the shutter's, coarser, a single one, finer.
      const uint samples = ++seed % 4 == 0 ? shutter_samples : seed % 4 == 3 ? 7 : seed % 4;
      add_motion(scene.data, samples, samples == 1 ? 0.5 : 0.0, samples > 1 ? 1.0 / (samples - 1) : 1.0, seed);
      const BuiltFur built(world.ctx, scene.data);
      // On samples, between them, before and after the shutter. A closed one knows its one moment only.
      std::vector<TestRay> rays;
      for (const double time : {0.0, 1.0, 0.5, 3.0 / 7.0, 0.123, -0.5, 1.5}) {
        if (shutter_samples == 1 && time != 0.0) continue;
        for (TestRay& ray : make_curve_rays(CurveOracle(scene.data, time), scaled(40, 10), seed)) {
          ray.time = time;
          rays.push_back(ray);
        }
      }
      HitCheck check = make_curve_check(scene.data, rays, &shutter);
      check.name = scene.name + ", samples " + std::to_string(samples) + ", shutter " + std::to_string(shutter_samples);
      check.check(world, built.structure, false);
      EXPECT_GT(check.count_sure_hits(), rays.size() / 5) << check.name;
    }
  }
}

TEST(GasFurMotion, curves_that_fly_far_from_where_they_rest_are_found_there) {
  QueryWorld world;
  CurveData data = make_hair(CurveBasis::linear, 100, 3, 0.0, 1.0, 1e-3);
  add_motion(data, 2, 0.0, 1.0, 4);
  for (auto& point : data.motion_points[1]) point.position += {3000, -2000, 1000};
  const BuiltFur built(world.ctx, data);
  const CtxMotionBlur shutter(0.0, 1.0, 2);
  RandomValues random(5);
  std::vector<TestRay> rays;
  const CurveOracle oracle(data, 1.0);
  for (const CurveOracle::Segment& segment : oracle.get_segments()) {
    const auto origin = random.get_vec();
    rays.push_back({origin, segment.balls[random.get_index(2)].position - origin, 0.0, DBL_MAX, 1.0});
  }
  HitCheck check = make_curve_check(data, rays, &shutter);
  check.check(world, built.structure, false);
  EXPECT_GE(check.count_sure_hits(), rays.size());
}

TEST(GasFurMotion, lanes_hold_the_curves_below_them_at_every_sample) {
  QueryWorld world;
  for (uint seed = 0; seed < 6; ++seed) {
    CurveData data = make_moving_hair(seed == 0 ? 1000 : 150, 3, seed);
    if (seed >= 4) transform(data, seed == 4 ? 1e-3 : 1.0, {100.0, -50.0, 10.0});  // moves from there to the origin
    const BuiltFur built(world.ctx, data);
    GasBvhMotion<4> motion;
    ASSERT_TRUE(motion.set_samples(built.structure.get_tree(), 3));
    for (const uint sample : {2u, 0u, 1u}) {
      ASSERT_TRUE(refit(world, built, motion, sample, 0.5 * sample));
      OrientedCheck check(built.structure.get_tree(), CurveOracle(data, 0.5 * sample), &motion, sample);
      EXPECT_EQ(check.find_fault(), "") << "sample " << sample << ", seed " << seed;
      EXPECT_GT(check.lanes_of_kind[static_cast<uint>(seed == 0 ? BvhKind::quantized : BvhKind::oriented)], 50u);
    }
    EXPECT_FALSE(refit(world, built, motion, 3, 0.0));
  }
}

TEST(GasFurMotion, oriented_nodes_are_refitted_alike_on_one_thread_and_on_many) {
  QueryWorld world(8, 4);
  const BuiltFur built(world.ctx, make_moving_hair(3000, 2, 2));
  const GasBvh<4>& tree = built.structure.get_tree();
  ASSERT_GT(tree.oriented_count, 2048u);
  GasBvhMotion<4> serial, parallel;
  ASSERT_TRUE(serial.set_samples(tree, 2) && parallel.set_samples(tree, 2));
  AppProgressBar* progress = world.app.create_progress_bar("refit");
  ASSERT_TRUE(refit(world, built, serial, 1, 0.7));
  ASSERT_TRUE(refit(world, built, parallel, 1, 0.2, progress));  // to be overwritten
  ASSERT_TRUE(refit(world, built, parallel, 1, 0.7, progress));
  progress->finish();
  for (uint node = 0; node < tree.oriented_count; ++node)
    ASSERT_EQ(std::memcmp(&serial.get_oriented(node, 1), &parallel.get_oriented(node, 1), 96), 0) << node;
  EXPECT_EQ(serial.get_bbox(1), parallel.get_bbox(1));
}

// So many that threads share the work. What stands still is measured whenever hair is built.
TEST(GasFurMotion, measures_items_one_by_one_or_all_together_on_any_threads) {
  QueryWorld world(8, 4);
  CurveData data = make_hair(CurveBasis::bezier, 9000, 4, 0.3);
  add_motion(data, 3, 0.0, 0.5, 2);
  const BuiltFur built(world.ctx, data);
  const GMathLinearSpace3<float> space({0.6f, 0.8f, 0}, {-0.8f, 0.6f, 0}, {0, 0, 1});
  CoreBasicArray<uint> items(built.geometry.get_primitive_count());
  Boxes expected;
  GMathBbox3<float> all;
  for (uint k = 0; k < items.get_count(); ++k) {
    items[k] = items.get_count() - 1 - k;
    expected.emplace_back(
        built.geometry.get_primitive_bbox_in_space_at(world.ctx, 0.3, GMathLinearSpace3<double>(space), items[k]));
    all.add(expected.back());
  }
  GasFur::ComputeSpaceBboxesData measured{&world.ctx, &built.geometry, 0.3};
  for (SysThreadManager* threads : {static_cast<SysThreadManager*>(nullptr), &world.app.get_thread_manager()}) {
    Boxes boxes(items.get_count());
    GasFur::compute_space_bboxes_at(items, space, boxes.data(), &measured, threads);
    EXPECT_EQ(boxes, expected);
    EXPECT_EQ(GasFur::compute_space_bbox_at(items, space, &measured, threads), all);
  }
  EXPECT_TRUE(GasFur::compute_space_bbox({}, space, &measured, nullptr).is_empty());
}

}  // namespace
