// The mesh structure under motion blur: refits its tree on the first query of a description, and answers boxes at
// times.
#include "gas/gas_geometry_bvh4_motion.h"

#include "gas/bvh/bvh_clusters.h"
#include "gas/frame/gas_tasks.h"
#include "vq_app_base/app_base.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_core/core_memory.h"
#include "vq_geometry/geometry_object.h"

namespace {

constexpr uint parallel_primitives = 1024;  // from here on boxes are computed in tasks

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
  gas_run_slices<GetLeafBboxesAtTask>(manager, kept_count, gas_get_slice_length(kept_count, thread_count),
                                      [&](GetLeafBboxesAtTask& task) {
                                        task.structure = this;
                                        task.ctx = &ctx;
                                        task.time = time;
                                        task.boxes = boxes;
                                      });
}

const GasGeometryBvh4::MotionData& GasGeometryBvh4::get_motion_data(const CtxEval& ctx,
                                                                    const CtxMotionBlur& motion_blur) const {
  MotionData& data = motion_data.get(motion_blur);
  if (!data.is_current(motion_blur)) update_motion_blur(ctx, motion_blur, data);
  return data;
}

void GasGeometryBvh4::update_motion_blur(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const {
  const double box_share = 0.5 / ctx.get_application().get_max_thread_count();
  gas_refit(
      data, tree, kept_count, ctx, motion_blur, box_share,
      [&](double time, GMathBbox3<float>* boxes) { compute_bboxes_at(ctx, time, boxes); },
      [&](uint sample, std::span<const GMathBbox3<float>> boxes, AppProgressBar* progress) {
        return data.refit.update_sample(sample, boxes, progress);
      });
}

GMathBbox3<double> GasGeometryBvh4::get_bbox_at(const CtxEval& ctx, const double& time) const {
  const CtxMotionBlur* motion_blur = ctx.get_motion_blur();
  if (motion_blur == nullptr || !has_motion || tree.is_empty()) return get_bbox();
  const GasBvhMotion<4>* motion = get_motion_data(ctx, *motion_blur).get_motion();
  if (motion == nullptr) return get_bbox();
  const GasMotionSpan span(*motion_blur, time);
  return GMathBbox3<double>(
      blend_in_double(motion->get_bbox(span.first), motion->get_bbox(span.second), span.fraction));
}

void GasGeometryBvh4::get_clusters_bboxes_at(const CtxEval& ctx, const double& time,
                                             const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const {
  const CtxMotionBlur* motion_blur = ctx.get_motion_blur();
  if (motion_blur == nullptr || !has_motion || tree.is_empty()) return get_clusters_bboxes(clusters, boxes);
  const GasBvhMotion<4>* motion = get_motion_data(ctx, *motion_blur).get_motion();
  if (motion == nullptr) return get_clusters_bboxes(clusters, boxes);
  const GasMotionSpan span(*motion_blur, time);
  bvh_get_clusters_bboxes_at(tree, *motion, span.first, span.second, static_cast<float>(span.fraction), clusters,
                             boxes);
}

void GasGeometryBvh4::dirty_motion_blur() { motion_data.make_stale(); }
