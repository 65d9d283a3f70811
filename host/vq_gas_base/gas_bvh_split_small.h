// host/vq_gas_base/gas_bvh_split_small.h
//
// The items of one small set, copied next to each other for the oriented split. Sets are split depth first, and one
// copy serves all splits below its set:
//
//   order       ... | first .................... first + count | ...      items, the build's order array
//   slots_          | permuted by the splits                   |          order[first + k] is items_[slots_[k]]
//   items_, boxes_, capsules_, space_boxes_                               [slot], never moved
//
// The split searches work on slots as if they were items, through a context of their own.
#pragma once
#include "vq_gas_base/gas_bvh_split_capsule.h"
#include "vq_gas_base/gas_bvh_split_halves.h"
#include "vq_gas_base/gas_bvh_split_items.h"

class GasBvhSplitSmall {
 public:
  /// Larger sets are not oriented. On fur a limit of 512 takes 11 % more instructions to build, with 128 rays visit 1 %
  /// more nodes.
  static constexpr uint most_items = 256;

  /// Copies the items of `set`, unless it is part of the set copied last.
  void load(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set);
  /// Computes the capsules' boxes in `space`, unless the last call did.
  /// @param set  part of the loaded set, here and below
  void measure(const GasBvhSplitSet& set, const GMathLinearSpace3<float>& space);

  /// The input of a search, in which slots are items.
  GasBvhSplitCtx& get_ctx() { return ctx_; }
  GasBvhSplitSet get_part(const GasBvhSplitSet& set) const { return {set.first - loaded_.first, set.count}; }
  GasBvhSplitSlotBoxes get_world_boxes(const GasBvhSplitSet& set) const { return get_boxes(boxes_, set); }
  GasBvhSplitSlotBoxes get_space_boxes(const GasBvhSplitSet& set) const { return get_boxes(space_boxes_, set); }
  /// The union of the boxes along the world's axes.
  GasSimdBox unite(const GasBvhSplitSet& set) const;
  /// Writes the order of the slots to the build's order array.
  void store_order(const GasBvhSplitSet& set, uint* order) const;

 private:
  bool is_loaded(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set) const;
  GasBvhSplitSlotBoxes get_boxes(const GasSimdBox* boxes, const GasBvhSplitSet& set) const {
    return {boxes, slots_ + (set.first - loaded_.first)};
  }

  GasBvhSplitCtx ctx_;
  GasBvhSplitSet loaded_;
  GasBvhSplitSet measured_;  ///< its slots have boxes in `space_`
  GMathLinearSpace3<float> space_;
  uint slots_[most_items];
  uint items_[most_items];
  u32 weights_[most_items];  ///< only if the items have weights
  GasSimdBox boxes_[most_items], space_boxes_[most_items];
  GasBvhSplitCapsule capsules_[most_items];
};
