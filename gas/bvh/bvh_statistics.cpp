#include "gas/bvh/bvh_statistics.h"

#include <algorithm>
#include <vector>

#include "gas/bvh/bvh_quantize.h"

namespace {

struct Entry {
  BvhChildRef ref;
  GMathBbox3<float> box;
  uint depth;
};

double get_area(const GMathBbox3<float>& box) { return GMathBbox3<double>(box).get_half_area(); }

Entry get_child(const GasBvh<4>& tree, const Entry& parent, uint lane) {
  const u32 index = parent.ref.index;
  switch (parent.ref.get_kind()) {
    case BvhKind::aligned:
      return {tree.aligned[index].child[lane], tree.aligned[index].lanes.get_lane(lane), parent.depth + 1};
    case BvhKind::quantized:
      return {tree.quantized[index].get_child(lane),
              bvh_decode_lane(parent.box, tree.quantized[index].lanes.planes, lane), parent.depth + 1};
    default:
      return {tree.oriented[index].child[lane], parent.box, parent.depth + 1};
  }
}

}  // namespace

BvhStatistics bvh_compute_statistics(const GasBvh<4>& tree) {
  BvhStatistics out;
  out.aligned_nodes = tree.aligned_count;
  out.quantized_nodes = tree.quantized_count;
  out.oriented_nodes = tree.oriented_count;
  if (tree.is_empty()) return out;
  const double root_area = get_area(tree.box);
  const auto get_chance = [&](const Entry& at) { return root_area > 0.0 ? get_area(at.box) / root_area : 1.0; };
  std::vector<Entry> stack{{tree.root, tree.box, 0}};
  u64 children = 0;
  while (!stack.empty()) {
    const Entry at = stack.back();
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
    for (uint lane = 0; lane < at.ref.get_count(); ++lane) stack.push_back(get_child(tree, at, lane));
  }
  const u64 nodes = u64{out.aligned_nodes} + out.quantized_nodes + out.oriented_nodes;
  if (nodes > 0) out.children_per_node = static_cast<double>(children) / static_cast<double>(nodes);
  return out;
}
