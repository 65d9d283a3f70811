// Meshes apart from their ray test: triangulation, what create() refuses, surfaces, edges and frustums.
#include "vq_geometry/poly_mesh.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <limits>
#include <numbers>

#include "support/query_world.h"
#include "support/random_values.h"
#include "support/test_scale.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_ray_packet.h"
#include "vq_geometry/poly_mesh_triangulate.h"

namespace {

using Vec = GMathVec3<double>;
using VecF = GMathVec3<float>;
using Outline = std::vector<GMathVec2<double>>;

PolyMeshData make_polygon(const std::vector<VecF>& positions) {
  PolyMeshData data;
  data.positions = positions;
  data.polygon_sizes = {static_cast<u32>(positions.size())};
  for (u32 k = 0; k < positions.size(); ++k) data.polygon_vertices.push_back(k);
  return data;
}

void create(PolyMesh& mesh, PolyMeshData data) {
  CoreString error;
  ASSERT_TRUE(mesh.create(std::move(data), error)) << error.get_data();
}

GeometryIntersection shoot(QueryWorld& world, const PolyMesh& mesh, const Vec& origin, const Vec& direction) {
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, origin, direction);
  GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
  query.geometry = &mesh;
  for (uint p = 0; p < mesh.get_primitive_count(); ++p) mesh.ray_hit_primitive(world.ctx, world.shader, query, p);
  return packet.get_nearest(0);
}

// ---- outlines

Outline make_star(RandomValues& random, uint count) {
  Outline outline;
  for (uint k = 0; k < count; ++k) {
    const double angle = 2 * std::numbers::pi * k / count, radius = random.get(0.2, 1.0);
    outline.push_back({radius * std::cos(angle), radius * std::sin(angle)});
  }
  return outline;
}

Outline make_comb(RandomValues& random, uint teeth) {
  Outline outline = {{1.0, -1.0}, {1.0, -0.8}};
  for (uint k = 0; k < teeth; ++k) {
    const double right = 1.0 - 2.0 * k / teeth, left = 1.0 - 2.0 * (k + 1) / teeth;
    outline.push_back({(right + left) / 2, random.get(-0.5, 1.0)});
    outline.push_back({left, -0.8});
  }
  outline.push_back({-1.0, -1.0});
  return outline;
}

/// A corridor that winds inwards: an ear is found only at its two ends.
Outline make_spiral(uint count) {
  Outline outline;
  const auto get_point = [&](uint k, double shift) {
    const double angle = 0.4 * k, radius = 0.1 + 0.9 * (k + shift) / (count + 16.0);
    return GMathVec2<double>{radius * std::cos(angle), radius * std::sin(angle)};
  };
  for (uint k = 0; k < count; ++k) outline.push_back(get_point(k, 8.0));
  for (uint k = count; k-- > 0;) outline.push_back(get_point(k, 0.0));
  return outline;
}

double get_area(const Outline& outline) {
  double twice = 0;
  for (std::size_t k = 0; k < outline.size(); ++k) {
    const auto& a = outline[k];
    const auto& b = outline[(k + 1) % outline.size()];
    twice += a.x * b.y - a.y * b.x;
  }
  return twice / 2;
}

int get_winding(const Outline& outline, double x, double y) {
  int winding = 0;
  for (std::size_t k = 0; k < outline.size(); ++k) {
    const auto& a = outline[k];
    const auto& b = outline[(k + 1) % outline.size()];
    const double side = (b.x - a.x) * (y - a.y) - (b.y - a.y) * (x - a.x);
    if (a.y <= y && b.y > y && side > 0) ++winding;
    if (a.y > y && b.y <= y && side < 0) --winding;
  }
  return winding;
}

double get_border_distance(const Outline& outline, double x, double y) {
  double nearest = 1e9;
  for (std::size_t k = 0; k < outline.size(); ++k) {
    const auto& a = outline[k];
    const auto& b = outline[(k + 1) % outline.size()];
    const double ex = b.x - a.x, ey = b.y - a.y;
    const double s = std::clamp(((x - a.x) * ex + (y - a.y) * ey) / (ex * ex + ey * ey), 0.0, 1.0);
    nearest = std::min(nearest, std::hypot(x - a.x - s * ex, y - a.y - s * ey));
  }
  return nearest;
}

