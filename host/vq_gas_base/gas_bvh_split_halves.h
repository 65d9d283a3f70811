// host/vq_gas_base/gas_bvh_split_halves.h
//
// Carries out the chosen split of a set, or the fallback when there is none.
#pragma once
#include "vq_gas_base/gas_bvh_split_cost.h"

/// The two sides of a split, with their boxes in the space of the search.
struct GasBvhSplitSides {
  uint left_count = 0;
  GasSimdBox left, right;
};

/// Writes range, box, area and priority of both halves; `sides` has boxes along the world's axes. Marks both as not
/// refitted.
void gas_bvh_split_fill_halves(const GasBvhSplitSetGeom& set, const GasBvhSplitSides& sides, GasBvhSplitSetGeom& left,
                               GasBvhSplitSetGeom& right);

/// Splits the range in its current order, after `left_count` items.
void gas_bvh_split_at(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, uint left_count,
                      GasBvhSplitSetGeom& left, GasBvhSplitSetGeom& right, SysThreadManager* threads);

/// Splits off the first item, as all others are going to be: for at most as many items as the node has lanes.
void gas_bvh_split_apart(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                         GasBvhSplitSetGeom& right);

/// The fallback for sets without a split: equal centers, or no finite cost. Splitting such items saves nothing, so they
/// become a leaf if there are at most max_leaf, else the range is halved.
/// @return false when they become a leaf
bool gas_bvh_split_fallback(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                            GasBvhSplitSetGeom& right, SysThreadManager* threads);

/// Cost of the set as a leaf: all its items.
float gas_bvh_split_whole_cost(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set);

/// Cost of an item of weight 1.
inline float gas_bvh_split_unit_cost(const GasBvhSplitCtx& ctx) {
  return (ctx.item_weights != nullptr ? 1.0f : ctx.item_cost) * ctx.item_cost_scale;
}

/// Half the surface of the box with `padding` added to every extent.
inline float gas_bvh_split_padded_area(const GMathBbox3<float>& box, float padding) {
  const GMathVec3<float> extent = box.get_extent();
  return GMathBbox3<float>({0.0f, 0.0f, 0.0f}, extent + GMathVec3<float>(padding, padding, padding)).get_half_area();
}

/// For trees with one item a leaf, so that few lanes stay empty: a pair that gets two lanes saves a node of its own,
/// while 4, 7, 10 ... items fill all lanes of theirs.
inline void gas_bvh_split_set_priority(GasBvhSplitSetGeom& half) {
  constexpr uint most_items = 16;  // the number decides little in larger sets
  const bool is_small = half.count > 1 && half.count <= most_items;
  half.priority = half.area * (!is_small ? 1.0f : half.count == 2 ? 3.0f : half.count % 3 == 1 ? 0.5f : 1.0f);
}
