#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "vq_gas_base/gas_bvh_split.h"
#include "vq_gas_base/gas_bvh_split_binned.h"
#include "vq_gas_base/gas_bvh_split_frame.h"
#include "vq_gas_base/gas_bvh_split_small.h"
#include "vq_gas_base/gas_bvh_split_sorted.h"

namespace {

/// Below this agreement, boxes in the items' mean space are no smaller than those along the world's axes. On all grooms
/// tested a lower limit gives no better trees; with 0.8, rays visit 2 % more nodes.
constexpr float least_agreement = 0.65f;
constexpr uint node_lanes = 4;

/// Expected cost of a set for a ray that has entered it, as a leaf or split.
class Costs {
 public:
  Costs(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, bool aligned)
      : padding_(gas_bvh_split_padding(get_box(set))),
        unit_(gas_bvh_split_unit_cost(ctx)),
        whole_(gas_bvh_split_whole_cost(ctx, set)),
        area_(gas_bvh_split_padded_area(get_box(set), padding_)),
        // Up to three splits make one node: each is charged a third of the additional cost of an oriented node.
        oriented_node_(ctx.aligned_cost + (ctx.oriented_cost - ctx.aligned_cost) * (1.0f / 3.0f)),
        aligned_node_(aligned ? ctx.aligned_cost : oriented_node_),
        may_be_leaf_(set.count <= ctx.max_leaf) {}

  float get_padding() const { return padding_; }
  /// @param cut_cost  sum of area x weight over both sides; infinite: no split
  float get_aligned(float cut_cost) const { return aligned_node_ + get_items(cut_cost); }
  float get_oriented(float cut_cost) const { return oriented_node_ + get_items(cut_cost); }
  bool is_cheaper_whole(float split_cost) const { return may_be_leaf_ && whole_ <= split_cost; }

 private:
  /// The box by which a ray enters.
  static const GMathBbox3<float>& get_box(const GasBvhSplitSetGeom& set) {
    return set.has_space ? set.space_box : set.box;
  }
  /// A side may be larger than the box by which the set is entered, but it is not visited more often than the set.
  float get_items(float cut_cost) const {
    const float items = cut_cost / area_ * unit_;
    return items < whole_ || items == std::numeric_limits<float>::infinity() ? items : whole_;
  }

  float padding_;
  float unit_;   ///< cost of an item of weight 1
  float whole_;  ///< as a leaf
  float area_;
  float oriented_node_, aligned_node_;
  bool may_be_leaf_;
};

/// GasBvhSplitBinned for a small set, with the interface of GasBvhSplitSorted.
class SmallBinned {
 public:
  SmallBinned(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set, const GasBvhSplitSlotBoxes& boxes,
              uint /*free_lanes*/)
      : search_(ctx, set, boxes, item_bins_, nullptr) {}
  GasBvhSplitChoice find(float padding) { return search_.find(padding); }
  float get_cut_cost(const GasBvhSplitChoice& choice, float padding) const {
    return search_.get_cut_cost(choice, padding);
  }
  GasBvhSplitSides cut(const GasBvhSplitChoice& choice) { return search_.cut(choice, moved_); }

 private:
  GasBvhSplitItemBins item_bins_[GasBvhSplitSmall::most_items];
  uint moved_[GasBvhSplitSmall::most_items];
  GasBvhSplitBinned<GasBvhSplitSlotBoxes> search_;
};

bool may_orient(const GasBvhSplitCtx& ctx) {
  return std::isfinite(ctx.oriented_cost) && ctx.item_spaces != nullptr && ctx.measure_set != nullptr;
}

/// The space in which the set may be split.
std::optional<GMathLinearSpace3<float>> find_space(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set) {
  if (set.has_space) return set.space;
  const GMathLinearSpace3<float> space = gas_bvh_split_find_space(ctx, set);
  if (!(gas_bvh_split_get_agreement(ctx, set, space.axis[0]) >= least_agreement)) return std::nullopt;
  return space;
}

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

float get_capsule_area(const GasBvhSplitCtx& ctx, uint item) {
  return GasBvhSplitCapsule(ctx.item_boxes[item], ctx.item_spaces[item]).get_half_area();
}

void split_apart(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                 GasBvhSplitSetGeom& right) {
  gas_bvh_split_apart(ctx, set, left, right);
  left.area = left.priority = get_capsule_area(ctx, ctx.order[set.first]);
  right.area = right.priority = get_capsule_area(ctx, ctx.order[set.first + 1]);
}

/// At most as many items as a node has lanes, or two: each gets a lane, and there is nothing to search.
bool split_few(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
               GasBvhSplitSetGeom& right, bool& aligned) {
  const Costs costs(ctx, set, aligned);
  float aligned_cost = 0.0f, oriented_cost = 0.0f;
  for (uint k = set.first; k < set.first + set.count; ++k) {
    const uint item = ctx.order[k];
    const float weight = gas_bvh_split_weight(ctx, item);
    aligned_cost += gas_bvh_split_padded_area(ctx.item_boxes[item], costs.get_padding()) * weight;
    oriented_cost += get_capsule_area(ctx, item) * weight;
  }
  const float best_oriented = costs.get_oriented(oriented_cost), best_aligned = costs.get_aligned(aligned_cost);
  if (costs.is_cheaper_whole(std::min(best_aligned, best_oriented))) return false;
  split_apart(ctx, set, left, right);
  aligned = best_aligned <= best_oriented;
  return true;
}

}  // namespace