// ---- triangulation

/// Lays the outline into a random plane and holds hits against the winding number.
void check_outline(QueryWorld& world, RandomValues& random, const Outline& outline, const char* name) {
  const Vec normal = random.get_vec().get_normalized();
  const Vec side = normal.cross(random.get_vec()).get_normalized(), up = normal.cross(side),
            centre = random.get_vec(3.0);
  const auto place = [&](double x, double y) { return centre + side * x + up * y; };
  std::vector<VecF> positions;
  for (const auto& point : outline) positions.push_back(VecF(place(point.x, point.y)));
  PolyMesh mesh;
  create(mesh, make_polygon(positions));
  ASSERT_EQ(mesh.get_part_count(0), outline.size() - 2);
  double area = 0;
  for (uint part = 0; part < mesh.get_part_count(0); ++part) {
    const u32* v = mesh.get_part_vertices(0, part);
    const Vec a(positions[v[0]]), b(positions[v[1]]), c(positions[v[2]]);
    const Vec cross = (b - a).cross(c - a);
    area += cross.get_length() / 2;
    EXPECT_GE(cross.dot(normal), -1e-6) << name << ": wound against the polygon";
  }
  EXPECT_NEAR(area, get_area(outline), 1e-5) << name << " of " << outline.size();
  for (uint k = 0; k < scaled(300, 50); ++k) {
    const double x = random.get(-1.1, 1.1), y = random.get(-1.1, 1.1);
    if (get_border_distance(outline, x, y) < 1e-4) continue;
    const Vec origin = place(x, y) + normal * random.get(0.5, 2.0) * (k % 2 == 0 ? 1 : -1);
    const bool hit = shoot(world, mesh, origin, place(x, y) - origin).geometry != nullptr;
    EXPECT_EQ(hit, get_winding(outline, x, y) != 0) << name << " at " << x << " " << y;
  }
}

TEST(PolyMeshTriangulate, covers_concave_polygons_and_nothing_else) {
  QueryWorld world;
  RandomValues random(11);
  for (uint k = 0; k < scaled(40, 8); ++k) {
    check_outline(world, random, make_star(random, 4 + random.get_index(60)), "star");
    check_outline(world, random, make_comb(random, 1 + random.get_index(30)), "comb");
    check_outline(world, random, make_spiral(8 + random.get_index(60)), "spiral");
  }
}

TEST(PolyMeshTriangulate, a_hole_that_is_joined_by_a_cut_stays_open) {
  QueryWorld world;
  RandomValues random(12);
  // Outline, along the cut to the hole, round it clockwise, and back along the cut.
  const Outline outline = {{-1, -1},     {1, -1},     {1, 1},     {-1, 1},     {-1, -1},
                           {-0.5, -0.5}, {-0.5, 0.5}, {0.5, 0.5}, {0.5, -0.5}, {-0.5, -0.5}};
  check_outline(world, random, outline, "frame");
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
  PolyMeshTriangulator triangulator;
  std::vector<u32> triangles;
  for (std::size_t k = 0; k < polygons.size(); ++k) {
    triangulator.points = polygons[k];
    triangulator.triangulate(triangles);
    ASSERT_EQ(triangles.size(), 3 * (polygons[k].size() - 2)) << k;
    // Each edge of the polygon is an edge of one triangle, in the same direction: neighbours have no gap to it.
    const u32 count = static_cast<u32>(polygons[k].size());
    for (u32 from = 0; from < count; ++from) {
      uint found = 0;
      for (std::size_t t = 0; t < triangles.size(); ++t) {
        const u32 next = t % 3 == 2 ? triangles[t - 2] : triangles[t + 1];
        if (triangles[t] == from && next == (from + 1) % count) ++found;
      }
      EXPECT_EQ(found, 1u) << "polygon " << k << " edge " << from;
    }
  }
}

