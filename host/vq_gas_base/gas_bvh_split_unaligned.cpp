// host/vq_gas_base/gas_bvh_split_unaligned.cpp
#include <algorithm>
#include <cmath>

#include "vq_gas_base/gas_bvh_split.h"
#include "vq_gas_base/gas_bvh_split_binned.h"
#include "vq_gas_base/gas_bvh_split_capsule.h"
#include "vq_gas_base/gas_bvh_split_frame.h"
#include "vq_gas_base/gas_bvh_split_halves.h"
#include "vq_gas_base/gas_bvh_split_sorted.h"

namespace {

/// Below this agreement, boxes in the items' mean space are no smaller than those along the world's axes. On all grooms
/// tested a lower limit gives no better trees; with 0.8, rays visit 2 % more nodes.
constexpr float least_agreement = 0.65f;
/// In larger sets the direction of the items does not affect the size of the box: rays through a million curves visit
/// as many nodes with this limit as without it.
constexpr uint most_oriented_items = 16384;

CoreBasicArray<uint> get_items(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set) {
  return CoreBasicArray<uint>::make_view(ctx.order + set.first, set.count);
}

GasBvhSplitCapsule get_capsule(const GasBvhSplitCtx& ctx, uint position) {
  const uint item = ctx.order[position];
  return GasBvhSplitCapsule(ctx.item_boxes[item], ctx.item_spaces[item]);
}

/// Expected cost of a set for a ray that has entered it, as a leaf or split.
class Costs {
 public:
  Costs(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, bool aligned, float padding)
      : unit_(gas_bvh_split_unit_cost(ctx)),
        whole_(gas_bvh_split_whole_cost(ctx, set)),
        area_(gas_bvh_split_padded_area(set.refitted ? set.space_box : set.box, padding)),
        // Up to three splits make one node: each is charged a third of the additional cost of an oriented node.
        oriented_node_(ctx.aligned_cost + (ctx.oriented_cost - ctx.aligned_cost) * (1.0f / 3.0f)),
        aligned_node_(aligned ? ctx.aligned_cost : oriented_node_) {}

  float get_whole() const { return whole_; }
  /// @param cut_cost  sum of area x weight over both sides; infinite: no split
  float get_aligned(float cut_cost) const { return aligned_node_ + get_items(cut_cost); }
  float get_oriented(float cut_cost) const { return oriented_node_ + get_items(cut_cost); }

 private:
  /// A side may be larger than the box by which the set is entered, but it is not visited more often than the set.
  float get_items(float cut_cost) const {
    const float items = cut_cost / area_ * unit_;
    return items < whole_ || items == std::numeric_limits<float>::infinity() ? items : whole_;
  }

  float unit_;   ///< cost of an item of weight 1
  float whole_;  ///< as a leaf
  float area_;   ///< of the box by which a ray enters
  float oriented_node_, aligned_node_;
};

/// Enlarges an extent below `least` to `least`, equally on both sides.
void widen(GMathBbox3<float>& box, uint axis, float least) {
  if (box.max[axis] - box.min[axis] >= least) return;
  const float center = box.min[axis] * 0.5f + box.max[axis] * 0.5f;
  box.min[axis] = std::min(box.min[axis], center - least * 0.5f);
  box.max[axis] = std::max(box.max[axis], center + least * 0.5f);
}

/// Clamps and enlarges the box so that its frame is finite and invertible in single precision.
void make_invertible(GMathBbox3<float>& box) {
  constexpr float most = 1e37f, least = 1e-18f;
  float largest = 0.0f, farthest = 0.0f;
  for (uint axis = 0; axis < 3; ++axis) {
    // Also for NaN bounds, and for the inverted box of a set without items.
    box.min[axis] = box.min[axis] >= -most ? std::min(box.min[axis], most) : -most;
    box.max[axis] = box.max[axis] <= most ? std::max(box.max[axis], -most) : most;
    if (box.max[axis] < box.min[axis]) box.min[axis] = box.max[axis] = 0.0f;
    largest = std::max(largest, box.max[axis] - box.min[axis]);
    farthest = std::max({farthest, -box.min[axis], box.max[axis]});
  }
  // Slightly more than required, because the bounds are rounded.
  for (uint axis = 0; axis < 3; ++axis) widen(box, axis, std::max({largest * 1.1e-6f, farthest * 0x1.2p-20f, least}));
}

}  // namespace

