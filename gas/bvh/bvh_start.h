// gas/bvh/bvh_start.h
//
// The subtree that a query traverses: the whole tree, or a cluster.
#pragma once
#include "gas/bvh/gas_bvh.h"

/// Start of a traversal: the root, or one lane of an aligned node when `cluster` is tagged as a cluster handle. `ref`
/// is empty when the handle names no node of this tree.
struct BvhStart {
  BvhChildRef ref;
  GMathBbox3<float> box;
  u32 node = 0;   ///< cluster: index of the aligned node
  uint lane = 0;  ///< cluster: lane of that node
  bool is_root = true;
};
BvhStart bvh_find_start(const GasBvh<4>& tree, u64 cluster);
