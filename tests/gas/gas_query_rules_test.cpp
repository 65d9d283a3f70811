// What a query owes its caller whatever it was used for before: times, kinds of hits, shading, counts.
#include <gtest/gtest.h>

#include "support/curve_check.h"
#include "support/ray_query.h"
#include "support/scene_worlds.h"
#include "vq_geometry/displaced_mesh.h"
#include "vq_geometry/displaced_mesh_height.h"
#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

using Vec = GMathVec3<double>;

PolyMeshData make_moving_soup() {
  PolyMeshData data = make_soup(50, 3);
  for (GMathVec3<float>& position : data.positions) position.z *= 0.01f;
  data.motion_positions.assign(2, data.positions);
  for (GMathVec3<float>& position : data.motion_positions[1]) position.z -= 5;
  return data;
}

/// Asks again with the same context.
double ask_again(GeometryRaytraceCtx& query, double time, const std::function<void()>& ask) {
  const_cast<GeometryRayInterval*>(query.intervals)[0].time = time;
  query.map->get_record(0) = GeometryIntersection();
  ask();
  return query.map->get_record(0).distance;
}

bool reject_third(const CtxEval&, CtxShader&, GeometryRaytraceCtx&, GeometryIntersection& hit,
                  const GeometryRaytraceFilter&) {
  return hit.primitive % 3 != 0;
}

/// Leaves that each ray visits, and its record.
struct RayTrail {
  uint leaves = 0;
  GeometryIntersection record;
};

std::vector<RayTrail> follow_rays(QueryWorld& world, const GasObject& structure, const std::vector<TestRay>& rays,
                                  const CtxMotionBlur* blur, bool any_hit, bool is_filtered, bool is_counted = true) {
  std::vector<GeometryRayVisits> visits(rays.size());
  GeometryRayPacket packet;
  ask_rays(world, structure, packet, rays, {true, blur, [&](GeometryRaytraceCtx& query) {
                                              query.visits = is_counted ? visits.data() : nullptr;
                                              query.settings.any_hit = any_hit;
                                              if (is_filtered) query.push_filter({reject_third});
                                            }});
  std::vector<RayTrail> trails;
  for (uint k = 0; k < rays.size(); ++k) trails.push_back({visits[k].leaves, packet.get_nearest(k)});
  return trails;
}

}  // namespace

TEST(GasQueryRules, a_context_is_asked_again_at_other_times_and_at_rest) {
  QueryWorld world;
  const CtxMotionBlur blur(0.0, 1.0, 2);
  world.ctx.set_motion_blur(&blur);
  world.shader.motion_blur = &blur;
  const SceneShape moving(world, make_moving_soup()), still(world, make_soup(50, 3));
  std::vector<SceneNode> nodes;
  nodes.push_back(make_node(still, {{0.0, {}}, {1.0, make_translation({0, 0, -5})}}));
  const auto scene = build_scene(world, nodes);
  for (const GasObject* structure :
       {static_cast<const GasObject*>(moving.structure.get()), static_cast<const GasObject*>(scene.get())}) {
    const Vec center = Vec(still.data.positions[0] + still.data.positions[1] + still.data.positions[2]) * (1.0 / 3);
    GeometryRayPacket packet;
    packet.resize(1);
    packet.set_ray(0, {center.x, center.y, 20}, {0, 0, -1}, 0, DBL_MAX, 0.5);
    GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
    const auto ask_moving = [&] { structure->ray_hit_nearest_motion(world.ctx, world.shader, query); };
    const auto ask_static = [&] { structure->ray_hit_nearest_static(world.ctx, world.shader, query); };
    const double at_rest = ask_again(query, 0.0, ask_static);
    ASSERT_LT(at_rest, 30.0);
    EXPECT_NEAR(ask_again(query, 0.0, ask_moving), at_rest, 1e-6);
    EXPECT_NEAR(ask_again(query, 1.0, ask_moving), at_rest + 5, 1e-6);
    EXPECT_NEAR(ask_again(query, 0.4, ask_moving), at_rest + 2, 1e-6);
    EXPECT_EQ(ask_again(query, 0.4, ask_static), at_rest);
  }
}

