// host/vq_gas_base/gas_bvh_split_bins.h
//
// The bins of one set, or of one chunk of it: for each axis a row of equally wide slots between the smallest and the
// largest centre, each with the box, the number and the weight of the items whose centres fall in it.
#pragma once
#include "vq_gas_base/gas_bvh_split_cost.h"

/// Where centres fall. Of an axis along which all centres are equal, or not finite, every item falls in bin 0.
struct GasBvhSplitGrid {
  SimdF origin{0.0f}, scale{0.0f}, last{0.0f};
  uint bin_count = 0;
  bool is_flat = true;  ///< on all three axes: there is nothing to cut

  GasBvhSplitGrid(const GasBvhSplitBox& center_sums, uint bin_count);
  /// The bin on each axis. In range for any box, NaN and infinite ones included.
  GasBvhSplitItemBins get_bins(const GasBvhSplitBox& box) const {
    const SimdF zero(0.0f);
    GasBvhSplitItemBins bins;
    min(max((box.get_center_sum() - origin) * scale, zero), last).store_bytes(bins.bin);
    return bins;
  }
};

struct GasBvhSplitBins {
  static constexpr uint most_bins = 32;
  GasBvhSplitBox boxes[3][most_bins];
  double weights[3][most_bins] = {};  ///< all 0 when every item weighs the same
  uint counts[3][most_bins] = {};

  /// `order` names `count` items. Leaves in `item_bins` where each of them fell.
  void add_items(const GasBvhSplitCtx& ctx, const GasBvhSplitGrid& grid, const uint* order, uint count,
                 GasBvhSplitItemBins* item_bins);
  void add(const GasBvhSplitBins& bins, uint bin_count);
  /// Items in the bins below `plane`.
  uint count_below(uint axis, uint plane) const {
    uint count = 0;
    for (uint bin = 0; bin < plane; ++bin) count += counts[axis][bin];
    return count;
  }
};
