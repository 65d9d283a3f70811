// The same objects and the same rays for a scene tree and for Embree's instances. Embree carries rays into the objects
// in single precision, so nearest hits may differ where a ray meets two polygons at about one distance, or grazes the
// nearer one.
#include "support/embree_scene.h"
#include "support/ray_query.h"
#include "support/scene_worlds.h"
#include "support/test_scale.h"

namespace {

using Vec = GMathVec3<double>;
using VecF = GMathVec3<float>;
constexpr uint none = core_invalid_index;

struct Hit {
  uint object = none, polygon = none;
  double distance = HUGE_VAL;
};

/// Objects of one scene as instances over one inner scene a mesh, at rest or with two time steps.
class EmbreeInstances {
 public:
  EmbreeInstances(const std::vector<SceneNode>& nodes, const CtxMotionBlur* blur) {
    for (const SceneNode& node : nodes) {
      Inner& inner = inner_[node.shape];
      if (inner.scene == nullptr) make_inner(inner, *node.shape);
      const uint steps = blur != nullptr ? 2 : 1;
      RTCGeometry instance = outer_.make_geometry(RTC_GEOMETRY_TYPE_INSTANCE, steps);
      rtcSetGeometryInstancedScene(instance, inner.scene);
      for (uint step = 0; step < steps; ++step) {
        const SceneMatrix matrix = FlatScene::get_matrix(*node.object, blur, step);
        float columns[12];
        for (uint k = 0; k < 12; ++k) columns[k] = static_cast<float>(matrix.m[k % 3][k / 3]);
        rtcSetGeometryTransform(instance, step, RTC_FORMAT_FLOAT3X4_COLUMN_MAJOR, columns);
      }
      EmbreeScene::attach(outer_.get_scene(), instance);
      shapes_.push_back(node.shape);
    }
    rtcCommitScene(outer_.get_scene());
  }
  ~EmbreeInstances() {
    for (auto& entry : inner_) rtcReleaseScene(entry.second.scene);
  }
  EmbreeInstances(const EmbreeInstances&) = delete;
  EmbreeInstances& operator=(const EmbreeInstances&) = delete;

  Hit shoot(const TestRay& ray) const {
    const RTCRayHit found = outer_.shoot(ray);
    if (found.hit.geomID == RTC_INVALID_GEOMETRY_ID) return {};
    const uint object = found.hit.instID[0];
    return {object, inner_.at(shapes_[object]).polygons[found.hit.primID], found.ray.tfar};
  }

 private:
  struct Inner {
    RTCScene scene = nullptr;
    std::vector<uint> polygons;  ///< of each triangle
  };

  void make_inner(Inner& inner, const SceneShape& shape) const {
    std::vector<u32> indices;
    for (uint polygon = 0; polygon < shape.mesh->get_polygon_count(); ++polygon) {
      for (uint part = 0; part < shape.mesh->get_part_count(polygon); ++part) {
        const u32* vertices = shape.mesh->get_part_vertices(polygon, part);
        indices.insert(indices.end(), vertices, vertices + 3);
        inner.polygons.push_back(polygon);
      }
    }
    const bool moves = !shape.data.motion_positions.empty();
    RTCGeometry mesh = outer_.make_geometry(RTC_GEOMETRY_TYPE_TRIANGLE, moves ? 2 : 1);
    for (uint step = 0; step < (moves ? 2u : 1u); ++step)
      EmbreeScene::fill(mesh, RTC_BUFFER_TYPE_VERTEX, step, RTC_FORMAT_FLOAT3,
                        moves ? shape.data.motion_positions[step] : shape.data.positions);
    EmbreeScene::fill(mesh, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, indices, 3 * sizeof(u32));
    inner.scene = rtcNewScene(outer_.get_device());
    rtcSetSceneFlags(inner.scene, RTC_SCENE_FLAG_ROBUST);
    EmbreeScene::attach(inner.scene, mesh);
    rtcCommitScene(inner.scene);
  }

  EmbreeScene outer_;
  std::map<const SceneShape*, Inner> inner_;
  std::vector<const SceneShape*> shapes_;  ///< of each instance
};

bool can_both_be_right(const FlatScene& flat, const TestRay& ray, const Hit& a, const Hit& b) {
  if (a.object == b.object && a.polygon == b.polygon)
    return a.object == none || std::fabs(a.distance - b.distance) <= 1e-3 * (1 + a.distance);
  const Hit& nearer = a.distance < b.distance ? a : b;
  const uint polygon = flat.find({nearer.object}, nearer.polygon);
  if (polygon == none) return false;
  const OracleHit truth = oracle_intersect({Long3(ray.origin), Long3(ray.direction), -HUGE_VALL, HUGE_VALL},
                                           flat.polygons[polygon].corners);
  const double tolerance = static_cast<double>(truth.tolerance) * 0x1p29 + 1e-4 * (1 + nearer.distance);
  return std::fabs(a.distance - b.distance) <= tolerance || std::isnan(truth.t) || truth.edge_distance <= 4000;
}

void compare(uint seed, SceneMotion motion) {
  QueryWorld world;
  SceneMaker maker(world, seed, motion);
  std::vector<SceneNode> nodes = maker.make(40, 0);
  const auto scene = build_scene(world, nodes);
  const CtxMotionBlur two(0.0, 1.0, 2);
  const CtxMotionBlur* blur = motion == SceneMotion::none ? nullptr : &two;
  const EmbreeInstances embree(nodes, blur);
  for (const double time : blur != nullptr ? std::vector<double>{0.0, 0.17, 0.5, 1.0} : std::vector<double>{0.0}) {
    const FlatScene flat(world, nodes, blur, time);
    std::vector<TestRay> rays = make_rays(flat.data, scaled(10000, 2000), seed);
    for (TestRay& ray : rays) {
      ray = {Vec(VecF(ray.origin)), Vec(VecF(ray.direction.get_normalized()))};
      ray.time = time;
    }
    GeometryRayPacket packet;
    ask_rays(world, *scene, packet, rays, {true, blur});
    uint hits = 0;
    for (uint k = 0; k < rays.size(); ++k) {
      const GeometryIntersection& hit = packet.get_nearest(k);
      Hit ours;
      if (hit.geometry != nullptr) ours = {packet.get_nearest_path(k)[0].object_index, hit.primitive, hit.distance};
      const Hit theirs = embree.shoot(rays[k]);
      hits += ours.object != none;
      EXPECT_TRUE(can_both_be_right(flat, rays[k], ours, theirs))
          << "seed " << seed << " time " << time << " ray " << k << ": " << ours.object << " " << ours.polygon << " at "
          << ours.distance << ", Embree " << theirs.object << " " << theirs.polygon << " at " << theirs.distance;
    }
    EXPECT_GT(hits, rays.size() / 2);
  }
}

TEST(EmbreeScene, instances_at_rest_and_moving_and_of_meshes_that_deform) {
  for (const SceneMotion motion : {SceneMotion::none, SceneMotion::rigid, SceneMotion::deforming})
    for (uint seed = 1; seed < 4; ++seed) compare(seed, motion);
}

}  // namespace
