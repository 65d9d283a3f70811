#include "gas/gas_geometry_bundle.h"

#include <algorithm>

#include "gas/frame/gas_tasks.h"
#include "gas/gas_bundle_slots.h"
#include "gas/structure/gas_instance_slices.h"
#include "gas/structure/gas_instance_structure_impl.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_gas_base/gas_bvh_split.h"
#include "vq_geometry/geometry_object.h"
#include "vq_module/module_displacement.h"
#include "vq_of/of_app.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GAS_BUILD_BEGIN, EVT_ID_GAS_BUILD_END};

template <class T>
void copy_array(CoreBasicArray<T>& to, const CoreBasicArray<T>& from) {
  gas_need(to.assign(from.get_items(), from.get_count()));
}

/// A copy with one entry per instance; missing ones are `missing`.
template <class T>
void copy_per_instance(CoreBasicArray<T>& to, const CoreBasicArray<T>& from, uint count, T missing) {
  gas_need(to.assign(from.get_items(), std::min(from.get_count(), count)) && to.resize(count));
  std::fill(to.begin() + std::min(from.get_count(), count), to.end(), missing);
}

}  // namespace

GasGeometryBundle::GasGeometryBundle()
    : GasInstanceStructure(this), matrices_callback([](void*, const double&, Matrix*) {}) {}

GasGeometryBundle::GasGeometryBundle(const GasGeometryBundle& other) : GasInstanceStructure(other, this) {
  copy_fields(other);
}

GasGeometryBundle& GasGeometryBundle::operator=(const GasGeometryBundle& other) {
  if (this == &other) return *this;
  GasInstanceStructure::operator=(other);
  copy_fields(other);
  return *this;
}

void GasGeometryBundle::copy_fields(const GasGeometryBundle& other) {
  first_geometries = other.first_geometries;
  second_geometries = other.second_geometries;
  third_geometries = other.third_geometries;
  fourth_geometries = other.fourth_geometries;
  slots = other.slots;
  first_indices = other.first_indices;
  geometry_indices = other.geometry_indices;
  shading_group_offsets = other.shading_group_offsets;
  matrices = other.matrices;
  inverse_matrices = other.inverse_matrices;
  index_lists = other.index_lists;
  displaced = other.displaced;
  bounds = other.bounds;
  visibility = other.visibility;
  pre_hits = other.pre_hits;
  merge_shading_groups = other.merge_shading_groups;
  displacement_on = other.displacement_on;
  oriented_nodes_allowed = other.oriented_nodes_allowed;
  matrices_callback = other.matrices_callback;
  matrices_user = other.matrices_user;
  complete_copy(other);
}

GasGeometryBundle::~GasGeometryBundle() = default;

bool GasGeometryBundle::is_whole_copy_of(const GasGeometryBundle& other) const {
  const auto is_whole = [](const auto& copy, const auto& source) { return copy.get_count() == source.get_count(); };
  bool are_lists_whole = is_whole(index_lists, other.index_lists);
  for (uint k = 0; are_lists_whole && k < index_lists.get_count(); ++k)
    are_lists_whole = is_whole(index_lists[k], other.index_lists[k]);
  return are_lists_whole && GasInstanceStructure::is_whole_copy_of(other) &&
         is_whole(first_geometries, other.first_geometries) && is_whole(second_geometries, other.second_geometries) &&
         is_whole(third_geometries, other.third_geometries) && is_whole(fourth_geometries, other.fourth_geometries) &&
         is_whole(first_indices, other.first_indices) && is_whole(geometry_indices, other.geometry_indices) &&
         is_whole(shading_group_offsets, other.shading_group_offsets) && is_whole(matrices, other.matrices) &&
         is_whole(inverse_matrices, other.inverse_matrices) && is_whole(displaced, other.displaced) &&
         is_whole(bounds, other.bounds) && is_whole(visibility, other.visibility) && is_whole(pre_hits, other.pre_hits);
}