TEST(PolyMeshTriangulate, thousands_of_corners_take_no_noticeable_time) {
  RandomValues random(13);
  PolyMeshTriangulator triangulator;
  std::vector<u32> triangles;
  for (uint kind = 0; kind < 3; ++kind) {
    const Outline outline = kind == 0   ? make_comb(random, scaled(3000, 300))
                            : kind == 1 ? make_spiral(scaled(2000, 300))
                                        : make_star(random, scaled(6000, 300));
    triangulator.points.clear();
    for (const auto& point : outline) triangulator.points.push_back({point.x, point.y, 0});
    triangulator.triangulate(triangles);
    double area = 0;
    for (std::size_t t = 0; t < triangles.size(); t += 3) {
      const Vec a = triangulator.points[triangles[t]], b = triangulator.points[triangles[t + 1]],
                c = triangulator.points[triangles[t + 2]];
      area += std::fabs((b - a).cross(c - a).z) / 2;
    }
    EXPECT_NEAR(area, get_area(outline), 1e-9) << kind;
  }
}

// ---- input

TEST(PolyMeshCreate, refuses_what_does_not_fit_together) {
  const PolyMeshData sound = make_polygon({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}});
  PolyMesh mesh;
  create(mesh, sound);
  const GeometryUvMap uv_map{CoreString("map"), {{0, 0, 0}}, {0, 0, 0, 0}};
  const std::vector<std::function<void(PolyMeshData&)>> faults = {
      [](PolyMeshData& data) { data.polygon_vertices[2] = 4; },
      [](PolyMeshData& data) { data.polygon_vertices.pop_back(); },
      [](PolyMeshData& data) { data.polygon_sizes[0] = 3; },
      [](PolyMeshData& data) {
        data.polygon_sizes = {0xFFFFFFFFu, 5};
      },
      [](PolyMeshData& data) { data.polygon_groups = {1}; },
      [](PolyMeshData& data) {
        data.polygon_groups = {0, 0};
      },
      [](PolyMeshData& data) {
        data.edge_visible = {1, 1, 1};
      },
      [](PolyMeshData& data) {
        data.corner_normals = {0, 0, 0, 0};
      },
      [](PolyMeshData& data) {
        data.normals = {{0, 0, 1}}, data.corner_normals = {0, 0, 0};
      },
      [&](PolyMeshData& data) { data.uv_maps = {uv_map}, data.uv_maps[0].corner_positions[3] = 1; },
      [&](PolyMeshData& data) { data.uv_maps = {uv_map}, data.uv_maps[0].corner_positions.pop_back(); },
      [](PolyMeshData& data) {
        data.motion_positions = {data.positions, {{0, 0, 0}}};
      },
      [](PolyMeshData& data) {
        data.motion_positions = {data.positions, data.positions}, data.motion_step = 0;
      },
      [](PolyMeshData& data) {
        data.motion_positions = {data.positions, data.positions}, data.motion_begin = NAN;
      }};
  for (std::size_t k = 0; k < faults.size(); ++k) {
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
  PolyMeshData data = make_polygon({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}});
  data.polygon_sizes = {0, 2, 3, 1};
  data.polygon_vertices = {0, 1, 0, 1, 2, 2};
  PolyMesh mesh;
  create(mesh, data);
  ASSERT_EQ(mesh.get_primitive_count(), 4u);
  for (uint p = 0; p < 4; ++p) {
    EXPECT_EQ(mesh.is_polygon_valid(p), p == 2);
    EXPECT_EQ(gmath_is_valid_box(mesh.get_primitive_bbox(world.ctx, p)), p == 2);
    EXPECT_EQ(mesh.get_edge_proximity({.primitive = p}) > 0, p == 2);
  }
  EXPECT_EQ(shoot(world, mesh, {0.9, 0.1, 1}, {0, 0, -1}).primitive, 2u);
  EXPECT_EQ(mesh.get_bbox(world.ctx), GMathBbox3<double>({0, 0, 0}, {1, 1, 0}));
  EXPECT_EQ(mesh.get_shading_groups()[0], CoreString("default"));
  create(mesh, PolyMeshData());
  EXPECT_EQ(mesh.get_primitive_count(), 0u);
  EXPECT_TRUE(mesh.get_bbox(world.ctx).is_empty());
}

