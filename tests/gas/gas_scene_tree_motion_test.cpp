// Scenes under motion blur: the same hits as the flattened scene at each moment, refits on demand, boxes and motion
// vectors, many threads at once.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "support/scene_check.h"
#include "support/test_scale.h"
#include "vq_app_base/app_progress_bar.h"

namespace {

using Vec = GMathVec3<double>;

SceneMatrix make_scaled(double scale, const Vec& way = {}) {
  SceneMatrix matrix = make_translation(way);
  for (uint k = 0; k < 3; ++k) matrix.m[k][k] = scale;
  return matrix;
}

/// Rays at the scene as it is halfway, each at one of the times.
std::vector<TestRay> make_timed_rays(const std::vector<SceneNode>& nodes, const CtxMotionBlur& blur,
                                     const std::vector<double>& times, uint seed) {
  return make_timed_rays(FlatScene(nodes, &blur, 0.5), times, scaled(800, 400), seed);
}

TEST(GasSceneTreeMotion, hits_what_the_flattened_scene_hits_at_the_same_moment) {
  // Meshes move from 0 to 1. Beyond a shutter that is shorter they would leave the boxes of its last sample.
  const CtxMotionBlur two(0.0, 1.0, 2), five(0.0, 1.0, 5), part(0.25, 0.75, 4), closed(0.4, 0.4, 1);
  const std::vector<double> times = {0.0, 0.1, 0.25, 0.5, 0.61, 1.0, -3.0, 1.7};
  for (uint seed = 1; seed <= scaled(3, 1); ++seed) {
    QueryWorld world(8, seed);  // with one thread and with several
    for (const SceneMotion motion : {SceneMotion::rigid, SceneMotion::deforming}) {
      SceneMaker maker(world, seed, motion);
      std::vector<SceneNode> nodes = maker.make(10, 2);
      const auto scene = build_scene(world, nodes);
      for (const CtxMotionBlur* blur : {&two, &five, &part, &closed, &two}) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << " samples " << blur->get_sample_count());
        const bool is_short = blur == &part || blur == &closed;
        std::vector<double> fitting = is_short ? std::vector<double>{0.25, 0.5, 0.61, 0.75} : times;
        if (is_short && motion == SceneMotion::rigid) fitting = times;
        if (blur == &closed && motion == SceneMotion::deforming) fitting = {0.4};
        SceneCheck(world, *scene, nodes, blur).check(make_timed_rays(nodes, *blur, fitting, seed));
      }
    }
  }
}

/// Objects over one mesh that deforms, each moved by `end` within one span.
struct MovingScene {
  MovingScene(uint threads, uint count, const PolyMeshData& data, const SceneMatrix& end)
      : world(8, threads), shape(world, data) {
    SceneMaker maker(world, 2, SceneMotion::none);
    for (uint k = 0; k < count; ++k) {
      const SceneMatrix a = maker.make_matrix();
      nodes.push_back(make_node(shape, {{0.0, a}, {1.0, a * end}}));
    }
    scene = build_scene(world, nodes);
  }

  QueryWorld world;
  const SceneShape shape;
  std::vector<SceneNode> nodes;
  std::shared_ptr<GasSceneTree> scene;
};

/// All turn and grow, far within one span.
struct TurningScene : MovingScene {
  explicit TurningScene(uint threads) : MovingScene(threads, 6, make_data(), make_scaled(2.0)) {}
  static PolyMeshData make_data() {
    PolyMeshData data = make_sphere(2);
    add_motion(data, 3, 0.0, 0.5, 3);
    return data;
  }
};

/// Single triangles that move by 1 within objects that turn by a right angle: nothing of their boxes is to spare.
struct SwingingTriangles : MovingScene {
  explicit SwingingTriangles(uint threads)
      : MovingScene(threads, 30, make_data(), {{{0, -1}, {1}, {0, 0, 1}, {0, 0, 0, 1}}}) {}
  static PolyMeshData make_data() {
    PolyMeshData data = make_soup(1, 4, 4.0);
    data.motion_positions.assign(2, data.positions);
    for (GMathVec3<float>& position : data.motion_positions[1]) position.x += 1;
    return data;
  }
};

