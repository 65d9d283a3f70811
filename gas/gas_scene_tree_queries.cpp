// The leaves of a scene: the query continues in the space of one object, restricted to one cluster of its structure.
#include "gas/gas_scene_tree_motion.h"
#include "gas/structure/gas_nested_query.h"
#include "gas/structure/gas_world_bbox.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_module/module_scene_object.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY};

}  // namespace

GasSceneTree::QueryScope::QueryScope(const GasSceneTree&, CtxShader& shader, GeometryRaytraceCtx&, BvhHits) {
  GasNestedScope::forget_rays(shader);
}

BvhLeafFunctions GasSceneTree::get_leaf_functions(const MotionData* data, const GeometryRaytraceCtx& query) const {
  return data != nullptr ? data->get_leaf_functions(query.settings.compute_motion_vectors) : leaf_functions;
}

template <class Query>
void GasSceneTree::enter_object(const unsigned int& leaf, CtxShader& shader, GeometryRaytraceCtx& parent,
                                const Query& query) const {
  ModuleSceneObject* object = objects[get_object_index(leaf)];
  const uint type = parent.intervals[parent.first_ray].type;
  if (!object->is_visible(type, shader.visibility_override)) return;
  const GasNestedScope scope(shader);
  if (scope.get() == nullptr || !scope.get()->ray.reserve(parent)) return;
  query(*object, static_cast<GMathRay::Type>(type), scope.get()->ray);
}

GasNestedTarget GasSceneTree::get_target(const unsigned int& leaf, const GMathRay::Type& type) const {
  const uint index = get_object_index(leaf);
  const bool starts_anywhere = type == GMathRay::camera || type == GMathRay::lookup;
  return {leaf_objects[leaf],
          reinterpret_cast<u64>(leaf_clusters[leaf]),
          starts_anywhere ? 0.0 : objects[index]->get_raytrace_distance(),
          {index, objects[index], get_override(index)}};
}

GeometryRaytraceCtx& GasSceneTree::get_local_ctx(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent,
                                                 const GMathRay::Type& type, const unsigned int& leaf) const {
  const GasNestedTarget target = get_target(leaf, type);
  GeometryRaytraceCtx& local = ray_ctx.begin_query(parent, target);
  if (ray_ctx.is_ray_cached(parent, target.key)) return local;
  ray_ctx.cache_ray(parent, target.key);
  const ModuleSceneObject& object = *target.element.object;
  gas_for_each_ray(parent, [&](uint ray) {
    ray_ctx.matrices[ray].matrix = object.get_global_matrix();
    ray_ctx.matrices[ray].flag = 0;
    ray_ctx.rays[ray].transform(parent.get_ray(ray), object.get_inv_global_matrix());
  });
  return local;
}

GeometryRaytraceCtx& GasSceneTree::get_local_motion_ctx(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent,
                                                        const GMathRay::Type& type, const unsigned int& leaf,
                                                        const MotionData& data) const {
  const GasNestedTarget target = get_target(leaf, type);
  GeometryRaytraceCtx& local = ray_ctx.begin_query(parent, target);
  local.spans = parent.spans;
  local.span_stamp = parent.span_stamp;
  if (ray_ctx.is_ray_cached(parent, target.key)) return local;
  ray_ctx.cache_ray(parent, target.key);
  gas_for_each_ray(parent, [&](uint ray) {
    const GeometryRaySpan& span = parent.spans[ray];
    GeometryRayMatrix& record = ray_ctx.matrices[ray];
    record.matrix = gas_blend_matrices(data.get_matrix(target.key, span.first),
                                       data.get_matrix(target.key, span.second), span.fraction);
    record.flag = 0;
    ray_ctx.rays[ray].transform(parent.get_ray(ray), record.matrix.get_inverse());
  });
  return local;
}

void GasSceneTree::leaf_ray_hit_static(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                       GeometryRaytraceCtx& query) const {
  enter_object(leaf, shader, query, [&](ModuleSceneObject& object, GMathRay::Type type, GasRayCtx& ray_ctx) {
    object.ray_hit(ctx, shader, get_local_ctx(ray_ctx, query, type, leaf));
  });
}

void GasSceneTree::leaf_ray_hit_nearest_static(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                               GeometryRaytraceCtx& query) const {
  enter_object(leaf, shader, query, [&](ModuleSceneObject& object, GMathRay::Type type, GasRayCtx& ray_ctx) {
    object.ray_hit_nearest(ctx, shader, get_local_ctx(ray_ctx, query, type, leaf));
    gas_for_each_ray(query, [&](uint ray) { query.map->transform_path(ray, object.get_global_matrix(), 0); });
  });
}

void GasSceneTree::leaf_ray_hit_motion(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                       GeometryRaytraceCtx& query, MotionData& data) const {
  enter_object(leaf, shader, query, [&](ModuleSceneObject& object, GMathRay::Type type, GasRayCtx& ray_ctx) {
    object.ray_hit(ctx, shader, get_local_motion_ctx(ray_ctx, query, type, leaf, data));
  });
}

void GasSceneTree::leaf_ray_hit_nearest_motion(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                               GeometryRaytraceCtx& query, MotionData& data) const {
  enter_object(leaf, shader, query, [&](ModuleSceneObject& object, GMathRay::Type type, GasRayCtx& ray_ctx) {
    object.ray_hit_nearest(ctx, shader, get_local_motion_ctx(ray_ctx, query, type, leaf, data));
    gas_for_each_ray(query, [&](uint ray) { query.map->transform_path(ray, ray_ctx.matrices[ray].matrix, 0); });
  });
}

