#include "vq_geometry/poly_mesh_corner_index.h"

#include <limits>
#include <numeric>

void PolyMeshCornerIndex::build(const std::vector<Point>& points) {
  const u32 count = static_cast<u32>(points.size());
  leaf_count_ = 1;
  while (leaf_count_ * leaf_size < count) leaf_count_ *= 2;
  order_.resize(count);
  std::iota(order_.begin(), order_.end(), 0u);
  nodes_.assign(std::size_t{2} * leaf_count_, Node());
  split(points, 1, 0, leaf_count_);
  active_.assign(count, 0);
  points_.resize(count);
  position_.resize(count);
  for (u32 position = 0; position < count; ++position) {
    points_[position] = points[order_[position]];
    position_[order_[position]] = position;
  }
}

/// Orders the points of the node's leaves and measures its box.
void PolyMeshCornerIndex::split(const std::vector<Point>& points, u32 node, u32 first_leaf, u32 leaves) {
  constexpr double largest = std::numeric_limits<double>::max();
  const auto begin = order_.begin() + get_begin(first_leaf), end = order_.begin() + get_begin(first_leaf + leaves);
  Point low{largest, largest}, high{-largest, -largest};
  for (auto at = begin; at != end; ++at) {
    const Point& point = points[*at];
    low = {std::min(low.x, point.x), std::min(low.y, point.y)};
    high = {std::max(high.x, point.x), std::max(high.y, point.y)};
  }
  nodes_[node].min = low;
  nodes_[node].max = high;
  if (leaves == 1) return;
  const u32 half = leaves / 2;
  const auto middle = order_.begin() + get_begin(first_leaf + half);
  if (high.x - low.x > high.y - low.y)
    std::nth_element(begin, middle, end, [&](u32 a, u32 b) { return points[a].x < points[b].x; });
  else
    std::nth_element(begin, middle, end, [&](u32 a, u32 b) { return points[a].y < points[b].y; });
  split(points, 2 * node, first_leaf, half);
  split(points, 2 * node + 1, first_leaf + half, half);
}

void PolyMeshCornerIndex::set_active(u32 point, bool active) {
  const u32 position = position_[point];
  if ((active_[position] != 0) == active) return;
  active_[position] = active;
  for (u32 node = leaf_count_ + get_leaf(position); node > 0; node /= 2) nodes_[node].active += active ? 1 : -1;
}