GasBvhSplitUnaligned::GasBvhSplitUnaligned() = default;
GasBvhSplitUnaligned::GasBvhSplitUnaligned(GasBvhSplitUnaligned&&) noexcept = default;
GasBvhSplitUnaligned::~GasBvhSplitUnaligned() = default;

/// A set that has a space is split in it, unless that does not pay. Others are searched along the world's axes too.
template <class Search>
bool GasBvhSplitUnaligned::split_small(GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                                       GasBvhSplitSetGeom& right, bool& aligned) {
  const Costs costs(ctx, set, aligned);
  const GasBvhSplitSet part = small_->get_part(set);
  const std::optional<GMathLinearSpace3<float>> space = find_space(ctx, set);
  std::optional<Search> in_space;
  GasBvhSplitChoice oriented;
  float oriented_cost = std::numeric_limits<float>::infinity();
  if (space) {
    small_->measure(set, *space);
    in_space.emplace(small_->get_ctx(), part, small_->get_space_boxes(set), ctx.free_lanes);
    oriented = in_space->find(costs.get_padding());
    oriented_cost = costs.get_oriented(in_space->get_cut_cost(oriented, costs.get_padding()));
  }
  const auto cut_in_space = [&] {
    fill_oriented_halves(set, *space, in_space->cut(oriented), left, right);
    small_->store_order(set, ctx.order);
    aligned = false;
    return true;
  };
  const bool pays = oriented.is_found() && !costs.is_cheaper_whole(oriented_cost);
  if (pays && set.has_space) return cut_in_space();

  Search in_world(small_->get_ctx(), part, small_->get_world_boxes(set), ctx.free_lanes);
  const GasBvhSplitChoice choice = in_world.find(costs.get_padding());
  const float cost = costs.get_aligned(in_world.get_cut_cost(choice, costs.get_padding()));
  if (pays && oriented_cost < cost) return cut_in_space();
  if (!choice.is_found()) return gas_bvh_split_fallback(ctx, set, left, right, nullptr);
  if (costs.is_cheaper_whole(cost)) return false;
  gas_bvh_split_fill_halves(set, in_world.cut(choice), left, right);
  small_->store_order(set, ctx.order);
  return true;
}

/// The halves keep the space, which then serves all splits of the node.
void GasBvhSplitUnaligned::fill_oriented_halves(const GasBvhSplitSetGeom& set, const GMathLinearSpace3<float>& space,
                                                const GasBvhSplitSides& sides, GasBvhSplitSetGeom& left,
                                                GasBvhSplitSetGeom& right) const {
  const uint left_count = sides.left_count;
  gas_bvh_split_fill_halves(set,
                            {left_count, small_->unite({set.first, left_count}),
                             small_->unite({set.first + left_count, set.count - left_count})},
                            left, right);
  left.space_box = sides.left.get_bbox();
  right.space_box = sides.right.get_bbox();
  for (GasBvhSplitSetGeom* half : {&left, &right}) {
    half->has_space = true;
    half->space = space;
    half->area = half->space_box.get_half_area();
    gas_bvh_split_set_priority(*half);
  }
}

bool GasBvhSplitUnaligned::split(GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                                 GasBvhSplitSetGeom& right, bool& aligned, SysThreadManager* threads) {
  if (set.count < 2) return false;
  if (set.count > GasBvhSplitSmall::most_items || !may_orient(ctx))
    return large_.split(ctx, set, left, right, aligned, threads);
  if (set.apart || (set.count == 2 && !aligned)) {  // lanes that the oriented node has left cost nothing
    split_apart(ctx, set, left, right);
    return true;
  }
  if (set.count == 2 || (set.count <= node_lanes && set.refitted)) return split_few(ctx, set, left, right, aligned);
  if (!small_) small_ = std::make_unique<GasBvhSplitSmall>();
  small_->load(ctx, set);
  if (set.count <= GasBvhSplitSorted::most_items) return split_small<GasBvhSplitSorted>(ctx, set, left, right, aligned);
  return split_small<SmallBinned>(ctx, set, left, right, aligned);
}

void GasBvhSplitUnaligned::refit(GasBvhSplitCtx& ctx, GasBvhSplitSetGeom& set, SysThreadManager* threads) {
  if (set.refitted) return;
  set.refitted = set.has_space = true;
  set.space = GMathLinearSpace3<float>();
  set.space_box = set.box;
  if (ctx.item_spaces != nullptr && ctx.measure_set != nullptr) {
    set.space = gas_bvh_split_find_space(ctx, set);
    const auto items = CoreBasicArray<uint>::make_view(ctx.order + set.first, set.count);
    set.space_box = ctx.measure_set(items, set.space, ctx.measure_owner, threads);
  }
  make_invertible(set.space_box);
}
