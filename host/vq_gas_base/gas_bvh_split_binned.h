// host/vq_gas_base/gas_bvh_split_binned.h
//
// The split search for large sets: items are counted in bins, and the planes are between bins. Two passes over the
// items find the best plane, a third partitions them.
#pragma once
#include "vq_core/core_memory.h"
#include "vq_gas_base/gas_bvh_split_bins.h"
#include "vq_gas_base/gas_bvh_split_chunks.h"
#include "vq_gas_base/gas_bvh_split_halves.h"

template <class Boxes>
class GasBvhSplitBinned {
 public:
  /// @param item_bins  [set.count] scratch, in use until cut()
  /// @param threads    null: all on this thread
  GasBvhSplitBinned(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set, const Boxes& item_boxes,
                    GasBvhSplitItemBins* item_bins, SysThreadManager* threads);

  GasBvhSplitChoice find(float padding);
  float get_cut_cost(const GasBvhSplitChoice& choice, float /*padding*/) const { return choice.cost; }
  /// Moves the items of each side together, in their former order.
  /// @param moved  [set.count] scratch
  GasBvhSplitSides cut(const GasBvhSplitChoice& choice, uint* moved);

 private:
  /// From this number of items on more bins are used.
  static constexpr uint many_items = 4096;
  static constexpr uint few_bins = 16, many_bins = GasBvhSplitBins::most_bins;

  /// One chunk of a set that is split on several threads.
  struct Chunk {
    GasBvhSplitBins bins;
    uint left_before;  ///< how many items of the chunks before it go left
  };

  GasSimdBox unite_center_sums() const;
  void fill_bins(const GasBvhSplitGrid& grid);
  void partition(const GasBvhSplitChoice& choice, uint left_count, uint* moved);
  uint partition_chunk(const GasBvhSplitChoice& choice, uint first, uint chunk_count, uint left_at, uint right_at,
                       uint* moved) const;

  const GasBvhSplitCtx& ctx_;
  uint* order_;
  uint count_;
  Boxes item_boxes_;
  GasBvhSplitItemBins* item_bins_;
  SysThreadManager* threads_ = nullptr;
  GasBvhSplitBins bins_;
  CoreAlignedArray<Chunk> chunks_;  ///< only with threads
};

/// The bins as slots of gas_bvh_split_search().
struct GasBvhSplitBinSlots {
  const GasBvhSplitBins& bins;
  bool weighted;
  const GasSimdBox& get_box(uint axis, uint bin) const { return bins.boxes[axis][bin]; }
  SimdF get_weights(uint bin) const { return weighted ? convert(bins.weights, bin) : convert(bins.counts, bin); }
  SimdF get_cost(const SimdF& weights, uint /*slots*/) const { return weights; }

 private:
  template <class Number>
  static SimdF convert(const Number (&numbers)[3][GasBvhSplitBins::most_bins], uint bin) {
    return {static_cast<float>(numbers[0][bin]), static_cast<float>(numbers[1][bin]),
            static_cast<float>(numbers[2][bin]), 0.0f};
  }
};

template <class Boxes>
GasBvhSplitBinned<Boxes>::GasBvhSplitBinned(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set,
                                            const Boxes& item_boxes, GasBvhSplitItemBins* item_bins,
                                            SysThreadManager* threads)
    : ctx_(ctx), order_(ctx.order + set.first), count_(set.count), item_boxes_(item_boxes), item_bins_(item_bins) {
  if (!gas_split_is_parallel(count_, threads)) return;
  chunks_ = CoreAlignedArray<Chunk>(gas_split_chunk_count(count_));
  if (chunks_) threads_ = threads;
}

template <class Boxes>
GasBvhSplitChoice GasBvhSplitBinned<Boxes>::find(float padding) {
  const GasBvhSplitGrid grid(unite_center_sums(), count_ >= many_items ? many_bins : few_bins);
  if (grid.is_flat) return {};
  fill_bins(grid);
  const GasBvhSplitBinSlots slots{bins_, ctx_.item_weights != nullptr};
  return gas_bvh_split_search<GasBvhSplitBins::most_bins>(slots, grid.bin_count, padding);
}