// ---- surface

TEST(PolyMeshSurface, point_normals_and_uv_of_a_hit) {
  QueryWorld world;
  // An L in the plane z = 2: concave, so that the parts' corners are not the polygon's first three.
  PolyMeshData data = make_polygon({{0, 0, 2}, {2, 0, 2}, {2, 1, 2}, {1, 1, 2}, {1, 2, 2}, {0, 2, 2}});
  GeometryUvMap uv_map{CoreString("second"), {}, {}};
  for (u32 k = 6; k-- > 0;) {  // stored backwards: a position's index is not its corner's
    uv_map.positions.push_back(VecF(data.positions[k].x * 0.5f, data.positions[k].y * 0.25f, 0));
    uv_map.corner_positions.push_back(k);
  }
  data.normals = {{0, 0, 1}, {1, 0, 1}};
  data.corner_normals = {0, 1, 1, 0, 0, 0};
  data.uv_maps = {uv_map, uv_map};
  data.uv_maps[1].name = CoreString("third");
  PolyMesh mesh;
  create(mesh, data);
  uint index = 9;
  EXPECT_TRUE(mesh.get_uv_map_index(CoreString("third"), index));
  EXPECT_EQ(index, 1u);
  EXPECT_FALSE(mesh.get_uv_map_index(CoreString("first"), index));
  EXPECT_EQ(mesh.get_uv_map(2), nullptr);
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
}

TEST(PolyMeshSurface, edge_proximity_is_one_on_visible_edges_and_zero_in_the_middle) {
  QueryWorld world;
  const auto get = [&](const PolyMesh& mesh, double x, double y) {
    return mesh.get_edge_proximity(shoot(world, mesh, {x, y, 1}, {0, 0, -1}));
  };
  PolyMeshData triangle = make_polygon({{0, 0, 0}, {3, 0, 0}, {0, 3, 0}});
  PolyMesh mesh;
  create(mesh, triangle);
  EXPECT_NEAR(get(mesh, 1, 1), 0, 1e-12);
  EXPECT_NEAR(get(mesh, 1, 0), 1, 1e-12);
  EXPECT_NEAR(get(mesh, 1.5, 1.5), 1, 1e-12);
  triangle.edge_visible = {1, 0, 0};
  create(mesh, triangle);
  EXPECT_NEAR(get(mesh, 0, 3), 0, 1e-12);
  EXPECT_NEAR(get(mesh, 0, 1.5), 0.5, 1e-12);  // on an edge that is not drawn
  triangle.edge_visible = {0, 0, 0};
  create(mesh, triangle);
  EXPECT_EQ(get(mesh, 1, 0), 0);

  PolyMeshData rectangle = make_polygon({{0, 0, 0}, {8, 0, 0}, {8, 2, 0}, {0, 2, 0}});
  create(mesh, rectangle);
  EXPECT_NEAR(get(mesh, 4, 1), 0, 1e-12);
  EXPECT_NEAR(get(mesh, 4, 0.5), 0.5, 1e-12);
  EXPECT_NEAR(get(mesh, 3, 0), 1, 1e-12);
  EXPECT_LT(get(mesh, 4, 1.1), 0.2);  // the diagonal between the two triangles is no edge
  rectangle.edge_visible = {1, 0, 0, 0};
  create(mesh, rectangle);
  EXPECT_NEAR(get(mesh, 3, 2), 0, 1e-12);
  EXPECT_NEAR(get(mesh, 0, 1), 0.5, 1e-12);
}

// ---- frustums

