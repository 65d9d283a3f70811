// gas/structure/gas_instance_update.h
//
// Motion blur of a structure over instances: matrices and boxes of its instances at the sample times, and the tree
// refitted to them. Included by gas_instance_structure_impl.h.
#pragma once
#include <algorithm>
#include <span>

#include "gas/frame/gas_tasks.h"
#include "gas/structure/gas_instance_structure.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_motion_blur.h"

/// The boxes of all leaves: in their instances' spaces at three consecutive samples, in world space at the middle one.
struct GasLeafBoxes {
  CoreAlignedArray<GMathBbox3<float>> local[3];  ///< [sample modulo 3][leaf]
  CoreAlignedArray<GMathBbox3<float>> world;     ///< [leaf]

  explicit GasLeafBoxes(uint leaf_count) : world(leaf_count) {
    bool is_complete = static_cast<bool>(world);
    for (CoreAlignedArray<GMathBbox3<float>>& boxes : local) {
      boxes = CoreAlignedArray<GMathBbox3<float>>(leaf_count);
      is_complete = is_complete && boxes;
      // Stays where no boxes are supplied.
      if (boxes) std::fill(boxes.begin(), boxes.end(), GMathBbox3<float>({0, 0, 0}, {0, 0, 0}));
    }
    gas_need(is_complete);
  }
};

/// Measures a slice of the instances at one sample and at the next: world boxes depend on the motion on both sides of a
/// sample. Writes only the matrices of these instances and the boxes of their leaves.
template <class Structure>
class GasInstanceMotionTask final : public GasTask {
 public:
  const CtxEval* ctx = nullptr;
  const CtxMotionBlur* motion_blur = nullptr;
  const Structure* structure = nullptr;
  typename Structure::MotionData* data = nullptr;
  GasLeafBoxes* boxes = nullptr;
  uint first = 0, end = 0;  ///< accepted instances
  uint sample = 0;
  double time = 0.0;       ///< of `sample`
  double next_time = 0.0;  ///< of `sample` + 1
  AppProgressBar* progress = nullptr;
  uint first_step = 0;

  void work(const uint& thread_index) override { update(ctx->get_or_create_thread_ctx(thread_index)); }

  /// @param thread_ctx  under the description that is updated
  void update(const CtxEval& thread_ctx) {
    for (uint accepted = first; accepted < end; ++accepted) {
      ctx->get_application().check_stop();
      update_instance(thread_ctx, accepted);
      if (progress != nullptr) progress->step(first_step + accepted + 1);
    }
  }

 private:
  void update_instance(const CtxEval& thread_ctx, uint accepted) const {
    const uint sample_count = motion_blur->get_sample_count(), first_leaf = structure->table.first_leaves[accepted];
    GMathMatrix4x4<double>* matrices = data->get_matrices(structure->get_key(accepted));
    const auto measure = [&](uint at, double at_time) {
      structure->measure(thread_ctx, accepted, at_time, matrices[at], boxes->local[at % 3].get() + first_leaf);
    };
    if (sample == 0) measure(0, time);
    if (sample + 1 < sample_count) measure(sample + 1, next_time);
    for (uint leaf = first_leaf; leaf < first_leaf + structure->table.counts[accepted]; ++leaf) {
      GasBboxSurplus surplus;
      if (sample > 0) surplus.raise(get_surplus(sample - 1, leaf, matrices));
      if (sample + 1 < sample_count) surplus.raise(get_surplus(sample, leaf, matrices));
      surplus.add(structure->get_growth(accepted));
      boxes->world[leaf] = gas_get_world_bbox(boxes->local[sample % 3][leaf], matrices[sample], surplus);
    }
  }

  /// Between samples `at` and `at` + 1.
  GasBboxSurplus get_surplus(uint at, uint leaf, const GMathMatrix4x4<double>* matrices) const {
    return gas_get_motion_surplus(boxes->local[at % 3][leaf], matrices[at], boxes->local[(at + 1) % 3][leaf],
                                  matrices[at + 1]);
  }
};

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur,
                                                      MotionData& data) const {
  AppBase& application = ctx.get_application();
  const uint count = table.get_accepted_count(), sample_count = motion_blur.get_sample_count();
  const uint length = self().get_update_slice(application.get_max_thread_count());
  data.set_samples(count, self().get_key_count(), sample_count);
  CoreArray<GasInstanceMotionTask<Self>> tasks(gas_get_slice_count(count, length));
  gas_need(data.refit.set_samples(this->tree, sample_count) && !tasks.is_empty());
  self().fill_matrices(ctx, motion_blur, data);
  GasLeafBoxes boxes(table.get_leaf_count());
  const AppOwnProgress progress(application, Self::update_title);
  if (progress.get() != nullptr) progress.get()->set_step_count(sample_count * count);
  // Added, not multiplied: a nested scene computes its sample times in the same way, so both are equal in every bit.
  double time = motion_blur.get_frame_begin();
  for (uint sample = 0; sample < sample_count; ++sample) {
    const double next_time = time + motion_blur.get_sample_step();
    const auto prepare = [&](GasInstanceMotionTask<Self>& task) {
      task.ctx = &ctx;
      task.motion_blur = &motion_blur;
      task.structure = &self();
      task.data = &data;
      task.boxes = &boxes;
      task.sample = sample;
      task.time = time;
      task.next_time = next_time;
      task.progress = progress.get();
      task.first_step = sample * count;
    };
    if (count < 2) {
      prepare(tasks[0]);
      tasks[0].end = count;
      tasks[0].update(ctx);
    } else {
      SysThreadTaskManager manager(application.get_thread_manager());
      gas_run_slices_in(tasks, manager, count, length, prepare);
    }
    const std::span<const GMathBbox3<float>> world(boxes.world.get(), boxes.world.get_count());
    gas_need(data.refit.update_sample(sample, world, nullptr));
    time = next_time;
  }
  choose_boxes(data);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::choose_boxes(MotionData& data) const {
  std::fill(data.has_boxes.begin(), data.has_boxes.end(), false);
  for (const GasInstance& instance : instances) {
    const std::span<const GMathMatrix4x4<double>> matrices(data.get_matrices(self().get_key(instance.accepted)),
                                                           data.matrices_sample_count);
    const auto can_test = [&](const auto& matrix) { return gas_can_test_moving(instance.grid, matrix); };
    // Shapes: not when the tree is built, because an object within a nested scene may get its keys later.
    data.has_boxes[instance.accepted] =
        self().keeps_shape(instance.accepted) && std::all_of(matrices.begin(), matrices.end(), can_test);
  }
}
