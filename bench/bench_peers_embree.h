// bench/bench_peers_embree.h
//
// The peer: Embree, with its own triangles, with one user primitive a triangle, with its own round curves, or with
// instances.
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

/// Makes what a scene holds. What it shares with the library must outlive the scene.
using EmbreeGeometryMaker = std::function<RTCGeometry(RTCDevice)>;
using EmbreeMeshMaker = RTCGeometry (*)(RTCDevice, const BenchMesh&);

/// Single precision, Embree's own storage and test. The memory of the positions must go on for four bytes behind the
/// last: the library reads vertices sixteen bytes at a time.
RTCGeometry embree_make_triangles(RTCDevice device, const BenchMesh& mesh);
/// Boxes and tests through callbacks, in double precision, as this library reaches its geometry.
RTCGeometry embree_make_user_triangles(RTCDevice device, const BenchMesh& mesh);
/// Embree's round curves: a linear segment is a cone with round ends, a cubic one a sweep of discs without ends. As
/// many time steps as the groom has samples.
RTCGeometry embree_make_curves(RTCDevice device, const BenchGroom& groom);

/// A device that runs builds on so many threads and counts what it holds.
class EmbreeDevice {
 public:
  /// @param isa  as the device's configuration wants it; empty: the best that the machine has
  EmbreeDevice(const std::string& isa, uint thread_count);
  ~EmbreeDevice();
  EmbreeDevice(const EmbreeDevice&) = delete;
  EmbreeDevice& operator=(const EmbreeDevice&) = delete;

  /// Null when the library refuses the configuration.
  RTCDevice get() const { return device_; }
  u64 get_held_bytes() const { return static_cast<u64>(held_bytes_.load()); }

 private:
  RTCDevice device_ = nullptr;
  std::atomic<std::int64_t> held_bytes_ = 0;
};

class EmbreeScene final : public BenchTracer {
 public:
  /// Describes a scene of one geometry; `device` must outlive it.
  EmbreeScene(EmbreeDevice& device, const EmbreeGeometryMaker& make_geometry);
  /// Builds a scene for each mesh and describes a scene of instances of them. `device` and `objects` must outlive it.
  EmbreeScene(EmbreeDevice& device, const BenchObjects& objects, EmbreeMeshMaker make_mesh);
  ~EmbreeScene() override;

  /// Builds the tree: what is timed as the build.
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
