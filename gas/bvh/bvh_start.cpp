#include "gas/bvh/bvh_start.h"

BvhStart bvh_find_start(const GasBvh<4>& tree, u64 cluster) {
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
