// Measures the primitives of GasFur: the geometry computes boxes and spaces, one primitive at a time.
#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "gas/frame/gas_tasks.h"
#include "gas/gas_fur.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_geometry/geometry_object.h"
#include "vq_sys/sys_thread_manager.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_GEOMETRY_CHANGE};

constexpr uint parallel_measures = 16384;  // fewer are measured faster than threads wake up

bool is_finite(const GMathBbox3<float>& box) {
  for (uint axis = 0; axis < 3; ++axis) {
    if (!std::isfinite(box.min[axis]) || !std::isfinite(box.max[axis])) return false;
  }
  return true;
}

const CtxEval& get_own_ctx(const CtxEval& ctx) {
  const uint index = SysThreadManager::get_current_thread_index();
  return index < ctx.get_thread_ctx_count() ? ctx.get_or_create_thread_ctx(index) : ctx;
}

/// A slice of the items.
template <class Function>
class MeasureTask final : public GasTask {
 public:
  const Function* function = nullptr;
  uint first = 0, end = 0, part = 0;
  void work(const uint& /*thread_index*/) override { (*function)(first, end, part); }
};

/// Calls function(first, end, part) for slices of `count` items in tasks; `part` is the number of the slice.
template <class Function>
void run_in_parts(uint count, uint slice, SysThreadManager& threads, const Function& function) {
  SysThreadTaskManager manager(threads);
  gas_run_slices<MeasureTask<Function>>(manager, count, slice, [&](MeasureTask<Function>& task) {
    task.function = &function;
    task.part = task.first / slice;
  });
}

bool is_parallel(uint count, const SysThreadManager* threads) {
  return threads != nullptr && count >= parallel_measures && threads->get_max_thread_count() >= 2;
}

/// The box used if there is no memory to measure items: the largest finite one.
GMathBbox3<float> get_everything() {
  constexpr float most = std::numeric_limits<float>::max();
  return {{-most, -most, -most}, {most, most, most}};
}

/// The union of measure(ctx, items) for parts of the items.
template <class Measure>
GMathBbox3<float> unite(const CoreBasicArray<uint>& items, const GasFur::ComputeSpaceBboxesData& data,
                        SysThreadManager* threads, const Measure& measure) {
  const auto unite_part = [&](uint first, uint end) {
    return measure(get_own_ctx(*data.ctx), CoreBasicArray<uint>::make_view(items.get_items() + first, end - first));
  };
  GMathBbox3<double> box;
  const uint count = items.get_count();
  const GasOutcome outcome = gas_try([&] {
    if (!is_parallel(count, threads)) {
      box = unite_part(0, count);
      return;
    }
    const uint slice = gas_get_slice_length(count, threads->get_max_thread_count());
    std::vector<GMathBbox3<double>> parts(gas_get_slice_count(count, slice));
    run_in_parts(count, slice, *threads,
                 [&](uint first, uint end, uint part) { parts[part] = unite_part(first, end); });
    for (const GMathBbox3<double>& part : parts) box.add(part);
  });
  if (outcome != GasOutcome::done) return get_everything();
  return box.is_empty() ? GMathBbox3<float>() : GMathBbox3<float>(box);
}

template <class Measure>
void measure_each(const CoreBasicArray<uint>& items, GMathBbox3<float>* boxes,
                  const GasFur::ComputeSpaceBboxesData& data, SysThreadManager* threads, const Measure& measure) {
  const auto measure_part = [&](uint first, uint end, uint /*part*/) {
    const CtxEval& ctx = get_own_ctx(*data.ctx);
    for (uint k = first; k < end; ++k) boxes[k] = GMathBbox3<float>(measure(ctx, items[k]));
  };
  const uint count = items.get_count();
  const GasOutcome outcome = gas_try([&] {
    if (!is_parallel(count, threads)) return measure_part(0, count, 0);
    run_in_parts(count, gas_get_slice_length(count, threads->get_max_thread_count()), *threads, measure_part);
  });
  if (outcome != GasOutcome::done) std::fill_n(boxes, count, get_everything());
}

}  // namespace

