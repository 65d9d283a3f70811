// The edges of a geometry's UV layout against a set of directed edges.
#include "gas/geometry_uv_map_data.h"

#include <chrono>

#include "support/uv_world.h"

namespace {

std::vector<UvEdge> load_edges(GeometryUvMapData& data) {
  data.load();
  std::vector<UvEdge> edges;
  for (const GeometryUvEdge& edge : data.edges) edges.emplace_back(edge.first, edge.second);
  return edges;
}

/// Polygons of 1 to 7 corners among `vertex_count` vertices, in two groups, some edges invisible: vertices repeat,
/// edges are shared by many polygons in both directions.
PolyMeshData make_tangle(uint polygon_count, uint vertex_count, uint seed) {
  RandomValues random(seed);
  PolyMeshData data;
  data.group_names = {"shown", "hidden"};
  for (uint k = 0; k < vertex_count; ++k) data.positions.push_back(random.get_vec<float>());
  for (uint p = 0; p < polygon_count; ++p) {
    std::vector<u32> vertices(1 + random.get_index(7));
    for (u32& vertex : vertices) {
      vertex = random.get_index(vertex_count);
      data.edge_visible.push_back(random.get_index(5) > 0);
    }
    add_polygon(data, vertices);
    data.polygon_groups.push_back(random.get_index(2));
  }
  return data;
}

}  // namespace

TEST(GeometryUvMapData, has_the_edges_of_visible_polygons_once_or_once_a_direction) {
  UvWorld world;
  for (uint seed = 0; seed < 40; ++seed) {
    PolyMeshData data = make_tangle(1 + seed * 5, 3 + seed, seed);
    std::vector<GMathVec3<float>> expected_uvs;
    if (seed % 4 != 0) {
      data.uv_maps = {{"uv", data.positions, data.polygon_vertices}};
      expected_uvs = data.positions;
    } else {
      data.uv_projection = PolyMeshProjection::planar;
    }
    ModuleGeometry& module = world.add_mesh(data);
    GeometryUvMapData all(&module, 0), shown(&module, 0), hidden(&module, 0);
    EXPECT_EQ(load_edges(all), list_uv_edges(data)) << seed;
    module.set_shading_group_visibility(1, false);
    EXPECT_EQ(load_edges(shown), list_uv_edges(data, {1})) << seed;
    EXPECT_EQ(shown.uvs.get_count(), all.uvs.get_count());
    module.set_shading_group_visibility(0, false);
    EXPECT_TRUE(load_edges(hidden).empty() && hidden.is_empty());
    ASSERT_TRUE(seed % 4 == 0 || all.uvs.get_count() == expected_uvs.size());
    for (uint k = 0; k < expected_uvs.size(); ++k) EXPECT_EQ(all.uvs[k], expected_uvs[k]);
  }
  // Two triangles that share a side: of one map 5 edges, wound against each other 6, with corners of their own 6.
  for (const bool is_consistent : {true, false}) {
    PolyMeshData data = make_terrain(1, 0, 0.0);
    if (!is_consistent) std::swap(data.polygon_vertices[3], data.polygon_vertices[4]);
    data.uv_projection = PolyMeshProjection::cubic;
    GeometryUvMapData own(&world.add_mesh(data), 0);
    EXPECT_EQ(load_edges(own).size(), 6u);
    data.uv_maps = {{"uv", data.positions, data.polygon_vertices}};
    GeometryUvMapData shared(&world.add_mesh(data), 0);
    EXPECT_EQ(load_edges(shared).size(), is_consistent ? 5u : 6u);
  }
}

// Triangles that share one vertex and no edge: with lists that are searched from one end only, they would take minutes.
TEST(GeometryUvMapData, loads_many_edges_at_one_vertex_in_linear_time) {
  UvWorld world;
  const uint count = scaled(300000, 100000);
  PolyMeshData data;
  data.positions.resize(2 * count + 1);
  for (u32 k = 0; k < count; ++k) add_polygon(data, {0, 2 * k + 1, 2 * k + 2});
  data.uv_maps = {{"uv", data.positions, data.polygon_vertices}};
  GeometryUvMapData petals(&world.add(make_uv_mesh(data)), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(load_edges(petals).size(), 3 * count);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(GeometryUvMapData, leaves_out_indices_out_of_range_and_maps_that_are_too_short) {
  UvWorld world;
  const auto geometry = std::make_shared<UvGeometry>(std::vector<uint>{3, 4, 5, 3});
  GeometryUvMapData data(&world.add(geometry), 0);
  geometry->invalid_polygon = 3;
  const std::vector<UvEdge> own_corners = {{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 6}, {6, 3}};
  EXPECT_EQ(load_edges(data), own_corners);
  EXPECT_EQ(data.uvs[4], UvGeometry::get_uv(1, 1.0, 0.0));
  EXPECT_EQ(data.uvs[6], UvGeometry::get_uv(1, 0.0, 1.0));
  geometry->map.positions.resize(9);
  geometry->map.corner_positions = {0, 1, 2, 2, 1, 9, 8, 3, 4, 5, 6, core_invalid_index, 0, 1};  // one is missing
  EXPECT_EQ(load_edges(data), own_corners);
  geometry->map.corner_positions.push_back(2);
  EXPECT_EQ(load_edges(data), (std::vector<UvEdge>{{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 6}, {8, 2}}));
  EXPECT_EQ(data.uvs.get_count(), 9u);
  geometry->map.positions.clear();
  EXPECT_EQ(load_edges(data), own_corners);
  GeometryUvMapData copied(data), without_geometry(nullptr, 0), without_object(&world.add(nullptr), 0);
  for (GeometryUvMapData* none : {&without_geometry, &without_object}) EXPECT_TRUE(load_edges(*none).empty());
  world.app.request_stop();
  EXPECT_TRUE(load_edges(data).empty() && data.uvs.is_empty());
  EXPECT_EQ(copied.edges.get_count(), 7u);
}