template <class MakeSearch>
bool GasBvhSplitUnaligned::split_by(const MakeSearch& make_search, GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set,
                                    GasBvhSplitSetGeom& left, GasBvhSplitSetGeom& right, bool& aligned,
                                    SysThreadManager* threads) {
  const float padding = gas_bvh_split_padding(set.box);
  const Costs costs(ctx, set, aligned, padding);
  const bool may_be_leaf = set.count <= ctx.max_leaf;
  auto search = make_search(GasBvhSplitWorldBoxes{ctx.item_boxes, ctx.order + set.first}, item_bins_);
  const GasBvhSplitChoice choice = search.find(padding);
  const float aligned_cut_cost = costs.get_aligned(choice.cost);

  if (fill_space_boxes(ctx, set)) {
    auto oriented_search = make_search(GasBvhSplitSpaceBoxes{space_boxes_.get_items()}, oriented_item_bins_);
    const GasBvhSplitChoice oriented_choice = oriented_search.find(padding);
    const float oriented_cut_cost = costs.get_oriented(oriented_choice.cost);
    if (oriented_choice.is_found() && oriented_cut_cost < aligned_cut_cost) {
      if (may_be_leaf && costs.get_whole() <= oriented_cut_cost) return false;
      const GasBvhSplitSides sides = oriented_search.cut(oriented_choice, moved_.get_items());
      gas_bvh_split_at(ctx, set, sides.left_count, left, right, threads);
      aligned = false;
      return true;
    }
  }
  if (!choice.is_found()) return gas_bvh_split_fallback(ctx, set, left, right, threads);
  if (may_be_leaf && costs.get_whole() <= aligned_cut_cost) return false;
  gas_bvh_split_fill_halves(set, search.cut(choice, moved_.get_items()), left, right);
  return true;
}

/// Two items: there is only one split. In an oriented node each item gets the box of its own space.
bool GasBvhSplitUnaligned::split_pair(GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                                      GasBvhSplitSetGeom& right, bool& aligned) {
  gas_bvh_split_at(ctx, set, 1, left, right, nullptr);
  const float padding = gas_bvh_split_padding(set.box);
  const Costs costs(ctx, set, aligned, padding);
  const float weights[2] = {gas_bvh_split_weight(ctx, ctx.order[set.first]),
                            gas_bvh_split_weight(ctx, ctx.order[set.first + 1])};
  float aligned_cut_cost = costs.get_aligned(gas_bvh_split_padded_area(left.box, padding) * weights[0] +
                                             gas_bvh_split_padded_area(right.box, padding) * weights[1]);
  if (may_orient(ctx)) {
    const float oriented_cut_cost = costs.get_oriented(get_capsule(ctx, set.first).get_half_area() * weights[0] +
                                                       get_capsule(ctx, set.first + 1).get_half_area() * weights[1]);
    if (oriented_cut_cost < aligned_cut_cost) {
      aligned_cut_cost = oriented_cut_cost;
      aligned = false;
    }
  }
  return ctx.max_leaf < 2 || !(costs.get_whole() <= aligned_cut_cost);
}

bool GasBvhSplitUnaligned::may_orient(const GasBvhSplitCtx& ctx) {
  return std::isfinite(ctx.oriented_cost) && ctx.item_spaces != nullptr && ctx.measure_set != nullptr;
}

bool GasBvhSplitUnaligned::fill_space_boxes(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set) {
  if (!may_orient(ctx) || set.count > most_oriented_items) return false;
  GMathLinearSpace3<float> space = set.space;
  if (!set.refitted) {
    const GasBvhSplitFrame frame = gas_bvh_split_find_frame(ctx, set);
    if (!(frame.agreement >= least_agreement)) return false;
    space = frame.space;
  }
  if (!space_boxes_.resize_for_overwrite(set.count)) return false;
  for (uint k = 0; k < set.count; ++k) space_boxes_[k] = get_capsule(ctx, set.first + k).get_bbox(space);
  return true;
}

bool GasBvhSplitUnaligned::split(GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                                 GasBvhSplitSetGeom& right, bool& aligned, SysThreadManager* threads) {
  if (set.count < 2) return false;
  if (set.count == 2) return split_pair(ctx, set, left, right, aligned);
  if (set.count <= GasBvhSplitSorted::most_items) {
    const auto make_sorted = [&](const auto& boxes, CoreVector<GasBvhSplitItemBins>& /*item_bins*/) {
      return GasBvhSplitSorted(ctx, set, boxes);
    };
    return split_by(make_sorted, ctx, set, left, right, aligned, nullptr);
  }
  for (CoreVector<GasBvhSplitItemBins>* item_bins : {&item_bins_, &oriented_item_bins_}) {
    if (!item_bins->resize_for_overwrite(set.count)) return gas_bvh_split_fallback(ctx, set, left, right, threads);
  }
  if (!moved_.resize_for_overwrite(set.count)) return gas_bvh_split_fallback(ctx, set, left, right, threads);
  const auto make_binned = [&](const auto& boxes, CoreVector<GasBvhSplitItemBins>& item_bins) {
    return GasBvhSplitBinned(ctx, set, boxes, item_bins.get_items(), threads);
  };
  return split_by(make_binned, ctx, set, left, right, aligned, threads);
}

void GasBvhSplitUnaligned::refit(GasBvhSplitCtx& ctx, GasBvhSplitSetGeom& set, SysThreadManager* threads) {
  if (set.refitted) return;
  set.refitted = true;
  set.space = GMathLinearSpace3<float>();
  set.space_box = set.box;
  if (ctx.item_spaces != nullptr && ctx.measure_set != nullptr) {
    set.space = gas_bvh_split_find_frame(ctx, set).space;
    set.space_box = ctx.measure_set(get_items(ctx, set), set.space, ctx.measure_owner, threads);
  }
  make_invertible(set.space_box);
}
