// tests/support/random_values.h
//
// Seeded random numbers and vectors.
#pragma once
#include <random>

#include "vq_gmath/gmath_vec.h"

class RandomValues {
 public:
  explicit RandomValues(uint seed) : engine_(seed) {}

  double get(double low = -1.0, double high = 1.0) {
    return std::uniform_real_distribution<double>(low, high)(engine_);
  }
  /// Below `bound`.
  uint get_index(uint bound) { return std::uniform_int_distribution<uint>(0, bound - 1)(engine_); }
  /// Each component in [-size, size).
  template <class T = double>
  GMathVec3<T> get_vec(double size = 1.0) {
    const double x = get(-size, size), y = get(-size, size), z = get(-size, size);
    return {static_cast<T>(x), static_cast<T>(y), static_cast<T>(z)};
  }
  std::mt19937& get_engine() { return engine_; }

 private:
  std::mt19937 engine_;
};