template <class Scene>
void check_between_samples() {
  Scene moving(2);
  for (const uint samples : {2u, 3u, 5u}) {
    const CtxMotionBlur blur(0.0, 1.0, samples);
    SceneCheck(moving.world, *moving.scene, moving.nodes, &blur)
        .check(make_timed_rays(moving.nodes, blur, {0.0, 0.13, 0.25, 0.4, 0.5, 0.6, 0.88, 1.0}, 1));
  }
}

TEST(GasSceneTreeMotion, what_deforms_may_turn_and_grow_at_once) {
  check_between_samples<TurningScene>();
  check_between_samples<SwingingTriangles>();
}

// A small sphere moves by 1 while its object shrinks to a third: on the way to the last sample it is outside of both.
TEST(GasSceneTreeMotion, boxes_hold_what_bulges_before_a_sample) {
  PolyMeshData data = transformed(make_sphere(2), 0.05f);
  data.motion_positions.assign(2, data.positions);
  for (GMathVec3<float>& position : data.motion_positions[1]) position.x += 1;
  QueryWorld world;
  const SceneShape shape(world, data);
  std::vector<SceneNode> nodes = {make_node(shape, {{0.0, make_scaled(3.0)}, {1.0, {}}}),
                                  make_node(shape, {{0.0, make_translation({9, 0, 0})}})};
  const auto scene = build_scene(world, nodes);
  const CtxMotionBlur blur(0.0, 1.0, 2);
  EXPECT_NE(shoot(world, *scene, {{0.75 * 1.5, 0, 5}, {0, 0, -1}, 0.0, DBL_MAX, 0.75}, &blur).geometry, nullptr);
}

TEST(GasSceneTreeMotion, one_object_s_or_instance_s_broken_sample_leaves_the_others_alone) {
  QueryWorld world;
  const CtxMotionBlur blur(0.0, 1.0, 2);
  world.shader.motion_blur = &blur;
  world.ctx.set_motion_blur(&blur);
  const SceneShape sphere(world, make_sphere(2));
  std::vector<SceneMatrix> broken(6, make_scaled(1e39));  // beyond single precision, but a matrix
  broken[1].m[1][0] = std::nan("");
  broken[2].m[0][3] = HUGE_VAL;
  broken[3].m[0][0] = HUGE_VAL;
  broken[4] = make_scaled(0.0);
  broken[5] = make_translation({0, -1e39, 0});
  for (uint kind = 0; kind < broken.size(); ++kind) {
    std::vector<SceneNode> nodes;
    nodes.push_back(make_node(sphere, {{0.0, {}}, {1.0, broken[kind]}}));
    for (uint k = 1; k < 8; ++k) nodes.push_back(make_node(sphere, {{0.0, make_translation({4.0 * k, 0, 0})}}));
    SceneNode bundle;
    bundle.is_bundle = true;
    bundle.children = nodes;
    bundle.keys = {{}};
    const auto scene = build_scene(world, nodes);
    const GasObject* structures[] = {scene.get(), make_object(world, bundle)->get_structure()};
    GeometryRayPacket packet;
    packet.resize(1);
    for (uint row = 0; row < 6; ++row) {
      const double time = row / 2 * 0.5;
      for (uint k = 0; k < 8; ++k) {
        packet.set_ray(0, {4.0 * k + 0.1, 0.2, -5}, {0, 0, 1}, 0, DBL_MAX, time);
        structures[row % 2]->ray_hit_nearest_motion(world.ctx, world.shader, packet.begin_nearest(world.shading));
        // At its good sample the broken one is there too. The first is a sphere around the ray's origin.
        const bool is_there = k > 0 || time == 0.0 || kind == 0 || (time < 1.0 && kind == 4);
        EXPECT_EQ(packet.get_nearest(0).geometry != nullptr, is_there) << kind << " " << time << " " << k;
        EXPECT_TRUE(k == 0 || std::fabs(packet.get_nearest(0).distance - 4) < 0.1);
      }
    }
  }
}

