#include "support/tree_oracle.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace {

float decode(float frame_min, float frame_max, u8 byte) {
  const float step = (frame_max - frame_min) * 0.003921569f;
  return frame_min + static_cast<float>(byte) * step;
}

/// How far a decoded plane may lie on the wrong side: the step of 8-bit boxes is a rounded 255th, used as it is.
float get_decode_slack(float extent) { return extent * 5e-7f + 1e-42f; }

FloatBox unite(const FloatBox& a, const FloatBox& b) {
  FloatBox box = a;
  for (uint axis = 0; axis < 3; ++axis) {
    box.min[axis] = std::min(a.min[axis], b.min[axis]);
    box.max[axis] = std::max(a.max[axis], b.max[axis]);
  }
  return box;
}

/// What an aligned node holds for an 8-bit child: a little more, because decoding falls short.
FloatBox make_frame(FloatBox box) {
  for (uint axis = 0; axis < 3; ++axis) box.max[axis] += (box.max[axis] - box.min[axis]) * 0x1p-18f;
  return box;
}

float get_area(const FloatBox& box) {
  const float x = box.max.x - box.min.x, y = box.max.y - box.min.y, z = box.max.z - box.min.z;
  return (y + z) * x + y * z;
}

/// Checks one tree; throws the first fault as a text.
class Checker {
 public:
  Checker(const GasBvh<4>& tree, std::span<const FloatBox> boxes, const BvhBuildParams& params)
      : tree_(tree),
        boxes_(boxes),
        max_leaf_(std::clamp(params.max_leaf, 1u, 255u)),
        threshold_(std::min(std::max(params.leaf_threshold, 1u), max_leaf_)),
        quantization_depth_(params.quantization_depth),
        nodes_(walk_tree(tree)),
        leaf_visits_(tree.item_count) {}

  void check_items(std::vector<uint> items) const {
    require(tree_.item_count == items.size(), "item count");
    std::vector<uint> order(tree_.order, tree_.order + tree_.item_count);
    std::sort(order.begin(), order.end());
    std::sort(items.begin(), items.end());
    require(order == items, "the order array is no permutation of the items");
  }

  void check_root_leaf() {
    require(nodes_.empty() && tree_.aligned_count + tree_.quantized_count + tree_.oriented_count == 0, "nodes");
    require(tree_.root.index == 0 && tree_.root.word == (0x100 | tree_.item_count), "root leaf");
    require(tree_.max_depth == 0, "depth of a root leaf");
    require(tree_.box == unite_items(0, tree_.item_count), "box of a root leaf");
  }

  void check_nodes() {
    uint next[2] = {0, 0}, depth = 0;
    next[nodes_[0].kind] = 1;
    require(nodes_[0].index == 0, "root is not number 0");
    for (u32 at = 0; at < nodes_.size(); ++at) {
      node_ = &nodes_[at];
      depth = std::max(depth, node_->depth + 1);
      require(node_->count >= 2 && node_->count <= 4, "child count");
      check_kind();
      for (uint lane = 0; lane < 4; ++lane) check_lane(lane, next);
    }
    require(tree_.max_depth == depth, "max_depth");
    require(next[0] == tree_.aligned_count && next[1] == tree_.quantized_count, "node counts");
    require(tree_.oriented_count == 0, "oriented nodes");
    require(std::all_of(leaf_visits_.begin(), leaf_visits_.end(), [](uint n) { return n == 1; }), "items in leaves");
  }

  /// From the last node to the first, so that children come before their parents.
  void check_boxes() {
    std::vector<FloatBox> exact(nodes_.size());
    std::vector<uint> counts(nodes_.size(), 0);
    std::vector<FloatBox> lanes(nodes_.size() * 4);
    for (u32 at = static_cast<u32>(nodes_.size()); at-- > 0;) {
      node_ = &nodes_[at];
      for (uint lane = 0; lane < node_->count; ++lane) {
        const OracleChild child = get_oracle_child(tree_, *node_, lane);
        if (!child.is_leaf()) continue;
        lanes[at * 4 + lane] = unite_items(child.index, child.get_count());
        counts[at] += child.get_count();
      }
      for (uint lane = 0; lane < node_->count; ++lane) exact[at] = unite(exact[at], lanes[at * 4 + lane]);
      require(counts[at] > threshold_, "an inner node over no more items than the leaf threshold");
      check_lane_boxes(&lanes[at * 4]);
      if (at == 0) break;
      lanes[node_->parent * 4 + node_->lane] = exact[at];
      counts[node_->parent] += counts[at];
    }
    require(counts[0] == tree_.item_count, "items below the root");
    require(tree_.box == exact[0], "root box");
  }

