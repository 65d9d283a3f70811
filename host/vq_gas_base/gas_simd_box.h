// host/vq_gas_base/gas_simd_box.h
//
// A box in two vectors, for loops over many boxes: lanes x, y, z, and one that is unused.
#pragma once
#include <limits>

#include "vq_gmath/gmath_bbox.h"
#include "vq_simd/simd_float.h"

/// A box in two vectors. As with GMathBbox3, add() ignores a NaN bound.
struct GasSimdBox {
  SimdF low{std::numeric_limits<float>::max()};
  SimdF high{std::numeric_limits<float>::lowest()};

  static GasSimdBox load(const GMathBbox3<float>& box) {
    // The second load starts at min z and ends with the box: memory behind the last box may not be readable.
    const float* values = reinterpret_cast<const float*>(&box);
    return {SimdF::load_unaligned(values), rotate_lanes(SimdF::load_unaligned(values + 2))};
  }
  GMathBbox3<float> get_bbox() const {
    float from[4], to[4];
    low.store_unaligned(from);
    high.store_unaligned(to);
    return {{from[0], from[1], from[2]}, {to[0], to[1], to[2]}};
  }
  void add(const GasSimdBox& box) {
    low = min(box.low, low);
    high = max(box.high, high);
  }
  void add(const SimdF& point) {
    low = min(point, low);
    high = max(point, high);
  }
  /// Twice the center: the search needs only order and relative distances.
  SimdF get_center_sum() const { return low + high; }
};
