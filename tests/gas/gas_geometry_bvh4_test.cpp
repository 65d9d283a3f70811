// The mesh structure against brute force over all polygons: rays at rest and in motion, groups, filters, copies.
#include "gas/gas_geometry_bvh4.h"

#include "gas/gas_fur.h"
#include "support/built_mesh.h"
#include "support/fake_geometry.h"
#include "support/mesh_check.h"
#include "support/mesh_scenes.h"
#include "support/test_scale.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_module/ctx_helpers.h"

namespace {

TEST(GasGeometryBvh4, finds_what_testing_every_polygon_finds) {
  QueryWorld world;
  for (uint seed = 0; seed < scaled(4, 1); ++seed) {
    for (const MeshScene& scene : make_mesh_scenes(300, seed)) {
      const BuiltMesh built(world, scene.data);
      HitCheck check = make_mesh_check(scene.data, make_rays(scene.data, scaled(400, 60), seed));
      check.name = scene.name + ", seed " + std::to_string(seed);
      check.check(world, built.structure);
      if (scene.name != "slivers" && scene.name != "one" && scene.name != "five") {
        EXPECT_GT(check.count_sure_hits(), check.rays.size() / 20) << check.name;
      }
    }
  }
}

TEST(GasGeometryBvh4, deep_trees_with_quantized_nodes_find_the_same) {
  QueryWorld world;
  // Triangles on a spiral into a point: each halving leaves a few, so that levels below the tenth exist.
  RandomValues random(1);
  PolyMeshData data;
  for (uint k = 0; k < 6000; ++k) {
    const double size = std::pow(0.997, k % 3000);
    const GMathVec3<double> a = random.get_vec() * size;
    add_loose_polygon(data, {GMathVec3<float>(a), GMathVec3<float>(a + random.get_vec(0.2 * size)),
                             GMathVec3<float>(a + random.get_vec(0.2 * size))});
  }
  add_motion(data, 2, 0.0, 1.0, 3, true);
  const BuiltMesh built(world, data);
  ASSERT_GT(built.structure.get_tree().quantized_count, 100u);
  const CtxMotionBlur shutter(0.0, 1.0, 2);
  std::vector<TestRay> rays = make_rays(data, scaled(150, 20), 5);
  for (uint k = 0; k < rays.size(); ++k) rays[k].time = k % 5 * 0.25;
  for (const CtxMotionBlur* motion_blur : {static_cast<const CtxMotionBlur*>(nullptr), &shutter}) {
    HitCheck check = make_mesh_check(data, rays, motion_blur);
    check.check(world, built.structure);
    EXPECT_GT(check.count_sure_hits(), 0u);
  }
}

TEST(GasGeometryBvh4, moving_meshes_are_found_where_they_are_at_the_time_of_the_ray) {
  QueryWorld world;
  for (const uint shutter_samples : {1u, 2u, 3u, 8u}) {
    const CtxMotionBlur motion_blur(0.0, shutter_samples == 1 ? 0.0 : 1.0, shutter_samples);
    // The mesh's own samples: as the shutter's, coarser, one only, finer.
    for (const uint samples : {shutter_samples, 2u, 1u, 7u}) {
      const double begin = samples == 1 && shutter_samples > 1 ? 0.5 : 0.0, step = 1.0 / std::max(samples - 1.0, 1.0);
      uint seed = shutter_samples;
      for (MeshScene& scene : make_mesh_scenes(80, 11)) {
        if (scene.name == "huge" || scene.name == "tiny" || scene.name == "far away") continue;
        add_motion(scene.data, samples, begin, step, ++seed, scene.name == "stars");
        const BuiltMesh built(world, scene.data);
        std::vector<TestRay> rays = make_rays(built.data, scaled(60, 10), seed);
        // On samples, between them, before and after the shutter.
        const double times[] = {0.0, 1.0, 0.5, 1.0 / 7.0, 0.123, -0.5, 1.5};
        // A shutter that does not open knows where things are at its one moment only.
        for (uint k = 0; k < rays.size(); ++k) rays[k].time = shutter_samples > 1 ? times[k % 7] : 0.0;
        HitCheck check = make_mesh_check(scene.data, rays, &motion_blur);
        check.name =
            scene.name + ", samples " + std::to_string(samples) + ", shutter " + std::to_string(shutter_samples);
        check.check(world, built.structure);
        // Rays without a time see the mesh at rest, which no sample need be.
        make_mesh_check(scene.data, make_rays(built.data, scaled(20, 5), seed + 1)).check(world, built.structure);
      }
    }
  }
}

// Written by several threads, then anew after the mesh's samples and their number have changed.
TEST(GasGeometryBvh4, records_are_those_of_the_mesh_as_it_is) {
  QueryWorld world(8, 4);
  const CtxMotionBlur motion_blur(0.0, 1.0, 3);
  const PolyMeshData at_rest = make_soup(5000, 61);
  PolyMesh mesh, plain_mesh;
  GasGeometryBvh4 structure, plain;
  CoreString error;
  uint hits_at_rest = 0;
  for (const uint samples : {2u, 4u, 3u, 5u, 2u}) {
    PolyMeshData data = at_rest;
    add_motion(data, samples, 0.0, 1.0 / (samples - 1), samples, false);
    ASSERT_TRUE(plain_mesh.create(PolyMeshData(data), error) &&
                plain.create(world.ctx, &plain_mesh, &plain_mesh, nullptr));
    data.least_recorded_triangles = 0;
    ASSERT_TRUE(mesh.create(PolyMeshData(data), error));
    if (structure.get_kept_count() == 0) {
      AppProgressBar* bar = world.app.create_progress_bar("test");
      ASSERT_TRUE(structure.create(world.ctx, &mesh, &mesh, bar));
      bar->finish();
    } else {
      structure.dirty_motion_blur();
    }
    EXPECT_EQ(structure.get_record_bytes(), samples <= 4 ? u64{5000} * 36 * samples : 0);
    std::vector<TestRay> rays = make_rays(data, scaled(300, 60), samples);
    for (uint k = 0; k < rays.size(); ++k) rays[k].time = 0.13 * (k % 8);
    make_mesh_check(data, rays, &motion_blur).check(world, structure);
    GasGeometryBvh4 copy(structure);
    copy.dirty_motion_blur();
    EXPECT_EQ(copy.get_record_bytes(), structure.get_record_bytes());
    make_mesh_check(data, rays, &motion_blur).check(world, copy);
    // At a time that is not a number the mesh is at rest.
    for (TestRay& ray : rays) {
      ray.time = std::nan("");
      const double found = shoot(world, structure, ray, &motion_blur).distance;
      ASSERT_EQ(found, shoot(world, plain, ray, &motion_blur).distance) << describe(ray);
      hits_at_rest += found < DBL_MAX ? 1 : 0;
    }
  }
  EXPECT_GT(hits_at_rest, 50u);
}

// Leaves of two groups, which look up the group of each.
TEST(GasGeometryBvh4, records_that_cannot_be_written_are_not_read) {
  QueryWorld world(2);
  FakeGeometry row(2);
  row.add_row(20);
  row.moves = true;
  row.groups.assign(20, 0);
  row.groups[7] = 1;
  const auto check = [&](auto&& structure) {
    row.can_write_records = true;
    ASSERT_TRUE(structure.create(world.ctx, &row, &row, nullptr));
    EXPECT_EQ(structure.get_record_bytes(), 20 * sizeof(uint));
    row.can_write_records = false;
    structure.dirty_motion_blur();
    EXPECT_EQ(structure.get_record_bytes(), 0u);
    for (uint k = 0; k < 20; ++k)
      EXPECT_EQ(shoot(world, structure, {{2.0 * k + 0.5, 0.4, -1.0}, {1e-3, 1e-3, 1.0}}).primitive, k);
  };
  check(GasGeometryBvh4());
  check(GasFur());
}

TEST(GasGeometryBvh4, groups_that_are_not_shaded_are_not_hit) {
  QueryWorld world(9);
  PolyMeshData data = make_soup(300, 8);
  data.group_names.assign(6, CoreString("group"));
  for (uint p = 0; p < 300; ++p) data.polygon_groups.push_back(p * 7 % 6);
  const BuiltMesh built(world, data);
  ShadingGroupLinks empty;
  empty.material = ShadingGroupLinks::material_empty;
  world.entries = {&world.links[0], nullptr, &empty, &world.links[0], &empty, &world.links[0], nullptr};
  world.shading = ShadingGroupTable(world.entries);
  const std::vector<TestRay> rays = make_rays(built.data, 200, 9);
  for (const uint offset : {0u, 1u, 3u, 50u}) {
    HitCheck check = make_mesh_check(data, rays, nullptr, [&](uint p) {
      const uint group = data.polygon_groups[p] + offset;
      return group != 0 && group != 3 && group != 5;
    });
    check.name = "offset " + std::to_string(offset);
    check.group_offset = offset;
    check.check(world, built.structure);
    EXPECT_EQ(check.reported == 0, offset == 50u);
    // The recorded group is the scene's.
    GeometryRayPacket packet;
    check.ask(world, built.structure, packet, false);
    for (const GeometryHit& at : packet.get_hits().get_hits())
      EXPECT_EQ(at.hit.shading_group, data.polygon_groups[at.hit.primitive] + offset);
  }
}

TEST(GasGeometryBvh4, groups_are_those_of_the_geometry_that_is_hit) {
  QueryWorld world;
  FakeGeometry base, hit(2);
  for (FakeGeometry* row : {&base, &hit}) row->add_row(10);
  for (uint k = 0; k < 10; ++k) hit.groups.push_back(k % 2);
  world.entries = {&world.links[0], nullptr};
  world.shading = ShadingGroupTable(world.entries);
  GasGeometryBvh4 structure;
  ASSERT_TRUE(structure.create(world.ctx, &base, &hit, nullptr));
  for (uint k = 0; k < 10; ++k) {
    const auto found = shoot(world, structure, {{2.0 * k + 0.5, 0.4, -1.0}, {1e-3, 1e-3, 1.0}});
    EXPECT_EQ(found.geometry, k % 2 == 0 ? &hit : nullptr) << k;
  }
}

TEST(GasGeometryBvh4, wireframes_are_filtered_once_unless_an_instance_is_shown_otherwise) {
  QueryWorld world;
  PolyMeshData data;
  add_loose_polygon(data, {{0, 0, 0}, {4, 0, 0}, {0, 4, 0}});
  data.render_mode = GeometryObject::render_mode_wireframe;
  const BuiltMesh built(world, data);
  GeometryOverride shown;
  GeometryIntersectionPath path;
  path.add({0, nullptr, &shown});
  // How many filters stand while the one triangle is tested, of a query that begins with `filters`.
  const auto count_filters = [&](const std::vector<GeometryFilterFunction>& filters, bool in_path) {
    uint seen = 0;
    const auto adjust = [&](GeometryRaytraceCtx& query) {
      for (const GeometryFilterFunction filter : filters) query.push_filter({filter, 0.8, 0.5, 1, nullptr});
      if (in_path) query.path = &path;
      query.primitive_filter_user = &seen;
      query.primitive_filter = [](const GeometryRaytraceCtx& asked, const uint&, void* user) {
        *static_cast<uint*>(user) = asked.get_filter_count();
        return true;
      };
    };
    GeometryRayPacket packet;
    ask_rays(world, built.structure, packet, {{{1, 1, 1}, {0, 0, -1}}}, {.adjust = adjust});
    return seen;
  };
  const auto wires = CtxHelpers::filter_wireframes_callback, clip = CtxHelpers::filter_clip_map_callback;
  EXPECT_EQ(count_filters({}, false), 1u);
  EXPECT_EQ(count_filters({clip}, false), 2u);
  EXPECT_EQ(count_filters({wires}, false), 1u);
  EXPECT_EQ(count_filters(std::vector(GeometryRaytraceCtx::filter_capacity, clip), false), 8u);
  EXPECT_EQ(count_filters({}, true), 1u);
  shown.has_render_mode = true;
  EXPECT_EQ(count_filters({}, true), 0u);
  shown.render_mode = GeometryObject::render_mode_wireframe;
  EXPECT_EQ(count_filters({}, true), 1u);
}

TEST(GasGeometryBvh4, clip_maps_and_wireframes_cut_hits_away) {
  QueryWorld world;
  const ClipMap clip_map(2, 1, {255, 0});  // opaque where u < 0.5
  PolyMeshData data = make_soup(200, 21, 0.8);
  GeometryUvMap uv;
  uv.positions = {{0, 0, 0}, {1, 0, 0}};
  for (uint p = 0; p < 200; ++p) uv.corner_positions.insert(uv.corner_positions.end(), {0, 1, 0});
  data.uv_maps = {uv};  // u of the map is the weight of the second corner
  const std::vector<TestRay> rays = make_rays(data, 200, 22);
  const BuiltMesh plain(world, data);
  GeometryRayPacket whole, cut, nearest;
  ask_rays(world, plain.structure, whole, rays, {.nearest = false});
  for (const bool wireframe : {false, true}) {
    data.render_mode = wireframe ? GeometryObject::render_mode_wireframe : 0;
    const BuiltMesh built(world, data);
    for (const bool clipped : {false, true}) {
      world.links[0].clip_map = clipped ? &clip_map : nullptr;
      ask_rays(world, built.structure, cut, rays, {.nearest = false});
      ask_rays(world, built.structure, nearest, rays);
      // Of all hits exactly those are left whose weights say so.
      std::map<std::pair<uint, uint>, double> expected, found;
      std::vector<double> first(rays.size(), HUGE_VAL);
      for (const GeometryHit& at : whole.get_hits().get_hits()) {
        const double proximity = 1.0 - 3.0 * std::min({1.0 - at.hit.u - at.hit.v, at.hit.u, at.hit.v});
        if ((clipped && at.hit.u - std::floor(at.hit.u) >= 0.5) || (wireframe && proximity < 0.8)) continue;
        expected[{at.ray, at.hit.primitive}] = wireframe ? 0.5 + 0.5 * (proximity - 0.8) / 0.2 : 1.0;
        first[at.ray] = std::min(first[at.ray], at.hit.distance);
      }
      EXPECT_EQ(expected.size() + 20 < whole.get_hits().get_hits().size(), clipped || wireframe);
      for (const GeometryHit& at : cut.get_hits().get_hits()) found[{at.ray, at.hit.primitive}] = at.hit.weight;
      ASSERT_EQ(found.size(), expected.size());
      for (const auto& [key, weight] : found) EXPECT_NEAR(weight, expected[key], 1e-12);
      for (uint k = 0; k < rays.size(); ++k)
        EXPECT_EQ(nearest.get_nearest(k).distance, std::min(first[k], rays[k].tfar)) << k;
    }
  }
}

TEST(GasGeometryBvh4, copies_answer_for_themselves) {
  QueryWorld world;
  PolyMeshData data = make_soup(300, 41);
  const PolyMeshData other_data = make_soup(50, 44);
  const u64 bytes_without_records = BuiltMesh(world, data).structure.get_memory_size();
  data.least_recorded_triangles = 300;
  BuiltMesh first(world, data), other(world, other_data);
  EXPECT_EQ(first.structure.get_memory_size(), bytes_without_records + 300 * 36);
  const GasGeometryBvh4 copy(first.structure);
  GasGeometryBvh4 assigned(other.structure);
  assigned = first.structure;
  assigned = *&assigned;
  EXPECT_EQ(copy.get_memory_size(), first.structure.get_memory_size());
  first.structure = other.structure;  // what was copied goes; its mesh stays
  HitCheck check = make_mesh_check(data, make_rays(data, 200, 43));
  EXPECT_GT(check.count_sure_hits(), 20u);
  for (const GasGeometryBvh4* structure : {&copy, &std::as_const(assigned)}) check.check(world, *structure);
  make_mesh_check(other_data, make_rays(other_data, 100, 45)).check(world, first.structure);
}

}  // namespace
