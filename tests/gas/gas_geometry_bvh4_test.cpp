// The mesh structure against brute force over all polygons: rays at rest and in motion, groups, clusters, packets.
#include "gas/gas_geometry_bvh4.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/mesh_scenes.h"
#include "support/query_world.h"
#include "support/ray_sets.h"
#include "support/structure_check.h"
#include "support/test_scale.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_core/core_log.h"

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// A mesh with a structure over it.
struct Built {
  Built(QueryWorld& world, const PolyMeshData& source) : data(source) {
    CoreLogHandler::get_main().set_level(0);  // broken meshes are meant to be broken
    CoreString error;
    EXPECT_TRUE(mesh.create(PolyMeshData(data), error)) << error.get_data();
    EXPECT_TRUE(structure.create(world.ctx, &mesh, &mesh, nullptr));
  }
  PolyMeshData data;
  PolyMesh mesh;
  GasGeometryBvh4 structure;
};

TEST(GasGeometryBvh4, finds_what_testing_every_polygon_finds) {
  QueryWorld world;
  CheckCounts total;
  for (uint seed = 0; seed < scaled(4, 1); ++seed) {
    for (const MeshScene& scene : make_mesh_scenes(300, seed)) {
      Built built(world, scene.data);
      StructureCheck check(world, built.structure, built.data);
      check.name = scene.name + ", seed " + std::to_string(seed);
      const CheckCounts counts = check.check(make_rays(built.data, scaled(400, 60), seed));
      total.sure_hits += counts.sure_hits;
      total.close_calls += counts.close_calls;
      total.rays += counts.rays;
      if (scene.name != "slivers" && scene.name != "one" && scene.name != "five") {
        EXPECT_GT(counts.sure_hits, counts.rays / 20) << check.name;
      }
    }
  }
  std::printf("%u rays, %u sure hits, %u close calls\n", total.rays, total.sure_hits, total.close_calls);
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
  PolyMeshData moving = data;
  add_motion(moving, 2, 0.0, 1.0, 3, true);
  Built still(world, data), moved(world, moving);
  ASSERT_GT(still.structure.get_tree().quantized_count, 100u);
  StructureCheck check(world, still.structure, still.data);
  check.name = "spiral";
  const CheckCounts counts = check.check(make_rays(still.data, scaled(150, 20), 5));
  EXPECT_GT(counts.sure_hits, counts.rays);

  const CtxMotionBlur motion_blur(0.0, 1.0, 2);
  StructureCheck moving_check(world, moved.structure, moved.data);
  moving_check.name = "moving spiral";
  moving_check.motion_blur = &motion_blur;
  std::vector<TestRay> rays = make_rays(moved.data, scaled(100, 15), 6);
  for (uint k = 0; k < rays.size(); ++k) rays[k].time = k % 5 * 0.25;
  EXPECT_GT(moving_check.check(rays).sure_hits, 0u);
}

TEST(GasGeometryBvh4, moving_meshes_are_found_where_they_are_at_the_time_of_the_ray) {
  QueryWorld world;
  for (const uint shutter_samples : {1u, 2u, 3u, 8u}) {
    const CtxMotionBlur motion_blur(0.0, shutter_samples == 1 ? 0.0 : 1.0, shutter_samples);
    // The mesh's own samples: as the shutter's, coarser, finer and beyond it, one only.
    const struct {
      uint samples;
      double begin, step;
    } rows[] = {{shutter_samples, 0.0, shutter_samples > 1 ? 1.0 / (shutter_samples - 1) : 1.0},
                {2, 0.0, 1.0},
                {4, -0.3, 0.5},
                {1, 0.5, 1.0}};
    for (const auto& row : rows) {
      uint seed = shutter_samples;
      for (MeshScene& scene : make_mesh_scenes(80, 11)) {
        if (scene.name == "huge" || scene.name == "tiny" || scene.name == "far away") continue;
        add_motion(scene.data, row.samples, row.begin, row.step, ++seed, scene.name == "stars");
        Built built(world, scene.data);
        StructureCheck check(world, built.structure, built.data);
        check.name =
            scene.name + ", samples " + std::to_string(row.samples) + ", shutter " + std::to_string(shutter_samples);
        check.motion_blur = &motion_blur;
        std::vector<TestRay> rays = make_rays(built.data, scaled(60, 10), seed);
        RandomValues random(seed);
        // On samples, between them, before and after the shutter.
        const double times[] = {0.0, 1.0, 0.5, 1.0 / 7.0, 3.0 / 7.0, random.get(0, 1), random.get(0, 1), -0.5, 1.5};
        for (uint k = 0; k < rays.size(); ++k) rays[k].time = times[k % 9];
        check.check(rays);
      }
    }
  }
}

