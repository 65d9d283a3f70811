// bench/bench_tracer.h
//
// A library that answers rays, as the comparison sees it.
#pragma once
#include <string>

#include "bench/bench_rays.h"

class BenchTracer {
 public:
  virtual ~BenchTracer() = default;
  /// Answers rays first .. end - 1 of the set, from float array to `hits`, as worker `thread`. Workers run at once.
  virtual void trace(uint thread, const BenchRaySet& set, std::size_t first, std::size_t end, BenchHit* hits) = 0;
  /// Bytes of the acceleration structure alone, and of everything that the library holds for the mesh.
  virtual u64 get_tree_bytes() const = 0;
  virtual u64 get_total_bytes() const = 0;

 protected:
  BenchTracer() = default;
  BenchTracer(const BenchTracer&) = delete;
  BenchTracer& operator=(const BenchTracer&) = delete;
};
