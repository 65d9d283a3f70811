// host/vq_gas_base/gas_binary_tree.h
//
// A binary tree of boxes: what GasTree, GasGridTree and the parts of a grid have in common. It knows boxes and item
// numbers, never what an item is.
//
//   GasBinaryNode   64 B, aligned to 64
//     0   boxes     three rows x, y, z of four floats: minimum of child 0, of child 1, maximum of child 0, of child 1
//     48  child[2]  a node, or a leaf: a range of the order that build() made
//
// A node has two children. Nodes are stored depth first: node k's left child, when it is a node, is node k + 1. The
// root may be a leaf; an empty tree has a root of no items. No path is longer than most_depth nodes, so that a
// traversal needs a fixed stack.
//
// Built by gas_binary_tree_build.cpp with the surface area heuristic, or by gas_binary_tree_codes.cpp along a
// space-filling curve. Walked by gas_binary_walk.h.
#pragma once
#include "vq_core/core_array.h"
#include "vq_core/core_export.h"
#include "vq_core/core_memory.h"
#include "vq_gmath/gmath_bbox.h"

class AppBase;
class AppProgressBar;

/// A child of a node. A leaf holds items [index, index + count) of the order.
struct GasBinaryRef {
  static constexpr u32 node_flag = 0x80000000u;
  u32 index = 0;
  u32 count = 0;  ///< items; with node_flag: of a subtree, and `index` is its node
  bool is_leaf() const { return (count & node_flag) == 0; }
  u32 get_item_count() const { return count & ~node_flag; }
};

/// The boxes of both children of a node.
struct GasBinaryPlanes {
  float planes[3][4];

  GMathBbox3<float> get_box(uint lane) const {
    return {{planes[0][lane], planes[1][lane], planes[2][lane]},
            {planes[0][lane + 2], planes[1][lane + 2], planes[2][lane + 2]}};
  }
  void set_box(uint lane, const GMathBbox3<float>& box) {
    for (uint axis = 0; axis < 3; ++axis) {
      planes[axis][lane] = box.min[axis];
      planes[axis][lane + 2] = box.max[axis];
    }
  }
};

struct alignas(64) GasBinaryNode {
  GasBinaryPlanes boxes;
  GasBinaryRef child[2];
};
static_assert(sizeof(GasBinaryNode) == 64);

/// Boxes of all nodes at one motion sample; the topology is the static tree's.
struct GasBinarySample {
  CoreAlignedArray<GasBinaryPlanes> planes;  ///< [node]
  GMathBbox3<float> box;                     ///< of the root
};

/// The root or a child, and where it is stored: where a query starts.
struct GasBinaryPlace {
  static constexpr u32 root = 0xFFFFFFFFu, nowhere = 0xFFFFFFFEu;
  GasBinaryRef ref;
  u32 slot = nowhere;  ///< 2 x node + lane in the parent; or one of the two
  bool exists() const { return slot != nowhere; }
};

class VQ_EXPORT GasBinaryTree {
 public:
  static constexpr uint most_depth = 64;

  GasBinaryTree() = default;
  GasBinaryTree(GasBinaryTree&&) = default;
  GasBinaryTree& operator=(GasBinaryTree&&) = default;

  /// What build() works on.
  struct Input {
    const GMathBbox3<float>* boxes = nullptr;  ///< indexed by item; NaN and infinite bounds are allowed
    uint* order = nullptr;                     ///< [count] items; permuted
    uint count = 0;
    uint most_leaf = 1;            ///< largest number of items in a leaf; 1: exactly one
    const AppBase* app = nullptr;  ///< lends its threads, and is checked for stop requests; null: this thread only
    AppProgressBar* progress = nullptr;  ///< one step per item; or null
    bool on_this_thread = false;         ///< without the threads of `app`
    bool fills_leaves = false;           ///< sets of at most most_leaf items are not divided, whatever that would save
  };
  /// Replaces the tree. The tree depends on boxes and order only, never on the number of threads. Throws
  /// std::bad_alloc, and AppStopped after a stop request; the tree is then empty. O(n log n).
  void build(const Input& input);
  /// The same for points and other items without a surface worth weighing: ranges of the Morton order of their centers,
  /// divided where the highest differing bit of their codes changes (Lauterbach et al. 2009, "Fast BVH Construction on
  /// GPUs"). Several times faster than build(), on this thread alone, O(n).
  /// @return the boxes in the order of the tree
  CoreAlignedArray<GMathBbox3<float>> build_by_codes(const Input& input);
  void clear() { *this = GasBinaryTree(); }
  /// A deep copy. Throws std::bad_alloc; this tree is then empty.
  void copy(const GasBinaryTree& other);

  bool is_empty() const { return root_.count == 0 && node_count_ == 0; }
  uint get_node_count() const { return node_count_; }
  const GasBinaryNode& get_node(uint index) const { return nodes_[index]; }
  const GasBinaryNode* get_nodes() const { return nodes_.get(); }
  /// Inverted (+FLT_MAX, -FLT_MAX) for an empty tree.
  const GMathBbox3<float>& get_bbox() const { return box_; }
  /// Does not exist in an empty tree.
  GasBinaryPlace get_root() const { return {root_, is_empty() ? GasBinaryPlace::nowhere : GasBinaryPlace::root}; }
  /// Bytes of the node array.
  u64 get_memory_size() const { return nodes_.get_bytes(); }

  /// Replaces each leaf's position in the order by the item there. For trees with one item a leaf, which need no order
  /// array then.
  void name_items(const uint* order);

  /// Computes the boxes of all nodes from the boxes of the items, bottom-up. Throws std::bad_alloc; the sample is then
  /// unchanged.
  /// @param item_boxes  indexed by position in the order (after name_items(): by item)
  void refit(const GMathBbox3<float>* item_boxes, GasBinarySample& sample) const;

  // Clusters: subtrees that hold everything once. A handle has 0x47 in its top byte and a place in its low 32 bits (0:
  // the root, else 1 + 2 x node + lane), so that it is valid in a copy and in a tree built again from the same boxes.

  /// Appends up to `count` handles: subtrees are divided, the one with the largest surface first, while their
  /// children fill less than (1 - ratio) of them. One null handle for a count of 0 or 1 or a root that is not divided;
  /// none for an empty tree. Throws std::bad_alloc.
  void get_clusters(uint count, float ratio, CoreVector<void*>& clusters) const;
  /// Where a query that is restricted to a cluster starts. The root for 0. A place that does not exist for a handle
  /// that is not one of this tree.
  GasBinaryPlace find_cluster(u64 handle) const;
  /// The box of a place; inverted for one that does not exist.
  /// @param sample  a motion sample of this tree, or null: static
  GMathBbox3<float> get_box(const GasBinaryPlace& place, const GasBinarySample* sample = nullptr) const;

 private:
  friend class GasBinaryBuild;
  friend class GasCodeBuild;
  bool is_worth_dividing(const GasBinaryPlace& place, float ratio) const;

  CoreAlignedArray<GasBinaryNode> nodes_;
  uint node_count_ = 0;
  GasBinaryRef root_;
  GMathBbox3<float> box_;
};