TEST(GasSceneTreeMotion, is_refitted_when_stale_and_only_then) {
  QueryWorld world;
  const SceneShape sphere(world, make_sphere(1));
  std::vector<SceneNode> nodes;
  nodes.push_back(make_node(sphere, {{0.0, {}}, {1.0, make_translation({0, 0, 8})}}));
  nodes.push_back(make_node(sphere, {{0.0, make_translation({5, 0, 0})}}));
  const auto scene = build_scene(world, nodes);
  const u64 at_rest = scene->get_memory_size();
  uint refits = 0;
  world.app.set_progress_bar_hook([&](AppProgressBar& bar) {
    EXPECT_EQ(bar.get_title(), CoreString("Updating motion blur of scene GAS"));
    ++refits;
  });
  GeometryRayPacket packet;
  packet.resize(1);
  const auto shoot = [&](const CtxMotionBlur& blur, double time) {
    world.shader.motion_blur = &blur;
    world.ctx.set_motion_blur(&blur);
    packet.set_ray(0, {0.01, 0.02, -10}, {0, 0, 1}, 0, DBL_MAX, time);
    scene->ray_hit_nearest_motion(world.ctx, world.shader, packet.begin_nearest(world.shading));
    return packet.get_nearest(0).distance;
  };
  const double start = shoot(CtxMotionBlur(0.0, 0.0, 1), 0.0);
  auto expect_told = [&, last = scene->get_memory_advert_count()](uint expected) mutable {
    EXPECT_EQ(scene->get_memory_advert_count() - last, expected);
    last = scene->get_memory_advert_count();
  };
  refits = 0;
  CtxMotionBlur first(0.0, 1.0, 2);
  auto second = std::make_unique<CtxMotionBlur>(0.0, 1.0, 9);
  const auto expect_both = [&](double speed, uint expected) {
    for (const double time : {0.0, 0.3, 1.0}) {
      EXPECT_NEAR(shoot(first, time), start + speed * time, 1e-12);
      EXPECT_NEAR(shoot(*second, time), start + speed * time, 1e-12);
      scene->get_bbox_at(world.ctx, time);
    }
    EXPECT_EQ(refits, expected);
  };
  cluster_calls.boxes = cluster_calls.boxes_at = 0;
  expect_both(8, 2);
  expect_told(3);                          // a second slot, and what each holds
  EXPECT_EQ(cluster_calls.boxes, 11u);     // the object that stands still
  EXPECT_EQ(cluster_calls.boxes_at, 11u);  // the one that moves
  set_scene_matrix({{0.0, {}}, {1.0, make_translation({0, 0, 4})}}, *nodes[0].object);
  expect_both(8, 2);  // nobody said so
  scene->dirty_motion_blur();
  expect_both(4, 4);
  first.set_shutter(0.0, 0.5, 3);
  EXPECT_NEAR(shoot(first, 0.9), start + 2, 1e-12);
  first.set_shutter(0.0, 1.0, 3);
  expect_both(4, 6);
  // Slots come and go; those that stay keep what they have.
  const u64 with_both = scene->get_memory_size();
  expect_told(4);
  std::vector<std::unique_ptr<CtxMotionBlur>> more;
  for (uint k = 0; k < 5; ++k) more.push_back(std::make_unique<CtxMotionBlur>(0.0, 1.0, k + 2));
  for (const auto& blur : more) EXPECT_NEAR(shoot(*blur, 0.25), start + 1, 1e-12);
  EXPECT_GT(scene->get_memory_size(), with_both);
  more.clear();
  EXPECT_EQ(scene->get_memory_size(), with_both);
  expect_told(1 + 5 + 1);  // five slots come, are filled, and go
  expect_both(4, 11);
  second = std::make_unique<CtxMotionBlur>(0.0, 1.0, 3);
  expect_both(4, 12);
  // Built anew, it forgets what it kept of the former scene.
  set_scene_matrix({{0.0, {}}, {1.0, make_translation({0, 0, 2})}}, *nodes[0].object);
  ModuleSceneObject* objects[] = {nodes[0].object.get(), nodes[1].object.get()};
  scene->create(world.app, CoreBasicArray<ModuleSceneObject*>::make_view(objects, 2), nullptr);
  expect_both(2, 14);
  const GasSceneTree copy(*scene);
  EXPECT_GT(scene->get_memory_size(), at_rest + 2 * 2 * 3 * sizeof(SceneMatrix));
  copy.ray_hit_nearest_motion(world.ctx, world.shader, packet.begin_nearest(world.shading));
  EXPECT_NEAR(packet.get_nearest(0).distance, start + 2, 1e-12);
  EXPECT_EQ(refits, 15u);
}

