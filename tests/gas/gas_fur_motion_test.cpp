// Fibres in motion: hits where they are at the time of the ray, refits that hold their items at every sample, and the
// lazy side of the structure.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>

#include "gas/bvh/bvh_oriented.h"
#include "support/curve_check.h"
#include "support/fake_geometry.h"
#include "support/oriented_check.h"
#include "support/test_scale.h"
#include "support/test_tree.h"
#include "vq_app_base/app_progress_bar.h"

namespace {

using Vec = GMathVec3<double>;

CurveData make_moving_hair(uint fibres, uint samples, uint seed) {
  CurveData data = seed == 0 ? make_tufts(fibres, 1)
                             : make_hair(seed % 2 ? CurveBasis::bspline : CurveBasis::linear, fibres, seed, 0.05, 0.3);
  add_motion(data, samples, 0.0, samples > 1 ? 1.0 / (samples - 1) : 1.0, seed);
  return data;
}

TEST(GasFurMotion, fibres_are_found_where_they_are_at_the_time_of_the_ray) {
  QueryWorld world;
  for (const uint shutter_samples : {1u, 2u, 3u, 8u}) {
    const CtxMotionBlur shutter(0.0, shutter_samples == 1 ? 0.0 : 1.0, shutter_samples);
    uint seed = shutter_samples;
    for (CurveScene& scene : make_curve_scenes(25, 70)) {
      if (scene.name == "huge" || scene.name == "far away") continue;
      // The fibres' own samples: as the shutter's, coarser, a single one.
      const uint samples = ++seed % 3 == 0 ? shutter_samples : seed % 3;
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
      CurveCheck check(world, scene.data, rays, &shutter);
      check.name = scene.name + ", samples " + std::to_string(samples) + ", shutter " + std::to_string(shutter_samples);
      check.check(built.structure);
      EXPECT_GT(check.sure_hits, rays.size() / 5) << check.name;
    }
  }
}

TEST(GasFurMotion, fibres_that_fly_far_from_where_they_rest_are_found_there) {
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
    const CurveOracle::Ball& ball = segment.balls[random.get_index(2)];
    rays.push_back({random.get_vec(1.0), ball.position, 0.0, DBL_MAX, 1.0});
    rays.back().direction = ball.position - rays.back().origin;
  }
  CurveCheck check(world, data, rays, &shutter);
  check.check(built.structure);
  EXPECT_GE(check.sure_hits, rays.size());
}

// The checks of bvh_oriented_test, at each sample. Samples are written in any order.
TEST(GasFurMotion, lanes_hold_the_fibres_below_them_at_every_sample) {
  QueryWorld world;
  for (uint seed = 0; seed < 6; ++seed) {
    CurveData data = make_moving_hair(seed == 0 ? 1000 : 150, 3, seed);
    if (seed >= 4) transform(data, seed == 4 ? 1e-3 : 1.0, {100.0, -50.0, 10.0});  // moves from there to the origin
    const BuiltFur built(world.ctx, data);
    GasBvhMotion<4> motion;
    ASSERT_TRUE(motion.set_samples(built.structure.get_tree(), 3));
    for (const uint sample : {2u, 0u, 1u}) {
      const double time = 0.5 * sample;
      const uint count = built.geometry.get_primitive_count();
      std::vector<FloatBox> boxes(count);
      GasFur::compute_bboxes_at(world.ctx, &built.geometry, time, 0, count, boxes.data(), nullptr);
      GasFur::ComputeSpaceBboxesData measured{&world.ctx, &built.geometry, time};
      const auto measure = [](const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space, void* owner,
                              SysThreadManager* threads) {
        return GasFur::compute_space_bbox_at(items, space, static_cast<GasFur::ComputeSpaceBboxesData*>(owner),
                                             threads);
      };
      ASSERT_TRUE(motion.update_sample_unaligned(sample, boxes, {measure, &measured}, nullptr));
      OrientedCheck check(built.structure.get_tree(), CurveOracle(data, time), &motion, sample);
      EXPECT_EQ(check.find_fault(true), "") << "sample " << sample << ", seed " << seed;
      EXPECT_GT(check.lanes_of_kind[static_cast<uint>(seed == 0 ? BvhKind::quantized : BvhKind::oriented)], 50u);
    }
  }
}

