// gas/bvh/bvh_finalize.h
//
// The last stage of a build: nodes move from the threads' pools into the tree's three arrays.
#pragma once
#include <span>

#include "gas/bvh/bvh_builder.h"

/// Gathers every node reachable from `root` (a node with a tagged index) into the tree's arrays, which this allocates
/// with their exact sizes, and sets the tree's root. The children of one node are numbered one after the other, in lane
/// order, and the last of them is continued first; so siblings share cache lines, a parent's index is below its
/// children's of the same kind, and the order depends on the tree alone, not on which thread made what. The pools are
/// left to their owner. Lanes of aligned nodes that hold 8-bit children become these children's frames. Throws
/// std::bad_alloc and AppStopped.
///
/// @param pools      [threads] the pools of all build threads
/// @param tag_shift  a reference's thread is its index shifted right by this; 0 when there is one thread
/// @param application  may ask to stop; or null
/// @param progress   gets "Finalize" (0.1), one step a node; or null
void bvh_finalize(GasBvh<4>& tree, BvhChildRef root, std::span<BvhBuildThreadPools* const> pools, uint tag_shift,
                  u32 tag_mask, const AppBase* application, AppProgressBar* progress);
