// The lazy side of the mesh structure: refits on the first query, slots that come and go, boxes at times, memory, many
// threads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "gas/gas_geometry_bvh4.h"
#include "support/fake_geometry.h"
#include "support/mesh_scenes.h"
#include "support/query_world.h"
#include "support/ray_sets.h"
#include "support/structure_check.h"
#include "support/test_scale.h"
#include "vq_app_base/app_progress_bar.h"

namespace {

/// Rays from below at the boxes of a row that moves along z by `velocity` in a unit of time.
struct MovingRow {
  explicit MovingRow(uint count, double velocity = 1.0) {
    geometry.add_row(count);
    geometry.moves = true;
    geometry.velocity = {0, 0, velocity};
  }
  FakeGeometry geometry;
  GasGeometryBvh4 structure;
};

/// Distance at which a ray at `time` meets primitive `primitive` of a row, asked by this thread.
double shoot(const CtxEval& ctx, CtxShader& shader, const ShadingGroupTable& shading, const GasObject& structure,
             uint primitive, double time) {
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {2.0 * primitive + 0.5, 0.5, -10}, {0, 0, 1}, 0, DBL_MAX, time);
  structure.ray_hit_nearest_motion(ctx, shader, packet.begin_nearest(shading));
  const GeometryIntersection& hit = packet.get_nearest(0);
  return hit.geometry != nullptr && hit.primitive == primitive ? hit.distance : -1.0;
}

double shoot(QueryWorld& world, const GasObject& structure, uint primitive, double time, const CtxMotionBlur& blur) {
  world.shader.motion_blur = &blur;
  return shoot(world.ctx, world.shader, world.shading, structure, primitive, time);
}

/// Counts the progress bars of refits.
struct RefitCount {
  explicit RefitCount(AppBase& app) {
    app.set_progress_bar_hook([this](AppProgressBar& bar) {
      EXPECT_STREQ(bar.get_title().get_data(), "Updating GAS motion blur...");
      ++count;
      std::this_thread::sleep_for(pause);
    });
  }
  std::atomic<uint> count{0};
  std::chrono::milliseconds pause{0};  ///< how long a refit lasts at least
};

TEST(GasGeometryBvh4Motion, tasks_compute_boxes_from_1024_primitives_on) {
  for (const uint threads : {1u, 2u}) {
    for (const uint primitives : {1023u, 1024u}) {
      QueryWorld world(8, threads);
      MovingRow row(primitives);
      ASSERT_TRUE(row.structure.create(world.ctx, &row.geometry, &row.geometry, nullptr));
      const CtxMotionBlur blur(0.0, 1.0, 2);
      EXPECT_DOUBLE_EQ(shoot(world, row.structure, primitives - 1, 0.25, blur), 10.25);
      const bool tasks = threads > 1 && primitives == 1024;
      EXPECT_EQ(row.geometry.boxes_in_thread_ctx, tasks ? 2 * primitives : 0u);
      EXPECT_EQ(row.geometry.boxes_in_top_ctx, tasks ? 0u : 2 * primitives);
    }
  }
}