TEST(GasGeometryBvh4, what_does_not_move_answers_timed_rays_and_computes_nothing) {
  QueryWorld world;
  Built built(world, make_soup(200, 3));
  StructureCheck check(world, built.structure, built.data);
  std::vector<TestRay> rays = make_rays(built.data, 100, 4);
  for (uint k = 0; k < rays.size(); ++k) rays[k].time = 0.01 * k;
  const CtxMotionBlur motion_blur(0.0, 1.0, 4);
  world.ctx.set_motion_blur(&motion_blur);
  const u64 size = built.structure.get_memory_size();  // brings the slots up to date
  check.motion_blur = &motion_blur;
  check.check(rays);
  EXPECT_EQ(built.structure.get_bbox_at(world.ctx, 0.3), built.structure.get_bbox());
  EXPECT_EQ(built.structure.get_memory_size(), size);
}

TEST(GasGeometryBvh4, groups_that_are_not_shaded_are_not_hit) {
  QueryWorld world(9);
  PolyMeshData data = make_soup(300, 8);
  data.group_names.assign(6, CoreString("group"));
  for (uint p = 0; p < 300; ++p) data.polygon_groups.push_back(p * 7 % 6);
  Built built(world, data);
  ShadingGroupLinks empty;
  empty.material = ShadingGroupLinks::material_empty;
  world.entries = {&world.links[0], nullptr, &empty, &world.links[0], &empty, &world.links[0], nullptr};
  world.shading = ShadingGroupTable(world.entries);
  for (const uint offset : {0u, 1u, 3u, 50u}) {
    StructureCheck check(world, built.structure, built.data);
    check.name = "offset " + std::to_string(offset);
    check.group_offset = offset;
    for (uint p = 0; p < 300; ++p) {
      const uint group = data.polygon_groups[p] + offset;
      check.hidden.push_back(group != 0 && group != 3 && group != 5);
    }
    const CheckCounts counts = check.check(make_rays(built.data, 200, 9));
    EXPECT_EQ(counts.reported == 0, offset == 50u);
  }
  // The recorded group is the scene's.
  GeometryRayPacket packet;
  StructureCheck check(world, built.structure, built.data);
  check.group_offset = 3;
  check.query(packet, make_rays(built.data, 200, 9), true);
  uint hits = 0;
  for (uint k = 0; k < 200; ++k) {
    const GeometryIntersection& hit = packet.get_nearest(k);
    if (hit.geometry == nullptr) continue;
    ++hits;
    EXPECT_EQ(hit.shading_group, data.polygon_groups[hit.primitive] + 3);
  }
  EXPECT_GT(hits, 10u);
  GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
  query.shading = nullptr;
  built.structure.ray_hit_nearest_static(world.ctx, world.shader, query);
  for (uint k = 0; k < 200; ++k) EXPECT_EQ(packet.get_nearest(k).geometry, nullptr);
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
  for (const bool clipped : {false, true}) {
    for (const bool wireframe : {false, true}) {
      data.render_mode = wireframe ? GeometryObject::render_mode_wireframe : 0;
      Built built(world, data);
      world.links[0].clip_map = clipped ? &clip_map : nullptr;
      StructureCheck check(world, built.structure, built.data);
      GeometryRayPacket whole, cut, nearest;
      world.links[0].clip_map = nullptr;
      Built plain(world, [&] {
        PolyMeshData copy = data;
        copy.render_mode = 0;
        return copy;
      }());
      StructureCheck(world, plain.structure, plain.data).query(whole, rays, false);
      world.links[0].clip_map = clipped ? &clip_map : nullptr;
      check.query(cut, rays, false);
      check.query(nearest, rays, true);
      // Of all hits exactly those are left whose weights say so.
      std::map<std::pair<uint, uint>, double> expected;
      std::vector<double> first(rays.size(), HUGE_VAL);
      uint dropped = 0;
      for (const GeometryHit& at : whole.get_hits().get_hits()) {
        const double least = std::min({1.0 - at.hit.u - at.hit.v, at.hit.u, at.hit.v});
        const double proximity = 1.0 - 3.0 * least;
        if ((clipped && at.hit.u - std::floor(at.hit.u) >= 0.5) || (wireframe && proximity < 0.8)) {
          ++dropped;
          continue;
        }
        expected[{at.ray, at.hit.primitive}] = wireframe ? 0.5 + 0.5 * (proximity - 0.8) / 0.2 : 1.0;
        first[at.ray] = std::min(first[at.ray], at.hit.distance);
      }
      ASSERT_EQ(dropped > 20, clipped || wireframe);
      EXPECT_EQ(cut.get_hits().get_hits().size(), expected.size());
      for (const GeometryHit& at : cut.get_hits().get_hits()) {
        ASSERT_TRUE(expected.contains({at.ray, at.hit.primitive}));
        EXPECT_NEAR(at.hit.weight, (expected[{at.ray, at.hit.primitive}]), 1e-12);
      }
      for (uint k = 0; k < rays.size(); ++k)
        EXPECT_EQ(nearest.get_nearest(k).distance, std::min(first[k], rays[k].tfar)) << k;
      world.links[0].clip_map = nullptr;
    }
  }
}

