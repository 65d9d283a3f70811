// Rays from outside at points on closed surfaces, at rest and moving: each must be stopped there or before.
//
// The triangle test lets none through: edges and corners belong to both sides. But boxes are tested in single
// precision, and rounding may let a ray through an edge into the box on one side only, while the triangle test finds it
// on the other; the boxes that a timed ray meets are blended between two samples, and rounding in the blend may part
// them. Without the kernel's outward rounding of each ray several in a hundred pass.
#include <gtest/gtest.h>

#include <map>

#include "host/displaced_mesh_scenes.h"
#include "support/ray_query.h"
#include "support/scene_worlds.h"
#include "support/test_scale.h"

namespace {

using Vec = GMathVec3<double>;

/// Rays from `distances` times the mesh's size away at its triangles: inside of them, at corners and on edges.
/// @param normal  (point at rest) -> outwards
/// @param place   (vertex, time) -> where it is
template <class Normal, class Place>
void expect_no_leaks(QueryWorld& world, const std::vector<const GasObject*>& structures, const PolyMeshData& mesh,
                     double size, const Normal& normal, const Place& place, const CtxMotionBlur* blur,
                     const std::string& what) {
  RandomValues random(7);
  GeometryRayPacket packet;
  const uint triangles = static_cast<uint>(mesh.polygon_sizes.size());
  for (const double distance : {0.3, 2.0, 100.0}) {
    std::vector<TestRay> rays;
    for (uint k = 0; k < scaled(30000, 6000); ++k) {
      const u32* corner = &mesh.polygon_vertices[std::size_t{3} * random.get_index(triangles)];
      const double time = random.get(0, 1), v = k % 3 == 0 ? 0.0 : random.get(0, 1);
      const double w = k % 3 == 2 ? random.get(0, 1) * (1 - v) : 0.0;
      Vec p[3];
      for (uint c = 0; c < 3; ++c) p[c] = Vec(mesh.positions[corner[c]]);
      const Vec target = place(corner[0], time) * (1 - v - w) + place(corner[1], time) * v + place(corner[2], time) * w;
      // So steeply that all triangles around the target face the ray.
      const Vec way = normal(p[0] * (1 - v - w) + p[1] * v + p[2] * w) + random.get_vec(0.4);
      const Vec origin = target + way * (distance * size);
      rays.push_back({origin, target - origin, 0.0, DBL_MAX, time});
    }
    for (const GasObject* structure : structures) {
      ask_rays(world, *structure, packet, rays, {true, blur});
      uint leaks = 0;
      for (uint k = 0; k < rays.size(); ++k) leaks += packet.get_nearest(k).distance <= 1 + 1e-9 ? 0 : 1;
      EXPECT_EQ(leaks, 0u) << what << " in a " << structure->get_class_info().get_name() << ", from " << distance
                           << " sizes, " << rays.size() << " rays";
    }
  }
}

/// Where the vertices of a mesh are: at rest, or between its first two motion samples.
auto get_places(const PolyMeshData& mesh) {
  return [&mesh](u32 vertex, double time) {
    if (mesh.motion_positions.empty()) return Vec(mesh.positions[vertex]);
    return Vec(mesh.motion_positions[0][vertex]) * (1 - time) + Vec(mesh.motion_positions[1][vertex]) * time;
  };
}

Vec get_sphere_normal(const Vec& p) { return p.get_normalized(); }

/// A unit sphere whose triangles share their vertices.
PolyMeshData make_joined_sphere(uint level) {
  PolyMeshData data = make_sphere(level), joined = data;
  joined.positions.clear();
  std::map<std::tuple<float, float, float>, u32> numbers;
  for (u32& vertex : joined.polygon_vertices) {
    const GMathVec3<float>& p = data.positions[vertex];
    const auto [at, is_new] = numbers.try_emplace({p.x, p.y, p.z}, static_cast<u32>(joined.positions.size()));
    if (is_new) joined.positions.push_back(p);
    vertex = at->second;
  }
  return joined;
}

/// A closed mesh with hills, which stand in no mesh, in a grid; and its micro-triangles.
struct HillyMesh {
  HillyMesh(const QueryWorld& world, const PolyMeshData& data) {
    constexpr uint rate = 6;
    create(base, data);
    displace(mesh, base, make_noise(0.04), rate);
    EXPECT_TRUE(grid.create(world.ctx, &mesh, &mesh, nullptr));
    micro.motion_positions.resize(data.motion_positions.size());
    for_each_micro_triangle(mesh, base, rate, [&](uint primitive, uint part, uint, const uint(&at)[3][2]) {
      micro.polygon_sizes.push_back(3);
      for (const auto& [i, j] : at) {
        const auto get = [&](double time) {
          return GMathVec3<float>(mesh.get_micro_vertex(primitive, part, i, j, time));
        };
        micro.polygon_vertices.push_back(static_cast<u32>(micro.positions.size()));
        micro.positions.push_back(get(nan_time));
        for (uint k = 0; k < micro.motion_positions.size(); ++k) micro.motion_positions[k].push_back(get(k));
      }
    });
  }
  PolyMesh base;
  DisplacedMesh mesh;
  GasGeometry grid;
  PolyMeshData micro;
};

TEST(Watertight, meshes_at_rest) {
  QueryWorld world;
  const auto check = [&](const BothMesh& mesh, double size, const auto& normal, const std::string& what) {
    expect_no_leaks(world, {&mesh.structure, &mesh.grid}, mesh.data, size, normal, get_places(mesh.data), nullptr,
                    what);
  };
  check(BothMesh(world, make_sphere(6)), 1.0, get_sphere_normal, "sphere");
  const auto get_cube_normal = [](const Vec& p) {
    for (uint axis = 0; axis < 3; ++axis)  // at an edge of the cube both sides of it face the ray
      if (std::fabs(p[axis]) == 1.0) return p * (std::fabs(p[(axis + 1) % 3]) == 1.0 ? 1.0 : 0.0) + p.get_normalized();
    return p;
  };
  check(BothMesh(world, make_cube_grid(24)), 1.0, get_cube_normal, "cube");
  const auto get_torus_normal = [](const Vec& p) { return (p - Vec(p.x, p.y, 0).get_normalized()).get_normalized(); };
  check(BothMesh(world, make_torus(96, 48)), 0.1, get_torus_normal, "torus");
  for (const Vec& shift : {Vec(100, 50, -70), Vec(1e4, 0, 3e3)}) {
    const auto normal = [&](const Vec& p) { return (p - shift).get_normalized(); };
    check(BothMesh(world, transformed(make_sphere(5), 1.0f, GMathVec3<float>(shift))), 1.0, normal, "far sphere");
  }
  const HillyMesh hills(world, make_joined_sphere(3));
  expect_no_leaks(world, {&hills.grid}, hills.micro, 1.0, get_sphere_normal, get_places(hills.micro), nullptr, "hills");
}

constexpr Vec direction{0.6, -0.5, 0.62};

TEST(WatertightMotion, deforming_meshes) {
  QueryWorld world;
  const CtxMotionBlur two(0.0, 1.0, 2), five(0.0, 1.0, 5);
  for (const double travel : {0.0, 1.0, 100.0}) {
    const auto deformed = [&](PolyMeshData data) {
      data.motion_positions.assign(2, data.positions);
      for (GMathVec3<float>& p : data.motion_positions[1])
        p = GMathVec3<float>(Vec(p.x, p.y * 0.8, p.z * 1.1) + direction * travel);
      return data;
    };
    const BothMesh sphere(world, deformed(make_sphere(5)));
    const HillyMesh hills(world, deformed(make_joined_sphere(3)));
    const std::string what = "travel of " + std::to_string(travel);
    for (const CtxMotionBlur* blur : {&two, &five}) {
      expect_no_leaks(world, {&sphere.structure, &sphere.grid}, sphere.data, 1.0, get_sphere_normal,
                      get_places(sphere.data), blur, what);
      expect_no_leaks(world, {&hills.grid}, hills.micro, 1.0, get_sphere_normal, get_places(hills.micro), blur,
                      "hills, " + what);
    }
  }
}

TEST(WatertightMotion, moving_objects_and_instances_in_clusters) {
  QueryWorld world;
  const SceneShape sphere(world, make_sphere(5));
  const auto grid = std::make_shared<GasGeometry>();
  ASSERT_TRUE(grid->create(world.ctx, sphere.mesh.get(), sphere.mesh.get(), nullptr));
  const auto hills = std::make_shared<HillyMesh>(world, make_joined_sphere(3));
  const std::shared_ptr<DisplacedMesh> hilly_mesh(hills, &hills->mesh);
  const std::shared_ptr<GasGeometry> hilly_grid(hills, &hills->grid);
  const CtxMotionBlur blur(0.0, 1.0, 2);
  for (const double travel : {0.0, 1.0, 100.0}) {
    SceneMatrix end = make_translation(direction * travel);
    end.m[0][1] = 0.2;
    end.m[1][1] = 0.8;
    const auto check = [&](const PolyMeshData& data, std::shared_ptr<const GeometryObject> geometry,
                           std::shared_ptr<GasObject> structure, const std::string& what) {
      std::vector<SceneNode> nodes;
      nodes.push_back(make_node(sphere, {{0.0, {}}, {1.0, end}}));
      nodes.push_back(make_node(sphere, {{0.0, make_translation({0, 0, -400})}}));  // more than one: cut into clusters
      SceneNode bundle;
      bundle.is_bundle = true;
      bundle.has_table = false;
      bundle.keys = {{}};
      bundle.children = nodes;
      nodes[0].geometry = std::move(geometry);
      nodes[0].structure = std::move(structure);
      const auto scene = build_scene(world, nodes);
      const bool is_four_wide = what == "four-wide tree";  // whose geometry the bundle has
      EXPECT_TRUE(scene->get_cluster_count(0) > 8 || !is_four_wide);
      const auto place = [&](u32 vertex, double time) {
        const Vec p(data.positions[vertex]);
        return p + (end.transform_point(p) - p) * time;
      };
      std::vector<const GasObject*> structures = {scene.get()};
      if (is_four_wide) structures.push_back(make_object(world, bundle)->get_structure());
      expect_no_leaks(world, structures, data, 1.0, get_sphere_normal, place, &blur,
                      what + ", travel of " + std::to_string(travel));
      if (is_four_wide && travel == 0.0)
        expect_no_leaks(world, {structures[1]}, data, 1.0, get_sphere_normal, get_places(data), nullptr, "at rest");
    };
    check(sphere.data, sphere.mesh, sphere.structure, "four-wide tree");
    check(sphere.data, sphere.mesh, grid, "grid");
    check(hills->micro, hilly_mesh, hilly_grid, "hills");
  }
}

}  // namespace
