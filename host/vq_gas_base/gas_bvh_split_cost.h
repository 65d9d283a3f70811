// host/vq_gas_base/gas_bvh_split_cost.h
//
// The cost of a split, for the binned and the exact search. Both divide the items along each axis into slots (bins, or
// single items) and search the best plane between two slots. The three axes are evaluated at once:
//
//   GasSimdBox       lanes x, y, z, -                   the two corners of one box
//   areas, costs     lanes along x, along y, along z, - one number for each axis of the cut
//
// The fourth lane is unused.
#pragma once
#include <bit>
#include <limits>

#include "vq_gas_base/gas_bvh_split.h"
#include "vq_gas_base/gas_simd_box.h"

/// The best split of a set: the slots of `axis` below `plane` go left, the others right.
struct GasBvhSplitChoice {
  float cost = std::numeric_limits<float>::infinity();  ///< sum of area x cost of a side; infinite: no split
  uint axis = 0;
  uint plane = 0;
  bool is_found() const { return cost < std::numeric_limits<float>::infinity(); }
};

/// Added to every extent in the areas of the cost. Boxes of items along a line have no area: all splits would cost 0,
/// and the first plane would always be chosen, which separates one slot at a time.
inline float gas_bvh_split_padding(const GMathBbox3<float>& set_box) {
  const GMathVec3<float> extent = set_box.get_extent();
  const float largest =
      extent.x > extent.y ? (extent.x > extent.z ? extent.x : extent.z) : (extent.y > extent.z ? extent.y : extent.z);
  return largest * 1e-6f;
}

/// Half the padded surface of three boxes, one per axis of the split.
inline SimdF gas_bvh_split_areas(const GasSimdBox (&boxes)[3], const SimdF& padding) {
  SimdF dx = boxes[0].high - boxes[0].low;
  SimdF dy = boxes[1].high - boxes[1].low;
  SimdF dz = boxes[2].high - boxes[2].low;
  SimdF unused = dz;
  transpose(dx, dy, dz, unused);  // from one row per cut to one row per component
  dx = dx + padding;
  dy = dy + padding;
  dz = dz + padding;
  return (dy + dz) * dx + dy * dz;
}

/// Computes the cost of every plane of the three axes and returns the cheapest; of equal costs the lowest axis, then
/// the lowest plane. Planes with an empty side or without a finite cost are not chosen.
///
/// @param slots      get_box(axis, slot); get_weights(slot) with one lane per axis, 0 for an empty slot; and
///                   get_cost(weights, slots), the cost of a side that a ray has entered, of that weight and that many
///                   slots
/// @param slot_count at least 2, at most `most_slots`
template <uint most_slots, class Slots>
GasBvhSplitChoice gas_bvh_split_search(const Slots& slots, uint slot_count, float padding) {
  const SimdF pad(padding), zero(0.0f);
  SimdF right_cost[most_slots];
  GasSimdBox side[3];
  SimdF weight = zero;
  for (uint slot = slot_count - 1; slot > 0; --slot) {
    for (uint axis = 0; axis < 3; ++axis) side[axis].add(slots.get_box(axis, slot));
    weight = weight + slots.get_weights(slot);
    right_cost[slot] = gas_bvh_split_areas(side, pad) * slots.get_cost(weight, slot_count - slot);
  }

  for (GasSimdBox& box : side) box = GasSimdBox();
  weight = zero;
  SimdF best_cost(std::numeric_limits<float>::infinity()), best_plane = zero;
  for (uint plane = 1; plane < slot_count; ++plane) {
    for (uint axis = 0; axis < 3; ++axis) side[axis].add(slots.get_box(axis, plane - 1));
    weight = weight + slots.get_weights(plane - 1);
    const SimdF cost = gas_bvh_split_areas(side, pad) * slots.get_cost(weight, plane) + right_cost[plane];
    // An empty side costs inf * 0 = NaN, which never compares as cheaper. A side with a NaN bound may have a negative
    // cost.
    const auto better = (best_cost > cost) & (zero <= cost);
    best_cost = select(better, cost, best_cost);
    best_plane = select(better, SimdF(static_cast<float>(plane)), best_plane);
  }

  float costs[4], planes[4];
  best_cost.store_unaligned(costs);
  best_plane.store_unaligned(planes);
  GasBvhSplitChoice choice;
  for (uint axis = 0; axis < 3; ++axis)
    if (costs[axis] < choice.cost) choice = {costs[axis], axis, static_cast<uint>(planes[axis])};
  return choice;
}

/// The weight of an item in the cost. At least 0.001, also for a negative or NaN weight: with weights of 0 all planes
/// would have the same cost.
inline float gas_bvh_split_weight(const GasBvhSplitCtx& ctx, uint item) {
  if (ctx.item_weights == nullptr) return 1.0f;
  const float weight = std::bit_cast<float>(ctx.item_weights[item]);
  return weight > 1e-3f ? weight : 1e-3f;
}
