#include "gas/bvh/bvh_clusters.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "gas/bvh/bvh_start.h"

namespace {

constexpr float min_share = 0.001f;   // of the root's size: smaller subtrees are not divided
constexpr float max_coverage = 0.7f;  // a node that its children fill to this share stays whole

/// Volume and face areas of a box, an inverted extent as 0.
struct Measures {
  float value[4];  ///< volume, then the faces xy, yz, xz

  explicit Measures(const GMathBbox3<float>& box) {
    const float x = std::max(box.max.x - box.min.x, 0.0f);
    const float y = std::max(box.max.y - box.min.y, 0.0f);
    const float z = std::max(box.max.z - box.min.z, 0.0f);
    value[0] = x * y * z;
    value[1] = x * y;
    value[2] = y * z;
    value[3] = x * z;
  }
};

/// Smallest of part / whole over the measures in which the whole is not 0. A whole without volume gives the ratio 1.
float get_smallest_ratio(const float (&part)[4], const Measures& whole) {
  float smallest = whole.value[0] > 0.0f ? part[0] / whole.value[0] : 1.0f;
  for (uint k = 1; k < 4; ++k) {
    if (whole.value[k] > 0.0f) smallest = std::min(smallest, part[k] / whole.value[k]);
  }
  return smallest;
}

GMathBbox3<float> intersect(const GMathBbox3<float>& a, const GMathBbox3<float>& b) {
  GMathBbox3<float> out;
  for (uint axis = 0; axis < 3; ++axis) {
    out.min[axis] = std::max(a.min[axis], b.min[axis]);
    out.max[axis] = std::min(a.max[axis], b.max[axis]);
  }
  return out;
}

/// Measures of the union of four boxes, by inclusion and exclusion over their fifteen intersections.
void measure_union(const GMathBbox3<float> (&box)[4], float (&sum)[4]) {
  std::fill(std::begin(sum), std::end(sum), 0.0f);
  for (uint subset_size = 1; subset_size <= 4; ++subset_size) {
    for (uint subset = 1; subset < 16; ++subset) {
      if (static_cast<uint>(std::popcount(subset)) != subset_size) continue;
      GMathBbox3<float> common = box[std::countr_zero(subset)];
      for (uint lane = 0; lane < 4; ++lane) {
        if (subset >> lane & 1u) common = intersect(common, box[lane]);
      }
      const Measures measures(common);
      for (uint k = 0; k < 4; ++k) sum[k] += subset_size % 2 == 1 ? measures.value[k] : -measures.value[k];
    }
  }
}

class Clustering {
 public:
  Clustering(const GasBvh<4>& tree, uint count, CoreVector<void*>& out) : tree_(tree), root_(tree.box), out_(out) {
    // In single precision: in double the logarithms of 16, 64, 1024 come out just below the whole number.
    if (count >= 4) max_depth_ = static_cast<uint>(std::log(static_cast<float>(count)) * 0.7213475f);
  }

  void run() {
    const uint former_count = out_.get_count();
    const bool expanded =
        tree_.root.get_kind() == BvhKind::aligned && max_depth_ > 0 && expand(tree_.root, tree_.box, 0);
    if (!expanded) add(0);
    if (!is_complete_) out_.resize(former_count);
  }

 private:
  /// Appends handles that cover the node. False, and none appended, when it should stay one cluster.
  bool expand(BvhChildRef ref, const GMathBbox3<float>& box, uint depth) {
    const BvhNodeAligned& node = tree_.aligned[ref.index];
    uint expanded = 0;
    for (uint lane = 0; lane < ref.get_count(); ++lane) {
      const GMathBbox3<float> child = node.lanes.get_lane(lane);
      if (is_worth_expanding(node.child[lane], child, depth + 1) && expand(node.child[lane], child, depth + 1))
        expanded |= 1u << lane;
    }
    if (expanded == 0 && get_coverage(node, box) >= max_coverage) return false;
    for (uint lane = 0; lane < ref.get_count(); ++lane) {
      if (expanded >> lane & 1u) continue;
      add(BvhClusterHandle::make(ref.index, lane, expanded != 0));
    }
    return true;
  }