/// Removes the inputs too: after a failure they may no longer exist.
void GasGeometryBundle::clear() {
  tree.clear();
  clear_entries();
  slots.reset();
  for (auto* array : {&first_geometries, &second_geometries, &third_geometries, &fourth_geometries})
    array->remove_all();
  for (auto* array : {&first_indices, &geometry_indices, &shading_group_offsets}) array->remove_all();
  matrices.remove_all();
  inverse_matrices.remove_all();
  index_lists.remove_all();
  displaced.remove_all();
  bounds.remove_all();
  visibility.remove_all();
  pre_hits.remove_all();
}

u64 GasGeometryBundle::get_array_bytes() const {
  const auto get_bytes = [](const auto&... arrays) {
    return ((u64{arrays.get_count()} * sizeof(*arrays.get_items())) + ...);
  };
  u64 bytes = get_entry_bytes() + get_bytes(first_geometries, second_geometries, third_geometries, fourth_geometries,
                                            first_indices, geometry_indices, shading_group_offsets, matrices,
                                            inverse_matrices, index_lists, displaced, bounds, visibility, pre_hits);
  for (const CoreVector<uint>& list : index_lists) bytes += u64{list.get_capacity()} * sizeof(uint);
  if (slots != nullptr) bytes += sizeof(GasBundleSlots) + u64{slots->count} * sizeof(GasBundleSlot);
  return bytes;
}

GeometryObject* GasGeometryBundle::get_geometry(uint instance) const {
  const uint index = instance < geometry_indices.get_count() ? geometry_indices[instance] : core_invalid_index;
  return index < second_geometries.get_count() ? second_geometries[index] : nullptr;
}

/// The second geometry where there is no first.
GeometryObject* GasGeometryBundle::get_first_geometry(uint instance) const {
  const uint index = first_indices[instance];
  GeometryObject* geometry = index < first_geometries.get_count() ? first_geometries[index] : nullptr;
  return geometry != nullptr ? geometry : get_geometry(instance);
}

uint GasGeometryBundle::get_slot_count() const { return slots != nullptr ? slots->count : 0; }

const GasClusterable* GasGeometryBundle::get_slot_structure(uint slot) const {
  return slot < get_slot_count() ? slots->items[slot].structure.load(std::memory_order_acquire) : nullptr;
}

double GasGeometryBundle::get_primitive_count() const {
  double count = 0.0;
  for (const uint instance : table.indices) count += get_geometry(instance)->get_primitive_count();
  return count;
}

GasBboxSurplus GasGeometryBundle::get_bound(uint instance) const {
  if (!is_displaced(instance)) return {};
  const double* bound = bounds.get_items() + std::size_t{3} * instance;
  const GMathVec3<double> growth(bound[0], bound[1], bound[2]);
  return {growth, growth};
}

/// What the tasks of a build share.
struct GasGeometryBundle::BuildCtx {
  const GasGeometryBundle& bundle;
  const OfApp& app;
  AppProgressBar* progress;
  CtxEval ctx;

  BuildCtx(const GasGeometryBundle& bundle, const OfApp& app, AppProgressBar* progress)
      : bundle(bundle), app(app), progress(progress), ctx(app.get_factory()) {}
};

/// Who used each slot first in a task: the others have the same clusters and local boxes, and copy them.
class GasGeometryBundle::FirstUsers {
 public:
  /// Throws std::bad_alloc.
  explicit FirstUsers(const GasGeometryBundle& bundle)
      : bundle_(bundle), users_(bundle.displacement_on ? 0 : bundle.slots->count) {
    gas_need(bundle.displacement_on || users_.get_count() == bundle.slots->count);
    std::fill(users_.begin(), users_.end(), core_invalid_index);
  }
  /// The first user of the slot of `instance`; without one `user` becomes it, and the result is core_invalid_index.
  uint find_or_become(uint instance, uint user) {
    if (bundle_.displacement_on) return core_invalid_index;  // each has its own slot
    uint& first = users_[bundle_.get_slot(instance)];
    return first != core_invalid_index ? first : std::exchange(first, user);
  }