TEST(GasGeometryBvh4Motion, is_refitted_once_per_slot_and_description) {
  QueryWorld world;
  RefitCount refits(world.app);
  MovingRow row(20);
  ASSERT_TRUE(row.structure.create(world.ctx, &row.geometry, &row.geometry, nullptr));
  CtxMotionBlur first(0.0, 1.0, 3), second(0.0, 2.0, 2);
  const auto ask = [&](const CtxMotionBlur& blur, uint expected_refits) {
    for (const double time : {0.0, 0.3, 1.0}) EXPECT_DOUBLE_EQ(shoot(world, row.structure, 7, time, blur), 10 + time);
    EXPECT_EQ(refits.count, expected_refits);
  };
  EXPECT_EQ(refits.count, 0u);
  ask(first, 1);
  ask(second, 2);
  ask(first, 2);
  second.set_shutter(0.0, 1.0, 5);
  ask(first, 2);
  ask(second, 3);
  row.structure.dirty_motion_blur();
  ask(second, 4);
  ask(first, 5);
  ASSERT_TRUE(row.structure.create(world.ctx, &row.geometry, &row.geometry, nullptr));
  ask(first, 6);
  ask(second, 7);
  // Boxes and clusters at a time share the refit.
  world.ctx.set_motion_blur(&first);
  row.structure.get_bbox_at(world.ctx, 0.5);
  EXPECT_EQ(refits.count, 7u);
  row.structure.dirty_motion_blur();
  CoreVector<void*> clusters;
  row.structure.get_clusters(clusters, 16, 0.0f);
  std::vector<GMathBbox3<float>> boxes(clusters.get_count());
  CoreBasicArray<void*> handles;
  handles.assign(clusters.get_items(), clusters.get_count());
  row.structure.get_clusters_bboxes_at(world.ctx, 0.5, handles, boxes.data());
  EXPECT_EQ(refits.count, 8u);
  row.structure.get_bbox_at(world.ctx, 0.5);
  EXPECT_EQ(refits.count, 8u);
}

TEST(GasGeometryBvh4Motion, progress_shares_of_a_refit) {
  QueryWorld world(8, 2);
  std::vector<AppProgressTask> tasks;
  double progress = 0.0;
  world.app.set_progress_bar_hook([&](AppProgressBar& bar) {
    bar.set_sink(
        [&](const AppProgressReport& report) {
          if (!report.is_finished) return;
          tasks = bar.get_task_log();
          progress = report.fraction;
        },
        std::chrono::milliseconds(0));
  });
  MovingRow row(20);
  ASSERT_TRUE(row.structure.create(world.ctx, &row.geometry, &row.geometry, nullptr));
  const CtxMotionBlur blur(0.0, 1.0, 4);
  shoot(world, row.structure, 7, 0.5, blur);
  ASSERT_EQ(tasks.size(), 8u);
  for (uint k = 0; k < 8; ++k) EXPECT_DOUBLE_EQ(tasks[k].weight, k % 2 == 0 ? 0.25 / 4 : 0.75 / 4);
  EXPECT_DOUBLE_EQ(progress, 1.0);
}

TEST(GasGeometryBvh4Motion, slots_come_and_go_between_queries) {
  QueryWorld world;
  MovingRow row(30);
  ASSERT_TRUE(row.structure.create(world.ctx, &row.geometry, &row.geometry, nullptr));
  RandomValues random(4);
  std::vector<std::unique_ptr<CtxMotionBlur>> blurs;
  for (uint step = 0; step < scaled(300, 100); ++step) {
    if (blurs.empty() || random.get_index(2) == 0) {
      blurs.push_back(std::make_unique<CtxMotionBlur>(0.0, 1.0, 1 + random.get_index(5)));
    } else {
      blurs.erase(blurs.begin() + random.get_index(static_cast<uint>(blurs.size())));
    }
    if (random.get_index(20) == 0) {
      ASSERT_TRUE(row.structure.create(world.ctx, &row.geometry, &row.geometry, nullptr));
    }
    for (const auto& blur : blurs) {
      if (random.get_index(2) == 0) continue;
      const double time = random.get(0.0, 1.0);
      ASSERT_DOUBLE_EQ(shoot(world, row.structure, random.get_index(30), time, *blur), 10 + time) << step;
    }
    row.structure.get_memory_size();
  }
}

