// host/vq_gas_base/gas_bvh_split_items.h
//
// Where a search for a cut reads the boxes of a set's items, by their positions in the set: from the item boxes that
// the tree is built over, through the order array, or from boxes that lie there in the order of the set.
#pragma once
#include "vq_gas_base/gas_bvh_split_cost.h"

/// The boxes along the world's axes.
struct GasBvhSplitWorldBoxes {
  const GMathBbox3<float>* item_boxes;  ///< indexed by item
  const uint* order;                    ///< of the set

  GasBvhSplitBox load(uint position) const { return GasBvhSplitBox::load(item_boxes[order[position]]); }
  /// They lie scattered: asking ahead hides most of the way to memory.
  void prefetch(uint position) const { simd_prefetch(reinterpret_cast<std::uintptr_t>(&item_boxes[order[position]])); }
};

/// Boxes along the axes of some space, measured for this set.
struct GasBvhSplitSpaceBoxes {
  const GMathBbox3<float>* boxes;  ///< indexed by position

  GasBvhSplitBox load(uint position) const { return GasBvhSplitBox::load(boxes[position]); }
  void prefetch(uint /*position*/) const {}
};
