// Query records: filters, the lifting of nested hits, hit lists, paths, frustum planes and motion spans.
#include <gtest/gtest.h>

#include <limits>

#include "support/query_world.h"
#include "support/random_values.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_geometry/geometry_ray_packet.h"
#include "vq_geometry/poly_mesh.h"
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

/// Planes z = 1, 2 and 3, with UV equal to x and y, each a shading group of its own.
void create_sheets(PolyMesh& mesh) {
  PolyMeshData data;
  GeometryUvMap uv_map;
  for (const float z : {1.0f, 2.0f, 3.0f}) {
    for (const auto& [x, y] : {std::pair(-9.0f, -9.0f), {9.0f, -9.0f}, {0.0f, 9.0f}}) {
      data.polygon_vertices.push_back(static_cast<u32>(data.positions.size()));
      data.positions.push_back({x, y, z});
      uv_map.positions.push_back({x, y, 0});
    }
    data.polygon_groups.push_back(static_cast<u32>(data.polygon_sizes.size()));
    data.polygon_sizes.push_back(3);
  }
  data.group_names = {"a", "b", "c"};
  uv_map.corner_positions = data.polygon_vertices;
  data.uv_maps = {uv_map};
  CoreString error;
  ASSERT_TRUE(mesh.create(std::move(data), error));
}

void shoot(QueryWorld& world, const PolyMesh& mesh, GeometryRaytraceCtx& query) {
  query.geometry = &mesh;
  for (const uint p : {2u, 0u, 1u}) {
    query.shading_group = mesh.get_primitive_shading_group(p);
    mesh.ray_hit_primitive(world.ctx, world.shader, query, p);
  }
}

bool reject_primitive(const CtxEval&, CtxShader&, GeometryRaytraceCtx&, GeometryIntersection& hit,
                      const GeometryRaytraceFilter& filter) {
  hit.weight *= 0.5;
  return hit.primitive != static_cast<uint>(filter.a);
}
bool note_call(const CtxEval&, CtxShader&, GeometryRaytraceCtx&, GeometryIntersection&,
               const GeometryRaytraceFilter& filter) {
  auto* calls = static_cast<std::vector<double>*>(const_cast<void*>(filter.user));
  calls->push_back(filter.a);
  return true;
}

TEST(RaytraceFilter, rejected_nearest_hit_does_not_shorten_the_ray) {
  QueryWorld world;
  PolyMesh mesh;
  create_sheets(mesh);
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {0, 0, 0}, {0, 0, 1});
  GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
  query.push_filter({reject_primitive, 0.0, 0.0, 1, nullptr});
  query.hit_weight = 0.8;
  shoot(world, mesh, query);
  EXPECT_EQ(packet.get_nearest(0).primitive, 1u);
  EXPECT_EQ(packet.get_nearest(0).distance, 2.0);
  EXPECT_EQ(packet.get_nearest(0).weight, 0.4);
  EXPECT_EQ(packet.get_nearest(0).shading_group, 1u);
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
  EXPECT_FALSE(query.has_filter(note_call));
  for (uint k = 0; k < GeometryRaytraceData::filter_capacity; ++k)
    EXPECT_TRUE(query.push_filter({note_call, 1.0 * k, 0.0, 0, &calls}));
  EXPECT_FALSE(query.push_filter({reject_primitive, 1.0, 0.0, 0, nullptr}));
  EXPECT_TRUE(query.has_filter(note_call));
  EXPECT_FALSE(query.has_filter(reject_primitive));
  query.pop_filter();
  shoot(world, mesh, query);
  EXPECT_EQ(calls, (std::vector<double>{6, 5, 4, 3, 2, 1, 0}));  // once: the other sheets are outside the interval
  EXPECT_EQ(packet.get_hits().get_hits().size(), 1u);
}

TEST(RaytraceFilter, clip_map_cuts_away_where_it_is_clear) {
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
  shoot(world, mesh, query);
  EXPECT_EQ(packet.get_nearest(0).primitive, 1u);  // through sheet 0, stopped by sheet 1, which has no map
  EXPECT_EQ(packet.get_nearest(1).primitive, 0u);
}

