// gas/bvh/gas_bvh_motion_scratch.h
//
// What one refit needs while it runs. Only the sources of gas_bvh_motion include this.
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

/// Steps a bar that may be missing, once per node visited, and looks whether its application asks to stop.
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
