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
  gas_need(items.resize(accepted_count) && counts.resize(accepted_count) && first_leaves.resize(accepted_count) &&
           clusters.resize(leaves));
  uint accepted = 0, leaf = 0;
  for (uint item = 0; item < lists.get_count(); ++item) {
    if (lists[item].get_count() == 0) continue;
    items[accepted] = item;
    counts[accepted] = lists[item].get_count();
    first_leaves[accepted] = leaf;
    for (void* cluster : lists[item]) clusters[leaf++] = cluster;
    ++accepted;
  }
}

void GasClusterTable::clear() {
  items.remove_all();
  counts.remove_all();
  first_leaves.remove_all();
  clusters.remove_all();
}

bool GasClusterTable::is_whole_copy_of(const GasClusterTable& other) const {
  return items.get_count() == other.items.get_count() && counts.get_count() == other.counts.get_count() &&
         first_leaves.get_count() == other.first_leaves.get_count() &&
         clusters.get_count() == other.clusters.get_count();
}

u64 GasClusterTable::get_array_bytes() const {
  return u64{items.get_count()} * 3 * sizeof(uint) + u64{clusters.get_count()} * sizeof(void*);
}

uint GasClusterTable::get_cluster_count(uint item) const {
  const uint* found = std::lower_bound(items.begin(), items.end(), item);
  return found != items.end() && *found == item ? counts[static_cast<uint>(found - items.begin())] : 0;
}