 private:
  const GasGeometryBundle& bundle_;
  CoreBasicArray<uint> users_;  ///< [slot]
};

/// Gets the clusters of a slice of the instances. Writes only the lists of these instances.
class GasGeometryBundle::GasGeometryBundleCheckTask final : public GasTask {
 public:
  const BuildCtx* build = nullptr;
  CoreVector<void*>* lists = nullptr;  ///< [instance]
  uint first = 0, end = 0;

  void work(const uint& thread_index) override {
    const CtxEval& ctx = build->ctx.get_or_create_thread_ctx(thread_index);
    FirstUsers users(build->bundle);
    for (uint instance = first; instance < end; ++instance) {
      build->app.check_stop();
      check(ctx, instance, users);
      if (build->progress != nullptr) build->progress->step(instance + 1);
    }
  }

 private:
  void check(const CtxEval& ctx, uint instance, FirstUsers& users) const {
    const GasGeometryBundle& bundle = build->bundle;
    const GeometryObject* geometry = bundle.get_geometry(instance);
    if (geometry == nullptr || geometry->get_primitive_count() == 0) return;
    if (!gas_is_invertible(bundle.matrices[instance])) return;
    if (bundle.is_displaced(instance)) return gas_need(lists[instance].add(nullptr));
    const uint user = users.find_or_become(instance, instance);
    if (user != core_invalid_index) {
      lists[instance] = lists[user];
      return gas_need(lists[instance].get_count() == lists[user].get_count());
    }
    const float ratio = bundle.get_instance_count() > 1 ? 0.3f : 0.0f;
    const GasClusterable* structure = bundle.get_geometry_gas(ctx, instance);
    if (structure != nullptr) structure->get_clusters(lists[instance], 1024, ratio);
  }
};

/// Computes the world boxes of the leaves of a slice of the valid instances.
class GasGeometryBundle::GasGeometryBundleBboxTask final : public GasTask {
 public:
  const BuildCtx* build = nullptr;
  GMathBbox3<float>* local_boxes = nullptr;  ///< [leaf], zeroed
  GMathBbox3<float>* boxes = nullptr;        ///< [leaf] in the world, written
  uint first = 0, end = 0;

  void work(const uint& thread_index) override {
    const CtxEval& ctx = build->ctx.get_or_create_thread_ctx(thread_index);
    FirstUsers users(build->bundle);
    for (uint valid = first; valid < end; ++valid) {
      build->app.check_stop();
      measure(ctx, valid, users);
      if (build->progress != nullptr) build->progress->step(valid + 1);
    }
  }

 private:
  void measure(const CtxEval& ctx, uint valid, FirstUsers& users) const {
    const GasGeometryBundle& bundle = build->bundle;
    const uint instance = bundle.table.indices[valid];
    const CoreBasicArray<void*> clusters = bundle.table.get_clusters(valid);
    const uint first_leaf = bundle.table.first_leaves[valid];
    GMathBbox3<float>* own = local_boxes + first_leaf;
    if (bundle.is_displaced(instance)) {
      std::fill_n(own, clusters.get_count(), gmath_round_outwards(bundle.get_geometry(instance)->get_bbox(ctx)));
    } else if (const uint user = users.find_or_become(instance, valid); user != core_invalid_index) {
      std::copy_n(local_boxes + bundle.table.first_leaves[user], clusters.get_count(), own);
    } else if (const GasClusterable* structure = bundle.get_geometry_gas(ctx, instance); structure != nullptr) {
      structure->get_clusters_bboxes(clusters, own);
    }
    for (uint k = 0; k < clusters.get_count(); ++k)
      boxes[first_leaf + k] = gas_get_world_bbox(own[k], bundle.matrices[instance], bundle.get_bound(instance));
  }
};

