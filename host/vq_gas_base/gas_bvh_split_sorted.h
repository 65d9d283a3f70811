// host/vq_gas_base/gas_bvh_split_sorted.h
//
// The exact split search for small sets: one slot per item, sorted by its center. In four-wide trees the cost of a side
// is the number of nodes below it, so that few lanes of nodes stay empty.
#pragma once
#include "vq_gas_base/gas_bvh_split_halves.h"
#include "vq_gas_base/gas_bvh_split_items.h"

class GasBvhSplitSorted {
 public:
  /// Sets of at most this many items are searched between single items instead of bins.
  static constexpr uint most_items = 16;

  /// @param free_lanes  GasBvhSplitCtx::free_lanes of the split; 0: nodes are not counted
  template <class Boxes>
  GasBvhSplitSorted(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set, const Boxes& item_boxes, uint free_lanes);

  GasBvhSplitChoice find(float padding) const {
    return is_flat_ ? GasBvhSplitChoice() : gas_bvh_split_search<most_items>(*this, count_, padding);
  }
  /// The sum of area x weight over both sides of a cut.
  float get_cut_cost(const GasBvhSplitChoice& choice, float padding) const;
  /// Puts the set's items in their new order.
  GasBvhSplitSides cut(const GasBvhSplitChoice& choice, uint* moved = nullptr) const;

  // The interface of slots for gas_bvh_split_search().
  const GasSimdBox& get_box(uint axis, uint rank) const { return boxes_[order_[rank][axis]]; }
  SimdF get_weights(uint rank) const {
    return {weights_[order_[rank][0]], weights_[order_[rank][1]], weights_[order_[rank][2]], 0.0f};
  }
  SimdF get_cost(const SimdF& weights, uint ranks) const {
    return lanes_ == 0 ? weights : SimdF(get_node_cost(ranks, lanes_));
  }

 private:
  /// The nodes below a side with so many lanes: each fills one lane and has four. Items count little: they are reached
  /// however the set is split.
  static float get_node_cost(uint item_count, uint lanes) {
    const uint nodes = item_count > lanes ? (item_count - lanes + 2) / 3 : 0;
    return static_cast<float>(nodes) + static_cast<float>(item_count) * 0x1p-5f;
  }

  GasSimdBox boxes_[most_items];
  float weights_[most_items];
  uint items_[most_items];
  u8 order_[most_items][4];  ///< [rank][axis]: position in `items_`
  uint* range_;              ///< the set's range of the order array
  uint count_;
  uint lanes_;  ///< that a side gets in the node; 0: nodes are not counted
  bool is_flat_;
};

/// The rank of an item is the number of items before it, counted over all pairs: quadratic, but without a branch and on
/// three axes at once. Equal centers keep the order of the set.
template <class Boxes>
GasBvhSplitSorted::GasBvhSplitSorted(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set, const Boxes& item_boxes,
                                     uint free_lanes)
    : range_(ctx.order + set.first), count_(set.count), lanes_(ctx.item_weights == nullptr ? free_lanes / 2 : 0) {
  const SimdF zero(0.0f), one(1.0f), lowest(-std::numeric_limits<float>::infinity());
  SimdF centers[most_items], ranks[most_items];
  GasSimdBox center_sums;
  for (uint k = 0; k < count_; ++k) {
    items_[k] = range_[k];
    boxes_[k] = item_boxes.load(k);
    weights_[k] = gas_bvh_split_weight(ctx, items_[k]);
    // A NaN compares false with everything, so that two items would get the same rank.
    centers[k] = max(boxes_[k].get_center_sum(), lowest);
    center_sums.add(centers[k]);
    SimdF rank(static_cast<float>(k));
    for (uint j = 0; j < k; ++j) {
      const SimdF swapped = select(centers[j] > centers[k], one, zero);
      ranks[j] = ranks[j] + swapped;
      rank = rank - swapped;
    }
    ranks[k] = rank;
  }
  for (uint k = 0; k < count_; ++k) {
    u8 rank[4];
    ranks[k].store_bytes(rank);
    for (uint axis = 0; axis < 3; ++axis) order_[rank[axis]][axis] = static_cast<u8>(k);
  }
  is_flat_ = ((center_sums.high > center_sums.low).get_bits() & 7u) == 0;
}

inline float GasBvhSplitSorted::get_cut_cost(const GasBvhSplitChoice& choice, float padding) const {
  if (lanes_ == 0 || !choice.is_found()) return choice.cost;
  GasSimdBox left, right;
  for (uint rank = 0; rank < count_; ++rank) (rank < choice.plane ? left : right).add(get_box(choice.axis, rank));
  return gas_bvh_split_padded_area(left.get_bbox(), padding) * static_cast<float>(choice.plane) +
         gas_bvh_split_padded_area(right.get_bbox(), padding) * static_cast<float>(count_ - choice.plane);
}

inline GasBvhSplitSides GasBvhSplitSorted::cut(const GasBvhSplitChoice& choice, uint* /*moved*/) const {
  GasBvhSplitSides sides;
  sides.left_count = choice.plane;
  for (uint rank = 0; rank < count_; ++rank) {
    const uint k = order_[rank][choice.axis];
    range_[rank] = items_[k];
    (rank < choice.plane ? sides.left : sides.right).add(boxes_[k]);
  }
  return sides;
}
