#include "vq_gas_base/gas_object.h"

#include "vq_core/core_class_info.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_raytrace_ctx.h"

namespace {

template <class Query>
void call(GasQueryCallback<Query> callback, const GasObject* object, const CtxEval& ctx, CtxShader& shader,
          Query& query) {
  if (callback != nullptr) callback(object, ctx, shader, query);
}

/// A nested query shares the spans of the outermost one. The outermost query always computes its spans again, because
/// the caller may have changed the times of the rays since the last query.
void prepare_spans(const CtxShader& shader, GeometryRaytraceCtx& query) {
  const CtxMotionBlur* motion_blur = shader.motion_blur;
  if (motion_blur == nullptr) {
    query.span_stamp = 0;
  } else if (query.parent == nullptr || query.span_stamp != motion_blur->get_stamp()) {
    motion_blur->init_raytrace_ctx(query);
  }
}

}  // namespace

const CoreClassInfo& GasObject::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("GasObject", core_destroy_object, ResourceData::class_info(), nullptr);
  return info;
}

GMathBbox3<double> GasObject::get_bbox_at(const CtxEval& /*ctx*/, const double& /*time*/) const { return get_bbox(); }

void GasObject::dirty_motion_blur() {}

void GasObject::ray_hit_static(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  query.span_stamp = 0;
  call(callbacks.ray_hit_static, this, ctx, shader, query);
}

void GasObject::ray_hit_motion(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  prepare_spans(shader, query);
  call(callbacks.ray_hit_motion, this, ctx, shader, query);
}

void GasObject::ray_hit_nearest_static(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  query.span_stamp = 0;
  call(callbacks.ray_hit_nearest_static, this, ctx, shader, query);
}

void GasObject::ray_hit_nearest_motion(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  prepare_spans(shader, query);
  call(callbacks.ray_hit_nearest_motion, this, ctx, shader, query);
}

void GasObject::frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const {
  call(callbacks.frustum_hit, this, ctx, shader, query);
}

void GasObject::ray_frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryRayFrustumCtx& query) const {
  call(callbacks.ray_frustum_hit, this, ctx, shader, query);
}
