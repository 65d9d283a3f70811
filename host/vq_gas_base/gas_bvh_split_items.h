// host/vq_gas_base/gas_bvh_split_items.h
//
// Access of a split search to the boxes of a set's items, by position in the set: the item boxes of the build, read
// through the order array, or the copies of a small set.
#pragma once
#include "vq_gas_base/gas_bvh_split_cost.h"

/// The boxes along the world's axes.
struct GasBvhSplitWorldBoxes {
  const GMathBbox3<float>* item_boxes;  ///< indexed by item
  const uint* order;                    ///< of the set

  GasSimdBox load(uint position) const { return GasSimdBox::load(item_boxes[order[position]]); }
  /// The boxes are scattered: prefetching hides most of the memory latency.
  [[gnu::always_inline]] void prefetch(uint position) const {
    simd_prefetch(reinterpret_cast<std::uintptr_t>(&item_boxes[order[position]]));
  }
};

/// Boxes of a small set, copied next to each other.
struct GasBvhSplitSlotBoxes {
  const GasSimdBox* boxes;  ///< [slot]
  const uint* slots;        ///< of the set

  GasSimdBox load(uint position) const { return boxes[slots[position]]; }
  void prefetch(uint /*position*/) const {}
};
