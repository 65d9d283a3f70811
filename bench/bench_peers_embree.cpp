#include "bench/bench_peers_embree.h"

#include <algorithm>
#include <cmath>

namespace {

void get_bounds(const RTCBoundsFunctionArguments* args) {
  const auto& mesh = *static_cast<const BenchMesh*>(args->geometryUserPtr);
  const u32* index = mesh.indices.data() + std::size_t{3} * args->primID;
  const GMathVec3<float>* positions =
      mesh.samples.empty() ? mesh.positions.data() : mesh.samples[args->timeStep].data();
  const GMathVec3<float> a = positions[index[0]], b = positions[index[1]], c = positions[index[2]];
  RTCBounds& bounds = *args->bounds_o;
  bounds.lower_x = std::min({a.x, b.x, c.x});
  bounds.lower_y = std::min({a.y, b.y, c.y});
  bounds.lower_z = std::min({a.z, b.z, c.z});
  bounds.upper_x = std::max({a.x, b.x, c.x});
  bounds.upper_y = std::max({a.y, b.y, c.y});
  bounds.upper_z = std::max({a.z, b.z, c.z});
}

struct TriangleHit {
  double distance, u, v;
};

/// Möller, Trumbore 1997, "Fast, Minimum Storage Ray/Triangle Intersection", both faces, in double precision. Divides
/// only after a hit is certain, because most rays miss.
template <class GetCorner>
inline bool hit_triangle(const GetCorner& get_corner, const RTCRay& ray, TriangleHit& hit) {
  const GMathVec3<double> a = get_corner(0);
  const GMathVec3<double> ab = get_corner(1) - a;
  const GMathVec3<double> ac = get_corner(2) - a;
  const GMathVec3<double> direction(ray.dir_x, ray.dir_y, ray.dir_z);
  const GMathVec3<double> p = direction.cross(ac);
  const double determinant = ab.dot(p);
  const double sign = std::copysign(1.0, determinant), size = std::fabs(determinant);
  const GMathVec3<double> s = GMathVec3<double>(ray.org_x, ray.org_y, ray.org_z) - a;
  const double u = s.dot(p) * sign;
  if (!(u >= 0.0 && u <= size)) return false;
  const GMathVec3<double> q = s.cross(ab);
  const double v = direction.dot(q) * sign;
  if (!(v >= 0.0 && u + v <= size) || size == 0.0) return false;
  const double scale = 1.0 / size;
  hit = {ac.dot(q) * sign * scale, u * scale, v * scale};
  return hit.distance >= double(ray.tnear) && hit.distance < double(ray.tfar);
}

/// The same at the time of the ray.
inline bool hit_triangle(const void* user_data, uint triangle, const RTCRay& ray, TriangleHit& hit) {
  const BenchMesh& mesh = *static_cast<const BenchMesh*>(user_data);
  const std::size_t first = std::size_t{3} * triangle;
  if (!mesh.corners.empty()) {
    const GMathVec3<float>* corners = mesh.corners.data() + first;
    return hit_triangle([=](uint k) { return GMathVec3<double>(corners[k]); }, ray, hit);
  }
  const u32* vertices = mesh.indices.data() + first;
  if (mesh.samples.empty()) {
    const GMathVec3<float>* positions = mesh.positions.data();
    return hit_triangle([=](uint k) { return GMathVec3<double>(positions[vertices[k]]); }, ray, hit);
  }
  const BenchMesh::Moment moment = mesh.get_moment(double(ray.time));
  return hit_triangle([&](uint k) { return moment.get_position(vertices[k]); }, ray, hit);
}

/// Called with one valid ray: the callers below use no packets.
void intersect_triangle(const RTCIntersectFunctionNArguments* args) {
  RTCRayHit& ray_hit = *reinterpret_cast<RTCRayHit*>(args->rayhit);
  TriangleHit hit;
  if (!hit_triangle(args->geometryUserPtr, args->primID, ray_hit.ray, hit)) return;
  ray_hit.ray.tfar = static_cast<float>(hit.distance);
  ray_hit.hit.u = static_cast<float>(hit.u);
  ray_hit.hit.v = static_cast<float>(hit.v);
  ray_hit.hit.primID = args->primID;
  ray_hit.hit.geomID = args->geomID;
  ray_hit.hit.instID[0] = args->context->instID[0];
}

void occlude_triangle(const RTCOccludedFunctionNArguments* args) {
  RTCRay& ray = *reinterpret_cast<RTCRay*>(args->ray);
  TriangleHit hit;
  if (hit_triangle(args->geometryUserPtr, args->primID, ray, hit)) ray.tfar = -HUGE_VALF;
}

inline void set_ray(const BenchRaySet& set, std::size_t index, RTCRay& ray) {
  const BenchRay& from = set.rays[index];
  ray.org_x = from.origin.x;
  ray.org_y = from.origin.y;
  ray.org_z = from.origin.z;
  ray.tnear = from.tnear;
  ray.dir_x = from.direction.x;
  ray.dir_y = from.direction.y;
  ray.dir_z = from.direction.z;
  ray.time = set.times.empty() ? 0.0f : set.times[index];
  ray.tfar = from.tfar;
  ray.mask = 0xFFFFFFFFu;
  ray.id = 0;
  ray.flags = 0;
}

/// As many time steps as the object has matrices.
RTCGeometry make_instance(RTCDevice device, const BenchObjects::Object& object, RTCScene of_scene) {
  RTCGeometry instance = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_INSTANCE);
  rtcSetGeometryInstancedScene(instance, of_scene);
  rtcSetGeometryTimeStepCount(instance, static_cast<uint>(object.matrices.size()));
  for (uint sample = 0; sample < object.matrices.size(); ++sample) {
    float columns[12];
    for (uint k = 0; k < 12; ++k) columns[k] = static_cast<float>(object.matrices[sample].m[k % 3][k / 3]);
    rtcSetGeometryTransform(instance, sample, RTC_FORMAT_FLOAT3X4_COLUMN_MAJOR, columns);
  }
  return instance;
}

}  // namespace

