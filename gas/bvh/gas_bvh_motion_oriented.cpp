// Refit of trees with oriented nodes. Node kinds alternate in such a tree, so that the order of nodes comes from a
// traversal. The lanes of oriented nodes depend on the items, not only on the children's boxes; they are measured in a
// second, parallel pass.
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "gas/bvh/bvh_oriented.h"
#include "gas/bvh/gas_bvh_motion_scratch.h"
#include "gas/frame/gas_log.h"
#include "gas/frame/gas_tasks.h"
#include "vq_app_base/app_base.h"
#include "vq_sys/sys_thread_manager.h"

namespace {

constexpr uint parallel_nodes = 1024;      // from this many oriented nodes on, tasks refit them
constexpr uint least_nodes_of_task = 512;  // refitting fewer takes less time than starting a thread

/// All inner nodes, each before its children.
std::vector<BvhChildRef> list_parents_first(const GasBvh<4>& tree) {
  std::vector<BvhChildRef> list;
  if (tree.root.is_leaf()) return list;
  list.reserve(std::size_t{tree.aligned_count} + tree.quantized_count + tree.oriented_count);
  list.push_back(tree.root);
  for (std::size_t at = 0; at < list.size(); ++at) {
    for (uint lane = 0; lane < list[at].get_count(); ++lane) {
      const BvhChildRef child = tree.get_child(list[at], lane);
      if (!child.is_leaf()) list.push_back(child);
    }
  }
  return list;
}

/// The positions in the item order that belong to a subtree.
struct ItemRange {
  u32 begin = 0, end = 0;
};

class ItemRanges {
 public:
  ItemRanges(const GasBvh<4>& tree, std::span<const BvhChildRef> parents_first)
      : aligned_(tree.aligned_count), quantized_(tree.quantized_count), oriented_(tree.oriented_count) {
    for (std::size_t at = parents_first.size(); at-- > 0;) {
      const BvhChildRef node = parents_first[at];
      ItemRange range{core_invalid_index, 0};
      for (uint lane = 0; lane < node.get_count(); ++lane) {
        const ItemRange child = get(tree.get_child(node, lane));
        range = {std::min(range.begin, child.begin), std::max(range.end, child.end)};
      }
      get_ranges(node.get_kind())[node.index] = range;
    }
  }

  ItemRange get(BvhChildRef child) {
    return child.is_leaf() ? ItemRange{child.index, child.index + child.get_count()}
                           : get_ranges(child.get_kind())[child.index];
  }

 private:
  std::vector<ItemRange>& get_ranges(BvhKind kind) {
    return kind == BvhKind::quantized ? quantized_ : kind == BvhKind::oriented ? oriented_ : aligned_;
  }
  std::vector<ItemRange> aligned_, quantized_, oriented_;
};

}  // namespace

/// Shared input of all tasks of one update.
template <uint width>
struct GasBvhMotion<width>::OrientedUpdate {
  GasBvhMotion& motion;
  uint sample;
  const Scratch& scratch;
  std::span<const GMathBbox3<float>> item_boxes;
  ItemRanges& ranges;  ///< only read
  const BvhSampleMeasure& measure;
  SysThreadManager* threads;

  void run(uint node, AppProgressBar* progress, uint first_step) const {
    BvhLanePlanes& block = motion.oriented_[std::size_t{node} * motion.sample_count_ + sample];
    for (uint lane = 0; lane < 4; ++lane) {
      const BvhChildRef child = motion.tree_->oriented[node].child[lane];
      block.set_lane(lane, child.get_count() == 0 ? GMathBbox3<float>() : measure_lane(node, lane, child));
    }
    if (progress == nullptr) return;
    progress->step(first_step + node + 1);
    if ((node & 15u) == 0) progress->get_application().check_stop();  // a node's lanes may hold many items
  }

  /// The items' box along the lane's axes, in units in which the lane's static box is the unit cube.
  GMathBbox3<float> measure_lane(uint node, uint lane, BvhChildRef child) const {
    const BvhNodeOriented& at = motion.tree_->oriented[node];
    GMathVec3<double> edges[3];
    bvh_get_lane_edges(at, lane, edges);
    GMathLinearSpace3<float> space;
    double inverse_length[3];
    for (uint axis = 0; axis < 3; ++axis) {
      inverse_length[axis] = 1.0 / std::sqrt(edges[axis].dot(edges[axis]));
      space.axis[axis] = GMathVec3<float>(edges[axis] * inverse_length[axis]);
    }
    const ItemRange range = ranges.get(child);
    CoreBasicArray<uint> items;
    items.set_view(motion.tree_->order + range.begin, range.end - range.begin);
    const GMathBbox3<float> box = measure.function(items, space, measure.owner, threads);
    const double reach = bvh_get_reach(motion.get_child_box(scratch, child, item_boxes));
    GMathBbox3<float> out;
    for (uint axis = 0; axis < 3; ++axis) {
      // For items whose static position is far away the offset is the larger term.
      const double offset = at.rows[4 * axis + 3][lane];
      const double slack = bvh_oriented_slack * std::max(reach * inverse_length[axis], std::fabs(offset));
      // Blended or tested beyond the float range, a plane would be NaN and the box would be missed.
      constexpr double most = std::numeric_limits<float>::max() / 4;
      const double low = box.min[axis] * inverse_length[axis] + offset - slack;
      const double high = box.max[axis] * inverse_length[axis] + offset + slack;
      out.min[axis] = static_cast<float>(low >= -most ? std::min(low, most) : -most);
      out.max[axis] = static_cast<float>(high <= most ? std::max(high, -most) : most);
    }
    return out;
  }
};

