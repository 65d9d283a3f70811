// gas/bvh/bvh_start.h
//
// Where a query or a cluster's box begins: at the root, or at the child that a cluster handle names.
#pragma once
#include "gas/bvh/gas_bvh.h"

/// Where a query enters a tree: the root, or one lane of an aligned node when `cluster` is tagged as a handle of a
/// four-wide tree. `ref` is empty when the handle names no node of this tree.
struct BvhStart {
  BvhChildRef ref;
  GMathBbox3<float> box;
  u32 node = 0;   ///< of a cluster: the aligned node, and
  uint lane = 0;  ///< its lane
  bool is_root = true;
};
BvhStart bvh_find_start(const GasBvh<4>& tree, u64 cluster);
