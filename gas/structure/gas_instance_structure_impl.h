// gas/structure/gas_instance_structure_impl.h
//
// Definitions of gas_instance_structure.h. Included by the source of each structure, which instantiates them.
#pragma once
#include "gas/structure/gas_bvh_structure_impl.h"
#include "gas/structure/gas_instance_structure.h"
#include "gas/structure/gas_instance_update.h"
#include "gas/structure/gas_nested_query.h"

template <class Self, class Base>
GasInstanceStructure<Self, Base>::GasInstanceStructure(Self* self) : GasBvhStructure<Self, Base, MotionData>(self) {
  this->install_callbacks(true);
  this->leaf_functions = {leaf_ray_hit_static_callback, leaf_ray_hit_nearest_static_callback, self,
                          leaf_frustum_hit_callback, self};
}

template <class Self, class Base>
GasInstanceStructure<Self, Base>& GasInstanceStructure<Self, Base>::operator=(const GasInstanceStructure& other) {
  GasBvhStructure<Self, Base, MotionData>::operator=(other);
  table = other.table;
  leaves = other.leaves;
  extent = other.extent;
  return *this;
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::fill_entries(const GMathBbox3<float>* local_boxes) {
  const uint leaf_count = table.get_leaf_count(), accepted_count = table.get_accepted_count();
  CoreBasicArray<uint> place_of(leaf_count);     // [leaf of the table]
  CoreBasicArray<uint> numbers(accepted_count);  // [accepted] in `instances`
  instances = CoreAlignedArray<GasInstance>(accepted_count);
  gas_need(leaves.resize(leaf_count) && place_of.get_count() == leaf_count && numbers.get_count() == accepted_count &&
           instances.get_count() == accepted_count);
  extent = GasTreeExtent(this->tree.box);
  for (uint place = 0; place < leaf_count; ++place) place_of[this->tree.order[place]] = place;
  const auto for_each_leaf = [&](uint accepted, const auto& function) {
    const uint first = table.first_leaves[accepted], end = first + table.counts[accepted];
    for (uint leaf = first; leaf < end; ++leaf) function(leaves[place_of[leaf]], leaf);
  };
  for (uint accepted = 0; accepted < accepted_count; ++accepted)
    for_each_leaf(accepted, [&](GasInstanceLeaf& entry, uint /*leaf*/) { entry.instance = accepted; });
  number_instances(numbers);
  for (uint accepted = 0; accepted < accepted_count; ++accepted) {
    GasInstance& instance = instances[numbers[accepted]] = GasInstance();
    GMathBbox3<float> frame;
    for_each_leaf(accepted, [&](GasInstanceLeaf&, uint leaf) { frame.add(local_boxes[leaf]); });
    instance.grid = GasInstanceGrid(frame);
    instance.accepted = accepted;
    const bool is_held = self().describe_instance(accepted, instance);
    const bool has_box = instance.set_to_grid(extent) && is_held;
    for_each_leaf(accepted, [&](GasInstanceLeaf& entry, uint leaf) {
      entry.cluster = reinterpret_cast<u64>(table.clusters[leaf]);
      entry.has_box = has_box;
      if (has_box) entry.set_box(instance.grid, local_boxes[leaf]);
    });
  }
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::number_instances(CoreBasicArray<uint>& numbers) {
  std::fill(numbers.begin(), numbers.end(), core_invalid_index);
  uint next = 0;
  for (GasInstanceLeaf& entry : leaves) {
    uint& number = numbers[entry.instance];
    if (number == core_invalid_index) number = next++;
    entry.instance = number;
  }
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::complete_copy(const Self& other) {
  const GasInstanceStructure& source = other;
  const GasOutcome outcome = gas_try([&] {
    gas_need(self().is_whole_copy_of(other));
    instances = CoreAlignedArray<GasInstance>(source.instances.get_count());
    gas_need(instances.get_count() == source.instances.get_count());
    for (std::size_t k = 0; k < instances.get_count(); ++k) {
      instances[k] = source.instances[k];
      self().describe_instance(instances[k].accepted, instances[k]);
      std::copy_n(source.instances[k].inverse, 4, instances[k].inverse);  // as `to_grid`, if a matrix has changed
    }
  });
  if (outcome != GasOutcome::done) static_cast<Self*>(this)->clear();
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::clear_entries() {
  table.clear();
  leaves.remove_all();
  instances.reset();
}

template <class Self, class Base>
bool GasInstanceStructure<Self, Base>::is_whole_copy_of(const GasInstanceStructure& other) const {
  return table.is_whole_copy_of(other.table) && leaves.get_count() == other.leaves.get_count() &&
         this->tree.is_empty() == other.tree.is_empty();
}

template <class Self, class Base>
u64 GasInstanceStructure<Self, Base>::get_entry_bytes() const {
  return table.get_array_bytes() + u64{leaves.get_count()} * sizeof(GasInstanceLeaf) + instances.get_bytes();
}

template <class Self, class Base>
GasInstanceStructure<Self, Base>::QueryScope::QueryScope(const Self&, CtxShader& shader, GeometryRaytraceCtx&,
                                                         BvhHits) {
  GasNestedScope::forget_query(shader);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::report_growth(u64 /*old_size*/, u64 /*new_size*/) const {
  gas_try([&] { this->advert_memory_changed(); });
}

template <class Self, class Base>
BvhLeafFunctions GasInstanceStructure<Self, Base>::get_leaf_functions(const MotionData* data,
                                                                      const GeometryRaytraceCtx& query) const {
  return data != nullptr ? data->get_leaf_functions(query.settings.compute_motion_vectors) : this->leaf_functions;
}

template <class Self, class Base>
[[gnu::always_inline]] inline bool GasInstanceStructure<Self, Base>::reach_still(GasRayCtx& ray_ctx,
                                                                                 GeometryRaytraceCtx& parent,
                                                                                 const GasInstanceLeaf& leaf,
                                                                                 uint number) const {
  const uint ray = parent.first_ray;
  const bool is_new = ray_ctx.begin_ray(parent, number);
  if (!leaf.has_box || ray != parent.last_ray) return true;
  const GasInstance& instance = instances[number];
  if (is_new) ray_ctx.box_ray.set(ray_ctx.get_outer_ray(parent, extent), instance);
  return ray_ctx.box_ray.touches(leaf, parent.get_limit(ray)) || self().must_enter(instance);
}

template <class Self, class Base>
bool GasInstanceStructure<Self, Base>::reach_moving(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent,
                                                    const GasInstanceLeaf& leaf, uint number,
                                                    const MotionData& data) const {
  const GasInstance& instance = instances[number];
  const uint key = self().get_key(instance.accepted), first = parent.first_ray;
  const bool has_box = leaf.has_box && first == parent.last_ray && data.has_boxes[instance.accepted];
  const bool is_new = ray_ctx.begin_ray(parent, number);
  const auto blend = [&](uint ray) {
    const GeometryRaySpan& span = parent.spans[ray];
    ray_ctx.set_matrix(
        ray, gas_blend_matrices(data.get_matrix(key, span.first), data.get_matrix(key, span.second), span.fraction));
  };
  if (!has_box) {
    if (is_new) gas_for_each_ray(parent, blend);
    return true;
  }
  if (is_new) {
    blend(first);
    ray_ctx.box_ray.set(ray_ctx.get_outer_ray(parent, extent), parent.get_ray(first).origin,
                        ray_ctx.matrices[first].matrix, instance.grid);
  }
  return ray_ctx.box_ray.touches(leaf, parent.get_limit(first)) || self().must_enter(instance);
}

// Inlined, but not what follows a hit box: about half of all leaves are missed, and with the rest of the function they
// would save and restore its registers.
template <class Self, class Base>
template <GasLeafQuery kind, bool is_moving>
[[gnu::always_inline]] inline void GasInstanceStructure<Self, Base>::enter(uint place, const CtxEval& ctx,
                                                                           CtxShader& shader,
                                                                           GeometryRaytraceCtx& parent,
                                                                           const MotionData* data) const {
  GasNestedQueryCtx* record = GasNestedScope::get_or_make_next(shader);
  if (record == nullptr || !record->ray.reserve(parent)) return;
  const GasInstanceLeaf& leaf = leaves[place];
  const uint number = get_instance_number(place);
  // Of a large scene nothing of this is in a cache; it arrives while the ray is tested.
  gas_prefetch_rest(instances[number]);
  self().prefetch_entry(instances[number]);
  bool is_reached;
  if constexpr (is_moving) {
    is_reached = reach_moving(record->ray, parent, leaf, number, *data);
  } else {
    is_reached = reach_still(record->ray, parent, leaf, number);
  }
  if (is_reached) enter_reached<kind, is_moving>(leaf, ctx, shader, parent, *record, data);
}

template <class Self, class Base>
template <GasLeafQuery kind, bool is_moving>
[[gnu::noinline]] void GasInstanceStructure<Self, Base>::enter_reached(const GasInstanceLeaf& leaf, const CtxEval& ctx,
                                                                       CtxShader& shader, GeometryRaytraceCtx& parent,
                                                                       GasNestedQueryCtx& record,
                                                                       const MotionData* data) const {
  constexpr BvhHits hits = kind == GasLeafQuery::all ? BvhHits::all : BvhHits::nearest;
  const GasNestedScope scope(shader, &record);
  const GasInstance& instance = instances[leaf.instance];
  GasRayCtx& ray_ctx = record.ray;
  typename Self::Entry entry;
  const auto type = static_cast<GMathRay::Type>(parent.intervals[parent.first_ray].type);
  if (!self().find_entry(ctx, shader, type, instance, entry)) return;
  ray_ctx.transform_rays(parent, [&](uint ray) {
    if constexpr (is_moving) {
      ray_ctx.rays[ray].transform(parent.get_ray(ray), ray_ctx.matrices[ray].matrix.get_inverse());
    } else {
      instance.transform(parent.get_ray(ray), ray_ctx.rays[ray]);
      ray_ctx.set_matrix(ray, *instance.matrix);
    }
  });
  GasNestedTarget target = self().get_target(parent, type, instance);
  target.cluster = leaf.cluster;
  GeometryRaytraceCtx& local = ray_ctx.begin_query(parent, target);
  if constexpr (is_moving) {
    local.spans = parent.spans;
    local.span_stamp = parent.span_stamp;
  }
  if (local.planes != nullptr) {
    ray_ctx.transform_planes(
        parent, is_moving ? ray_ctx.matrices[parent.first_ray].matrix.get_inverse() : instance.get_inverse());
  }
  if constexpr (kind == GasLeafQuery::motion_vectors) {
    if (!begin_motion_vectors(ray_ctx, parent, instance, *data)) return;
  }
  self().template query_entry<hits>(ctx, shader, parent, local, instance, entry, is_moving);
  if constexpr (kind == GasLeafQuery::all) return;
  const uint depth = self().get_path_depth(parent);
  gas_for_each_ray(parent, [&](uint ray) {
    if constexpr (kind == GasLeafQuery::motion_vectors) {
      ray_ctx.lift_hit(parent, ray, depth, ray_ctx.matrices[ray].matrix, ray_ctx.end_matrices[ray].matrix);
    } else {
      ray_ctx.lift_hit(parent, ray, depth, is_moving ? ray_ctx.matrices[ray].matrix : *instance.matrix);
    }
  });
}

template <class Self, class Base>
bool GasInstanceStructure<Self, Base>::begin_motion_vectors(GasRayCtx& ray_ctx, const GeometryRaytraceCtx& parent,
                                                            const GasInstance& instance, const MotionData& data) const {
  if (!ray_ctx.reserve_end_matrices(parent.ray_count)) return false;
  ray_ctx.query.matrices2 = ray_ctx.end_matrices.get();
  ray_ctx.query.matrices2_used = true;
  const uint key = self().get_key(instance.accepted);
  gas_for_each_ray(parent, [&](uint ray) {
    // With a single sample, `second` is that one.
    ray_ctx.end_matrices[ray].matrix = data.get_matrix(key, parent.spans[ray].second);
    ray_ctx.end_matrices[ray].flag = 0;
  });
  return true;
}

template <class Self, class Base>
[[gnu::always_inline]] inline void GasInstanceStructure<Self, Base>::leaf_ray_hit_static(
    const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  enter<GasLeafQuery::all, false>(leaf, ctx, shader, query, nullptr);
}

template <class Self, class Base>
[[gnu::always_inline]] inline void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_static(
    const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  enter<GasLeafQuery::nearest, false>(leaf, ctx, shader, query, nullptr);
}

template <class Self, class Base>
[[gnu::always_inline]] inline void GasInstanceStructure<Self, Base>::leaf_ray_hit_motion(const unsigned int& leaf,
                                                                                         const CtxEval& ctx,
                                                                                         CtxShader& shader,
                                                                                         GeometryRaytraceCtx& query,
                                                                                         MotionData& data) const {
  enter<GasLeafQuery::all, true>(leaf, ctx, shader, query, &data);
}

template <class Self, class Base>
[[gnu::always_inline]] inline void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_motion(
    const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
    MotionData& data) const {
  enter<GasLeafQuery::nearest, true>(leaf, ctx, shader, query, &data);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_motion_vectors(const unsigned int& leaf, const CtxEval& ctx,
                                                                           CtxShader& shader,
                                                                           GeometryRaytraceCtx& query,
                                                                           MotionData& data) const {
  enter<GasLeafQuery::motion_vectors, true>(leaf, ctx, shader, query, &data);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_frustum_hit(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                                        GeometryFrustumCtx& query) const {
  const GasInstance& instance = get_instance(leaf);
  if (!self().wants_frustum(query, instance)) return;
  typename Self::Entry entry;
  if (!self().find_entry(ctx, shader, query.kind, instance, entry)) return;
  const GasNestedScope scope(shader);
  if (scope.get() == nullptr) return;
  GeometryFrustumCtx& local = scope.get()->frustum;
  local.begin_nested(query, instance.get_inverse(), *instance.matrix);
  local.cluster = leaves[leaf].cluster;
  self().begin_frustum(query, *scope.get(), instance);
  const std::size_t first_point = query.get_points().size();
  self().query_entry(ctx, shader, local, entry);
  const auto mode = static_cast<GeometryFrustumMode>(query.mode);
  if (mode == GeometryFrustumMode::any || mode == GeometryFrustumMode::all)
    return self().end_frustum(query, local, instance);
  std::vector<GeometryFrustumVertex>& points = query.get_points();
  for (std::size_t point = first_point; point < points.size(); ++point)
    points[point].position = instance.matrix->transform_point(points[point].position);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_static_callback(const CtxEval& ctx, CtxShader& shader,
                                                                    GeometryRaytraceCtx& query,
                                                                    const CoreBasicArray<unsigned int>& node_leaves,
                                                                    void* user) {
  const auto& structure = *static_cast<const Self*>(user);
  const uint first = structure.get_place(node_leaves);
  for (uint k = 0; k < node_leaves.get_count(); ++k) structure.leaf_ray_hit_static(first + k, ctx, shader, query);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_static_callback(
    const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, const CoreBasicArray<unsigned int>& node_leaves,
    void* user) {
  const auto& structure = *static_cast<const Self*>(user);
  const uint first = structure.get_place(node_leaves);
  for (uint k = 0; k < node_leaves.get_count(); ++k)
    structure.leaf_ray_hit_nearest_static(first + k, ctx, shader, query);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_frustum_hit_callback(const CtxEval& ctx, CtxShader& shader,
                                                                 GeometryFrustumCtx& query,
                                                                 const CoreBasicArray<unsigned int>& node_leaves,
                                                                 void* user) {
  const auto& structure = *static_cast<const Self*>(user);
  const uint first = structure.get_place(node_leaves);
  for (uint k = 0; k < node_leaves.get_count(); ++k) structure.leaf_frustum_hit(first + k, ctx, shader, query);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_motion_callback(const CtxEval& ctx, CtxShader& shader,
                                                                    GeometryRaytraceCtx& query,
                                                                    const CoreBasicArray<unsigned int>& node_leaves,
                                                                    void* user) {
  auto& data = *static_cast<MotionData*>(user);
  const uint first = data.owner->get_place(node_leaves);
  for (uint k = 0; k < node_leaves.get_count(); ++k)
    data.owner->leaf_ray_hit_motion(first + k, ctx, shader, query, data);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_motion_callback(
    const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, const CoreBasicArray<unsigned int>& node_leaves,
    void* user) {
  auto& data = *static_cast<MotionData*>(user);
  const uint first = data.owner->get_place(node_leaves);
  for (uint k = 0; k < node_leaves.get_count(); ++k)
    data.owner->leaf_ray_hit_nearest_motion(first + k, ctx, shader, query, data);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_motion_vectors_callback(
    const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, const CoreBasicArray<unsigned int>& node_leaves,
    void* user) {
  auto& data = *static_cast<MotionData*>(user);
  const uint first = data.owner->get_place(node_leaves);
  for (uint k = 0; k < node_leaves.get_count(); ++k)
    data.owner->leaf_ray_hit_nearest_motion_vectors(first + k, ctx, shader, query, data);
}
