#include "gas/bvh/bvh_statistics.h"

#include <algorithm>
#include <vector>

#include "gas/bvh/bvh_visit.h"

BvhStatistics bvh_compute_statistics(const GasBvh<4>& tree) {
  BvhStatistics out;
  out.aligned_nodes = tree.aligned_count;
  out.quantized_nodes = tree.quantized_count;
  out.oriented_nodes = tree.oriented_count;
  if (tree.is_empty()) return out;
  std::vector<BvhVisit> stack{bvh_get_root(tree)};
  const double root_area = stack.front().get_half_area();
  const auto get_chance = [&](const BvhVisit& at) { return root_area > 0.0 ? at.get_half_area() / root_area : 1.0; };
  u64 children = 0;
  while (!stack.empty()) {
    const BvhVisit at = stack.back();
    stack.pop_back();
    if (at.ref.is_leaf()) {
      ++out.leaves;
      out.items += at.ref.get_count();
      out.largest_leaf = std::max(out.largest_leaf, at.ref.get_count());
      out.surface_area_cost += get_chance(at) * at.ref.get_count();
      continue;
    }
    out.depth = std::max(out.depth, at.depth + 1);
    out.surface_area_cost += get_chance(at);
    children += at.ref.get_count();
    for (uint lane = 0; lane < at.ref.get_count(); ++lane) stack.push_back(bvh_get_child(tree, at, lane));
  }
  const u64 nodes = u64{out.aligned_nodes} + out.quantized_nodes + out.oriented_nodes;
  if (nodes > 0) out.children_per_node = static_cast<double>(children) / static_cast<double>(nodes);
  return out;
}