  void add(u64 handle) { is_complete_ = out_.add(std::bit_cast<void*>(handle)) && is_complete_; }

  bool is_worth_expanding(BvhChildRef child, const GMathBbox3<float>& box, uint depth) const {
    return child.get_kind() == BvhKind::aligned && depth < max_depth_ &&
           get_smallest_ratio(Measures(box).value, root_) >= min_share;
  }

  static float get_coverage(const BvhNodeAligned& node, const GMathBbox3<float>& box) {
    GMathBbox3<float> lanes[4];
    for (uint lane = 0; lane < 4; ++lane) lanes[lane] = node.lanes.get_lane(lane);
    float filled[4];
    measure_union(lanes, filled);
    return get_smallest_ratio(filled, Measures(box));
  }

  const GasBvh<4>& tree_;
  const Measures root_;
  CoreVector<void*>& out_;
  uint max_depth_ = 0;
  bool is_complete_ = true;  ///< there was memory for every handle
};

float get_tree_weight(const GasBvh<4>& tree) {
  if (tree.item_weight_bits == nullptr) return static_cast<float>(tree.item_count) * tree.uniform_item_weight;
  double sum = 0.0;
  for (u32 item = 0; item < tree.item_count; ++item) sum += std::bit_cast<float>(tree.item_weight_bits[item]);
  return static_cast<float>(sum);
}

/// The sum over the items of a subtree, child by child.
float get_subtree_weight(const GasBvh<4>& tree, BvhChildRef ref) {
  const uint count = ref.get_count();
  if (ref.is_leaf() && tree.item_weight_bits == nullptr) return static_cast<float>(count) * tree.uniform_item_weight;
  float sum = 0.0f;
  for (uint k = 0; k < count; ++k) {
    sum += ref.is_leaf() ? std::bit_cast<float>(tree.item_weight_bits[tree.order[ref.index + k]])
                         : get_subtree_weight(tree, tree.get_child(ref, k));
  }
  return sum;
}

}  // namespace

void bvh_get_clusters(const GasBvh<4>& tree, uint count, CoreVector<void*>& clusters) {
  if (!tree.is_empty()) Clustering(tree, count, clusters).run();
}

void bvh_get_clusters_bboxes(const GasBvh<4>& tree, const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) {
  for (uint k = 0; k < clusters.get_count(); ++k) {
    const BvhStart start = bvh_find_start(tree, std::bit_cast<u64>(clusters[k]));
    boxes[k] = start.ref.get_count() == 0 ? GMathBbox3<float>() : start.box;
  }
}

void bvh_get_clusters_bboxes_at(const GasBvh<4>& tree, const GasBvhMotion<4>& motion, uint first, uint second,
                                float fraction, const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) {
  const auto get_box = [&](const BvhStart& start, uint sample) {
    if (start.is_root) return motion.get_bbox(sample);
    return motion.get_aligned(start.node, sample).get_lane(start.lane);
  };
  for (uint k = 0; k < clusters.get_count(); ++k) {
    const BvhStart start = bvh_find_start(tree, std::bit_cast<u64>(clusters[k]));
    boxes[k] = start.ref.get_count() == 0 ? GMathBbox3<float>()
                                          : bvh_blend_boxes(get_box(start, first), get_box(start, second), fraction);
  }
}

void bvh_get_clusters_weights(const GasBvh<4>& tree, const CoreBasicArray<void*>& clusters, float* weights) {
  for (uint k = 0; k < clusters.get_count(); ++k) {
    const BvhStart start = bvh_find_start(tree, std::bit_cast<u64>(clusters[k]));
    weights[k] = start.is_root ? get_tree_weight(tree) : get_subtree_weight(tree, start.ref);
  }
}