TEST(GasGeometryBvh4, numbers_that_are_none_hit_nothing_and_end) {
  QueryWorld world;
  const double inf = HUGE_VAL;
  for (const uint count : {1u, 2u, 5u, 300u}) {
    Built built(world, make_soup(count, 2, 1.0));
    for (const double bad : {nan, inf, -inf}) {
      GeometryRayPacket packet;
      packet.resize(9);
      for (uint axis = 0; axis < 3; ++axis) {
        GMathVec3<double> origin(0, 0, -2), direction(0.1, 0.1, 1);
        origin[axis] = bad;
        packet.set_ray(axis, origin, {0.1, 0.1, 1});
        direction[axis] = bad;
        packet.set_ray(3 + axis, {0, 0, -2}, direction);
      }
      packet.set_ray(6, {0, 0, 0}, {0, 0, 0});
      packet.set_ray(7, {0, 0, 0}, {-0.0, -0.0, -0.0});
      packet.set_ray(8, {0, 0, -2}, {0.1, 0.1, 1}, 5.0, 1.0);
      built.structure.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
      built.structure.ray_hit_static(world.ctx, world.shader, packet.begin_all_hits(world.shading));
      for (uint k = 0; k < 9; ++k) {
        // A direction of infinite length gets everywhere at distance 0.
        if (k >= 3 && k < 6 && !std::isnan(bad)) continue;
        EXPECT_EQ(packet.get_nearest(k).geometry, nullptr) << k << " " << bad;
        for (const GeometryHit& hit : packet.get_hits().get_hits()) EXPECT_NE(hit.ray, k) << bad;
      }
      packet.resize(2);
      packet.set_ray(0, {0, 0, -2}, {0.1, 0.1, 1}, nan);
      packet.set_ray(1, {0, 0, -2}, {0.1, 0.1, 1}, 0.0, nan);
      built.structure.ray_hit_static(world.ctx, world.shader, packet.begin_all_hits(world.shading));
      EXPECT_TRUE(packet.get_hits().get_hits().empty());
    }
  }
}

