// The mesh structure on the grid tree: the hits of the four-wide tree, which brute force checks, and laziness.
#include "gas/gas_geometry.h"

#include <thread>

#include "support/built_mesh.h"
#include "support/mesh_check.h"
#include "support/mesh_scenes.h"
#include "support/test_scale.h"
#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

/// Nearest and all hits of both, exactly.
void expect_same_hits(QueryWorld& world, const GasObject& grid, const GasObject& bvh, const std::vector<TestRay>& rays,
                      const CtxMotionBlur* motion_blur, const std::string& name) {
  GeometryRayPacket packet[2];
  using Key = std::tuple<uint, uint, uint, double>;
  std::vector<Key> all[2];
  const GasObject* structures[2] = {&grid, &bvh};
  const GeometryRaytraceCtx* asked = nullptr;
  const auto spoil_counter = [&](GeometryRaytraceCtx& query) {
    query.counter = 1u << 31;
    asked = &query;
  };
  for (uint k = 0; k < 2; ++k) {
    ask_rays(world, *structures[k], packet[k], rays,
             {.nearest = false, .motion_blur = motion_blur, .adjust = spoil_counter});
    EXPECT_LT(asked->counter, 1u << 31) << name;
    for (const GeometryHit& at : packet[k].get_hits().get_hits())
      all[k].emplace_back(at.ray, at.hit.primitive, at.hit.part, at.hit.distance);
    std::sort(all[k].begin(), all[k].end());
    ask_rays(world, *structures[k], packet[k], rays, {.motion_blur = motion_blur});
  }
  EXPECT_TRUE(all[0] == all[1]) << name << ": " << all[0].size() << " and " << all[1].size() << " hits";
  for (uint k = 0; k < rays.size(); ++k)
    EXPECT_EQ(packet[0].get_nearest(k).distance, packet[1].get_nearest(k).distance)
        << name << ", " << describe(rays[k]);
}

/// Rays in which both trees must agree: without distances or coordinates where single precision ends.
std::vector<TestRay> make_test_rays(const PolyMeshData& data, uint seed) {
  std::vector<TestRay> rays = make_rays(data, scaled(300, 60), seed);
  const double times[] = {0.0, 1.0, 0.5, 1.0 / 7.0, 0.123};
  for (uint k = 0; k < rays.size(); ++k) rays[k].time = times[k % 5];
  return rays;
}

TEST(GasGeometry, has_the_hits_of_the_four_wide_tree_static_and_moving) {
  QueryWorld world;
  const CtxMotionBlur shutter(0.0, 1.0, 3);
  for (MeshScene& scene : make_mesh_scenes(300, 3)) {
    const std::vector<TestRay> rays = make_test_rays(scene.data, 5);
    {
      const BothMesh both(world, scene.data);
      expect_same_hits(world, both.grid, both.structure, rays, nullptr, scene.name);
      HitCheck check = make_mesh_check(scene.data, rays);
      check.name = scene.name;
      check.check(world, both.grid);
    }
    if (scene.name == "huge" || scene.name == "tiny" || scene.name == "far away") continue;
    add_motion(scene.data, 5, 0.0, 0.25, 9, scene.name == "stars");  // also between the samples of the shutter
    const BothMesh both(world, scene.data);
    expect_same_hits(world, both.grid, both.structure, rays, &shutter, scene.name + " moving");
    HitCheck check = make_mesh_check(scene.data, rays, &shutter);
    check.name = scene.name + " moving";
    check.check(world, both.grid);
    for (const double time : {0.0, 0.3, 1.0})
      EXPECT_EQ(both.grid.get_bbox_at(world.ctx, time).min.x, both.structure.get_bbox_at(world.ctx, time).min.x);
  }
}

