// host/vq_gas_base/gas_bvh_split_bins.h
//
// The bins of one set, or of one chunk of it: for each axis equally wide intervals between the smallest and the largest
// center, each with the box, the number and the weight of the items whose centers are in it.
#pragma once
#include <algorithm>

#include "vq_gas_base/gas_bvh_split_items.h"

/// Maps centers to bins. On an axis on which all centers are equal, or one is not finite, every item is in bin 0.
struct GasBvhSplitGrid {
  SimdF origin{0.0f}, scale{0.0f}, last{0.0f};
  uint bin_count = 0;
  bool is_flat = true;  ///< on all three axes: no split by bins is possible

  GasBvhSplitGrid() = default;
  GasBvhSplitGrid(const GasSimdBox& center_sums, uint bin_count);
  /// The bin on each axis. In range for any box, NaN and infinite ones included.
  GasBvhSplitItemBins get_bins(const GasSimdBox& box) const {
    const SimdF zero(0.0f);
    GasBvhSplitItemBins bins;
    min(max((box.get_center_sum() - origin) * scale, zero), last).store_bytes(bins.bin);
    return bins;
  }
};

struct GasBvhSplitBins {
  static constexpr uint most_bins = 32;
  GasSimdBox boxes[3][most_bins];
  double weights[3][most_bins] = {};  ///< all 0 when every item weighs the same
  uint counts[3][most_bins] = {};

  /// Adds the set's items at positions from `first` on and stores the bins of each in `item_bins`.
  /// @param order      the set's items
  /// @param item_bins  [position]
  template <class Boxes>
  void add_items(const GasBvhSplitCtx& ctx, const GasBvhSplitGrid& grid, const Boxes& item_boxes, const uint* order,
                 uint first, uint count, GasBvhSplitItemBins* item_bins);
  void add(const GasBvhSplitBins& bins, uint bin_count);
  /// Items in the bins below `plane`.
  uint count_below(uint axis, uint plane) const {
    uint count = 0;
    for (uint bin = 0; bin < plane; ++bin) count += counts[axis][bin];
    return count;
  }
};

template <class Boxes>
void GasBvhSplitBins::add_items(const GasBvhSplitCtx& ctx, const GasBvhSplitGrid& grid, const Boxes& item_boxes,
                                const uint* order, uint first, uint count, GasBvhSplitItemBins* item_bins) {
  constexpr uint ahead = 12;
  // Per block, first compute the bins of all items, then add the items. In one loop each read of a bin would wait for
  // the address of the bin written before it.
  constexpr uint block_items = 64;
  const uint last = first + count;
  for (uint block = first; block < last; block += block_items) {
    const uint end = std::min(last, block + block_items);
    for (uint k = block; k < end; ++k) {
      if (k + ahead < last) item_boxes.prefetch(k + ahead);
      item_bins[k] = grid.get_bins(item_boxes.load(k));
    }
    for (uint k = block; k < end; ++k) {
      const GasSimdBox box = item_boxes.load(k);
      for (uint axis = 0; axis < 3; ++axis) {
        const uint bin = item_bins[k].bin[axis];
        boxes[axis][bin].add(box);
        ++counts[axis][bin];
      }
    }
  }
  if (ctx.item_weights == nullptr) return;
  for (uint k = first; k < last; ++k) {
    const double weight = gas_bvh_split_weight(ctx, order[k]);
    for (uint axis = 0; axis < 3; ++axis) weights[axis][item_bins[k].bin[axis]] += weight;
  }
}
