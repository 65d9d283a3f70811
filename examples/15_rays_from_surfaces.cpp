// How do I start a ray on a surface? A point computed from a hit is rounded: it lies a little above or below its
// polygon, and the next ray may hit the polygon that it starts on. Here a thousand points of a bumpy sheet, upwards:
// nothing is above them. And what does a ray count that meets an edge of two polygons exactly?
#include <algorithm>
#include <cmath>

#include "examples/example_world.h"

namespace {

/// The point moved off its surface, to the side to which `normal` points. Positions are rounded to 2^-53 of the largest
/// coordinate that took part; 2^-40 of it leaves room for a few matrices, and is far below any detail in single
/// precision.
GMathVec3<double> leave_surface(const GMathVec3<double>& point, const GMathVec3<double>& normal) {
  const double reach = std::max({std::fabs(point.x), std::fabs(point.y), std::fabs(point.z), 1.0});
  return point + normal * (reach * 0x1p-40);
}

}  // namespace

int main() {
  ExampleWorld world;
  PolyMesh mesh;
  create_mesh(mesh, make_sheet(20, [](uint x, uint y) { return std::sin(0.7f * x) + 0.3f * y; }));
  GasGeometryBvh4 structure;
  structure.create(world.ctx, &mesh, &mesh, nullptr);

  constexpr uint count = 1000;
  GeometryRayPacket down, up;
  down.resize(count);
  up.resize(count);
  for (uint ray = 0; ray < count; ++ray)
    down.set_ray(ray, {0.01 + 0.0199 * ray, std::fmod(0.618034 * ray, 19.99), 50}, {0, 0, -1});
  structure.ray_hit_nearest_static(world.ctx, world.shader, down.begin_nearest(world.shading));

  uint met[2] = {0, 0};
  for (const bool leaves : {false, true}) {
    for (uint ray = 0; ray < count; ++ray) {
      const GeometrySurfacePoint at = mesh.get_surface_point(down.get_nearest(ray), 0.0);
      up.set_ray(ray, leaves ? leave_surface(at.position, at.normal) : at.position, {0, 0, 1});
    }
    structure.ray_hit_nearest_static(world.ctx, world.shader, up.begin_nearest(world.shading));
    for (uint ray = 0; ray < count; ++ray) met[leaves] += up.get_nearest(ray).geometry != nullptr;
  }
  std::printf("of %u rays upwards from the sheet %u hit it; when they leave it first, %u\n", count, met[0], met[1]);
  expect(met[0] > 0 && met[1] == 0, "only rays that start within rounding of the sheet hit it");

  // Straight through a vertex of four quadrilaterals: each of them has a hit there, in a query for all hits. Edges
  // belong to both neighbors, so that no ray passes between them. Who counts surfaces asks for one hit.
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {5, 5, 50}, {0, 0, -1});
  structure.ray_hit_static(world.ctx, world.shader, packet.begin_all_hits(world.shading));
  const std::size_t separate = packet.get_hits().get_hits().size();
  GeometryRaytraceCtx& query = packet.begin_all_hits(world.shading);
  query.settings.merge_edge_hits = true;
  structure.ray_hit_static(world.ctx, world.shader, query);
  const std::size_t merged = packet.get_hits().get_hits().size();
  std::printf("a ray through a vertex: %zu hits, or %zu\n", separate, merged);
  expect(separate == 4 && merged == 1, "four polygons meet at one point");
}
