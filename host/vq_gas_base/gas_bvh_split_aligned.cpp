// host/vq_gas_base/gas_bvh_split_aligned.cpp
#include <algorithm>

#include "vq_core/core_memory.h"
#include "vq_gas_base/gas_bvh_split.h"
#include "vq_gas_base/gas_bvh_split_bins.h"
#include "vq_gas_base/gas_bvh_split_chunks.h"
#include "vq_gas_base/gas_bvh_split_cost.h"

namespace {

/// Sets this small are cut between single items rather than bins.
constexpr uint most_sorted_items = 16;
/// From here on finer bins pay.
constexpr uint many_items = 4096;

/// The two sides of a cut, before anything is moved.
struct Sides {
  uint left_count = 0;
  GasBvhSplitBox left, right;
};

/// Whether the set, small enough for a leaf, is better left whole. `cut_cost` is the choice's.
bool is_cheaper_whole(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, float cut_cost, float padding) {
  if (set.count > ctx.max_leaf) return false;
  double weight = 0.0;
  for (uint k = 0; k < set.count; ++k) weight += gas_bvh_split_weight(ctx, ctx.order[set.first + k]);
  const float unit = (ctx.item_weights != nullptr ? 1.0f : ctx.item_cost) * ctx.item_cost_scale;
  const GMathBbox3<float> padded(set.box.min, set.box.max + GMathVec3<float>(padding, padding, padding));
  return static_cast<float>(weight) * unit <= ctx.aligned_cost + cut_cost / padded.get_half_area() * unit;
}

void fill_halves(const GasBvhSplitSetGeom& set, const Sides& sides, GasBvhSplitSetGeom& left,
                 GasBvhSplitSetGeom& right) {
  const uint first = set.first, left_count = sides.left_count, right_count = set.count - left_count;
  left.first = first;
  left.count = left_count;
  left.box = sides.left.get_bbox();
  left.area = left.box.get_half_area();
  right.first = first + left_count;
  right.count = right_count;
  right.box = sides.right.get_bbox();
  right.area = right.box.get_half_area();
}

/// The last resort, for sets that offer no cut: equal centres, or boxes without a finite price.
bool split_middle(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                  GasBvhSplitSetGeom& right, SysThreadManager* threads) {
  // Such items lie on top of each other: a cut through the heap saves nothing.
  if (set.count <= ctx.max_leaf) return false;
  Sides sides;
  sides.left_count = set.count / 2;
  sides.left = GasBvhSplitBox::load(ctx.compute_items_bbox({set.first, sides.left_count}, threads));
  const GasBvhSplitSet rest{set.first + sides.left_count, set.count - sides.left_count};
  sides.right = GasBvhSplitBox::load(ctx.compute_items_bbox(rest, threads));
  fill_halves(set, sides, left, right);
  return true;
}

// --- small sets -------------------------------------------------------------------------------------------------

/// Every item a slot of its own, in order of its centre.
struct SortedItems {
  GasBvhSplitBox boxes[most_sorted_items];
  float weights[most_sorted_items];
  uint items[most_sorted_items];
  u8 order[most_sorted_items][4];  ///< [rank][axis]: position in `items`
  bool is_flat = false;