TEST(GasGeometryBvh4, packets_ask_for_their_active_rays_and_keep_their_range) {
  QueryWorld world;
  for (const uint count : {1u, 300u}) {  // a root leaf, which gets the whole range at once, and a tree
    Built built(world, make_soup(count, 5, count == 1 ? 3.0 : 0.3));
    const std::vector<TestRay> rays = make_rays(built.data, 40, 6);
    GeometryRayPacket whole, part;
    StructureCheck check(world, built.structure, built.data);
    check.query(whole, rays, true);
    check.query(part, rays, true);
    GeometryRaytraceCtx& query = part.begin_nearest(world.shading);
    query.first_ray = 7;
    query.last_ray = 31;
    built.structure.ray_hit_nearest_static(world.ctx, world.shader, query);
    EXPECT_EQ(query.first_ray, 7u);
    EXPECT_EQ(query.last_ray, 31u);
    uint hits = 0;
    for (uint k = 0; k < 40; ++k) {
      const bool active = k >= 7 && k <= 31;
      EXPECT_EQ(part.get_nearest(k).geometry, active ? whole.get_nearest(k).geometry : nullptr);
      if (!active) continue;
      EXPECT_EQ(part.get_nearest(k).primitive, whole.get_nearest(k).primitive);
      hits += part.get_nearest(k).geometry != nullptr;
    }
    EXPECT_GT(hits, 3u);
    GeometryRayPacket none;
    none.resize(0);
    built.structure.ray_hit_nearest_static(world.ctx, world.shader, none.begin_nearest(world.shading));
    built.structure.ray_hit_static(world.ctx, world.shader, none.begin_all_hits(world.shading));
    EXPECT_TRUE(none.get_hits().get_hits().empty());
  }
}

TEST(GasGeometryBvh4, stop_rules_end_each_ray_by_itself) {
  QueryWorld world;
  Built built(world, make_soup(300, 15, 1.5));
  const std::vector<TestRay> rays = make_rays(built.data, 60, 16);
  StructureCheck check(world, built.structure, built.data);
  GeometryRayPacket packet;
  const auto count_hits = [&] {
    check.query(packet, rays, false);
    std::vector<uint> counts(rays.size());
    for (const GeometryHit& hit : packet.get_hits().get_hits()) ++counts[hit.ray];
    return counts;
  };
  const std::vector<uint> all = count_hits();
  ASSERT_GT(*std::max_element(all.begin(), all.end()), 20u);
  for (const uint most : {1u, 3u, 1000u}) {
    packet.set_stop_rule(most);
    std::vector<uint> expected = all;
    for (uint& count : expected) count = std::min(count, most);
    EXPECT_EQ(count_hits(), expected) << most;
  }
  packet.set_stop_rule(1000, 2.0);  // every hit weighs 1
  std::vector<uint> expected = all;
  for (uint& count : expected) count = std::min(count, 2u);
  EXPECT_EQ(count_hits(), expected);
}

using HitSet = std::multiset<std::tuple<uint, uint, double>>;  // ray, polygon, distance

bool has_same_hits(uint ray, const HitSet& a, const HitSet& b) {
  const auto count = [&](const HitSet& set) {
    return std::distance(set.lower_bound({ray, 0, -HUGE_VAL}), set.lower_bound({ray + 1, 0, -HUGE_VAL}));
  };
  return count(a) == count(b);
}

