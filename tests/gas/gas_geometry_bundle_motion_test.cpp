// Bundles under motion blur: the same hits as the flattened bundle at each moment, the source of the matrices, slots,
// boxes, many threads at once. Motion vectors and broken samples: with those of scenes.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "support/scene_check.h"
#include "support/test_scale.h"
#include "vq_app_base/app_progress_bar.h"

namespace {

using Vec = GMathVec3<double>;

TEST(GasGeometryBundleMotion, hits_what_the_flattened_bundle_hits_at_the_same_moment) {
  const CtxMotionBlur two(0.0, 1.0, 2), five(0.0, 1.0, 5), closed(0.4, 0.4, 1);
  for (uint seed = 1; seed <= scaled(2, 1); ++seed) {
    BundleWorld world(seed);  // with one thread and with several
    for (const SceneMotion motion : {SceneMotion::rigid, SceneMotion::deforming}) {
      SceneMaker maker(world, seed, motion, true);
      SceneNode bundle = maker.make_bundle(10, 2);
      make_object(world, bundle);
      std::vector<SceneNode> nodes = maker.make(6, 2);
      const auto scene = build_scene(world, nodes);
      for (const CtxMotionBlur* blur : {&two, &closed, &five, &two}) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << " samples " << blur->get_sample_count());
        std::vector<double> times = {0.0, 0.1, 0.25, 0.5, 0.61, 1.0, -3.0, 1.7};
        if (blur == &closed && motion == SceneMotion::deforming) times = {0.4};  // meshes would leave their boxes
        for (SceneCheck check : {SceneCheck(world, bundle, blur), SceneCheck(world, *scene, nodes, blur)})
          check.check(make_timed_rays(check.flatten(0.5), times, scaled(400, 300), seed));
      }
    }
  }
}

/// Triangles that deform while their instances turn by a right angle, and so does the bundle that they are in: nothing
/// of their boxes is to spare.
TEST(GasGeometryBundleMotion, what_deforms_may_turn_at_once) {
  BundleWorld world(2);
  PolyMeshData data = make_soup(1, 4, 4.0);
  data.motion_positions.assign(2, data.positions);
  for (GMathVec3<float>& position : data.motion_positions[1]) position.x += 1;
  const SceneShape shape(world, data);
  const SceneMatrix turn = {{{0, -1}, {1}, {0, 0, 1}, {0, 0, 0, 1}}};
  SceneMaker maker(world, 2, SceneMotion::none);
  SceneNode inner, outer;
  for (SceneNode* bundle : {&inner, &outer}) {
    bundle->is_bundle = true;
    bundle->has_table = false;
    const SceneMatrix matrix = maker.make_matrix();
    bundle->keys = {{0.0, matrix}, {1.0, matrix * turn}};
  }
  for (uint k = 0; k < 20; ++k) {
    const SceneMatrix matrix = maker.make_matrix();
    inner.children.push_back(make_node(shape, {{0.0, matrix}, {1.0, matrix * turn}}));
    if (k % 2 == 0) outer.children.push_back(inner.children.back());
  }
  outer.children.push_back(inner);
  make_object(world, outer);
  for (const uint samples : {2u, 3u, 5u}) {
    const CtxMotionBlur blur(0.0, 1.0, samples);
    SceneCheck check(world, outer, &blur);
    std::vector<double> times;
    for (uint k = 0; k <= 16; ++k) times.push_back(k / 16.0);
    check.check(make_timed_rays(check.flatten(0.5), times, scaled(1000, 500), samples));
  }
}

TEST(GasGeometryBundleMotion, objects_are_primitives_that_may_move) {
  QueryWorld world;
  const CtxMotionBlur blur(0.0, 1.0, 2);
  std::vector<std::shared_ptr<const ModuleSceneObject>> objects;
  for (uint k = 0; k < 40; ++k) {
    const SceneShape shape(world, transformed(make_sphere(1), 1.0f, {4.0f * static_cast<float>(k), 0, 0}));
    SceneNode node = make_node(shape);
    objects.push_back(make_object(world, node));
  }
  const SceneShape sphere(world, make_sphere(1));
  SceneNode mover;
  mover.is_bundle = true;
  mover.keys = {{}};
  mover.children.push_back(
      make_node(sphere, {{0.0, make_translation({-8, 0, 0})}, {1.0, make_translation({-98, 0, 0})}}));
  objects.push_back(make_object(world, mover));
  ObjectGeometry geometry(objects);
  BundleInput input;
  for (uint k = 0; k < 2; ++k) input.add(&geometry, make_translation({0, 50.0 * k, 0}));
  input.offsets = {5, 5};
  world.entries[0] = nullptr;
  world.shading = ShadingGroupTable(world.entries);
  GasGeometryBundle bundle;
  input.create(world.app, bundle);
  // Objects have tables of their own; after each of them the bundle's group counts again.
  GeometryRayPacket packet;
  ask_rays(world, *bundle.get_slot_structure(0), packet, {{{-5, 0.02, 0.01}, {1, 0, 0}}},
           {false, nullptr, [](GeometryRaytraceCtx& query) { query.shading_group_offset = 5; }});
  EXPECT_EQ(packet.get_hits().get_hits().size(), 80u);
  EXPECT_GT(bundle.get_cluster_count(0), 4u);  // so that queries of the objects come with a cluster's handle
  for (const double time : {0.0, 0.5, 1.0})
    for (uint k = 0; k < 41; ++k) {
      const double x = k < 40 ? 4.0 * k : -8.0 - 90.0 * time;
      const TestRay ray{{x, 50.02, -10}, {0.001, 0, 1}, 0, DBL_MAX, time};
      const GeometryIntersection hit = shoot(world, bundle, ray, &blur);
      EXPECT_NEAR(hit.distance, 9, 0.3) << k << " at " << time;
      EXPECT_EQ(hit.depth, k < 40 ? 1u : 2u);
    }
}

