// Rays against meshes: an independent test in long double, edges without gaps, motion, bad numbers.
#include <gtest/gtest.h>

#include <limits>

#include "support/query_world.h"
#include "support/random_values.h"
#include "support/test_scale.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_geometry/geometry_ray_packet.h"
#include "vq_geometry/poly_mesh.h"

namespace {

using Vec = GMathVec3<double>;
using VecF = GMathVec3<float>;
using Long = GMathVec3<long double>;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

PolyMeshData make_triangles(const std::vector<VecF>& positions) {
  PolyMeshData data;
  data.positions = positions;
  data.polygon_sizes.assign(positions.size() / 3, 3);
  for (u32 k = 0; k < positions.size(); ++k) data.polygon_vertices.push_back(k);
  return data;
}

void create(PolyMesh& mesh, PolyMeshData data) {
  CoreString error;
  ASSERT_TRUE(mesh.create(std::move(data), error)) << error.get_data();
}

void test_primitive(QueryWorld& world, const PolyMesh& mesh, GeometryRaytraceCtx& query, uint primitive) {
  query.geometry = &mesh;
  mesh.ray_hit_primitive(world.ctx, world.shader, query, primitive);
}

/// The nearest hit of one ray among all primitives.
GeometryIntersection shoot(QueryWorld& world, const PolyMesh& mesh, const Vec& origin, const Vec& direction,
                           double tnear = 0.0, double tfar = DBL_MAX) {
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, origin, direction, tnear, tfar);
  GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
  for (uint p = 0; p < mesh.get_primitive_count(); ++p) test_primitive(world, mesh, query, p);
  return packet.get_nearest(0);
}

struct OracleHit {
  long double t = 0, u = 0, v = 0;
  bool surely_hit = false, surely_missed = false;
};

/// Möller, Trumbore 1997, in long double. Close calls are neither hit nor missed.
OracleHit intersect(const Long& o, const Long& d, const VecF (&corner)[3]) {
  const Long a(corner[0]), e1 = Long(corner[1]) - a, e2 = Long(corner[2]) - a;
  const Long p = d.cross(e2), s = o - a, q = s.cross(e1);
  const long double det = e1.dot(p), size = e1.get_length() * e2.get_length() * d.get_length();
  OracleHit hit;
  if (std::fabs(det) < 1e-6L * size || size == 0) return hit;
  hit.t = e2.dot(q) / det;
  hit.u = s.dot(p) / det;
  hit.v = d.dot(q) / det;
  const long double least = std::min({hit.u, hit.v, 1 - hit.u - hit.v});
  hit.surely_hit = least > 1e-7L && hit.t > 1e-7L;
  hit.surely_missed = least < -1e-7L || hit.t < -1e-7L;
  return hit;
}

TEST(PolyMeshRay, agrees_with_an_independent_test) {
  QueryWorld world;
  uint hits = 0, misses = 0;
  for (uint seed = 0; seed < 4; ++seed) {
    RandomValues random(seed);
    // Seeds 2 and 3 put everything on a coarse lattice: rays along axes, through corners, in planes.
    const bool lattice = seed >= 2;
    const auto get_point = [&] {
      VecF p = random.get_vec<float>(3.0);
      if (lattice) p = VecF(std::round(p.x), std::round(p.y), std::round(p.z));
      return p;
    };
    for (uint k = 0, count = scaled(20000, 2000); k < count; ++k) {
      const VecF corner[3] = {get_point(), get_point(), get_point()};
      const Vec origin(get_point()), direction(get_point());
      PolyMesh mesh;
      create(mesh, make_triangles({corner[0], corner[1], corner[2]}));
      const OracleHit expected = intersect(Long(origin), Long(direction), corner);
      const GeometryIntersection hit = shoot(world, mesh, origin, direction);
      if (expected.surely_missed) {
        ++misses;
        EXPECT_EQ(hit.geometry, nullptr) << "seed " << seed << " case " << k;
      }
      if (!expected.surely_hit) continue;
      ++hits;
      ASSERT_EQ(hit.geometry, &mesh) << "seed " << seed << " case " << k;
      EXPECT_NEAR(hit.distance, static_cast<double>(expected.t), 1e-8 * (1 + hit.distance));
      EXPECT_NEAR(hit.u, static_cast<double>(expected.u), 1e-8);
      EXPECT_NEAR(hit.v, static_cast<double>(expected.v), 1e-8);
    }
  }
  EXPECT_GT(hits, 200u);
  EXPECT_GT(misses, 2000u);
}

