// The curve structure is built: the geometry is asked for every primitive's box and space, and again, by the split
// strategy and the refit, for boxes of many primitives in spaces that fit them.
#include <algorithm>
#include <limits>
#include <vector>

#include "gas/frame/gas_tasks.h"
#include "gas/gas_fur_motion.h"
#include "vq_gas_base/gas_bvh_split.h"
#include "vq_geometry/geometry_object.h"
#include "vq_sys/sys_thread_manager.h"

namespace {

constexpr uint parallel_primitives = 1024;  // from here on boxes and spaces are computed in tasks
constexpr uint parallel_measures = 16384;   // fewer are measured in a space faster than threads wake up

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

/// Part of a range of items, in the name of the thread that runs it.
template <class Function>
class MeasureTask final : public GasTask {
 public:
  const Function* function = nullptr;
  uint first = 0, end = 0, part = 0;
  void run(const uint& /*thread_index*/) override { (*function)(first, end, part); }
};

/// Calls prepare(parts), then function(first, end, part) for that many parts of `count` items, on the threads where
/// that pays.
template <class Prepare, class Function>
void run_in_parts(uint count, SysThreadManager* threads, const Prepare& prepare, const Function& function) {
  if (threads == nullptr || count < parallel_measures || threads->get_max_thread_count() < 2) {
    prepare(1u);
    return function(0u, count, 0u);
  }
  SysThreadTaskManager manager(*threads);
  const uint slice = gas_get_slice_length(count, threads->get_max_thread_count());
  prepare(gas_get_slice_count(count, slice));
  gas_run_slices<MeasureTask<Function>>(manager, count, slice, [&](MeasureTask<Function>& task) {
    task.function = &function;
    task.part = task.first / slice;
  });
}

/// The union of measure(ctx, item) over all items.
template <class Measure>
GMathBbox3<float> unite(const CoreBasicArray<uint>& items, const GasFur::ComputeSpaceBboxesData& data,
                        SysThreadManager* threads, const Measure& measure) {
  std::vector<GMathBbox3<double>> boxes;
  run_in_parts(
      items.get_count(), threads, [&](uint parts) { boxes.resize(parts); },
      [&](uint first, uint end, uint part) {
        const CtxEval& ctx = get_own_ctx(*data.ctx);
        for (uint k = first; k < end; ++k) boxes[part].add(measure(ctx, items[k]));
      });
  GMathBbox3<double> box;
  for (const GMathBbox3<double>& part : boxes) box.add(part);
  return box.is_empty() ? GMathBbox3<float>() : GMathBbox3<float>(box);
}

template <class Measure>
void measure_each(const CoreBasicArray<uint>& items, GMathBbox3<float>* boxes,
                  const GasFur::ComputeSpaceBboxesData& data, SysThreadManager* threads, const Measure& measure) {
  run_in_parts(
      items.get_count(), threads, [](uint) {},
      [&](uint first, uint end, uint /*part*/) {
        const CtxEval& ctx = get_own_ctx(*data.ctx);
        for (uint k = first; k < end; ++k) boxes[k] = GMathBbox3<float>(measure(ctx, items[k]));
      });
}

// What the split strategy calls.
GMathBbox3<float> measure_set(const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space, void* owner,
                              SysThreadManager* threads) {
  return GasFur::compute_space_bbox(items, space, static_cast<GasFur::ComputeSpaceBboxesData*>(owner), threads);
}

void measure_items(const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space, GMathBbox3<float>* boxes,
                   void* owner, SysThreadManager* threads) {
  GasFur::compute_space_bboxes(items, space, boxes, static_cast<GasFur::ComputeSpaceBboxesData*>(owner), threads);
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
  return unite(items, *data, threads, [&](const CtxEval& ctx, uint item) {
    return data->geometry->get_primitive_bbox_in_space(ctx, wide, item);
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
  return unite(items, *data, threads, [&](const CtxEval& ctx, uint item) {
    return data->geometry->get_primitive_bbox_in_space_at(ctx, data->time, wide, item);
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

struct GasFur::Primitives {
  CoreAlignedArray<GMathBbox3<float>> boxes;
  CoreAlignedArray<GMathLinearSpace3<float>> spaces;
  CoreVector<uint> valid;  ///< in increasing order: what the tree is built over
};

/// Boxes and spaces of a slice of the primitives at rest.
class GasFur::StaticBboxTask final : public GasTask {
 public:
  const CtxEval* ctx = nullptr;
  const GeometryObject* geometry = nullptr;
  Primitives* primitives = nullptr;
  uint first = 0, end = 0;
  CoreVector<uint> valid;
  AppProgressBar* progress = nullptr;

  void run(const uint& thread_index) override {
    compute_bboxes_and_spaces(ctx->get_or_create_thread_ctx(thread_index), geometry, first, end,
                              primitives->boxes.get(), primitives->spaces.get(), valid, progress);
  }
};

void GasFur::compute_primitives(const CtxEval& build_ctx, Primitives& primitives, AppProgressBar* progress) const {
  const bool lends_contexts = build_ctx.get_thread_index() >= build_ctx.get_thread_ctx_count();
  if (primitive_count < parallel_primitives || !lends_contexts || build_ctx.get_thread_ctx_count() == 0) {
    return compute_bboxes_and_spaces(build_ctx, geometry, 0, primitive_count, primitives.boxes.get(),
                                     primitives.spaces.get(), primitives.valid, progress);
  }
  SysThreadTaskManager manager(build_ctx.get_application().get_thread_manager());
  const uint slice = gas_get_slice_length(primitive_count, manager.get_max_thread_count());
  const auto tasks = gas_run_slices<StaticBboxTask>(manager, primitive_count, slice, [&](StaticBboxTask& task) {
    task.ctx = &build_ctx;
    task.geometry = geometry;
    task.primitives = &primitives;
    task.progress = progress;
  });
  for (const StaticBboxTask& task : tasks) {
    for (const uint primitive : task.valid) primitives.valid.add(primitive);
  }
}

bool GasFur::create(const CtxEval& new_ctx, const GeometryObject* new_base_geometry, const GeometryObject* new_geometry,
                    AppProgressBar* progress) {
  ctx = &new_ctx;
  base_geometry = new_base_geometry;
  geometry = new_geometry;
  primitive_count = geometry->get_primitive_count();
  has_motion = geometry->has_motion();
  Primitives primitives;
  primitives.boxes = CoreAlignedArray<GMathBbox3<float>>(primitive_count);
  primitives.spaces = CoreAlignedArray<GMathLinearSpace3<float>>(primitive_count);
  if (!primitives.boxes || !primitives.spaces) primitive_count = 0;  // no primitives, or no memory for them
  if (progress != nullptr) {
    progress->begin_task("Compute primitives AABB", 0.2);
    progress->set_step_count(primitive_count);
  }
  if (primitive_count > 0) compute_primitives(new_ctx, primitives, progress);
  if (progress != nullptr) {
    progress->end_task();
    progress->begin_task("Build BVH", 0.8);
  }
  build_tree(new_ctx, primitives, progress);
  if (progress != nullptr) progress->end_task();
  count_groups();
  choose_leaf_functions();
  install_callbacks();
  motion_data.invalidate();
  return true;
}

void GasFur::build_tree(const CtxEval& build_ctx, const Primitives& primitives, AppProgressBar* progress) {
  ComputeSpaceBboxesData measured{&build_ctx, geometry, 0.0};
  GasBvhSplitCtx split_ctx;
  split_ctx.item_boxes = primitives.boxes.get();
  split_ctx.item_spaces = primitives.spaces.get();
  split_ctx.measure_set = measure_set;
  split_ctx.measure_items = measure_items;
  split_ctx.measure_owner = &measured;
  if (!oriented_nodes_allowed) split_ctx.oriented_cost = std::numeric_limits<float>::infinity();
  BvhBuildParams params;
  params.item_cost = static_cast<float>(geometry->get_build_parameter());
  params.leaf_threshold = 1;
  params.max_leaf = 0xFFFFFFFF;
  params.quantization_depth = 10;
  tree.build<GasBvhSplitUnaligned>(split_ctx, primitives.valid.get_items(), primitives.valid.get_count(), params,
                                   progress);
}

/// A group that the geometry does not name can be hit, if the query's table knows it, but not counted.
void GasFur::count_groups() {
  group_primitive_counts = CoreBasicArray<uint>(geometry->get_shading_groups().get_count());
  for (uint& count : group_primitive_counts) count = 0;
  for (uint position = 0; position < tree.item_count; ++position) {
    const uint group = geometry->get_primitive_shading_group(tree.order[position]);
    if (group < group_primitive_counts.get_count()) ++group_primitive_counts[group];
  }
}
