// host/vq_gas_base/gas_bvh_split_frame.h
//
// The frame of a set of long items. The first axis is the mean of the items' preferred axes; the second is the
// direction across the first in which the items spread most: across a row of strands, or in the plane of a bend.
#pragma once
#include "vq_gas_base/gas_bvh_split.h"

struct GasBvhSplitFrame {
  GMathLinearSpace3<float> space;  ///< unit length, at right angles, right-handed
  /// Agreement of the items with the first axis: mean squared cosine, weighted by length. 1/3 for random directions, 1
  /// for parallel items; 0 when no item has a direction, and then the space is that of the context's direction hints.
  float agreement = 0.0f;
};

/// Uses every item of a small set, and evenly spaced samples of a large set. Needs the context's item spaces.
GasBvhSplitFrame gas_bvh_split_find_frame(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set);
