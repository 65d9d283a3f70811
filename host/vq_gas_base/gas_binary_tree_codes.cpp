// Building along the Morton curve. The centers of a range are numbered by the cells of a grid over it, in the order of
// the curve, and sorted by these codes. A range is divided at the highest bit in which its codes differ. A cell that
// still holds too many gets a grid of its own, so that dense clusters are resolved as well as the rest.
#include <algorithm>
#include <bit>
#include <cmath>
#include <new>
#include <utility>
#include <vector>

#include "vq_app_base/app_base.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_gas_base/gas_binary_tree.h"

namespace {

constexpr uint bits_per_axis = 10;

/// Two zero bits behind each of the lowest ten.
u32 spread_bits(u32 x) {
  x = (x | x << 16) & 0x030000FFu;
  x = (x | x << 8) & 0x0300F00Fu;
  x = (x | x << 4) & 0x030C30C3u;
  return (x | x << 2) & 0x09249249u;
}

/// Halved first: the sum of two large bounds may be infinite.
GMathVec3<float> get_center(const GMathBbox3<float>& box) { return box.min * 0.5f + box.max * 0.5f; }

/// Cubic cells over a box of centers.
class CodeGrid {
 public:
  explicit CodeGrid(const GMathBbox3<float>& centers) : origin_(centers.min) {
    double largest = 0.0;
    for (uint axis = 0; axis < 3; ++axis)
      largest = std::max(largest, double(centers.max[axis]) - double(centers.min[axis]));
    if (largest > 0.0) scale_ = (1u << bits_per_axis) / largest;
  }
  u32 get_code(const GMathVec3<float>& center) const {
    u32 code = 0;
    for (uint axis = 0; axis < 3; ++axis) {
      constexpr double last = (1u << bits_per_axis) - 1;
      const double place = (double(center[axis]) - double(origin_[axis])) * scale_;
      // Also false for NaN: the center of an infinite box goes to the first cell.
      const u32 cell = place > 0.0 ? static_cast<u32>(std::min(place, last)) : 0;
      code |= spread_bits(cell) << axis;
    }
    return code;
  }

 private:
  GMathVec3<float> origin_;
  double scale_ = 0.0;
};

}  // namespace

class GasCodeBuild {
 public:
  explicit GasCodeBuild(const GasBinaryTree::Input& input)
      : input_(input), items_(input.count), spare_(input.count), boxes_(input.count) {
    if (!items_ || !spare_ || !boxes_) throw std::bad_alloc();
    for (uint k = 0; k < input.count; ++k) items_[k] = input.order[k];
  }

  void run(GasBinaryTree& tree) {
    constexpr uint usual_leaf = 4;  // items: the array seldom has to grow
    nodes_.reserve(input_.count / usual_leaf);
    encode(0, input_.count);
    tree.box_ = build(0, input_.count, 0, tree.root_);
    for (uint k = 0; k < input_.count; ++k) input_.order[k] = get_item(k);
    tree.nodes_ = CoreAlignedArray<GasBinaryNode>(nodes_.size(), alignof(GasBinaryNode));
    if (!tree.nodes_ && !nodes_.empty()) throw std::bad_alloc();
    std::copy(nodes_.begin(), nodes_.end(), tree.nodes_.begin());
    tree.node_count_ = static_cast<uint>(nodes_.size());
    if (input_.progress != nullptr) input_.progress->step(input_.count);
  }

  CoreAlignedArray<GMathBbox3<float>> take_boxes() { return std::move(boxes_); }

 private:
  uint get_item(uint k) const { return static_cast<uint>(items_[k]); }
  u32 get_code(uint k) const { return static_cast<u32>(items_[k] >> 32); }

  void check_stop(uint k) const {
    constexpr uint interval = 65536;
    if (input_.app != nullptr && k % interval == 0) input_.app->check_stop();
  }

