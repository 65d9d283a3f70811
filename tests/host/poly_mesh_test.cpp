// Meshes apart from their ray test: triangulation, what create() refuses, surfaces and edges.
#include "vq_geometry/poly_mesh.h"

#include <functional>
#include <limits>
#include <map>
#include <numbers>

#include "host/mesh_shots.h"
#include "support/random_values.h"
#include "support/test_scale.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/poly_mesh_triangulate.h"

namespace {

using Vec = GMathVec3<double>;
using VecF = GMathVec3<float>;

std::vector<Vec> make_star(RandomValues& random, uint count) {
  std::vector<Vec> outline;
  for (uint k = 0; k < count; ++k) {
    const double angle = 2 * std::numbers::pi * k / count, radius = random.get(0.2, 1.0);
    outline.push_back({radius * std::cos(angle), radius * std::sin(angle), 0});
  }
  return outline;
}

/// A corridor that winds inwards: an ear is found only at its two ends.
std::vector<Vec> make_spiral(uint count) {
  std::vector<Vec> outline;
  const auto add = [&](uint k, double shift) {
    const double angle = 0.4 * k, radius = 0.1 + 0.9 * (k + shift) / (count + 16.0);
    outline.push_back({radius * std::cos(angle), radius * std::sin(angle), 0});
  };
  for (uint k = 0; k < count; ++k) add(k, 8.0);
  for (uint k = count; k-- > 0;) add(k, 0.0);
  return outline;
}

/// A star with doubled corners, from each of which a spike without width points outwards.
std::vector<Vec> make_spikes(RandomValues& random, uint count) {
  std::vector<Vec> outline;
  for (const Vec& point : make_star(random, count / 4)) outline.insert(outline.end(), {point, point, point * 2, point});
  return outline;
}

/// Triangles whose edges are the polygon's, or come in pairs of both directions, cover it as often as it winds round;
/// if none of them is turned over, they cover nothing else.
void check_triangles(const std::vector<Vec>& polygon, const Vec& normal) {
  PolyMeshTriangulator triangulator;
  triangulator.points = polygon;
  std::vector<u32> triangles;
  triangulator.triangulate(triangles);
  const u32 count = static_cast<u32>(polygon.size());
  ASSERT_EQ(triangles.size(), 3 * (count - 2));
  std::map<std::pair<u32, u32>, int> edges;
  double area = 0.0;
  for (std::size_t t = 0; t < triangles.size(); t += 3) {
    const u32* corner = &triangles[t];
    for (uint k = 0; k < 3; ++k) {
      ++edges[{corner[k], corner[(k + 1) % 3]}];
      --edges[{corner[(k + 1) % 3], corner[k]}];
    }
    const Vec a = polygon[corner[0]], cross = (polygon[corner[1]] - a).cross(polygon[corner[2]] - a);
    EXPECT_FALSE(cross.dot(normal) < -1e-9) << "triangle " << t / 3;
    area += std::fabs(cross.dot(normal));
  }
  const double whole = poly_mesh_get_newell_normal(polygon).dot(normal);
  EXPECT_FALSE(std::fabs(area - whole) > 1e-9 * area);
  for (u32 k = 0; k < count; ++k) {
    --edges[{k, (k + 1) % count}];
    ++edges[{(k + 1) % count, k}];
  }
  for (const auto& [edge, left_over] : edges) EXPECT_EQ(left_over, 0) << edge.first << " to " << edge.second;
}

TEST(PolyMeshTriangulate, covers_concave_polygons_and_nothing_else) {
  RandomValues random(11);
  for (uint k = 0; k < scaled(100, 20); ++k) {
    const Vec normal = random.get_vec().get_normalized(), side = normal.cross(random.get_vec()).get_normalized();
    for (std::vector<Vec> polygon : {make_star(random, 4 + random.get_index(60)), make_spiral(8 + k)}) {
      for (Vec& point : polygon) point = side * point.x + normal.cross(side) * point.y;
      SCOPED_TRACE(k);
      check_triangles(polygon, normal);
    }
  }
  // An outline, along the cut to its hole, round that clockwise, and back along the cut.
  const double ring[][2] = {{-1, -1},     {1, -1},     {1, 1},     {-1, 1},     {-1, -1},
                            {-0.5, -0.5}, {-0.5, 0.5}, {0.5, 0.5}, {0.5, -0.5}, {-0.5, -0.5}};
  std::vector<Vec> with_hole;
  for (const auto& [x, y] : ring) with_hole.push_back({x, y, 0});
  check_triangles(with_hole, {0, 0, 1});
  // An ear may neither hold a corner on its edge nor be refused for one that stands twice at its own corner.
  check_triangles({{-3, -2, 0}, {1, -1, 0}, {-3, 1, 0}, {-1, 0, 0}}, {0, 0, 1});
  check_triangles({{5, 1, 0},
                   {4, 2, 0},
                   {4, 1, 0},
                   {3, -4, 0},
                   {6, -4, 0},
                   {6, 4, 0},
                   {0, 4, 0},
                   {0, -4, 0},
                   {3, -4, 0},
                   {4, 1, 0}},
                  {0, 0, 1});
}

// Every corner against every other would take more tests than there is time for.
TEST(PolyMeshTriangulate, covers_polygons_of_many_thousand_corners) {
  RandomValues random(12);
  const uint count = scaled(100000, 1200);
  for (const std::vector<Vec>& polygon : {make_star(random, count), make_spiral(count / 2), make_spikes(random, count)})
    check_triangles(polygon, {0, 0, 1});
  std::vector<Vec> tangle;
  while (tangle.size() < count / 4) tangle.push_back(random.get_vec());
  check_triangles(tangle, {0, 0, 0});
}

TEST(PolyMeshTriangulate, loses_nothing_of_degenerate_polygons) {
  const double none = std::numeric_limits<double>::quiet_NaN();
  const std::vector<std::vector<Vec>> polygons = {
      {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}},                                              // a line
      {{1, 1, 1}, {1, 1, 1}, {1, 1, 1}, {1, 1, 1}, {1, 1, 1}},                                   // a point
      {{0, 0, 0}, {1, 1, 0}, {1, 0, 0}, {0, 1, 0}},                                              // a bow tie
      {{0, 0, 0}, {1, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 1, 0}},                        // doubled corners
      {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {2, 1, 0}, {2, 2, 0}, {1, 2, 0}, {0, 2, 0}, {0, 1, 0}},  // straight corners
      {{0, 0, 0}, {2, 0, 0}, {2, 2, 0}, {1, 2, 0}, {1, 3, 0}, {1, 2, 0}, {0, 2, 0}},             // a spike
      {{0, 0, 0}, {none, 0, 0}, {1, 1, 0}, {0, 1, none}, {5, 5, 5}},
      {{1e38, 0, 0}, {0, 1e38, 0}, {-1e38, 0, 0}, {0, -1e38, 0}, {1e-38, 0, 0}}};
  for (const std::vector<Vec>& polygon : polygons) check_triangles(polygon, {0, 0, 0});
}

