// Which parts does a structure have? Clusters: subtrees with boxes and weights, which another structure can take as its
// leaves, and queries restricted to one cluster.
#include <cmath>
#include <cstdint>

#include "examples/example_world.h"

namespace {

constexpr uint side = 64;

/// Hills of side * side squares over the unit square.
PolyMeshData make_hills() {
  PolyMeshData data;
  for (uint y = 0; y <= side; ++y) {
    for (uint x = 0; x <= side; ++x) {
      const float u = float(x) / side, v = float(y) / side;
      data.positions.emplace_back(u, v, 0.1f * std::sin(9.0f * u) * std::cos(7.0f * v));
    }
  }
  for (u32 square = 0; square < side * side; ++square) {
    const u32 corner = square / side * (side + 1) + square % side;
    data.polygon_sizes.push_back(4);
    for (const u32 step : {0u, 1u, side + 2, side + 1}) data.polygon_vertices.push_back(corner + step);
  }
  return data;
}

}  // namespace

int main() {
  ExampleWorld world;
  PolyMesh mesh;
  create_mesh(mesh, make_hills());
  GasGeometryBvh4 structure;
  structure.create(world.ctx, &mesh, &mesh, nullptr);

  // This structure ignores the ratio.
  CoreVector<void*> clusters;
  structure.get_clusters(clusters, /*count=*/16, /*ratio=*/0.5f);
  std::vector<GMathBbox3<float>> boxes(clusters.get_count());
  std::vector<float> weights(clusters.get_count());
  structure.get_clusters_bboxes(clusters.as_array(), boxes.data());
  structure.get_clusters_weights(clusters.as_array(), weights.data());

  GMathBbox3<double> all;
  double weight = 0.0;
  for (uint k = 0; k < clusters.get_count(); ++k) {
    std::printf("cluster %2u   (%.2f, %.2f) to (%.2f, %.2f)   weight %g\n", k, boxes[k].min.x, boxes[k].min.y,
                boxes[k].max.x, boxes[k].max.y, weights[k]);
    all.add(GMathBbox3<double>(boxes[k]));
    weight += weights[k];
  }
  expect(clusters.get_count() > 1 && clusters.get_count() <= 16, "not more clusters than requested");
  expect(all == structure.get_bbox(), "the clusters have the box of the structure");
  expect(weight == side * side * mesh.get_build_parameter(), "the clusters hold every primitive once");

  // A ray that grazes the surface, first against the whole structure, then against each cluster: the nearest of the
  // clusters' hits is the structure's hit.
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {-0.1, 0.3, 0.06}, {1, 0.3, -0.03});
  structure.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
  const GeometryIntersection whole = packet.get_nearest(0);

  double nearest = DBL_MAX;
  uint hit_clusters = 0;
  for (void* const cluster : clusters) {
    GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
    query.cluster = reinterpret_cast<std::uintptr_t>(cluster);
    structure.ray_hit_nearest_static(world.ctx, world.shader, query);
    if (packet.get_nearest(0).geometry == nullptr) continue;
    nearest = std::fmin(nearest, packet.get_nearest(0).distance);
    ++hit_clusters;
  }
  std::printf("nearest hit at %.4f, of the structure and of its clusters; clusters with a hit: %u\n", whole.distance,
              hit_clusters);
  expect(hit_clusters > 1 && whole.geometry != nullptr && nearest == whole.distance, "the clusters miss nothing");
}