/// A sheet of size x size quads, each cut into two triangles, bent at random; it reaches beyond the unit square.
PolyMeshData make_sheet(RandomValues& random, uint size, double height) {
  PolyMeshData data;
  for (uint y = 0; y <= size; ++y)
    for (uint x = 0; x <= size; ++x)
      data.positions.push_back(VecF(static_cast<float>(x + random.get(-0.3, 0.3)),
                                    static_cast<float>(y + random.get(-0.3, 0.3)),
                                    static_cast<float>(random.get(0, height))));
  for (uint y = 0; y < size; ++y)
    for (uint x = 0; x < size; ++x) {
      const u32 a = y * (size + 1) + x, b = a + 1, c = a + size + 1, d = c + 1;
      for (const u32 vertex : {a, b, d, a, d, c}) data.polygon_vertices.push_back(vertex);
      data.polygon_sizes.insert(data.polygon_sizes.end(), {3, 3});
    }
  return data;
}

TEST(PolyMeshRay, no_ray_slips_through_an_edge_or_a_corner) {
  QueryWorld world;
  const uint size = 8;
  for (uint seed = 0; seed < 4; ++seed) {
    RandomValues random(seed);
    const PolyMeshData data = make_sheet(random, size, 0.3);
    PolyMesh mesh;
    create(mesh, data);
    for (uint k = 0, count = scaled(4000, 500); k < count; ++k) {
      const uint x = 2 + random.get_index(size - 4), y = 2 + random.get_index(size - 4);
      const uint step = random.get_index(4);  // along x, along y, along the diagonal, or no edge but the corner
      const u32 from = y * (size + 1) + x;
      const u32 to = from + (step == 0 ? 1 : step == 1 ? size + 1 : step == 2 ? size + 2 : 0);
      const Vec a(data.positions[from]), b(data.positions[to]);
      const Vec target = a + (b - a) * random.get(0, 1);
      const Vec origin(random.get(3, 5), random.get(3, 5), k % 2 == 0 ? 1e6 : -5.0);
      ASSERT_NE(shoot(world, mesh, origin, (target - origin) * random.get(0.1, 10)).geometry, nullptr)
          << "seed " << seed << " case " << k;
    }
  }
}

TEST(PolyMeshRay, a_ray_exactly_on_an_edge_hits_the_triangles_on_both_sides) {
  QueryWorld world;
  // Four triangles around the origin, in two windings; every number below is exact.
  PolyMeshData data;
  data.positions = {{0, 0, 0}, {2, 0, 0}, {0, 2, 0}, {-2, 0, 0}, {0, -2, 0}};
  data.polygon_sizes = {3, 3, 3, 3};
  data.polygon_vertices = {0, 1, 2, 0, 3, 2, 0, 3, 4, 0, 1, 4};
  PolyMesh mesh;
  create(mesh, data);
  const auto count_hits = [&](double x, double y, const Vec& direction) {
    GeometryRayPacket packet;
    packet.resize(1);
    packet.set_ray(0, Vec(x, y, 0) - direction * 4, direction);
    GeometryRaytraceCtx& query = packet.begin_all_hits(world.shading);
    for (uint p = 0; p < 4; ++p) test_primitive(world, mesh, query, p);
    return packet.get_hits().get_hits().size();
  };
  for (const Vec& direction : {Vec(0, 0, 1), Vec(0, 0, -2), Vec(0.5, 0.25, 1), Vec(-0.5, 0, -1)}) {
    EXPECT_EQ(count_hits(0, 0, direction), 4u);
    for (const double s : {-1.0, 1.0}) {
      EXPECT_EQ(count_hits(s, 0, direction), 2u);
      EXPECT_EQ(count_hits(0, s, direction), 2u);
      EXPECT_EQ(count_hits(2 * s, 0, direction), 2u);
      EXPECT_EQ(count_hits(s, 1, direction), 1u);  // the outer edge
      EXPECT_EQ(count_hits(s, 1.5, direction), 0u);
    }
  }
  EXPECT_EQ(count_hits(0, 0, {1, 0, 0}), 0u);  // seen edge-on
}

