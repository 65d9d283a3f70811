// The objects of a scene as the leaves of its tree: at rest, in motion, in ray and frustum queries.
#include "gas/gas_scene_tree.h"
#include "gas/structure/gas_instance_structure_impl.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_module/module_scene_object.h"

template class GasStructure<GasSceneTree, GasObject, GasInstanceMotion<GasSceneTree>>;
template class GasBvhStructure<GasSceneTree, GasObject, GasInstanceMotion<GasSceneTree>>;
template class GasInstanceStructure<GasSceneTree, GasObject>;

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GAS_MOTION_DIRTY};

}  // namespace

namespace {

ModuleSceneObject& get_object(const GasInstance& instance) { return *static_cast<ModuleSceneObject*>(instance.inner); }

}  // namespace

bool GasSceneTree::describe_instance(uint accepted, GasInstance& instance) const {
  instance.index = table.indices[accepted];
  ModuleSceneObject* object = objects[instance.index];
  instance.matrix = &object->get_global_matrix();
  instance.set_inverse(object->get_inv_global_matrix());
  instance.inner = object;
  return true;
}

bool GasSceneTree::keeps_shape(uint accepted) const { return !objects[table.indices[accepted]]->has_moving_shape(); }

bool GasSceneTree::find_entry(const CtxEval& /*ctx*/, CtxShader& shader, uint type, const GasInstance& instance,
                              Entry& entry) const {
  entry.object = &get_object(instance);
  return entry.object->is_visible(type, shader.visibility_override);
}

/// Matrix, visibility, structure and shading of the object. Their addresses follow from the object's, for which the
/// query need not wait: the record's first cache line is here.
[[gnu::always_inline]] inline void GasSceneTree::prefetch_entry(const GasInstance& instance) const {
  const GMathMatrix4x4<double>& matrix = get_object(instance).get_global_matrix();
  const auto first = reinterpret_cast<std::uintptr_t>(&matrix);
  for (uint line = 0; line < 4; ++line) simd_prefetch(first + 64 * line);
}

GasNestedTarget GasSceneTree::get_target(const GeometryRaytraceCtx& parent, GMathRay::Type type,
                                         const GasInstance& instance) const {
  ModuleSceneObject& object = get_object(instance);
  GasNestedTarget target;
  const bool starts_anywhere = type == GMathRay::camera || type == GMathRay::lookup;
  target.distance = starts_anywhere ? 0.0 : object.get_raytrace_distance();
  target.depth = parent.depth;
  target.element = {instance.index, &object, get_override(instance.index)};
  return target;
}

/// The object itself decides from the spans whether its query is a motion query.
template <BvhHits hits>
void GasSceneTree::query_entry(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& /*parent*/,
                               GeometryRaytraceCtx& local, const GasInstance& /*instance*/, Entry& entry,
                               bool /*is_moving*/) const {
  if constexpr (hits == BvhHits::nearest) {
    entry.object->ray_hit_nearest(ctx, shader, local);
  } else {
    entry.object->ray_hit(ctx, shader, local);
  }
}

/// Mode all: the first leaf of an object decides for the whole object. Mode any: one leaf inside is enough.
bool GasSceneTree::wants_frustum(const GeometryFrustumCtx& query, const GasInstance& instance) const {
  const auto mode = static_cast<GeometryFrustumMode>(query.mode);
  const bool lists_objects = mode == GeometryFrustumMode::any || mode == GeometryFrustumMode::all;
  return !lists_objects || !query.is_decided(instance.index);
}

void GasSceneTree::begin_frustum(const GeometryFrustumCtx& query, GasNestedQueryCtx& record,
                                 const GasInstance& instance) const {
  gas_extend_path(record.frustum_path, query.path,
                  {instance.index, &get_object(instance), get_override(instance.index)});
  record.frustum.path = &record.frustum_path;
  record.frustum.shading_group_offset = 0;
  record.frustum.instance = 0;
}

void GasSceneTree::query_entry(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& local, Entry& entry) const {
  entry.object->frustum_hit(ctx, shader, local);
}

void GasSceneTree::end_frustum(GeometryFrustumCtx& query, const GeometryFrustumCtx& local,
                               const GasInstance& instance) const {
  const bool is_mode_any = query.mode == static_cast<uint>(GeometryFrustumMode::any);
  const bool listed = is_mode_any ? local.result.hit_count > 0 : local.result.hit_count == local.result.total;
  if (!is_mode_any) {
    query.set_decided(instance.index);
    if (!listed) query.result.outside = 1;
  }
  if (!listed) return;
  query.add_object(instance.index);
  ++query.result.hit_count;  // an outer scene reads it
}

void GasSceneTree::answer_frustum(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const {
  if (query.mode == static_cast<uint>(GeometryFrustumMode::all)) {
    for (const uint index : table.indices)
      query.result.total += objects[index]->is_visible(query.kind, shader.visibility_override) ? 1 : 0;
  }
  bvh_frustum_hit({tree, nullptr, leaf_functions}, ctx, shader, query);
}

void GasSceneTree::measure(const CtxEval& ctx, uint accepted, double time, GMathMatrix4x4<double>& matrix,
                           GMathBbox3<float>* boxes) const {
  const uint index = table.indices[accepted];
  ModuleSceneObject* object = objects[index];
  const ModuleClusterFunctions& functions = object->get_cluster_functions();
  if ((object->get_flags() & ModuleSceneObject::moving) != 0) {
    matrix = object->get_global_matrix_at(time);
    functions.get_clusters_bboxes_at(object, get_override(index), ctx, time, table.get_clusters(accepted), boxes);
  } else {
    matrix = object->get_global_matrix();
    functions.get_clusters_bboxes(object, get_override(index), table.get_clusters(accepted), boxes);
  }
}

namespace {

/// Each product in double precision, rounded to single before the sum. Not inlined: if the caller converts the result
/// back to double in the same function, g++ 12 drops the roundings.
[[gnu::noinline]] float blend_bound(float a, float b, double fraction) {
  if (fraction == 0.0 || fraction == 1.0) return fraction == 0.0 ? a : b;  // exact, also if the other is infinite
  return static_cast<float>((1.0 - fraction) * a) + static_cast<float>(fraction * b);
}

}  // namespace

GMathBbox3<double> GasSceneTree::blend_bbox(const GMathBbox3<float>& a, const GMathBbox3<float>& b, double fraction) {
  GMathBbox3<double> box;
  for (uint axis = 0; axis < 3; ++axis) {
    box.min[axis] = blend_bound(a.min[axis], b.min[axis], fraction);
    box.max[axis] = blend_bound(a.max[axis], b.max[axis], fraction);
  }
  return box;
}