void GasGeometryBundle::set_common_arrays(
    CoreBasicArray<GeometryObject*>& first, CoreBasicArray<GeometryObject*>& second,
    const CoreBasicArray<unsigned int>& new_first_indices, const CoreBasicArray<unsigned int>& new_geometry_indices,
    const CoreBasicArray<unsigned int>& new_shading_group_offsets, const CoreBasicArray<Matrix>& new_matrices,
    const CoreBasicArray<Matrix>& new_inverse_matrices, const CoreBasicArray<bool>& new_visibility,
    const CoreBasicArray<PreHitFunction>& new_pre_hits) {
  const uint count = new_matrices.get_count();
  copy_array(first_geometries, first);
  copy_array(second_geometries, second);
  copy_per_instance(first_indices, new_first_indices, count, core_invalid_index);
  copy_per_instance(geometry_indices, new_geometry_indices, count, core_invalid_index);
  copy_array(shading_group_offsets, new_shading_group_offsets);
  copy_array(matrices, new_matrices);
  copy_per_instance(inverse_matrices, new_inverse_matrices, count, Matrix());
  for (uint instance = new_inverse_matrices.get_count(); instance < count; ++instance)
    inverse_matrices[instance] = matrices[instance].get_inverse();
  copy_array(visibility, new_visibility);
  copy_array(pre_hits, new_pre_hits);
}

void GasGeometryBundle::create(
    const OfApp& app, CoreBasicArray<GeometryObject*> first, CoreBasicArray<GeometryObject*> second,
    CoreBasicArray<GeometryObject*> third, CoreBasicArray<GeometryObject*> fourth,
    const CoreBasicArray<unsigned int>& new_first_indices, const CoreBasicArray<unsigned int>& new_geometry_indices,
    const CoreBasicArray<unsigned int>& new_shading_group_offsets, const CoreBasicArray<Matrix>& new_matrices,
    const CoreBasicArray<Matrix>& new_inverse_matrices, const CoreBasicArray<bool>& new_visibility,
    const CoreBasicArray<PreHitFunction>& new_pre_hits, CoreArray<CoreVector<unsigned int>> new_index_lists,
    const CoreBasicArray<ModuleDisplacement*>& displacements, const bool& new_merge_shading_groups,
    AppProgressBar* progress) {
  create(app, progress, [&] {
    merge_shading_groups = new_merge_shading_groups;
    displacement_on = true;
    set_common_arrays(first, second, new_first_indices, new_geometry_indices, new_shading_group_offsets, new_matrices,
                      new_inverse_matrices, new_visibility, new_pre_hits);
    copy_array(third_geometries, third);
    copy_array(fourth_geometries, fourth);
    index_lists = std::move(new_index_lists);
    gather_displacements(displacements);
  });
}

void GasGeometryBundle::create(
    const OfApp& app, CoreBasicArray<GeometryObject*> first, CoreBasicArray<GeometryObject*> second,
    const CoreBasicArray<unsigned int>& new_first_indices, const CoreBasicArray<unsigned int>& new_geometry_indices,
    const CoreBasicArray<unsigned int>& new_shading_group_offsets, const CoreBasicArray<Matrix>& new_matrices,
    const CoreBasicArray<Matrix>& new_inverse_matrices, const CoreBasicArray<bool>& new_visibility,
    const CoreBasicArray<PreHitFunction>& new_pre_hits, const bool& new_merge_shading_groups,
    AppProgressBar* progress) {
  create(app, progress, [&] {
    merge_shading_groups = new_merge_shading_groups;
    displacement_on = false;
    set_common_arrays(first, second, new_first_indices, new_geometry_indices, new_shading_group_offsets, new_matrices,
                      new_inverse_matrices, new_visibility, new_pre_hits);
    third_geometries.remove_all();
    fourth_geometries.remove_all();
    index_lists.remove_all();
    displaced.remove_all();
    bounds.remove_all();
  });
}

template <class SetArrays>
void GasGeometryBundle::create(const OfApp& app, AppProgressBar* progress, const SetArrays& set_arrays) {
  motion_data.follow_slots();
  rebuild("GasGeometryBundle.create", [&] {
    set_arrays();
    build(app, progress);
  });
}