TEST(RaytraceFilter, wireframes_keep_the_bands_along_the_edges) {
  QueryWorld world;
  PolyMesh mesh;
  create_sheets(mesh);
  const auto ask = [&](double proximity, bool& accepted) {
    GeometryIntersection hit;
    hit.geometry = &mesh;
    hit.primitive = 0;
    hit.u = hit.v = (1.0 - (1.0 - proximity) / 3.0) / 2.0;  // the first corner's weight is the smallest
    GeometryRaytraceCtx query;
    accepted = CtxHelpers::filter_wireframes_callback(world.ctx, world.shader, query, hit,
                                                      {CtxHelpers::filter_wireframes_callback, 0.8, 0.5, 1, nullptr});
    return hit.weight;
  };
  bool accepted = true;
  ask(0.79, accepted);
  EXPECT_FALSE(accepted);
  EXPECT_NEAR(ask(0.8001, accepted), 0.50025, 1e-6);
  EXPECT_TRUE(accepted);
  EXPECT_NEAR(ask(0.9, accepted), 0.75, 1e-9);
  EXPECT_NEAR(ask(1.0, accepted), 1.0, 1e-9);
}

TEST(CtxHelpers, shading_is_null_beyond_the_table_and_without_one) {
  QueryWorld world(3);
  world.entries[1] = nullptr;
  GeometryRaytraceCtx query;
  GeometryFrustumCtx frustum;
  EXPECT_EQ(CtxHelpers::get_shading(query, 0), nullptr);
  EXPECT_EQ(CtxHelpers::get_shading(frustum, 0), nullptr);
  query.shading = frustum.shading = &world.shading;
  const ShadingGroupLinks* const expected[4] = {&world.links[0], nullptr, &world.links[2], nullptr};
  for (uint group = 0; group < 4; ++group) {
    EXPECT_EQ(CtxHelpers::get_shading(query, group), expected[group]);
    EXPECT_EQ(CtxHelpers::get_shading(frustum, group), expected[group]);
  }
  EXPECT_EQ(CtxHelpers::get_shading(query, core_invalid_index), nullptr);
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
    level0.get_record(ray).distance = 5.0;
  }
  level0.transform_path(0, outer, 0);  // still two levels deeper
  EXPECT_EQ(level0.get_path(0).level, 2u);
  EXPECT_EQ(level0.get_path(0).transform, core_invalid_index);
  for (uint ray = 0; ray < 3; ++ray) level1.transform_path(ray, inner, 1);
  EXPECT_EQ(level0.get_path(0).level, 1u);
  EXPECT_EQ(level0.get_path(1).transform, core_invalid_index);  // was in that level's space already
  level0.transform_path(0, outer, outer2, 0);
  level0.transform_path(0, outer, outer2, 0);  // another leaf of the same level: nothing left to do
  level0.transform_path(1, outer, 0);
  level0.transform_path(2, outer, 0);
  const GeometryHitTransform* transforms = hits.get_transforms();
  EXPECT_EQ(level0.get_path(0).level, 0u);
  EXPECT_EQ(level0.get_path(0).distance, 5.0);
  expect_same(transforms[0].matrix, outer * inner);
  expect_same(transforms[0].matrix2, outer2 * inner);
  EXPECT_TRUE(transforms[0].has_vectors);
  expect_same(transforms[1].matrix, outer);
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

