// The mesh structure under motion blur: refits its tree on the first query of a description, and answers boxes at
// times.
#include "gas/gas_geometry_bvh4_motion.h"

#include <algorithm>
#include <vector>

#include "gas/bvh/bvh_clusters.h"
#include "gas/frame/gas_tasks.h"
#include "vq_app_base/app_base.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_core/core_memory.h"
#include "vq_geometry/geometry_object.h"

namespace {

constexpr uint parallel_primitives = 1024;  // from here on boxes are computed in tasks

/// Which two samples a time lies between. The second is the first again when there is only one.
struct Span {
  uint first = 0, second = 0;
  double fraction = 0.0;

  Span(const CtxMotionBlur& motion_blur, double time) {
    motion_blur.get_time_sampling().get_span(time, first, fraction);
    second = std::min(first + 1, motion_blur.get_sample_count() - 1);
  }
};

/// (1 - fraction) a + fraction b in double precision, rounded to single. A call of its own: where the caller widens the
/// result in the same function, g++ 12 packs both conversions of the last two bounds into none.
[[gnu::noinline]] GMathBbox3<float> blend_in_double(const GMathBbox3<float>& a, const GMathBbox3<float>& b,
                                                    double fraction) {
  const auto blend = [&](double x, double y) { return static_cast<float>(x * (1.0 - fraction) + y * fraction); };
  GMathBbox3<float> box;
  for (uint axis = 0; axis < 3; ++axis) {
    box.min[axis] = blend(a.min[axis], b.min[axis]);
    box.max[axis] = blend(a.max[axis], b.max[axis]);
  }
  return box;
}

}  // namespace

/// Boxes of a slice of the primitives at one sample time.
class GasGeometryBvh4::GetLeafBboxesAtTask final : public GasTask {
 public:
  const GasGeometryBvh4* structure = nullptr;
  const CtxEval* ctx = nullptr;
  double time = 0.0;
  uint first = 0, end = 0;
  GMathBbox3<float>* boxes = nullptr;

  void run(const uint& thread_index) override {
    const CtxEval& thread_ctx = ctx->get_or_create_thread_ctx(thread_index);
    for (uint position = first; position < end; ++position)
      boxes[position] = structure->compute_bbox_at(thread_ctx, time, position);
  }
};

GMathBbox3<float> GasGeometryBvh4::compute_bbox_at(const CtxEval& ctx, double time, uint position) const {
  const GeometryObject& object = *get_owner(position);
  const uint primitive = get_primitive(position);
  const GMathBbox3<double> box = object.get_primitive_bbox_at(ctx, time, primitive);
  // A primitive is in the tree because its box at rest was usable, and it never drops out for what it does later.
  return GMathBbox3<float>(gmath_is_valid_box(box) ? box : object.get_primitive_bbox(ctx, primitive));
}

void GasGeometryBvh4::compute_bboxes_at(const CtxEval& ctx, double time, GMathBbox3<float>* boxes) const {
  SysThreadTaskManager manager(ctx.get_application().get_thread_manager());
  const uint thread_count = manager.get_max_thread_count();
  if (kept_count < parallel_primitives || thread_count < 2) {
    for (uint position = 0; position < kept_count; ++position) boxes[position] = compute_bbox_at(ctx, time, position);
    return;
  }
  const uint slice = gas_get_slice_length(kept_count, thread_count);
  std::vector<GetLeafBboxesAtTask> tasks(gas_get_slice_count(kept_count, slice));
  for (uint k = 0; k < tasks.size(); ++k) {
    tasks[k].structure = this;
    tasks[k].ctx = &ctx;
    tasks[k].time = time;
    tasks[k].first = k * slice;
    tasks[k].end = std::min(tasks[k].first + slice, kept_count);
    tasks[k].boxes = boxes;
  }
  gas_run_tasks(manager, tasks);
}

const GasGeometryBvh4::MotionData& GasGeometryBvh4::get_motion_data(const CtxEval& ctx,
                                                                    const CtxMotionBlur& motion_blur) const {
  MotionData& data = motion_data.get(motion_blur);
  // The common case; pairs with the release store that ends a refit.
  if (data.stamp.load(std::memory_order_acquire) != motion_blur.get_stamp()) update_motion_blur(ctx, motion_blur, data);
  return data;
}

void GasGeometryBvh4::refit_samples(const CtxEval& ctx, const GMathTimeSampling& sampling,
                                    std::span<GMathBbox3<float>> boxes, GasBvhMotion<4>& refit) const {
  AppBase& application = ctx.get_application();
  AppProgressBar* progress = application.create_progress_bar("Updating GAS motion blur...");
  const uint sample_count = sampling.get_sample_count();
  const double box_share = 0.5 / application.get_max_thread_count();
  bool refitted = true;
  for (uint sample = 0; sample < sample_count && refitted; ++sample) {
    progress->begin_task("Compute primitives AABB", box_share / sample_count);
    compute_bboxes_at(ctx, sampling.get_sample_time(sample), boxes.data());
    progress->end_task();
    progress->begin_task("Refit BVH", (1.0 - box_share) / sample_count);
    refitted = refit.update_sample(sample, boxes, progress);
    progress->end_task();
  }
  progress->finish();
  if (!refitted) refit.clear();
}

void GasGeometryBvh4::update_motion_blur(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const {
  const SysThreadLockGuard guard(data.lock);
  // Another thread may have refitted while this one waited.
  if (data.stamp.load(std::memory_order_relaxed) == motion_blur.get_stamp()) return;
  const uint sample_count = motion_blur.get_sample_count();
  CoreAlignedArray<GMathBbox3<float>> boxes(kept_count);
  // Where memory runs out no samples are kept, and the structure answers as if it were at rest.
  if (!boxes || !data.refit.set_samples(tree, sample_count)) {
    data.refit.clear();
  } else {
    refit_samples(ctx, motion_blur.get_time_sampling(), {boxes.get(), kept_count}, data.refit);
  }
  data.stamp.store(motion_blur.get_stamp(), std::memory_order_release);  // publishes the boxes just written
}

GMathBbox3<double> GasGeometryBvh4::get_bbox_at(const CtxEval& ctx, const double& time) const {
  const CtxMotionBlur* motion_blur = ctx.get_motion_blur();
  if (motion_blur == nullptr || !has_motion || tree.is_empty()) return get_bbox();
  const GasBvhMotion<4>& refit = get_motion_data(ctx, *motion_blur).refit;
  if (refit.get_sample_count() == 0) return get_bbox();
  const Span span(*motion_blur, time);
  return GMathBbox3<double>(blend_in_double(refit.get_bbox(span.first), refit.get_bbox(span.second), span.fraction));
}

void GasGeometryBvh4::get_clusters_bboxes_at(const CtxEval& ctx, const double& time,
                                             const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const {
  const CtxMotionBlur* motion_blur = ctx.get_motion_blur();
  if (motion_blur == nullptr || !has_motion || tree.is_empty()) return get_clusters_bboxes(clusters, boxes);
  const GasBvhMotion<4>& refit = get_motion_data(ctx, *motion_blur).refit;
  if (refit.get_sample_count() == 0) return get_clusters_bboxes(clusters, boxes);
  const Span span(*motion_blur, time);
  bvh_get_clusters_bboxes_at(tree, refit, span.first, span.second, static_cast<float>(span.fraction), clusters, boxes);
}

void GasGeometryBvh4::dirty_motion_blur() { motion_data.make_stale(); }