TEST(PolyMeshFrustum, agrees_with_points_sampled_on_the_polygon) {
  QueryWorld world;
  RandomValues random(5);
  uint touched = 0, missed = 0;
  for (uint k = 0; k < scaled(3000, 300); ++k) {
    PolyMesh mesh;
    const VecF a = random.get_vec<float>(2.0), b = random.get_vec<float>(2.0), c = random.get_vec<float>(2.0);
    create(mesh, make_polygon({a, b, c}));
    GeometryFrustumCtx query;
    const uint planes = 1 + random.get_index(8);
    for (uint p = 0; p < planes; ++p) {
      const Vec normal = random.get_vec();
      query.add_plane(GeometryPlane(normal.get_normalized() * -random.get(0.0, 1.2), normal));
    }
    query.end_plane_count = random.get_index(3);
    for (uint p = 0; p < query.end_plane_count; ++p)
      query.end_planes[p] = GeometryPlane({0, 0, p == 0 ? -1.0 : 1.0}, {0, 0, p == 0 ? 1.0 : -1.0});
    bool any_inside = false;
    const int steps = 60;
    for (int i = 0; i <= steps && !any_inside; ++i)
      for (int j = 0; i + j <= steps && !any_inside; ++j) {
        const double u = 1.0 * i / steps, v = 1.0 * j / steps;
        any_inside = query.contains(Vec(a) * (1 - u - v) + Vec(b) * u + Vec(c) * v);
      }
    mesh.frustum_hit_primitive(world.ctx, world.shader, query, 0);
    EXPECT_EQ(query.result.hit_count, query.result.finished);
    if (any_inside) {
      ++touched;
      EXPECT_EQ(query.result.finished, 1) << k;
    } else if (query.result.finished != 0) {
      // A sliver between the samples: all planes, taken back a little, must meet samples.
      GeometryFrustumCtx wider;
      for (uint p = 0; p < query.plane_count; ++p) wider.add_plane(query.planes[p]);
      for (uint p = 0; p < query.end_plane_count; ++p) wider.end_planes[wider.end_plane_count++] = query.end_planes[p];
      for (auto* set : {wider.planes, wider.end_planes})
        for (uint p = 0; p < (set == wider.planes ? wider.plane_count : wider.end_plane_count); ++p)
          set[p].offset += 0.12 * set[p].normal.get_length();
      bool near = false;
      for (int i = 0; i <= steps; ++i)
        for (int j = 0; i + j <= steps; ++j) {
          const double u = 1.0 * i / steps, v = 1.0 * j / steps;
          near = near || wider.contains(Vec(a) * (1 - u - v) + Vec(b) * u + Vec(c) * v);
        }
      EXPECT_TRUE(near) << k;
    } else {
      ++missed;
    }
  }
  EXPECT_GT(touched, 50u);
  EXPECT_GT(missed, 50u);
}

TEST(PolyMeshFrustum, modes_answer_in_their_own_way) {
  QueryWorld world;
  PolyMeshData data = make_polygon({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}});
  data.positions.push_back({-5, 0, 0});  // belongs to the second polygon only
  data.polygon_sizes = {4, 3};
  data.polygon_vertices = {0, 1, 2, 3, 0, 3, 4};
  PolyMesh mesh;
  create(mesh, data);
  const auto ask = [&](uint mode, GeometryFrustumCtx& query) {
    query.mode = mode;
    query.add_plane(GeometryPlane({-1, 0, 0}, {1, 0, 0}));  // x >= -1
    query.mask.assign(5, 0);
    for (const uint p : {0u, 1u}) mesh.frustum_hit_primitive(world.ctx, world.shader, query, p);
  };
  GeometryFrustumCtx any, all, points, vertices, other;
  ask(0, any);
  EXPECT_EQ(any.result.hit_count, 2u);
  ask(1, all);
  EXPECT_EQ(all.result.hit_count, 1u);
  EXPECT_EQ(all.result.outside, 1);
  EXPECT_EQ(all.result.finished, 0);
  ask(2, points);
  ask(3, vertices);
  for (const GeometryFrustumCtx* query : {&points, &vertices}) EXPECT_EQ(query->mask, (std::vector<u8>{1, 1, 1, 1, 0}));
  ask(4, other);
  EXPECT_EQ(other.mask, std::vector<u8>(5, 0));
  EXPECT_EQ(other.result.hit_count, 0u);
}

}  // namespace
