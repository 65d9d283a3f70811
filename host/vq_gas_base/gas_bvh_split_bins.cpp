// host/vq_gas_base/gas_bvh_split_bins.cpp
#include "vq_gas_base/gas_bvh_split_bins.h"

#include <cmath>

GasBvhSplitGrid::GasBvhSplitGrid(const GasBvhSplitBox& center_sums, uint bin_count) : bin_count(bin_count) {
  center_sums.low.store_unaligned(axis_origin);
  (center_sums.high - center_sums.low).store_unaligned(axis_scale);
  for (float& extent : axis_scale) {
    const bool usable = extent > 0.0f && std::isfinite(extent);
    extent = usable ? static_cast<float>(bin_count) / extent : 0.0f;
  }
  is_flat = axis_scale[0] == 0.0f && axis_scale[1] == 0.0f && axis_scale[2] == 0.0f;
  origin = SimdF::load_unaligned(axis_origin);
  scale = SimdF::load_unaligned(axis_scale);
  last = SimdF(static_cast<float>(bin_count - 1));
}

void GasBvhSplitBins::clear(uint bin_count) {
  for (uint bin = 0; bin < bin_count; ++bin) {
    for (uint axis = 0; axis < 3; ++axis) {
      boxes[bin][axis] = GasBvhSplitBox();
      weights[bin][axis] = 0.0;
      counts[bin][axis] = 0;
    }
  }
}

void GasBvhSplitBins::add_items(const GasBvhSplitCtx& ctx, const GasBvhSplitGrid& grid, const uint* order, uint count) {
  // The items of a set lie scattered: this many boxes ahead hides most of the way to memory.
  constexpr uint ahead = 12;
  for (uint k = 0; k < count; ++k) {
    if (k + ahead < count) simd_prefetch(reinterpret_cast<std::uintptr_t>(&ctx.item_boxes[order[k + ahead]]));
    const uint item = order[k];
    const GasBvhSplitBox box = GasBvhSplitBox::load(ctx.item_boxes[item]);
    int bins[4];
    grid.get_bins(box).store_truncated(bins);
    for (uint axis = 0; axis < 3; ++axis) {
      boxes[bins[axis]][axis].add(box);
      ++counts[bins[axis]][axis];
    }
    if (ctx.item_weights != nullptr) {
      const double weight = gas_bvh_split_weight(ctx, item);
      for (uint axis = 0; axis < 3; ++axis) weights[bins[axis]][axis] += weight;
    }
  }
}

void GasBvhSplitBins::add(const GasBvhSplitBins& bins, uint bin_count) {
  for (uint bin = 0; bin < bin_count; ++bin) {
    for (uint axis = 0; axis < 3; ++axis) {
      boxes[bin][axis].add(bins.boxes[bin][axis]);
      weights[bin][axis] += bins.weights[bin][axis];
      counts[bin][axis] += bins.counts[bin][axis];
    }
  }
}
