#include "tools/vqgas/report/tree_measure.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "tools/vqgas/support/interrupt.h"

u64 TreeLevel::get_node_count() const { return std::accumulate(std::begin(nodes), std::end(nodes), u64{0}); }

namespace {

/// The share of `box` that is inside `other`. An axis along which `box` is flat counts as a whole.
double get_aligned_share(const GMathBbox3<float>& box, const GMathBbox3<float>& other) {
  double share = 1.0;
  for (uint axis = 0; axis < 3; ++axis) {
    const double extent = double{box.max[axis]} - box.min[axis];
    const double common = double{std::min(box.max[axis], other.max[axis])} - std::max(box.min[axis], other.min[axis]);
    if (!(common >= 0.0)) return 0.0;
    if (extent > 0.0) share *= std::min(common / extent, 1.0);
  }
  return share;
}

/// The same for boxes of any direction, by 4 x 4 x 4 points spread evenly in `box`.
double get_oriented_share(const BvhVisit& box, const BvhVisit& other) {
  constexpr uint side = 4;
  const GMathVec3<double> normals[3] = {other.edges[1].cross(other.edges[2]), other.edges[2].cross(other.edges[0]),
                                        other.edges[0].cross(other.edges[1])};
  const double volume = other.edges[0].dot(normals[0]);
  if (!(std::fabs(volume) > 0.0)) return 0.0;
  uint inside = 0;
  for (uint k = 0; k < side * side * side; ++k) {
    const auto at = [](uint step) { return (step + 0.5) / side; };
    const GMathVec3<double> point = box.origin + box.edges[0] * at(k % side) + box.edges[1] * at(k / side % side) +
                                    box.edges[2] * at(k / side / side) - other.origin;
    bool is_inside = true;
    for (const GMathVec3<double>& normal : normals) {
      const double u = point.dot(normal) / volume;
      is_inside = is_inside && u >= 0.0 && u <= 1.0;
    }
    inside += is_inside ? 1 : 0;
  }
  return static_cast<double>(inside) / (side * side * side);
}

/// The sum over its siblings of the share of a child's box that is inside theirs.
double get_overlap(const TreeNode (&children)[4], uint count, uint child) {
  double sum = 0.0;
  for (uint other = 0; other < count; ++other) {
    if (other == child) continue;
    const BvhVisit &a = children[child].place, &b = children[other].place;
    sum += a.is_oriented || b.is_oriented ? get_oriented_share(a, b) : get_aligned_share(a.box, b.box);
  }
  return sum;
}

void check_interrupt(u64& visits) {
  if (++visits % 65536 == 0) throw_if_interrupted();
}

class TreeMeter {
 public:
  TreeMeter(const TreeSource& tree, TreeMeasures& measures) : tree_(tree), measures_(measures) {}

  void visit(const TreeNode& node) {
    check_interrupt(visits_);
    if (node.place.depth == 0) root_area_ = node.place.get_half_area();
    if (measures_.levels.size() <= node.place.depth) measures_.levels.resize(node.place.depth + 1);
    TreeNode children[4];
    const uint count = tree_.get_children(node, children);
    TreeLevel& level = measures_.levels[node.place.depth];
    ++level.nodes[static_cast<uint>(node.kind)];
    level.items += node.item_count;
    const double chance = root_area_ > 0.0 ? node.place.get_half_area() / root_area_ : 1.0;
    level.cost += node.kind == TreeNodeKind::leaf ? chance * node.item_count : chance;
    if (node.kind == TreeNodeKind::leaf) ++measures_.leaf_sizes[node.item_count];
    if (node.cluster != core_invalid_index) measures_.cluster_items[node.cluster] += node.item_count;
    for (uint k = 0; k < node.item_count; ++k) measures_.items.push_back(tree_.get_item(node, k));
    for (uint child = 0; child < count; ++child) visit(children[child]);
    TreeLevel* below = count > 1 ? &measures_.levels[node.place.depth + 1] : nullptr;  // `level` may have moved
    for (uint child = 0; below != nullptr && child < count; ++child) {
      below->overlap += get_overlap(children, count, child);
      ++below->overlap_boxes;
    }
  }

