#include "gas/gas_geometry_base.h"

#include <algorithm>
#include <cstring>

#include "gas/frame/gas_class.h"
#include "gas/frame/gas_log.h"
#include "gas/frame/gas_tasks.h"
#include "vq_app_base/app_base.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_geometry/geometry_object.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GEOMETRY_CHANGE, EVT_ID_GEOMETRY_TOPOLOGY_CHANGE,
                                            EVT_ID_GEOMETRY_SHADING_GROUP_CHANGE};

// Registers the class with the host when the library is loaded.
[[maybe_unused]] const CoreClassInfo& class_record = GasGeometryBase::class_info();

constexpr uint from_alt = 1, also_from_extra = 2;  // a group's flag bits

void append(CoreVector<uint>& to, const CoreVector<uint>& from) {
  for (const uint index : from) gas_need(to.add(index));
}

CoreBasicArray<uint> make_array(uint count) {
  CoreBasicArray<uint> array(count);
  gas_need(array.get_count() == count);
  return array;
}

}  // namespace

const CoreClassInfo& GasGeometryBase::class_info() {
  static const CoreClassInfo& info = gas_new_class("GasGeometryBase", GasClusterable::class_info());
  return info;
}

/// The primitives to measure, for each object.
struct GasGeometryBase::ObjectLists {
  struct List {
    const GeometryObject* object = nullptr;
    CoreVector<uint> indices;
  };
  List list[3];  ///< geometry, alt_geometry, extra_geometry

  uint get_count() const {
    return list[0].indices.get_count() + list[1].indices.get_count() + list[2].indices.get_count();
  }
};

/// Measures a slice of a list. Writes to the positions that the slice has if no primitive is dropped.
class GasGeometryBase::BboxTask final : public GasTask {
 public:
  const CtxEval* ctx = nullptr;
  const GeometryObject* object = nullptr;
  const uint* indices = nullptr;
  uint first_step = 0;
  uint count = 0;
  GMathBbox3<float>* boxes = nullptr;
  uint* kept = nullptr;
  AppProgressBar* progress = nullptr;
  uint kept_count = 0;

  void work(const uint& thread_index) override {
    const CtxEval& thread_ctx = ctx->get_or_create_thread_ctx(thread_index);
    kept_count = compute_slice(thread_ctx, *object, indices, first_step, count, boxes, kept, progress);
  }
};

/// compute_bboxes() in pieces, so that a stop request takes effect after at most 16384 primitives.
uint GasGeometryBase::compute_slice(const CtxEval& ctx, const GeometryObject& object, const uint* indices,
                                    uint first_step, uint count, GMathBbox3<float>* boxes, uint* kept,
                                    AppProgressBar* progress) {
  constexpr uint piece_length = 16384;
  uint kept_count = 0;
  for (uint first = 0; first < count; first += piece_length) {
    ctx.get_application().check_stop();
    kept_count +=
        compute_bboxes(ctx, object, indices + first, first_step + first, std::min(piece_length, count - first),
                       boxes + kept_count, kept + kept_count, progress);
  }
  return kept_count;
}

uint GasGeometryBase::compute_bboxes(const CtxEval& ctx, const GeometryObject& object, const uint* indices,
                                     const uint& first_step, const uint& count, GMathBbox3<float>* boxes, uint* kept,
                                     AppProgressBar* progress) {
  uint kept_count = 0;
  for (uint k = 0; k < count; ++k) {
    const GMathBbox3<double> box = object.get_primitive_bbox(ctx, indices[k]);
    if (gmath_is_valid_box(box)) {
      boxes[kept_count] = GMathBbox3<float>(box);
      kept[kept_count++] = indices[k];
    }
    if (progress != nullptr) progress->step(first_step + 1 + k);
  }
  return kept_count;
}

