#include "gas/bvh/bvh_statistics.h"

#include <algorithm>
#include <vector>

#include "gas/bvh/bvh_oriented.h"
#include "gas/bvh/bvh_quantize.h"

namespace {

struct Entry {
  BvhChildRef ref;
  GMathBbox3<float> box;  ///< below an oriented node: the box of the last node above that has one
  double area;            ///< half the surface of its own box
  uint depth;
};

double get_area(const GMathBbox3<float>& box) { return GMathBbox3<double>(box).get_half_area(); }

double get_lane_area(const BvhNodeOriented& node, uint lane) {
  GMathVec3<double> edges[3];
  bvh_get_lane_edges(node, lane, edges);
  return edges[0].cross(edges[1]).get_length() + edges[1].cross(edges[2]).get_length() +
         edges[2].cross(edges[0]).get_length();
}

Entry get_child(const GasBvh<4>& tree, const Entry& parent, uint lane) {
  const u32 index = parent.ref.index;
  const uint depth = parent.depth + 1;
  GMathBbox3<float> box;
  switch (parent.ref.get_kind()) {
    case BvhKind::aligned:
      box = tree.aligned[index].lanes.get_lane(lane);
      return {tree.aligned[index].child[lane], box, get_area(box), depth};
    case BvhKind::quantized:
      box = bvh_decode_lane(parent.box, tree.quantized[index].lanes.planes, lane);
      return {tree.quantized[index].get_child(lane), box, get_area(box), depth};
    default:
      return {tree.oriented[index].child[lane], parent.box, get_lane_area(tree.oriented[index], lane), depth};
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
  const auto get_chance = [&](const Entry& at) { return root_area > 0.0 ? at.area / root_area : 1.0; };
  std::vector<Entry> stack{{tree.root, tree.box, root_area, 0}};
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