/// Refits the lanes of oriented nodes `first` to `end` - 1. Writes only their blocks: no lock.
template <uint width>
class GasBvhMotion<width>::UpdateUNodesTask final : public GasTask {
 public:
  const OrientedUpdate* update = nullptr;
  uint first = 0, end = 0;
  AppProgressBar* progress = nullptr;
  uint first_step = 0;

  void work(const uint& /*thread_index*/) override {
    for (uint node = first; node < end; ++node) update->run(node, progress, first_step);
  }
};

template <uint width>
void GasBvhMotion<width>::update_oriented_nodes(const OrientedUpdate& update, AppProgressBar* progress) {
  const uint node_count = tree_->oriented_count;
  const uint thread_count = update.threads != nullptr ? update.threads->get_thread_count() : 1;
  const uint slice = std::max((node_count + 8 * thread_count - 1) / (8 * thread_count), least_nodes_of_task);
  const uint task_count =
      thread_count >= 2 && node_count >= parallel_nodes ? gas_get_slice_count(node_count, slice) : 1;
  const uint task_nodes = (node_count + task_count - 1) / task_count;
  std::vector<UpdateUNodesTask> tasks(task_count);
  for (uint k = 0; k < task_count; ++k) {
    tasks[k].update = &update;
    tasks[k].first = std::min(k * task_nodes, node_count);
    tasks[k].end = std::min(tasks[k].first + task_nodes, node_count);
    tasks[k].progress = progress;
    tasks[k].first_step = tree_->aligned_count + tree_->quantized_count;
  }
  if (task_count == 1) {
    tasks[0].run(0);
    return gas_rethrow(tasks[0].get_outcome());
  }
  SysThreadTaskManager manager(*update.threads);
  gas_run_tasks(manager, tasks);
}

/// Last to first, so that every node's children are done.
template <uint width>
void GasBvhMotion<width>::fit_nodes_of_all_kinds(Scratch& scratch, std::span<const BvhChildRef> parents_first,
                                                 uint sample, std::span<const GMathBbox3<float>> item_boxes,
                                                 AppProgressBar* progress) {
  BvhNodeSteps steps(progress, 0);
  for (std::size_t at = parents_first.size(); at-- > 0;) {
    const BvhChildRef node = parents_first[at];
    BvhLanePlanes* block =
        node.get_kind() == BvhKind::aligned ? &aligned_[std::size_t{node.index} * sample_count_ + sample] : nullptr;
    GMathBbox3<float> box;
    for (uint lane = 0; lane < 4; ++lane) {
      const GMathBbox3<float> child = lane < node.get_count()
                                          ? get_child_box(scratch, tree_->get_child(node, lane), item_boxes)
                                          : GMathBbox3<float>();
      if (block != nullptr) {
        const BvhChildRef ref = tree_->get_child(node, lane);
        block->set_lane(lane, ref.get_kind() == BvhKind::quantized ? make_frame(scratch, ref) : child);
      }
      box.add(child);
    }
    switch (node.get_kind()) {
      case BvhKind::aligned:
        scratch.aligned[node.index] = box;
        break;
      case BvhKind::quantized:
        scratch.quantized[node.index] = box;
        break;
      default:
        scratch.oriented[node.index] = box;
        continue;  // steps when its lanes are measured
    }
    steps.step();
  }
}

template <uint width>
bool GasBvhMotion<width>::update_sample_unaligned(uint sample, std::span<const GMathBbox3<float>> item_boxes,
                                                  const BvhSampleMeasure& measure, AppProgressBar* progress) {
  if (tree_ == nullptr || tree_->is_empty()) return false;
  if (sample >= sample_count_) {
    gas_log(gas_log_error, [&](CoreLogStream& message) {
      message << "[GasBvhMotion] error while updating motion blur sample " << sample << ": index out of range\n";
    });
    return false;
  }
  Scratch scratch(*tree_);
  const std::vector<BvhChildRef> parents_first = list_parents_first(*tree_);
  if (progress != nullptr)
    progress->set_step_count(tree_->aligned_count + 2 * tree_->quantized_count + tree_->oriented_count);
  fit_nodes_of_all_kinds(scratch, parents_first, sample, item_boxes, progress);
  if (tree_->oriented_count > 0) {
    ItemRanges ranges(*tree_, parents_first);
    SysThreadManager* threads = progress != nullptr ? &progress->get_application().get_thread_manager() : nullptr;
    update_oriented_nodes({*this, sample, scratch, item_boxes, ranges, measure, threads}, progress);
  }
  root_boxes_[sample] = get_child_box(scratch, tree_->root, item_boxes);
  quantize_lanes(scratch, sample, item_boxes, progress);
  return true;
}

// gas_bvh_motion.cpp instantiates the class, but does not see these definitions.
template void GasBvhMotion<4>::update_oriented_nodes(const OrientedUpdate&, AppProgressBar*);
template void GasBvhMotion<4>::fit_nodes_of_all_kinds(Scratch&, std::span<const BvhChildRef>, uint,
                                                      std::span<const GMathBbox3<float>>, AppProgressBar*);
template bool GasBvhMotion<4>::update_sample_unaligned(uint, std::span<const GMathBbox3<float>>,
                                                       const BvhSampleMeasure&, AppProgressBar*);
