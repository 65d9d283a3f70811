#include "gas/bvh/gas_bvh_motion.h"

#include "gas/bvh/bvh_quantize.h"
#include "gas/bvh/gas_bvh_motion_scratch.h"
#include "gas/frame/gas_log.h"

namespace {

template <class T>
bool allocate(T*& array, std::size_t count, std::size_t alignment) {
  array = static_cast<T*>(core_aligned_alloc(count * sizeof(T), alignment));
  return array != nullptr || count == 0;
}

}  // namespace

template <uint width>
void GasBvhMotion<width>::clear() {
  core_aligned_free(aligned_);
  core_aligned_free(oriented_);
  core_aligned_free(quantized_);
  core_aligned_free(root_boxes_);
  tree_ = nullptr;
  aligned_ = oriented_ = nullptr;
  quantized_ = nullptr;
  root_boxes_ = nullptr;
  sample_count_ = 0;
}

template <uint width>
bool GasBvhMotion<width>::set_samples(const GasBvh<width>& tree, uint sample_count) {
  clear();
  tree_ = &tree;
  sample_count_ = sample_count;
  if (tree.is_empty() || sample_count == 0) return true;
  const std::size_t samples = sample_count;
  if (allocate(aligned_, tree.aligned_count * samples, 16) && allocate(oriented_, tree.oriented_count * samples, 16) &&
      allocate(quantized_, tree.quantized_count * samples, 16) &&
      allocate(root_boxes_, samples, alignof(GMathBbox3<float>)))
    return true;
  clear();
  return false;
}

template <uint width>
u64 GasBvhMotion<width>::get_array_bytes() const {
  if (root_boxes_ == nullptr) return 0;
  return sample_count_ *
         (u64{tree_->aligned_count} * sizeof(BvhLanePlanes) + u64{tree_->oriented_count} * sizeof(BvhLanePlanes) +
          u64{tree_->quantized_count} * sizeof(BvhLaneBytes) + sizeof(GMathBbox3<float>));
}

template <uint width>
bool GasBvhMotion<width>::update_sample(uint sample, std::span<const GMathBbox3<float>> item_boxes,
                                        AppProgressBar* progress) {
  if (tree_ == nullptr || tree_->is_empty()) return false;
  if (tree_->oriented_count > 0 || sample >= sample_count_) {
    gas_log(gas_log_error, [&](CoreLogStream& message) {
      message << "[GasBvhMotion] error while updating motion blur sample " << sample << ": inappropriate input\n";
    });
    return false;
  }
  Scratch scratch(*tree_);
  if (progress != nullptr) progress->set_step_count(tree_->aligned_count + 2 * tree_->quantized_count);
  fit_quantized_nodes(scratch, item_boxes, progress);
  fit_aligned_nodes(scratch, sample, item_boxes, progress);
  root_boxes_[sample] = get_child_box(scratch, tree_->root, item_boxes);
  quantize_lanes(scratch, sample, item_boxes, progress);
  return true;
}

/// The box of a leaf is the union of its items'; an empty slot gives the inverted box.
template <uint width>
GMathBbox3<float> GasBvhMotion<width>::get_child_box(const Scratch& scratch, BvhChildRef child,
                                                     std::span<const GMathBbox3<float>> item_boxes) const {
  GMathBbox3<float> box;
  if (child.get_count() == 0) return box;
  switch (child.get_kind()) {
    case BvhKind::aligned:
      return scratch.aligned[child.index];
    case BvhKind::quantized:
      return scratch.quantized[child.index];
    case BvhKind::oriented:
      return scratch.oriented[child.index];
    case BvhKind::leaf:
      break;
  }
  for (uint item = 0; item < child.get_count(); ++item) box.add(item_boxes[tree_->order[child.index + item]]);
  return box;
}

/// Last to first: the children of a quantized node are leaves or quantized nodes of larger index.
template <uint width>
void GasBvhMotion<width>::fit_quantized_nodes(Scratch& scratch, std::span<const GMathBbox3<float>> item_boxes,
                                              AppProgressBar* progress) const {
  BvhNodeSteps steps(progress, 0);
  for (u32 node = tree_->quantized_count; node-- > 0;) {
    GMathBbox3<float> box;
    for (uint lane = 0; lane < 4; ++lane)
      box.add(get_child_box(scratch, tree_->quantized[node].get_child(lane), item_boxes));
    scratch.quantized[node] = box;
    steps.step();
  }
}

template <uint width>
void GasBvhMotion<width>::fit_aligned_nodes(Scratch& scratch, uint sample,
                                            std::span<const GMathBbox3<float>> item_boxes, AppProgressBar* progress) {
  BvhNodeSteps steps(progress, tree_->quantized_count);
  for (u32 node = tree_->aligned_count; node-- > 0;) {
    BvhLanePlanes& block = aligned_[std::size_t{node} * sample_count_ + sample];
    GMathBbox3<float> box;
    for (uint lane = 0; lane < 4; ++lane) {
      const BvhChildRef ref = tree_->aligned[node].child[lane];
      const GMathBbox3<float> child = get_child_box(scratch, ref, item_boxes);
      block.set_lane(lane, ref.get_kind() == BvhKind::quantized ? make_frame(scratch, ref) : child);
      box.add(child);
    }
    scratch.aligned[node] = box;
    steps.step();
  }
}

/// The box of a quantized child of an aligned node becomes its frame.
template <uint width>
GMathBbox3<float> GasBvhMotion<width>::make_frame(Scratch& scratch, BvhChildRef child) {
  return scratch.quantized[child.index] = bvh_make_frame(scratch.quantized[child.index]);
}

/// First to last: each parent stores the decoded box of a quantized child as the child's frame before the child is
/// processed.
template <uint width>
void GasBvhMotion<width>::quantize_lanes(Scratch& scratch, uint sample, std::span<const GMathBbox3<float>> item_boxes,
                                         AppProgressBar* progress) {
  BvhNodeSteps steps(progress, tree_->aligned_count + tree_->quantized_count + tree_->oriented_count);
  for (u32 node = 0; node < tree_->quantized_count; ++node) {
    BvhLaneBytes& block = quantized_[std::size_t{node} * sample_count_ + sample];
    const BvhQuantizer quantizer(scratch.quantized[node]);
    for (uint lane = 0; lane < 4; ++lane) {
      const BvhChildRef child = tree_->quantized[node].get_child(lane);
      if (child.get_count() == 0) {
        bvh_clear_lane(lane, block.planes);
        continue;
      }
      const GMathBbox3<float> box = get_child_box(scratch, child, item_boxes);
      const GMathBbox3<float> decoded = quantizer.write_lane(box, lane, block.planes);
      if (child.get_kind() == BvhKind::quantized) scratch.quantized[child.index] = decoded;
    }
    steps.step();
  }
}

template class GasBvhMotion<4>;
