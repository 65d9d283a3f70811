// host/vq_gmath/gmath_scalar.h
//
// Tests of single numbers.
#pragma once
#include <bit>

#include "vq_core/core_types.h"

/// True when `value` is neither infinite nor NaN. Reads the exponent bits, so that no compiler flag about finite
/// arithmetic can fold it to true.
inline bool gmath_isfinited(const double& value) {
  constexpr u64 exponent = 0x7FF0000000000000ull;
  return (std::bit_cast<u64>(value) & exponent) != exponent;
}
