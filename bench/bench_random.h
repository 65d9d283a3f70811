// bench/bench_random.h
//
// Random numbers that are the same on every machine: SplitMix64 (Steele, Lea, Flood 2014).
#pragma once
#include "vq_core/core_types.h"

class BenchRandom {
 public:
  explicit BenchRandom(u64 seed) : state_(seed) {}

  u64 get_next() {
    u64 z = state_ += 0x9E3779B97F4A7C15u;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
  }
  /// In [0, 1).
  double get_unit() { return static_cast<double>(get_next() >> 11) * 0x1p-53; }

 private:
  u64 state_;
};
