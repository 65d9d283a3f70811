// tests/support/test_tree.h
//
// Trees for tests: built from boxes, or put together by hand.
#pragma once
#include <initializer_list>
#include <numeric>
#include <vector>

#include "gas/bvh/gas_bvh.h"
#include "support/box_scenes.h"
#include "vq_gas_base/gas_bvh_split.h"

inline BvhBuildParams make_params(uint max_leaf = 1, uint quantization_depth = 10, uint leaf_threshold = 1) {
  BvhBuildParams params;
  params.leaf_threshold = leaf_threshold;
  params.max_leaf = max_leaf;
  params.quantization_depth = quantization_depth;
  return params;
}

inline void build_tree(GasBvh<4>& tree, const std::vector<FloatBox>& boxes, const BvhBuildParams& params,
                       AppProgressBar* progress = nullptr) {
  GasBvhSplitCtx source;
  source.item_boxes = boxes.data();
  tree.build<GasBvhSplitAligned>(source, nullptr, static_cast<uint>(boxes.size()), params, progress);
}

inline GasBvh<4> make_tree(const std::vector<FloatBox>& boxes, const BvhBuildParams& params = make_params()) {
  GasBvh<4> tree;
  build_tree(tree, boxes, params);
  return tree;
}

inline std::vector<uint> make_indices(std::size_t count) {
  std::vector<uint> indices(count);
  std::iota(indices.begin(), indices.end(), 0u);
  return indices;
}

/// One aligned node with one item in each lane, in the order given.
inline GasBvh<4> make_node_by_hand(std::initializer_list<FloatBox> boxes) {
  GasBvh<4> tree;
  const uint count = static_cast<uint>(boxes.size());
  tree.allocate_items(count, false);
  tree.allocate_nodes(1, 0, 0);
  tree.box.set_empty();
  BvhNodeAligned& node = tree.aligned[0];
  for (uint lane = 0; lane < 4; ++lane) {
    const FloatBox box = lane < count ? boxes.begin()[lane] : FloatBox();
    node.lanes.set_lane(lane, box);
    node.child[lane] = lane < count ? BvhChildRef{lane, 1 | BvhChildRef::leaf_bit} : BvhChildRef{};
    tree.box.add(box);
    if (lane < count) tree.order[lane] = lane;
  }
  tree.root = {0, count};
  tree.max_depth = 1;
  tree.uniform_item_weight = 1.0f;
  return tree;
}

/// In each node the last lane is the next node, 0.76 of its size per axis (0.44 of the volume), and three small leaves
/// lie in the far corner. For a ray from the near corner they wait on the stack while it goes down to the last node.
/// With `height` 0 all is flat along z.
inline GasBvh<4> make_chain(uint depth, float height = 1.0f) {
  GasBvh<4> tree;
  tree.allocate_items(3 * depth + 1, false);
  tree.allocate_nodes(depth, 0, 0);
  float size = 1.0f;
  tree.box = {{0, 0, 0}, {1, 1, height}};
  for (uint level = 0; level < depth; ++level, size *= 0.76f) {
    BvhNodeAligned& node = tree.aligned[level];
    const float inner = size * 0.76f, corner = size * 0.99f;
    for (uint lane = 0; lane < 3; ++lane) {
      node.lanes.set_lane(lane, {{corner, corner, corner * height}, {size, size, size * height}});
      node.child[lane] = {3 * level + lane, 1 | BvhChildRef::leaf_bit};
    }
    node.lanes.set_lane(3, {{0, 0, 0}, {inner, inner, inner * height}});
    node.child[3] = level + 1 < depth ? BvhChildRef{level + 1, 4} : BvhChildRef{3 * depth, 1 | BvhChildRef::leaf_bit};
  }
  std::iota(tree.order, tree.order + tree.item_count, 0u);
  tree.root = {0, 4};
  tree.max_depth = depth;
  return tree;
}

constexpr u64 make_cluster(uint node, uint lane) { return 0xBC00'0000'0000'0000ull | u64{lane} << 32 | node; }