TEST(GasSceneTreeMotion, objects_of_a_nested_scene_may_get_their_keys_after_the_build) {
  QueryWorld world;
  const SceneShape shape(world, make_sphere(2));
  std::vector<SceneNode> nodes(2);
  nodes[0].children.push_back(make_node(shape));
  nodes[0].children.push_back(make_node(shape, {{0.0, make_translation({0, 3, 0})}}));
  nodes[0].keys = {{}};
  nodes[1] = make_node(shape, {{0.0, make_translation({0, 20, 0})}});
  const auto scene = build_scene(world, nodes);
  const CtxMotionBlur blur(0.0, 1.0, 2);
  const TestRay ray{{10, 0, 50}, {0, 0, -1}, 0.0, DBL_MAX, 1.0};
  EXPECT_EQ(shoot(world, *scene, ray, &blur).geometry, nullptr);
  nodes[0].children[0].object->set_global_matrix_keys({{0.0, {}}, {1.0, make_translation({10, 0, 0})}}, 0.0);
  const_cast<GasObject*>(nodes[0].object->get_structure())->dirty_motion_blur();
  scene->dirty_motion_blur();
  EXPECT_NE(shoot(world, *scene, ray, &blur).geometry, nullptr);
}

TEST(GasSceneTreeMotion, clusters_are_asked_for_with_the_override_of_their_instance) {
  QueryWorld world;
  const CtxMotionBlur blur(0.0, 1.0, 2);
  const SceneShape sphere(world, make_sphere(1));
  std::vector<SceneNode> nodes;
  for (uint k = 0; k < 2; ++k) nodes.push_back(make_node(sphere, {{0.0, {}}, {1.0, make_translation({0, 0, 8})}}));
  nodes[1].replaced = std::make_shared<GeometryOverride>();
  cluster_calls.watched = nodes[1].replaced.get();
  cluster_calls.overridden = 0;
  world.ctx.set_motion_blur(&blur);
  build_scene(world, nodes)->get_bbox_at(world.ctx, 0.5);
  EXPECT_EQ(cluster_calls.overridden, 0b1111u);  // lists, boxes at rest and at a time, weights
}

