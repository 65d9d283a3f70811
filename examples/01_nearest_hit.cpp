// Who is hit? One mesh, one ray, and everything around them that a first query needs.
#include <cstdio>

#include "gas/gas_geometry_bvh4.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_ray_packet.h"
#include "vq_geometry/poly_mesh.h"
#include "vq_of/of_app.h"
#include "vq_of/of_object_factory.h"

int main() {
  // An application lends its threads. A context says in whose name geometry is asked. A shading context holds all that
  // one thread changes while it queries.
  OfApp app;
  OfObjectFactory factory(app);
  const CtxEval ctx(factory);
  CtxShader shader;

  // The unit square at z = 0, cut along its diagonal: two polygons, so two primitives.
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

  // A shading group without a material cannot be hit. A mesh that names no groups has one, number 0.
  const Material material;
  ShadingGroupLinks links;
  links.material = &material;
  const ShadingGroupLinks* const entries[] = {&links};
  const ShadingGroupTable shading(entries);

  // Rays are asked in packets; this one holds a single ray, straight down.
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, /*origin=*/{0.25, 0.75, 2}, /*direction=*/{0, 0, -1});
  structure.ray_hit_nearest_static(ctx, shader, packet.begin_nearest(shading));

  const GeometryIntersection& hit = packet.get_nearest(0);
  if (hit.geometry == nullptr) {
    std::printf("nothing is hit\n");
    return 1;
  }
  // A hit is a few numbers; what a picture needs to know of the place is worked out on demand.
  const GeometrySurfacePoint point = hit.geometry->get_surface_point(hit, /*time=*/0.0);
  std::printf("polygon %u at distance %g, position (%g, %g, %g), normal (%g, %g, %g)\n", hit.primitive, hit.distance,
              point.position.x, point.position.y, point.position.z, point.normal.x, point.normal.y, point.normal.z);

  const bool right = hit.primitive == 1 && hit.distance == 2.0 && point.position == GMathVec3<double>(0.25, 0.75, 0) &&
                     point.normal == GMathVec3<double>(0, 0, 1);
  return right ? 0 : 1;
}
