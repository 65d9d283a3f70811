// A scene's leaves: the query goes on in the space of one object, restricted to one cluster of its structure.
#include "gas/gas_nested_query.h"
#include "gas/gas_scene_tree_motion.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_module/ctx_helpers.h"
#include "vq_module/module_scene_object.h"

namespace {

/// Calls function(r) for every ray of the query's active range.
template <class Function>
void for_each_ray(const GeometryRaytraceData& query, const Function& function) {
  for (uint ray = query.first_ray; ray <= query.last_ray && ray < query.ray_count; ++ray) function(ray);
}

/// Whether the record still holds the one active ray in the object's space. If not, it will.
bool holds_ray(GasRayCtx& ray_ctx, const GeometryRaytraceData& parent, const ModuleSceneObject* object) {
  if (ray_ctx.held_object == object && ray_ctx.held_ray == parent.first_ray) return true;
  ray_ctx.held_object = parent.first_ray == parent.last_ray ? object : nullptr;
  ray_ctx.held_ray = parent.first_ray;
  return false;
}

/// `path` becomes the parent's and one element more. Where there is no memory for a path it is shorter.
void extend_path(GeometryIntersectionPath& path, const GeometryIntersectionPath* parent,
                 const GeometryIntersectionPathElement& element) {
  if (parent != nullptr) {
    path.copy_from(*parent);
  } else {
    path.remove_all();
  }
  path.add(element);
}

/// (1 - fraction) a + fraction b, entry by entry.
GMathMatrix4x4<double> blend(const GMathMatrix4x4<double>& a, const GMathMatrix4x4<double>& b, double fraction) {
  GMathMatrix4x4<double> out;
  for (uint row = 0; row < 4; ++row) {
    for (uint column = 0; column < 4; ++column)
      out.m[row][column] = (1.0 - fraction) * a.m[row][column] + fraction * b.m[row][column];
  }
  return out;
}

}  // namespace

template <class Query>
void GasSceneTree::enter_object(const unsigned int& leaf, CtxShader& shader, const GeometryRaytraceCtx& parent,
                                const Query& query) const {
  ModuleSceneObject* object = objects[get_object_index(leaf)];
  const uint type = parent.intervals[parent.first_ray].type;
  if (!object->is_visible(type, shader.visibility_override)) return;
  const GasNestedScope scope(shader);
  if (scope.get() == nullptr || !scope.get()->ray.reserve(parent.ray_count)) return;
  query(*object, static_cast<GMathRay::Type>(type), scope.get()->ray);
}

// The record is used again and again by leaves of every kind, so that all that a leaf does not set must be cleared. It
// is done field by field: most of the record is room for filters, which a nested query pushes by itself.
GeometryRaytraceCtx& GasSceneTree::begin_local_ctx(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent,
                                                   const GMathRay::Type& type, const unsigned int& leaf,
                                                   const unsigned int& object, ModuleSceneObject* scene_object) const {
  GeometryRaytraceCtx& local = ray_ctx.query;
  local.rays = reinterpret_cast<const u8*>(ray_ctx.rays.get());
  local.ray_stride = sizeof(GMathBasicRay<double>);
  local.ray_count = parent.ray_count;
  local.first_ray = parent.first_ray;
  local.last_ray = parent.last_ray;
  local.intervals = parent.intervals;
  local.spans = nullptr;
  local.span_stamp = 0;
  local.ray_flags = parent.ray_flags;
  local.tallies = parent.tallies;
  local.visits = parent.visits;
  local.matrices = ray_ctx.matrices.get();
  local.matrices2 = nullptr;
  local.matrices2_used = false;

  local.shading_group_offset = 0;
  local.identification2 = parent.identification2;
  local.depth = parent.depth;
  local.instance = 0;
  local.cluster = reinterpret_cast<u64>(leaf_clusters[leaf]);
  local.geometry = nullptr;
  local.shading = nullptr;
  local.filter_count = 0;
  local.primitive_filter = nullptr;
  local.hit_weight = 1.0;

  local.hit_callback = parent.hit_callback;
  local.hit_user = parent.hit_user;
  local.settings = parent.settings;
  const bool starts_anywhere = type == GMathRay::camera || type == GMathRay::lookup;
  local.object_distance = starts_anywhere ? 0.0 : scene_object->get_raytrace_distance();
  local.map = nullptr;
  if (parent.map != nullptr) {
    ray_ctx.map = parent.map->get_deeper();
    local.map = &ray_ctx.map;
  }
  local.hits = parent.hits;
  local.user_word = parent.user_word;
  local.planes = nullptr;
  local.plane_count = local.plane_user = 0;

  const GeometryIntersectionPathElement element{object, scene_object, get_override(object)};
  extend_path(ray_ctx.path, parent.path, element);
  local.path = &ray_ctx.path;
  local.matte = parent.settings.allow_matte && CtxHelpers::is_matte_object(local, element) ? u8{1} : parent.matte;
  local.flags = parent.flags & ~u64{1};
  local.parent = &parent;
  local.level = parent.level + 1;
  return local;
}

