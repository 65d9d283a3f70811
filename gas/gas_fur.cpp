#include "gas/gas_fur.h"

#include "gas/bvh/bvh_clusters.h"
#include "gas/bvh/bvh_statistics.h"
#include "gas/frame/gas_class.h"
#include "gas/gas_frustum_modes.h"
#include "gas/gas_fur_motion.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_object.h"
#include "vq_geometry/geometry_raytrace_ctx.h"
#include "vq_module/ctx_helpers.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GAS_BUILD_BEGIN, EVT_ID_GAS_BUILD_END,
                                            EVT_ID_GAS_MOTION_DIRTY};

// Known to the host by name from the moment the library is loaded.
[[maybe_unused]] const CoreClassInfo& class_record = GasFur::class_info();

/// How much of a ray of this type a hit on the material stops. Camera rays weigh nothing and shadow rays everything:
/// for those the host's shading decides what a fibre lets through.
double get_hit_weight(const Material* material, uint type) {
  if (type == GMathRay::camera) return 0.0;
  if (type == GMathRay::shadow || material == nullptr) return 1.0;
  return (material->kind_mask >> (type & 31u) & 1u) != 0 ? 1.0 - material->transparency : 1.0;
}

}  // namespace

const CoreClassInfo& GasFur::class_info() {
  static const CoreClassInfo& info = gas_new_class("GasFur", GasClusterable::class_info());
  return info;
}

GasFur::GasFur() : motion_data(this) {}

GasFur::GasFur(const GasFur& other) : GasClusterable(other), motion_data(this) { *this = other; }

GasFur& GasFur::operator=(const GasFur& other) {
  if (this == &other) return *this;
  GasClusterable::operator=(other);
  ctx = other.ctx;
  base_geometry = other.base_geometry;
  geometry = other.geometry;
  primitive_count = other.primitive_count;
  has_motion = other.has_motion;
  oriented_nodes_allowed = other.oriented_nodes_allowed;
  tree = other.tree;
  leaf_functions = other.leaf_functions;
  leaf_functions.ray_user = leaf_functions.frustum_user = this;
  group_primitive_counts = other.group_primitive_counts;
  motion_data.invalidate();
  return *this;
}

GasFur::~GasFur() = default;

void GasFur::choose_leaf_functions() {
  const BvhRayLeafFunction ray = bvh_compute_statistics(tree).largest_leaf > 1 ? multi_primitive_ray_hit_callback
                                                                               : single_primitive_ray_hit_callback;
  leaf_functions = {ray, ray, this, leaf_frustum_hit_callback, this};
}

/// What does not move answers timed rays with the static functions, and never touches motion data.
void GasFur::install_callbacks() {
  callbacks.ray_hit_static = ray_hit_static_callback;
  callbacks.ray_hit_nearest_static = ray_hit_nearest_static_callback;
  callbacks.frustum_hit = frustum_hit_callback;
  callbacks.ray_hit_motion = has_motion ? ray_hit_motion_callback : ray_hit_static_callback;
  callbacks.ray_hit_nearest_motion = has_motion ? ray_hit_nearest_motion_callback : ray_hit_nearest_static_callback;
}

GMathBbox3<double> GasFur::get_bbox() const { return GMathBbox3<double>(tree.box); }

u64 GasFur::get_memory_size() const {
  u64 size = sizeof(*this) + tree.get_array_bytes() + u64{group_primitive_counts.get_count()} * sizeof(uint);
  motion_data.visit_all([&](const MotionData& data) { size += sizeof(data) + data.refit.get_array_bytes(); });
  return size;
}

void GasFur::get_clusters(CoreVector<void*>& clusters, const unsigned int& count, const float& /*ratio*/) const {
  bvh_get_clusters(tree, count, clusters);
}