TEST(PolyMeshCreate, refuses_what_does_not_fit_together) {
  const PolyMeshData sound = make_polygons({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}, 4);
  PolyMesh mesh;
  create(mesh, sound);
  const GeometryUvMap short_map{CoreString("map"), {{0, 0, 0}}, {0, 0, 0}}, far_map{{}, {{0, 0, 0}}, {0, 0, 0, 1}};
  const std::function<void(PolyMeshData&)> faults[] = {
      [](PolyMeshData& data) { data.polygon_vertices[2] = 4; },
      [](PolyMeshData& data) { data.polygon_vertices.pop_back(); },
      [](PolyMeshData& data) { data.polygon_sizes[0] = 3; },
      [](PolyMeshData& data) {
        data.polygon_sizes.assign({0xFFFFFFFFu, 5});
      },
      [](PolyMeshData& data) { data.polygon_groups.assign(1, 1); },
      [](PolyMeshData& data) { data.polygon_groups.assign(2, 0); },
      [](PolyMeshData& data) { data.edge_visible.assign(3, 1); },
      [](PolyMeshData& data) { data.corner_normals.assign(4, 0); },
      [&](PolyMeshData& data) { data.uv_maps.push_back(short_map); },
      [&](PolyMeshData& data) { data.uv_maps.push_back(far_map); },
      [&](PolyMeshData& data) {
        data.uv_maps.push_back({{}, {{0, 0, 0}}, {0, 0, 0, 0, 0}});
      },
      [](PolyMeshData& data) { data.motion_positions.resize(2); },
      [](PolyMeshData& data) { data.motion_positions.assign(2, data.positions), data.motion_step = 0; },
      [](PolyMeshData& data) { data.motion_positions.assign(2, data.positions), data.motion_begin = NAN; }};
  for (std::size_t k = 0; k < std::size(faults); ++k) {
    PolyMeshData data = sound;
    faults[k](data);
    CoreString error;
    EXPECT_FALSE(mesh.create(std::move(data), error)) << k;
    EXPECT_EQ(error.get_view().back(), '.') << k;
    EXPECT_EQ(mesh.get_part_count(0), 2u) << "the former mesh stays";
  }
}