GeometryRaytraceCtx& GasSceneTree::get_local_ctx(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent,
                                                 const GMathRay::Type& type, const unsigned int& leaf,
                                                 const unsigned int& object, ModuleSceneObject* scene_object) const {
  GeometryRaytraceCtx& local = begin_local_ctx(ray_ctx, parent, type, leaf, object, scene_object);
  if (holds_ray(ray_ctx, parent, scene_object)) return local;
  for_each_ray(parent, [&](uint ray) {
    ray_ctx.matrices[ray].matrix = scene_object->get_global_matrix();
    ray_ctx.matrices[ray].inverse_valid = 0;
    ray_ctx.rays[ray].transform(parent.get_ray(ray), scene_object->get_inv_global_matrix());
  });
  return local;
}

GeometryRaytraceCtx& GasSceneTree::get_local_motion_ctx(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent,
                                                        const GMathRay::Type& type, const unsigned int& leaf,
                                                        const MotionData& data) const {
  const uint object = get_object_index(leaf), accepted = leaf_objects[leaf];
  GeometryRaytraceCtx& local = begin_local_ctx(ray_ctx, parent, type, leaf, object, objects[object]);
  local.spans = parent.spans;
  local.span_stamp = parent.span_stamp;
  if (holds_ray(ray_ctx, parent, objects[object])) return local;
  for_each_ray(parent, [&](uint ray) {
    const GeometryRaySpan& span = parent.spans[ray];
    GeometryRayMatrix& record = ray_ctx.matrices[ray];
    record.matrix = blend(data.get_matrix(accepted, span.first), data.get_matrix(accepted, span.second), span.fraction);
    record.inverse_valid = 0;
    ray_ctx.rays[ray].transform(parent.get_ray(ray), record.matrix.get_inverse());
  });
  return local;
}

void GasSceneTree::leaf_ray_hit_static(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                       GeometryRaytraceCtx& query) const {
  enter_object(leaf, shader, query, [&](ModuleSceneObject& object, GMathRay::Type type, GasRayCtx& ray_ctx) {
    object.ray_hit(ctx, shader, get_local_ctx(ray_ctx, query, type, leaf, get_object_index(leaf), &object));
  });
}

void GasSceneTree::leaf_ray_hit_nearest_static(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                               GeometryRaytraceCtx& query) const {
  enter_object(leaf, shader, query, [&](ModuleSceneObject& object, GMathRay::Type type, GasRayCtx& ray_ctx) {
    object.ray_hit_nearest(ctx, shader, get_local_ctx(ray_ctx, query, type, leaf, get_object_index(leaf), &object));
    for_each_ray(query, [&](uint ray) { query.map->transform_path(ray, object.get_global_matrix(), 0); });
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
    for_each_ray(query, [&](uint ray) { query.map->transform_path(ray, ray_ctx.matrices[ray].matrix, 0); });
  });
}

void GasSceneTree::leaf_ray_hit_nearest_motion_vectors(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                                       GeometryRaytraceCtx& query, MotionData& data) const {
  enter_object(leaf, shader, query, [&](ModuleSceneObject& object, GMathRay::Type type, GasRayCtx& ray_ctx) {
    if (!ray_ctx.reserve_second_matrices(query.ray_count)) return;
    GeometryRaytraceCtx& local = get_local_motion_ctx(ray_ctx, query, type, leaf, data);
    local.matrices2 = ray_ctx.matrices2.get();
    local.matrices2_used = true;
    for_each_ray(query, [&](uint ray) {
      // The span's second sample is the first again when there is only one.
      ray_ctx.matrices2[ray].matrix = data.get_matrix(leaf_objects[leaf], query.spans[ray].second);
      ray_ctx.matrices2[ray].inverse_valid = 0;
    });
    object.ray_hit_nearest(ctx, shader, local);
    for_each_ray(query, [&](uint ray) {
      query.map->transform_path(ray, ray_ctx.matrices[ray].matrix, ray_ctx.matrices2[ray].matrix, 0);
    });
  });
}

