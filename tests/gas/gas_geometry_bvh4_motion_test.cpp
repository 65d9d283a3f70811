// The lazy side of the mesh structure: refits on the first query, slots that come and go, boxes at times, memory, many
// threads at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "gas/gas_geometry_bvh4.h"
#include "support/fake_geometry.h"
#include "support/query_world.h"
#include "support/test_scale.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_geometry/geometry_ray_packet.h"

namespace {

/// A structure over a row of boxes that moves along z by `velocity` in a unit of time, and what asks it.
struct MovingRow {
  explicit MovingRow(uint count, double velocity = 1.0, uint pool = 1) : world(8, pool) {
    geometry.add_row(count);
    geometry.moves = true;
    geometry.velocity = {0, 0, velocity};
    world.app.set_progress_bar_hook([this](AppProgressBar&) {
      ++refits;
      std::this_thread::sleep_for(pause);
    });
    create();
  }
  void create() { ASSERT_TRUE(structure.create(world.ctx, &geometry, &geometry, nullptr)); }

  /// Distance at which a ray from below meets primitive `primitive` at `time`; callable from many threads.
  double shoot(const CtxEval& ctx, CtxShader& shader, uint primitive, double time) const {
    GeometryRayPacket packet;
    packet.resize(1);
    packet.set_ray(0, {2.0 * primitive + 0.5, 0.5, -10}, {0, 0, 1}, 0, DBL_MAX, time);
    structure.ray_hit_nearest_motion(ctx, shader, packet.begin_nearest(world.shading));
    const GeometryIntersection& hit = packet.get_nearest(0);
    return hit.geometry != nullptr && hit.primitive == primitive ? hit.distance : -1.0;
  }
  double shoot(const CtxMotionBlur& blur, uint primitive, double time) {
    world.shader.motion_blur = &blur;
    return shoot(world.ctx, world.shader, primitive, time);
  }