TEST(PolyMeshCreate, keeps_polygons_that_are_none_as_invalid_primitives) {
  QueryWorld world;
  PolyMeshData data = make_polygons({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}}, 3);
  data.polygon_sizes = {0, 2, 3, 1};
  data.polygon_vertices = {0, 1, 0, 1, 2, 2};
  PolyMesh mesh;
  create(mesh, data);
  for (uint p = 0; p < 4; ++p) {
    EXPECT_EQ(mesh.is_polygon_valid(p), p == 2);
    EXPECT_EQ(gmath_is_valid_box(mesh.get_primitive_bbox(world.ctx, p)), p == 2);
    EXPECT_EQ(mesh.get_edge_proximity({.primitive = p}) > 0, p == 2);
  }
  EXPECT_EQ(shoot(world, mesh, {0.9, 0.1, 1}, {0, 0, -1}).primitive, 2u);
  EXPECT_EQ(mesh.get_bbox(world.ctx), GMathBbox3<double>({0, 0, 0}, {1, 1, 0}));
  create(mesh, PolyMeshData());
  EXPECT_EQ(mesh.get_primitive_count(), 0u);
  EXPECT_TRUE(mesh.get_bbox(world.ctx).is_empty());
}

TEST(PolyMeshCreate, knows_which_groups_move) {
  PolyMeshData data = make_polygons({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}}, 3);
  data.group_names = {CoreString("still"), CoreString("moving")};
  data.polygon_groups = {0, 1};
  data.motion_positions.assign(3, data.positions);
  data.motion_positions[2][5].z = 2;
  PolyMesh mesh;
  create(mesh, data);
  EXPECT_FALSE(mesh.has_shading_group_motion(0));
  EXPECT_TRUE(mesh.has_shading_group_motion(1));
  EXPECT_FALSE(mesh.has_shading_group_motion(2));
}

TEST(PolyMeshSurface, point_normals_and_uv_of_a_hit) {
  QueryWorld world;
  // An L in the plane z = 2: concave, so that the parts' corners are not the polygon's first three.
  PolyMeshData data = make_polygons({{0, 0, 2}, {2, 0, 2}, {2, 1, 2}, {1, 1, 2}, {1, 2, 2}, {0, 2, 2}}, 6);
  GeometryUvMap uv_map;
  for (u32 k = 6; k-- > 0;) {  // stored backwards: a position's index is not its corner's
    uv_map.positions.push_back(VecF(data.positions[k].x * 0.5f, data.positions[k].y * 0.25f, 0));
    uv_map.corner_positions.push_back(k);
  }
  data.normals = {{0, 0, 1}, {1, 0, 1}};
  data.corner_normals = {0, 1, 1, 0, 0, 0};
  data.uv_maps = {uv_map};
  PolyMesh mesh;
  create(mesh, data);
  RandomValues random(3);
  for (uint k = 0; k < 200; ++k) {
    const Vec origin(random.get(0.01, 1.99), random.get(0.01, 0.99), 5);
    const GeometryIntersection hit = shoot(world, mesh, origin, {0, 0, -1});
    ASSERT_EQ(hit.geometry, &mesh);
    const GeometrySurfacePoint point = mesh.get_surface_point(hit, 0.0);
    EXPECT_NEAR((point.position - Vec(origin.x, origin.y, 2)).get_length(), 0, 1e-12);
    EXPECT_EQ(point.normal, Vec(0, 0, 1));
    EXPECT_NEAR(point.shading_normal.get_length(), 1, 1e-12);
    EXPECT_GE(point.shading_normal.x, 0);
    EXPECT_NEAR(point.uv.x, origin.x * 0.5, 1e-12);
    EXPECT_NEAR(point.uv.y, origin.y * 0.25, 1e-12);
  }
  EXPECT_EQ(shoot(world, mesh, {1.5, 1.5, 5}, {0, 0, -1}).geometry, nullptr);
}