  SortedItems(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set);
  const GasBvhSplitBox& get_box(uint axis, uint rank) const { return boxes[order[rank][axis]]; }
  SimdF get_weights(uint rank) const {
    return {weights[order[rank][0]], weights[order[rank][1]], weights[order[rank][2]], 0.0f};
  }
};

/// Ranks by counting, for each pair, who comes first: quadratic, but without a branch and on three axes at once. Of
/// equal centres the one that stands first in the set comes first.
SortedItems::SortedItems(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set) {
  const SimdF zero(0.0f), one(1.0f), lowest(-std::numeric_limits<float>::infinity());
  SimdF centers[most_sorted_items], ranks[most_sorted_items];
  GasBvhSplitBox center_sums;
  for (uint k = 0; k < set.count; ++k) {
    items[k] = ctx.order[set.first + k];
    boxes[k] = GasBvhSplitBox::load(ctx.item_boxes[items[k]]);
    weights[k] = gas_bvh_split_weight(ctx, items[k]);
    // A NaN would come first and last at once and the ranks would repeat.
    centers[k] = max(boxes[k].get_center_sum(), lowest);
    center_sums.add(centers[k]);
    SimdF rank(static_cast<float>(k));
    for (uint j = 0; j < k; ++j) {
      const SimdF swapped = select(centers[j] > centers[k], one, zero);
      ranks[j] = ranks[j] + swapped;
      rank = rank - swapped;
    }
    ranks[k] = rank;
  }
  for (uint k = 0; k < set.count; ++k) {
    int rank[4];
    ranks[k].store_truncated(rank);
    for (uint axis = 0; axis < 3; ++axis) order[rank[axis]][axis] = static_cast<u8>(k);
  }
  is_flat = ((center_sums.high > center_sums.low).get_bits() & 7u) == 0;
}

bool split_sorted(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                  GasBvhSplitSetGeom& right) {
  const SortedItems sorted(ctx, set);
  if (sorted.is_flat) return split_middle(ctx, set, left, right, nullptr);
  const float padding = gas_bvh_split_padding(set.box);
  const GasBvhSplitChoice choice = gas_bvh_split_search<most_sorted_items>(sorted, set.count, padding);
  if (!choice.is_found()) return split_middle(ctx, set, left, right, nullptr);
  if (is_cheaper_whole(ctx, set, choice.cost, padding)) return false;
  Sides sides;
  sides.left_count = choice.plane;
  for (uint rank = 0; rank < set.count; ++rank) {
    const uint k = sorted.order[rank][choice.axis];
    ctx.order[set.first + rank] = sorted.items[k];
    (rank < choice.plane ? sides.left : sides.right).add(sorted.boxes[k]);
  }
  fill_halves(set, sides, left, right);
  return true;
}

// --- large sets -------------------------------------------------------------------------------------------------

/// The bins with their weights as the search wants them.
struct BinSlots {
  const GasBvhSplitBins& bins;
  bool weighted;
  const GasBvhSplitBox& get_box(uint axis, uint bin) const { return bins.boxes[bin][axis]; }
  SimdF get_weights(uint bin) const {
    if (weighted) {
      const double* weights = bins.weights[bin];
      return {static_cast<float>(weights[0]), static_cast<float>(weights[1]), static_cast<float>(weights[2]), 0.0f};
    }
    const uint* counts = bins.counts[bin];
    return {static_cast<float>(counts[0]), static_cast<float>(counts[1]), static_cast<float>(counts[2]), 0.0f};
  }
};

GasBvhSplitBox unite_centers(const GasBvhSplitCtx& ctx, const uint* order, uint count) {
  GasBvhSplitBox sums;
  for (uint k = 0; k < count; ++k) sums.add(GasBvhSplitBox::load(ctx.item_boxes[order[k]]).get_center_sum());
  return sums;
}

Sides get_sides(const GasBvhSplitBins& bins, uint bin_count, const GasBvhSplitChoice& choice) {
  Sides sides;
  for (uint bin = 0; bin < bin_count; ++bin) {
    const bool is_left = bin < choice.plane;
    (is_left ? sides.left : sides.right).add(bins.boxes[bin][choice.axis]);
    if (is_left) sides.left_count += bins.counts[bin][choice.axis];
  }
  return sides;
}

/// Moves the left items of `order` to the front and the others to `right`, each in their former order, without a
/// branch. Returns how many are left.
uint deal(const GasBvhSplitCtx& ctx, const GasBvhSplitGrid& grid, const GasBvhSplitChoice& choice, const uint* order,
          uint count, uint* left, uint* right) {
  const float plane = static_cast<float>(choice.plane);
  uint left_count = 0;
  for (uint k = 0; k < count; ++k) {
    const uint item = order[k];
    const uint is_right = grid.is_right(ctx.item_boxes[item], choice.axis, plane) ? 1 : 0;
    left[left_count] = item;
    right[k - left_count] = item;
    left_count += 1 - is_right;
  }
  return left_count;
}

}  // namespace

bool GasBvhSplitAligned::split(GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                               GasBvhSplitSetGeom& right, bool& /*aligned*/, SysThreadManager* threads) {
  if (set.count < 2) return false;
  if (set.count <= most_sorted_items) return split_sorted(ctx, set, left, right);

  uint* order = ctx.order + set.first;
  const GasBvhSplitGrid grid(unite_centers(ctx, order, set.count), set.count >= many_items ? 32 : 16);
  if (grid.is_flat || !scratch_.resize_for_overwrite(set.count)) return split_middle(ctx, set, left, right, threads);

  GasBvhSplitBins bins;
  bins.clear(grid.bin_count);
  for (uint first = 0; first < set.count; first += gas_split_chunk_items) {
    const uint count = std::min(gas_split_chunk_items, set.count - first);
    if (set.count <= gas_split_chunk_items) {
      bins.add_items(ctx, grid, order, count);
    } else {
      GasBvhSplitBins chunk_bins;
      chunk_bins.clear(grid.bin_count);
      chunk_bins.add_items(ctx, grid, order + first, count);
      bins.add(chunk_bins, grid.bin_count);
    }
    if (set.count - first <= gas_split_chunk_items) break;
  }
  const float padding = gas_bvh_split_padding(set.box);
  const BinSlots slots{bins, ctx.item_weights != nullptr};
  const GasBvhSplitChoice choice = gas_bvh_split_search<GasBvhSplitBins::most_bins>(slots, grid.bin_count, padding);
  if (!choice.is_found()) return split_middle(ctx, set, left, right, threads);
  if (is_cheaper_whole(ctx, set, choice.cost, padding)) return false;
  const Sides sides = get_sides(bins, grid.bin_count, choice);
  deal(ctx, grid, choice, order, set.count, order, scratch_.get_items());
  std::copy_n(scratch_.get_items(), set.count - sides.left_count, order + sides.left_count);
  fill_halves(set, sides, left, right);
  return true;
}