TEST(PolyMeshRay, interval_is_closed_at_its_beginning_and_open_at_its_end) {
  QueryWorld world;
  for (const float z : {1.0f, 0.1f, 3.3f}) {
    PolyMesh mesh;
    create(mesh, make_triangles({{-1, -1, z}, {2, -1, z}, {-1, 2, z}}));
    const Vec origin(0.1, 0.2, 0), direction(0, 0, 1);
    const double t = z, after = std::nextafter(t, 9.0);
    EXPECT_EQ(shoot(world, mesh, origin, direction, t).distance, t);
    EXPECT_EQ(shoot(world, mesh, origin, direction, after).geometry, nullptr) << z;
    EXPECT_EQ(shoot(world, mesh, origin, direction, 0.0, t).geometry, nullptr) << z;
    EXPECT_NE(shoot(world, mesh, origin, direction, 0.0, after).geometry, nullptr) << z;
    EXPECT_EQ(shoot(world, mesh, origin, -direction).geometry, nullptr);
    EXPECT_NE(shoot(world, mesh, origin, Vec(-0.0, -0.0, 1.0)).geometry, nullptr) << z;
  }
}

TEST(PolyMeshRay, numbers_that_are_none_hit_nothing) {
  QueryWorld world;
  const float inf = std::numeric_limits<float>::infinity(), none = std::numeric_limits<float>::quiet_NaN();
  const std::vector<VecF> sound = {{-1, -1, 1}, {2, -1, 1}, {-1, 2, 1}};
  for (uint k = 0; k < 9; ++k) {
    for (const float bad : {none, inf, -inf}) {
      std::vector<VecF> positions = sound;
      positions[k / 3][k % 3] = bad;
      PolyMesh mesh;
      create(mesh, make_triangles(positions));
      for (const Vec& direction : {Vec(0, 0, 1), Vec(0.1, 0.2, 1), Vec(1, 1, 1)})
        EXPECT_EQ(shoot(world, mesh, {0, 0, 0}, direction).geometry, nullptr) << k << " " << bad;
      EXPECT_FALSE(gmath_is_valid_box(mesh.get_primitive_bbox(world.ctx, 0)));
    }
  }
  PolyMesh mesh;
  create(mesh, make_triangles(sound));
  const Vec origin(0, 0, 0), direction(0, 0, 1);
  for (uint axis = 0; axis < 3; ++axis) {
    Vec bad_origin = origin, bad_direction = direction;
    bad_origin[axis] = bad_direction[axis] = nan;
    EXPECT_EQ(shoot(world, mesh, bad_origin, direction).geometry, nullptr);
    EXPECT_EQ(shoot(world, mesh, origin, bad_direction).geometry, nullptr);
  }
  EXPECT_EQ(shoot(world, mesh, origin, {0, 0, 0}).geometry, nullptr);
  EXPECT_EQ(shoot(world, mesh, origin, direction, nan).geometry, nullptr);
  EXPECT_EQ(shoot(world, mesh, origin, direction, 0.0, nan).geometry, nullptr);
}

