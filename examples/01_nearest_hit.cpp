// What does a ray hit first? One mesh, one ray, and everything that a first query needs.
#include <cstdio>

#include "gas/gas_geometry_bvh4.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_ray_packet.h"
#include "vq_geometry/poly_mesh.h"
#include "vq_of/of_app.h"
#include "vq_of/of_object_factory.h"

int main() {
  // The application owns the worker threads. The evaluation context is passed to geometry when it computes boxes and
  // samples. The shading context holds all data that one thread changes while it queries.
  OfApp app;
  OfObjectFactory factory(app);
  const CtxEval ctx(factory);
  CtxShader shader;

  // The unit square at z = 0, divided along its diagonal: two polygons, so two primitives.
  PolyMeshData data;
  data.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
  data.polygon_sizes = {3, 3};
  data.polygon_vertices = {0, 1, 2, 0, 2, 3};
  PolyMesh mesh;
  CoreString error;
  if (!mesh.create(std::move(data), error)) {
    std::printf("no mesh: %s\n", error.get_data());
    return 1;
  }

  // The structure refers to the mesh, which must outlive it.
  GasGeometryBvh4 structure;
  structure.create(ctx, &mesh, &mesh, nullptr);

  // Primitives of a shading group without a material are not hit. A mesh without named groups has group 0.
  const Material material;
  ShadingGroupLinks links;
  links.material = &material;
  const ShadingGroupLinks* const entries[] = {&links};
  const ShadingGroupTable shading(entries);

  // Rays are queried in packets; this one holds a single ray, straight down.
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, /*origin=*/{0.25, 0.75, 2}, /*direction=*/{0, 0, -1});
  structure.ray_hit_nearest_static(ctx, shader, packet.begin_nearest(shading));

  const GeometryIntersection& hit = packet.get_nearest(0);
  if (hit.geometry == nullptr) {
    std::printf("nothing is hit\n");
    return 1;
  }
  // A hit holds a few numbers. Position, normals and texture coordinates are computed on request.
  const GeometrySurfacePoint point = hit.geometry->get_surface_point(hit, /*time=*/0.0);
  std::printf("polygon %u at distance %g, position (%g, %g, %g), normal (%g, %g, %g)\n", hit.primitive, hit.distance,
              point.position.x, point.position.y, point.position.z, point.normal.x, point.normal.y, point.normal.z);

  const bool right = hit.primitive == 1 && hit.distance == 2.0 && point.position == GMathVec3<double>(0.25, 0.75, 0) &&
                     point.normal == GMathVec3<double>(0, 0, 1);
  return right ? 0 : 1;
}
