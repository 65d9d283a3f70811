// Query records: filters, the lifting of nested hits, hit lists, paths, frustum planes and motion spans.
#include <limits>

#include "host/mesh_shots.h"
#include "support/random_values.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_module/ctx_helpers.h"

namespace {

using Vec = GMathVec3<double>;
using Matrix = GMathMatrix4x4<double>;

Matrix make_matrix(RandomValues& random) {
  Matrix matrix;
  for (uint r = 0; r < 3; ++r)
    for (uint c = 0; c < 4; ++c) matrix.m[r][c] = random.get(-2, 2);
  return matrix;
}

void expect_same(const Matrix& a, const Matrix& b) {
  for (uint r = 0; r < 4; ++r)
    for (uint c = 0; c < 4; ++c) EXPECT_NEAR(a.m[r][c], b.m[r][c], 1e-9) << r << " " << c;
}

/// Planes z = 1, 2 and 3, listed from behind, with UV equal to x and y, each a shading group of its own.
void create_sheets(PolyMesh& mesh) {
  PolyMeshData data = make_polygons(
      {{-9, -9, 3}, {9, -9, 3}, {0, 9, 3}, {-9, -9, 2}, {9, -9, 2}, {0, 9, 2}, {-9, -9, 1}, {9, -9, 1}, {0, 9, 1}}, 3);
  data.group_names = {"a", "b", "c"};
  data.polygon_groups = {2, 1, 0};
  data.uv_maps = {{CoreString("map"), data.positions, data.polygon_vertices}};
  create(mesh, std::move(data));
}

bool note_call(const CtxEval&, CtxShader&, GeometryRaytraceCtx&, GeometryIntersection&,
               const GeometryRaytraceFilter& filter) {
  auto* calls = static_cast<std::vector<double>*>(const_cast<void*>(filter.user));
  calls->push_back(filter.a);
  return true;
}

TEST(RaytraceFilter, runs_last_pushed_first_and_no_more_than_fit) {
  QueryWorld world;
  PolyMesh mesh;
  create_sheets(mesh);
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {0, 0, 0}, {0, 0, 1}, 1.5, 2.5);
  GeometryRaytraceCtx& query = packet.begin_all_hits(world.shading);
  std::vector<double> calls;
  for (uint k = 0; k < GeometryRaytraceData::filter_capacity; ++k)
    EXPECT_TRUE(query.push_filter({note_call, 1.0 * k, 0.0, 0, &calls}));
  EXPECT_FALSE(query.push_filter({note_call, 1.0, 0.0, 0, nullptr}));
  query.pop_filter();
  test_primitives(world, mesh, query);
  EXPECT_EQ(calls, (std::vector<double>{6, 5, 4, 3, 2, 1, 0}));  // once: the other sheets are outside the interval
  EXPECT_EQ(packet.get_hits().get_hits().size(), 1u);
}

TEST(RaytraceFilter, clip_map_cuts_away_where_it_is_clear_and_the_ray_goes_on) {
  QueryWorld world;
  PolyMesh mesh;
  create_sheets(mesh);
  const ClipMap clip_map(2, 1, {0, 255});  // clear for u in [0, 0.5), opaque in [0.5, 1), repeated
  world.links[0].clip_map = &clip_map;
  GeometryRayPacket packet;
  packet.resize(2);
  packet.set_ray(0, {0.25, 0, 0}, {0, 0, 1});
  packet.set_ray(1, {0.75, 0, 0}, {0, 0, 1});
  GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
  query.push_filter({CtxHelpers::filter_clip_map_callback, 0.0, 0.0, 1, nullptr});
  test_primitives(world, mesh, query);
  EXPECT_EQ(packet.get_nearest(0).distance, 2.0);  // stopped by the second sheet, which has no map
  EXPECT_EQ(packet.get_nearest(0).shading_group, 1u);
  EXPECT_EQ(packet.get_nearest(1).distance, 1.0);
}