void GasSceneTree::leaf_frustum_hit(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                    GeometryFrustumCtx& query) const {
  const uint index = get_object_index(leaf);
  ModuleSceneObject& object = *objects[index];
  const auto mode = static_cast<GeometryFrustumMode>(query.mode);
  const bool lists_objects = mode == GeometryFrustumMode::any || mode == GeometryFrustumMode::all;
  // An object's first leaf speaks for all of it in mode all; in mode any one that touches is enough.
  if (lists_objects && query.is_decided(index)) return;
  if (!object.is_visible(query.kind, shader.visibility_override)) return;
  const GasNestedScope scope(shader);
  if (scope.get() == nullptr) return;
  GeometryFrustumCtx& local = scope.get()->frustum;
  local.begin_nested(query, object.get_inv_global_matrix(), object.get_global_matrix());
  extend_path(scope.get()->frustum_path, query.path, {index, &object, get_override(index)});
  local.path = &scope.get()->frustum_path;
  local.shading_group_offset = 0;
  local.instance = 0;
  local.cluster = reinterpret_cast<u64>(leaf_clusters[leaf]);
  const std::size_t first_point = query.get_points().size();
  object.frustum_hit(ctx, shader, local);
  if (lists_objects) {
    const bool listed =
        mode == GeometryFrustumMode::any ? local.result.hit_count > 0 : local.result.hit_count == local.result.total;
    if (mode == GeometryFrustumMode::all) query.set_decided(index);
    if (!listed) return;
    query.add_object(index);
    ++query.result.hit_count;  // what a scene around this one goes by
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

template <BvhHits hits>
void GasSceneTree::answer_static(const GasObject* scene, const CtxEval& ctx, CtxShader& shader,
                                 GeometryRaytraceCtx& query) {
  const auto& self = *static_cast<const GasSceneTree*>(scene);
  GasNestedScope::forget_rays(shader);
  bvh_ray_hit<hits>({self.bvh, nullptr, self.leaf_functions, nullptr}, ctx, shader, query);
}

template <BvhHits hits>
void GasSceneTree::answer_motion(const GasObject* scene, const CtxEval& ctx, CtxShader& shader,
                                 GeometryRaytraceCtx& query) {
  const auto& self = *static_cast<const GasSceneTree*>(scene);
  const CtxMotionBlur* motion_blur = shader.motion_blur;
  if (self.bvh.is_empty() || motion_blur == nullptr || query.spans == nullptr)
    return answer_static<hits>(scene, ctx, shader, query);
  MotionData& data = self.get_motion_data(ctx, *motion_blur);
  // Where memory ran out no samples are kept, and the scene answers as it stands.
  if (data.matrices_sample_count == 0) return answer_static<hits>(scene, ctx, shader, query);
  if (query.span_stamp != motion_blur->get_stamp()) motion_blur->init_raytrace_ctx(query);
  GasNestedScope::forget_rays(shader);
  const BvhLeafFunctions functions = data.get_leaf_functions(query.settings.wants_motion_vectors);
  bvh_ray_hit<hits>({self.bvh, &data.refit, functions, nullptr}, ctx, shader, query);
}

void GasSceneTree::ray_hit_static_callback(const GasObject* scene, const CtxEval& ctx, CtxShader& shader,
                                           GeometryRaytraceCtx& query) {
  answer_static<BvhHits::all>(scene, ctx, shader, query);
}

void GasSceneTree::ray_hit_nearest_static_callback(const GasObject* scene, const CtxEval& ctx, CtxShader& shader,
                                                   GeometryRaytraceCtx& query) {
  answer_static<BvhHits::nearest>(scene, ctx, shader, query);
}

void GasSceneTree::ray_hit_motion_callback(const GasObject* scene, const CtxEval& ctx, CtxShader& shader,
                                           GeometryRaytraceCtx& query) {
  answer_motion<BvhHits::all>(scene, ctx, shader, query);
}

void GasSceneTree::ray_hit_nearest_motion_callback(const GasObject* scene, const CtxEval& ctx, CtxShader& shader,
                                                   GeometryRaytraceCtx& query) {
  answer_motion<BvhHits::nearest>(scene, ctx, shader, query);
}

void GasSceneTree::frustum_hit_callback(const GasObject* scene, const CtxEval& ctx, CtxShader& shader,
                                        GeometryFrustumCtx& query) {
  const auto& self = *static_cast<const GasSceneTree*>(scene);
  if (query.mode == static_cast<uint>(GeometryFrustumMode::all)) {
    for (const uint index : self.object_indices)
      query.result.total += self.objects[index]->is_visible(query.kind, shader.visibility_override) ? 1 : 0;
  }
  bvh_frustum_hit({self.bvh, nullptr, self.leaf_functions, nullptr}, ctx, shader, query);
}