/// Nothing but `count` oriented nodes, each lane with a frame of its own, and one item a leaf.
GasBvh<4> make_oriented_tree(uint count) {
  GasBvh<4> tree;
  RandomValues random(count);
  tree.allocate_items(3 * count + 1, false);
  tree.allocate_nodes(0, 0, count);
  uint item = 0;
  for (uint node = 0; node < count; ++node) {
    for (uint lane = 0; lane < 4; ++lane) {
      const uint child = 4 * node + 1 + lane;
      const auto x = random.get_vec<float>().get_normalized(), y = x.cross(random.get_vec<float>()).get_normalized();
      const auto low = random.get_vec<float>();
      bvh_set_oriented_lane(tree.oriented[node], lane, {x, y, x.cross(y)}, {low, low + GMathVec3<float>(1, 0.1f, 2)});
      tree.oriented[node].child[lane] = child < count ? BvhChildRef{child, 4 | BvhChildRef::oriented_bit}
                                                      : BvhChildRef{item, 1 | BvhChildRef::leaf_bit};
      if (child >= count) ++item;
    }
  }
  std::iota(tree.order, tree.order + tree.item_count, 0u);
  tree.root = {0, 4 | BvhChildRef::oriented_bit};
  tree.box = {{-9, -9, -9}, {9, 9, 9}};
  tree.max_depth = 7;
  return tree;
}

TEST(GasFurMotion, oriented_nodes_are_refitted_alike_on_one_thread_and_on_many) {
  struct Measured {
    std::vector<FloatBox> boxes;
    std::mutex lock;
    std::set<std::thread::id> threads;
    bool wait = false;  ///< until a second thread has come, or the end
    std::chrono::steady_clock::time_point end;
  };
  const auto measure = [](const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space, void* owner,
                          SysThreadManager*) {
    auto& all = *static_cast<Measured*>(owner);
    for (bool go_on = true; go_on; std::this_thread::yield()) {
      const std::lock_guard guard(all.lock);
      all.threads.insert(std::this_thread::get_id());
      go_on = all.wait && all.threads.size() < 2 && std::chrono::steady_clock::now() < all.end;
    }
    FloatBox box;
    for (const uint item : items)
      for (uint corner = 0; corner < 8; ++corner) box.add(space.measure(all.boxes[item].get_corner(corner)));
    return box;
  };
  for (const uint count : {1u, 1023u, 1024u, 1500u}) {
    const GasBvh<4> tree = make_oriented_tree(count);
    GasBvhMotion<4> serial;
    Measured measured, other;
    measured.boxes = make_box_scene(BoxKind::uniform, tree.item_count, 1).boxes;
    other.boxes = make_box_scene(BoxKind::uniform, tree.item_count, 2).boxes;
    ASSERT_TRUE(serial.set_samples(tree, 2));
    ASSERT_TRUE(serial.update_sample_unaligned(1, measured.boxes, {measure, &measured}, nullptr));
    EXPECT_EQ(measured.threads, std::set<std::thread::id>{std::this_thread::get_id()});
    for (const uint threads : {1u, 2u, 4u}) {
      OfApp app(threads);
      AppProgressBar* progress = app.create_progress_bar("refit");
      GasBvhMotion<4> parallel;
      ASSERT_TRUE(parallel.set_samples(tree, 2));
      ASSERT_TRUE(parallel.update_sample_unaligned(1, other.boxes, {measure, &other}, nullptr));  // to be overwritten
      measured.wait = count >= 1024 && threads > 1;
      measured.end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
      measured.threads.clear();
      ASSERT_TRUE(parallel.update_sample_unaligned(1, measured.boxes, {measure, &measured}, progress));
      progress->finish();
      EXPECT_EQ(measured.threads.size() > 1, measured.wait) << count << " nodes, " << threads << " threads";
      for (uint node = 0; node < count; ++node)
        ASSERT_EQ(std::memcmp(&serial.get_oriented(node, 1), &parallel.get_oriented(node, 1), 96), 0) << node;
      EXPECT_EQ(serial.get_bbox(1), parallel.get_bbox(1));
    }
    measured.wait = false;
  }
}

TEST(GasFurMotion, refuses_samples_that_are_not_there_in_words_of_its_own) {
  std::string messages;
  CoreLogHandler& log = CoreLogHandler::get_main();
  const uint former_level = log.get_level();
  const CoreLogHandler::Sink former = log.set_sink(
      [&](const CoreString& message, const uint& level) { messages += std::to_string(level) + message.get_data(); });
  const auto measure = [](const CoreBasicArray<uint>&, const GMathLinearSpace3<float>&, void*, SysThreadManager*) {
    return FloatBox({0, 0, 0}, {1, 1, 1});
  };
  const std::vector<FloatBox> boxes(4, FloatBox({0, 0, 0}, {1, 1, 1}));
  const GasBvh<4> tree = make_oriented_tree(1), empty;
  GasBvhMotion<4> motion, of_empty;
  ASSERT_TRUE(motion.set_samples(tree, 12) && of_empty.set_samples(empty, 2));
  for (const uint level : {0u, 1u}) {
    log.set_level(level);
    EXPECT_FALSE(motion.update_sample_unaligned(12, boxes, {measure, nullptr}, nullptr));
    EXPECT_FALSE(motion.update_sample(0, boxes, nullptr));
    EXPECT_FALSE(of_empty.update_sample_unaligned(5, boxes, {measure, nullptr}, nullptr));
  }
  log.set_level(former_level);
  log.set_sink(former);
  EXPECT_EQ(messages,
            "1[GasBvhMotion] error while updating motion blur sample 12: index out of range\n"
            "1[GasBvhMotion] error while updating motion blur sample 0: inappropriate input\n");
}

