#include "gas/structure/gas_cluster_table.h"

#include <algorithm>

#include "gas/frame/gas_guard.h"

void GasClusterTable::gather(const Lists& lists) {
  uint accepted_count = 0;
  u64 leaf_count = 0;
  for (const CoreVector<void*>& list : lists) {
    accepted_count += list.get_count() > 0 ? 1 : 0;
    leaf_count += list.get_count();
  }
  gas_need(leaf_count < core_invalid_index);
  const uint leaves = static_cast<uint>(leaf_count);
  gas_need(indices.resize(accepted_count) && counts.resize(accepted_count) && first_leaves.resize(accepted_count) &&
           clusters.resize(leaves));
  uint accepted = 0, leaf = 0;
  for (uint instance = 0; instance < lists.get_count(); ++instance) {
    if (lists[instance].get_count() == 0) continue;
    indices[accepted] = instance;
    counts[accepted] = lists[instance].get_count();
    first_leaves[accepted] = leaf;
    for (void* cluster : lists[instance]) clusters[leaf++] = cluster;
    ++accepted;
  }
}

void GasClusterTable::clear() {
  indices.remove_all();
  counts.remove_all();
  first_leaves.remove_all();
  clusters.remove_all();
}

bool GasClusterTable::is_whole_copy_of(const GasClusterTable& other) const {
  return indices.get_count() == other.indices.get_count() && counts.get_count() == other.counts.get_count() &&
         first_leaves.get_count() == other.first_leaves.get_count() &&
         clusters.get_count() == other.clusters.get_count();
}

u64 GasClusterTable::get_array_bytes() const {
  return u64{indices.get_count()} * 3 * sizeof(uint) + u64{clusters.get_count()} * sizeof(void*);
}

uint GasClusterTable::get_cluster_count(uint instance) const {
  const uint* found = std::lower_bound(indices.begin(), indices.end(), instance);
  return found != indices.end() && *found == instance ? counts[static_cast<uint>(found - indices.begin())] : 0;
}