bool GasGeometryBase::init_primitives(const CtxEval& ctx, const GeometryObject* new_base_geometry,
                                      const GeometryObject* new_geometry, const GeometryObject* new_alt_geometry,
                                      const GeometryObject* new_extra_geometry, const CoreBasicArray<uint>& group_flags,
                                      CoreVector<GMathBbox3<float>>& boxes, AppProgressBar* progress) {
  const uint group_count = new_base_geometry->get_shading_groups().get_count();
  const bool grouped = new_alt_geometry != nullptr || new_extra_geometry != nullptr;
  // Before anything is stored: if the call is refused, the structure still needs its former geometries.
  if (grouped && group_flags.get_count() != group_count) return false;

  base_geometry = new_base_geometry;
  geometry = new_geometry;
  alt_geometry = new_alt_geometry;
  extra_geometry = new_extra_geometry;
  has_motion = 0;
  group_primitive_counts = make_array(group_count);

  ObjectLists lists;
  lists.list[0].object = geometry;
  lists.list[1].object = alt_geometry;
  lists.list[2].object = extra_geometry;
  if (grouped) {
    list_by_groups(ctx, lists, group_flags, progress);
  } else {
    list_all(ctx, lists, progress);
  }

  candidate_count = lists.get_count();
  boxes.remove_all();
  primitives = make_array(candidate_count);
  gas_need(boxes.resize_for_overwrite(candidate_count));
  const AppProgressScope stage(progress, "Compute primitives AABB", grouped ? 0.6 : 0.8, candidate_count);
  if (ctx.get_thread_index() < ctx.get_thread_ctx_count()) {
    compute_serial(ctx, lists, boxes.get_items(), progress);
  } else {
    compute_parallel(ctx, lists, boxes.get_items(), progress);
  }
  if (kept_count < candidate_count) {
    boxes.resize(kept_count);
    gas_need(primitives.resize(kept_count));
  }
  return true;
}

void GasGeometryBase::clear_primitives() {
  group_primitive_counts.remove_all();
  primitives.remove_all();
  geometry_count = geometry_alt_end = kept_count = 0;
}

bool GasGeometryBase::is_whole_copy_of(const GasGeometryBase& other) const {
  return group_primitive_counts.get_count() == other.group_primitive_counts.get_count() &&
         primitives.get_count() == other.primitives.get_count();
}

/// One geometry supplies all primitives, in their own order.
void GasGeometryBase::list_all(const CtxEval& ctx, ObjectLists& lists, AppProgressBar* progress) {
  const uint count = base_geometry->get_primitive_count();
  const AppProgressScope stage(progress, "List primitives", 0.2, count);
  const uint group_count = group_primitive_counts.get_count();
  gas_need(lists.list[0].indices.resize_for_overwrite(count));
  for (uint primitive = 0; primitive < count; ++primitive) {
    gas_check_stop(ctx.get_application(), primitive);
    const uint group = base_geometry->get_primitive_shading_group(primitive);
    if (group < group_count) ++group_primitive_counts[group];
    lists.list[0].indices[primitive] = primitive;
    stage.step(primitive + 1);
  }
  has_motion = geometry->has_motion();
}

void GasGeometryBase::sort_by_group(const CtxEval& ctx, std::vector<CoreVector<uint>>& groups,
                                    AppProgressBar* progress) const {
  const uint count = base_geometry->get_primitive_count();
  const AppProgressScope stage(progress, "List primitives", 0.2, count);
  for (uint primitive = 0; primitive < count; ++primitive) {
    gas_check_stop(ctx.get_application(), primitive);
    const uint group = base_geometry->get_primitive_shading_group(primitive);
    if (group < groups.size()) gas_need(groups[group].add(primitive));
    stage.step(primitive + 1);
  }
}

/// The flags of each group select the geometries that supply it; the lists are in group order. A group whose flags
/// select a geometry that is null has no primitives there.
void GasGeometryBase::list_by_groups(const CtxEval& ctx, ObjectLists& lists, const CoreBasicArray<uint>& group_flags,
                                     AppProgressBar* progress) {
  const uint group_count = group_flags.get_count();
  std::vector<CoreVector<uint>> groups(group_count);
  sort_by_group(ctx, groups, progress);
  const auto for_each_supplier = [&](uint group, const auto& function) {
    ObjectLists::List& chosen = lists.list[group_flags[group] & from_alt ? 1 : 0];
    if (chosen.object != nullptr) function(chosen);
    if ((group_flags[group] & also_from_extra) != 0 && extra_geometry != nullptr) function(lists.list[2]);
  };
  {
    const AppProgressScope stage(progress, "Count groups", 0.1, group_count);
    for (uint group = 0; group < group_count; ++group) {
      for_each_supplier(group, [&](const ObjectLists::List& list) {
        group_primitive_counts[group] += groups[group].get_count();
        has_motion |= list.object->has_shading_group_motion(group);
      });
      stage.step(group + 1);
    }
  }
  const AppProgressScope stage(progress, "Order groups", 0.1, group_count);
  for (uint group = 0; group < group_count; ++group) {
    for_each_supplier(group, [&](ObjectLists::List& list) { append(list.indices, groups[group]); });
    stage.step(group + 1);
  }
}

