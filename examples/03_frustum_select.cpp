// What is in a frustum? A user draws a rectangle: does the mesh touch it, is it wholly inside, which vertices are
// inside?
#include <algorithm>

#include "examples/example_world.h"
#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

/// The pyramid from the eye through a rectangle in the plane z = 0. The normal of a plane points inside.
void aim(GeometryFrustumCtx& query, const GMathVec3<double>& eye, double min, double max) {
  const GMathVec3<double> corners[4] = {{min, min, 0}, {max, min, 0}, {max, max, 0}, {min, max, 0}};
  for (uint k = 0; k < 4; ++k) query.add_plane({eye, (corners[(k + 1) % 4] - eye).cross(corners[k] - eye)});
}

void run_query(ExampleWorld& world, const GasObject& structure, GeometryFrustumMode mode, GeometryFrustumCtx& query) {
  query.mode = static_cast<uint>(mode);
  query.shading = &world.shading;
  structure.frustum_hit(world.ctx, world.shader, query);
}

}  // namespace

int main() {
  ExampleWorld world;
  PolyMesh mesh;
  create_mesh(mesh, make_sheet(10, [](uint, uint) { return 0.0f; }));  // flat, at z = 0
  GasGeometryBvh4 structure;
  structure.create(world.ctx, &mesh, &mesh, nullptr);
  const GMathVec3<double> eye(5, 5, 10);

  GeometryFrustumCtx any, beside;
  aim(any, eye, 2.5, 5.5);
  run_query(world, structure, GeometryFrustumMode::any, any);
  aim(beside, eye, 10.5, 12);
  run_query(world, structure, GeometryFrustumMode::any, beside);
  std::printf("rectangle 2.5 to 5.5: %s;  10.5 to 12: %s\n", any.result.finished ? "touches the sheet" : "free",
              beside.result.finished ? "touches the sheet" : "free");
  expect(any.result.finished == 1 && beside.result.finished == 0, "only the first rectangle touches the sheet");

  GeometryFrustumCtx part, whole;
  aim(part, eye, 2.5, 5.5);
  run_query(world, structure, GeometryFrustumMode::all, part);
  aim(whole, eye, -0.5, 10.5);
  run_query(world, structure, GeometryFrustumMode::all, whole);
  std::printf("-0.5 to 10.5 holds %u of %u polygons\n", whole.result.hit_count, whole.result.total);
  expect(part.result.outside == 1, "not all is inside the small rectangle");
  expect(whole.result.outside == 0 && whole.result.hit_count == 100 && whole.result.total == 100, "all are inside");

  GeometryFrustumCtx vertices;
  aim(vertices, eye, 2.5, 5.5);
  run_query(world, structure, GeometryFrustumMode::vertices, vertices);
  std::printf("vertices in 2.5 to 5.5:");
  for (const GeometryFrustumVertex& vertex : vertices.get_points())
    std::printf(" (%g, %g)", vertex.position.x, vertex.position.y);
  std::printf("\n");
  expect(vertices.get_points().size() == 9, "three rows of three vertices, each once");
}