TEST(GasGeometryBvh4, clusters_together_are_the_whole) {
  QueryWorld world;
  for (const uint count : {1u, 3u, 40u, 3000u}) {
    PolyMeshData data = count == 3000 ? make_clumps(30, 100, 31) : make_soup(count, 31, 0.2);
    add_motion(data, 3, 0.0, 0.5, 32, true);
    Built built(world, data);
    const CtxMotionBlur motion_blur(0.0, 1.0, 3);
    std::vector<TestRay> rays = make_rays(built.data, scaled(200, 50), 33);
    for (uint k = 0; k < rays.size(); ++k) rays[k].time = k % 11 * 0.1;
    for (const bool moving : {false, true}) {
      StructureCheck check(world, built.structure, built.data);
      if (moving) check.motion_blur = &motion_blur;
      GeometryRayPacket packet;
      const auto collect = [&](HitSet& into) {
        check.query(packet, rays, false);
        for (const GeometryHit& hit : packet.get_hits().get_hits())
          into.insert({hit.ray, hit.hit.primitive, hit.hit.distance});
      };
      HitSet whole;
      collect(whole);
      check.query(packet, rays, true);
      std::vector<double> nearest;
      for (uint k = 0; k < rays.size(); ++k) nearest.push_back(packet.get_nearest(k).distance);
      for (const uint wanted : {1u, 16u, 64u, 1024u}) {
        CoreVector<void*> clusters;
        built.structure.get_clusters(clusters, wanted, 0.0f);
        ASSERT_GE(clusters.get_count(), 1u);
        ASSERT_LE(clusters.get_count(), wanted);
        if (count == 3000 && wanted >= 16) {
          ASSERT_GE(clusters.get_count(), wanted == 16 ? 4u : 12u);
        }
        HitSet merged;
        std::vector<double> merged_nearest(rays.size(), HUGE_VAL);
        for (void* handle : clusters) {
          check.cluster = reinterpret_cast<u64>(handle);
          collect(merged);
          check.query(packet, rays, true);
          for (uint k = 0; k < rays.size(); ++k)
            merged_nearest[k] = std::min(merged_nearest[k], packet.get_nearest(k).distance);
        }
        check.cluster = 0;
        // A cluster that is one leaf has no box to be missed by rounding, so it may find what grazes an edge.
        for (const auto& hit : whole) EXPECT_EQ(merged.count(hit), 1u) << count << " " << wanted << " " << moving;
        for (const auto& hit : merged) {
          if (whole.contains(hit)) continue;
          const auto& [ray, polygon, distance] = hit;
          const auto corners = get_corners_at(data, polygon, moving ? rays[ray].time : nan);
          EXPECT_EQ(oracle_intersect(StructureCheck::get_oracle_ray(rays[ray]), corners).answer, OracleAnswer::close);
        }
        for (uint k = 0; k < rays.size(); ++k) {
          EXPECT_LE(merged_nearest[k], nearest[k]);
          EXPECT_TRUE(merged_nearest[k] == nearest[k] || !has_same_hits(k, merged, whole));
        }
        // A handle without the tag means the whole.
        check.cluster = 0x1234567890ull;
        HitSet untagged;
        collect(untagged);
        EXPECT_EQ(untagged, whole);
        check.cluster = u64{0xBC} << 56 | 0xFFFFFFF0u;
        HitSet stale;
        collect(stale);
        EXPECT_TRUE(stale.empty());
        check.cluster = 0;
      }
    }
  }
}

TEST(GasGeometryBvh4, copies_answer_for_themselves) {
  QueryWorld world;
  PolyMeshData data = make_soup(300, 41);
  add_motion(data, 2, 0.0, 1.0, 42, true);
  const CtxMotionBlur motion_blur(0.0, 1.0, 2);
  auto first = std::make_unique<Built>(world, data);
  std::vector<TestRay> rays = make_rays(data, 100, 43);
  for (uint k = 0; k < rays.size(); ++k) rays[k].time = 0.01 * k;
  StructureCheck(world, first->structure, data).check(rays);
  GasGeometryBvh4 copy(first->structure), assigned;
  Built other(world, make_soup(50, 44));
  assigned = other.structure;
  assigned = first->structure;
  assigned = *&assigned;
  // The source's structure goes; its mesh must stay.
  first->structure = other.structure;
  for (GasGeometryBvh4* structure : {&copy, &assigned}) {
    StructureCheck check(world, *structure, data);
    check.name = "copy";
    EXPECT_GT(check.check(rays).sure_hits, 20u);
    check.motion_blur = &motion_blur;
    EXPECT_GT(check.check(rays).sure_hits, 20u);
  }
  StructureCheck(world, first->structure, other.data).check(make_rays(other.data, 100, 45));
}

}  // namespace
