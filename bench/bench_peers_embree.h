// bench/bench_peers_embree.h
//
// The peer: Embree, with its own triangles, one user primitive per triangle, its own round curves, or instances.
#pragma once
#include <embree3/rtcore.h>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "bench/bench_groom.h"
#include "bench/bench_mesh.h"
#include "bench/bench_objects.h"
#include "bench/bench_tracer.h"

/// Makes the geometry of a scene. Data that Embree shares with the caller must outlive the scene.
using EmbreeGeometryMaker = std::function<RTCGeometry(RTCDevice)>;
using EmbreeMeshMaker = RTCGeometry (*)(RTCDevice, const BenchMesh&);

/// Embree's own triangles, single precision. Arrays of positions must have four more bytes after the last position,
/// because Embree reads vertices as sixteen bytes. As many time steps as the mesh has samples.
RTCGeometry embree_make_triangles(RTCDevice device, const BenchMesh& mesh);
/// Boxes and tests through callbacks, in double precision, as this library calls its geometry.
RTCGeometry embree_make_user_triangles(RTCDevice device, const BenchMesh& mesh);
/// Embree's round curves: a linear segment is a cone with round ends, a cubic one a sweep of discs with open ends. As
/// many time steps as the groom has samples.
RTCGeometry embree_make_curves(RTCDevice device, const BenchGroom& groom);

/// A device that builds on `thread_count` threads and counts its memory.
class EmbreeDevice {
 public:
  /// @param isa  instruction set, for the device's configuration; empty: the best of the machine
  EmbreeDevice(const std::string& isa, uint thread_count);
  ~EmbreeDevice();
  EmbreeDevice(const EmbreeDevice&) = delete;
  EmbreeDevice& operator=(const EmbreeDevice&) = delete;

  /// Null if Embree rejects the configuration.
  RTCDevice get() const { return device_; }
  u64 get_held_bytes() const { return static_cast<u64>(held_bytes_.load()); }

 private:
  RTCDevice device_ = nullptr;
  std::atomic<std::int64_t> held_bytes_ = 0;
};

class EmbreeScene final : public BenchTracer {
 public:
  /// Defines a scene of one geometry; `device` must outlive it.
  EmbreeScene(EmbreeDevice& device, const EmbreeGeometryMaker& make_geometry);
  /// Builds a scene for each mesh and defines a scene of instances of them. `device` and `objects` must outlive it.
  EmbreeScene(EmbreeDevice& device, const BenchObjects& objects, EmbreeMeshMaker make_mesh);
  ~EmbreeScene() override;

  /// Builds the tree; this is the measured build time.
  void commit();
  void trace(uint thread, const BenchRaySet& set, std::size_t first, std::size_t end, BenchHit* hits) override;
  u64 get_tree_bytes() const override { return held_bytes_; }
  u64 get_total_bytes() const override;

 private:
  explicit EmbreeScene(EmbreeDevice& device);
  void attach(RTCGeometry geometry);

  EmbreeDevice& device_;
  std::vector<std::unique_ptr<EmbreeScene>> inner_;
  const BenchObjects* objects_ = nullptr;
  RTCScene scene_ = nullptr;
  u64 bytes_before_ = 0;
  u64 held_bytes_ = 0;
};