void GasGeometryBase::compute_serial(const CtxEval& ctx, const ObjectLists& lists, GMathBbox3<float>* boxes,
                                     AppProgressBar* progress) {
  uint ends[3];
  uint end = 0, first_step = 0;
  for (uint k = 0; k < 3; ++k) {
    const ObjectLists::List& list = lists.list[k];
    const uint count = list.indices.get_count();
    if (count > 0) {
      end += compute_slice(ctx, *list.object, list.indices.get_items(), first_step, count, boxes + end,
                           primitives.get_items() + end, progress);
    }
    first_step += count;
    ends[k] = end;
  }
  geometry_count = ends[0];
  geometry_alt_end = ends[1];
  kept_count = ends[2];
}

void GasGeometryBase::compute_parallel(const CtxEval& ctx, const ObjectLists& lists, GMathBbox3<float>* boxes,
                                       AppProgressBar* progress) {
  SysThreadTaskManager manager(ctx.get_application().get_thread_manager());
  const uint slice = gas_get_slice_length(candidate_count, manager.get_max_thread_count());
  std::vector<BboxTask> tasks;
  uint task_ends[3];
  uint first = 0;
  for (uint k = 0; k < 3; ++k) {
    const ObjectLists::List& list = lists.list[k];
    const uint count = list.indices.get_count();
    for (uint begin = 0; begin < count; begin += slice) {
      BboxTask task;
      task.ctx = &ctx;
      task.object = list.object;
      task.indices = list.indices.get_items() + begin;
      task.first_step = first + begin;
      task.count = std::min(slice, count - begin);
      task.boxes = boxes + first + begin;
      task.kept = primitives.get_items() + first + begin;
      task.progress = progress;
      tasks.push_back(task);
    }
    first += count;
    task_ends[k] = static_cast<uint>(tasks.size());
  }
  gas_run_tasks(manager, tasks);

  // Closes the gaps that dropped primitives left; memmove, because source and destination may overlap.
  uint end = 0;
  for (uint k = 0, task = 0; k < 3; ++k) {
    for (; task < task_ends[k]; ++task) {
      const BboxTask& slice_task = tasks[task];
      if (slice_task.boxes != boxes + end) {
        std::memmove(static_cast<void*>(boxes + end), slice_task.boxes, slice_task.kept_count * sizeof(*boxes));
        std::memmove(primitives.get_items() + end, slice_task.kept, slice_task.kept_count * sizeof(uint));
      }
      end += slice_task.kept_count;
    }
    (k == 0 ? geometry_count : k == 1 ? geometry_alt_end : kept_count) = end;
  }
  if (kept_count == candidate_count) return;
  gas_log(gas_log_warning, [&](CoreLogStream& message) {
    message << "GasGeometry.create: " << candidate_count - kept_count << "/" << candidate_count
            << " bboxes have been removed because of invalid values!\n";
  });
}

bool GasGeometryBase::is_identity_order() const {
  if (geometry_count != kept_count || base_geometry->get_primitive_count() != kept_count) return false;
  for (uint position = 0; position < kept_count; ++position) {
    if (primitives[position] != position) return false;
  }
  return true;
}

bool GasGeometryBase::is_one_group(const CtxEval& ctx) const {
  // The lists were counted by the groups that base_geometry gives.
  if (geometry == base_geometry && kept_count <= geometry_count && !group_primitive_counts.is_empty() &&
      group_primitive_counts[0] == candidate_count)
    return true;
  for (uint position = 0; position < kept_count; ++position) {
    gas_check_stop(ctx.get_application(), position);
    if (get_owner(position)->get_primitive_shading_group(get_primitive(position)) != 0) return false;
  }
  return true;
}

u64 GasGeometryBase::get_primitive_array_bytes() const {
  return 2 * sizeof(CoreBasicArray<uint>) + (u64{group_primitive_counts.get_count()} + primitives.get_count()) * 4;
}
