// Rays from outside at points on the surface of closed meshes: each must be stopped there or before. What passes is a
// leak, and there must be none.
//
// The triangle test itself has none: edges and corners belong to both sides. But boxes are tested in single precision,
// and rounding may let a ray through an edge into the box on one side only, while the triangle test finds it on the
// other. Without the kernel's outward rounding of each ray several in a hundred passed.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "support/built_mesh.h"
#include "support/mesh_file.h"
#include "support/mesh_oracle.h"
#include "support/ray_query.h"
#include "support/test_scale.h"

namespace {

using Vec = GMathVec3<double>;

struct Aim {
  Vec target;
  std::vector<uint> triangles;  ///< all that touch the target
};

class ClosedMesh {
 public:
  ClosedMesh(QueryWorld& world, const PolyMeshData& source) : world_(world), built_(world, triangulated(source)) {
    const GMathBbox3<double> box = built_.structure.get_bbox();
    centre_ = box.get_center();
    radius_ = (box.max - centre_).get_length();
    // Vertices at one place count as one.
    std::map<std::array<float, 3>, u32> places;
    for (const GMathVec3<float>& p : data_.positions)
      place_.push_back(places.try_emplace({p.x, p.y, p.z}, static_cast<u32>(places.size())).first->second);
    around_.resize(places.size());
    for (uint t = 0; t < get_count(); ++t)
      for (uint k = 0; k < 3; ++k) around_[place_[get_vertex(t, k)]].push_back(t);
  }

  uint get_count() const { return static_cast<uint>(data_.polygon_sizes.size()); }

  /// Every edge has a triangle on each side, by place.
  bool is_closed() const {
    std::map<std::pair<u32, u32>, int> balance;
    for (uint t = 0; t < get_count(); ++t) {
      for (uint k = 0; k < 3; ++k) {
        const u32 a = place_[get_vertex(t, k)], b = place_[get_vertex(t, (k + 1) % 3)];
        if (a != b) balance[{std::min(a, b), std::max(a, b)}] += a < b ? 1 : -1;
      }
    }
    return std::all_of(balance.begin(), balance.end(), [](const auto& edge) { return edge.second == 0; });
  }

  Aim aim_at_triangle(RandomValues& random) const {
    const uint t = random.get_index(get_count());
    double u = random.get(0, 1), v = random.get(0, 1);
    if (u + v > 1) u = 1 - u, v = 1 - v;
    const Vec a = get(t, 0);
    return {a + (get(t, 1) - a) * u + (get(t, 2) - a) * v, {t}};
  }
  Aim aim_at_vertex(uint t, uint corner) const { return {get(t, corner), around_[place_[get_vertex(t, corner)]]}; }
  Aim aim_at_edge(uint t, uint corner, double where) const {
    const u32 a = place_[get_vertex(t, corner)], b = place_[get_vertex(t, (corner + 1) % 3)];
    Aim aim{get(t, corner) + (get(t, (corner + 1) % 3) - get(t, corner)) * where, {}};
    for (const uint other : around_[a])
      if (std::count(around_[b].begin(), around_[b].end(), other) > 0) aim.triangles.push_back(other);
    return aim;
  }

  /// Shoots one ray at each aim, from a sphere around the mesh. Where all triangles around the target face the same
  /// way, none may pass the surface; where they do not, or are seen edge-on, passing by is no fault.
  void expect_no_leaks(const std::vector<Aim>& aims, RandomValues& random, const std::string& what) {
    std::vector<TestRay> rays;
    for (const Aim& aim : aims) {
      Vec way;
      while (!(way.get_length() > 0.1 && way.get_length() < 1.0)) way = random.get_vec();
      const Vec origin = centre_ + way.get_normalized() * (2 * radius_);
      rays.push_back({origin, aim.target - origin});  // the target is at distance 1
    }
    ask_rays(world_, built_.structure, packet_, rays);
    uint leaks = 0, at_silhouette = 0;
    for (uint k = 0; k < aims.size(); ++k) {
      if (packet_.get_nearest(k).distance <= 1 + 1e-9) continue;
      ++(is_blocked(aims[k], rays[k].origin) ? leaks : at_silhouette);
    }
    EXPECT_EQ(leaks, 0u) << what << ", " << aims.size() << " rays";
    EXPECT_LT(at_silhouette, aims.size() / 20) << what;
  }

 private:
  u32 get_vertex(uint t, uint corner) const { return data_.polygon_vertices[3 * t + corner]; }
  Vec get(uint t, uint corner) const { return Vec(data_.positions[get_vertex(t, corner)]); }

  /// All triangles around the target face the ray, or all turn away from it, and none is seen edge-on.
  bool is_blocked(const Aim& aim, const Vec& origin) const {
    const Long3 way = (Long3(aim.target) - Long3(origin)).get_normalized();
    uint front = 0, back = 0;
    for (const uint t : aim.triangles) {
      const Long3 a(get(t, 0)), normal = (Long3(get(t, 1)) - a).cross(Long3(get(t, 2)) - a).get_normalized();
      const long double cosine = normal.dot(way);
      if (std::fabs(cosine) < 1e-4L) return false;
      ++(cosine < 0 ? front : back);
    }
    return front == 0 || back == 0;
  }

  QueryWorld& world_;
  BuiltMesh built_;
  const PolyMeshData& data_ = built_.data;
  GeometryRayPacket packet_;
  Vec centre_;
  double radius_ = 0.0;
  std::vector<u32> place_;
  std::vector<std::vector<uint>> around_;
};

void expect_no_leaks(ClosedMesh& mesh, const std::string& name) {
  RandomValues random(99);
  const uint count = mesh.get_count(), rays = scaled(100000, 15000);
  std::vector<Aim> inside, vertices, edges;
  for (uint k = 0; k < rays; ++k) {
    inside.push_back(mesh.aim_at_triangle(random));
    vertices.push_back(mesh.aim_at_vertex(random.get_index(count), k % 3));
    edges.push_back(mesh.aim_at_edge(random.get_index(count), k % 3, random.get(0, 1)));
  }
  mesh.expect_no_leaks(inside, random, name + ", inside of triangles");
  mesh.expect_no_leaks(vertices, random, name + ", vertices");
  mesh.expect_no_leaks(edges, random, name + ", edges");
}

TEST(Watertight, generated_meshes) {
  QueryWorld world;
  for (const MeshScene& scene : {MeshScene{"sphere", make_sphere(6)},
                                 {"torus", make_torus(96, 48)},
                                 {"cube", make_cube_grid(24)},
                                 {"far sphere", transformed(make_sphere(5), 1.0f, {100, 50, -70})}}) {
    ClosedMesh mesh(world, scene.data);
    ASSERT_TRUE(mesh.is_closed());
    expect_no_leaks(mesh, scene.name);
  }
}

TEST(Watertight, meshes_of_the_data_folder) {
  QueryWorld world;
  const std::vector<MeshScene> scenes = read_mesh_folder();
  if (scenes.empty()) GTEST_SKIP() << "VQ_TEST_DATA names no folder with meshes";
  for (const MeshScene& scene : scenes) {
    ClosedMesh mesh(world, scene.data);
    if (mesh.is_closed()) expect_no_leaks(mesh, scene.name);
  }
}

}  // namespace
