// gas/bvh/bvh_builder_impl.h
//
// The recursion: one item set becomes one node, its parts become the node's children. Included only by the files that
// instantiate it for a strategy.
#pragma once
#include <memory>
#include <utility>

#include "gas/bvh/bvh_builder.h"
#include "gas/bvh/bvh_oriented.h"
#include "gas/bvh/bvh_quantize.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_sys/sys_thread_task_manager.h"

/// State passed from a node to its children.
struct BvhBuildFlags {
  bool may_quantize = true;      ///< false below an oriented node
  bool below_quantized = false;  ///< the parent is quantized
};

/// Up to four sets that will become the children of one node.
struct BvhChildSets {
  GasBvhSplitSetGeom set[4];  ///< in the order of the splits
  uint count = 0;
  u8 order[4] = {0, 1, 2, 3};  ///< [lane]: position in `set`

  /// The set to be split next; the lowest lane among equals. 4 when there is none.
  uint find_next() const {
    uint best = 4;
    for (uint lane = 0; lane < count; ++lane) {
      if (!set[lane].leaf && (best == 4 || set[lane].priority > set[best].priority)) best = lane;
    }
    return best;
  }
  /// Larger children first: a ray hits them with a higher probability. Stable. The sets stay where they are.
  void sort_by_decreasing_area() {
    for (uint lane = 1; lane < count; ++lane) {
      for (uint at = lane; at > 0 && get(at).area > get(at - 1).area; --at) std::swap(order[at], order[at - 1]);
    }
  }
  GasBvhSplitSetGeom& get(uint lane) { return set[order[lane]]; }
};

/// Builds one large child subtree. The driver waits for all tasks, so `build` and the parent outlive each of them.
template <uint width>
template <class Split>
class GasBvh<width>::BuildTask final : public GasTask {
 public:
  BuildTask(BvhBuildCtx<Split>& build, const BvhBuildPlace& place, uint depth, BvhBuildFlags pass,
            const GasBvhSplitSetGeom& set)
      : build_(build), place_(place), depth_(depth), pass_(pass), set_(set) {}

 private:
  /// Writes the pools of worker `thread_index` and one slot that no other task writes: no lock.
  void work(const uint& thread_index) override;

  BvhBuildCtx<Split>& build_;
  BvhBuildPlace place_;
  uint depth_;
  BvhBuildFlags pass_;
  GasBvhSplitSetGeom set_;
};

template <class Split>
class BvhSubtreeBuilder {
 public:
  BvhSubtreeBuilder(BvhBuildCtx<Split>& build, uint worker) : build_(build), worker_(build.workers[worker]) {}

  /// Builds the subtree over `set` and stores its reference at `place`. Throws std::bad_alloc, and
  /// AppStopped when the application requests a stop; the build then ends.
  void build_subtree(const BvhBuildPlace& place, uint depth, BvhBuildFlags flags, const GasBvhSplitSetGeom& set) {
    if (set.leaf) return store_leaf(place, set);
    worker_.split_ctx.check_stop();
    BvhChildSets children;
    bool aligned = true;
    if (!split_children(set, children, aligned, depth)) return store_leaf(place, set);
    if (depth + 1 > worker_.max_depth) worker_.max_depth = depth + 1;
    children.sort_by_decreasing_area();
    if (!aligned && bvh_get_reach(set.box) <= bvh_most_oriented_reach) {
      build_oriented(place, depth, set, children);
    } else if (is_quantized(depth, flags, set.box)) {
      build_quantized(place, depth, flags, set, children);
    } else {
      build_aligned(place, depth, set, children);
    }
  }

 private:
  /// Splits the set, then repeatedly the part of the highest priority, until there are four parts or none can be split.
  /// False when the set itself is not split.
  bool split_children(const GasBvhSplitSetGeom& set, BvhChildSets& children, bool& aligned, uint depth) {
    SysThreadManager* threads = depth < build_.task_depth_limit ? build_.threads : nullptr;
    const auto split = [&](const GasBvhSplitSetGeom& whole, GasBvhSplitSetGeom& left, GasBvhSplitSetGeom& right) {
      worker_.split_ctx.free_lanes = 4 - (children.count > 1 ? children.count - 1 : 0);
      if (!worker_.split.split(worker_.split_ctx, whole, left, right, aligned, threads)) return false;
      left.leaf = left.count <= worker_.split_ctx.leaf_threshold;
      right.leaf = right.count <= worker_.split_ctx.leaf_threshold;
      return true;
    };
    if (!split(set, children.set[0], children.set[1])) return false;
    children.count = 2;
    while (children.count < 4) {
      const uint lane = children.find_next();
      if (lane == 4) break;
      GasBvhSplitSetGeom left;
      if (split(children.set[lane], left, children.set[children.count])) {
        children.set[lane] = left;
        ++children.count;
      } else {
        children.set[lane].leaf = true;
      }
    }
    return true;
  }

  /// A frame near the end of the float range has an infinite quantization step. Such a node stays aligned, unless its
  /// parent is quantized: the parent's frame is larger and has a finite step.
  bool is_quantized(uint depth, BvhBuildFlags flags, const GMathBbox3<float>& frame) const {
    if (depth + 1 < build_.quantization_depth || !flags.may_quantize) return false;
    if (flags.below_quantized) return true;
    constexpr float most = 1e37f;
    for (uint axis = 0; axis < 3; ++axis) {
      if (!(frame.min[axis] >= -most && frame.max[axis] <= most)) return false;
    }
    return true;
  }

