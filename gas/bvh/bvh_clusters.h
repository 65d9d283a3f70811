// gas/bvh/bvh_clusters.h
//
// Clusters: a few subtrees that together hold every item once. A subtree is divided further while it is large and its
// children leave much of it empty; where they fill it, smaller clusters would not be tighter. A handle names one lane
// of one aligned node (BvhClusterHandle); null is the whole tree.
//
//   root --expanded--> child kept whole beside expanded siblings    handle, second byte 1
//                      child expanded --> none of its own expanded  a handle per lane, second byte 0
#pragma once
#include "gas/bvh/gas_bvh.h"
#include "gas/bvh/gas_bvh_motion.h"
#include "vq_core/core_array.h"

/// Appends handles that cover the tree: about `count` of them, never more than 4 to the power of floor(log4 count). An
/// empty tree appends nothing, and so does one when there is no memory for the handles; a tree that is not worth
/// dividing appends one null handle. Cost: O(handles).
void bvh_get_clusters(const GasBvh<4>& tree, uint count, CoreVector<void*>& clusters);

/// One box per handle: the named lane's, or the whole tree's for a null handle. A handle that names no node of the tree
/// gets the inverted box.
void bvh_get_clusters_bboxes(const GasBvh<4>& tree, const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes);

/// The same, blended between motion samples `first` and `second` by `fraction`.
void bvh_get_clusters_bboxes_at(const GasBvh<4>& tree, const GasBvhMotion<4>& motion, uint first, uint second,
                                float fraction, const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes);

/// One weight per handle: the sum over its items of their own weights, or of the tree's uniform one. A handle that
/// names no node has weight 0. Cost: O(nodes below the handles); O(1) for null handles of items without own weights.
void bvh_get_clusters_weights(const GasBvh<4>& tree, const CoreBasicArray<void*>& clusters, float* weights);
