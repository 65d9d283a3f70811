// host/vq_gas_base/gas_bvh_split_bins.cpp
#include "vq_gas_base/gas_bvh_split_bins.h"

#include <algorithm>
#include <cmath>

GasBvhSplitGrid::GasBvhSplitGrid(const GasBvhSplitBox& center_sums, uint bin_count)
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

void GasBvhSplitBins::add_items(const GasBvhSplitCtx& ctx, const GasBvhSplitGrid& grid, const uint* order, uint count,
                                GasBvhSplitItemBins* item_bins) {
  // The boxes of a set lie scattered: asking this far ahead hides most of the way to memory.
  constexpr uint ahead = 12;
  // Block by block, first where the items fall and then what that adds: were the bins' addresses still being worked out
  // when they are written, every next bin read would have to wait for them.
  constexpr uint block_items = 64;
  for (uint first = 0; first < count; first += block_items) {
    const uint end = std::min(count, first + block_items);
    for (uint k = first; k < end; ++k) {
      if (k + ahead < count) simd_prefetch(reinterpret_cast<std::uintptr_t>(&ctx.item_boxes[order[k + ahead]]));
      item_bins[k] = grid.get_bins(GasBvhSplitBox::load(ctx.item_boxes[order[k]]));
    }
    for (uint k = first; k < end; ++k) {
      const GasBvhSplitBox box = GasBvhSplitBox::load(ctx.item_boxes[order[k]]);
      for (uint axis = 0; axis < 3; ++axis) {
        const uint bin = item_bins[k].bin[axis];
        boxes[axis][bin].add(box);
        ++counts[axis][bin];
      }
    }
  }
  if (ctx.item_weights == nullptr) return;
  for (uint k = 0; k < count; ++k) {
    const double weight = gas_bvh_split_weight(ctx, order[k]);
    for (uint axis = 0; axis < 3; ++axis) weights[axis][item_bins[k].bin[axis]] += weight;
  }
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