void GasFur::compute_bboxes(const CtxEval& ctx, const GeometryObject* geometry, const unsigned int& first,
                            const unsigned int& end, GMathBbox3<float>* boxes, CoreVector<unsigned int>& valid,
                            AppProgressBar* progress) {
  for (uint primitive = first; primitive < end; ++primitive) {
    boxes[primitive] = GMathBbox3<float>(geometry->get_primitive_bbox(ctx, primitive));
    if (is_finite(boxes[primitive])) valid.add(primitive);
    if (progress != nullptr) progress->step(primitive + 1);
  }
}

void GasFur::compute_bboxes_and_spaces(const CtxEval& ctx, const GeometryObject* geometry, const unsigned int& first,
                                       const unsigned int& end, GMathBbox3<float>* boxes,
                                       GMathLinearSpace3<float>* spaces, CoreVector<unsigned int>& valid,
                                       AppProgressBar* progress) {
  for (uint primitive = first; primitive < end; ++primitive)
    spaces[primitive] = GMathLinearSpace3<float>(geometry->get_primitive_space(ctx, primitive));
  compute_bboxes(ctx, geometry, first, end, boxes, valid, progress);
}

void GasFur::compute_bboxes_at(const CtxEval& ctx, const GeometryObject* geometry, const double& time,
                               const unsigned int& first, const unsigned int& end, GMathBbox3<float>* boxes,
                               AppProgressBar* progress) {
  for (uint primitive = first; primitive < end; ++primitive) {
    const GMathBbox3<float> box(geometry->get_primitive_bbox_at(ctx, time, primitive));
    boxes[primitive] =
        is_finite(box) && !box.is_empty() ? box : GMathBbox3<float>(geometry->get_primitive_bbox(ctx, primitive));
    if (progress != nullptr) progress->step(primitive + 1);
  }
}

GMathBbox3<float> GasFur::compute_space_bbox(const CoreBasicArray<unsigned int>& items,
                                             const GMathLinearSpace3<float>& space, ComputeSpaceBboxesData* data,
                                             SysThreadManager* threads) {
  const GMathLinearSpace3<double> wide(space);
  return unite(items, *data, threads, [&](const CtxEval& ctx, const CoreBasicArray<uint>& part) {
    return data->geometry->unite_primitive_bboxes_in_space(ctx, wide, part);
  });
}

void GasFur::compute_space_bboxes(const CoreBasicArray<unsigned int>& items, const GMathLinearSpace3<float>& space,
                                  GMathBbox3<float>* boxes, ComputeSpaceBboxesData* data, SysThreadManager* threads) {
  const GMathLinearSpace3<double> wide(space);
  measure_each(items, boxes, *data, threads, [&](const CtxEval& ctx, uint item) {
    return data->geometry->get_primitive_bbox_in_space(ctx, wide, item);
  });
}

GMathBbox3<float> GasFur::compute_space_bbox_at(const CoreBasicArray<unsigned int>& items,
                                                const GMathLinearSpace3<float>& space, ComputeSpaceBboxesData* data,
                                                SysThreadManager* threads) {
  const GMathLinearSpace3<double> wide(space);
  return unite(items, *data, threads, [&](const CtxEval& ctx, const CoreBasicArray<uint>& part) {
    GMathBbox3<double> box;
    for (const uint& item : part) box.add(data->geometry->get_primitive_bbox_in_space_at(ctx, data->time, wide, item));
    return box;
  });
}

void GasFur::compute_space_bboxes_at(const CoreBasicArray<unsigned int>& items, const GMathLinearSpace3<float>& space,
                                     GMathBbox3<float>* boxes, ComputeSpaceBboxesData* data,
                                     SysThreadManager* threads) {
  const GMathLinearSpace3<double> wide(space);
  measure_each(items, boxes, *data, threads, [&](const CtxEval& ctx, uint item) {
    return data->geometry->get_primitive_bbox_in_space_at(ctx, data->time, wide, item);
  });
}