// So many that threads share the work.
TEST(GasFurMotion, measures_items_one_by_one_or_all_together_on_any_threads) {
  QueryWorld world(8, 4);
  CurveData data = make_hair(CurveBasis::bezier, 9000, 4, 0.3);
  add_motion(data, 3, 0.0, 0.5, 2);
  const BuiltFur built(world.ctx, data);
  const GMathLinearSpace3<float> space({0.6f, 0.8f, 0}, {-0.8f, 0.6f, 0}, {0, 0, 1});
  CoreBasicArray<uint> items(built.geometry.get_primitive_count());
  for (uint k = 0; k < items.get_count(); ++k) items[k] = items.get_count() - 1 - k;
  ASSERT_GE(items.get_count(), 16384u);
  GasFur::ComputeSpaceBboxesData measured{&world.ctx, &built.geometry, 0.3};
  SysThreadManager& threads = world.app.get_thread_manager();
  for (const bool moving : {false, true}) {
    std::vector<GMathBbox3<float>> serial(items.get_count()), parallel(items.get_count());
    const auto measure_each = moving ? GasFur::compute_space_bboxes_at : GasFur::compute_space_bboxes;
    const auto measure_all = moving ? GasFur::compute_space_bbox_at : GasFur::compute_space_bbox;
    measure_each(items, space, serial.data(), &measured, nullptr);
    measure_each(items, space, parallel.data(), &measured, &threads);
    EXPECT_EQ(serial, parallel);
    const auto exact =
        moving
            ? built.geometry.get_primitive_bbox_in_space_at(world.ctx, 0.3, GMathLinearSpace3<double>(space), items[7])
            : built.geometry.get_primitive_bbox_in_space(world.ctx, GMathLinearSpace3<double>(space), items[7]);
    EXPECT_EQ(serial[7], GMathBbox3<float>(exact));
    GMathBbox3<float> all;
    for (const GMathBbox3<float>& box : serial) all.add(box);
    EXPECT_EQ(measure_all(items, space, &measured, nullptr), all);
    EXPECT_EQ(measure_all(items, space, &measured, &threads), all);
  }
  EXPECT_TRUE(GasFur::compute_space_bbox({}, space, &measured, nullptr).is_empty());
  // Contexts made for the workers follow the one that the next work is done for.
  const CtxMotionBlur motion_blur(0.0, 1.0, 2);
  world.ctx.set_motion_blur(&motion_blur);
  EXPECT_EQ(world.ctx.get_or_create_thread_ctx(1).get_motion_blur(), &motion_blur);
  world.ctx.set_motion_blur(nullptr);
  EXPECT_EQ(world.ctx.get_or_create_thread_ctx(1).get_motion_blur(), nullptr);
}

TEST(GasFurMotion, is_refitted_once_per_description_and_boxes_are_blended) {
  QueryWorld world;
  CurveData data = make_moving_hair(40, 2, 4);
  BuiltFur built(world.ctx, data);
  uint refits = 0;
  world.app.set_progress_bar_hook([&](AppProgressBar& bar) {
    EXPECT_EQ(bar.get_title(), CoreString("Updating GAS motion blur..."));
    ++refits;
  });
  EXPECT_EQ(built.structure.get_bbox_at(world.ctx, 0.5), built.structure.get_bbox());  // no description
  const u64 at_rest = built.structure.get_memory_size();
  CtxMotionBlur first(0.0, 1.0, 3);
  const CtxMotionBlur second(0.0, 1.0, 2), closed(0.0, 0.0, 1);
  const GMathBbox3<double> begin = built.geometry.get_bbox_at(world.ctx, 0.0),
                           end = built.geometry.get_bbox_at(world.ctx, 1.0);
  const auto ask = [&](const CtxMotionBlur& blur, uint expected_refits) {
    world.ctx.set_motion_blur(&blur);
    for (const double time : {-1.0, 0.0, 0.3, 1.0, 7.0}) {
      const GMathBbox3<double> box = built.structure.get_bbox_at(world.ctx, time);
      const double f = &blur == &closed ? 0.0 : std::clamp(time, 0.0, 1.0);
      for (uint axis = 0; axis < 3 && &blur != &first; ++axis) {  // first has a sample more, between these
        EXPECT_NEAR(box.min[axis], begin.min[axis] * (1 - f) + end.min[axis] * f, 1e-6);
        EXPECT_NEAR(box.max[axis], begin.max[axis] * (1 - f) + end.max[axis] * f, 1e-6);
      }
    }
    EXPECT_EQ(refits, expected_refits);
  };
  ask(first, 1);
  ask(second, 2);
  ask(first, 2);
  EXPECT_GT(built.structure.get_memory_size(), at_rest);
  first.set_shutter(0.0, 1.0, 5);
  ask(second, 2);
  ask(first, 3);
  built.structure.dirty_motion_blur();
  ask(second, 4);
  ask(closed, 5);
  CoreBasicArray<void*> whole(1);
  whole[0] = nullptr;
  FloatBox box;
  world.ctx.set_motion_blur(&second);
  built.structure.get_clusters_bboxes_at(world.ctx, 0.3, whole, &box);
  EXPECT_EQ(GMathBbox3<double>(box), built.structure.get_bbox_at(world.ctx, 0.3));
  ASSERT_TRUE(built.structure.create(world.ctx, &built.geometry, &built.geometry, nullptr));
  ask(second, 6);

  const BuiltFur still(world.ctx, make_hair(CurveBasis::linear, 20, 1)), none(world.ctx, CurveData());
  world.ctx.set_motion_blur(&second);
  EXPECT_EQ(still.structure.get_bbox_at(world.ctx, 0.5), still.structure.get_bbox());
  EXPECT_EQ(none.structure.get_bbox_at(world.ctx, 0.5), none.structure.get_bbox());
  EXPECT_EQ(refits, 6u);
}

