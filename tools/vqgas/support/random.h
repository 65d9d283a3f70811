// tools/vqgas/support/random.h
//
// Random numbers as functions of their arguments (pixel, sample, purpose): the same picture for any number of threads
// and any order of the tiles.
#pragma once
#include <cmath>
#include <numbers>

#include "vq_gmath/gmath_vec.h"

/// Mixes all bits of a word (Wellons 2018, "Prospecting for Hash Functions").
constexpr unsigned int hash_bits(unsigned int x) {
  x ^= x >> 16;
  x *= 0x7feb352du;
  x ^= x >> 15;
  x *= 0x846ca68bu;
  x ^= x >> 16;
  return x;
}

/// A random number in [0, 1) for each (seed, dimension).
constexpr double random_unit(unsigned int seed, unsigned int dimension) {
  return hash_bits(seed ^ hash_bits(dimension * 0x9e3779b9u + 0x68e31da4u)) * 0x1p-32;
}

/// Sample `index` of the two-dimensional R2 sequence (Roberts 2018), shifted by (`shift_x`, `shift_y`): even cover for
/// any number of samples.
inline void get_even_sample(unsigned int index, double shift_x, double shift_y, double& x, double& y) {
  x = shift_x + index * 0.7548776662466927;
  y = shift_y + index * 0.5698402909980532;
  x -= std::floor(x);
  y -= std::floor(y);
}

/// A direction around `normal` with density proportional to its cosine.
inline GMathVec3<double> sample_cosine(const GMathVec3<double>& normal, double x, double y) {
  const double angle = 2.0 * std::numbers::pi * x;
  const double height = 1.0 - 2.0 * y;
  const double radius = std::sqrt(std::fmax(0.0, 1.0 - height * height));
  // A uniform point of the unit sphere around the tip of the normal; the opposite point makes the sum zero.
  const GMathVec3<double> sum = normal + GMathVec3<double>(radius * std::cos(angle), height, radius * std::sin(angle));
  return sum.get_length() > 1e-9 ? sum.get_normalized() : normal;
}