TEST(GasGeometry, answers_frustums_as_the_four_wide_tree) {
  QueryWorld world;
  for (const MeshScene& scene : make_mesh_scenes(300, 4)) {
    const BothMesh both(world, scene.data);
    const GMathBbox3<double> box = get_finite_box(scene.data);
    RandomValues random(7);
    for (uint k = 0; k < 80; ++k) {
      GeometryFrustumCtx query[2];
      const double size = box.get_extent().get_length() * random.get(0.05, 1.0);
      const GMathVec3<double> center = box.get_center() + random.get_vec(0.3 * size);
      std::vector<GeometryPlane> planes;
      for (uint plane = 0; plane < k % 7; ++plane) {
        const GMathVec3<double> normal = random.get_vec().get_normalized();
        planes.emplace_back(center - normal * size, normal);
      }
      const GasObject* structures[2] = {&both.grid, &both.structure};
      for (uint s = 0; s < 2; ++s) {
        query[s].mode = k % 5;
        query[s].shading = &world.shading;
        for (const GeometryPlane& plane : planes) query[s].add_plane(plane);
        structures[s]->frustum_hit(world.ctx, world.shader, query[s]);
      }
      EXPECT_EQ(query[0].geometry, query[1].geometry) << scene.name;
      EXPECT_EQ(query[0].result.finished, query[1].result.finished) << scene.name;
      EXPECT_EQ(query[0].result.outside, query[1].result.outside) << scene.name;
      EXPECT_EQ(query[0].result.total, query[1].result.total) << scene.name;
      if (query[0].mode != 0) {
        EXPECT_EQ(query[0].result.hit_count, query[1].result.hit_count) << scene.name;
      }
      ASSERT_EQ(query[0].get_points().size(), query[1].get_points().size()) << scene.name;
      for (uint point = 0; point < query[0].get_points().size(); ++point)
        EXPECT_EQ(query[0].get_points()[point].index, query[1].get_points()[point].index);
    }
  }
}

TEST(GasGeometry, takes_groups_from_three_geometries) {
  QueryWorld world;
  PolyMeshData data = make_soup(300, 8);
  data.group_names.assign(4, CoreString("group"));
  for (uint p = 0; p < 300; ++p) data.polygon_groups.push_back(p * 7 % 4);
  data.render_mode = GeometryObject::render_mode_wireframe;
  const BuiltMesh base(world, data);
  const BuiltMesh alt(world, transformed(data, 1.5f, {0.1f, 0, 0})),
      extra(world, transformed(data, 0.5f, {0, 0.2f, 0}));
  CoreBasicArray<uint> flags(4);
  for (uint group = 0; group < 4; ++group) flags[group] = group;  // neither, alt, extra, both
  GasGeometry grid;
  GasGeometryBvh4 bvh;
  ASSERT_TRUE(grid.create(world.ctx, &base.mesh, &base.mesh, &alt.mesh, &extra.mesh, flags, nullptr));
  ASSERT_TRUE(bvh.create(world.ctx, &base.mesh, &base.mesh, &alt.mesh, &extra.mesh, flags, nullptr));
  expect_same_hits(world, grid, bvh, make_rays(data, 400, 9), nullptr, "groups");
  EXPECT_EQ(grid.get_primitive_count(), 300u + 150u);
  EXPECT_EQ(grid.get_geometry(0), &base.mesh);
  EXPECT_EQ(grid.get_geometry(449), &extra.mesh);
  EXPECT_EQ(data.polygon_groups[grid.get_primitive(449)], 3u);
  GeometryRayPacket packet;  // begun for the other kind of hits
  packet.resize(1);
  packet.set_ray(0, {0.01, 0.02, -5}, {0, 0, 1});
  grid.ray_hit_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
  EXPECT_EQ(packet.get_nearest(0).geometry, nullptr);
  grid.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_all_hits(world.shading));
  EXPECT_TRUE(packet.get_hits().get_hits().empty());
  flags.resize(3);
  EXPECT_FALSE(grid.create(world.ctx, &base.mesh, &base.mesh, &alt.mesh, nullptr, flags, nullptr));
  expect_same_hits(world, grid, bvh, make_rays(data, 50, 10), nullptr, "refused");
}

TEST(GasGeometry, clusters_hold_everything_once_also_in_copies) {
  QueryWorld world;
  PolyMeshData data = make_terrain(60, 3);
  add_motion(data, 2, 0.0, 1.0, 5);
  const CtxMotionBlur shutter(0.0, 1.0, 2);
  BothMesh both(world, data);
  const std::vector<TestRay> rays = make_test_rays(data, 6);
  GasGeometry assigned;
  assigned = both.grid;
  const GasGeometry copy(assigned);
  assigned = GasGeometry();
  CoreVector<void*> clusters;
  both.grid.get_clusters(clusters, 8, 0.0f);
  ASSERT_GE(clusters.get_count(), 2u);
  world.ctx.set_motion_blur(&shutter);
  CoreBasicArray<void*> handles;
  handles.set_view(clusters.get_items(), clusters.get_count());
  std::vector<GMathBbox3<float>> boxes(clusters.get_count());
  copy.get_clusters_bboxes_at(world.ctx, 0.4, handles, boxes.data());
  GMathBbox3<double> whole;
  for (const GMathBbox3<float>& box : boxes) whole.add(GMathBbox3<double>(box));
  // The extremes of two clusters may belong to different times.
  const double top = both.grid.get_bbox_at(world.ctx, 0.4).max.y;
  EXPECT_TRUE(whole.max.y <= top && whole.max.y > top - 0.01) << whole.max.y << " of " << top;
  for (const CtxMotionBlur* motion_blur : {static_cast<const CtxMotionBlur*>(nullptr), &shutter}) {
    GeometryRayPacket packet;
    ask_rays(world, both.structure, packet, rays, {.nearest = false, .motion_blur = motion_blur});
    const std::size_t expected = packet.get_hits().get_hits().size();
    std::size_t found = 0;
    for (void* cluster : clusters) {
      const auto adjust = [&](GeometryRaytraceCtx& query) { query.cluster = reinterpret_cast<u64>(cluster); };
      ask_rays(world, copy, packet, rays, {.nearest = false, .motion_blur = motion_blur, .adjust = adjust});
      found += packet.get_hits().get_hits().size();
    }
    EXPECT_EQ(found, expected);
  }
}

