// tests/support/uv_world.h
//
// Geometries with UV maps, the items that hold them, and lookups in the tree over them.
#pragma once
#include <gtest/gtest.h>

#include "gas/gas_uv_tree.h"
#include "support/fake_geometry.h"
#include "support/mesh_scenes.h"
#include "support/query_world.h"
#include "support/test_scale.h"
#include "support/uv_oracle.h"
#include "vq_geometry/geometry_ray_packet.h"
#include "vq_module/module_geometry.h"
#include "vq_of/of_object.h"

/// Polygons of given sizes that share nothing. Its map may be short or have indices out of range.
struct UvGeometry : FakeGeometry {
  explicit UvGeometry(std::vector<uint> sizes) : sizes(std::move(sizes)) {}

  static GMathVec3<float> get_uv(uint polygon, double u, double v) {
    return {static_cast<float>(polygon + 0.5 * u), static_cast<float>(0.25 * v), 0.0f};
  }
  uint get_uv_count() const override { return 1; }
  const GeometryUvMap* get_uv_map(uint) const override { return map.corner_positions.empty() ? nullptr : &map; }
  uint get_polygon_count() const override { return static_cast<uint>(sizes.size()); }
  uint get_polygon_vertex_count(uint polygon) const override {
    if (on_call) on_call();
    return sizes[polygon];
  }
  bool is_polygon_valid(uint polygon) const override { return polygon != invalid_polygon; }
  bool is_edge_visible(uint, uint) const override { return true; }
  uint get_polygon_shading_group(uint) const override { return 0; }
  GMathVec3<float> get_polygon_uv(const CtxEval&, uint, uint polygon, const GMathVec3<double>& uvw) const override {
    return get_uv(polygon, uvw.x, uvw.y) + shift;
  }

  std::vector<uint> sizes;
  GeometryUvMap map;       ///< without corners: none
  GMathVec3<float> shift;  ///< of texture coordinates without a map
  uint invalid_polygon = core_invalid_index;
  std::function<void()> on_call;  ///< of get_polygon_vertex_count()
};

/// A UV map of triangles, quadrilaterals and lines there and back, in the square of half width `size` around `center`.
inline PolyMeshData make_layout(uint polygon_count, uint seed, double size = 1.0, GMathVec3<float> center = {}) {
  RandomValues random(seed);
  PolyMeshData data;
  for (uint p = 0; p < polygon_count; ++p) {
    std::vector<u32> vertices;
    const GMathVec3<double> first = random.get_vec(size);
    for (uint k = 0; k < 3 + p % 2; ++k) {
      GMathVec3<double> at = p % 3 == 0 ? random.get_vec(size) : first + random.get_vec(0.1 * size);
      if (p % 5 == 1) at[k % 2] = data.positions.empty() ? 0.0 : data.positions.back()[k % 2] - center[k % 2];
      if (p % 7 == 2 && k == 2) at = GMathVec3<double>(data.positions.back() - center);  // an edge of no length
      vertices.push_back(static_cast<u32>(data.positions.size()));
      data.positions.push_back(GMathVec3<float>(at) + center);
      data.positions.back().z = 0.0f;
    }
    add_polygon(data, vertices);
  }
  data.uv_maps = {{"uv", data.positions, data.polygon_vertices}};
  return data;
}

inline std::shared_ptr<PolyMesh> make_uv_mesh(const PolyMeshData& data) {
  auto mesh = std::make_shared<PolyMesh>();
  CoreString error;
  EXPECT_TRUE(mesh->create(PolyMeshData(data), error)) << error.get_data();
  return mesh;
}

struct UvWorld : QueryWorld {
  explicit UvWorld(uint thread_count = 1) : QueryWorld(8, thread_count) { shader.hit_threshold = -1.0; }

  ModuleGeometry& add(std::shared_ptr<const GeometryObject> geometry) {
    modules.push_back(std::make_unique<ModuleGeometry>(CoreString("module"), std::move(geometry), nullptr,
                                                       ModuleSceneObject::get_whole_functions()));
    modules.back()->set_application(&app);
    owned.push_back(std::make_unique<OfObject>(CoreString("item"), modules.back().get()));
    items.add(owned.back().get());
    return *modules.back();
  }
  ModuleGeometry& add_mesh(const PolyMeshData& data) {
    if (!data.uv_maps.empty()) {
      const auto& positions = data.uv_maps[0].positions;
      for (const UvEdge& edge : list_uv_edges(data))
        segments.push_back({GMathVec3<double>(positions[edge.first]), GMathVec3<double>(positions[edge.second])});
    }
    return add(make_uv_mesh(data));
  }
  void build(GasUvTree& tree) {
    tree.update(app, items, true, "");
    tree.build();
  }
  /// The coverage of some points, of which each is a ray of one packet.
  float look_up(const GasUvTree& tree, std::initializer_list<GMathVec3<double>> points, double tolerance) {
    return look_up(tree, std::span(points.begin(), points.size()), tolerance);
  }
  float look_up(const GasUvTree& tree, std::span<const GMathVec3<double>> points, double tolerance) {
    packet.resize(static_cast<uint>(points.size()));
    for (uint k = 0; k < points.size(); ++k) {
      packet.set_ray(k, points[k], {0, 0, 1});
      packet.get_ray(k).extent = tolerance;
    }
    GeometryRaytraceCtx& query = finds_nearest ? packet.begin_nearest(shading) : packet.begin_all_hits(shading);
    query.hit_weight = hit_weight;
    return tree.ray_hit(ctx, shader, query);
  }

  std::vector<std::unique_ptr<ModuleGeometry>> modules;
  std::vector<std::unique_ptr<OfObject>> owned;
  CoreSet<OfObject*> items;
  std::vector<UvSegment> segments;  ///< of all meshes with an indexed map
  GeometryRayPacket packet;
  bool finds_nearest = false;
  double hit_weight = 1.0;  ///< before the query
};