TEST(IntersectionMap, lifts_only_hits_from_one_level_deeper) {
  RandomValues random(1);
  PolyMesh mesh;
  const Matrix inner = make_matrix(random), outer = make_matrix(random);
  const Matrix inner2 = make_matrix(random), outer2 = make_matrix(random);
  GeometryNearestHits hits;
  hits.resize(3);
  GeometryIntersectionMap level0(hits, 0), level1(hits, 1);
  for (uint ray = 0; ray < 3; ++ray) {
    level0.get_record(ray).geometry = ray == 2 ? nullptr : &mesh;
    level0.get_record(ray).level = ray == 0 ? 2 : 1;
  }
  level0.transform_path(0, outer, 0);  // still two levels deeper
  EXPECT_EQ(level0.get_path(0).transform, core_invalid_index);
  for (uint ray = 0; ray < 3; ++ray) level1.transform_path(ray, inner, 1);
  EXPECT_EQ(level0.get_path(1).transform, core_invalid_index);  // was in that level's space already
  level0.transform_path(0, outer, outer2, 0);
  level0.transform_path(0, outer, outer2, 0);  // another leaf of the same level: nothing left to do
  level0.transform_path(1, outer, 0);
  level0.transform_path(2, outer, 0);
  const GeometryHitTransform* transforms = hits.get_transforms();
  EXPECT_EQ(level0.get_path(0).level, 0u);
  expect_same(transforms[0].matrix, outer * inner);
  expect_same(transforms[0].matrix2, outer2 * inner);
  EXPECT_TRUE(transforms[0].has_vectors);
  EXPECT_FALSE(transforms[1].has_vectors);
  EXPECT_EQ(level0.get_path(2).transform, core_invalid_index);  // no hit, nothing to lift

  // Vectors from the inner level are carried on by an outer level that has none, and replaced by one that has.
  for (uint ray = 0; ray < 2; ++ray) {
    level0.get_record(ray).level = 2;
    level0.get_record(ray).transform = core_invalid_index;
    level1.transform_path(ray, inner, inner2, 1);
  }
  level0.transform_path(0, outer, 0);
  level0.transform_path(1, outer, outer2, 0);
  expect_same(transforms[0].matrix, outer * inner);
  expect_same(transforms[0].matrix2, outer * inner2);
  expect_same(transforms[1].matrix2, outer2 * inner2);
}

TEST(IntersectionPath, keeps_its_elements_when_it_outgrows_itself) {
  GeometryIntersectionPath path, copy;
  for (uint k = 0; k < 9; ++k) path.add({k, nullptr, nullptr});
  for (uint k = 9; k < 50; ++k) ASSERT_TRUE(path.add(path[3]));  // may lie in the block that growing frees
  ASSERT_TRUE(copy.copy_from(path));
  path.remove_all();
  ASSERT_EQ(copy.get_count(), 50u);
  for (uint k = 0; k < 50; ++k) EXPECT_EQ(copy[k].object_index, k < 9 ? k : 3);
}

TEST(Frustum, box_place_agrees_with_its_corners) {
  RandomValues random(4);
  uint outside = 0, inside = 0;
  for (uint k = 0; k < 20000; ++k) {
    GeometryFrustumCtx query;
    for (uint p = 0, count = 1 + random.get_index(4); p < count; ++p)
      query.add_plane(GeometryPlane(random.get_vec(2.0), random.get_vec()));
    GMathBbox3<float> box;
    box.add(random.get_vec<float>(1.0));
    box.add(random.get_vec<float>(1.0));
    uint corners_inside = 0;
    bool behind_one_plane = false;
    for (uint corner = 0; corner < 8; ++corner) corners_inside += query.contains(Vec(box.get_corner(corner)));
    for (uint p = 0; p < query.plane_count; ++p) {
      uint behind = 0;
      for (uint corner = 0; corner < 8; ++corner) behind += query.planes[p].measure(Vec(box.get_corner(corner))) < 0;
      behind_one_plane = behind_one_plane || behind == 8;
    }
    const GeometryBoxPlace expected = behind_one_plane      ? GeometryBoxPlace::outside
                                      : corners_inside == 8 ? GeometryBoxPlace::inside
                                                            : GeometryBoxPlace::straddling;
    EXPECT_EQ(query.classify(box), expected) << k;
    outside += behind_one_plane;
    inside += corners_inside == 8;
    GMathBbox3<float> bad = box;
    (k % 3 == 0 ? bad.min : bad.max)[k % 3] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(query.classify(bad), GeometryBoxPlace::straddling);
  }
  EXPECT_GT(outside, 100u);
  EXPECT_GT(inside, 100u);
}

TEST(MotionSpans, of_the_active_range_never_lead_beyond_the_last_sample) {
  QueryWorld world;
  GeometryRayPacket packet;
  packet.resize(5);
  const double times[5] = {-1.0, 0.25, 0.6, 1.0, 7.0};
  for (uint ray = 0; ray < 5; ++ray) packet.set_ray(ray, {}, {0, 0, 1}, 0.0, 1.0, times[ray]);
  const CtxMotionBlur open(0.0, 1.0, 3), closed(0.5, 0.5, 5);
  GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
  open.init_raytrace_ctx(query);
  const uint first[5] = {0, 0, 1, 1, 1};
  const double fraction[5] = {0.0, 0.5, 0.2, 1.0, 1.0};
  for (uint ray = 0; ray < 5; ++ray) {
    EXPECT_EQ(query.spans[ray].first, first[ray]);
    EXPECT_EQ(query.spans[ray].second, first[ray] + 1);
    EXPECT_NEAR(query.spans[ray].fraction, fraction[ray], 1e-12);
  }
  query.first_ray = 1;
  query.last_ray = 2;
  closed.init_raytrace_ctx(query);
  for (uint ray = 0; ray < 5; ++ray) EXPECT_EQ(query.spans[ray].second, ray == 1 || ray == 2 ? 0 : first[ray] + 1);
}

}  // namespace