RTCGeometry embree_make_triangles(RTCDevice device, const BenchMesh& mesh) {
  RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
  const auto set_positions = [&](uint sample, const std::vector<GMathVec3<float>>& positions) {
    rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, sample, RTC_FORMAT_FLOAT3, positions.data(), 0,
                               sizeof(GMathVec3<float>), positions.size());
  };
  if (mesh.samples.empty()) {
    set_positions(0, mesh.positions);
  } else {
    rtcSetGeometryTimeStepCount(geometry, static_cast<uint>(mesh.samples.size()));
    for (uint sample = 0; sample < mesh.samples.size(); ++sample) set_positions(sample, mesh.samples[sample]);
  }
  rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, mesh.indices.data(), 0,
                             3 * sizeof(u32), mesh.get_triangle_count());
  return geometry;
}

RTCGeometry embree_make_user_triangles(RTCDevice device, const BenchMesh& mesh) {
  RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_USER);
  rtcSetGeometryUserPrimitiveCount(geometry, mesh.get_triangle_count());
  if (!mesh.samples.empty()) rtcSetGeometryTimeStepCount(geometry, static_cast<uint>(mesh.samples.size()));
  rtcSetGeometryUserData(geometry, const_cast<BenchMesh*>(&mesh));
  rtcSetGeometryBoundsFunction(geometry, get_bounds, nullptr);
  rtcSetGeometryIntersectFunction(geometry, intersect_triangle);
  rtcSetGeometryOccludedFunction(geometry, occlude_triangle);
  return geometry;
}

RTCGeometry embree_make_curves(RTCDevice device, const BenchGroom& groom) {
  RTCGeometry geometry =
      rtcNewGeometry(device, groom.shape == CurveShape::linear ? RTC_GEOMETRY_TYPE_ROUND_LINEAR_CURVE
                                                               : RTC_GEOMETRY_TYPE_ROUND_BEZIER_CURVE);
  const auto set_points = [&](uint sample, const std::vector<CurvePoint<float>>& points) {
    rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, sample, RTC_FORMAT_FLOAT4, points.data(), 0,
                               sizeof(CurvePoint<float>), points.size());
  };
  if (groom.samples.empty()) {
    set_points(0, groom.points);
  } else {
    rtcSetGeometryTimeStepCount(geometry, static_cast<uint>(groom.samples.size()));
    for (uint sample = 0; sample < groom.samples.size(); ++sample) set_points(sample, groom.samples[sample]);
  }
  rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT, groom.first_points.data(), 0,
                             sizeof(u32), groom.first_points.size());
  return geometry;
}