TEST(GasSceneTreeMotion, boxes_are_those_of_the_clusters_at_the_samples_and_blended_between) {
  TurningScene turning(5);
  QueryWorld& world = turning.world;
  EXPECT_EQ(turning.scene->get_bbox_at(world.ctx, 0.7), turning.scene->get_bbox());  // no description
  CoreVector<void*> clusters;
  turning.shape.structure->get_clusters(clusters, 1024, 0.3f);
  std::vector<GMathBbox3<float>> boxes(clusters.get_count());
  ASSERT_GT(boxes.size(), 1u);
  const auto get_expected = [&](double time) {
    turning.shape.structure->get_clusters_bboxes_at(world.ctx, time, clusters.as_array(), boxes.data());
    GMathBbox3<float> box;
    for (const SceneNode& node : turning.nodes) {
      const SceneMatrix matrix = node.object->get_global_matrix_at(time);
      for (uint corner = 0; corner < 8 * boxes.size(); ++corner)
        box.add(GMathVec3<float>(matrix.transform_point(GMathVec3<double>(boxes[corner / 8].get_corner(corner % 8)))));
    }
    return GMathBbox3<double>(box);
  };
  // The mesh bends at 0.5, which two samples do not see. All but the first are told to threads that know another one.
  const CtxMotionBlur two(0.0, 1.0, 2), closed(0.3, 0.3, 1);
  for (uint round = 0; round < 10; ++round) {
    const auto five = std::make_unique<CtxMotionBlur>(0.0, 1.0, 5);
    for (const CtxMotionBlur* blur : {&two, static_cast<const CtxMotionBlur*>(five.get())}) {
      world.ctx.set_motion_blur(blur);
      const double step = blur->get_sample_step();
      // What deforms while it turns needs more than the box at the moment, but not much more.
      for (const double time : {0.0, step, 1.0, -1.0, 2.0}) {
        const GMathBbox3<double> box = turning.scene->get_bbox_at(world.ctx, time);
        const GMathBbox3<double> least = get_expected(std::clamp(time, 0.0, 1.0));
        for (uint axis = 0; axis < 3; ++axis) {
          const double surplus = 0.2 * step * (least.max[axis] - least.min[axis]);
          ASSERT_TRUE(box.min[axis] <= least.min[axis] && box.min[axis] >= least.min[axis] - surplus) << time;
          ASSERT_TRUE(box.max[axis] >= least.max[axis] && box.max[axis] <= least.max[axis] + surplus) << time;
        }
      }
      const GMathBbox3<double> a = turning.scene->get_bbox_at(world.ctx, 0.0),
                               b = turning.scene->get_bbox_at(world.ctx, step),
                               box = turning.scene->get_bbox_at(world.ctx, 0.4 * step);
      for (uint axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR(box.min[axis], 0.6 * a.min[axis] + 0.4 * b.min[axis], 1e-6);
        EXPECT_NEAR(box.max[axis], 0.6 * a.max[axis] + 0.4 * b.max[axis], 1e-6);
      }
    }
    turning.scene->dirty_motion_blur();
  }
  world.ctx.set_motion_blur(&closed);
  EXPECT_EQ(turning.scene->get_bbox_at(world.ctx, 0.8), get_expected(0.3));
}

TEST(GasSceneTreeMotion, vectors_lead_to_the_end_of_the_ray_s_span) {
  QueryWorld world;
  const SceneShape sphere(world, make_sphere(3));
  const auto keys = [](double way) {
    return std::vector<ModuleMatrixKey>{{0.0, make_scaled(1)}, {0.5, make_scaled(2, {way, 0, 0})}, {1.0, {}}};
  };
  const CtxMotionBlur blur(0.0, 1.0, 3), closed(0.25, 0.25, 1);
  for (uint row = 0; row < 32; ++row) {  // what moves: the object, the scenes or bundles around it
    std::vector<SceneNode> nodes;
    nodes.push_back(make_node(sphere, row & 1 ? keys(0.3) : keys(0.0)));
    if ((row & 1) == 0) nodes[0].keys = {{0.0, make_scaled(1.5)}};
    for (uint level = 1; level < 3; ++level) {
      SceneNode outer;
      outer.is_bundle = row >> (level + 2) & 1;
      outer.keys = {{0.0, make_scaled(1.5)}};
      if (row >> level & 1) outer.keys = keys(0.1 * level);
      outer.children.push_back(make_node(sphere, {{0.0, SceneMatrix{{{0}}}}}));  // left out
      outer.children.push_back(std::move(nodes[0]));
      nodes.clear();
      nodes.push_back(std::move(outer));
    }
    const auto scene = build_scene(world, nodes);
    for (const CtxMotionBlur* used : {&blur, &closed}) {
      for (const double time : {0.0, 0.1, 0.5, 0.9, 1.0}) {
        world.shader.motion_blur = used;
        world.ctx.set_motion_blur(used);
        GeometryRayPacket packet;
        packet.resize(1);
        packet.set_ray(0, {0.03, 0.02, -50}, {0, 0, 1}, 0, DBL_MAX, time);
        GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
        query.settings.compute_motion_vectors = true;
        scene->ray_hit_nearest_motion(world.ctx, world.shader, query);
        const GeometryHitTransform* transform = packet.get_nearest_transform(0);
        ASSERT_NE(transform, nullptr);
        EXPECT_TRUE(transform->has_vectors);
        const double end = used == &closed ? 0.25 : time < 0.5 ? 0.5 : 1.0;
        SceneMatrix expected, expected_end;
        for (const SceneNode* node = nodes.data(); node != nullptr;
             node = node->children.empty() ? nullptr : &node->children.back()) {
          expected = expected * FlatScene::get_matrix(*node->item, used, time);
          expected_end = expected_end * node->item->get_global_matrix_at(end);
        }
        for (uint k = 0; k < 16; ++k) {
          EXPECT_NEAR(transform->matrix.m[k / 4][k % 4], expected.m[k / 4][k % 4], 1e-12) << row << " " << time;
          EXPECT_NEAR(transform->matrix2.m[k / 4][k % 4], expected_end.m[k / 4][k % 4], 1e-12) << row << " " << time;
        }
      }
    }
  }
}

