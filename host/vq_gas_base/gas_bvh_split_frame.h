// host/vq_gas_base/gas_bvh_split_frame.h
//
// The frame of a set of long items. The first axis is the mean of the items' preferred axes; the second is the
// direction across the first in which the items spread most: across a row of strands, or in the plane of a bend.
#pragma once
#include "vq_gas_base/gas_bvh_split.h"

/// The axes are of unit length, at right angles, right-handed. Without an item that has a direction they are those of
/// the context's direction hints. Uses every item of a small set, and evenly spaced samples of a large set, here and
/// below. Needs the context's item spaces.
GMathLinearSpace3<float> gas_bvh_split_find_space(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set);

/// Agreement of the items with an axis of unit length: mean squared cosine, weighted by length. 1/3 for random
/// directions, 1 for parallel items; 0 when no item has a direction.
float gas_bvh_split_get_agreement(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set,
                                  const GMathVec3<float>& axis);