EmbreeDevice::EmbreeDevice(const std::string& isa, uint thread_count) {
  std::string config = "threads=" + std::to_string(thread_count);
  if (!isa.empty()) config += ",isa=" + isa;
  device_ = rtcNewDevice(config.c_str());
  if (device_ == nullptr) return;
  const auto count_memory = [](void* self, ssize_t bytes, bool) {
    static_cast<EmbreeDevice*>(self)->held_bytes_ += bytes;
    return true;
  };
  rtcSetDeviceMemoryMonitorFunction(device_, count_memory, this);
}

EmbreeDevice::~EmbreeDevice() {
  if (device_ != nullptr) rtcReleaseDevice(device_);
}

EmbreeScene::EmbreeScene(EmbreeDevice& device)
    : device_(device), scene_(rtcNewScene(device.get())), bytes_before_(device.get_held_bytes()) {
  rtcSetSceneBuildQuality(scene_, RTC_BUILD_QUALITY_MEDIUM);
}

EmbreeScene::EmbreeScene(EmbreeDevice& device, const EmbreeGeometryMaker& make_geometry) : EmbreeScene(device) {
  attach(make_geometry(device.get()));
}

EmbreeScene::EmbreeScene(EmbreeDevice& device, const BenchObjects& objects, EmbreeMeshMaker make_mesh)
    : EmbreeScene(device) {
  objects_ = &objects;
  for (const BenchMesh& mesh : objects.meshes) {
    inner_.push_back(
        std::make_unique<EmbreeScene>(device, [&](RTCDevice made_on) { return make_mesh(made_on, mesh); }));
    inner_.back()->commit();
  }
  bytes_before_ = device.get_held_bytes();
  for (const BenchObjects::Object& object : objects.objects)
    attach(make_instance(device.get(), object, inner_[object.mesh]->scene_));
}

EmbreeScene::~EmbreeScene() { rtcReleaseScene(scene_); }

void EmbreeScene::attach(RTCGeometry geometry) {
  rtcSetGeometryBuildQuality(geometry, RTC_BUILD_QUALITY_MEDIUM);
  rtcCommitGeometry(geometry);
  rtcAttachGeometry(scene_, geometry);
  rtcReleaseGeometry(geometry);
}

u64 EmbreeScene::get_total_bytes() const {
  u64 bytes = held_bytes_;
  for (const auto& scene : inner_) bytes += scene->held_bytes_;
  return bytes;
}

void EmbreeScene::commit() {
  rtcCommitScene(scene_);
  held_bytes_ = device_.get_held_bytes() - bytes_before_;
}

void EmbreeScene::trace(uint /*thread*/, const BenchRaySet& set, std::size_t first, std::size_t end, BenchHit* hits) {
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  if (set.any_hit) {
    for (; first < end; ++first) {
      RTCRay ray;
      set_ray(set, first, ray);
      rtcOccluded1(scene_, &context, &ray);
      hits[first] = ray.tfar < 0.0f ? BenchHit{0.0f, 0} : BenchHit();
    }
    return;
  }
  for (; first < end; ++first) {
    RTCRayHit ray_hit;
    set_ray(set, first, ray_hit.ray);
    ray_hit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene_, &context, &ray_hit);
    if (ray_hit.hit.geomID == RTC_INVALID_GEOMETRY_ID) {
      hits[first] = BenchHit();
      continue;
    }
    const u32 before = objects_ != nullptr ? objects_->first_triangles[ray_hit.hit.instID[0]] : 0;
    hits[first] = {ray_hit.ray.tfar, before + ray_hit.hit.primID};
  }
}
