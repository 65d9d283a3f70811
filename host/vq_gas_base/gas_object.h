// host/vq_gas_base/gas_object.h
//
// The base of every acceleration structure, and the doors through which the host queries one. A structure installs
// plain functions into the slots when it is ready to answer; a door whose slot is null does nothing.
#pragma once
#include "vq_gmath/gmath_bbox.h"
#include "vq_resource/resource_data.h"

class CtxEval;
class CtxShader;
class GasObject;
class GeometryFrustumCtx;
class GeometryRayFrustumCtx;
class GeometryRaytraceCtx;

template <class Query>
using GasQueryCallback = void (*)(const GasObject*, const CtxEval&, CtxShader&, Query&);

class GasObject : public ResourceData {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  virtual GMathBbox3<double> get_bbox() const = 0;
  /// The box at `time` under the context's motion blur; a structure that does not move answers with get_bbox().
  virtual GMathBbox3<double> get_bbox_at(const CtxEval& ctx, const double& time) const;
  /// Makes everything computed for motion blur stale.
  virtual void dirty_motion_blur();

  // Queries. Any number of threads at once, each with its own contexts; none while the structure is being built. A
  // context begun for the other kind of query (nearest, all hits) finds nothing.
  // The static forms take the geometry at rest. The motion forms read the times of the active rays and work out their
  // motion spans under the shader's motion blur; without one they are the static forms.
  void ray_hit_static(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  void ray_hit_motion(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  void ray_hit_nearest_static(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  void ray_hit_nearest_motion(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  void frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const;
  void ray_frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryRayFrustumCtx& query) const;

 protected:
  GasObject() = default;
  GasObject(const GasObject&) = default;
  GasObject& operator=(const GasObject&) = default;

  /// In this order, the five that every structure has, then the one of particles and points.
  struct Callbacks {
    GasQueryCallback<GeometryRaytraceCtx> ray_hit_static = nullptr;
    GasQueryCallback<GeometryRaytraceCtx> ray_hit_motion = nullptr;
    GasQueryCallback<GeometryRaytraceCtx> ray_hit_nearest_static = nullptr;
    GasQueryCallback<GeometryRaytraceCtx> ray_hit_nearest_motion = nullptr;
    GasQueryCallback<GeometryFrustumCtx> frustum_hit = nullptr;
    GasQueryCallback<GeometryRayFrustumCtx> ray_frustum_hit = nullptr;
  };
  Callbacks callbacks;
};
