// gas/structure/gas_cluster_table.h
//
// The leaves of a structure over other structures (a scene, a bundle): the clusters of each of its indices. An instance
// without clusters is left out; the others are accepted, in their order.
//
//   indices[a]          index of accepted instance a in the input
//   counts[a]         number of its leaves
//   first_leaves[a]   the first of them; the leaves of one instance are adjacent
//   clusters[leaf]    the handle that the instance's structure gave
//
// Leaves are in the order of the instances here; the tree has them in its own order (gas_instance_entry.h).
#pragma once
#include "vq_core/core_array.h"
#include "vq_core/core_export.h"

struct VQ_EXPORT GasClusterTable {
  /// [instance] its clusters, during the build.
  using Lists = CoreArray<CoreVector<void*>>;

  /// Replaces the table. Throws std::bad_alloc.
  void gather(const Lists& lists);
  void clear();
  /// False if a copy of `other` ran out of memory.
  bool is_whole_copy_of(const GasClusterTable& other) const;
  u64 get_array_bytes() const;

  uint get_accepted_count() const { return indices.get_count(); }
  uint get_leaf_count() const { return clusters.get_count(); }
  /// The clusters of an accepted instance.
  CoreBasicArray<void*> get_clusters(uint accepted) const {
    return CoreBasicArray<void*>::make_view(clusters.get_items() + first_leaves[accepted], counts[accepted]);
  }
  /// Number of leaves of instance `instance`; 0 if it was left out. O(log accepted instances).
  uint get_cluster_count(uint instance) const;

  CoreBasicArray<uint> indices;
  CoreBasicArray<uint> counts;
  CoreBasicArray<uint> first_leaves;
  CoreBasicArray<void*> clusters;
};
