// Points: which of them are in a box, and which is the nearest in the beam of a pixel? Rays would pass between points;
// a beam is as wide as a pixel and finds the nearest point in it.
#include "examples/example_world.h"
#include "gas/gas_point.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_ray_frustum_ctx.h"
#include "vq_particle/particle_cloud.h"

namespace {

constexpr uint side = 20;  // of a cube of points with whole coordinates

void create_points(ParticleCloud& cloud) {
  ParticleData data;
  for (uint z = 0; z < side; ++z)
    for (uint y = 0; y < side; ++y)
      for (uint x = 0; x < side; ++x) data.positions.emplace_back(float(x), float(y), float(z));
  CoreString error;
  const bool is_valid = cloud.create(std::move(data), error);
  expect(is_valid, error.get_data());
}

}  // namespace

int main() {
  ExampleWorld world;
  ParticleCloud cloud;
  create_points(cloud);
  GasPoint structure;
  structure.create(world.app, world.ctx, &cloud, nullptr);

  // The planes of the box from (2.5, 2.5, 2.5) to (5.5, 4.5, 3.5); their normals point inside.
  GeometryFrustumCtx box;
  for (uint axis = 0; axis < 3; ++axis) {
    GMathVec3<double> normal;
    normal[axis] = 1.0;
    box.add_plane({{2.5, 2.5, 2.5}, normal});
    box.add_plane({{5.5, 4.5, 3.5}, -normal});
  }
  box.mode = static_cast<uint>(GeometryFrustumMode::vertices);
  structure.frustum_hit(world.ctx, world.shader, box);
  std::printf("points in the box:");
  for (const GeometryFrustumVertex& point : box.get_points()) std::printf(" %u", point.index);
  std::printf("\n");
  expect(box.get_points().size() == 6, "three columns, two rows, one layer");

  // From the side, 0.4 away from a row of points: the beam is wider than that from t = 7.3 on, and so the first point
  // inside is that at x = 4.
  const GMathVec3<double> eye(-4.0, 7.4, 7.4), direction(1.0, 0.0, 0.0);
  const GMathVec3<double> corners[4] = {{1, -0.055, -0.055}, {1, 0.055, -0.055}, {1, 0.055, 0.055}, {1, -0.055, 0.055}};
  GeometryRayFrustumBeam beam;
  expect(beam.set_perspective(eye, direction, corners, 0.0, 1000.0), "all corners point forwards");
  GeometryRayFrustumRecord record;
  GeometryRayFrustumCtx query;
  query.begin(&beam, &record, 1);
  structure.ray_frustum_hit(world.ctx, world.shader, query);
  std::printf("the beam finds point %u at distance %g\n", record.index, record.t);
  expect(record.index == 4 + side * (7 + side * 7) && record.t == 8.0, "the first point inside");
  std::printf("built %u of %u parts\n", structure.get_grid().get_built_part_count(),
              structure.get_grid().get_part_count());
}
