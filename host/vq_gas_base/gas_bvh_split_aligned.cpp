// host/vq_gas_base/gas_bvh_split_aligned.cpp
#include <algorithm>
#include <cmath>

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
constexpr uint few_bins = 16, many_bins = GasBvhSplitBins::most_bins;

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

/// Cuts the range as it stands.
void split_at(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, uint left_count, GasBvhSplitSetGeom& left,
              GasBvhSplitSetGeom& right, SysThreadManager* threads) {
  const GasBvhSplitSet front{set.first, left_count}, back{set.first + left_count, set.count - left_count};
  Sides sides;
  sides.left_count = left_count;
  sides.left = GasBvhSplitBox::load(ctx.compute_items_bbox(front, threads));
  sides.right = GasBvhSplitBox::load(ctx.compute_items_bbox(back, threads));
  fill_halves(set, sides, left, right);
}

/// The last resort, for sets that offer no cut: equal centres, or no finite price. Such items lie on top of each other,
/// where a cut saves nothing, so they stay together if they may and are halved if not. Boxes without a finite area go
/// to the right: one of them makes every price infinite, and halving would mix up all the others that are with it.
bool split_heap(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                GasBvhSplitSetGeom& right, SysThreadManager* threads) {
  if (set.count <= ctx.max_leaf) return false;
  uint* order = ctx.order + set.first;
  const auto is_bounded = [&ctx](uint item) { return std::isfinite(ctx.item_boxes[item].get_half_area()); };
  const uint bounded = static_cast<uint>(std::partition(order, order + set.count, is_bounded) - order);
  split_at(ctx, set, bounded == 0 || bounded == set.count ? set.count / 2 : bounded, left, right, threads);
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
    u8 rank[4];
    ranks[k].store_bytes(rank);
    for (uint axis = 0; axis < 3; ++axis) order[rank[axis]][axis] = static_cast<u8>(k);
  }
  is_flat = ((center_sums.high > center_sums.low).get_bits() & 7u) == 0;
}

bool split_sorted(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                  GasBvhSplitSetGeom& right) {
  if (set.count == 2 && ctx.max_leaf < 2) {  // a third of all calls
    split_at(ctx, set, 1, left, right, nullptr);
    return true;
  }
  const SortedItems sorted(ctx, set);
  if (sorted.is_flat) return split_heap(ctx, set, left, right, nullptr);
  const float padding = gas_bvh_split_padding(set.box);
  const GasBvhSplitChoice choice = gas_bvh_split_search<most_sorted_items>(sorted, set.count, padding);
  if (!choice.is_found()) return split_heap(ctx, set, left, right, nullptr);
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
  const GasBvhSplitBox& get_box(uint axis, uint bin) const { return bins.boxes[axis][bin]; }
  SimdF get_weights(uint bin) const { return weighted ? convert(bins.weights, bin) : convert(bins.counts, bin); }

 private:
  template <class Number>
  static SimdF convert(const Number (&numbers)[3][GasBvhSplitBins::most_bins], uint bin) {
    return {static_cast<float>(numbers[0][bin]), static_cast<float>(numbers[1][bin]),
            static_cast<float>(numbers[2][bin]), 0.0f};
  }
};

/// One chunk of a set that is being cut on several threads.
struct Chunk {
  GasBvhSplitBins bins;
  uint left_before;  ///< how many items of the chunks before it go left
};

/// One large set while it is being cut, in three passes over its items.
struct BinnedSet {
  const GasBvhSplitCtx& ctx;
  uint* order;
  uint count;
  GasBvhSplitItemBins* item_bins;  ///< [count]
  uint* moved;                     ///< [count]
  SysThreadManager* threads;       ///< null: all on this thread
  GasBvhSplitBins bins;
  CoreAlignedArray<Chunk> chunks;  ///< only with threads

  GasBvhSplitBox unite_center_sums() const;
  void fill_bins(const GasBvhSplitGrid& grid);
  Sides get_sides(const GasBvhSplitChoice& choice) const;
  void partition(const GasBvhSplitChoice& choice, uint left_count);

 private:
  void deal(const GasBvhSplitChoice& choice, uint first, uint deal_count, uint left_at, uint right_at) const;
};

GasBvhSplitBox BinnedSet::unite_center_sums() const {
  return gas_split_unite(count, threads, [this](uint first, uint unite_count) {
    GasBvhSplitBox sums;
    for (uint k = first; k < first + unite_count; ++k)
      sums.add(GasBvhSplitBox::load(ctx.item_boxes[order[k]]).get_center_sum());
    return sums;
  });
}

