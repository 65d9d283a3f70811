#include "vq_module/module_scene_object.h"

#include <algorithm>

#include "vq_core/core_class_info.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_gas_base/gas_object.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_geometry/geometry_raytrace_ctx.h"

namespace {

/// For its lifetime, the override material of the innermost instance is the shader's override material.
class OverrideMaterialScope {
 public:
  OverrideMaterialScope(CtxShader& shader, const GeometryIntersectionPath* path)
      : shader_(shader), former_(shader.override_material) {
    const GeometryIntersectionPathElement* entry = path != nullptr ? path->get_last() : nullptr;
    const GeometryOverride* replaced = entry != nullptr ? entry->geometry_override : nullptr;
    if (replaced != nullptr && replaced->material != nullptr) shader.override_material = replaced->material;
  }
  ~OverrideMaterialScope() { shader_.override_material = former_; }
  OverrideMaterialScope(const OverrideMaterialScope&) = delete;
  OverrideMaterialScope& operator=(const OverrideMaterialScope&) = delete;

 private:
  CtxShader& shader_;
  const Material* former_;
};

/// True in a motion query. A static query may run while the shader has motion blur: then all objects must be static.
bool has_spans(const CtxShader& shader, const GeometryRaytraceCtx& query) {
  return shader.motion_blur != nullptr && query.span_stamp == shader.motion_blur->get_stamp();
}

void get_whole_clusters(ModuleSceneObject* object, GeometryOverride* /*geometry_override*/, CoreVector<void*>& clusters,
                        const unsigned int& /*count*/, const float& /*ratio*/) {
  if (!object->get_local_bbox().is_empty()) clusters.add(nullptr);
}

void get_whole_bboxes(ModuleSceneObject* object, GeometryOverride* /*geometry_override*/,
                      const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) {
  std::fill_n(boxes, clusters.get_count(), gmath_round_outwards(object->get_local_bbox()));
}

void get_whole_bboxes_at(ModuleSceneObject* object, GeometryOverride* /*geometry_override*/, const CtxEval& ctx,
                         const double& time, const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) {
  const GasObject* structure = object->get_structure();
  const GMathBbox3<double> box = structure != nullptr ? structure->get_bbox_at(ctx, time) : GMathBbox3<double>();
  std::fill_n(boxes, clusters.get_count(), gmath_round_outwards(box));
}

void get_whole_weights(ModuleSceneObject* /*object*/, GeometryOverride* /*geometry_override*/,
                       const CoreBasicArray<void*>& clusters, float* weights) {
  std::fill_n(weights, clusters.get_count(), 1.0f);
}

}  // namespace

const CoreClassInfo& ModuleSceneObject::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("ModuleSceneObject", core_destroy_object, ModuleSceneItem::class_info(), nullptr);
  return info;
}

const ModuleClusterFunctions& ModuleSceneObject::get_whole_functions() {
  static constexpr ModuleClusterFunctions functions{get_whole_clusters, get_whole_bboxes, get_whole_bboxes_at,
                                                    get_whole_weights};
  return functions;
}

GMathBbox3<double> ModuleSceneObject::get_local_bbox() const {
  return structure_ != nullptr ? structure_->get_bbox() : GMathBbox3<double>();
}

/// Calls `run` with the structure, if there is one, with the object's shading table and override material.
template <class Query, class Run>
void ModuleSceneObject::query_structure(CtxShader& shader, Query& query, const Run& run) const {
  if (structure_ == nullptr) return;
  if (shading_table_ != nullptr) {
    query.shading = shading_table_;
    query.shading_group_offset = 0;
  }
  const OverrideMaterialScope material(shader, query.path);
  run(*structure_);
}

void ModuleSceneObject::ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  query_structure(shader, query, [&](const GasObject& structure) {
    if (has_spans(shader, query)) return structure.ray_hit_motion(ctx, shader, query);
    structure.ray_hit_static(ctx, shader, query);
  });
}

void ModuleSceneObject::ray_hit_nearest(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  query_structure(shader, query, [&](const GasObject& structure) {
    if (has_spans(shader, query)) return structure.ray_hit_nearest_motion(ctx, shader, query);
    structure.ray_hit_nearest_static(ctx, shader, query);
  });
}

void ModuleSceneObject::frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const {
  query_structure(shader, query, [&](const GasObject& structure) { structure.frustum_hit(ctx, shader, query); });
}

void ModuleSceneObject::ray_frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryRayFrustumCtx& query) const {
  if (structure_ != nullptr) structure_->ray_frustum_hit(ctx, shader, query);
}