TEST(HitList, composes_the_matrices_of_all_levels) {
  QueryWorld world;
  RandomValues random(2);
  PolyMesh mesh;
  create_sheets(mesh);
  GeometryRayPacket packet;
  packet.resize(2);
  for (uint ray = 0; ray < 2; ++ray) packet.set_ray(ray, {0, 0, 0}, {0, 0, 1});
  GeometryRaytraceCtx& outer = packet.begin_all_hits(world.shading);
  struct Callback {
    std::vector<uint> rays;
    static void call(GeometryRaytraceCtx& query, const uint& ray, const GeometryIntersection& hit, void* user) {
      EXPECT_NE(hit.geometry, nullptr);
      static_cast<Callback*>(user)->rays.push_back(ray);
      if (ray == 1) query.ray_flags[ray] |= 1;
    }
  } callback;
  outer.hit_callback = Callback::call;
  outer.hit_user = &callback;
  std::vector<GeometryRayMatrix> first(2), second(2);
  for (uint ray = 0; ray < 2; ++ray) {
    first[ray].matrix = make_matrix(random);
    second[ray].matrix = make_matrix(random);
  }
  GeometryRaytraceCtx middle = outer, inner = outer;
  middle.parent = &outer, middle.matrices = first.data(), middle.level = 1;
  inner.parent = &middle, inner.matrices = second.data(), inner.level = 2;
  shoot(world, mesh, outer);
  outer.ray_flags[1] = 0;
  shoot(world, mesh, inner);
  const std::vector<GeometryHit>& hits = packet.get_hits().get_hits();
  ASSERT_EQ(hits.size(), 8u);  // three sheets for ray 0, one for ray 1, both times
  EXPECT_EQ(callback.rays.size(), 8u);
  for (uint k = 0; k < 8; ++k) {
    EXPECT_EQ(hits[k].hit.level, 0u);
    EXPECT_EQ(hits[k].hit.transform == core_invalid_index, k < 4);
    if (k >= 4)
      expect_same(packet.get_hits().get_transform(hits[k].hit).matrix,
                  first[hits[k].ray].matrix * second[hits[k].ray].matrix);
  }
}

TEST(HitList, stop_rule_adds_up_weights) {
  QueryWorld world;
  PolyMesh mesh;
  create_sheets(mesh);
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {0, 0, 0}, {0, 0, 1});
  packet.set_stop_rule(0xFFFFFFFFu, 1.0);
  for (uint repeat = 0; repeat < 2; ++repeat) {  // a query begins anew
    GeometryRaytraceCtx& query = packet.begin_all_hits(world.shading);
    query.hit_weight = 0.5;
    shoot(world, mesh, query);
    EXPECT_EQ(packet.get_hits().get_hits().size(), 2u);
    EXPECT_TRUE(query.is_stopped(0));
  }
}

TEST(IntersectionPath, keeps_its_elements_when_it_outgrows_itself) {
  const auto get_object = [](uint k) { return reinterpret_cast<ModuleSceneObject*>(std::uintptr_t{k} * 8); };
  GeometryIntersectionPath path, copy;
  EXPECT_EQ(path.get_last(), nullptr);
  for (uint k = 0; k < 50; ++k) {
    ASSERT_TRUE(path.add(k == 0 ? GeometryIntersectionPathElement{0, get_object(0), nullptr} : path[0]));
    EXPECT_EQ(path.get_last()->object_index, 0u);
  }
  path.remove_all();
  for (uint k = 0; k < 9; ++k) path.add({k, get_object(k), nullptr});
  ASSERT_TRUE(copy.copy_from(path));
  path.remove_last();
  EXPECT_EQ(path.get_count(), 8u);
  ASSERT_EQ(copy.get_count(), 9u);
  for (uint k = 0; k < 9; ++k) {
    EXPECT_EQ(copy[k].object_index, k);
    EXPECT_TRUE(copy[k].object == get_object(k));
  }
  copy.copy_from(GeometryIntersectionPath());
  EXPECT_TRUE(copy.is_empty());
}

