// gas/gas_refit.h
//
// What the structures over one geometry have in common under motion blur: a record per motion-blur slot that holds the
// tree refitted to the description's sample times, made by the first query that finds it stale.
#pragma once
#include <algorithm>
#include <atomic>
#include <span>

#include "gas/bvh/gas_bvh_motion.h"
#include "vq_app_base/app_base.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_core/core_memory.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_sys/sys_thread_lock.h"

template <class Owner>
struct GasRefitRecord {
  explicit GasRefitRecord(Owner* owner) : owner(owner) {}
  void clear() { refit.clear(); }
  /// The common case of a query; pairs with the release store that ends a refit.
  bool is_current(const CtxMotionBlur& motion_blur) const {
    return stamp.load(std::memory_order_acquire) == motion_blur.get_stamp();
  }
  /// What the kernels want: null when no sample is kept, and the structure then answers as if it were at rest.
  const GasBvhMotion<4>* get_motion() const { return refit.get_sample_count() > 0 ? &refit : nullptr; }

  SysThreadLock lock;     ///< held by the one thread that refits
  GasBvhMotion<4> refit;  ///< the tree's boxes at each sample
  Owner* owner;
  std::atomic<uint> stamp{0};  ///< of the description that `refit` was computed for; 0: stale
};

/// Which two samples a time lies between. The second is the first again when there is only one.
struct GasMotionSpan {
  uint first = 0, second = 0;
  double fraction = 0.0;

  GasMotionSpan(const CtxMotionBlur& motion_blur, double time) {
    motion_blur.get_time_sampling().get_span(time, first, fraction);
    second = std::min(first + 1, motion_blur.get_sample_count() - 1);
  }
};

/// Brings a record up to date with a description, unless another thread did so while this one waited for the lock.
///
/// @param box_count       items of the tree's box arrays
/// @param compute_bboxes  (time, boxes): writes the item boxes at a time
/// @param update_sample   (sample, boxes, progress) -> bool: refits one sample
/// @param box_share       how much of a sample's work the boxes are, for the progress bar
template <class Owner, class ComputeBboxes, class UpdateSample>
void gas_refit(GasRefitRecord<Owner>& record, const GasBvh<4>& tree, uint box_count, const CtxEval& ctx,
               const CtxMotionBlur& motion_blur, double box_share, const ComputeBboxes& compute_bboxes,
               const UpdateSample& update_sample) {
  const SysThreadLockGuard guard(record.lock);
  if (record.stamp.load(std::memory_order_relaxed) == motion_blur.get_stamp()) return;
  const GMathTimeSampling& sampling = motion_blur.get_time_sampling();
  const uint sample_count = sampling.get_sample_count();
  CoreAlignedArray<GMathBbox3<float>> boxes(box_count);
  bool refitted = boxes && record.refit.set_samples(tree, sample_count);
  AppProgressBar* progress = ctx.get_application().create_progress_bar("Updating GAS motion blur...");
  for (uint sample = 0; sample < sample_count && refitted; ++sample) {
    progress->begin_task("Compute primitives AABB", box_share / sample_count);
    compute_bboxes(sampling.get_sample_time(sample), boxes.get());
    progress->end_task();
    progress->begin_task("Refit BVH", (1.0 - box_share) / sample_count);
    refitted = update_sample(sample, std::span<const GMathBbox3<float>>(boxes.get(), box_count), progress);
    progress->end_task();
  }
  progress->finish();
  if (!refitted) record.refit.clear();                                     // no memory
  record.stamp.store(motion_blur.get_stamp(), std::memory_order_release);  // publishes the boxes just written
}
