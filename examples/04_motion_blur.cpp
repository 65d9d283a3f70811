// Where is a moving mesh at the time of each ray? A box moves along x while the shutter is open.
#include "examples/example_world.h"
#include "vq_ctx/ctx_motion_blur.h"

int main() {
  ExampleWorld world;

  // A unit box, and two samples of its motion, at times 0 and 1: it moves from x = 0 to x = 4. Between samples every
  // vertex moves in a straight line; a mesh on a curved path needs more samples.
  PolyMeshData data;
  add_box(data, {0, 0, 0}, {1, 1, 1});
  data.motion_positions.resize(2, data.positions);
  for (GMathVec3<float>& position : data.motion_positions[1]) position.x += 4;
  data.motion_begin = 0.0;
  data.motion_step = 1.0;
  PolyMesh mesh;
  create_mesh(mesh, std::move(data));
  GasGeometryBvh4 structure;
  structure.create(world.ctx, &mesh, &mesh, nullptr);

  // The shutter: the times at which the structure samples its boxes. Both contexts refer to it.
  const CtxMotionBlur shutter(/*open=*/0.0, /*close=*/1.0, /*sample_count=*/2);
  world.ctx.set_motion_blur(&shutter);
  world.shader.motion_blur = &shutter;

  // Five positions, with a ray at each of five times. The first query under a shutter refits the structure's boxes;
  // later queries, on any thread, use them.
  constexpr uint steps = 5;
  GeometryRayPacket packet;
  packet.resize(steps * steps);
  for (uint ray = 0; ray < packet.get_count(); ++ray) {
    const double x = 0.5 + ray / steps, time = 0.25 * (ray % steps);
    packet.set_ray(ray, {x, 0.5, 3}, {0, 0, -1}, /*tnear=*/0.0, /*tfar=*/DBL_MAX, time);
  }
  structure.ray_hit_nearest_motion(world.ctx, world.shader, packet.begin_nearest(world.shading));

  std::printf("   time 0 .25 .5 .75 1    blurred\n");
  for (uint row = 0; row < steps; ++row) {
    uint hits = 0;
    std::printf("x = %.1f  ", 0.5 + row);
    for (uint step = 0; step < steps; ++step) {
      const bool is_hit = packet.get_nearest(row * steps + step).geometry != nullptr;
      std::printf("%c  ", is_hit ? '#' : '.');
      hits += is_hit;
      expect(is_hit == (row == step), "the box covers position k at time k / 4");
    }
    std::printf("  %.0f %%\n", 100.0 * hits / steps);
  }

  // The surface point of a hit is computed at the time of its ray.
  const GeometryIntersection& hit = packet.get_nearest(2 * steps + 2);
  const GeometrySurfacePoint point = mesh.get_surface_point(hit, /*time=*/0.5);
  const GMathBbox3<double> box = structure.get_bbox_at(world.ctx, 0.5);
  std::printf("at time 0.5 the box spans x = %g to %g; ray %u hit it at x = %g\n", box.min.x, box.max.x, 2 * steps + 2,
              point.position.x);
  expect(box.min.x == 2.0 && box.max.x == 3.0 && point.position == GMathVec3<double>(2.5, 0.5, 1),
         "the box is half way at time 0.5");

  // A static query finds the static mesh, whatever the times of the rays.
  structure.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
  for (uint ray = 0; ray < packet.get_count(); ++ray)
    expect((packet.get_nearest(ray).geometry != nullptr) == (ray < steps), "the static box is at x = 0");
}
