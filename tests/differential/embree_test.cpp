// The same triangles and the same rays for the mesh structure and for Embree in its robust mode. Where the nearest hits
// differ, the reason must be a tie (two triangles at one distance) or a graze (the ray passes a triangle that one of
// the two has hit within some units in the last place of an edge); anything else fails.
#include <embree3/rtcore.h>

#include <cstring>

#include "support/built_mesh.h"
#include "support/flat_scene.h"
#include "support/mesh_file.h"
#include "support/ray_query.h"
#include "support/test_scale.h"

namespace {

using VecF = GMathVec3<float>;
constexpr uint none = core_invalid_index;

struct Hit {
  uint triangle = none;
  double distance = HUGE_VAL;
};

/// Rays whose numbers are exact in single precision, so that both are asked the same. A third begins behind its origin.
std::vector<TestRay> make_single_rays(const PolyMeshData& data, uint count, uint seed) {
  std::vector<TestRay> rays = make_rays(data, count, seed);
  const double size = get_finite_box(data).get_extent().get_length();
  for (uint k = 0; k < count; ++k) {
    TestRay& ray = rays[k];
    ray.origin = GMathVec3<double>(VecF(ray.origin));
    ray.direction = GMathVec3<double>(VecF(ray.direction.get_normalized()));
    ray.tnear = k % 3 == 0 ? static_cast<float>(1e-3 * size) : 0.0f;
    ray.tfar = DBL_MAX;
  }
  return rays;
}

OracleHit ask_oracle(const PolyMeshData& data, const TestRay& ray, uint triangle) {
  std::vector<Long3> corners;
  for (uint k = 0; k < 3; ++k) corners.emplace_back(data.positions[data.polygon_vertices[3 * triangle + k]]);
  return oracle_intersect({Long3(ray.origin), Long3(ray.direction), -HUGE_VALL, HUGE_VALL}, corners);
}

/// Of a distance in single precision, on the triangle that was hit; the oracle's is that of double precision.
double get_tolerance(const OracleHit& truth, const Hit& hit) {
  return static_cast<double>(truth.tolerance) * 0x1p29 + 1e-5 * hit.distance;
}

/// Whether two answers to one ray are the same, or differ for one of the two good reasons.
/// @param graze  from an edge, in units in the last place
bool can_both_be_right(const PolyMeshData& data, const TestRay& ray, const Hit& a, const Hit& b,
                       long double graze = 64) {
  if (a.triangle == none && b.triangle == none) return true;
  const Hit &nearer = a.distance < b.distance ? a : b, &other = a.distance < b.distance ? b : a;
  const OracleHit truth = ask_oracle(data, ray, nearer.triangle);
  const double tolerance = get_tolerance(truth, nearer);
  if (other.triangle != none) {
    const double other_tolerance = get_tolerance(ask_oracle(data, ray, other.triangle), other);
    if (other.distance - nearer.distance <= tolerance + other_tolerance) return true;
  }
  return truth.edge_distance <= graze || std::fabs(truth.t - ray.tnear) <= tolerance;
}

/// Embree over the triangles of a mesh, or over instances of it.
class EmbreeMesh {
 public:
  explicit EmbreeMesh(const PolyMeshData& data) : triangle_count_(static_cast<uint>(data.polygon_sizes.size())) {
    rtcSetSceneFlags(scene_, RTC_SCENE_FLAG_ROBUST);
    RTCGeometry geometry = rtcNewGeometry(device_, RTC_GEOMETRY_TYPE_TRIANGLE);
    const auto fill = [&](RTCBufferType type, RTCFormat format, const void* items, std::size_t count) {
      std::memcpy(rtcSetNewGeometryBuffer(geometry, type, 0, format, 12, count), items, 12 * count);
    };
    fill(RTC_BUFFER_TYPE_VERTEX, RTC_FORMAT_FLOAT3, data.positions.data(), data.positions.size());
    fill(RTC_BUFFER_TYPE_INDEX, RTC_FORMAT_UINT3, data.polygon_vertices.data(), data.polygon_vertices.size() / 3);
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene_, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene_);
  }
  /// Puts the mesh in a scene of instances.
  /// @param matrices  [instance][sample], the samples spread over the times from 0 to 1
  void set_instances(const std::vector<std::vector<SceneMatrix>>& matrices) {
    mesh_ = scene_;
    scene_ = rtcNewScene(device_);
    rtcSetSceneFlags(scene_, RTC_SCENE_FLAG_ROBUST);
    for (const std::vector<SceneMatrix>& samples : matrices) {
      RTCGeometry geometry = rtcNewGeometry(device_, RTC_GEOMETRY_TYPE_INSTANCE);
      rtcSetGeometryInstancedScene(geometry, mesh_);
      rtcSetGeometryTimeStepCount(geometry, static_cast<uint>(samples.size()));
      for (uint sample = 0; sample < samples.size(); ++sample) {
        float rows[12];
        for (uint k = 0; k < 12; ++k) rows[k] = static_cast<float>(samples[sample].m[k / 4][k % 4]);
        rtcSetGeometryTransform(geometry, sample, RTC_FORMAT_FLOAT3X4_ROW_MAJOR, rows);
      }
      rtcCommitGeometry(geometry);
      rtcAttachGeometry(scene_, geometry);
      rtcReleaseGeometry(geometry);
    }
    rtcCommitScene(scene_);
  }
  ~EmbreeMesh() {
    rtcReleaseScene(scene_);
    if (mesh_ != nullptr) rtcReleaseScene(mesh_);
    rtcReleaseDevice(device_);
  }
  EmbreeMesh(const EmbreeMesh&) = delete;
  EmbreeMesh& operator=(const EmbreeMesh&) = delete;

