// tools/vqgas/report/tree_measure.h
//
// Numbers of a whole tree by level, and its upper levels as the page holds them. The root is on level 1 here and on the
// page, index 0 of the arrays.
#pragma once
#include <map>
#include <vector>

#include "tools/vqgas/report/tree_source.h"

struct TreeLevel {
  u64 nodes[tree_node_kinds] = {};  ///< by TreeNodeKind
  u64 items = 0;                    ///< of the leaves and unbuilt parts of this level
  double cost = 0.0;                ///< share of the surface-area cost (bvh_statistics.h)
  double overlap = 0.0;             ///< sum over the boxes of this level that have siblings
  u64 overlap_boxes = 0;            ///< their number

  u64 get_node_count() const;
};

struct TreeMeasures {
  std::vector<TreeLevel> levels;
  std::map<uint, u64> leaf_sizes;  ///< number of leaves by their items; unbuilt parts are no leaves
  std::vector<u64> cluster_items;  ///< [cluster]
  std::vector<uint> items;         ///< all items, in the order of the tree
};

/// Visits the whole tree. Throws Interrupted.
TreeMeasures measure_tree(const TreeSource& tree);

/// Nodes of some levels, level by level, those of a level from left to right: the children of a node are consecutive.
struct PageNodes {
  static constexpr u8 cut_bit = 0x40;       ///< has children that the page lacks
  static constexpr u8 oriented_bit = 0x80;  ///< its own box has a frame
  std::vector<u8> kinds;      ///< bits 0-2 TreeNodeKind, 3-5 number of children on the page, then the bits
  std::vector<float> boxes;   ///< [6 node] min, max; of an oriented box around it
  std::vector<float> frames;  ///< [12 oriented box] origin, three edges
  std::vector<u32> items;     ///< below each node
  std::vector<u16> overlaps;  ///< in units of 1 / overlap_unit
  std::vector<u16> clusters;  ///< number + 1; 0: none
  static constexpr double overlap_unit = 16384.0;

  static constexpr u64 node_bytes = 1 + 24 + 4 + 2 + 2, frame_bytes = 48;
};

/// Collects the first `level_count` levels. Throws Interrupted.
PageNodes collect_nodes(const TreeSource& tree, uint level_count);