/// Moves the first instance along z, and notes the times.
struct Mover {
  double speed = 0;
  uint count = 2;  ///< of instances
  std::vector<double> times = {};

  static void callback(void* user, const double& time, SceneMatrix* matrices) {
    auto& mover = *static_cast<Mover*>(user);
    mover.times.push_back(time);
    matrices[0] = make_translation({0, 0, mover.speed * time});
    for (uint k = 1; k < mover.count; ++k) matrices[k] = make_translation({5.0 * k, 0, 0});
  }
};

TEST(GasGeometryBundleMotion, asks_for_matrices_when_stale_and_only_then) {
  QueryWorld world;
  const SceneShape sphere(world, make_sphere(1));
  BundleInput input;
  for (uint k = 0; k < 2; ++k) input.add(sphere.mesh.get(), make_translation({5.0 * k, 0, 0}));
  GasGeometryBundle bundle;
  input.create(world.app, bundle);
  const auto shoot_at = [&](const GasObject& structure, const CtxMotionBlur& blur, double time) {
    return shoot(world, structure, TestRay{{0.01, 0.02, -10}, {0, 0, 1}, 0, DBL_MAX, time}, &blur).distance;
  };
  const CtxMotionBlur first(0.25, 1.25, 3);
  auto second = std::make_unique<CtxMotionBlur>(0.0, 1.0, 9);
  const double start = shoot_at(bundle, first, 1.0);  // nobody moves it
  Mover slow{4}, fast{8};
  bundle.set_matrices_callback(nullptr, &slow);  // nor does a user alone
  bundle.dirty_motion_blur();
  EXPECT_EQ(shoot_at(bundle, first, 1.0), start);
  const u64 size_of_one = bundle.get_memory_size();
  bundle.set_matrices_callback(Mover::callback, &slow);
  EXPECT_EQ(shoot_at(bundle, first, 1.0), start) << "nobody said so";
  EXPECT_TRUE(slow.times.empty());
  bundle.dirty_motion_blur();
  const auto expect_both = [&](const GasGeometryBundle& structure, double speed) {
    for (const double time : {0.25, 0.3, 0.75, 1.0}) {
      EXPECT_NEAR(shoot_at(structure, first, time), start + speed * time, 1e-12);
      EXPECT_NEAR(shoot_at(structure, *second, time), start + speed * time, 1e-12);
      structure.get_bbox_at(world.ctx, time);
    }
  };
  expect_both(bundle, 4);
  EXPECT_EQ(slow.times.size(), 12u);
  EXPECT_EQ(std::vector<double>(slow.times.begin(), slow.times.begin() + 3), (std::vector<double>{0.25, 0.75, 1.25}));
  const u64 size_of_both = bundle.get_memory_size();
  EXPECT_GE(size_of_both, size_of_one + 9 * 2 * sizeof(SceneMatrix));
  bundle.set_matrices_callback(nullptr, &fast);
  bundle.dirty_motion_blur();
  expect_both(bundle, 8);
  EXPECT_EQ(fast.times.size(), 12u);
  EXPECT_EQ(slow.times.size(), 12u);
  // Slots come and go; those that stay keep what they have.
  std::vector<std::unique_ptr<CtxMotionBlur>> more;
  for (uint k = 0; k < 5; ++k) more.push_back(std::make_unique<CtxMotionBlur>(0.0, 1.0, k + 2));
  for (const auto& blur : more) EXPECT_NEAR(shoot_at(bundle, *blur, 0.25), start + 2, 1e-12);
  EXPECT_GT(bundle.get_memory_size(), size_of_both);
  more.clear();
  EXPECT_EQ(bundle.get_memory_size(), size_of_both);
  EXPECT_EQ(fast.times.size(), 12u + 2 + 3 + 4 + 5 + 6);
  second = std::make_unique<CtxMotionBlur>(0.0, 1.0, 3);
  expect_both(bundle, 8);
  EXPECT_EQ(fast.times.size(), 32u + 3);
  second->set_shutter(0.5, 0.5, 1);
  EXPECT_NEAR(shoot_at(bundle, *second, 0.9), start + 4, 1e-12);
  second->set_shutter(0.0, 1.0, 2);
  // Built anew, with more instances, and copied.
  fast = {2, 3};
  input.add(sphere.mesh.get(), make_translation({10, 0, 0}));
  const GasGeometryBundle former(bundle);
  input.create(world.app, bundle);
  expect_both(bundle, 2);
  const GasGeometryBundle copy(bundle);
  expect_both(copy, 2);
  EXPECT_EQ(fast.times.size(), 10u);
  fast = {3, 2};
  expect_both(former, 3);
  fast = {1, 2};
  GasGeometryBundle assigned(former);
  expect_both(assigned, 1);
  assigned = copy;
  fast = {6, 3};
  expect_both(assigned, 6);
}

