// host/vq_gas_base/gas_bvh_split_halves.h
//
// What becomes of a set once a cut has been chosen, or when there is none.
#pragma once
#include "vq_gas_base/gas_bvh_split_cost.h"

/// The two sides of a cut, with their boxes in the space in which it was found.
struct GasBvhSplitSides {
  uint left_count = 0;
  GasBvhSplitBox left, right;
};

/// The two ranges of a set with these boxes along the world's axes. Neither has been refitted.
void gas_bvh_split_fill_halves(const GasBvhSplitSetGeom& set, const GasBvhSplitSides& sides, GasBvhSplitSetGeom& left,
                               GasBvhSplitSetGeom& right);

/// Cuts the range as it stands.
void gas_bvh_split_at(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, uint left_count,
                      GasBvhSplitSetGeom& left, GasBvhSplitSetGeom& right, SysThreadManager* threads);

/// The last resort, for sets that offer no cut: equal centres, or no finite price. Such items lie on top of each other,
/// where a cut saves nothing, so they stay together if they may and are halved if not.
/// @return false when they stay together
bool gas_bvh_split_heap(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                        GasBvhSplitSetGeom& right, SysThreadManager* threads);

/// What testing the whole set costs, one item after the other.
float gas_bvh_split_whole_cost(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set);

/// What an item of weight 1 costs.
inline float gas_bvh_split_unit_cost(const GasBvhSplitCtx& ctx) {
  return (ctx.item_weights != nullptr ? 1.0f : ctx.item_cost) * ctx.item_cost_scale;
}

/// Half the surface of a box of which every extent is so much longer.
inline float gas_bvh_split_padded_area(const GMathBbox3<float>& box, float padding) {
  return GMathBbox3<float>(box.min, box.max + GMathVec3<float>(padding, padding, padding)).get_half_area();
}