TEST(GasQueryRules, any_hit_is_found_where_there_is_a_nearest_and_ends_its_ray) {
  QueryWorld world(64);
  const CtxMotionBlur blur(0.0, 1.0, 2);
  world.ctx.set_motion_blur(&blur);
  PolyMeshData soup = make_soup(400, 5);
  add_motion(soup, 2, 0.0, 1.0, 5);
  const BothMesh mesh(world, soup);
  CurveData hair = make_hair(CurveBasis::linear, 200, 1);
  add_motion(hair, 2, 0.0, 1.0, 2);
  const BuiltFur fur(world.ctx, hair);
  SceneMaker maker(world, 3, SceneMotion::deforming, true);
  std::vector<SceneNode> nodes = maker.make(12, 2);
  const auto scene = build_scene(world, nodes);
  const BuiltMesh ball(world, make_sphere(2));
  DisplacedMesh displaced;
  CoreString error;
  ASSERT_TRUE(displaced.create(
      ball.mesh, {std::make_shared<GeometryNoiseHeight>(GeometryNoiseSettings()), 0.2, 40, u64{1} << 24}, error));
  GasGeometry displaced_ball;
  ASSERT_TRUE(displaced_ball.create(world.ctx, &displaced, &displaced, nullptr));
  std::vector<TestRay> rays = make_rays(soup, 3000, 7);
  for (uint k = 0; k < rays.size(); ++k) rays[k].time = (k % 11) * 0.1;
  for (const GasObject* structure :
       {static_cast<const GasObject*>(&mesh.structure), static_cast<const GasObject*>(&mesh.grid),
        static_cast<const GasObject*>(&displaced_ball), static_cast<const GasObject*>(&fur.structure),
        static_cast<const GasObject*>(scene.get())}) {
    for (const uint kind : {0, 1, 2, 3}) {
      if (kind >= 2 && structure == scene.get()) continue;  // filters belong to the query of one structure
      const CtxMotionBlur* motion = kind % 2 == 0 ? nullptr : &blur;
      const bool is_filtered = kind >= 2;
      const auto nearest = follow_rays(world, *structure, rays, motion, false, is_filtered);
      const auto any = follow_rays(world, *structure, rays, motion, true, is_filtered);
      const auto uncounted = follow_rays(world, *structure, rays, motion, true, is_filtered, false);
      uint hits = 0, nearest_leaves = 0, any_leaves = 0;
      for (uint k = 0; k < rays.size(); ++k) {
        const bool is_hit = nearest[k].record.geometry != nullptr;
        ASSERT_EQ(any[k].record.geometry != nullptr, is_hit) << describe(rays[k]);
        ASSERT_EQ(uncounted[k].record.geometry, any[k].record.geometry) << describe(rays[k]);
        ASSERT_EQ(uncounted[k].record.primitive, any[k].record.primitive) << describe(rays[k]);
        EXPECT_EQ(any[k].record.distance, is_hit ? GeometryIntersection::any_distance : rays[k].tfar);
        hits += is_hit;
        nearest_leaves += nearest[k].leaves;
        any_leaves += any[k].leaves;
      }
      EXPECT_GT(hits, rays.size() / 20);
      EXPECT_TRUE(any_leaves < nearest_leaves || structure == &displaced_ball);
    }
  }
}

TEST(GasQueryRules, a_packet_may_be_asked_in_parts) {
  QueryWorld world;
  const CtxMotionBlur blur(0.0, 1.0, 2);
  world.shader.motion_blur = &blur;
  const SceneShape moving(world, make_moving_soup());
  const PolyMeshData& data = moving.data;
  const Vec center = Vec(data.positions[0] + data.positions[1] + data.positions[2]) * (1.0 / 3);
  GeometryRayPacket packet;
  packet.resize(2);
  for (uint k = 0; k < 2; ++k) packet.set_ray(k, {center.x, center.y, 20}, {0, 0, -1}, 0, DBL_MAX, 0.2 + 0.6 * k);
  GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
  for (uint k = 0; k < 2; ++k) {
    query.first_ray = query.last_ray = k;
    moving.structure->ray_hit_nearest_motion(world.ctx, world.shader, query);
  }
  EXPECT_NEAR(packet.get_nearest(1).distance - packet.get_nearest(0).distance, 3.0, 1e-6);
}

TEST(GasQueryRules, a_context_of_the_other_kind_finds_nothing) {
  QueryWorld world;
  const CtxMotionBlur blur(0.0, 1.0, 2);
  world.shader.motion_blur = &blur;
  const SceneShape shape(world, make_moving_soup());
  const BuiltFur fur(world.ctx, make_hair(CurveBasis::linear, 60, 1));
  std::vector<SceneNode> nodes;
  nodes.push_back(make_node(shape));
  const auto scene = build_scene(world, nodes);
  GeometryRayPacket packet;
  packet.resize(20);
  for (uint k = 0; k < 20; ++k) packet.set_ray(k, {0.1 * k - 1, 0.05, 20}, {0, 0, -1});
  for (const GasObject* structure :
       {static_cast<const GasObject*>(shape.structure.get()), static_cast<const GasObject*>(&fur.structure),
        static_cast<const GasObject*>(scene.get())}) {
    structure->ray_hit_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
    structure->ray_hit_motion(world.ctx, world.shader, packet.begin_nearest(world.shading));
    for (uint k = 0; k < 20; ++k) EXPECT_EQ(packet.get_nearest(k).geometry, nullptr);
    structure->ray_hit_nearest_static(world.ctx, world.shader, packet.begin_all_hits(world.shading));
    structure->ray_hit_nearest_motion(world.ctx, world.shader, packet.begin_all_hits(world.shading));
    EXPECT_TRUE(packet.get_hits().get_hits().empty());
  }
}

