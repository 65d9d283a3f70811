// Rays against polygons where every number is exact: edges, intervals, bad numbers. That the right ones are hit in the
// right place at the right time is seen through the structure, where oracles know them.
#include <algorithm>
#include <limits>

#include "host/mesh_shots.h"
#include "support/random_values.h"
#include "support/test_scale.h"

namespace {

using Vec = GMathVec3<double>;
using VecF = GMathVec3<float>;

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
  PolyMeshData corners = make_polygons({{-1, -1, 1}, {1, -1, 1}, {1, 1, 1}, {-1, 1, 1}}, 4);
  corners.least_recorded_triangles = 0;
  create(square, corners);
  for (const double at : {-0.75, 0.0, 0.5})
    for (const double side : {-1.0, 1.0})  // one of the two is the diagonal that the triangles share
      EXPECT_EQ(count_hits(world, square, {at, side * at, 0}, {0, 0, 1}), 1u) << at << ' ' << side;
  // Goes round twice, so that it lies over itself.
  create(spiral, make_polygons({{0, 0, 1}, {4, 0, 1}, {0, 4, 1}, {0, 0, 2}, {4, 0, 2}, {0, 4, 2}}, 6));
  EXPECT_GE(count_hits(world, spiral, {0.9, 1.1, 0}, {0, 0, 1}), 2u);
  EXPECT_GE(count_hits(world, spiral, {0.5, 0, 0}, {0, 0, 1}), 2u) << "on an edge of each turn";
  EXPECT_EQ(count_hits(world, spiral, {0.9, 1.1, 0}, {0, 0, 1}, 1), 1u);
  PolyMesh stack;  // of triangles
  create(stack, make_polygons({{0, 0, 1}, {4, 0, 1}, {0, 4, 1}, {0, 0, 2}, {4, 0, 2}, {0, 4, 2}}, 3));
  for (const uint most : {1u, 2u, 3u})
    EXPECT_EQ(count_hits(world, stack, {1, 1, 0}, {0, 0, 1}, most), std::min(most, 2u));
}

// From nearby, rounding moves the ray by more than the distance has digits for.
TEST(PolyMeshRay, inner_edges_and_corners_are_hit_once_from_nearby) {
  QueryWorld world;
  RandomValues random(17);
  for (uint k = 0; k < scaled(100, 20); ++k) {
    const uint count = 4 + k / 2 % 9;
    std::vector<VecF> star;
    for (uint corner = 0; corner < count; ++corner) {
      const double angle = (k % 2 == 0 ? 6.28 : -6.28) * corner / count, radius = random.get(200, 1000);
      star.push_back(VecF(Vec(std::cos(angle), std::sin(angle), 0.1 * std::cos(angle)) * radius));
    }
    PolyMesh mesh;
    PolyMeshData data = make_polygons(star, count);
    data.least_recorded_triangles = k % 3 == 0 ? PolyMeshData::no_records : 0;
    create(mesh, data);
    for (const VecF& corner : star) EXPECT_EQ(count_hits(world, mesh, {corner.x, corner.y, 999}, {0, 0, -1}), 1u);
    for (uint part = 0; part < count - 2; ++part) {
      const u32* corner = mesh.get_part_vertices(0, part);
      for (uint side = 0; side < 3; ++side) {
        const u32 from = corner[side], to = corner[(side + 1) % 3];
        if ((from + 1) % count == to) continue;
        for (uint ray = 0; ray < 20; ++ray) {
          const double where = random.get(0.01, 0.99);
          const Vec target = Vec(star[from]) * (1 - where) + Vec(star[to]) * where;
          const Vec direction(random.get(-0.3, 0.3), random.get(-0.3, 0.3), ray % 2 == 0 ? 1 : -1);
          ASSERT_EQ(count_hits(world, mesh, target - direction * 0.001, direction), 1u)
              << k << ' ' << from << ' ' << to;
        }
      }
    }
  }
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

}  // namespace
