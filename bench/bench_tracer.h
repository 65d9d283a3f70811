// bench/bench_tracer.h
//
// A library that traces rays, the interface of the comparison.
#pragma once
#include <string>

#include "bench/bench_rays.h"

class BenchTracer {
 public:
  virtual ~BenchTracer() = default;
  /// Traces rays first .. end - 1 of the set, from float array to `hits`, as worker `thread`. Workers run in parallel.
  virtual void trace(uint thread, const BenchRaySet& set, std::size_t first, std::size_t end, BenchHit* hits) = 0;
  /// Bytes of the acceleration structure alone; of its records of primitives; of all that the library holds for the
  /// subject.
  virtual u64 get_tree_bytes() const = 0;
  virtual u64 get_record_bytes() const { return 0; }
  virtual u64 get_total_bytes() const = 0;

 protected:
  BenchTracer() = default;
  BenchTracer(const BenchTracer&) = delete;
  BenchTracer& operator=(const BenchTracer&) = delete;
};
