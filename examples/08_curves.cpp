// Which hair does a ray hit? Fibres with the structure over curves, whose boxes turn with them.
#include <cmath>

#include "examples/example_world.h"
#include "gas/gas_fur.h"
#include "vq_curve/tube_mesh_fast.h"

namespace {

constexpr uint fibre_count = 100;
constexpr float radius = 0.005f;

/// A row of fibres along x that lean towards +x by 45 degrees, 1 high, two straight segments each.
CurveData make_row() {
  CurveData data;
  data.basis = CurveBasis::linear;
  for (uint fibre = 0; fibre < fibre_count; ++fibre) {
    for (const float height : {0.0f, 0.5f, 1.0f}) data.points.push_back({{0.1f * fibre + height, 0, height}, radius});
    data.curve_sizes.push_back(3);
  }
  return data;
}

}  // namespace

int main() {
  ExampleWorld world;
  TubeMeshFast hair;
  CoreString error;
  const bool is_sound = hair.create(make_row(), error);
  expect(is_sound, error.get_data());

  // Made and asked as the structure over a mesh is. A box along the axes around a leaning fibre is nearly empty, so the
  // tree has nodes with boxes that lean as well.
  GasFur structure;
  structure.create(world.ctx, &hair, &hair, nullptr);
  std::printf("%u segments under %u oriented and %u aligned nodes\n", hair.get_primitive_count(),
              structure.get_tree().oriented_count, structure.get_tree().aligned_count);

  // From the side, at height 0.25, at the axis of fibre 42.
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {4.2 + 0.25, -1, 0.25}, {0, 1, 0});
  structure.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
  const GeometryIntersection& hit = packet.get_nearest(0);
  expect(hit.geometry == &hair, "the fibre is hit");
  // A primitive is one segment. The tangent is what shading models for hair ask for; u runs along the whole fibre.
  const uint fibre = hair.get_curves().get_curve(hit.primitive);
  const GeometrySurfacePoint point = hair.get_surface_point(hit, /*time=*/0.0);
  const GMathVec3<double> tangent = hair.get_tangent(hit, /*time=*/0.0);
  std::printf("fibre %u at %.3f of its length, distance %.3f, tangent (%.3f, %.3f, %.3f)\n", fibre, point.uv.x,
              hit.distance, tangent.x, tangent.y, tangent.z);
  expect(fibre == 42 && std::fabs(point.uv.x - 0.25) < 1e-5, "fibre 42, at a quarter of its length");
  expect(std::fabs(hit.distance - (1 - radius)) < 1e-6 && point.normal.y < -0.999, "its surface, on the near side");
  expect(std::fabs(std::fabs(tangent.x) - std::sqrt(0.5)) < 1e-6, "it leans by 45 degrees");

  // Along the row every fibre is in the way. Queries for all hits have no test for leaning boxes; whoever wants every
  // fibre asks for the nearest again, from behind the last one on.
  uint passed = 0;
  packet.set_ray(0, {-1, 0, 0.25}, {1, 0, 0});
  for (;;) {
    structure.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
    if (packet.get_nearest(0).geometry == nullptr) break;
    expect(hair.get_curves().get_curve(packet.get_nearest(0).primitive) == passed, "in their order");
    ++passed;
    packet.get_ray(0).tnear = packet.get_nearest(0).distance + 4 * radius;  // a cut across a fibre is 2.8 radii long
  }
  std::printf("a ray along the row passes through %u fibres\n", passed);
  expect(passed == fibre_count, "through all of them");
}
