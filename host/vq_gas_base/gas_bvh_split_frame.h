// host/vq_gas_base/gas_bvh_split_frame.h
//
// Which way a set of long items runs. The first axis of a set's frame follows its items' preferred axes; the second is
// turned about the first to where the items spread most: across a row of strands, or along the plane of a bend.
#pragma once
#include "vq_gas_base/gas_bvh_split.h"

struct GasBvhSplitFrame {
  GMathLinearSpace3<float> space;  ///< unit length, at right angles, right-handed
  /// How much the items agree with the first axis: mean squared cosine, weighted by length. 1/3 for a tangle, 1 for
  /// parallels; 0 when there is nothing to go by, and then the space is that of the context's direction hints.
  float agreement = 0.0f;
};

/// Looks at every item of a small set and at evenly spaced ones of a large set. Needs the context's item spaces.
GasBvhSplitFrame gas_bvh_split_find_frame(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set);