// All that is tested lies inside; what is not shaded lies outside, alone in its part of the tree.
TEST(GasQueryRules, mode_all_counts_what_is_tested) {
  QueryWorld world(4);
  PolyMeshData data = make_sphere(2);
  const uint polygons = static_cast<uint>(data.polygon_sizes.size());
  const PolyMeshData away = transformed(make_sphere(2), 1.0f, {10, 0, 0});
  const u32 first = static_cast<u32>(data.positions.size());
  data.positions.insert(data.positions.end(), away.positions.begin(), away.positions.end());
  for (const u32 vertex : away.polygon_vertices) data.polygon_vertices.push_back(first + vertex);
  data.polygon_sizes.insert(data.polygon_sizes.end(), away.polygon_sizes.begin(), away.polygon_sizes.end());
  data.group_names.assign(2, CoreString("group"));
  data.polygon_groups.assign(polygons, 0);
  data.polygon_groups.resize(2 * polygons, 1);
  const BuiltMesh built(world, data);
  for (const bool away_is_shaded : {false, true}) {
    world.entries[1] = away_is_shaded ? &world.links[1] : nullptr;
    world.shading = ShadingGroupTable(world.entries);
    GeometryFrustumCtx query;
    query.mode = static_cast<uint>(GeometryFrustumMode::all);
    query.shading = &world.shading;
    query.add_plane({{5, 0, 0}, {-1, 0, 0}});
    built.structure.frustum_hit(world.ctx, world.shader, query);
    EXPECT_EQ(query.result.outside, away_is_shaded ? 1 : 0);
    EXPECT_EQ(query.result.hit_count, polygons);
    EXPECT_EQ(query.result.total, away_is_shaded ? 2 * polygons : polygons);
  }
}

// A cube of unit quadrilaterals, and rays exactly through its vertices, edges and diagonals. Alone, cut into clusters,
// as two objects that touch, and in bundles in bundles; at rest and moving.
TEST(GasQueryRules, hits_on_an_edge_are_counted_once_when_asked_for) {
  constexpr int side = 8;
  QueryWorld world;
  PolyMeshData cube;
  for (uint axis = 0; axis < 3; ++axis) {
    for (const int at : {0, side}) {
      // Sides of the cube share edges of positions, not of vertices: rays stay off them.
      const u32 first = static_cast<u32>(cube.positions.size());
      for (int k = 0; k < (side + 1) * (side + 1); ++k) {
        GMathVec3<float> corner;
        corner[axis] = float(at);
        corner[(axis + 1) % 3] = float(k % (side + 1));
        corner[(axis + 2) % 3] = float(k / (side + 1));
        cube.positions.push_back(corner);
      }
      for (u32 k = 0; k < side * side; ++k) {
        const u32 corner = first + k / side * (side + 1) + k % side;
        cube.polygon_sizes.push_back(4);
        cube.polygon_vertices.insert(cube.polygon_vertices.end(),
                                     {corner, corner + 1, corner + side + 2, corner + side + 1});
      }
    }
  }
  cube.motion_positions.assign(2, cube.positions);
  for (GMathVec3<float>& position : cube.motion_positions[1]) position.z += 4;
  const CtxMotionBlur blur(0.0, 1.0, 2);
  world.ctx.set_motion_blur(&blur);
  world.shader.motion_blur = &blur;
  const SceneShape shape(world, cube);
  std::vector<SceneNode> two, nested;
  for (const double z : {0.0, 64.0}) two.push_back(make_node(shape, {{0.0, make_translation({0, 0, z})}}));
  for (const double z : {0.0, 16.0}) {
    SceneNode bundle;
    bundle.is_bundle = true;
    bundle.keys = {{0.0, make_translation({0, 0, z})}};
    bundle.children = {make_node(shape), make_node(shape, {{0.0, make_translation({0, 0, 32})}})};
    nested.push_back(bundle);
  }
  const auto scene = build_scene(world, two), bundles = build_scene(world, nested);
  struct Case {
    const GasObject* structure;
    uint surfaces;
  };
  for (const auto& [structure, surfaces] : {Case{shape.structure.get(), 2}, {scene.get(), 4}, {bundles.get(), 8}}) {
    for (const bool moving : {false, true}) {
      uint merged = 0, all = 0;
      for (int k = 1; k < 4 * (side - 1); ++k) {
        GeometryRayPacket packet;
        packet.resize(1);
        const double x = 0.25 * k, y = k % 2 == 0 ? x : 0.5 * (k % (2 * side - 2) + 1);
        packet.set_ray(0, {x, y, 200}, {0, 0, -1}, 0.0, DBL_MAX, 0.5);
        for (const bool merges : {false, true}) {
          GeometryRaytraceCtx& query = packet.begin_all_hits(world.shading);
          query.settings.merge_edge_hits = merges;
          if (moving)
            structure->ray_hit_motion(world.ctx, world.shader, query);
          else
            structure->ray_hit_static(world.ctx, world.shader, query);
          const uint count = static_cast<uint>(packet.get_hits().get_hits().size());
          (merges ? merged : all) += count;
          ASSERT_TRUE(!merges || count == surfaces) << x << ' ' << y << ": " << count;
        }
      }
      EXPECT_GT(all, merged) << "rays on edges have several hits otherwise";
    }
  }
}
