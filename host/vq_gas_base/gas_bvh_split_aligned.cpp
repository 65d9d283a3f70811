// host/vq_gas_base/gas_bvh_split_aligned.cpp
#include "vq_gas_base/gas_bvh_split.h"
#include "vq_gas_base/gas_bvh_split_binned.h"
#include "vq_gas_base/gas_bvh_split_halves.h"
#include "vq_gas_base/gas_bvh_split_sorted.h"

namespace {

/// True if the set may be a leaf and costs no more as one.
template <class Search>
bool is_cheaper_whole(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, const Search& search,
                      const GasBvhSplitChoice& choice, float padding) {
  if (set.count > ctx.max_leaf) return false;
  const float items = search.get_cut_cost(choice, padding) / gas_bvh_split_padded_area(set.box, padding);
  return gas_bvh_split_whole_cost(ctx, set) <= ctx.aligned_cost + items * gas_bvh_split_unit_cost(ctx);
}

/// Four-wide trees with one item a leaf: small sets are split so that few lanes of their nodes stay empty.
bool fills_lanes(const GasBvhSplitCtx& ctx) { return ctx.free_lanes != 0 && ctx.max_leaf < 2; }

bool split_sorted(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                  GasBvhSplitSetGeom& right) {
  const float padding = gas_bvh_split_padding(set.box);
  const GasBvhSplitSorted sorted(ctx, set, GasBvhSplitWorldBoxes{ctx.item_boxes, ctx.order + set.first},
                                 fills_lanes(ctx) ? ctx.free_lanes : 0);
  const GasBvhSplitChoice choice = sorted.find(padding);
  if (!choice.is_found()) return gas_bvh_split_fallback(ctx, set, left, right, nullptr);
  if (is_cheaper_whole(ctx, set, sorted, choice, padding)) return false;
  gas_bvh_split_fill_halves(set, sorted.cut(choice), left, right);
  return true;
}

}  // namespace

bool GasBvhSplitAligned::split(GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                               GasBvhSplitSetGeom& right, bool& /*aligned*/, SysThreadManager* threads) {
  if (set.count < 2) return false;
  const uint sure_lanes = ctx.free_lanes == 4 ? 4 : 2;  // at later splits another set may get the remaining lanes
  if (ctx.max_leaf < 2 && (set.apart || set.count <= sure_lanes)) {
    gas_bvh_split_apart(ctx, set, left, right);
    return true;
  }
  if (!split_any(ctx, set, left, right, threads)) return false;
  if (fills_lanes(ctx)) {
    gas_bvh_split_set_priority(left);
    gas_bvh_split_set_priority(right);
  }
  return true;
}

bool GasBvhSplitAligned::split_any(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                                   GasBvhSplitSetGeom& right, SysThreadManager* threads) {
  if (set.count <= GasBvhSplitSorted::most_items) return split_sorted(ctx, set, left, right);
  if (!item_bins_.resize_for_overwrite(set.count) || !moved_.resize_for_overwrite(set.count))
    return gas_bvh_split_fallback(ctx, set, left, right, threads);

  const GasBvhSplitWorldBoxes boxes{ctx.item_boxes, ctx.order + set.first};
  GasBvhSplitBinned binned(ctx, set, boxes, item_bins_.get_items(), threads);
  const float padding = gas_bvh_split_padding(set.box);
  const GasBvhSplitChoice choice = binned.find(padding);
  if (!choice.is_found()) return gas_bvh_split_fallback(ctx, set, left, right, threads);
  if (is_cheaper_whole(ctx, set, binned, choice, padding)) return false;
  gas_bvh_split_fill_halves(set, binned.cut(choice, moved_.get_items()), left, right);
  return true;
}