void GasGeometryBundle::gather_displacements(const CoreBasicArray<ModuleDisplacement*>& displacements) {
  const uint count = get_instance_count();
  displaced.remove_all();  // so that resize() zeroes all
  bounds.remove_all();
  gas_need(displaced.resize(count) && bounds.resize(3 * count));
  for (uint instance = 0; instance < count; ++instance)
    if (get_geometry(instance) != nullptr) add_displacements(instance, displacements);
}

void GasGeometryBundle::add_displacements(uint instance, const CoreBasicArray<ModuleDisplacement*>& displacements) {
  const uint key = get_shading_key(instance);
  if (key >= index_lists.get_count()) return;
  // Merged groups may have fewer offsets than there are instances.
  const uint offset =
      instance < shading_group_offsets.get_count() ? shading_group_offsets[instance] : get_shading_group_offset(key);
  for (u64 k = offset; k < u64{offset} + index_lists[key].get_count() && k < displacements.get_count(); ++k) {
    const ModuleDisplacement* module = displacements[static_cast<uint>(k)];
    if (module == nullptr || module->is_inactive()) continue;
    displaced[instance] = 1;
    for (uint axis = 0; axis < 3; ++axis) {
      double& bound = bounds[3 * instance + axis];
      bound = std::max(bound, module->get_bound(axis));
    }
  }
}

void GasGeometryBundle::build(const OfApp& app, AppProgressBar* progress) {
  const uint count = get_instance_count();
  table.clear();
  slots = std::make_shared<GasBundleSlots>(displacement_on ? count : second_geometries.get_count());
  for (uint instance = count; instance-- > 0;)
    if (get_geometry(instance) != nullptr) slots->items[get_slot(instance)].first_instance = instance;
  const BuildCtx build_ctx(*this, app, progress);
  if (count > 0) {
    GasClusterTable::Lists lists(count);
    gas_need(lists.get_count() == count);
    check_geometries(build_ctx, lists);
    table.gather(lists);
  }
  const uint leaf_count = table.get_leaf_count();
  CoreArray<GMathBbox3<float>> local_boxes(leaf_count), boxes(leaf_count);
  gas_need(local_boxes.get_count() == leaf_count && boxes.get_count() == leaf_count);
  std::fill(local_boxes.begin(), local_boxes.end(), GMathBbox3<float>({0, 0, 0}, {0, 0, 0}));
  if (leaf_count > 0) compute_bboxes(build_ctx, local_boxes.get_items(), boxes.get_items());
  const AppProgressScope stage(progress, "create tree", 0.9);
  GasBvhSplitCtx split_ctx;
  split_ctx.item_boxes = boxes.get_items();
  split_ctx.application = &app;
  tree.build<GasBvhSplitAligned>(split_ctx, nullptr, boxes.get_count(), {1.0f, 1, 1, 10}, progress);
  fill_entries(local_boxes.get_items());
}

void GasGeometryBundle::check_geometries(const BuildCtx& build, GasClusterTable::Lists& lists) const {
  const AppProgressScope stage(build.progress, "check bundle geometries", 0.4, lists.get_count());
  gas_run_instance_slices<GasGeometryBundleCheckTask>(build.app, lists.get_count(),
                                                      [&](GasGeometryBundleCheckTask& task) {
                                                        task.build = &build;
                                                        task.lists = lists.get_items();
                                                      });
}

void GasGeometryBundle::compute_bboxes(const BuildCtx& build, GMathBbox3<float>* local_boxes,
                                       GMathBbox3<float>* boxes) const {
  const uint count = table.get_accepted_count();
  const AppProgressScope stage(build.progress, "create tree", 0.3, count);
  gas_run_instance_slices<GasGeometryBundleBboxTask>(build.app, count, [&](GasGeometryBundleBboxTask& task) {
    task.build = &build;
    task.local_boxes = local_boxes;
    task.boxes = boxes;
  });
}
