// Which curve does a ray hit? Hair under a structure whose boxes are oriented along it.
#include <cmath>

#include "examples/example_world.h"
#include "gas/gas_fur.h"
#include "vq_curve/tube_mesh_fast.h"

namespace {

constexpr uint curve_count = 100;
constexpr float radius = 0.005f;

/// A row of curves along x, inclined towards +x by 45 degrees, 1 high, each of two straight segments.
CurveData make_row() {
  CurveData data;
  data.basis = CurveBasis::linear;
  for (uint curve = 0; curve < curve_count; ++curve) {
    for (const float height : {0.0f, 0.5f, 1.0f}) data.points.push_back({{0.1f * curve + height, 0, height}, radius});
    data.curve_sizes.push_back(3);
  }
  return data;
}

}  // namespace

int main() {
  ExampleWorld world;
  TubeMeshFast hair;
  CoreString error;
  const bool is_valid = hair.create(make_row(), error);
  expect(is_valid, error.get_data());

  // Built and queried like the structure over a mesh. The axis-aligned box of an inclined segment is nearly empty, so
  // the tree has nodes with oriented boxes too.
  GasFur structure;
  structure.create(world.ctx, &hair, &hair, nullptr);
  std::printf("%u segments under %u oriented and %u aligned nodes\n", hair.get_primitive_count(),
              structure.get_tree().oriented_count, structure.get_tree().aligned_count);

  // From the side, at height 0.25, towards the axis of curve 42.
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {4.2 + 0.25, -1, 0.25}, {0, 1, 0});
  structure.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
  const GeometryIntersection& hit = packet.get_nearest(0);
  expect(hit.geometry == &hair, "the curve is hit");
  // A primitive is one segment. Shading models for hair need the tangent. point.uv.x runs along the whole curve.
  const uint curve = hair.get_curves().get_curve(hit.primitive);
  const GeometrySurfacePoint point = hair.get_surface_point(hit, /*time=*/0.0);
  const GMathVec3<double> tangent = hair.get_tangent(hit, /*time=*/0.0);
  std::printf("curve %u at %.3f of its length, distance %.3f, tangent (%.3f, %.3f, %.3f)\n", curve, point.uv.x,
              hit.distance, tangent.x, tangent.y, tangent.z);
  expect(curve == 42 && std::fabs(point.uv.x - 0.25) < 1e-5, "curve 42, at a quarter of its length");
  expect(std::fabs(hit.distance - (1 - radius)) < 1e-6 && point.normal.y < -0.999, "the near side of its surface");
  expect(std::fabs(std::fabs(tangent.x) - std::sqrt(0.5)) < 1e-6, "a tangent at 45 degrees");

  // A ray along the row meets every curve. Queries for all hits do not test oriented boxes; to find every curve, query
  // the nearest hit again, each time from behind the last hit.
  uint passed = 0;
  packet.set_ray(0, {-1, 0, 0.25}, {1, 0, 0});
  for (;;) {
    structure.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
    if (packet.get_nearest(0).geometry == nullptr) break;
    expect(hair.get_curves().get_curve(packet.get_nearest(0).primitive) == passed, "curves in their order");
    ++passed;
    packet.get_ray(0).tnear = packet.get_nearest(0).distance + 4 * radius;  // the ray is in a curve for 2.8 radii
  }
  std::printf("a ray along the row passes through %u curves\n", passed);
  expect(passed == curve_count, "the ray meets every curve");
}