 private:
  const TreeSource& tree_;
  TreeMeasures& measures_;
  double root_area_ = 0.0;
  u64 visits_ = 0;
};

class NodeCollector {
 public:
  NodeCollector(const TreeSource& tree, uint level_count) : tree_(tree), levels_(level_count) {}

  /// Returns the number of items below the node.
  u64 visit(const TreeNode& node, double overlap) {
    check_interrupt(visits_);
    TreeNode children[4];
    const uint count = tree_.get_children(node, children);
    const uint depth = node.place.depth;
    u64 items = node.item_count;
    if (depth >= levels_.size()) {
      for (uint child = 0; child < count; ++child) items += visit(children[child], 0.0);
      return items;
    }
    const bool is_cut = depth + 1 == levels_.size() && count > 0;
    PageNodes& level = levels_[depth];
    const std::size_t place = level.kinds.size();
    level.kinds.push_back(static_cast<u8>(static_cast<uint>(node.kind) | (is_cut ? 0 : count) << 3 |
                                          (is_cut ? PageNodes::cut_bit : 0u) |
                                          (node.place.is_oriented ? PageNodes::oriented_bit : 0u)));
    add_box(node.place, level);
    level.overlaps.push_back(static_cast<u16>(std::min(std::lround(overlap * PageNodes::overlap_unit), 65535l)));
    level.clusters.push_back(node.cluster < 65535 ? static_cast<u16>(node.cluster + 1) : u16{0});
    level.items.push_back(0);
    for (uint child = 0; child < count; ++child)
      items += visit(children[child], is_cut ? 0.0 : get_overlap(children, count, child));
    level.items[place] = static_cast<u32>(items);
    return items;
  }

  PageNodes join() const {
    PageNodes all;
    for (const PageNodes& level : levels_) {
      const auto append = [](auto& to, const auto& from) { to.insert(to.end(), from.begin(), from.end()); };
      append(all.kinds, level.kinds);
      append(all.boxes, level.boxes);
      append(all.frames, level.frames);
      append(all.items, level.items);
      append(all.overlaps, level.overlaps);
      append(all.clusters, level.clusters);
    }
    return all;
  }

 private:
  static void add_box(const BvhVisit& place, PageNodes& level) {
    GMathBbox3<float> box = place.box;
    if (place.is_oriented) {
      GMathBbox3<double> around;
      for (uint corner = 0; corner < 8; ++corner) {
        GMathVec3<double> point = place.origin;
        for (uint axis = 0; axis < 3; ++axis)
          if (corner >> axis & 1) point = point + place.edges[axis];
        around.add(point);
      }
      box = gmath_round_outwards(around);
      for (const GMathVec3<double>& v : {place.origin, place.edges[0], place.edges[1], place.edges[2]})
        for (uint axis = 0; axis < 3; ++axis) level.frames.push_back(static_cast<float>(v[axis]));
    }
    for (const GMathVec3<float>& corner : {box.min, box.max})
      for (uint axis = 0; axis < 3; ++axis) level.boxes.push_back(corner[axis]);
  }

  const TreeSource& tree_;
  std::vector<PageNodes> levels_;
  u64 visits_ = 0;
};

}  // namespace

TreeMeasures measure_tree(const TreeSource& tree) {
  TreeMeasures measures;
  measures.cluster_items.resize(tree.get_cluster_count());
  TreeMeter(tree, measures).visit(tree.get_root());
  return measures;
}

PageNodes collect_nodes(const TreeSource& tree, uint level_count) {
  NodeCollector collector(tree, level_count);
  collector.visit(tree.get_root(), 0.0);
  return collector.join();
}