TEST(GasSceneTreeMotion, many_threads_start_on_one_stale_slot) {
  for (const uint pool : {1u, 3u}) {
    QueryWorld world(8, pool);
    PolyMeshData data = make_sphere(4);  // so many that threads share the boxes
    add_motion(data, 2, 0.0, 1.0, 1, true);
    const SceneShape shape(world, std::move(data));
    std::vector<SceneNode> nodes(2);
    for (uint k = 0; k < 2; ++k) {
      nodes[k].keys = {{0.0, make_translation({10.0 * k, 0, 0})}, {1.0, make_translation({10.0 * k, 0, 5})}};
      for (uint child = 0; child < 3; ++child)
        nodes[k].children.push_back(make_node(shape, {{0.0, make_translation({3.0 * child, 0, 0})}}));
    }
    nodes.push_back(make_node(shape, {{0.0, make_translation({0, 20, 0})}}));
    const auto scene = build_scene(world, nodes);
    const CtxMotionBlur blur(0.0, 1.0, 3);
    // A refit lasts so long that all others come to wait for it.
    std::atomic<uint> refits{0};
    world.app.set_progress_bar_hook([&](AppProgressBar&) {
      ++refits;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    });
    for (uint round = 0; round < scaled(40, 20); ++round) {
      cluster_calls.boxes_at = 0;
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
          const double x = 10.0 * (thread & 1) + 3.0 * (thread % 3);
          for (uint k = 0; k < 5; ++k) packet.set_ray(k, {x, 0, -50}, {0, 0, 1}, 0, DBL_MAX, 0.25 * k);
          ++ready;
          while (ready < 8) std::this_thread::yield();
          scene->ray_hit_motion(ctx, shader, packet.begin_all_hits(world.shading));
          EXPECT_GE(packet.get_hits().get_hits().size(), 8u);
          scene->get_bbox_at(ctx, 0.5);
          scene->get_memory_size();
        });
      }
      for (std::thread& thread : threads) thread.join();
      // The meshes of the inner scenes and that of the outer, once a sample.
      ASSERT_EQ(cluster_calls.boxes_at, 3 * (2 * 3 + 1u));
      ASSERT_EQ(refits, 4 * (round + 1)) << "the mesh, the inner scenes and the outer";
      scene->dirty_motion_blur();
      for (SceneNode& node : nodes) const_cast<GasObject*>(node.object->get_structure())->dirty_motion_blur();
      shape.structure->dirty_motion_blur();
    }
  }
}

}  // namespace