TEST(GasFurMotion, boxes_that_turn_bad_on_the_way_stay_where_they_rest) {
  QueryWorld world;
  FakeGeometry geometry;
  geometry.add_row(12);
  geometry.moves = true;
  geometry.boxes_at_any_time = geometry.boxes;
  geometry.boxes_at_any_time[0].min.x = NAN;
  geometry.boxes_at_any_time[3].max.y = HUGE_VAL;
  std::swap(geometry.boxes_at_any_time[11].min.x, geometry.boxes_at_any_time[11].max.x);
  GasFur structure;
  ASSERT_TRUE(structure.create(world.ctx, &geometry, &geometry, nullptr));
  const CtxMotionBlur blur(0.0, 1.0, 2);
  world.ctx.set_motion_blur(&blur);
  EXPECT_EQ(structure.get_bbox_at(world.ctx, 0.5), structure.get_bbox());
}

TEST(GasFurMotion, many_threads_start_on_one_stale_slot) {
  for (const uint pool : {1u, 3u}) {
    QueryWorld world(8, pool);
    const CurveData data = make_moving_hair(scaled(2000, 600), 2, 6);
    BuiltFur built(world.ctx, data);
    const CtxMotionBlur blur(0.0, 1.0, 2);
    std::atomic<uint> refits{0};
    world.app.set_progress_bar_hook([&](AppProgressBar&) {
      ++refits;
      std::this_thread::sleep_for(std::chrono::milliseconds(30));  // so that the others come to wait
    });
    const CurveOracle oracle(data, 0.5);
    const std::vector<TestRay> rays = make_curve_rays(oracle, 100, 3);
    std::vector<std::vector<double>> found(8);
    for (uint round = 1; round <= 3; ++round) {
      std::atomic<uint> ready{0};
      std::vector<std::thread> threads;
      for (uint thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, thread] {
          CtxEval ctx(world.ctx);  // foreign threads with contexts of their own over the same table
          CtxShader shader;
          ctx.set_motion_blur(shader.motion_blur = &blur);
          GeometryRayPacket packet;
          packet.resize(static_cast<uint>(rays.size()));
          for (uint k = 0; k < rays.size(); ++k)
            packet.set_ray(k, rays[k].origin, rays[k].direction, 0.0, DBL_MAX, 0.5);
          ++ready;
          while (ready < 8) std::this_thread::yield();
          if (thread % 2 == 0) built.structure.get_bbox_at(ctx, 0.5);
          built.structure.ray_hit_nearest_motion(ctx, shader, packet.begin_nearest(world.shading));
          built.structure.get_memory_size();
          for (uint k = 0; k < rays.size(); ++k) found[thread].push_back(packet.get_nearest(k).distance);
        });
      }
      for (std::thread& thread : threads) thread.join();
      EXPECT_EQ(refits, round);
      built.structure.dirty_motion_blur();
    }
    for (const std::vector<double>& distances : found) EXPECT_EQ(distances, found[0]);
    std::vector<TestRay> timed(rays.begin(), rays.begin() + 20);
    for (TestRay& ray : timed) ray.time = 0.5;
    CurveCheck check(world, data, timed, &blur);
    check.check(built.structure);
    EXPECT_GT(check.sure_hits, 5u);
  }
}

}  // namespace