TEST(Frustum, box_place_agrees_with_its_corners) {
  RandomValues random(4);
  uint outside = 0, inside = 0;
  for (uint k = 0; k < 20000; ++k) {
    GeometryFrustumCtx query;
    for (uint p = 0, count = 1 + random.get_index(4); p < count; ++p)
      query.add_plane(GeometryPlane(random.get_vec(2.0), random.get_vec()));
    if (k % 2 == 0) query.end_planes[query.end_plane_count++] = GeometryPlane({0, 0, -1}, {0, 0, 1});
    GMathBbox3<float> box;
    box.add(random.get_vec<float>(1.0));
    box.add(random.get_vec<float>(1.0));
    uint corners_inside = 0;
    bool behind_one_plane = false;
    for (uint corner = 0; corner < 8; ++corner) corners_inside += query.contains(Vec(box.get_corner(corner)));
    for (uint p = 0; p < query.plane_count + query.end_plane_count; ++p) {
      const GeometryPlane& plane = p < query.plane_count ? query.planes[p] : query.end_planes[0];
      uint behind = 0;
      for (uint corner = 0; corner < 8; ++corner) behind += plane.measure(Vec(box.get_corner(corner))) < 0;
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

TEST(Frustum, objects_are_listed_once_in_order_and_points_shared) {
  GeometryFrustumCtx outer, inner;
  for (const uint index : {7u, 3u, 7u, core_invalid_index, 3u, 1u}) outer.add_object(index);
  EXPECT_EQ(outer.get_objects(), (std::vector<uint>{7, 3, core_invalid_index, 1}));
  outer.push_point({1, 2, 3});
  inner.share_points(outer);
  PolyMesh mesh;
  inner.push_point_cloud_vertex({4, 5, 6}, &mesh, 9);
  ASSERT_EQ(outer.get_points().size(), 2u);
  EXPECT_EQ(outer.get_points()[1].geometry, &mesh);
  EXPECT_EQ(outer.get_points()[1].index, 9u);
  for (uint k = 0; k < GeometryFrustumData::plane_capacity; ++k) EXPECT_TRUE(outer.add_plane(GeometryPlane()));
  EXPECT_FALSE(outer.add_plane(GeometryPlane()));
}

TEST(MotionSpans, of_the_active_range_never_lead_beyond_the_last_sample) {
  QueryWorld world;
  GeometryRayPacket packet;
  packet.resize(5);
  const double times[5] = {-1.0, 0.25, 0.6, 1.0, 7.0};
  for (uint ray = 0; ray < 5; ++ray) packet.set_ray(ray, {}, {0, 0, 1}, 0.0, 1.0, times[ray]);
  const CtxMotionBlur open(0.0, 1.0, 3), closed(0.5, 0.5, 5);
  GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
  EXPECT_EQ(query.span_stamp, 0u);
  open.init_raytrace_ctx(query);
  EXPECT_EQ(query.span_stamp, open.get_stamp());
  const uint first[5] = {0, 0, 1, 1, 1};
  const double fraction[5] = {0.0, 0.5, 0.2, 1.0, 1.0};
  for (uint ray = 0; ray < 5; ++ray) {
    EXPECT_EQ(query.spans[ray].first, first[ray]);
    EXPECT_EQ(query.spans[ray].second, first[ray] + 1);
    EXPECT_NEAR(query.spans[ray].fraction, fraction[ray], 1e-12);
    EXPECT_EQ(query.spans[ray].time, times[ray]);
  }
  query.first_ray = 1;
  query.last_ray = 2;
  closed.init_raytrace_ctx(query);
  for (uint ray = 0; ray < 5; ++ray) EXPECT_EQ(query.spans[ray].second, ray == 1 || ray == 2 ? 0 : first[ray] + 1);
}

TEST(RayPacket, starts_each_query_anew_and_may_be_empty) {
  QueryWorld world;
  PolyMesh mesh;
  create_sheets(mesh);
  GeometryRayPacket packet;
  shoot(world, mesh, packet.begin_nearest(world.shading));  // no ray at all
  packet.resize(3);
  for (uint ray = 0; ray < 3; ++ray) packet.set_ray(ray, {0, 0, 0}, {0, 0, 1}, 0.0, 2.5 - ray);
  for (uint repeat = 0; repeat < 2; ++repeat) {
    shoot(world, mesh, packet.begin_nearest(world.shading));
    EXPECT_EQ(packet.get_nearest(0).primitive, 0u);
    EXPECT_EQ(packet.get_nearest(1).primitive, 0u);
    EXPECT_EQ(packet.get_nearest(2).geometry, nullptr);
    EXPECT_EQ(packet.get_nearest(2).distance, 0.5);
    EXPECT_EQ(packet.get_nearest_transform(0), nullptr);
    packet.get_ray(0).set({0, 0, 0}, {0, 0, 1});
    shoot(world, mesh, packet.begin_all_hits(world.shading));
    EXPECT_EQ(packet.get_hits().get_hits().size(), 3u);
  }
}

}  // namespace
