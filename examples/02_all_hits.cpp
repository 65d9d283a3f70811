// What does a ray hit at all? An X-ray: the thickness of a hollow box along ten parallel rays.
#include "examples/example_world.h"

int main() {
  ExampleWorld world;

  // A box of side 4 with a cavity of side 2. The cavity's squares are wound the other way, so that every normal points
  // out of the material.
  PolyMeshData data;
  add_box(data, {0, 0, 0}, {4, 4, 4});
  PolyMeshData cavity;
  add_box(cavity, {1, 1, 1}, {3, 3, 3});
  for (const GMathVec3<float>& position : cavity.positions) data.positions.push_back(position);
  for (std::size_t corner = cavity.polygon_vertices.size(); corner-- > 0;)
    data.polygon_vertices.push_back(8 + cavity.polygon_vertices[corner]);
  data.polygon_sizes.resize(12, 4);
  PolyMesh mesh;
  create_mesh(mesh, std::move(data));
  GasGeometryBvh4 structure;
  structure.create(world.ctx, &mesh, &mesh, nullptr);

  constexpr uint ray_count = 10;
  GeometryRayPacket packet;
  packet.resize(ray_count);
  for (uint ray = 0; ray < ray_count; ++ray) packet.set_ray(ray, {0.5 * ray - 0.25, 2, 10}, {0, 0, -1});
  structure.ray_hit_static(world.ctx, world.shader, packet.begin_all_hits(world.shading));

  // Hits are unsorted, and the sum needs no order: add the distance where a ray leaves the material, subtract it where
  // the ray enters.
  double thickness[ray_count] = {};
  uint surfaces[ray_count] = {};
  for (const GeometryHit& found : packet.get_hits().get_hits()) {
    const GeometrySurfacePoint point = found.hit.geometry->get_surface_point(found.hit, 0.0);
    const bool leaves = point.normal.dot(packet.get_ray(found.ray).direction) > 0.0;
    thickness[found.ray] += leaves ? found.hit.distance : -found.hit.distance;
    ++surfaces[found.ray];
  }

  for (uint ray = 0; ray < ray_count; ++ray) {
    const double x = packet.get_ray(ray).origin.x;
    std::printf("x = %5.2f   %u surfaces   thickness %g\n", x, surfaces[ray], thickness[ray]);
    const bool in_box = x > 0 && x < 4;
    const bool in_cavity = x > 1 && x < 3;
    expect(surfaces[ray] == (in_cavity ? 4u : in_box ? 2u : 0u), "two surfaces per box");
    expect(thickness[ray] == (in_cavity ? 2.0 : in_box ? 4.0 : 0.0), "thickness without the cavity");
  }

  // To know only whether there are two surfaces along a ray, end each ray after two hits.
  packet.set_stop_rule(/*max_hits=*/2);
  structure.ray_hit_static(world.ctx, world.shader, packet.begin_all_hits(world.shading));
  std::printf("%zu hits when each ray ends after two\n", packet.get_hits().get_hits().size());
  expect(packet.get_hits().get_hits().size() == 2 * 8, "eight rays pass through the box");

  // To know only whether there is anything, as between a point and a light, end each ray at the first hit found.
  structure.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_any_hit(world.shading));
  uint blocked_count = 0;
  for (uint ray = 0; ray < packet.get_count(); ++ray) blocked_count += packet.has_hit(ray) ? 1 : 0;
  std::printf("%u rays are blocked\n", blocked_count);
  expect(blocked_count == 8, "the same rays");
}
