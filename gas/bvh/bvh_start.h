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
inline BvhStart bvh_find_start(const GasBvh<4>& tree, u64 cluster) {
  BvhStart start{tree.root, tree.box};
  if (!BvhClusterHandle::is_tagged(cluster)) return start;
  start.is_root = false;
  start.node = BvhClusterHandle::get_node(cluster);
  start.lane = BvhClusterHandle::get_lane(cluster);
  if (start.node >= tree.aligned_count || start.lane >= 4) {
    start.ref = {};
    return start;
  }
  start.ref = tree.aligned[start.node].child[start.lane];
  start.box = tree.aligned[start.node].lanes.get_lane(start.lane);
  return start;
}