  Hit shoot(const TestRay& ray) const {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit query = {};
    const VecF origin(ray.origin), direction(ray.direction);
    query.ray = {origin.x,    origin.y,    origin.z,    static_cast<float>(ray.tnear),
                 direction.x, direction.y, direction.z, static_cast<float>(ray.time),
                 HUGE_VALF,   0xFFFFFFFFu, 0,           0};
    query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene_, &context, &query);
    const uint instance = mesh_ != nullptr ? query.hit.instID[0] : 0;
    return query.hit.geomID == RTC_INVALID_GEOMETRY_ID
               ? Hit()
               : Hit{instance * triangle_count_ + query.hit.primID, query.ray.tfar};
  }

 private:
  RTCDevice device_ = rtcNewDevice("threads=1");
  RTCScene scene_ = rtcNewScene(device_);
  RTCScene mesh_ = nullptr;  ///< below instances
  uint triangle_count_;
};

void compare(QueryWorld& world, const MeshScene& scene) {
  const BuiltMesh built(world, triangulated(scene.data));
  const PolyMeshData& data = built.data;
  const EmbreeMesh embree(data);
  const std::vector<TestRay> rays = make_single_rays(data, scaled(30000, 10000), 1);
  GeometryRayPacket packet;
  ask_rays(world, built.structure, packet, rays);
  uint hits = 0;
  for (uint k = 0; k < rays.size(); ++k) {
    const GeometryIntersection& hit = packet.get_nearest(k);
    const Hit ours = hit.geometry == nullptr ? Hit() : Hit{hit.primitive, hit.distance};
    const Hit theirs = embree.shoot(rays[k]);
    hits += ours.triangle != none;
    EXPECT_TRUE(can_both_be_right(data, rays[k], ours, theirs))
        << scene.name << " ray " << k << ": " << ours.triangle << " at " << ours.distance << ", Embree "
        << theirs.triangle << " at " << theirs.distance;
  }
  EXPECT_GT(hits, rays.size() / 10) << scene.name;
}

TEST(Embree, generated_meshes) {
  QueryWorld world;
  for (const MeshScene& scene : {MeshScene{"soup", make_soup(5000, 1, 0.1)},
                                 {"terrain", make_terrain(80, 2)},
                                 {"flat terrain", make_terrain(60, 2, 0)},
                                 {"sphere", make_sphere(6)},
                                 {"torus", make_torus(96, 48)},
                                 {"cube", make_cube_grid(24)},
                                 {"slivers", make_slivers(3000, 4)},
                                 {"coincident", make_coincident(500, 3, 5)},
                                 {"far sphere", transformed(make_sphere(5), 1.0f, {100, 50, -70})}})
    compare(world, scene);
}

TEST(Embree, instances_at_rest_and_in_motion) {
  QueryWorld world;
  const SceneShape shape(world, make_torus(24, 12));
  const auto triangles = static_cast<uint>(shape.data.polygon_sizes.size());
  const CtxMotionBlur blur(0.0, 1.0, 3);
  SceneMaker maker(world, 4, SceneMotion::none);
  SceneNode bundle;
  bundle.is_bundle = true;
  bundle.merges = true;
  bundle.has_table = false;
  bundle.keys = {{}};
  std::vector<std::vector<SceneMatrix>> at_rest, moving;
  for (uint k = 0; k < 20; ++k) {
    std::vector<SceneMatrix> samples;
    for (uint sample = 0; sample < 3; ++sample) {
      samples.push_back(sample == 0 ? maker.make_matrix() : samples[0]);
      for (uint entry = 0; entry < 12; ++entry) {
        double& value = samples.back().m[entry / 4][entry % 4];
        value = static_cast<float>(value + 0.1 * sample * std::sin(5.0 * entry + sample));
      }
    }
    bundle.children.push_back(make_node(shape, {{0.0, samples[0]}, {0.5, samples[1]}, {1.0, samples[2]}}));
    at_rest.push_back({samples[0]});
    moving.push_back(samples);
  }
  const GasObject& structure = *make_object(world, bundle)->get_structure();
  for (const CtxMotionBlur* used : {static_cast<const CtxMotionBlur*>(nullptr), &blur}) {
    EmbreeMesh embree(shape.data);
    embree.set_instances(used != nullptr ? moving : at_rest);
    for (const double time : {0.0, 0.25, 0.5, 0.875, 1.0}) {
      const PolyMeshData flat = FlatScene(bundle.children, used, time, none, true).data;
      std::vector<TestRay> rays = make_single_rays(flat, scaled(6000, 2000), 1);
      for (TestRay& ray : rays) ray.time = time;
      GeometryRayPacket packet;
      ask_rays(world, structure, packet, rays, {true, used});
      for (uint k = 0; k < rays.size(); ++k) {
        const GeometryIntersection& hit = packet.get_nearest(k);
        const Hit ours = hit.geometry == nullptr ? Hit() : Hit{hit.instance * triangles + hit.primitive, hit.distance};
        const Hit theirs = embree.shoot(rays[k]);
        EXPECT_TRUE(can_both_be_right(flat, rays[k], ours, theirs, 1000))
            << "ray " << k << " at " << time << ": " << ours.triangle << " at " << ours.distance << ", Embree "
            << theirs.triangle << " at " << theirs.distance;
      }
      if (used == nullptr) break;
    }
  }
}

TEST(Embree, meshes_of_the_data_folder) {
  QueryWorld world;
  const std::vector<MeshScene> scenes = read_mesh_folder();
  if (scenes.empty()) GTEST_SKIP() << "VQ_TEST_DATA names no folder with meshes";
  for (const MeshScene& scene : scenes) compare(world, scene);
}

}  // namespace
