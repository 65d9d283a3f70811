// The curve structure under motion blur: refits its tree on the first query of a description, and answers boxes at
// times.
#include "gas/gas_fur_motion.h"

#include "gas/bvh/bvh_clusters.h"
#include "gas/frame/gas_tasks.h"

namespace {

constexpr uint parallel_primitives = 1024;  // from here on boxes are computed in tasks

/// What the refit asks for the boxes of oriented lanes.
GMathBbox3<float> measure_at(const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space, void* owner,
                             SysThreadManager* threads) {
  return GasFur::compute_space_bbox_at(items, space, static_cast<GasFur::ComputeSpaceBboxesData*>(owner), threads);
}

}  // namespace

/// Boxes of a slice of the primitives at one sample time.
class GasFur::MotionBboxTask final : public GasTask {
 public:
  const CtxEval* ctx = nullptr;
  const GeometryObject* geometry = nullptr;
  double time = 0.0;
  uint first = 0, end = 0;
  GMathBbox3<float>* boxes = nullptr;

  void run(const uint& thread_index) override {
    compute_bboxes_at(ctx->get_or_create_thread_ctx(thread_index), geometry, time, first, end, boxes, nullptr);
  }
};

void GasFur::compute_all_bboxes_at(const CtxEval& ctx, double time, GMathBbox3<float>* boxes) const {
  SysThreadTaskManager manager(ctx.get_application().get_thread_manager());
  const uint thread_count = manager.get_max_thread_count();
  if (primitive_count < parallel_primitives || thread_count < 2)
    return compute_bboxes_at(ctx, geometry, time, 0, primitive_count, boxes, nullptr);
  gas_run_slices<MotionBboxTask>(manager, primitive_count, gas_get_slice_length(primitive_count, thread_count),
                                 [&](MotionBboxTask& task) {
                                   task.ctx = &ctx;
                                   task.geometry = geometry;
                                   task.time = time;
                                   task.boxes = boxes;
                                 });
}

const GasFur::MotionData& GasFur::get_motion_data(const CtxEval& ctx, const CtxMotionBlur& motion_blur) const {
  MotionData& data = motion_data.get(motion_blur);
  if (!data.is_current(motion_blur)) update_motion_blur(ctx, motion_blur, data);
  return data;
}

void GasFur::update_motion_blur(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const {
  ComputeSpaceBboxesData measured{&ctx, geometry, 0.0};
  // Most of the time goes into the oriented lanes, which have each primitive measured once a level.
  constexpr double box_share = 0.1;
  gas_refit(
      data, tree, primitive_count, ctx, motion_blur, box_share,
      [&](double time, GMathBbox3<float>* boxes) {
        measured.time = time;
        compute_all_bboxes_at(ctx, time, boxes);
      },
      [&](uint sample, std::span<const GMathBbox3<float>> boxes, AppProgressBar* progress) {
        return data.refit.update_sample_unaligned(sample, boxes, {measure_at, &measured}, progress);
      });
}

GMathBbox3<double> GasFur::get_bbox_at(const CtxEval& ctx, const double& time) const {
  const CtxMotionBlur* motion_blur = ctx.get_motion_blur();
  if (motion_blur == nullptr || !has_motion || tree.is_empty()) return get_bbox();
  const GasBvhMotion<4>* motion = get_motion_data(ctx, *motion_blur).get_motion();
  if (motion == nullptr) return get_bbox();
  const GasMotionSpan span(*motion_blur, time);
  return GMathBbox3<double>(
      bvh_blend_boxes(motion->get_bbox(span.first), motion->get_bbox(span.second), static_cast<float>(span.fraction)));
}

void GasFur::get_clusters_bboxes_at(const CtxEval& ctx, const double& time, const CoreBasicArray<void*>& clusters,
                                    GMathBbox3<float>* boxes) const {
  const CtxMotionBlur* motion_blur = ctx.get_motion_blur();
  if (motion_blur == nullptr || !has_motion || tree.is_empty()) return get_clusters_bboxes(clusters, boxes);
  const GasBvhMotion<4>* motion = get_motion_data(ctx, *motion_blur).get_motion();
  if (motion == nullptr) return get_clusters_bboxes(clusters, boxes);
  const GasMotionSpan span(*motion_blur, time);
  bvh_get_clusters_bboxes_at(tree, *motion, span.first, span.second, static_cast<float>(span.fraction), clusters,
                             boxes);
}

void GasFur::dirty_motion_blur() { motion_data.make_stale(); }