void GasFur::get_clusters_bboxes(const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const {
  bvh_get_clusters_bboxes(tree, clusters, boxes);
}

void GasFur::get_clusters_weights(const CoreBasicArray<void*>& clusters, float* weights) const {
  bvh_get_clusters_weights(tree, clusters, weights);
}

void GasFur::test_primitive(const CtxEval& query_ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                            uint primitive) const {
  const uint group = geometry->get_primitive_shading_group(primitive) + query.shading_group_offset;
  const ShadingGroupLinks* links = CtxHelpers::get_shading(query, group);
  if (!gas_is_shaded(links)) return;
  query.geometry = geometry;
  query.shading_group = group;
  query.current_instance = query.instance;
  query.material = shader.override_material != nullptr ? shader.override_material : links->material;
  query.shading_variables = links->variables != nullptr ? links->variables : &ShadingVariablesCtx::get_default_ctx();
  if (!query.apply_primitive_filters(primitive)) return;
  const double outer_weight = query.hit_weight;
  const bool clipped =
      links->clip_map != nullptr && query.push_filter({CtxHelpers::filter_clip_map_callback, 0.0, 0.0, 0, nullptr});
  // One ray but for a tree that is a single leaf, which is handed the whole packet; the rays may be of different types.
  const uint first = query.first_ray, last = query.last_ray;
  for (uint ray = first; ray <= last && ray < query.ray_count; ++ray) {
    query.first_ray = query.last_ray = ray;
    query.hit_weight = get_hit_weight(query.material, query.intervals[ray].type);
    geometry->ray_hit_primitive(query_ctx, shader, query, primitive);
  }
  query.first_ray = first;
  query.last_ray = last;
  if (clipped) query.pop_filter();
  query.hit_weight = outer_weight;
}

void GasFur::single_primitive_ray_hit_callback(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                               const CoreBasicArray<unsigned int>& leaf, void* user) {
  static_cast<const GasFur*>(user)->test_primitive(ctx, shader, query, *leaf.get_items());
}

void GasFur::multi_primitive_ray_hit_callback(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                              const CoreBasicArray<unsigned int>& leaf, void* user) {
  for (const uint primitive : leaf) static_cast<const GasFur*>(user)->test_primitive(ctx, shader, query, primitive);
}

void GasFur::leaf_frustum_hit_callback(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                                       const CoreBasicArray<unsigned int>& leaf, void* user) {
  const GeometryObject& geometry = *static_cast<const GasFur*>(user)->geometry;
  for (const uint primitive : leaf) {
    const uint group = geometry.get_primitive_shading_group(primitive) + query.shading_group_offset;
    if (!gas_is_shaded(CtxHelpers::get_shading(query, group))) continue;
    query.geometry = &geometry;
    query.shading_group = group;
    query.current_instance = query.instance;
    geometry.frustum_hit_primitive(ctx, shader, query, primitive);
  }
}

template <BvhHits hits>
void GasFur::answer_static(const GasObject* object, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) {
  const auto& self = *static_cast<const GasFur*>(object);
  bvh_ray_hit<hits>({self.tree, nullptr, self.leaf_functions, self.base_geometry}, ctx, shader, query);
}

template <BvhHits hits>
void GasFur::answer_motion(const GasObject* object, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) {
  if (shader.motion_blur == nullptr) return answer_static<hits>(object, ctx, shader, query);
  const auto& self = *static_cast<const GasFur*>(object);
  const GasBvhMotion<4>* motion = self.get_motion_data(ctx, *shader.motion_blur).get_motion();
  bvh_ray_hit<hits>({self.tree, motion, self.leaf_functions, self.base_geometry}, ctx, shader, query);
}

void GasFur::ray_hit_static_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                     GeometryRaytraceCtx& query) {
  answer_static<BvhHits::all>(object, ctx, shader, query);
}

void GasFur::ray_hit_motion_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                     GeometryRaytraceCtx& query) {
  answer_motion<BvhHits::all>(object, ctx, shader, query);
}

void GasFur::ray_hit_nearest_static_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                             GeometryRaytraceCtx& query) {
  answer_static<BvhHits::nearest>(object, ctx, shader, query);
}

void GasFur::ray_hit_nearest_motion_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                             GeometryRaytraceCtx& query) {
  answer_motion<BvhHits::nearest>(object, ctx, shader, query);
}

void GasFur::frustum_hit_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                  GeometryFrustumCtx& query) {
  const auto& self = *static_cast<const GasFur*>(object);
  gas_frustum_hit({self.tree, nullptr, self.leaf_functions, self.base_geometry}, self.group_primitive_counts,
                  self.geometry, ctx, shader, query);
}