TEST(GasGeometryBvh4Motion, memory_adds_up) {
  QueryWorld world;
  MovingRow row(100);
  GasGeometryBvh4& structure = row.structure;
  EXPECT_GE(structure.get_memory_size(), sizeof(structure));
  ASSERT_TRUE(structure.create(world.ctx, &row.geometry, &row.geometry, nullptr));
  const GasBvh<4>& tree = structure.get_tree();
  const u64 at_rest = structure.get_memory_size();
  // Both arrays' headers, one group, no indices.
  EXPECT_EQ(at_rest, sizeof(structure) + 2 * 16 + 4 + tree.aligned_count * 128 + tree.quantized_count * 48 + 100 * 4);
  std::vector<u64> sizes;
  {
    const CtxMotionBlur first(0.0, 1.0, 3);
    const u64 with_record = structure.get_memory_size();
    EXPECT_GT(with_record, at_rest);
    shoot(world, structure, 3, 0.5, first);
    EXPECT_EQ(structure.get_memory_size(),
              with_record + 3 * (tree.aligned_count * 96 + tree.quantized_count * 24 + 24));
    const CtxMotionBlur second(0.0, 1.0, 5);
    EXPECT_EQ(structure.get_memory_size(),
              with_record + (with_record - at_rest) + 3 * (tree.aligned_count * 96 + tree.quantized_count * 24 + 24));
    ASSERT_TRUE(structure.create(world.ctx, &row.geometry, &row.geometry, nullptr));
    EXPECT_EQ(structure.get_memory_size(), at_rest + 2 * (with_record - at_rest));  // refits dropped, records stay
    shoot(world, structure, 3, 0.5, second);
  }
  EXPECT_EQ(structure.get_memory_size(), at_rest);
  // Nothing is left of the larger one.
  row.geometry.boxes.resize(10);
  ASSERT_TRUE(structure.create(world.ctx, &row.geometry, &row.geometry, nullptr));
  EXPECT_EQ(structure.get_memory_size(),
            sizeof(structure) + 2 * 16 + 4 + tree.aligned_count * 128 + tree.quantized_count * 48 + 10 * 4);
}

TEST(GasGeometryBvh4Motion, box_at_a_time_is_blended_between_the_samples_around_it) {
  QueryWorld world;
  MovingRow row(9, 3.3);
  for (uint k = 0; k < 9; ++k) row.geometry.boxes[k].max.y = 1 + 0.1 * k;
  ASSERT_TRUE(row.structure.create(world.ctx, &row.geometry, &row.geometry, nullptr));
  EXPECT_EQ(row.structure.get_bbox_at(world.ctx, 0.7), row.structure.get_bbox());  // no description
  const CtxMotionBlur blur(0.25, 1.25, 4);
  world.ctx.set_motion_blur(&blur);
  const auto get_sample = [&](uint sample) {
    GMathBbox3<float> box;
    for (const GMathBbox3<double>& at_rest : row.geometry.boxes) {
      const GMathVec3<double> shift(0, 0, 3.3 * blur.get_time_sampling().get_sample_time(sample));
      box.add(GMathBbox3<float>(GMathBbox3<double>(at_rest.min + shift, at_rest.max + shift)));
    }
    return box;
  };
  for (uint sample = 0; sample < 4; ++sample) {
    const double time = blur.get_time_sampling().get_sample_time(sample);
    EXPECT_EQ(row.structure.get_bbox_at(world.ctx, time), GMathBbox3<double>(get_sample(sample))) << sample;
  }
  EXPECT_EQ(row.structure.get_bbox_at(world.ctx, -5.0), GMathBbox3<double>(get_sample(0)));
  EXPECT_EQ(row.structure.get_bbox_at(world.ctx, 5.0), GMathBbox3<double>(get_sample(3)));
  const double f = 0.3, time = 0.25 + (1 + f) / 3.0;
  const GMathBbox3<double> box = row.structure.get_bbox_at(world.ctx, time);
  const GMathBbox3<double> a(get_sample(1)), b(get_sample(2));
  EXPECT_NEAR(box.min.z, a.min.z + (b.min.z - a.min.z) * f, 1e-6);
  EXPECT_NEAR(box.max.z, a.max.z + (b.max.z - a.max.z) * f, 1e-6);
  // Each bound is rounded to single precision.
  for (uint bound = 0; bound < 6; ++bound) {
    const double value = bound < 3 ? box.min[bound] : box.max[bound - 3];
    volatile float rounded = static_cast<float>(value);  // through memory, or a compiler may take it for the same
    EXPECT_EQ(value, rounded) << bound;
  }
  const CtxMotionBlur closed(0.5, 0.5, 1);
  world.ctx.set_motion_blur(&closed);
  EXPECT_NEAR(row.structure.get_bbox_at(world.ctx, 0.9).min.z, 3.3 * 0.5, 1e-6);

  MovingRow none(0);
  ASSERT_TRUE(none.structure.create(world.ctx, &none.geometry, &none.geometry, nullptr));
  EXPECT_EQ(none.structure.get_bbox_at(world.ctx, 0.5), none.structure.get_bbox());
  EXPECT_EQ(shoot(world, none.structure, 0, 0.5, blur), -1.0);
}