TEST(GasGeometryBundleMotion, boxes_are_those_of_the_clusters_at_the_samples_and_blended_between) {
  QueryWorld world;
  const SceneShape sphere(world, make_sphere(3));
  BundleInput input;
  for (uint k = 0; k < 2; ++k) input.add(sphere.mesh.get(), make_translation({5.0 * k, 0, 0}));
  GasGeometryBundle bundle;
  input.create(world.app, bundle);
  Mover mover{3};
  bundle.set_matrices_callback(Mover::callback, &mover);
  EXPECT_EQ(bundle.get_bbox_at(world.ctx, 0.7), bundle.get_bbox());  // no description
  const CtxMotionBlur blur(0.0, 1.0, 5), closed(0.3, 0.3, 1);
  CoreVector<void*> clusters;
  bundle.get_clusters(clusters, 64, 0.3f);
  ASSERT_GT(clusters.get_count(), 1u);
  for (const auto& [used, time] : std::vector<std::pair<const CtxMotionBlur*, double>>{
           {&blur, 0.0}, {&blur, 0.25}, {&blur, 0.6}, {&blur, 1.0}, {&blur, 7.0}, {&closed, 0.8}}) {
    world.ctx.set_motion_blur(used);
    const double shift = used == &closed ? 0.9 : 3 * std::min(time, 1.0);
    const GMathBbox3<double> box = bundle.get_bbox_at(world.ctx, time);
    const Vec low(-1, -1, std::min(shift - 1, -1.0)), high(6, 1, std::max(shift + 1, 1.0));
    for (uint axis = 0; axis < 3; ++axis) {
      EXPECT_NEAR(box.min[axis], low[axis], 1e-6) << time;
      EXPECT_NEAR(box.max[axis], high[axis], 1e-6) << time;
    }
    std::vector<GMathBbox3<float>> boxes(clusters.get_count());
    bundle.get_clusters_bboxes_at(world.ctx, time, clusters.as_array(), boxes.data());
    GMathBbox3<float> all;
    for (const GMathBbox3<float>& one : boxes) all.add(one);
    EXPECT_NEAR(all.min.z, low.z, 1e-6) << time;
    EXPECT_NEAR(all.max.z, high.z, 1e-6) << time;
  }
}

TEST(GasGeometryBundleMotion, many_threads_start_on_one_stale_slot) {
  for (const uint pool : {1u, 3u}) {
    QueryWorld world(8, pool);
    PolyMeshData data = make_sphere(4);
    add_motion(data, 2, 0.0, 1.0, 1, true);
    const SceneShape shape(world, std::move(data));
    BundleInput input;
    for (uint k = 0; k < 6; ++k) input.add(shape.mesh.get(), make_translation({5.0 * k, 0, 0}));
    GasGeometryBundle bundle;
    input.create(world.app, bundle);
    Mover mover{5, 6};
    bundle.set_matrices_callback(Mover::callback, &mover);
    const CtxMotionBlur blur(0.0, 1.0, 3);
    // A refit lasts so long that all others come to wait for it.
    std::atomic<uint> refits{0};
    world.app.set_progress_bar_hook([&](AppProgressBar& bar) {
      refits += bar.get_title() == CoreString("Updating motion blur of bundle GAS") ? 1 : 0;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    });
    for (uint round = 1; round <= scaled(20, 10); ++round) {
      std::atomic<uint> ready{0};
      std::vector<std::thread> threads;
      for (uint thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, thread] {
          CtxEval ctx(world.ctx);
          CtxShader shader;
          shader.motion_blur = &blur;
          ctx.set_motion_blur(&blur);
          GeometryRayPacket packet;
          packet.resize(5);
          for (uint k = 0; k < 5; ++k) packet.set_ray(k, {5.0 * (thread % 6), 0, -50}, {0, 0, 1}, 0, DBL_MAX, 0.25 * k);
          ++ready;
          while (ready < 8) std::this_thread::yield();
          bundle.ray_hit_motion(ctx, shader, packet.begin_all_hits(world.shading));
          EXPECT_GE(packet.get_hits().get_hits().size(), 8u);
          bundle.get_bbox_at(ctx, 0.5);
          bundle.get_memory_size();
        });
      }
      for (std::thread& thread : threads) thread.join();
      ASSERT_EQ(mover.times.size(), 3 * round);
      ASSERT_EQ(refits, round);
      bundle.dirty_motion_blur();
    }
  }
}

}  // namespace
