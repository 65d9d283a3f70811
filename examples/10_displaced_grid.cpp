// How do I ray trace fine detail that is mostly out of sight? A displaced mesh on a grid, whose parts are built when a
// ray first reaches them.
#include <cmath>
#include <memory>

#include "examples/example_world.h"
#include "gas/gas_geometry.h"
#include "vq_geometry/displaced_mesh.h"

namespace {

/// Waves along x, computed from the point of the undisplaced surface. Called from many threads at once.
class WaveHeight final : public GeometryHeight {
 public:
  static double get_wave(double x) { return 0.1 * std::sin(x); }
  double get_height(const GeometryHeightPoint& point) const override { return get_wave(point.position.x); }
  u64 get_memory_size() const override { return sizeof(*this); }
};

}  // namespace

int main() {
  ExampleWorld world;

  // A sheet of 64 x 64 squares at z = 0. The displaced mesh refers to it, and adds 2 * 16 * 16 micro-triangles to each
  // square; they are computed when they are used.
  constexpr u32 side = 64;
  PolyMeshData data;
  for (u32 y = 0; y <= side; ++y)
    for (u32 x = 0; x <= side; ++x) data.positions.push_back({static_cast<float>(x), static_cast<float>(y), 0});
  data.polygon_sizes.assign(side * side, 4);
  for (u32 square = 0; square < side * side; ++square) {
    const u32 corner = square / side * (side + 1) + square % side;
    for (const u32 step : {u32{0}, u32{1}, side + 2, side + 1}) data.polygon_vertices.push_back(corner + step);
  }
  PolyMesh base;
  create_mesh(base, std::move(data));

  DisplacedMeshSettings settings;
  settings.height = std::make_shared<WaveHeight>();
  settings.bound = 0.1;                   // no height is larger
  settings.rate = 16;                     // edges are cut into 16 parts
  settings.cache_bytes = u64{256} << 20;  // should hold the micro-triangles that are in sight
  DisplacedMesh mesh;
  CoreString error;
  expect(mesh.create(base, settings, error), error.get_data());

  // The grid sorts the squares into parts and builds none of them.
  GasGeometry structure;
  structure.create(world.ctx, &mesh, &mesh, nullptr);
  const GasGridTree& grid = structure.get_grid();
  std::printf("%.1f million micro-triangles in %u parts, %u of them built\n",
              1e-6 * double(mesh.get_micro_triangle_count()), grid.get_part_count(), grid.get_built_part_count());
  expect(grid.get_part_count() > 30 && grid.get_built_part_count() == 0, "no query, no part");

  // One ray, straight down. All queries of a structure work: a host need not know that it is a grid.
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {20.3, 30.7, 5}, {0, 0, -1});
  structure.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
  const GeometryIntersection& hit = packet.get_nearest(0);
  std::printf("square %u, micro-triangle %u of it, at distance %.4f; now %u part is built\n", hit.primitive, hit.part,
              hit.distance, grid.get_built_part_count());
  expect(hit.primitive == 30 * side + 20, "the ray hits the square below it");
  expect(std::fabs(5.0 - hit.distance - WaveHeight::get_wave(20.3)) < 1e-3, "the surface has the height of the wave");
  expect(grid.get_built_part_count() == 1, "one ray, one part");
}