  void store_leaf(const BvhBuildPlace& place, const GasBvhSplitSetGeom& set) {
    place.store({set.first, (set.count & BvhChildRef::count_mask) | BvhChildRef::leaf_bit});
    if (build_.progress != nullptr) build_.progress->step(set.first + set.count);
  }

  /// Takes a node from this thread's pool and stores its tagged reference.
  template <class Node>
  Node& new_node(BvhNodePool<Node>& pool, u32 kind_bit, uint child_count, const BvhBuildPlace& place) {
    const u32 index = pool.get_count();
    Node* node = index <= build_.tag_mask ? pool.add() : nullptr;
    gas_need(node != nullptr);
    place.store({index | worker_.tag, child_count | kind_bit});
    return *node;
  }

  void build_aligned(const BvhBuildPlace& place, uint depth, const GasBvhSplitSetGeom& set, BvhChildSets& children) {
    BvhNodeAligned& node = new_node(worker_.aligned, 0, children.count, place);
    for (uint lane = 0; lane < 4; ++lane) {
      node.lanes.set_lane(lane, lane < children.count ? children.get(lane).box : GMathBbox3<float>());
      node.child[lane] = {};
    }
    for (uint lane = 0; lane < children.count; ++lane)
      build_child({&node.child[lane], nullptr, 0}, depth, {true, false}, set, children.get(lane));
  }

  /// Each child's box is replaced by the decoded one, so that its descendants are quantized against the box that a ray
  /// decodes. Finalize writes the enlarged frame into an aligned parent.
  void build_quantized(const BvhBuildPlace& place, uint depth, BvhBuildFlags flags, const GasBvhSplitSetGeom& set,
                       BvhChildSets& children) {
    BvhNodeQuantized& node = new_node(worker_.quantized, BvhChildRef::quantized_bit, children.count, place);
    const bool has_aligned_parent = depth > 0 && !flags.below_quantized;
    const BvhQuantizer quantizer(has_aligned_parent ? bvh_make_frame(set.box) : set.box);
    for (uint lane = 0; lane < 4; ++lane) {
      node.set_child(lane, {});
      if (lane < children.count) {
        children.get(lane).box = quantizer.write_lane(children.get(lane).box, lane, node.lanes.planes);
      } else {
        bvh_clear_lane(lane, node.lanes.planes);
      }
    }
    for (uint lane = 0; lane < children.count; ++lane)
      build_child({nullptr, &node, lane}, depth, {true, true}, set, children.get(lane));
  }

  /// Each lane is the tight box of its items in a frame of their own. No child is quantized: a quantized child is
  /// decoded against a box along the world's axes, which an oriented lane is not.
  void build_oriented(const BvhBuildPlace& place, uint depth, const GasBvhSplitSetGeom& set, BvhChildSets& children) {
    if constexpr (requires { worker_.split.refit(worker_.split_ctx, children.set[0], nullptr); }) {
      BvhNodeOriented& node = new_node(worker_.oriented, BvhChildRef::oriented_bit, children.count, place);
      SysThreadManager* threads = depth < build_.task_depth_limit ? build_.threads : nullptr;
      for (uint lane = 0; lane < 4; ++lane) {
        node.child[lane] = {};
        if (lane < children.count) {
          worker_.split.refit(worker_.split_ctx, children.get(lane), threads);
          bvh_set_oriented_lane(node, lane, children.get(lane).space, children.get(lane).space_box,
                                bvh_get_reach(children.get(lane).box));
        } else {
          bvh_clear_oriented_lane(node, lane);
        }
      }
      GasBvhSplitSetGeom whole = set;
      worker_.split.refit(worker_.split_ctx, whole, threads);
      for (uint lane = 0; lane < children.count; ++lane)
        build_child({&node.child[lane], nullptr, 0}, depth, {false, false}, whole, children.get(lane));
    }
  }

  /// Builds the child on this thread, or as a task when the parent's set is large. A task never waits for its children.
  void build_child(const BvhBuildPlace& place, uint depth, BvhBuildFlags flags, const GasBvhSplitSetGeom& parent,
                   const GasBvhSplitSetGeom& child) {
    using Task = typename GasBvh<4>::template BuildTask<Split>;
    if (build_.tasks != nullptr && parent.count > bvh_task_items && depth < build_.task_depth_limit) {
      worker_.tasks.push_back(std::make_unique<Task>(build_, place, depth + 1, flags, child));
      build_.tasks->add_task(worker_.tasks.back().get());
    } else {
      build_subtree(place, depth + 1, flags, child);
    }
  }

  BvhBuildCtx<Split>& build_;
  BvhBuildThreadState<Split>& worker_;
};

template <uint width>
template <class Split>
void GasBvh<width>::BuildTask<Split>::work(const uint& thread_index) {
  ++build_.workers[thread_index].task_count;
  BvhSubtreeBuilder<Split>(build_, thread_index).build_subtree(place_, depth_, pass_, set_);
}