TEST(PolyMeshRay, packet_tests_its_active_rays_and_passes_over_stopped_ones) {
  QueryWorld world;
  PolyMesh mesh;
  create(mesh, make_triangles({{-9, -9, 1}, {9, -9, 1}, {0, 9, 1}, {-9, -9, 2}, {9, -9, 2}, {0, 9, 2}}));
  GeometryRayPacket packet;
  packet.resize(4);
  for (uint k = 0; k < 4; ++k) packet.set_ray(k, {0.1 * k, 0, 0}, {0, 0, 1});
  GeometryRaytraceCtx& all = packet.begin_all_hits(world.shading);
  all.first_ray = 1;
  all.last_ray = 3;
  all.ray_flags[2] = 1;
  all.ray_flags[3] = 2;  // not the stop bit
  for (const uint p : {0u, 1u}) test_primitive(world, mesh, all, p);
  std::vector<uint> hit_rays;
  for (const GeometryHit& hit : packet.get_hits().get_hits()) hit_rays.push_back(hit.ray);
  EXPECT_EQ(hit_rays, (std::vector<uint>{1, 3, 1, 3}));
  EXPECT_EQ(all.counter, 4u);

  packet.set_stop_rule(1);
  GeometryRaytraceCtx& first_only = packet.begin_all_hits(world.shading);
  for (const uint p : {0u, 1u}) test_primitive(world, mesh, first_only, p);
  EXPECT_EQ(packet.get_hits().get_hits().size(), 4u);  // one a ray, although two lie on each

  GeometryRaytraceCtx& nearest = packet.begin_nearest(world.shading);
  nearest.ray_flags[0] = 1;  // the stop bit is for all-hits queries
  for (const uint p : {1u, 0u}) test_primitive(world, mesh, nearest, p);
  for (uint k = 0; k < 4; ++k) EXPECT_EQ(packet.get_nearest(k).primitive, 0u);
}

TEST(PolyMeshRay, a_ray_may_end_between_two_triangles_of_one_polygon) {
  QueryWorld world;
  PolyMeshData data;
  data.positions = {{0, 0, 1}, {4, 0, 1}, {0, 4, 1}, {0, 0, 2}, {4, 0, 2}, {0, 4, 2}};
  data.polygon_sizes = {6};
  data.polygon_vertices = {0, 1, 2, 3, 4, 5};  // goes round twice, so that it lies over itself
  PolyMesh mesh;
  create(mesh, data);
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {0.9, 1.1, 0}, {0, 0, 1});
  test_primitive(world, mesh, packet.begin_all_hits(world.shading), 0);
  EXPECT_GE(packet.get_hits().get_hits().size(), 2u);
  packet.set_stop_rule(1);
  test_primitive(world, mesh, packet.begin_all_hits(world.shading), 0);
  EXPECT_EQ(packet.get_hits().get_hits().size(), 1u);
}

TEST(PolyMeshRay, a_ray_through_a_diagonal_hits_the_polygon_once) {
  QueryWorld world;
  PolyMeshData data;
  data.positions = {{-1, -1, 1}, {1, -1, 1}, {1, 1, 1}, {-1, 1, 1}};
  data.polygon_sizes = {4};
  data.polygon_vertices = {0, 1, 2, 3};
  PolyMesh mesh;
  create(mesh, data);
  GeometryRayPacket packet;
  packet.resize(1);
  for (const double at : {-0.75, 0.0, 0.5}) {
    for (const double side : {-1.0, 1.0}) {  // one of the two is the diagonal that the triangles share
      packet.set_ray(0, {at, side * at, 0}, {0, 0, 1});
      test_primitive(world, mesh, packet.begin_all_hits(world.shading), 0);
      EXPECT_EQ(packet.get_hits().get_hits().size(), 1u) << at << ' ' << side;
    }
  }
}

