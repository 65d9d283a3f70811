// host/vq_geometry/poly_mesh_corner_index.h
//
// A k-d tree over 2D points, some of which are active. It finds an active point in a triangle. A complete binary tree
// of leaves with about eight points each; node n has the children 2n and 2n + 1, the root is node 1.
#pragma once
#include <algorithm>
#include <vector>

#include "vq_gmath/gmath_vec.h"

/// One thread at a time. Keeps its memory from build to build.
class PolyMeshCornerIndex {
 public:
  using Point = GMathVec2<double>;

  /// Replaces the points; none is active. They must be finite. O(n log n).
  void build(const std::vector<Point>& points);
  /// O(log n).
  void set_active(u32 point, bool active);
  /// True if test(point) is true for an active point in the counter-clockwise triangle. Calls `test`, until it returns
  /// true, for all active points inside by the computed signs of (b - a) x (p - a), and for some others in the box.
  /// Thin triangles far across the points cost O(sqrt n), small ones O(log n).
  template <class Test>
  bool find(const Point& a, const Point& b, const Point& c, const Test& test) const;

 private:
  static constexpr u32 leaf_size = 8;

  struct Node {
    Point min, max;
    u32 active = 0;
  };
  struct Triangle;

  /// Position of the leaf's first point.
  u32 get_begin(u32 leaf) const { return static_cast<u32>(u64{leaf} * order_.size() / leaf_count_); }
  /// The leaf that contains a position: the last that begins at or before it.
  u32 get_leaf(u32 position) const { return static_cast<u32>(((u64{position} + 1) * leaf_count_ - 1) / order_.size()); }
  void split(const std::vector<Point>& points, u32 node, u32 first_leaf, u32 leaves);

  std::vector<u32> order_;     // point numbers, leaf by leaf; the index here is the point's position
  std::vector<Point> points_;  // by position
  std::vector<u8> active_;     // by position
  std::vector<u32> position_;  // by point
  std::vector<Node> nodes_;
  u32 leaf_count_ = 1;
};

struct PolyMeshCornerIndex::Triangle {
  Point corner[3];
  Point min, max;

  Triangle(const Point& a, const Point& b, const Point& c)
      : corner{a, b, c},
        min{std::min({a.x, b.x, c.x}), std::min({a.y, b.y, c.y})},
        max{std::max({a.x, b.x, c.x}), std::max({a.y, b.y, c.y})} {}

  bool is_in_box(const Point& point) const {
    return point.x >= min.x && point.x <= max.x && point.y >= min.y && point.y <= max.y;
  }
  /// True only if no point of the node's box is in the triangle. Rounding is monotone: the value computed for the
  /// outermost corner of the box is not below that of any point of the box.
  bool surely_misses(const Node& node) const {
    if (node.max.x < min.x || node.min.x > max.x || node.max.y < min.y || node.min.y > max.y) return true;
    for (uint k = 0; k < 3; ++k) {
      const Point& from = corner[k];
      const double x = corner[k == 2 ? 0 : k + 1].x - from.x, y = corner[k == 2 ? 0 : k + 1].y - from.y;
      if (x * ((x > 0.0 ? node.max.y : node.min.y) - from.y) - y * ((y > 0.0 ? node.min.x : node.max.x) - from.x) < 0.0)
        return true;
    }
    return false;
  }
};

template <class Test>
bool PolyMeshCornerIndex::find(const Point& a, const Point& b, const Point& c, const Test& test) const {
  const Triangle triangle(a, b, c);
  u32 stack[33] = {1};  // one node per level, and the last two
  for (u32 count = 1; count > 0;) {
    const u32 at = stack[--count];
    if (nodes_[at].active == 0 || triangle.surely_misses(nodes_[at])) continue;
    if (at < leaf_count_) {
      stack[count++] = 2 * at + 1;
      stack[count++] = 2 * at;
      continue;
    }
    const u32 leaf = at - leaf_count_;
    for (u32 position = get_begin(leaf); position < get_begin(leaf + 1); ++position)
      if (active_[position] != 0 && triangle.is_in_box(points_[position]) && test(order_[position])) return true;
  }
  return false;
}
