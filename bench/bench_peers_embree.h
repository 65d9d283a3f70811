// bench/bench_peers_embree.h
//
// The peer: Embree, with its own triangles or with one user primitive a triangle.
#pragma once
#include <embree3/rtcore.h>

#include <atomic>
#include <memory>

#include "bench/bench_tracer.h"

enum class EmbreeTriangles {
  builtin,  ///< single precision, Embree's own storage and test
  user      ///< boxes and tests through callbacks, in double precision, as this library reaches its geometry
};

struct EmbreeKind {
  std::string name;
  EmbreeTriangles triangles;
  std::string isa;  ///< as the device's configuration wants it; empty: the best that the machine has
};

/// Every kind that can be measured.
const std::vector<EmbreeKind>& get_embree_kinds();

/// A device that runs builds on so many threads and counts what it holds.
class EmbreeDevice {
 public:
  EmbreeDevice(const EmbreeKind& kind, uint thread_count);
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
  /// Describes the scene; `mesh` and `device` must outlive it. The memory of the positions must go on for four bytes
  /// behind the last: the library reads vertices sixteen bytes at a time.
  EmbreeScene(EmbreeDevice& device, const EmbreeKind& kind, const BenchMesh& mesh);
  ~EmbreeScene() override;

  /// Builds the tree: what is timed as the build.
  void commit();
  void trace(uint thread, const BenchRaySet& set, std::size_t first, std::size_t end, BenchHit* hits) override;
  u64 get_tree_bytes() const override { return held_bytes_; }
  u64 get_total_bytes() const override { return held_bytes_; }

 private:
  EmbreeDevice& device_;
  RTCScene scene_ = nullptr;
  u64 bytes_before_ = 0;
  u64 held_bytes_ = 0;
};
