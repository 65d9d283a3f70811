// Rays against meshes: edges without gaps, intervals, motion, bad numbers. That the right triangles are hit in the
// right place is seen through the structure, where an independent test knows them.
#include <limits>

#include "host/mesh_shots.h"
#include "support/random_values.h"
#include "support/test_scale.h"
#include "vq_ctx/ctx_motion_blur.h"

namespace {

using Vec = GMathVec3<double>;
using VecF = GMathVec3<float>;
TEST(PolyMeshRay, no_ray_slips_through_an_edge_or_a_corner) {
  QueryWorld world;
  RandomValues random(3);
  for (uint k = 0, count = scaled(16000, 2000); k < count; ++k) {
    // A hexagon of six bent triangles around a vertex, aimed at on a spoke or at the vertex itself.
    PolyMeshData data;
    data.positions.push_back(random.get_vec<float>(0.3));
    data.polygon_sizes.assign(6, 3);
    for (u32 spoke = 0; spoke < 6; ++spoke) {
      const Vec at(std::cos(1.047 * spoke) * 3, std::sin(1.047 * spoke) * 3, 0);
      data.positions.push_back(VecF(at + random.get_vec(0.3)));
      const u32 next = (spoke + 1) % 6;
      for (const u32 vertex : {0u, spoke + 1, next + 1}) data.polygon_vertices.push_back(vertex);
    }
    PolyMesh mesh;
    create(mesh, data);
    const Vec a(data.positions[0]), b(data.positions[1 + k % 6]);
    const Vec target = a + (b - a) * (k % 4 == 0 ? 0.0 : random.get(0, 0.9));
    const Vec origin(random.get(), random.get(), k % 2 == 0 ? 1e6 : -5.0);
    ASSERT_NE(shoot(world, mesh, origin, (target - origin) * random.get(0.1, 10)).geometry, nullptr) << k;
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
  for (const Vec& direction : {Vec(0, 0, 1), Vec(0, 0, -2), Vec(0.5, 0.25, 1), Vec(-0.5, 0, -1)}) {
    const auto count_at = [&](double x, double y) {
      return count_hits(world, mesh, Vec(x, y, 0) - direction * 4, direction);
    };
    EXPECT_EQ(count_at(0, 0), 4u);
    for (const double s : {-1.0, 1.0}) {
      EXPECT_EQ(count_at(s, 0), 2u);
      EXPECT_EQ(count_at(0, 2 * s), 2u);
      EXPECT_EQ(count_at(s, 1), 1u);  // the outer edge
      EXPECT_EQ(count_at(s, 1.5), 0u);
    }
  }
  EXPECT_EQ(count_hits(world, mesh, {-4, 0, 0}, {1, 0, 0}), 0u);  // seen edge-on
}

TEST(PolyMeshRay, hits_of_one_polygon_are_not_told_twice_and_may_end_the_ray) {
  QueryWorld world;
  PolyMesh square, spiral;
  create(square, make_polygons({{-1, -1, 1}, {1, -1, 1}, {1, 1, 1}, {-1, 1, 1}}, 4));
  for (const double at : {-0.75, 0.0, 0.5})
    for (const double side : {-1.0, 1.0})  // one of the two is the diagonal that the triangles share
      EXPECT_EQ(count_hits(world, square, {at, side * at, 0}, {0, 0, 1}), 1u) << at << ' ' << side;
  // Goes round twice, so that it lies over itself.
  create(spiral, make_polygons({{0, 0, 1}, {4, 0, 1}, {0, 4, 1}, {0, 0, 2}, {4, 0, 2}, {0, 4, 2}}, 6));
  EXPECT_GE(count_hits(world, spiral, {0.9, 1.1, 0}, {0, 0, 1}), 2u);
  EXPECT_EQ(count_hits(world, spiral, {0.9, 1.1, 0}, {0, 0, 1}, 1), 1u);
}

TEST(PolyMeshRay, interval_is_closed_at_its_beginning_and_open_at_its_end) {
  QueryWorld world;
  for (const float z : {1.0f, 0.1f, 3.3f}) {
    PolyMesh mesh;
    create(mesh, make_polygons({{-1, -1, z}, {2, -1, z}, {-1, 2, z}}, 3));
    const Vec origin(0.1, 0.2, 0), direction(0, 0, 1);
    const double t = z, after = std::nextafter(t, 9.0);
    EXPECT_EQ(shoot(world, mesh, origin, direction, t).distance, t);
    EXPECT_EQ(shoot(world, mesh, origin, direction, after).geometry, nullptr) << z;
    EXPECT_EQ(shoot(world, mesh, origin, direction, 0.0, t).geometry, nullptr) << z;
    EXPECT_NE(shoot(world, mesh, origin, direction, 0.0, after).geometry, nullptr) << z;
  }
}

TEST(PolyMeshRay, numbers_that_are_none_hit_nothing) {
  QueryWorld world;
  const float inf = std::numeric_limits<float>::infinity(), none = std::numeric_limits<float>::quiet_NaN();
  const std::vector<VecF> sound = {{-1, -1, 1}, {2, -1, 1}, {-1, 2, 1}};
  PolyMesh mesh;
  for (uint k = 0; k < 9; ++k)
    for (const float bad : {none, inf, -inf}) {
      std::vector<VecF> positions = sound;
      positions[k / 3][k % 3] = bad;
      create(mesh, make_polygons(positions, 3));
      for (const Vec& direction : {Vec(0, 0, 1), Vec(0.1, 0.2, 1), Vec(1, 1, 1)})
        EXPECT_EQ(shoot(world, mesh, {0, 0, 0}, direction).geometry, nullptr) << k << " " << bad;
      EXPECT_FALSE(gmath_is_valid_box(mesh.get_primitive_bbox(world.ctx, 0)));
    }
  create(mesh, make_polygons(sound, 3));
  for (uint bad = 0; bad < 9; ++bad) {  // of origin, direction, near, far and, at last, a direction of no length
    double values[9] = {0, 0, 0, 0, 0, 1, 0, DBL_MAX, 0};
    values[bad == 8 ? 5 : bad] = bad == 8 ? 0.0 : std::numeric_limits<double>::quiet_NaN();
    const Vec origin(values[0], values[1], values[2]), direction(values[3], values[4], values[5]);
    EXPECT_EQ(shoot(world, mesh, origin, direction, values[6], values[7]).geometry, nullptr) << bad;
  }
}

TEST(PolyMeshRay, motion_is_linear_between_the_samples_of_the_mesh) {
  QueryWorld world;
  RandomValues random(7);
  const CtxMotionBlur motion_blur(0.0, 1.0, 2);  // the shutter's samples are not the mesh's
  for (uint k = 0, count = scaled(500, 100); k < count; ++k) {
    PolyMeshData still = make_polygons({{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}}, 4), data = still;
    data.motion_begin = 0.25;
    data.motion_step = 0.25;
    const uint samples = 1 + k % 3;
    for (uint s = 0; s < samples; ++s) {
      data.motion_positions.push_back(data.positions);
      for (VecF& position : data.motion_positions.back()) position = position + random.get_vec<float>(0.4);
    }
    // The same mesh, standing as the moving one stands at that time.
    const double time = k % 5 < 3 ? 0.25 * (k % 5) : random.get(-0.5, 1.5);
    const double place = std::clamp((time - 0.25) / 0.25, 0.0, samples - 1.0);
    const uint first = static_cast<uint>(place), second = std::min(first + 1, samples - 1);
    for (uint v = 0; v < 4; ++v) {
      const Vec a(data.motion_positions[first][v]), b(data.motion_positions[second][v]);
      still.positions[v] = VecF(a + (b - a) * (place - first));
    }
    PolyMesh moving, standing;
    create(moving, data);
    create(standing, still);
    const GMathBbox3<double> box = moving.get_primitive_bbox_at(world.ctx, time, 0);
    const GMathBbox3<double> expected_box = standing.get_primitive_bbox(world.ctx, 0);
    EXPECT_NEAR((box.min - expected_box.min).get_length(), 0.0, 1e-6);
    EXPECT_NEAR((box.max - expected_box.max).get_length(), 0.0, 1e-6);

    const Vec origin(random.get(-0.3, 0.3), random.get(-0.3, 0.3), -3), direction(0, 0, 1);
    GeometryRayPacket packet;
    packet.resize(1);
    packet.set_ray(0, origin, direction, 0.0, DBL_MAX, time);
    GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
    test_primitives(world, moving, query);  // no spans: at rest
    EXPECT_EQ(packet.get_nearest(0).distance, 3.0);
    motion_blur.init_raytrace_ctx(packet.begin_nearest(world.shading));
    test_primitives(world, moving, query);
    const double distance = packet.get_nearest(0).distance;
    EXPECT_NEAR(distance, shoot(world, standing, origin, direction).distance, 1e-5) << "time " << time;
    const Vec point = moving.get_surface_point(packet.get_nearest(0), time).position;
    EXPECT_NEAR((point - (origin + direction * distance)).get_length(), 0.0, 1e-9);
  }
}

}  // namespace
