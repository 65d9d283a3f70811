// host/vq_gas_base/gas_bvh_split_bins.h
//
// The bins of one set, or of one chunk of it: for each axis a row of equally wide slots between the smallest and the
// largest centre, each with the box, the number and the weight of the items whose centres fall in it.
#pragma once
#include "vq_gas_base/gas_bvh_split_cost.h"

/// Where centres fall. Of an axis along which all centres are equal, or not finite, every item falls in bin 0.
struct GasBvhSplitGrid {
  SimdF origin{0.0f}, scale{0.0f}, last{0.0f};
  float axis_origin[4] = {}, axis_scale[4] = {};
  uint bin_count = 0;
  bool is_flat = true;  ///< on all three axes: there is nothing to cut

  GasBvhSplitGrid(const GasBvhSplitBox& center_sums, uint bin_count);
  /// Finite and in range for any box, NaN and infinite ones included.
  SimdF get_bins(const GasBvhSplitBox& box) const {
    const SimdF zero(0.0f);
    return min(max((box.get_center_sum() - origin) * scale, zero), last);
  }
  /// Whether the bin of `box` is `plane` or above, for planes below the bin count. The same operations on the same
  /// numbers as in get_bins(), so that no item can be counted on one side and moved to the other.
  bool is_right(const GMathBbox3<float>& box, uint axis, float plane) const {
    const float* values = reinterpret_cast<const float*>(&box) + axis;
    return (values[0] + values[3] - axis_origin[axis]) * axis_scale[axis] >= plane;
  }
};

struct GasBvhSplitBins {
  static constexpr uint most_bins = 32;
  GasBvhSplitBox boxes[most_bins][3];
  double weights[most_bins][3];  ///< all 0 when every item weighs the same
  uint counts[most_bins][3];

  void clear(uint bin_count);
  /// `order` names `count` items.
  void add_items(const GasBvhSplitCtx& ctx, const GasBvhSplitGrid& grid, const uint* order, uint count);
  void add(const GasBvhSplitBins& bins, uint bin_count);

  /// What the search asks for.
  const GasBvhSplitBox& get_box(uint axis, uint bin) const { return boxes[bin][axis]; }
};
