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
  return *this;
}

template <class Self, class Base>
GasInstanceStructure<Self, Base>::QueryScope::QueryScope(const Self&, CtxShader& shader, GeometryRaytraceCtx&,
                                                         BvhHits) {
  GasNestedScope::forget_rays(shader);
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
template <class Query>
void GasInstanceStructure<Self, Base>::enter(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                             GeometryRaytraceCtx& parent, const Query& query) const {
  const uint type = parent.intervals[parent.first_ray].type;
  typename Self::Entry entry;
  if (!self().find_entry(ctx, shader, type, leaf, entry)) return;
  const GasNestedScope scope(shader);
  if (scope.get() == nullptr || !scope.get()->ray.reserve(parent)) return;
  query(entry, static_cast<GMathRay::Type>(type), scope.get()->ray);
}

template <class Self, class Base>
GeometryRaytraceCtx& GasInstanceStructure<Self, Base>::get_local_ctx(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent,
                                                                     const GMathRay::Type& type,
                                                                     const unsigned int& leaf) const {
  const GasNestedTarget target = self().get_target(parent, type, leaf);
  GeometryRaytraceCtx& local = ray_ctx.begin_query(parent, target);
  if (!ray_ctx.is_ray_cached(parent, target.key)) {
    ray_ctx.cache_ray(parent, target.key);
    const GMathMatrix4x4<double>&matrix = self().get_matrix(leaf), &inverse = self().get_inverse_matrix(leaf);
    gas_for_each_ray(parent, [&](uint ray) { ray_ctx.set_ray(parent, ray, matrix, inverse); });
  }
  ray_ctx.transform_planes(parent, self().get_inverse_matrix(leaf));
  return local;
}

template <class Self, class Base>
GeometryRaytraceCtx& GasInstanceStructure<Self, Base>::get_local_motion_ctx(GasRayCtx& ray_ctx,
                                                                            GeometryRaytraceCtx& parent,
                                                                            const GMathRay::Type& type,
                                                                            const unsigned int& leaf,
                                                                            const MotionData& data) const {
  const GasNestedTarget target = self().get_target(parent, type, leaf);
  GeometryRaytraceCtx& local = ray_ctx.begin_query(parent, target);
  local.spans = parent.spans;
  local.span_stamp = parent.span_stamp;
  if (!ray_ctx.is_ray_cached(parent, target.key)) {
    ray_ctx.cache_ray(parent, target.key);
    gas_for_each_ray(parent, [&](uint ray) {
      const GeometryRaySpan& span = parent.spans[ray];
      const GMathMatrix4x4<double> matrix = gas_blend_matrices(data.get_matrix(target.key, span.first),
                                                               data.get_matrix(target.key, span.second), span.fraction);
      ray_ctx.set_ray(parent, ray, matrix, matrix.get_inverse());
    });
  }
  if (parent.planes != nullptr)
    ray_ctx.transform_planes(parent, ray_ctx.matrices[parent.first_ray].matrix.get_inverse());
  return local;
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_static(const unsigned int& leaf, const CtxEval& ctx,
                                                           CtxShader& shader, GeometryRaytraceCtx& query) const {
  enter(leaf, ctx, shader, query, [&](typename Self::Entry& entry, GMathRay::Type type, GasRayCtx& ray_ctx) {
    GeometryRaytraceCtx& local = get_local_ctx(ray_ctx, query, type, leaf);
    self().template query_entry<BvhHits::all>(ctx, shader, query, local, leaf, entry, false);
  });
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_static(const unsigned int& leaf, const CtxEval& ctx,
                                                                   CtxShader& shader,
                                                                   GeometryRaytraceCtx& query) const {
  enter(leaf, ctx, shader, query, [&](typename Self::Entry& entry, GMathRay::Type type, GasRayCtx& ray_ctx) {
    GeometryRaytraceCtx& local = get_local_ctx(ray_ctx, query, type, leaf);
    self().template query_entry<BvhHits::nearest>(ctx, shader, query, local, leaf, entry, false);
    const uint depth = self().get_path_depth(query);
    gas_for_each_ray(query, [&](uint ray) { query.map->transform_path(ray, self().get_matrix(leaf), depth); });
  });
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_motion(const unsigned int& leaf, const CtxEval& ctx,
                                                           CtxShader& shader, GeometryRaytraceCtx& query,
                                                           MotionData& data) const {
  enter(leaf, ctx, shader, query, [&](typename Self::Entry& entry, GMathRay::Type type, GasRayCtx& ray_ctx) {
    GeometryRaytraceCtx& local = get_local_motion_ctx(ray_ctx, query, type, leaf, data);
    self().template query_entry<BvhHits::all>(ctx, shader, query, local, leaf, entry, true);
  });
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_motion(const unsigned int& leaf, const CtxEval& ctx,
                                                                   CtxShader& shader, GeometryRaytraceCtx& query,
                                                                   MotionData& data) const {
  enter(leaf, ctx, shader, query, [&](typename Self::Entry& entry, GMathRay::Type type, GasRayCtx& ray_ctx) {
    GeometryRaytraceCtx& local = get_local_motion_ctx(ray_ctx, query, type, leaf, data);
    self().template query_entry<BvhHits::nearest>(ctx, shader, query, local, leaf, entry, true);
    const uint depth = self().get_path_depth(query);
    gas_for_each_ray(query, [&](uint ray) { query.map->transform_path(ray, ray_ctx.matrices[ray].matrix, depth); });
  });
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_motion_vectors(const unsigned int& leaf, const CtxEval& ctx,
                                                                           CtxShader& shader,
                                                                           GeometryRaytraceCtx& query,
                                                                           MotionData& data) const {
  enter(leaf, ctx, shader, query, [&](typename Self::Entry& entry, GMathRay::Type type, GasRayCtx& ray_ctx) {
    if (!ray_ctx.reserve_end_matrices(query.ray_count)) return;
    GeometryRaytraceCtx& local = get_local_motion_ctx(ray_ctx, query, type, leaf, data);
    local.matrices2 = ray_ctx.end_matrices.get();
    local.matrices2_used = true;
    const uint key = self().get_key(table.owners[leaf]), depth = self().get_path_depth(query);
    gas_for_each_ray(query, [&](uint ray) {
      // With a single sample, `second` is that one.
      ray_ctx.end_matrices[ray].matrix = data.get_matrix(key, query.spans[ray].second);
      ray_ctx.end_matrices[ray].flag = 0;
    });
    self().template query_entry<BvhHits::nearest>(ctx, shader, query, local, leaf, entry, true);
    gas_for_each_ray(query, [&](uint ray) {
      query.map->transform_path(ray, ray_ctx.matrices[ray].matrix, ray_ctx.end_matrices[ray].matrix, depth);
    });
  });
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_frustum_hit(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                                        GeometryFrustumCtx& query) const {
  if (!self().wants_frustum(query, leaf)) return;
  typename Self::Entry entry;
  if (!self().find_entry(ctx, shader, query.kind, leaf, entry)) return;
  const GasNestedScope scope(shader);
  if (scope.get() == nullptr) return;
  const GMathMatrix4x4<double>& matrix = self().get_matrix(leaf);
  GeometryFrustumCtx& local = scope.get()->frustum;
  local.begin_nested(query, self().get_inverse_matrix(leaf), matrix);
  local.cluster = table.get_cluster(leaf);
  self().begin_frustum(query, *scope.get(), leaf);
  const std::size_t first_point = query.get_points().size();
  self().query_entry(ctx, shader, local, entry);
  const auto mode = static_cast<GeometryFrustumMode>(query.mode);
  if (mode == GeometryFrustumMode::any || mode == GeometryFrustumMode::all)
    return self().end_frustum(query, local, leaf);
  std::vector<GeometryFrustumVertex>& points = query.get_points();
  for (std::size_t point = first_point; point < points.size(); ++point)
    points[point].position = matrix.transform_point(points[point].position);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_static_callback(const CtxEval& ctx, CtxShader& shader,
                                                                    GeometryRaytraceCtx& query,
                                                                    const CoreBasicArray<unsigned int>& leaves,
                                                                    void* user) {
  for (const uint leaf : leaves) static_cast<const Self*>(user)->leaf_ray_hit_static(leaf, ctx, shader, query);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_static_callback(const CtxEval& ctx, CtxShader& shader,
                                                                            GeometryRaytraceCtx& query,
                                                                            const CoreBasicArray<unsigned int>& leaves,
                                                                            void* user) {
  for (const uint leaf : leaves) static_cast<const Self*>(user)->leaf_ray_hit_nearest_static(leaf, ctx, shader, query);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_frustum_hit_callback(const CtxEval& ctx, CtxShader& shader,
                                                                 GeometryFrustumCtx& query,
                                                                 const CoreBasicArray<unsigned int>& leaves,
                                                                 void* user) {
  for (const uint leaf : leaves) static_cast<const Self*>(user)->leaf_frustum_hit(leaf, ctx, shader, query);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_motion_callback(const CtxEval& ctx, CtxShader& shader,
                                                                    GeometryRaytraceCtx& query,
                                                                    const CoreBasicArray<unsigned int>& leaves,
                                                                    void* user) {
  auto& data = *static_cast<MotionData*>(user);
  for (const uint leaf : leaves) data.owner->leaf_ray_hit_motion(leaf, ctx, shader, query, data);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_motion_callback(const CtxEval& ctx, CtxShader& shader,
                                                                            GeometryRaytraceCtx& query,
                                                                            const CoreBasicArray<unsigned int>& leaves,
                                                                            void* user) {
  auto& data = *static_cast<MotionData*>(user);
  for (const uint leaf : leaves) data.owner->leaf_ray_hit_nearest_motion(leaf, ctx, shader, query, data);
}

template <class Self, class Base>
void GasInstanceStructure<Self, Base>::leaf_ray_hit_nearest_motion_vectors_callback(
    const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, const CoreBasicArray<unsigned int>& leaves,
    void* user) {
  auto& data = *static_cast<MotionData*>(user);
  for (const uint leaf : leaves) data.owner->leaf_ray_hit_nearest_motion_vectors(leaf, ctx, shader, query, data);
}