 private:
  void require(bool holds, const char* what) const {
    if (holds) return;
    std::ostringstream text;
    text << what;
    if (node_ != nullptr) {
      text << " (" << (node_->kind == OracleNode::aligned ? "aligned" : "quantized") << " node " << node_->index
           << " at depth " << node_->depth << ")";
    }
    throw text.str();
  }

  FloatBox unite_items(uint first, uint count) const {
    FloatBox box;
    for (uint k = first; k < first + count; ++k) box = unite(box, boxes_[tree_.order[k]]);
    return box;
  }

  void check_kind() const {
    const bool deep = node_->depth + 1 >= quantization_depth_;
    if (node_->kind == OracleNode::quantized) {
      require(deep, "quantized too early");
    } else if (deep) {
      // Only a frame whose 255th would be no finite number may stay as it is.
      bool huge = false;
      for (uint axis = 0; axis < 3; ++axis)
        huge |= !(std::abs(node_->frame.min[axis]) <= 1e37f && std::abs(node_->frame.max[axis]) <= 1e37f);
      require(huge, "not quantized");
    }
  }

  void check_lane(uint lane, uint (&next)[2]) {
    const OracleChild child = get_oracle_child(tree_, *node_, lane);
    if (lane >= node_->count) return require(child.index == 0 && child.word == 0, "reference of an empty lane");
    require(child.get_count() > 0, "an empty lane among the used");
    if (child.is_leaf()) {
      require(child.word == (0x100 | child.get_count()) && child.get_count() <= max_leaf_, "leaf reference");
      require(u64{child.index} + child.get_count() <= leaf_visits_.size(), "leaf range");
      for (uint k = 0; k < child.get_count(); ++k) ++leaf_visits_[child.index + k];
      return;
    }
    require((child.word & ~0x2ffu) == 0, "bits of a node reference");
    require(child.index == next[child.word & 0x200 ? 1 : 0]++, "numbering");
  }

  void check_lane_boxes(const FloatBox* exact) const {
    for (uint lane = 0; lane < node_->count; ++lane) {
      const OracleChild child = get_oracle_child(tree_, *node_, lane);
      const FloatBox& box = child.box;
      const bool is_frame = node_->kind == OracleNode::aligned && !child.is_leaf() && (child.word & 0x200) != 0;
      if (node_->kind == OracleNode::aligned) {
        require(is_frame ? box == make_frame(exact[lane]) : box == exact[lane], "a lane is not the union of its items");
      } else {
        check_quantized_lane(box, exact[lane]);
      }
      for (uint axis = 0; axis < 3; ++axis) {
        const float extent = node_->frame.max[axis] - node_->frame.min[axis];
        const float slack = is_frame                             ? extent * 0x1p-17f
                            : node_->kind == OracleNode::aligned ? 0.0f
                                                                 : get_decode_slack(extent);
        require(box.min[axis] >= node_->frame.min[axis] && box.max[axis] <= node_->frame.max[axis] + slack,
                "a lane reaches out of its node's frame");
      }
      if (lane == 0) continue;
      const float before = get_area(exact[lane - 1]), area = get_area(exact[lane]);
      require(!(area > before * 1.000001f) || !std::isfinite(area), "areas increase");
    }
  }

  /// Holds the items, and by less than a step too much.
  void check_quantized_lane(const FloatBox& box, const FloatBox& exact) const {
    for (uint axis = 0; axis < 3; ++axis) {
      const float extent = node_->frame.max[axis] - node_->frame.min[axis];
      const float slack = node_->may_cut ? node_->slack[axis] + get_decode_slack(extent) : 0.0f;
      const float step = extent / 255.0f * 1.001f + node_->slack[axis] + get_decode_slack(extent);
      require(box.min[axis] <= exact.min[axis] + slack && box.max[axis] >= exact.max[axis] - slack,
              "a decoded lane cuts its items");
      require(box.min[axis] >= exact.min[axis] - step - std::abs(exact.min[axis]) * 1e-6f &&
                  box.max[axis] <= exact.max[axis] + step + std::abs(exact.max[axis]) * 1e-6f,
              "a decoded lane is a step too large");
    }
  }

  const GasBvh<4>& tree_;
  std::span<const FloatBox> boxes_;
  uint max_leaf_, threshold_, quantization_depth_;
  std::vector<OracleNode> nodes_;
  std::vector<uint> leaf_visits_;
  const OracleNode* node_ = nullptr;
};

template <class T>
bool are_same_bytes(const T* a, const T* b, std::size_t count) {
  if (count == 0) return true;
  return a != nullptr && b != nullptr && std::memcmp(static_cast<const void*>(a), b, count * sizeof(T)) == 0;
}

}  // namespace