  QueryWorld world;
  FakeGeometry geometry;
  GasGeometryBvh4 structure;
  std::atomic<uint> refits{0};         ///< refits begun: each has a progress bar
  std::chrono::milliseconds pause{0};  ///< how long a refit lasts at least
};

TEST(GasGeometryBvh4Motion, is_refitted_once_per_slot_and_description) {
  MovingRow row(20);
  CtxMotionBlur first(0.0, 1.0, 3), second(0.0, 2.0, 2);
  const auto ask = [&](const CtxMotionBlur& blur, uint expected_refits) {
    for (const double time : {0.0, 0.3, 1.0}) EXPECT_DOUBLE_EQ(row.shoot(blur, 7, time), 10 + time);
    EXPECT_EQ(row.refits, expected_refits);
  };
  const u64 at_rest = row.structure.get_memory_size();
  ask(first, 1);
  ask(second, 2);
  ask(first, 2);
  EXPECT_GT(row.structure.get_memory_size(), at_rest);
  second.set_shutter(0.0, 1.0, 5);
  ask(first, 2);
  ask(second, 3);
  row.structure.dirty_motion_blur();
  ask(second, 4);
  ask(first, 5);
  row.create();
  ask(first, 6);
  // Boxes and clusters at a time share the refit.
  row.world.ctx.set_motion_blur(&first);
  row.structure.get_bbox_at(row.world.ctx, 0.5);
  EXPECT_EQ(row.refits, 6u);
  row.structure.dirty_motion_blur();
  CoreBasicArray<void*> whole(1);
  whole[0] = nullptr;
  GMathBbox3<float> box;
  row.structure.get_clusters_bboxes_at(row.world.ctx, 0.5, whole, &box);
  EXPECT_EQ(row.structure.get_bbox_at(row.world.ctx, 0.5), GMathBbox3<double>(box));
  EXPECT_EQ(row.refits, 7u);
}

TEST(GasGeometryBvh4Motion, a_packet_may_be_asked_in_parts) {
  MovingRow row(20);
  const CtxMotionBlur blur(0.0, 1.0, 3);
  row.world.shader.motion_blur = &blur;
  GeometryRayPacket packet;
  packet.resize(2);
  for (uint ray = 0; ray < 2; ++ray) packet.set_ray(ray, {14.5, 0.5, -10}, {0, 0, 1}, 0, DBL_MAX, 0.25 + 0.5 * ray);
  GeometryRaytraceCtx& query = packet.begin_nearest(row.world.shading);
  for (uint ray = 0; ray < 2; ++ray) {
    query.first_ray = query.last_ray = ray;
    row.structure.ray_hit_nearest_motion(row.world.ctx, row.world.shader, query);
  }
  EXPECT_DOUBLE_EQ(packet.get_nearest(0).distance, 10.25);
  EXPECT_DOUBLE_EQ(packet.get_nearest(1).distance, 10.75);
}

TEST(GasGeometryBvh4Motion, box_at_a_time_is_blended_between_the_samples_around_it) {
  MovingRow row(9, 3.3);
  EXPECT_EQ(row.structure.get_bbox_at(row.world.ctx, 0.7), row.structure.get_bbox());  // no description
  const CtxMotionBlur blur(0.25, 1.25, 4);
  row.world.ctx.set_motion_blur(&blur);
  for (const double time : {-5.0, 0.25, 0.25 + 1.3 / 3.0, 1.0, 1.25, 5.0}) {
    const GMathBbox3<double> box = row.structure.get_bbox_at(row.world.ctx, time);
    const double shift = 3.3 * std::clamp(time, 0.25, 1.25);
    EXPECT_NEAR(box.min.z, shift, 1e-6);
    EXPECT_NEAR(box.max.z, 1 + shift, 1e-6);
    volatile float rounded = static_cast<float>(box.max.z);  // through memory, or a compiler may take it for the same
    EXPECT_EQ(box.max.z, rounded);
  }
  const CtxMotionBlur closed(0.5, 0.5, 1);
  row.world.ctx.set_motion_blur(&closed);
  EXPECT_NEAR(row.structure.get_bbox_at(row.world.ctx, 0.9).min.z, 3.3 * 0.5, 1e-6);

  MovingRow none(0);
  none.world.ctx.set_motion_blur(&blur);
  EXPECT_EQ(none.structure.get_bbox_at(none.world.ctx, 0.5), none.structure.get_bbox());
  EXPECT_EQ(none.shoot(blur, 0, 0.5), -1.0);
}

TEST(GasGeometryBvh4Motion, boxes_that_turn_bad_on_the_way_stay_where_they_rest) {
  MovingRow row(12, 0.0);
  row.geometry.boxes_at_any_time = row.geometry.boxes;
  auto& boxes = row.geometry.boxes_at_any_time;
  boxes[0].min.x = NAN;
  boxes[3].max.y = HUGE_VAL;
  boxes[5].min.z = -HUGE_VAL;
  std::swap(boxes[7].min.x, boxes[7].max.x);
  const CtxMotionBlur blur(0.0, 1.0, 2);
  for (uint k = 0; k < 12; ++k) EXPECT_DOUBLE_EQ(row.shoot(blur, k, 0.5), 10.0) << k;
  row.world.ctx.set_motion_blur(&blur);
  EXPECT_EQ(row.structure.get_bbox_at(row.world.ctx, 0.5), row.structure.get_bbox());
}

TEST(GasGeometryBvh4Motion, many_threads_start_on_one_stale_slot) {
  for (const uint pool : {1u, 3u}) {
    MovingRow row(3000, 1.0, pool);
    row.pause = std::chrono::milliseconds(30);  // so that all others come to wait for the refit
    const CtxMotionBlur blur(0.0, 1.0, 3);
    for (uint round = 1; round <= scaled(5, 3); ++round) {
      std::atomic<uint> ready{0};
      std::vector<std::thread> threads;
      for (uint thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, thread] {
          CtxEval ctx(row.world.ctx);  // foreign threads with contexts of their own over the same table
          CtxShader shader;
          shader.motion_blur = &blur;
          ctx.set_motion_blur(&blur);
          ++ready;
          while (ready < 8) std::this_thread::yield();
          for (uint k = 0; k < 20; ++k)
            EXPECT_DOUBLE_EQ(row.shoot(ctx, shader, thread * 300 + k, k / 20.0), 10 + k / 20.0);
          EXPECT_NEAR(row.structure.get_bbox_at(ctx, 0.5).min.z, 0.5, 1e-6);
          row.structure.get_memory_size();
        });
      }
      for (std::thread& thread : threads) thread.join();
      EXPECT_EQ(row.refits, round);
      row.structure.dirty_motion_blur();
    }
  }
}

}  // namespace
