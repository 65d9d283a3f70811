// gas/bvh/gas_bvh_motion_scratch.h
//
// Temporary data of one refit. Included only by the sources of gas_bvh_motion.
#pragma once
#include "gas/bvh/gas_bvh_motion.h"
#include "gas/frame/gas_guard.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_core/core_memory.h"

/// The box of every node at the sample being written.
template <uint width>
struct GasBvhMotion<width>::Scratch {
  explicit Scratch(const GasBvh<width>& tree)
      : aligned(tree.aligned_count), quantized(tree.quantized_count), oriented(tree.oriented_count) {
    gas_need((aligned || tree.aligned_count == 0) && (quantized || tree.quantized_count == 0) &&
             (oriented || tree.oriented_count == 0));
  }
  CoreAlignedArray<GMathBbox3<float>> aligned, quantized, oriented;
};

/// Reports one step per node to a progress bar, which may be null, and checks for a stop request.
class BvhNodeSteps {
 public:
  BvhNodeSteps(AppProgressBar* progress, uint first) : progress_(progress), position_(first) {}
  void step() {
    if (progress_ == nullptr) return;
    progress_->step(++position_);
    gas_check_stop(progress_->get_application(), position_);
  }

 private:
  AppProgressBar* progress_;
  uint position_;
};
