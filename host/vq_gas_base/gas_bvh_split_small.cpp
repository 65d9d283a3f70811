#include "vq_gas_base/gas_bvh_split_small.h"

namespace {

bool contains(const GasBvhSplitSet& whole, const GasBvhSplitSet& part) {
  return part.first >= whole.first && part.first + part.count <= whole.first + whole.count;
}

}  // namespace

bool GasBvhSplitSmall::is_loaded(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set) const {
  if (ctx_.item_boxes != ctx.item_boxes || ctx_.item_spaces != ctx.item_spaces || !contains(loaded_, set)) return false;
  // The fallback changes the order of the items, and not that of the slots.
  for (uint k = 0; k < set.count; ++k)
    if (items_[slots_[set.first - loaded_.first + k]] != ctx.order[set.first + k]) return false;
  return true;
}

void GasBvhSplitSmall::load(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set) {
  if (is_loaded(ctx, set)) return;
  ctx_ = ctx;
  ctx_.order = slots_;
  ctx_.item_weights = ctx.item_weights != nullptr ? weights_ : nullptr;
  loaded_ = set;
  measured_ = {};
  for (uint slot = 0; slot < set.count; ++slot) {
    const uint item = ctx.order[set.first + slot];
    slots_[slot] = slot;
    items_[slot] = item;
    if (ctx.item_weights != nullptr) weights_[slot] = ctx.item_weights[item];
    boxes_[slot] = GasSimdBox::load(ctx.item_boxes[item]);
    capsules_[slot] = GasBvhSplitCapsule(ctx.item_boxes[item], ctx.item_spaces[item]);
  }
}

void GasBvhSplitSmall::measure(const GasBvhSplitSet& set, const GMathLinearSpace3<float>& space) {
  if (contains(measured_, set) && space_ == space) return;
  measured_ = set;
  space_ = space;
  const GasBvhSplitCapsule::Space columns(space);
  const uint* slots = slots_ + (set.first - loaded_.first);
  for (uint k = 0; k < set.count; ++k) space_boxes_[slots[k]] = capsules_[slots[k]].get_box(columns);
}

GasSimdBox GasBvhSplitSmall::unite(const GasBvhSplitSet& set) const {
  const GasBvhSplitSlotBoxes boxes = get_world_boxes(set);
  GasSimdBox box;
  for (uint k = 0; k < set.count; ++k) box.add(boxes.load(k));
  return box;
}

void GasBvhSplitSmall::store_order(const GasBvhSplitSet& set, uint* order) const {
  const uint* slots = slots_ + (set.first - loaded_.first);
  for (uint k = 0; k < set.count; ++k) order[set.first + k] = items_[slots[k]];
}
