// Texture coordinates at points of polygons: of a UV map, projected, and of curves.
#include "vq_geometry/geometry_fragment.h"

#include "support/curve_scenes.h"
#include "support/mesh_scenes.h"
#include "support/query_world.h"
#include "vq_curve/tube_mesh_fast.h"
#include "vq_geometry/geometry_intersection.h"

namespace {

using Vec = GMathVec3<double>;

}  // namespace

// At the corners a fragment has what a hit there has; between them it blends.
TEST(GeometryFragment, has_the_texture_coordinates_of_hits) {
  QueryWorld world;
  PolyMeshData data = make_soup(5, 1);
  add_loose_polygon(data, {{0, 0, 1}, {1, 0, 1}, {1, 1, 1.5}, {0, 1, 1.5}});
  const auto get = [&](const GeometryObject& geometry, uint polygon, uint corner) {
    GeometryFragment fragment(world.ctx, geometry);
    fragment.set_polygon(polygon);
    fragment.set_corner(geometry.get_polygon_vertex_count(polygon), corner);
    return Vec(fragment.get_uv(0));
  };
  const auto get_hit = [](const GeometryObject& geometry, uint primitive, uint part, double u, double v) {
    GeometryIntersection hit;
    hit.u = u;
    hit.v = v;
    hit.primitive = primitive;
    hit.part = part;
    return geometry.get_surface_point(hit, NAN).uv;
  };
  for (uint kind = 0; kind < 3; ++kind) {
    data.uv_projection = PolyMeshProjection(kind);
    data.uv_maps.clear();
    if (kind == 0) data.uv_maps = {{"uv", data.positions, data.polygon_vertices}};
    PolyMesh mesh;
    CoreString error;
    ASSERT_TRUE(mesh.create(PolyMeshData(data), error));
    for (uint p = 0; p < 6; ++p) {
      for (uint part = 0; part < mesh.get_part_count(p); ++part)
        for (uint k = 0; k < 3; ++k)
          EXPECT_LT((get_hit(mesh, p, part, k == 1, k == 2) -
                     get(mesh, p, mesh.get_part_corners(p, part)[k] - mesh.get_first_corner(p)))
                        .get_length(),
                    1e-6)
              << kind << " " << p << " " << k;
      const double weights[2][4] = {{0.25, 0.25, 0.5, 0.0}, {0.375, 0.125, 0.125, 0.375}};
      Vec blend;
      for (uint k = 0; k < (p < 5 ? 3u : 4u); ++k) blend = blend + get(mesh, p, k) * weights[p / 5][k];
      EXPECT_LT((blend - Vec(mesh.get_polygon_uv(world.ctx, 0, p, {0.25, 0.5, 0.0}))).get_length(), 1e-6) << p;
    }
    EXPECT_EQ(mesh.get_polygon_uv(world.ctx, 1, 0, {1, 0, 0}), GMathVec3<float>());
  }
  TubeMeshFast hair;
  CoreString error;
  ASSERT_TRUE(hair.create(make_hair(CurveBasis::linear, 4, 1), error));
  for (uint segment = 0; segment < hair.get_polygon_count(); ++segment)
    for (uint corner = 0; corner < 4; ++corner)
      EXPECT_LT((get_hit(hair, segment, 0, corner == 1 || corner == 2, corner >= 2) - get(hair, segment, corner))
                    .get_length(),
                1e-6);
}

// A box of 2 x 3 x 1: seen from its shortest side, or each side in a cell of its own, by one scale.
TEST(GeometryFragment, projects_with_one_scale) {
  QueryWorld world;
  PolyMeshData data = make_cube_grid(1);
  for (GMathVec3<float>& p : data.positions) p = {2 * p.x + 7, 3 * p.y, p.z};
  std::set<std::pair<int, int>> cells;
  for (const PolyMeshProjection kind : {PolyMeshProjection::planar, PolyMeshProjection::cubic}) {
    data.uv_projection = kind;
    PolyMesh mesh;
    CoreString error;
    ASSERT_TRUE(mesh.create(PolyMeshData(data), error));
    const bool is_planar = kind == PolyMeshProjection::planar;
    for (uint p = 0; p < 12; ++p) {
      Vec uv[3];
      for (uint k = 0; k < 3; ++k)
        uv[k] = Vec(mesh.get_polygon_uv(world.ctx, 0, p, {k == 1 ? 1.0 : 0.0, k == 2 ? 1.0 : 0.0, 0.0}));
      const Vec center = (uv[0] + uv[1] + uv[2]) * (1 / 3.0);
      const int column = static_cast<int>(center.x * 3), row = static_cast<int>(center.y * 2);
      if (!is_planar) cells.insert({column, row});
      for (uint k = 0; k < 3; ++k) {
        Vec way(mesh.get_position(3 * p + (k + 1) % 3) - mesh.get_position(3 * p + k));
        if (is_planar) way.z = 0;
        const double scale = is_planar ? 1 / 6.0 : 0.95 / 18;
        EXPECT_NEAR((uv[(k + 1) % 3] - uv[k]).get_length(), way.get_length() * scale, 1e-6);
        EXPECT_TRUE(uv[k].x >= 0 && uv[k].x <= 1 && uv[k].y >= 0 && uv[k].y <= 1);
        if (is_planar) continue;
        EXPECT_TRUE(uv[k].x > column / 3.0 && uv[k].x < (column + 1) / 3.0 && uv[k].y > row / 2.0 &&
                    uv[k].y < (row + 1) / 2.0);
      }
    }
  }
  EXPECT_EQ(cells.size(), 6u);
}