void BinnedSet::fill_bins(const GasBvhSplitGrid& grid) {
  if (count <= gas_split_chunk_items) {
    bins.add_items(ctx, grid, order, count, item_bins);
    return;
  }
  const auto fill = [&](GasBvhSplitBins& chunk_bins, uint first, uint chunk_count) {
    chunk_bins = GasBvhSplitBins();
    chunk_bins.add_items(ctx, grid, order + first, chunk_count, item_bins + first);
  };
  if (threads != nullptr) {
    gas_split_for_each_chunk(count, *threads, [&](uint chunk, uint first, uint chunk_count) {
      fill(chunks[chunk].bins, first, chunk_count);
    });
    for (const Chunk& chunk : chunks) bins.add(chunk.bins, grid.bin_count);
    return;
  }
  GasBvhSplitBins chunk_bins;
  for (uint chunk = 0; chunk < gas_split_chunk_count(count); ++chunk) {
    const uint first = chunk * gas_split_chunk_items;
    fill(chunk_bins, first, std::min(gas_split_chunk_items, count - first));
    bins.add(chunk_bins, grid.bin_count);
  }
}

Sides BinnedSet::get_sides(const GasBvhSplitChoice& choice) const {
  Sides sides;
  sides.left_count = bins.count_below(choice.axis, choice.plane);
  for (uint bin = 0; bin < GasBvhSplitBins::most_bins; ++bin)
    (bin < choice.plane ? sides.left : sides.right).add(bins.boxes[choice.axis][bin]);
  return sides;
}

/// Copies the items of one chunk to `moved`, those that go left from `left_at` on and the others from `right_at` on,
/// each in their former order. Written without a branch, which would be guessed wrong for every other item.
void BinnedSet::deal(const GasBvhSplitChoice& choice, uint first, uint deal_count, uint left_at, uint right_at) const {
  for (uint k = first; k < first + deal_count; ++k) {
    const uint is_left = item_bins[k].bin[choice.axis] < choice.plane ? 1 : 0;
    moved[right_at ^ ((left_at ^ right_at) & (0u - is_left))] = order[k];
    left_at += is_left;
    right_at += 1 - is_left;
  }
}

/// Stable, so that a chunk knows where its items go from the counts of the chunks before it.
void BinnedSet::partition(const GasBvhSplitChoice& choice, uint left_count) {
  if (threads == nullptr) {
    deal(choice, 0, count, 0, left_count);
    std::copy_n(moved, count, order);
    return;
  }
  uint left_before = 0;
  for (Chunk& chunk : chunks) {
    chunk.left_before = left_before;
    left_before += chunk.bins.count_below(choice.axis, choice.plane);
  }
  gas_split_for_each_chunk(count, *threads, [&](uint chunk, uint first, uint chunk_count) {
    const uint before = chunks[chunk].left_before;
    deal(choice, first, chunk_count, before, left_count + (first - before));
  });
  gas_split_for_each_chunk(count, *threads, [&](uint /*chunk*/, uint first, uint chunk_count) {
    std::copy_n(moved + first, chunk_count, order + first);
  });
}

}  // namespace

bool GasBvhSplitAligned::split(GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                               GasBvhSplitSetGeom& right, bool& /*aligned*/, SysThreadManager* threads) {
  if (set.count < 2) return false;
  if (set.count <= most_sorted_items) return split_sorted(ctx, set, left, right);
  if (!item_bins_.resize_for_overwrite(set.count) || !moved_.resize_for_overwrite(set.count))
    return split_heap(ctx, set, left, right, threads);

  BinnedSet binned{ctx, ctx.order + set.first, set.count, item_bins_.get_items(), moved_.get_items(), nullptr, {}, {}};
  if (gas_split_is_parallel(set.count, threads)) {
    binned.chunks = CoreAlignedArray<Chunk>(gas_split_chunk_count(set.count));
    if (binned.chunks) binned.threads = threads;
  }
  const GasBvhSplitGrid grid(binned.unite_center_sums(), set.count >= many_items ? many_bins : few_bins);
  if (grid.is_flat) return split_heap(ctx, set, left, right, threads);
  binned.fill_bins(grid);
  const float padding = gas_bvh_split_padding(set.box);
  const BinSlots slots{binned.bins, ctx.item_weights != nullptr};
  const GasBvhSplitChoice choice = gas_bvh_split_search<GasBvhSplitBins::most_bins>(slots, grid.bin_count, padding);
  if (!choice.is_found()) return split_heap(ctx, set, left, right, threads);
  if (is_cheaper_whole(ctx, set, choice.cost, padding)) return false;
  const Sides sides = binned.get_sides(choice);
  binned.partition(choice, sides.left_count);
  fill_halves(set, sides, left, right);
  return true;
}
