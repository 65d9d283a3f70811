// Timed rays at the vertices of closed surfaces that move, each aimed at where its vertex is at the ray's time: the
// surface must stop it there. The boxes that a timed ray meets are blended between two samples, and rounding in the
// blend may part them: with a slack for stored planes only, rays pass.
#include <gtest/gtest.h>

#include "support/ray_query.h"
#include "support/scene_worlds.h"
#include "support/test_scale.h"

namespace {

using Vec = GMathVec3<double>;

/// Rays from `distances` radii away at vertices of a sphere of radius 1 about the origin, at random times.
/// @param place  (vertex, time): where a vertex is
template <class Place>
void expect_no_leaks(QueryWorld& world, const GasObject& structure, const PolyMeshData& sphere, const Place& place,
                     const CtxMotionBlur& blur, const std::string& what) {
  RandomValues random(7);
  GeometryRayPacket packet;
  for (const double distance : {0.3, 2.0, 100.0}) {
    std::vector<TestRay> rays;
    for (uint k = 0; k < scaled(40000, 4000); ++k) {
      const uint vertex = random.get_index(static_cast<uint>(sphere.positions.size()));
      const double time = random.get(0, 1);
      const Vec target = place(vertex, time);
      // Outwards, so steeply that all triangles around the vertex face the ray.
      const Vec way = Vec(sphere.positions[vertex]).get_normalized() + random.get_vec(0.4);
      const Vec origin = target + way * distance;
      rays.push_back({origin, target - origin, 0.0, DBL_MAX, time});
    }
    ask_rays(world, structure, packet, rays, {true, &blur});
    uint leaks = 0;
    for (uint k = 0; k < rays.size(); ++k) leaks += packet.get_nearest(k).distance <= 1 + 1e-9 ? 0 : 1;
    EXPECT_EQ(leaks, 0u) << what << ", from " << distance << " radii, " << rays.size() << " rays";
  }
}

constexpr Vec direction{0.6, -0.5, 0.62};

TEST(WatertightMotion, deforming_meshes) {
  QueryWorld world;
  const CtxMotionBlur two(0.0, 1.0, 2), five(0.0, 1.0, 5);
  for (const double travel : {0.0, 1.0, 100.0}) {
    PolyMeshData data = make_sphere(5);
    data.motion_positions.assign(2, data.positions);
    for (GMathVec3<float>& p : data.motion_positions[1])
      p = GMathVec3<float>(Vec(p.x, p.y * 0.8, p.z * 1.1) + direction * travel);
    const BuiltMesh built(world, data);
    const auto place = [&](uint vertex, double time) {
      const Vec a(data.motion_positions[0][vertex]), b(data.motion_positions[1][vertex]);
      return a + (b - a) * time;
    };
    for (const CtxMotionBlur* blur : {&two, &five})
      expect_no_leaks(world, built.structure, data, place, *blur, "travel of " + std::to_string(travel));
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
    const auto place = [&](uint vertex, double time) {
      const Vec p(sphere.data.positions[vertex]), q = end.transform_point(p);
      return p + (q - p) * time;
    };
    expect_no_leaks(world, *scene, sphere.data, place, blur, "travel of " + std::to_string(travel));
  }
}

}  // namespace
