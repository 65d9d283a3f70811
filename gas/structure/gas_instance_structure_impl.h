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
    for_each_leaf(accepted, [&](GasInstanceLeaf&, uint leaf) { instance.frame.add(local_boxes[leaf]); });
    instance.frame = bvh_make_frame(instance.frame);
    instance.accepted = accepted;
    const GasInstanceBoxes described = self().describe_instance(accepted, instance);
    const GasInstanceBoxes boxes = instance.has_finite_frame() ? described : GasInstanceBoxes::never;
    for_each_leaf(accepted, [&](GasInstanceLeaf& entry, uint leaf) {
      entry.cluster = reinterpret_cast<u64>(table.clusters[leaf]);
      entry.boxes = boxes;
      if (boxes != GasInstanceBoxes::never) entry.set_box(instance.frame, local_boxes[leaf]);
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

// Inlined: it is called once by each kind of query, and as a call takes 20 instructions more per leaf.
template <class Self, class Base>
template <class Query>
[[gnu::always_inline]] inline void GasInstanceStructure<Self, Base>::enter(uint place, const CtxEval& ctx,
                                                                           CtxShader& shader,
                                                                           GeometryRaytraceCtx& parent,
                                                                           const MotionData* data,
                                                                           const Query& query) const {
  const GasNestedScope scope(shader);
  if (scope.get() == nullptr || !scope.get()->ray.reserve(parent)) return;
  GasRayCtx& ray_ctx = scope.get()->ray;
  Target target{leaves[place], get_instance(place), {}};
  // Of a large scene nothing of this is in a cache; it arrives while the ray is transformed and tested.
  simd_prefetch(reinterpret_cast<std::uintptr_t>(&target.instance.matrix));
  self().prefetch_entry(target.instance);
  const bool is_reached =
      data != nullptr ? reach_moving(ray_ctx, parent, target, *data) : reach_still(ray_ctx, parent, target);
  // The entry is found last: about half of all leaves are missed.
  const auto type = static_cast<GMathRay::Type>(parent.intervals[parent.first_ray].type);
  if (!is_reached || !self().find_entry(ctx, shader, type, target.instance, target.entry)) return;
  if (data == nullptr) ray_ctx.set_matrices(parent, *target.instance.matrix);
  GasNestedTarget nested = self().get_target(parent, type, target.instance);
  nested.cluster = target.leaf.cluster;
  GeometryRaytraceCtx& local = ray_ctx.begin_query(parent, nested);
  if (data != nullptr) {
    local.spans = parent.spans;
    local.span_stamp = parent.span_stamp;
  }
  if (local.planes != nullptr) {
    ray_ctx.transform_planes(
        parent, data != nullptr ? ray_ctx.matrices[parent.first_ray].matrix.get_inverse() : target.instance.inverse);
  }
  query(target, ray_ctx, local);
}

template <class Self, class Base>
template <class Transform>
bool GasInstanceStructure<Self, Base>::reach(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent, const Target& target,
                                             GasInstanceBoxes least, const Transform& transform) const {
  const bool has_boxes = target.leaf.boxes >= least && parent.first_ray == parent.last_ray;
  const uint first = parent.first_ray;
  if (!ray_ctx.is_ray_cached(parent, target.leaf.instance)) {
    ray_ctx.cache_ray(parent, target.leaf.instance);
    gas_for_each_ray(parent, transform);
    if (has_boxes) ray_ctx.box_ray.set(ray_ctx.rays[first], parent.intervals[first].tnear, target.instance.frame);
  }
  return !has_boxes || ray_ctx.box_ray.touches(target.leaf, parent.get_limit(first)) ||
         self().must_enter(target.instance);
}

template <class Self, class Base>
bool GasInstanceStructure<Self, Base>::reach_still(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent,
                                                   const Target& target) const {
  return reach(ray_ctx, parent, target, GasInstanceBoxes::at_rest,
               [&](uint ray) { ray_ctx.rays[ray].transform(parent.get_ray(ray), target.instance.inverse); });
}

template <class Self, class Base>
bool GasInstanceStructure<Self, Base>::reach_moving(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent,
                                                    const Target& target, const MotionData& data) const {
  const uint key = self().get_key(target.instance.accepted);
  return reach(ray_ctx, parent, target, GasInstanceBoxes::always, [&](uint ray) {
    const GeometryRaySpan& span = parent.spans[ray];
    ray_ctx.set_matrix(
        ray, gas_blend_matrices(data.get_matrix(key, span.first), data.get_matrix(key, span.second), span.fraction));
    ray_ctx.rays[ray].transform(parent.get_ray(ray), ray_ctx.matrices[ray].matrix.get_inverse());
  });
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_static(const unsigned int& leaf, const CtxEval& ctx,
                                                           CtxShader& shader, GeometryRaytraceCtx& query) const {
  enter(leaf, ctx, shader, query, nullptr, [&](Target& target, GasRayCtx&, GeometryRaytraceCtx& local) {
    self().template query_entry<BvhHits::all>(ctx, shader, query, local, target.instance, target.entry, false);
  });
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_static(const unsigned int& leaf, const CtxEval& ctx,
                                                                   CtxShader& shader,
                                                                   GeometryRaytraceCtx& query) const {
  enter(leaf, ctx, shader, query, nullptr, [&](Target& target, GasRayCtx& ray_ctx, GeometryRaytraceCtx& local) {
    self().template query_entry<BvhHits::nearest>(ctx, shader, query, local, target.instance, target.entry, false);
    const uint depth = self().get_path_depth(query);
    gas_for_each_ray(query, [&](uint ray) { ray_ctx.lift_hit(query, ray, depth, *target.instance.matrix); });
  });
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_motion(const unsigned int& leaf, const CtxEval& ctx,
                                                           CtxShader& shader, GeometryRaytraceCtx& query,
                                                           MotionData& data) const {
  enter(leaf, ctx, shader, query, &data, [&](Target& target, GasRayCtx&, GeometryRaytraceCtx& local) {
    self().template query_entry<BvhHits::all>(ctx, shader, query, local, target.instance, target.entry, true);
  });
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_motion(const unsigned int& leaf, const CtxEval& ctx,
                                                                   CtxShader& shader, GeometryRaytraceCtx& query,
                                                                   MotionData& data) const {
  enter(leaf, ctx, shader, query, &data, [&](Target& target, GasRayCtx& ray_ctx, GeometryRaytraceCtx& local) {
    self().template query_entry<BvhHits::nearest>(ctx, shader, query, local, target.instance, target.entry, true);
    const uint depth = self().get_path_depth(query);
    gas_for_each_ray(query, [&](uint ray) { ray_ctx.lift_hit(query, ray, depth, ray_ctx.matrices[ray].matrix); });
  });
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_motion_vectors(const unsigned int& leaf, const CtxEval& ctx,
                                                                           CtxShader& shader,
                                                                           GeometryRaytraceCtx& query,
                                                                           MotionData& data) const {
  enter(leaf, ctx, shader, query, &data, [&](Target& target, GasRayCtx& ray_ctx, GeometryRaytraceCtx& local) {
    if (!ray_ctx.reserve_end_matrices(query.ray_count)) return;
    local.matrices2 = ray_ctx.end_matrices.get();
    local.matrices2_used = true;
    const uint key = self().get_key(target.instance.accepted), depth = self().get_path_depth(query);
    gas_for_each_ray(query, [&](uint ray) {
      // With a single sample, `second` is that one.
      ray_ctx.end_matrices[ray].matrix = data.get_matrix(key, query.spans[ray].second);
      ray_ctx.end_matrices[ray].flag = 0;
    });
    self().template query_entry<BvhHits::nearest>(ctx, shader, query, local, target.instance, target.entry, true);
    gas_for_each_ray(query, [&](uint ray) {
      ray_ctx.lift_hit(query, ray, depth, ray_ctx.matrices[ray].matrix, ray_ctx.end_matrices[ray].matrix);
    });
  });
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
  local.begin_nested(query, instance.inverse, *instance.matrix);
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
