// The lazy side of the mesh structure: refits on the first query, packets in parts. Many threads at once ask scenes.
#include <gtest/gtest.h>

#include "gas/gas_geometry_bvh4.h"
#include "support/fake_geometry.h"
#include "support/ray_query.h"
#include "vq_app_base/app_progress_bar.h"

namespace {

/// A structure over a row of boxes that moves along z by 1 in a unit of time, and what asks it.
struct MovingRow {
  explicit MovingRow(uint count) {
    geometry.add_row(count);
    geometry.moves = true;
    geometry.velocity = {0, 0, 1};
    world.app.set_progress_bar_hook([this](AppProgressBar&) { ++refits; });
    create();
  }
  void create() { ASSERT_TRUE(structure.create(world.ctx, &geometry, &geometry, nullptr)); }

  /// Distance at which a ray from below meets primitive `primitive` at `time`.
  double shoot(const CtxMotionBlur& blur, uint primitive, double time) {
    const TestRay ray{{2.0 * primitive + 0.5, 0.5, -10}, {0, 0, 1}, 0.0, DBL_MAX, time};
    const GeometryIntersection hit = ::shoot(world, structure, ray, &blur);
    return hit.primitive == primitive ? hit.distance : -1.0;
  }

  QueryWorld world;
  FakeGeometry geometry;
  GasGeometryBvh4 structure;
  uint refits = 0;  ///< refits begun: each has a progress bar
};

TEST(GasGeometryBvh4Motion, is_refitted_once_per_slot_and_description) {
  MovingRow row(20);
  CtxMotionBlur first(0.0, 1.0, 3), second(0.0, 2.0, 2);
  const auto ask = [&](const CtxMotionBlur& blur, uint expected_refits) {
    for (const double time : {0.0, 0.3, 1.0}) EXPECT_DOUBLE_EQ(row.shoot(blur, 7, time), 10 + time);
    EXPECT_EQ(row.refits, expected_refits);
  };
  ask(first, 1);
  ask(second, 2);
  ask(first, 2);
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

}  // namespace
