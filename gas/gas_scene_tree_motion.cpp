// Motion blur of a scene: matrices and boxes of its objects at the sample times, and the tree refitted to them.
#include "gas/gas_scene_tree_motion.h"

#include <algorithm>
#include <span>

#include "gas/frame/gas_tasks.h"
#include "gas/structure/gas_world_bbox.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_module/module_scene_object.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_GAS_MOTION_DIRTY};

/// The boxes of all leaves: in object space at three consecutive samples, in world space at the middle one.
struct LeafBoxes {
  CoreAlignedArray<GMathBbox3<float>> local[3];  ///< [sample modulo 3][leaf]
  CoreAlignedArray<GMathBbox3<float>> world;     ///< [leaf]

  explicit LeafBoxes(uint leaf_count) : world(leaf_count) {
    bool is_complete = static_cast<bool>(world);
    for (CoreAlignedArray<GMathBbox3<float>>& boxes : local) {
      boxes = CoreAlignedArray<GMathBbox3<float>>(leaf_count);
      is_complete = is_complete && boxes;
      // Stays if a module supplies no boxes.
      if (boxes) std::fill(boxes.begin(), boxes.end(), GMathBbox3<float>({0, 0, 0}, {0, 0, 0}));
    }
    gas_need(is_complete);
  }
};

}  // namespace

/// Measures one object at one sample and at the next: world boxes depend on the motion on both sides of a sample.
/// Writes only the matrices of this object and the boxes of its leaves.
class GasSceneTree::UpdateObjectMotionTask final : public GasTask {
 public:
  const CtxEval* ctx = nullptr;
  const CtxMotionBlur* motion_blur = nullptr;
  ModuleSceneObject* object = nullptr;
  GeometryOverride* geometry_override = nullptr;
  CoreBasicArray<void*> clusters;
  GMathBbox3<float>* local[3] = {};            ///< [sample modulo 3][cluster]
  GMathBbox3<float>* world = nullptr;          ///< [cluster], at `sample`
  GMathMatrix4x4<double>* matrices = nullptr;  ///< [sample]
  uint sample = 0;
  double time = 0.0;       ///< of `sample`
  double next_time = 0.0;  ///< of `sample` + 1
  AppProgressBar* progress = nullptr;
  uint step = 0;

  void work(const uint& thread_index) override { update(ctx->get_or_create_thread_ctx(thread_index)); }

  void update(const CtxEval& thread_ctx) {
    ctx->get_application().check_stop();
    const uint sample_count = motion_blur->get_sample_count();
    if (sample == 0) measure(thread_ctx, 0, time);
    if (sample + 1 < sample_count) measure(thread_ctx, sample + 1, next_time);
    for (uint k = 0; k < clusters.get_count(); ++k) {
      GasBboxSurplus surplus;
      if (sample > 0) surplus.raise(get_surplus(sample - 1, k));
      if (sample + 1 < sample_count) surplus.raise(get_surplus(sample, k));
      world[k] = gas_get_world_bbox(local[sample % 3][k], matrices[sample], surplus);
    }
    if (progress != nullptr) progress->step(step);
  }

 private:
  bool is_moving() const { return (object->get_flags() & ModuleSceneObject::moving) != 0; }

  void measure(const CtxEval& thread_ctx, uint at, double at_time) const {
    // A thread's own context may still have another motion-blur description, or none.
    CtxEval object_ctx(thread_ctx);
    object_ctx.set_motion_blur(motion_blur);
    object_ctx.set_time(ctx->get_time());
    const ModuleClusterFunctions& functions = object->get_cluster_functions();
    if (is_moving()) {
      matrices[at] = object->get_global_matrix_at(at_time);
      functions.get_clusters_bboxes_at(object, geometry_override, object_ctx, at_time, clusters, local[at % 3]);
    } else {
      matrices[at] = object->get_global_matrix();
      functions.get_clusters_bboxes(object, geometry_override, clusters, local[at % 3]);
    }
  }

  /// Between samples `first` and `first` + 1.
  GasBboxSurplus get_surplus(uint first, uint cluster) const {
    if (!is_moving()) return {};
    return gas_get_motion_surplus(local[first % 3][cluster], matrices[first], local[(first + 1) % 3][cluster],
                                  matrices[first + 1]);
  }
};

void GasSceneTree::update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const {
  const uint object_count = object_indices.get_count(), sample_count = motion_blur.get_sample_count();
  if (data.matrices_sample_count != sample_count || !data.matrices) {
    data.matrices = CoreAlignedArray<GMathMatrix4x4<double>>(std::size_t{object_count} * sample_count, 64);
  }
  data.matrices_sample_count = sample_count;
  CoreArray<UpdateObjectMotionTask> tasks(object_count);
  gas_need(data.matrices && data.refit.set_samples(tree, sample_count) && tasks.get_count() == object_count);
  LeafBoxes boxes(leaf_objects.get_count());
  AppBase& application = ctx.get_application();
  const AppOwnProgress progress(application, "Updating motion blur of scene GAS");
  if (progress.get() != nullptr) progress.get()->set_step_count(sample_count * object_count);
  for (uint accepted = 0; accepted < object_count; ++accepted) {
    UpdateObjectMotionTask& task = tasks[accepted];
    task.ctx = &ctx;
    task.motion_blur = &motion_blur;
    task.object = objects[object_indices[accepted]];
    task.geometry_override = get_override(object_indices[accepted]);
    task.clusters = get_object_clusters(accepted);
    for (uint k = 0; k < 3; ++k) task.local[k] = boxes.local[k].get() + first_leaves[accepted];
    task.world = boxes.world.get() + first_leaves[accepted];
    task.matrices = &data.matrices[std::size_t{accepted} * sample_count];
    task.progress = progress.get();
  }
  // Added, not multiplied: a nested scene computes its sample times in the same way, so both are equal in every bit.
  double time = motion_blur.get_frame_begin();
  for (uint sample = 0; sample < sample_count; ++sample) {
    const double next_time = time + motion_blur.get_sample_step();
    for (uint accepted = 0; accepted < object_count; ++accepted) {
      tasks[accepted].sample = sample;
      tasks[accepted].time = time;
      tasks[accepted].next_time = next_time;
      tasks[accepted].step = sample * object_count + accepted + 1;
    }
    if (object_count < 2) {
      tasks[0].update(ctx);
    } else {
      SysThreadTaskManager manager(application.get_thread_manager());
      gas_run_tasks(manager, tasks);
    }
    const std::span<const GMathBbox3<float>> world(boxes.world.get(), boxes.world.get_count());
    gas_need(data.refit.update_sample(sample, world, nullptr));
    time = next_time;
  }
}

namespace {

/// Each product in double precision, rounded to single before the sum. Not inlined: if the caller converts the result
/// back to double in the same function, g++ 12 drops the roundings.
[[gnu::noinline]] float blend_bound(float a, float b, double fraction) {
  if (fraction == 0.0 || fraction == 1.0) return fraction == 0.0 ? a : b;  // exact, also if the other is infinite
  return static_cast<float>((1.0 - fraction) * a) + static_cast<float>(fraction * b);
}

}  // namespace

GMathBbox3<double> GasSceneTree::blend_bbox(const GMathBbox3<float>& a, const GMathBbox3<float>& b, double fraction) {
  GMathBbox3<double> box;
  for (uint axis = 0; axis < 3; ++axis) {
    box.min[axis] = blend_bound(a.min[axis], b.min[axis], fraction);
    box.max[axis] = blend_bound(a.max[axis], b.max[axis], fraction);
  }
  return box;
}