template <class Boxes>
GasSimdBox GasBvhSplitBinned<Boxes>::unite_center_sums() const {
  return gas_split_unite(ctx_, count_, threads_, [this](uint first, uint unite_count) {
    GasSimdBox sums;
    for (uint k = first; k < first + unite_count; ++k) sums.add(item_boxes_.load(k).get_center_sum());
    return sums;
  });
}

template <class Boxes>
void GasBvhSplitBinned<Boxes>::fill_bins(const GasBvhSplitGrid& grid) {
  if (count_ <= gas_split_chunk_items) {
    bins_.add_items(ctx_, grid, item_boxes_, order_, 0, count_, item_bins_);
    return;
  }
  const auto fill = [&](GasBvhSplitBins& chunk_bins, uint first, uint chunk_count) {
    chunk_bins = GasBvhSplitBins();
    chunk_bins.add_items(ctx_, grid, item_boxes_, order_, first, chunk_count, item_bins_);
  };
  if (threads_ != nullptr) {
    gas_split_for_each_chunk(ctx_, count_, threads_, [&](uint chunk, uint first, uint chunk_count) {
      fill(chunks_[chunk].bins, first, chunk_count);
    });
    for (const Chunk& chunk : chunks_) bins_.add(chunk.bins, grid.bin_count);
    return;
  }
  GasBvhSplitBins chunk_bins;
  gas_split_for_each_chunk(ctx_, count_, nullptr, [&](uint /*chunk*/, uint first, uint chunk_count) {
    fill(chunk_bins, first, chunk_count);
    bins_.add(chunk_bins, grid.bin_count);
  });
}

template <class Boxes>
GasBvhSplitSides GasBvhSplitBinned<Boxes>::cut(const GasBvhSplitChoice& choice, uint* moved) {
  GasBvhSplitSides sides;
  sides.left_count = bins_.count_below(choice.axis, choice.plane);
  for (uint bin = 0; bin < GasBvhSplitBins::most_bins; ++bin)
    (bin < choice.plane ? sides.left : sides.right).add(bins_.boxes[choice.axis][bin]);
  partition(choice, sides.left_count, moved);
  return sides;
}

/// Copies the items of one chunk to `moved`, those that go left from `left_at` on and the others from `right_at` on,
/// each in their former order, and returns where the next left one goes. Without a branch, which would be
/// mispredicted for half of the items.
template <class Boxes>
uint GasBvhSplitBinned<Boxes>::partition_chunk(const GasBvhSplitChoice& choice, uint first, uint chunk_count,
                                               uint left_at, uint right_at, uint* moved) const {
  for (uint k = first; k < first + chunk_count; ++k) {
    const uint is_left = item_bins_[k].bin[choice.axis] < choice.plane ? 1 : 0;
    moved[right_at ^ ((left_at ^ right_at) & (0u - is_left))] = order_[k];
    left_at += is_left;
    right_at += 1 - is_left;
  }
  return left_at;
}

/// Stable: the counts of the chunks before a chunk give the positions of its items.
template <class Boxes>
void GasBvhSplitBinned<Boxes>::partition(const GasBvhSplitChoice& choice, uint left_count, uint* moved) {
  if (threads_ == nullptr) {
    uint left_at = 0;
    gas_split_for_each_chunk(ctx_, count_, nullptr, [&](uint /*chunk*/, uint first, uint chunk_count) {
      left_at = partition_chunk(choice, first, chunk_count, left_at, left_count + (first - left_at), moved);
    });
  } else {
    uint left_before = 0;
    for (Chunk& chunk : chunks_) {
      chunk.left_before = left_before;
      left_before += chunk.bins.count_below(choice.axis, choice.plane);
    }
    gas_split_for_each_chunk(ctx_, count_, threads_, [&](uint chunk, uint first, uint chunk_count) {
      const uint before = chunks_[chunk].left_before;
      partition_chunk(choice, first, chunk_count, before, left_count + (first - before), moved);
    });
  }
  gas_split_for_each_chunk(ctx_, count_, threads_, [&](uint /*chunk*/, uint first, uint chunk_count) {
    std::copy_n(moved + first, chunk_count, order_ + first);
  });
}
