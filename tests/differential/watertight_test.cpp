// Rays from outside at points on closed surfaces, at rest and moving: each must be stopped there or before.
//
// The triangle test lets none through: edges and corners belong to both sides. But boxes are tested in single
// precision, and rounding may let a ray through an edge into the box on one side only, while the triangle test finds it
// on the other; the boxes that a timed ray meets are blended between two samples, and rounding in the blend may part
// them. Without the kernel's outward rounding of each ray several in a hundred pass.
#include <gtest/gtest.h>

#include "support/ray_query.h"
#include "support/scene_worlds.h"
#include "support/test_scale.h"

namespace {

using Vec = GMathVec3<double>;

/// Rays from `distances` times the mesh's size away at its triangles: inside of them, at corners and on edges.
/// @param normal  (point at rest) -> outwards
/// @param place   (point at rest, time) -> where it is
template <class Normal, class Place>
void expect_no_leaks(QueryWorld& world, const GasObject& structure, const PolyMeshData& mesh, double size,
                     const Normal& normal, const Place& place, const CtxMotionBlur* blur, const std::string& what) {
  RandomValues random(7);
  GeometryRayPacket packet;
  const uint triangles = static_cast<uint>(mesh.polygon_sizes.size());
  for (const double distance : {0.3, 2.0, 100.0}) {
    std::vector<TestRay> rays;
    for (uint k = 0; k < scaled(60000, 6000); ++k) {
      const u32* corner = &mesh.polygon_vertices[std::size_t{3} * random.get_index(triangles)];
      const double time = random.get(0, 1), v = k % 3 == 0 ? 0.0 : random.get(0, 1);
      const double w = k % 3 == 2 ? random.get(0, 1) * (1 - v) : 0.0;
      Vec p[3];
      for (uint c = 0; c < 3; ++c) p[c] = Vec(mesh.positions[corner[c]]);
      const Vec target = place(p[0], time) * (1 - v - w) + place(p[1], time) * v + place(p[2], time) * w;
      // So steeply that all triangles around the target face the ray.
      const Vec way = normal(p[0] * (1 - v - w) + p[1] * v + p[2] * w) + random.get_vec(0.4);
      const Vec origin = target + way * (distance * size);
      rays.push_back({origin, target - origin, 0.0, DBL_MAX, time});
    }
    ask_rays(world, structure, packet, rays, {true, blur});
    uint leaks = 0;
    for (uint k = 0; k < rays.size(); ++k) leaks += packet.get_nearest(k).distance <= 1 + 1e-9 ? 0 : 1;
    EXPECT_EQ(leaks, 0u) << what << ", from " << distance << " sizes, " << rays.size() << " rays";
  }
}

Vec get_sphere_normal(const Vec& p) { return p.get_normalized(); }
Vec stay(const Vec& p, double) { return p; }

TEST(Watertight, meshes_at_rest) {
  QueryWorld world;
  const BuiltMesh sphere(world, make_sphere(6)), cube(world, make_cube_grid(24)), torus(world, make_torus(96, 48));
  expect_no_leaks(world, sphere.structure, sphere.data, 1.0, get_sphere_normal, stay, nullptr, "sphere");
  const auto get_cube_normal = [](const Vec& p) {
    for (uint axis = 0; axis < 3; ++axis)  // at an edge of the cube both sides of it face the ray
      if (std::fabs(p[axis]) == 1.0) return p * (std::fabs(p[(axis + 1) % 3]) == 1.0 ? 1.0 : 0.0) + p.get_normalized();
    return p;
  };
  expect_no_leaks(world, cube.structure, cube.data, 1.0, get_cube_normal, stay, nullptr, "cube");
  const auto get_torus_normal = [](const Vec& p) { return (p - Vec(p.x, p.y, 0).get_normalized()).get_normalized(); };
  expect_no_leaks(world, torus.structure, torus.data, 0.1, get_torus_normal, stay, nullptr, "torus");
  for (const Vec& shift : {Vec(100, 50, -70), Vec(1e4, 0, 3e3)}) {
    const BuiltMesh far(world, transformed(make_sphere(5), 1.0f, GMathVec3<float>(shift)));
    const auto normal = [&](const Vec& p) { return (p - shift).get_normalized(); };
    expect_no_leaks(world, far.structure, far.data, 1.0, normal, stay, nullptr, "far sphere");
  }
}

constexpr Vec direction{0.6, -0.5, 0.62};

TEST(WatertightMotion, deforming_meshes) {
  QueryWorld world;
  const CtxMotionBlur two(0.0, 1.0, 2), five(0.0, 1.0, 5);
  for (const double travel : {0.0, 1.0, 100.0}) {
    PolyMeshData data = make_sphere(5);
    data.motion_positions.assign(2, data.positions);
    const auto deform = [&](const Vec& p) { return Vec(p.x, p.y * 0.8, p.z * 1.1) + direction * travel; };
    for (GMathVec3<float>& p : data.motion_positions[1]) p = GMathVec3<float>(deform(Vec(p)));
    const BuiltMesh built(world, data);
    const auto place = [&](const Vec& p, double time) { return p + (Vec(GMathVec3<float>(deform(p))) - p) * time; };
    for (const CtxMotionBlur* blur : {&two, &five})
      expect_no_leaks(world, built.structure, data, 1.0, get_sphere_normal, place, blur,
                      "travel of " + std::to_string(travel));
  }
}

TEST(WatertightMotion, moving_objects_in_clusters) {
  QueryWorld world;
  const SceneShape sphere(world, make_sphere(5));
  const CtxMotionBlur blur(0.0, 1.0, 2);
  for (const double travel : {0.0, 1.0, 100.0}) {
    SceneMatrix end = make_translation(direction * travel);
    end.m[0][1] = 0.2;
    end.m[1][1] = 0.8;
    std::vector<SceneNode> nodes;
    nodes.push_back(make_node(sphere, {{0.0, {}}, {1.0, end}}));
    nodes.push_back(make_node(sphere, {{0.0, make_translation({0, 0, -400})}}));  // more than one: cut into clusters
    const auto scene = build_scene(world, nodes);
    ASSERT_GT(scene->get_cluster_count(0), 8u);
    const auto place = [&](const Vec& p, double time) { return p + (end.transform_point(p) - p) * time; };
    expect_no_leaks(world, *scene, sphere.data, 1.0, get_sphere_normal, place, &blur,
                    "travel of " + std::to_string(travel));
  }
}

}  // namespace