TEST(GasGeometry, builds_and_refits_the_parts_that_rays_reach_and_reports_them) {
  QueryWorld world(8, 4);
  PolyMeshData data = make_terrain(120, 3);
  add_motion(data, 2, 0.0, 1.0, 5);
  const BuiltMesh built(world, data);
  GasGeometry grid;
  ASSERT_TRUE(grid.create(world.ctx, &built.mesh, &built.mesh, nullptr));
  const uint parts = grid.get_grid().get_part_count();
  EXPECT_NEAR(parts, std::sqrt(double(grid.get_primitive_count())), parts * 0.5);
  const u64 first_size = grid.get_memory_size();
  const CtxMotionBlur shutter(0.0, 1.0, 2);
  const GMathVec3<double> center = GMathBbox3<double>(get_finite_box(data)).get_center();
  const TestRay ray{center + GMathVec3<double>(0.01, 5, 0.01), {0, -1, 0}};
  EXPECT_NE(shoot(world, grid, ray).geometry, nullptr);
  EXPECT_LE(grid.get_grid().get_built_part_count(), 4u);
  const u64 static_size = grid.get_memory_size();
  EXPECT_GT(static_size, first_size);
  EXPECT_GE(static_size, grid.get_grid().get_memory_size());
  EXPECT_NE(shoot(world, grid, ray, &shutter).geometry, nullptr);
  EXPECT_LE(grid.get_grid().get_built_part_count(), 6u);
  const u64 moving_size = grid.get_memory_size();
  EXPECT_GT(moving_size, static_size + 2 * sizeof(GasBinaryPlanes) * (parts - 1));
  const std::vector<TestRay> rays = make_test_rays(data, 6);
  std::vector<std::thread> threads;
  for (uint k = 0; k < 8; ++k) {
    threads.emplace_back([&, k] {
      CtxEval ctx(world.factory);
      CtxShader shader;
      ctx.set_motion_blur(&shutter);
      shader.motion_blur = &shutter;
      GeometryRayPacket packet;
      packet.resize(static_cast<uint>(rays.size()));
      for (uint r = 0; r < rays.size(); ++r) packet.set_ray(r, rays[r].origin, rays[r].direction, 0, 1e9, rays[r].time);
      GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
      k % 2 ? grid.ray_hit_nearest_motion(ctx, shader, query) : grid.ray_hit_nearest_static(ctx, shader, query);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(grid.get_memory_size(), moving_size);
  expect_same_hits(world, grid, built.structure, rays, &shutter, "by eight threads");
  grid.create(world.ctx, &built.mesh, &built.mesh, nullptr);
  EXPECT_EQ(grid.get_grid().get_built_part_count(), 0u);

  GeometryFrustumCtx everything;
  everything.mode = 2;
  everything.shading = &world.shading;
  const u64 unbuilt_size = grid.get_memory_size();
  uint reports = grid.get_memory_advert_count();
  grid.frustum_hit(world.ctx, world.shader, everything);
  EXPECT_EQ(grid.get_grid().get_built_part_count(), parts);
  EXPECT_LE(double(grid.get_memory_size()) / grid.get_primitive_count(), 45.0);
  EXPECT_GT(grid.get_memory_advert_count(), reports) << "parts were built";
  const double most_reports = std::log(double(grid.get_memory_size()) / unbuilt_size) / std::log(20.0 / 19.0);
  EXPECT_LE(grid.get_memory_advert_count() - reports, most_reports) << "one for 5 % each";
  world.ctx.set_motion_blur(&shutter);
  grid.get_bbox_at(world.ctx, 0.5);
  reports = grid.get_memory_advert_count();
  GeometryRayPacket packet;
  ask_rays(world, grid, packet, rays, {.motion_blur = &shutter});
  EXPECT_GT(grid.get_memory_advert_count(), reports) << "parts were refitted";
}

}  // namespace
