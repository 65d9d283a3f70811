// gas/bvh/bvh_finalize.h
//
// The last stage of a build: nodes move from the threads' pools into the tree's three arrays.
#pragma once
#include <span>

#include "gas/bvh/bvh_builder.h"

/// Allocates the tree's arrays of nodes with the exact sizes of those in the pools. Throws std::bad_alloc.
void bvh_allocate_nodes(GasBvh<4>& tree, std::span<BvhBuildThreadPools* const> pools);

/// Gathers every node reachable from `root` (a node with a tagged index) into the tree's arrays, which must have room
/// for them, and sets the tree's root. The children of one node are numbered one after the other, in lane order, and
/// the subtree of the last one is numbered first. Thus siblings share cache lines, a parent's index is below its
/// children's of the same kind, and the order depends on the tree alone, not on the threads. The pools stay as they
/// are. An aligned node's lane over a quantized child becomes the child's frame (bvh_make_frame). Throws std::bad_alloc
/// and AppStopped.
///
/// @param pools      [threads] the pools of all build threads
/// @param tag_shift  a reference's thread is its index shifted right by this; 0 when there is one thread
/// @param application  checked for a stop request; or null
/// @param progress   gets "Finalize" (0.1), one step a node; or null
void bvh_finalize(GasBvh<4>& tree, BvhChildRef root, std::span<BvhBuildThreadPools* const> pools, uint tag_shift,
                  u32 tag_mask, const AppBase* application, AppProgressBar* progress);