OracleChild get_oracle_child(const GasBvh<4>& tree, const OracleNode& node, uint lane) {
  OracleChild child{};
  if (node.kind == OracleNode::aligned) {
    const BvhNodeAligned& record = tree.aligned[node.index];
    child = {record.child[lane].index, record.child[lane].word, {}};
    for (uint axis = 0; axis < 3; ++axis) {
      child.box.min[axis] = record.lanes.planes[2 * axis][lane];
      child.box.max[axis] = record.lanes.planes[2 * axis + 1][lane];
    }
    return child;
  }
  const BvhNodeQuantized& record = tree.quantized[node.index];
  child = {record.child_index[lane], record.child_word[lane], {}};
  for (uint axis = 0; axis < 3; ++axis) {
    const float low = node.frame.min[axis], high = node.frame.max[axis];
    child.box.min[axis] = decode(low, high, record.lanes.planes[2 * axis][lane]);
    child.box.max[axis] = decode(low, high, record.lanes.planes[2 * axis + 1][lane]);
  }
  return child;
}

std::vector<OracleNode> walk_tree(const GasBvh<4>& tree) {
  std::vector<OracleNode> visited, stack;
  const auto push = [&](const OracleChild& child, const OracleNode* parent, uint lane) {
    if (child.is_leaf() || child.get_count() == 0) return;
    OracleNode node{child.word & 0x200 ? OracleNode::quantized : OracleNode::aligned,
                    child.index,
                    child.get_count(),
                    0,
                    child.box,
                    0,
                    lane};
    if (node.index >= (node.kind == OracleNode::aligned ? tree.aligned_count : tree.quantized_count)) return;
    if (parent != nullptr) {
      node.depth = parent->depth + 1;
      node.parent = static_cast<u32>(parent - visited.data());
      node.may_cut = parent->may_cut && parent->kind == OracleNode::quantized;
      for (uint axis = 0; axis < 3 && node.may_cut; ++axis)
        node.slack[axis] = parent->slack[axis] + get_decode_slack(parent->frame.max[axis] - parent->frame.min[axis]);
    }
    node.may_cut |= parent == nullptr && node.kind == OracleNode::quantized;
    stack.push_back(node);
  };
  push({tree.root.index, tree.root.word, tree.box}, nullptr, 0);
  const std::size_t most = std::size_t{tree.aligned_count} + tree.quantized_count;
  while (!stack.empty() && visited.size() < most) {
    visited.push_back(stack.back());
    stack.pop_back();
    const OracleNode& node = visited.back();
    for (uint lane = 0; lane < std::min(node.count, 4u); ++lane) push(get_oracle_child(tree, node, lane), &node, lane);
  }
  return visited;
}

std::vector<FloatBox> get_leaf_boxes(const GasBvh<4>& tree) {
  std::vector<FloatBox> boxes(tree.item_count, tree.box);
  for (const OracleNode& node : walk_tree(tree)) {
    for (uint lane = 0; lane < node.count; ++lane) {
      const OracleChild child = get_oracle_child(tree, node, lane);
      if (child.is_leaf()) std::fill_n(boxes.begin() + child.index, child.get_count(), child.box);
    }
  }
  return boxes;
}

std::string find_tree_fault(const GasBvh<4>& tree, std::span<const FloatBox> boxes, std::vector<uint> items,
                            const BvhBuildParams& params) {
  try {
    Checker checker(tree, boxes, params);
    checker.check_items(std::move(items));
    if (tree.root.word & 0x100) {
      checker.check_root_leaf();
    } else {
      checker.check_nodes();
      checker.check_boxes();
    }
  } catch (const std::string& fault) {
    return fault;
  }
  return {};
}

std::string find_tree_difference(const GasBvh<4>& a, const GasBvh<4>& b) {
  if (a.item_count != b.item_count || a.aligned_count != b.aligned_count || a.quantized_count != b.quantized_count ||
      a.oriented_count != b.oriented_count)
    return "counts";
  if (a.max_depth != b.max_depth || a.uniform_item_weight != b.uniform_item_weight ||
      a.quantization_depth != b.quantization_depth)
    return "parameters";
  if (!(a.root == b.root) || std::memcmp(&a.box, &b.box, sizeof(a.box)) != 0) return "root";
  if ((a.item_weight_bits == nullptr) != (b.item_weight_bits == nullptr)) return "item weights are missing";
  if (!are_same_bytes(a.order, b.order, a.item_count)) return "order";
  if (a.item_weight_bits != nullptr && !are_same_bytes(a.item_weight_bits, b.item_weight_bits, a.item_count))
    return "item weights";
  if (!are_same_bytes(a.aligned, b.aligned, a.aligned_count)) return "aligned nodes";
  if (!are_same_bytes(a.quantized, b.quantized, a.quantized_count)) return "quantized nodes";
  if (!are_same_bytes(a.oriented, b.oriented, a.oriented_count)) return "oriented nodes";
  return {};
}
