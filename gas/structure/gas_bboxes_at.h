// gas/structure/gas_bboxes_at.h
//
// Boxes of all primitives of a structure at one time, in tasks where there are enough of them.
#pragma once
#include "gas/frame/gas_tasks.h"
#include "vq_app_base/app_base.h"
#include "vq_gmath/gmath_bbox.h"

/// Boxes of one slice of the primitives. The structure's own task says in `measure` what one slice is.
template <class Structure>
class GasBboxesAtTask : public GasTask {
 public:
  const CtxEval* ctx = nullptr;
  const Structure* structure = nullptr;
  double time = 0.0;
  uint first = 0, end = 0;
  GMathBbox3<float>* boxes = nullptr;  ///< of all primitives

  /// Writes boxes[first] to boxes[end - 1], and checks for a stop request at least every 16384 boxes.
  virtual void measure(const CtxEval& thread_ctx) const = 0;

 private:
  void work(const uint& thread_index) final { measure(ctx->get_or_create_thread_ctx(thread_index)); }
};

/// Writes `count` boxes at `time`: on this thread below 1024 of them or with one thread, else in slices.
template <class Task, class Structure>
void gas_compute_bboxes_at(const CtxEval& ctx, const Structure& structure, uint count, double time,
                           GMathBbox3<float>* boxes) {
  constexpr uint parallel_from = 1024;
  const auto prepare = [&](Task& task) {
    task.ctx = &ctx;
    task.structure = &structure;
    task.time = time;
    task.boxes = boxes;
  };
  SysThreadTaskManager manager(ctx.get_application().get_thread_manager());
  const uint thread_count = manager.get_max_thread_count();
  if (count < parallel_from || thread_count < 2) {
    Task all;
    prepare(all);
    all.end = count;
    return all.measure(ctx);
  }
  gas_run_slices<Task>(manager, count, gas_get_slice_length(count, thread_count), prepare);
}