TEST(PolyMeshSurface, smooth_positions_are_lifted_where_the_surface_bulges) {
  PolyMeshData data;  // a triangle whose normals lean outwards, as on a ball around the origin
  data.positions = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  data.polygon_sizes = {3};
  data.polygon_vertices = {0, 1, 2};
  data.normals = {{2, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  data.corner_normals = {0, 1, 2};
  PolyMesh mesh;
  create(mesh, data);
  GeometryIntersection hit;
  hit.primitive = hit.part = 0;
  hit.u = hit.v = 1.0 / 3.0;  // below each plane by two thirds, each third of which lifts along its normal
  EXPECT_NEAR((mesh.get_smooth_position(hit, 0.0, false) - Vec(5, 5, 5) * (1.0 / 9.0)).get_length(), 0, 1e-12);
  EXPECT_NEAR((mesh.get_smooth_position(hit, 0.0, true) - Vec(1, 1, 1) * (1.0 / 3.0)).get_length(), 0, 1e-12)
      << "from behind the surface is hollow";
  hit.u = 1.0, hit.v = 0.0;
  EXPECT_NEAR((mesh.get_smooth_position(hit, 0.0, false) - Vec(0, 1, 0)).get_length(), 0, 1e-12);
  data.corner_normals.clear();
  create(mesh, data);
  EXPECT_NEAR((mesh.get_smooth_position(hit, 0.0, false) - Vec(0, 1, 0)).get_length(), 0, 1e-12);
}

TEST(PolyMeshSurface, edge_proximity_is_one_on_visible_edges_and_zero_in_the_middle) {
  QueryWorld world;
  PolyMeshData data = make_polygons({{0, 0, 0}, {8, 0, 0}, {8, 2, 0}, {0, 2, 0}}, 4);
  PolyMesh mesh;
  const auto get = [&](double x, double y) {
    return mesh.get_edge_proximity(shoot(world, mesh, {x, y, 1}, {0, 0, -1}));
  };
  create(mesh, data);
  EXPECT_NEAR(get(4, 1), 0, 1e-12);
  EXPECT_NEAR(get(4, 0.5), 0.5, 1e-12);
  EXPECT_NEAR(get(3, 0), 1, 1e-12);
  EXPECT_LT(get(4, 1.1), 0.2);  // the diagonal between the two triangles is no edge
  data.edge_visible = {1, 0, 0, 0};
  create(mesh, data);
  EXPECT_NEAR(get(3, 2), 0, 1e-12);
  EXPECT_NEAR(get(0, 1), 0.5, 1e-12);  // on an edge that is not drawn
  data.edge_visible = {0, 0, 0, 0};
  create(mesh, data);
  EXPECT_EQ(get(1, 0), 0);
  PolyMeshData triangle = make_polygons({{0, 0, 0}, {8, 0, 0}, {0, 8, 0}}, 3);
  triangle.edge_visible = {0, 1, 0};  // away from it by what the first corner weighs
  create(mesh, triangle);
  EXPECT_NEAR(get(6, 1), 1 - 1 / 8.0, 1e-12);
  EXPECT_NEAR(get(0, 2), 1 - 6 / 8.0, 1e-12);
}

// Sides are tested through the structure.
TEST(PolyMeshFrustum, ends_cut_as_sides_do) {
  QueryWorld world;
  PolyMesh mesh;
  create(mesh, make_polygons({{0, 0, 0}, {1, 0, 0}, {1, 1, 2}}, 3));
  for (const double z : {1.0, 3.0}) {
    GeometryFrustumCtx query;
    query.end_planes[query.end_plane_count++] = {{0, 0, z}, {0, 0, 1}};
    mesh.frustum_hit_primitive(world.ctx, world.shader, query, 0);
    EXPECT_EQ(query.result.hit_count, z < 2 ? 1u : 0u);
  }
}

}  // namespace
