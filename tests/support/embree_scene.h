// tests/support/embree_scene.h
//
// A scene of Embree in its robust mode, asked for single rays: the second opinion of the differential tests.
#pragma once
#include <embree3/rtcore.h>

#include <cstring>
#include <vector>

#include "support/ray_sets.h"

class EmbreeScene {
 public:
  EmbreeScene() { rtcSetSceneFlags(scene_, RTC_SCENE_FLAG_ROBUST); }
  ~EmbreeScene() {
    rtcReleaseScene(scene_);
    rtcReleaseDevice(device_);
  }
  EmbreeScene(const EmbreeScene&) = delete;
  EmbreeScene& operator=(const EmbreeScene&) = delete;

  RTCDevice get_device() const { return device_; }
  RTCScene get_scene() const { return scene_; }
  RTCGeometry make_geometry(RTCGeometryType type, uint time_steps = 1) const {
    RTCGeometry geometry = rtcNewGeometry(device_, type);
    rtcSetGeometryTimeStepCount(geometry, time_steps);
    return geometry;
  }
  /// Copies the numbers of `items`, in records of `size` bytes.
  template <class T>
  static void fill(RTCGeometry geometry, RTCBufferType type, uint slot, RTCFormat format, const std::vector<T>& items,
                   std::size_t size = sizeof(T)) {
    const std::size_t bytes = items.size() * sizeof(T);
    std::memcpy(rtcSetNewGeometryBuffer(geometry, type, slot, format, size, bytes / size), items.data(), bytes);
  }
  static void attach(RTCScene scene, RTCGeometry geometry) {
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene, geometry);
    rtcReleaseGeometry(geometry);
  }

  /// hit.geomID is RTC_INVALID_GEOMETRY_ID when nothing is hit.
  RTCRayHit shoot(const TestRay& ray) const {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit query = {};
    const GMathVec3<float> origin(ray.origin), direction(ray.direction);
    query.ray = {origin.x,    origin.y,    origin.z,    static_cast<float>(ray.tnear),
                 direction.x, direction.y, direction.z, static_cast<float>(ray.time),
                 HUGE_VALF,   0xFFFFFFFFu, 0,           0};
    query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene_, &context, &query);
    return query;
  }

 private:
  RTCDevice device_ = rtcNewDevice("threads=1");
  RTCScene scene_ = rtcNewScene(device_);
};
