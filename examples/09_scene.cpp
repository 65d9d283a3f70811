// Which object does a ray hit? A scene of objects that share structures, each with its own matrix, one of them moving;
// then the same scene as an object of another scene.
#include <cmath>

#include "examples/example_world.h"
#include "gas/gas_module_clusters.h"
#include "gas/gas_scene_tree.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_module/module_combiner.h"
#include "vq_module/module_geometry.h"

namespace {

using Matrix = GMathMatrix4x4<double>;
using Object = std::shared_ptr<ModuleSceneObject>;

/// A scale along each axis, then a translation.
Matrix make_matrix(const GMathVec3<double>& scale, const GMathVec3<double>& place) {
  Matrix matrix;
  for (uint axis = 0; axis < 3; ++axis) {
    matrix.m[axis][axis] = scale[axis];
    matrix.m[axis][3] = place[axis];
  }
  return matrix;
}

/// A mesh with its structure. Objects keep both alive.
struct Shape {
  Shape(const ExampleWorld& world, const GMathVec3<float>& min, const GMathVec3<float>& max) {
    PolyMeshData data;
    add_box(data, min, max);
    create_mesh(*mesh, std::move(data));
    structure->create(world.ctx, mesh.get(), mesh.get(), nullptr);
  }
  std::shared_ptr<PolyMesh> mesh = std::make_shared<PolyMesh>();
  std::shared_ptr<GasGeometryBvh4> structure = std::make_shared<GasGeometryBvh4>();
};

/// Each object has its own materials, visibility and matrix.
Object make_object(const ExampleWorld& world, const char* name, const Shape& shape, const Matrix& matrix) {
  auto object = std::make_shared<ModuleGeometry>(CoreString(name), shape.mesh, shape.structure,
                                                 gas_get_cluster_functions(shape.structure.get()));
  object->set_shading_group(0, world.links);
  object->set_global_matrix(matrix);
  return object;
}

std::shared_ptr<GasSceneTree> make_scene(const ExampleWorld& world, const std::vector<Object>& objects) {
  std::vector<ModuleSceneObject*> pointers;
  for (const Object& object : objects) pointers.push_back(object.get());
  auto scene = std::make_shared<GasSceneTree>();
  scene->create(world.app, CoreBasicArray<ModuleSceneObject*>::make_view(pointers.data(), uint(pointers.size())),
                nullptr);
  return scene;
}

}  // namespace

int main() {
  ExampleWorld world;
  const Shape cube(world, {-1, -1, -1}, {1, 1, 1}), slab(world, {-20, -20, -1}, {20, 20, 0});
  // Two cubes share one structure; one of them is stretched and mirrored.
  const std::vector<Object> objects = {
      make_object(world, "ground", slab, Matrix()),
      make_object(world, "small cube", cube, make_matrix({0.5, 0.5, 0.5}, {-4, 0, 0.5})),
      make_object(world, "long cube", cube, make_matrix({-3, 1, 1}, {4, 0, 1})),
  };
  const auto scene = make_scene(world, objects);
  std::printf("%g geometries, %g polygons\n", scene->get_geometry_count(), scene->get_primitive_count());

  // Straight down: onto the small cube, onto the far end of the long one, and beside both. Objects have their own
  // materials, so the query's table is not read.
  GeometryRayPacket packet;
  packet.resize(3);
  const double places[] = {-4, 6.5, 0};
  for (uint ray = 0; ray < 3; ++ray) packet.set_ray(ray, {places[ray], 0.2, 10}, {0, 0, -1});
  scene->ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
  const char* expected[] = {"small cube", "long cube", "ground"};
  const double heights[] = {1, 2, 0};
  for (uint ray = 0; ray < 3; ++ray) {
    // The path holds the objects that the ray entered; the transform is mesh space to world space.
    const GeometryIntersection& hit = packet.get_nearest(ray);
    expect(hit.geometry != nullptr, "every ray hits something");
    const ModuleSceneObject* object = packet.get_nearest_path(ray).back().object;
    const GMathVec3<double> local = hit.geometry->get_surface_point(hit, 0.0).position;
    const GMathVec3<double> point = packet.get_nearest_transform(ray)->matrix.transform_point(local);
    std::printf("%-10s at (%g, %g, %g), on the mesh at (%.2f, %.2f, %.2f)\n", object->get_name().get_data(), point.x,
                point.y, point.z, local.x, local.y, local.z);
    expect(object->get_name() == CoreString(expected[ray]) && std::fabs(point.z - heights[ray]) < 1e-12, expected[ray]);
  }

  // A frustum finds objects. In mode any result.hit_count counts those that it touches, and get_objects() lists their
  // numbers; a scene does not end at the first.
  GeometryFrustumCtx frustum;
  frustum.mode = static_cast<uint>(GeometryFrustumMode::any);
  frustum.add_plane({{-2, 0, 0}, {-1, 0, 0}});  // x < -2
  frustum.add_plane({{0, 0, 0.5}, {0, 0, 1}});  // z > 0.5
  scene->frustum_hit(world.ctx, world.shader, frustum);
  std::printf("left and above: %u object\n", frustum.result.hit_count);
  expect(frustum.result.hit_count == 1 && frustum.get_objects() == std::vector<uint>{1}, "the small cube");

  // The small cube now moves from x = -4 to x = 0 while the shutter is open. The tree is unchanged; the first query
  // under a shutter refits it. After earlier queries under this shutter, dirty_motion_blur() would be needed here.
  objects[1]->set_global_matrix_keys(
      {{0.0, objects[1]->get_global_matrix()}, {1.0, make_matrix({0.5, 0.5, 0.5}, {0, 0, 0.5})}}, /*time=*/0.0);
  const CtxMotionBlur shutter(/*open=*/0.0, /*close=*/1.0, /*sample_count=*/2);
  world.ctx.set_motion_blur(&shutter);
  world.shader.motion_blur = &shutter;
  for (uint ray = 0; ray < 3; ++ray) packet.set_ray(ray, {-2, 0.2, 10}, {0, 0, -1}, 0.0, DBL_MAX, /*time=*/0.5 * ray);
  scene->ray_hit_nearest_motion(world.ctx, world.shader, packet.begin_nearest(world.shading));
  for (uint ray = 0; ray < 3; ++ray) {
    const ModuleSceneObject* object = packet.get_nearest_path(ray).back().object;
    std::printf("x = -2 at time %.1f: %s\n", 0.5 * ray, object->get_name().get_data());
    expect((object == objects[1].get()) == (ray == 1), "the small cube is at x = -2 at time 0.5");
  }

  // A scene can be an object too. Two instances of the same scene, the second upside down above the first, have
  // different paths.
  std::vector<Object> both;
  for (const Matrix& matrix : {Matrix(), make_matrix({1, 1, -1}, {0, 0, 30})}) {
    both.push_back(std::make_shared<ModuleCombiner>(CoreString("scene"), objects, scene));
    both.back()->set_global_matrix(matrix);
  }
  const auto outer = make_scene(world, both);
  packet.set_ray(0, {6.5, 0.2, 10}, {0, 0, 1});
  outer->ray_hit_nearest_motion(world.ctx, world.shader, packet.begin_nearest(world.shading));
  const auto path = packet.get_nearest_path(0);
  std::printf("upwards: object %u of object %u at distance %g\n", path[1].object_index, path[0].object_index,
              packet.get_nearest(0).distance);
  expect(path.size() == 2 && path[0].object_index == 1 && path[1].object_index == 2,
         "the long cube of the upper scene");
  expect(std::fabs(packet.get_nearest(0).distance - 18) < 1e-12, "its top, at height 28");
}
