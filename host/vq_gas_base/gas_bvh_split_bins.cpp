// host/vq_gas_base/gas_bvh_split_bins.cpp
#include "vq_gas_base/gas_bvh_split_bins.h"

#include <cmath>

GasBvhSplitGrid::GasBvhSplitGrid(const GasSimdBox& center_sums, uint bin_count)
    : origin(center_sums.low), bin_count(bin_count) {
  float scales[4];
  (center_sums.high - center_sums.low).store_unaligned(scales);
  for (float& value : scales) {
    const bool usable = value > 0.0f && std::isfinite(value);
    value = usable ? static_cast<float>(bin_count) / value : 0.0f;
  }
  is_flat = scales[0] == 0.0f && scales[1] == 0.0f && scales[2] == 0.0f;
  scale = SimdF::load_unaligned(scales);
  last = SimdF(static_cast<float>(bin_count - 1));
}

void GasBvhSplitBins::add(const GasBvhSplitBins& bins, uint bin_count) {
  for (uint bin = 0; bin < bin_count; ++bin) {
    for (uint axis = 0; axis < 3; ++axis) {
      boxes[axis][bin].add(bins.boxes[axis][bin]);
      weights[axis][bin] += bins.weights[axis][bin];
      counts[axis][bin] += bins.counts[axis][bin];
    }
  }
}
