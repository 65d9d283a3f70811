// tests/support/test_scale.h
//
// How large the large inputs of the tests are. Sanitized runs are several times slower, so they set VQ_TEST_SCALE below
// 1 in the environment; a test that takes its counts through scaled() then does the same work on fewer items.
#pragma once
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "vq_core/core_types.h"

/// The factor in the environment variable VQ_TEST_SCALE; 1 when it is unset or no number above 0. Constant in a run.
inline double get_test_scale() {
  static const double scale = [] {
    const char* text = std::getenv("VQ_TEST_SCALE");
    const double value = text ? std::strtod(text, nullptr) : 1.0;
    return std::isfinite(value) && value > 0 ? value : 1.0;
  }();
  return scale;
}

/// `full` items at scale 1 and in proportion otherwise, but never fewer than `least`, below which the test would not
/// reach what it is about. At most 2^31 items.
inline uint scaled(uint full, uint least) {
  const double count = std::min(std::round(full * get_test_scale()), 2147483648.0);
  return std::max(static_cast<uint>(count), least);
}
