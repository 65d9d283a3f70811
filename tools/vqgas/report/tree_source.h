// tools/vqgas/report/tree_source.h
//
// The trees of all structures, read in one way: a root, the children of a node, the items of a leaf.
//
//   WideTree   GasBvh<4> of a mesh, hair, scene, group or bundle
//   GridTree   GasGridTree of a mesh or a cloud: the tree over the parts, continued by the trees of the parts
#pragma once
#include <string>
#include <unordered_map>

#include "gas/bvh/bvh_visit.h"
#include "vq_gas_base/gas_grid_tree.h"

enum class TreeNodeKind : u8 {
  aligned,
  quantized,
  oriented,
  leaf,
  binary,   ///< of a grid
  unbuilt,  ///< part of a grid that no query has reached
};
inline constexpr uint tree_node_kinds = 6;

struct TreeNode {
  TreeNodeKind kind = TreeNodeKind::leaf;
  BvhVisit place;                     ///< depth and box; `ref` only in wide trees
  uint item_count = 0;                ///< of a leaf or an unbuilt part
  uint cluster = core_invalid_index;  ///< number of the cluster it is in; none above the clusters
  // In grids.
  GasBinaryRef ref;
  uint part = core_invalid_index;  ///< none: in the tree over the parts
};

class TreeSource {
 public:
  virtual ~TreeSource() = default;
  /// The tree must not be empty.
  virtual TreeNode get_root() const = 0;
  /// Writes the children in the order of their lanes and returns their number: 0 for a leaf.
  virtual uint get_children(const TreeNode& node, TreeNode (&children)[4]) const = 0;
  /// Item `k` of a leaf or an unbuilt part: what the tree is built over.
  virtual uint get_item(const TreeNode& leaf, uint k) const = 0;

  /// Numbers the clusters. Later nodes know theirs.
  void set_clusters(const CoreVector<void*>& handles);
  uint get_cluster_count() const { return cluster_count_; }

 protected:
  /// Key of a handle in `clusters_`; whole_tree for a null handle.
  virtual u64 get_cluster_key(void* handle) const = 0;
  static constexpr u64 whole_tree = ~u64{0};
  uint find_cluster(uint of_parent, u64 key) const;

 private:
  std::unordered_map<u64, uint> clusters_;
  uint cluster_count_ = 0;
};

class WideTree final : public TreeSource {
 public:
  /// @param has_places  items are places in the item order, as in scenes and bundles, not what the order holds
  WideTree(const GasBvh<4>& tree, bool has_places) : tree_(tree), has_places_(has_places) {}
  TreeNode get_root() const override;
  uint get_children(const TreeNode& node, TreeNode (&children)[4]) const override;
  uint get_item(const TreeNode& leaf, uint k) const override {
    const uint place = leaf.place.ref.index + k;
    return has_places_ ? place : tree_.order[place];
  }

 private:
  u64 get_cluster_key(void* handle) const override;
  const GasBvh<4>& tree_;
  const bool has_places_;
};

class GridTree final : public TreeSource {
 public:
  explicit GridTree(const GasGridTree& grid) : grid_(grid) {}
  TreeNode get_root() const override;
  uint get_children(const TreeNode& node, TreeNode (&children)[4]) const override;
  uint get_item(const TreeNode& leaf, uint k) const override {
    const GasGridPart& part = grid_.get_part(leaf.part);
    return grid_.get_part_box(part, (leaf.kind == TreeNodeKind::unbuilt ? 0 : leaf.ref.index) + k);
  }

 private:
  u64 get_cluster_key(void* handle) const override;
  TreeNode make_node(const GasBinaryRef& ref, uint part, uint depth, const GMathBbox3<float>& box) const;
  const GasGridTree& grid_;
};
