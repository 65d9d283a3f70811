// tests/support/tree_oracle.h
//
// What a four-wide tree must look like, derived anew from its arrays: reference bits, decoding, numbering and boxes are
// all worked out here and not by the library.
#pragma once
#include <span>
#include <string>
#include <vector>

#include "gas/bvh/gas_bvh.h"
#include "support/box_scenes.h"

/// One node met on the walk.
struct OracleNode {
  enum Kind { aligned, quantized };
  Kind kind;
  u32 index;
  uint count;
  uint depth;                           ///< the root has 0
  FloatBox frame;                       ///< what the parent holds for it
  u32 parent = 0;                       ///< position in the list of visited nodes
  uint lane = 0;                        ///< of the parent
  bool may_cut = false;                 ///< an 8-bit root has no longer frame to pay for decoding, nor what is below it
  float slack[3] = {0.0f, 0.0f, 0.0f};  ///< by how much the frame may then cut the node's items
};

/// Which child a lane holds.
struct OracleChild {
  u32 index;
  u32 word;
  FloatBox box;  ///< as stored, or decoded in the node's frame
  bool is_leaf() const { return (word & 0x100) != 0; }
  uint get_count() const { return word & 0xff; }
};

OracleChild get_oracle_child(const GasBvh<4>& tree, const OracleNode& node, uint lane);

/// All nodes in the order in which a walk that takes the last waiting node first pops them. Empty for a root leaf.
std::vector<OracleNode> walk_tree(const GasBvh<4>& tree);

/// The box of each position of the order array as its leaf's lane gives it; of a root leaf, the tree's.
std::vector<FloatBox> get_leaf_boxes(const GasBvh<4>& tree);

/// The first thing that is wrong with the tree, or an empty text.
/// @param items  the ids that the tree must hold, each once
std::string find_tree_fault(const GasBvh<4>& tree, std::span<const FloatBox> boxes, std::vector<uint> items,
                            const BvhBuildParams& params);

/// What differs between two trees in any byte, or an empty text.
std::string find_tree_difference(const GasBvh<4>& a, const GasBvh<4>& b);