TEST(PolyMeshRay, motion_is_linear_between_the_samples_of_the_mesh) {
  QueryWorld world;
  RandomValues random(7);
  const CtxMotionBlur motion_blur(0.0, 1.0, 2);  // the shutter's samples are not the mesh's
  for (uint k = 0, count = scaled(500, 100); k < count; ++k) {
    PolyMeshData data;
    data.polygon_sizes = {4};
    data.polygon_vertices = {0, 1, 2, 3};
    data.positions = {{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}};
    data.motion_begin = 0.25;
    data.motion_step = 0.25;
    const uint samples = 1 + k % 3;
    for (uint s = 0; s < samples; ++s) {
      data.motion_positions.push_back(data.positions);
      for (VecF& position : data.motion_positions.back()) position = position + random.get_vec<float>(0.4);
    }
    const double time = k % 5 < 3 ? 0.25 * (k % 5) : random.get(-0.5, 1.5);
    // The same mesh, standing as the moving one stands at that time.
    PolyMeshData still = data;
    still.motion_positions.clear();
    const double place = samples == 1 ? 0.0 : std::clamp((time - 0.25) / 0.25, 0.0, samples - 1.0);
    const uint first = samples == 1 ? 0 : std::min(static_cast<uint>(place), samples - 2);
    for (uint v = 0; v < 4; ++v) {
      const Vec a(data.motion_positions[first][v]), b(data.motion_positions[std::min(first + 1, samples - 1)][v]);
      still.positions[v] = VecF(a + (b - a) * (place - first));
    }
    PolyMesh moving, standing;
    create(moving, data);
    create(standing, still);
    ASSERT_TRUE(moving.has_motion());

    const GMathBbox3<double> box = moving.get_primitive_bbox_at(world.ctx, time, 0);
    const GMathBbox3<double> expected_box = standing.get_primitive_bbox(world.ctx, 0);
    for (uint axis = 0; axis < 3; ++axis) {
      EXPECT_NEAR(box.min[axis], expected_box.min[axis], 1e-6);
      EXPECT_NEAR(box.max[axis], expected_box.max[axis], 1e-6);
    }
    const Vec origin(random.get(-0.3, 0.3), random.get(-0.3, 0.3), -3), direction(0, 0, 1);
    GeometryRayPacket packet;
    packet.resize(1);
    packet.set_ray(0, origin, direction, 0.0, DBL_MAX, time);
    GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
    test_primitive(world, moving, query, 0);  // no spans: at rest
    EXPECT_EQ(packet.get_nearest(0).distance, 3.0);
    motion_blur.init_raytrace_ctx(packet.begin_nearest(world.shading));
    test_primitive(world, moving, query, 0);
    const GeometryIntersection expected = shoot(world, standing, origin, direction);
    ASSERT_NE(expected.geometry, nullptr);
    EXPECT_NEAR(packet.get_nearest(0).distance, expected.distance, 1e-5) << "time " << time;
    const Vec point = moving.get_surface_point(packet.get_nearest(0), time).position;
    EXPECT_NEAR((point - (origin + direction * packet.get_nearest(0).distance)).get_length(), 0.0, 1e-9);
  }
}

TEST(PolyMeshRay, group_moves_only_when_one_of_its_vertices_does) {
  PolyMeshData data = make_triangles({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {0, 1, 1}});
  data.group_names = {"still", "moving", "unused"};
  data.polygon_groups = {0, 1};
  data.motion_positions = {data.positions, data.positions};
  data.motion_positions[1][4].x = 2;
  PolyMesh mesh;
  create(mesh, data);
  EXPECT_FALSE(mesh.has_shading_group_motion(0));
  EXPECT_TRUE(mesh.has_shading_group_motion(1));
  EXPECT_FALSE(mesh.has_shading_group_motion(2));
  EXPECT_FALSE(mesh.has_shading_group_motion(99));
}

}  // namespace
