// A scene under motion blur: matrices and boxes of its objects at the description's sample times, and the tree refitted
// to them, on the first query that needs it.
#include "gas/gas_scene_tree_motion.h"

#include <algorithm>
#include <memory>
#include <new>
#include <span>

#include "gas/frame/gas_tasks.h"
#include "vq_app_base/app_base.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_module/module_scene_object.h"

/// One object at one sample. Writes its matrix and its leaves' boxes only.
class GasSceneTree::UpdateObjectMotionTask final : public GasTask {
 public:
  const CtxEval* ctx = nullptr;
  const CtxMotionBlur* motion_blur = nullptr;
  ModuleSceneObject* object = nullptr;
  GeometryOverride* geometry_override = nullptr;
  CoreBasicArray<void*> clusters;
  GMathBbox3<float>* boxes = nullptr;  ///< [cluster]
  GMathMatrix4x4<double>* matrix = nullptr;
  double time = 0.0;
  AppProgressBar* progress = nullptr;
  uint step = 0;

  void run(const uint& thread_index) override { update(ctx->get_or_create_thread_ctx(thread_index)); }

  void update(const CtxEval& thread_ctx) {
    // A thread's context was made when the thread first needed one, under another description or under none.
    CtxEval object_ctx(thread_ctx);
    object_ctx.set_motion_blur(motion_blur);
    object_ctx.set_time(ctx->get_time());
    const ModuleClusterFunctions& functions = object->get_cluster_functions();
    if ((object->get_flags() & ModuleSceneObject::moving) != 0) {
      *matrix = object->get_global_matrix_at(time);
      functions.get_clusters_bboxes_at(object, geometry_override, object_ctx, time, clusters, boxes);
    } else {
      *matrix = object->get_global_matrix();
      functions.get_clusters_bboxes(object, geometry_override, clusters, boxes);
    }
    for (uint k = 0; k < clusters.get_count(); ++k) boxes[k] = gas_get_world_bbox(boxes[k], *matrix);
    progress->step(step);
  }
};

GasSceneTree::MotionData& GasSceneTree::get_motion_data(const CtxEval& ctx, const CtxMotionBlur& motion_blur) const {
  MotionData& data = motion_data.get(motion_blur);
  // The common case; pairs with the release store that ends an update.
  if (data.stamp.load(std::memory_order_acquire) != motion_blur.get_stamp()) update_motion_blur(ctx, motion_blur, data);
  return data;
}

void GasSceneTree::update_motion_blur(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const {
  const SysThreadLockGuard guard(data.lock);
  // Another thread may have done it while this one waited.
  if (data.stamp.load(std::memory_order_relaxed) == motion_blur.get_stamp()) return;
  const uint sample_count = motion_blur.get_sample_count();
  if (data.matrices_sample_count != sample_count || !data.matrices) {
    data.matrices =
        CoreAlignedArray<GMathMatrix4x4<double>>(std::size_t{object_indices.get_count()} * sample_count, 64);
  }
  data.matrices_sample_count = sample_count;
  if (!data.matrices || !data.refit.set_samples(bvh, sample_count) || !update_samples(ctx, motion_blur, data))
    data.clear();  // no memory
  advert_memory_changed();
  data.stamp.store(motion_blur.get_stamp(), std::memory_order_release);  // publishes what was just written
}

bool GasSceneTree::update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const try {
  const uint object_count = object_indices.get_count(), sample_count = data.matrices_sample_count;
  CoreArray<GMathBbox3<float>> boxes(leaf_objects.get_count());
  CoreArray<UpdateObjectMotionTask> tasks(object_count);
  if (boxes.get_count() != leaf_objects.get_count() || tasks.get_count() != object_count) return false;
  std::fill(boxes.begin(), boxes.end(), GMathBbox3<float>({0, 0, 0}, {0, 0, 0}));
  AppBase& application = ctx.get_application();
  struct Finish {
    void operator()(AppProgressBar* bar) const { bar->finish(); }
  };
  const std::unique_ptr<AppProgressBar, Finish> progress(
      application.create_progress_bar("Updating motion blur of scene GAS"));
  progress->set_step_count(sample_count * object_count);
  for (uint accepted = 0; accepted < object_count; ++accepted) {
    UpdateObjectMotionTask& task = tasks[accepted];
    task.ctx = &ctx;
    task.motion_blur = &motion_blur;
    task.object = objects[object_indices[accepted]];
    task.geometry_override = get_override(object_indices[accepted]);
    task.clusters = get_object_clusters(accepted);
    task.boxes = boxes.get_items() + first_leaves[accepted];
    task.progress = progress.get();
  }
  bool refitted = true;
  double time = motion_blur.get_frame_begin();
  for (uint sample = 0; sample < sample_count && refitted; ++sample) {
    for (uint accepted = 0; accepted < object_count; ++accepted) {
      tasks[accepted].matrix = &data.matrices[std::size_t{accepted} * sample_count + sample];
      tasks[accepted].time = time;
      tasks[accepted].step = sample * object_count + accepted + 1;
    }
    if (object_count < 2) {
      tasks[0].update(ctx);
    } else {
      SysThreadTaskManager manager(application.get_thread_manager());
      gas_run_tasks(manager, tasks);
    }
    refitted =
        data.refit.update_sample(sample, std::span<const GMathBbox3<float>>(boxes.begin(), boxes.end()), nullptr);
    // Added up rather than multiplied, so that a scene and a bundle in it sample at the same times in every bit.
    time += motion_blur.get_sample_step();
  }
  return refitted;
} catch (const std::bad_alloc&) {  // from the host's queue of tasks, or an object
  return false;
}

namespace {

/// Each product in double precision, rounded to single before the sum. A call of its own: where the caller widens the
/// result in the same function, g++ 12 drops the roundings.
[[gnu::noinline]] float blend_bound(float a, float b, double fraction) {
  return static_cast<float>((1.0 - fraction) * a) + static_cast<float>(fraction * b);
}

}  // namespace

GMathBbox3<double> GasSceneTree::get_bbox_at(const CtxEval& ctx, const double& time) const {
  const CtxMotionBlur* motion_blur = ctx.get_motion_blur();
  if (motion_blur == nullptr || bvh.is_empty()) return get_bbox();
  const MotionData& data = get_motion_data(ctx, *motion_blur);
  if (data.matrices_sample_count == 0) return get_bbox();
  uint sample = 0;
  double fraction = 0.0;
  motion_blur->get_time_sampling().get_span(time, sample, fraction);
  const GMathBbox3<float>& a = data.refit.get_bbox(sample);
  const GMathBbox3<float>& b = data.refit.get_bbox(std::min(sample + 1, data.matrices_sample_count - 1));
  GMathBbox3<double> box;
  for (uint axis = 0; axis < 3; ++axis) {
    box.min[axis] = blend_bound(a.min[axis], b.min[axis], fraction);
    box.max[axis] = blend_bound(a.max[axis], b.max[axis], fraction);
  }
  return box;
}

void GasSceneTree::dirty_motion_blur() { motion_data.make_stale(); }
