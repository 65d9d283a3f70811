// Where do a hundred thousand plants come from? A bundle: instances of a few geometries, one structure for all of them,
// as one object of a scene. A hit has the number of its instance.
#include <cmath>

#include "examples/example_world.h"
#include "gas/gas_geometry_bundle.h"
#include "gas/gas_module_clusters.h"
#include "gas/gas_scene_tree.h"
#include "vq_module/module_bundle.h"

int main() {
  ExampleWorld world;
  const auto post = std::make_shared<PolyMesh>(), slab = std::make_shared<PolyMesh>();
  PolyMeshData post_data, slab_data;
  add_box(post_data, {-0.1f, -0.1f, 0.0f}, {0.1f, 0.1f, 2.0f});
  add_box(slab_data, {-0.3f, -0.3f, 0.0f}, {0.3f, 0.3f, 0.5f});
  create_mesh(*post, std::move(post_data));
  create_mesh(*slab, std::move(slab_data));

  // Instance k stands at (k % 300, k / 300, 0); posts and slabs alternate. An instance takes some 600 bytes with its
  // six clusters; it has no mesh and no tree of its own.
  constexpr uint side = 300, count = side * side;
  CoreBasicArray<GeometryObject*> geometries(2);
  geometries[0] = post.get();
  geometries[1] = slab.get();
  CoreBasicArray<uint> kinds(count);
  CoreBasicArray<GMathMatrix4x4<double>> matrices(count);
  for (uint k = 0; k < count; ++k) {
    kinds[k] = k % 2;
    matrices[k] = GMathMatrix4x4<double>();
    matrices[k].m[0][3] = k % side;
    matrices[k].m[1][3] = k / side;
  }
  // With merged shading groups the offsets are those of the geometries: both have group 0 of the bundle's materials.
  CoreBasicArray<uint> offsets(2);
  offsets[0] = offsets[1] = 0;
  const auto structure = std::make_shared<GasGeometryBundle>();
  structure->create(world.app, geometries, geometries, kinds, kinds, offsets, matrices, {}, {}, {},
                    /*merge_shading_groups=*/true, nullptr);
  std::printf("%u instances, %u structures below them, %.1f MB\n", structure->get_valid_instance_count(),
              structure->get_slot_count(), 1e-6 * double(structure->get_memory_size()));
  expect(structure->get_valid_instance_count() == count, "all instances are valid");

  ModuleBundle object(CoreString("plants"), {{post, slab}, nullptr, 1, count, structure->get_primitive_count()},
                      structure, gas_get_cluster_functions(structure.get()));
  object.set_shading_group(0, world.links);
  CoreBasicArray<ModuleSceneObject*> objects(1);
  objects[0] = &object;
  GasSceneTree scene;
  scene.create(world.app, objects, nullptr);

  GeometryRayPacket packet;
  packet.resize(2);
  packet.set_ray(0, {150, 70, 10}, {0, 0, -1});
  packet.set_ray(1, {151.25, 70, 10}, {0, 0, -1});
  scene.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
  const double heights[] = {2.0, 0.5};
  for (uint ray = 0; ray < 2; ++ray) {
    const GeometryIntersection& hit = packet.get_nearest(ray);
    std::printf("instance %u, nested in %u bundle, at distance %g\n", hit.instance, hit.depth, hit.distance);
    expect(hit.instance == 70 * side + 150 + ray && hit.depth == 1, "the instance that stands there");
    expect(std::fabs(hit.distance - (10.0 - heights[ray])) < 1e-12, "its top");
  }
}
