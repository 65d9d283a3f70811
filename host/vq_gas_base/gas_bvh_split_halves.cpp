// host/vq_gas_base/gas_bvh_split_halves.cpp
#include "vq_gas_base/gas_bvh_split_halves.h"

#include <algorithm>
#include <cmath>

void gas_bvh_split_fill_halves(const GasBvhSplitSetGeom& set, const GasBvhSplitSides& sides, GasBvhSplitSetGeom& left,
                               GasBvhSplitSetGeom& right) {
  const uint first = set.first, left_count = sides.left_count, right_count = set.count - left_count;
  left.first = first;
  left.count = left_count;
  left.box = sides.left.get_bbox();
  left.area = left.priority = left.box.get_half_area();
  left.has_space = left.refitted = left.apart = false;
  right.first = first + left_count;
  right.count = right_count;
  right.box = sides.right.get_bbox();
  right.area = right.priority = right.box.get_half_area();
  right.has_space = right.refitted = right.apart = false;
}

void gas_bvh_split_at(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, uint left_count,
                      GasBvhSplitSetGeom& left, GasBvhSplitSetGeom& right, SysThreadManager* threads) {
  const GasBvhSplitSet front{set.first, left_count}, back{set.first + left_count, set.count - left_count};
  GasBvhSplitSides sides;
  sides.left_count = left_count;
  sides.left = GasSimdBox::load(ctx.compute_items_bbox(front, threads));
  sides.right = GasSimdBox::load(ctx.compute_items_bbox(back, threads));
  gas_bvh_split_fill_halves(set, sides, left, right);
}

void gas_bvh_split_apart(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                         GasBvhSplitSetGeom& right) {
  const uint* items = ctx.order + set.first;
  GasBvhSplitSides sides;
  sides.left_count = 1;
  sides.left.add(GasSimdBox::load(ctx.item_boxes[items[0]]));
  for (uint k = 1; k < set.count; ++k) sides.right.add(GasSimdBox::load(ctx.item_boxes[items[k]]));
  gas_bvh_split_fill_halves(set, sides, left, right);
  right.apart = true;
}

bool gas_bvh_split_fallback(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                            GasBvhSplitSetGeom& right, SysThreadManager* threads) {
  if (set.count <= ctx.max_leaf) return false;
  uint* order = ctx.order + set.first;
  // Boxes without a finite area go to the right: a single one makes every cost infinite, and halving would leave it
  // among the others.
  const auto is_bounded = [&ctx](uint item) { return std::isfinite(ctx.item_boxes[item].get_half_area()); };
  const uint bounded = static_cast<uint>(std::partition(order, order + set.count, is_bounded) - order);
  const uint left_count = bounded == 0 || bounded == set.count ? set.count / 2 : bounded;
  gas_bvh_split_at(ctx, set, left_count, left, right, threads);
  return true;
}

float gas_bvh_split_whole_cost(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set) {
  if (ctx.item_weights == nullptr) return static_cast<float>(set.count) * gas_bvh_split_unit_cost(ctx);
  double weight = 0.0;
  for (uint k = 0; k < set.count; ++k) weight += gas_bvh_split_weight(ctx, ctx.order[set.first + k]);
  return static_cast<float>(weight) * gas_bvh_split_unit_cost(ctx);
}