  /// Sorts a range by codes of its own grid. Equal codes stand in the order of their items.
  void encode(uint first, uint end) {
    GMathBbox3<float> centers;
    for (uint k = first; k < end; ++k) {
      check_stop(k - first);
      const GMathVec3<float> center = get_center(input_.boxes[get_item(k)]);
      if (std::isfinite(center.x + center.y + center.z)) centers.add(center);
    }
    const CodeGrid grid(centers);
    for (uint k = first; k < end; ++k) {
      check_stop(k - first);
      const uint item = get_item(k);
      items_[k] = u64{grid.get_code(get_center(input_.boxes[item]))} << 32 | item;
    }
    constexpr uint radix_from = 2048;  // items
    if (end - first < radix_from) {
      std::sort(items_.get() + first, items_.get() + end);
    } else {
      sort_by_digits(first, end);
    }
    for (uint k = first; k < end; ++k) boxes_[k] = input_.boxes[get_item(k)];
  }

  /// By ten bits at a time, the lowest first. Each pass keeps the order of equal digits: at first that of the items.
  void sort_by_digits(uint first, uint end) {
    constexpr uint digits = 1u << bits_per_axis, passes = 3;
    const auto get_digit = [](u64 item, uint pass) {
      return static_cast<uint>(item >> (32 + pass * bits_per_axis)) & (digits - 1);
    };
    uint starts[passes][digits] = {};
    for (uint k = first; k < end; ++k) {
      for (uint pass = 0; pass < passes; ++pass) ++starts[pass][get_digit(items_[k], pass)];
    }
    u64 *from = items_.get(), *to = spare_.get();
    for (uint pass = 0; pass < passes; ++pass) {
      uint next = first;
      for (uint& start : starts[pass]) next += std::exchange(start, next);
      for (uint k = first; k < end; ++k) {
        check_stop(k - first);
        to[starts[pass][get_digit(from[k], pass)]++] = from[k];
      }
      std::swap(from, to);
    }
    std::copy(from + first, from + end, items_.get() + first);  // an odd number of passes
  }

  /// Where a range is divided: at the highest bit in which its codes differ. Where all are equal the range gets new
  /// codes. It is halved when that does not help, and far down, which ends after 32 levels whatever the number of
  /// items.
  /// @param depth  of the range; raised to where halving begins when all of its centers are the same
  uint find_split(uint first, uint end, uint& depth) {
    constexpr uint halved_from = GasBinaryTree::most_depth - 32;
    const uint middle = first + (end - first) / 2;
    if (depth >= halved_from) return middle;
    if (get_code(first) == get_code(end - 1)) encode(first, end);
    const u32 differing = get_code(first) ^ get_code(end - 1);
    if (differing == 0) {
      depth = halved_from;
      return middle;
    }
    const u64 bit = u64{std::bit_floor(differing)} << 32;
    const u64* split =
        std::partition_point(items_.get() + first, items_.get() + end, [&](u64 item) { return (item & bit) == 0; });
    return static_cast<uint>(split - items_.get());
  }

  /// Builds the subtree of a range and returns its box.
  GMathBbox3<float> build(uint first, uint end, uint depth, GasBinaryRef& ref) {
    GMathBbox3<float> box;
    if (end - first <= input_.most_leaf) {
      ref = {first, end - first};
      for (uint k = first; k < end; ++k) box.add(boxes_[k]);
      return box;
    }
    const uint index = static_cast<uint>(nodes_.size());
    check_stop(index);
    nodes_.emplace_back();
    const uint split = find_split(first, end, depth);
    const uint bounds[3] = {first, split, end};
    for (uint lane = 0; lane < 2; ++lane) {
      GasBinaryRef child;
      const GMathBbox3<float> half = build(bounds[lane], bounds[lane + 1], depth + 1, child);
      nodes_[index].boxes.set_box(lane, half);
      nodes_[index].child[lane] = child;
      box.add(half);
    }
    ref = {index, (end - first) | GasBinaryRef::node_flag};
    return box;
  }

  const GasBinaryTree::Input& input_;
  CoreAlignedArray<u64> items_;  ///< code above, item below: in the order of the tree, once sorted
  CoreAlignedArray<u64> spare_;
  CoreAlignedArray<GMathBbox3<float>> boxes_;  ///< in the order of `items_`: gathering them all at once is faster
  std::vector<GasBinaryNode> nodes_;
};

CoreAlignedArray<GMathBbox3<float>> GasBinaryTree::build_by_codes(const Input& input) {
  clear();
  if (input.count == 0) return {};
  GasBinaryTree tree;
  GasCodeBuild build(input);
  build.run(tree);
  *this = std::move(tree);
  return build.take_boxes();
}