void GasSceneTree::leaf_ray_hit_nearest_motion_vectors(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                                       GeometryRaytraceCtx& query, MotionData& data) const {
  enter_object(leaf, shader, query, [&](ModuleSceneObject& object, GMathRay::Type type, GasRayCtx& ray_ctx) {
    if (!ray_ctx.reserve_end_matrices(query.ray_count)) return;
    GeometryRaytraceCtx& local = get_local_motion_ctx(ray_ctx, query, type, leaf, data);
    local.matrices2 = ray_ctx.end_matrices.get();
    local.matrices2_used = true;
    gas_for_each_ray(query, [&](uint ray) {
      // With a single sample, `second` is that one.
      ray_ctx.end_matrices[ray].matrix = data.get_matrix(leaf_objects[leaf], query.spans[ray].second);
      ray_ctx.end_matrices[ray].flag = 0;
    });
    object.ray_hit_nearest(ctx, shader, local);
    gas_for_each_ray(query, [&](uint ray) {
      query.map->transform_path(ray, ray_ctx.matrices[ray].matrix, ray_ctx.end_matrices[ray].matrix, 0);
    });
  });
}

void GasSceneTree::leaf_frustum_hit(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                    GeometryFrustumCtx& query) const {
  const uint index = get_object_index(leaf);
  ModuleSceneObject& object = *objects[index];
  const auto mode = static_cast<GeometryFrustumMode>(query.mode);
  const bool lists_objects = mode == GeometryFrustumMode::any || mode == GeometryFrustumMode::all;
  // Mode all: the first leaf of an object decides for the whole object. Mode any: one leaf inside is enough.
  if (lists_objects && query.is_decided(index)) return;
  if (!object.is_visible(query.kind, shader.visibility_override)) return;
  const GasNestedScope scope(shader);
  if (scope.get() == nullptr) return;
  GeometryFrustumCtx& local = scope.get()->frustum;
  local.begin_nested(query, object.get_inv_global_matrix(), object.get_global_matrix());
  gas_extend_path(scope.get()->frustum_path, query.path, {index, &object, get_override(index)});
  local.path = &scope.get()->frustum_path;
  local.shading_group_offset = 0;
  local.instance = 0;
  local.cluster = reinterpret_cast<u64>(leaf_clusters[leaf]);
  const std::size_t first_point = query.get_points().size();
  object.frustum_hit(ctx, shader, local);
  if (lists_objects) {
    const bool listed =
        mode == GeometryFrustumMode::any ? local.result.hit_count > 0 : local.result.hit_count == local.result.total;
    if (mode == GeometryFrustumMode::all) {
      query.set_decided(index);
      if (!listed) query.result.outside = 1;
    }
    if (!listed) return;
    query.add_object(index);
    ++query.result.hit_count;  // an outer scene reads it
    return;
  }
  std::vector<GeometryFrustumVertex>& points = query.get_points();
  for (std::size_t point = first_point; point < points.size(); ++point)
    points[point].position = object.get_global_matrix().transform_point(points[point].position);
}

void GasSceneTree::leaf_ray_hit_static_callback(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                                const CoreBasicArray<unsigned int>& leaves, void* user) {
  for (const uint leaf : leaves) static_cast<const GasSceneTree*>(user)->leaf_ray_hit_static(leaf, ctx, shader, query);
}

void GasSceneTree::leaf_ray_hit_nearest_static_callback(const CtxEval& ctx, CtxShader& shader,
                                                        GeometryRaytraceCtx& query,
                                                        const CoreBasicArray<unsigned int>& leaves, void* user) {
  for (const uint leaf : leaves)
    static_cast<const GasSceneTree*>(user)->leaf_ray_hit_nearest_static(leaf, ctx, shader, query);
}

void GasSceneTree::leaf_frustum_hit_callback(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                                             const CoreBasicArray<unsigned int>& leaves, void* user) {
  for (const uint leaf : leaves) static_cast<const GasSceneTree*>(user)->leaf_frustum_hit(leaf, ctx, shader, query);
}

void GasSceneTree::leaf_ray_hit_motion_callback(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                                const CoreBasicArray<unsigned int>& leaves, void* user) {
  auto& data = *static_cast<MotionData*>(user);
  for (const uint leaf : leaves) data.owner->leaf_ray_hit_motion(leaf, ctx, shader, query, data);
}

void GasSceneTree::leaf_ray_hit_nearest_motion_callback(const CtxEval& ctx, CtxShader& shader,
                                                        GeometryRaytraceCtx& query,
                                                        const CoreBasicArray<unsigned int>& leaves, void* user) {
  auto& data = *static_cast<MotionData*>(user);
  for (const uint leaf : leaves) data.owner->leaf_ray_hit_nearest_motion(leaf, ctx, shader, query, data);
}

void GasSceneTree::leaf_ray_hit_nearest_motion_vectors_callback(const CtxEval& ctx, CtxShader& shader,
                                                                GeometryRaytraceCtx& query,
                                                                const CoreBasicArray<unsigned int>& leaves,
                                                                void* user) {
  auto& data = *static_cast<MotionData*>(user);
  for (const uint leaf : leaves) data.owner->leaf_ray_hit_nearest_motion_vectors(leaf, ctx, shader, query, data);
}

void GasSceneTree::answer_frustum(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const {
  if (query.mode == static_cast<uint>(GeometryFrustumMode::all)) {
    for (const uint index : object_indices)
      query.result.total += objects[index]->is_visible(query.kind, shader.visibility_override) ? 1 : 0;
  }
  bvh_frustum_hit({tree, nullptr, leaf_functions}, ctx, shader, query);
}