TEST(GasGeometryBvh4Motion, boxes_that_turn_bad_on_the_way_stay_where_they_rest) {
  QueryWorld world;
  MovingRow row(12, 0.0);
  row.geometry.boxes_at_any_time = row.geometry.boxes;
  auto& boxes = row.geometry.boxes_at_any_time;
  boxes[0].min.x = NAN;
  boxes[3].max.y = HUGE_VAL;
  boxes[5].min.z = -HUGE_VAL;
  std::swap(boxes[7].min.x, boxes[7].max.x);
  ASSERT_TRUE(row.structure.create(world.ctx, &row.geometry, &row.geometry, nullptr));
  const CtxMotionBlur blur(0.0, 1.0, 2);
  for (uint k = 0; k < 12; ++k) EXPECT_DOUBLE_EQ(shoot(world, row.structure, k, 0.5, blur), 10.0) << k;
  world.ctx.set_motion_blur(&blur);
  EXPECT_EQ(row.structure.get_bbox_at(world.ctx, 0.5), row.structure.get_bbox());
}

TEST(GasGeometryBvh4Motion, many_threads_start_on_one_stale_slot) {
  for (const uint pool : {1u, 3u}) {
    QueryWorld world(8, pool);
    RefitCount refits(world.app);
    refits.pause = std::chrono::milliseconds(30);  // so that all others come to wait for it
    MovingRow row(3000);
    ASSERT_TRUE(row.structure.create(world.ctx, &row.geometry, &row.geometry, nullptr));
    const CtxMotionBlur blur(0.0, 1.0, 3);
    for (uint round = 1; round <= scaled(5, 3); ++round) {
      std::atomic<uint> ready{0};
      std::vector<std::thread> threads;
      for (uint thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, thread] {
          CtxEval ctx(world.ctx);  // foreign threads with contexts of their own over the same table
          CtxShader shader;
          shader.motion_blur = &blur;
          ctx.set_motion_blur(&blur);
          ++ready;
          while (ready < 8) std::this_thread::yield();
          for (uint k = 0; k < 20; ++k) {
            const double time = k / 20.0;
            EXPECT_DOUBLE_EQ(shoot(ctx, shader, world.shading, row.structure, thread * 300 + k, time), 10 + time);
          }
          EXPECT_NEAR(row.structure.get_bbox_at(ctx, 0.5).min.z, 0.5, 1e-6);
          row.structure.get_memory_size();
        });
      }
      for (std::thread& thread : threads) thread.join();
      EXPECT_EQ(refits.count, round);
      row.structure.dirty_motion_blur();
    }
  }
}

TEST(GasGeometryBvh4Motion, threads_make_and_drop_descriptions_while_others_query) {
  QueryWorld world(8, 2);
  MovingRow row(200);
  ASSERT_TRUE(row.structure.create(world.ctx, &row.geometry, &row.geometry, nullptr));
  std::vector<std::thread> threads;
  for (uint thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      CtxEval ctx(world.ctx);
      CtxShader shader;
      RandomValues random(thread);
      for (uint k = 0; k < scaled(400, 200); ++k) {
        const CtxMotionBlur blur(0.0, 1.0, 2 + random.get_index(3));
        shader.motion_blur = &blur;
        for (uint ray = 0; ray < 4; ++ray) {
          const double time = random.get(0.0, 1.0);
          ASSERT_DOUBLE_EQ(shoot(ctx, shader, world.shading, row.structure, random.get_index(200), time), 10 + time);
        }
        if (k % 16 == 0) row.structure.get_memory_size();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
