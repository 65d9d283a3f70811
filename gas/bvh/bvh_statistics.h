// gas/bvh/bvh_statistics.h
//
// Statistics of a built tree: for reports, for tests, and to compare split strategies.
#pragma once
#include "gas/bvh/gas_bvh.h"
#include "vq_core/core_export.h"

struct BvhStatistics {
  uint aligned_nodes = 0, quantized_nodes = 0, oriented_nodes = 0;
  uint leaves = 0;
  uint items = 0;         ///< in all leaves together
  uint largest_leaf = 0;  ///< in items
  uint depth = 0;         ///< inner nodes on the longest path
  double children_per_node = 0.0;
  /// Surface-area cost (MacDonald, Booth 1990): expected node tests plus expected item tests of a random ray that hits
  /// the root box, a node test and an item test counting 1 each.
  double surface_area_cost = 0.0;
};

/// Visits the whole tree. Cost: O(nodes + items).
VQ_EXPORT BvhStatistics bvh_compute_statistics(const GasBvh<4>& tree);
