// host/vq_gas_base/gas_object.h
//
// The base of every acceleration structure, with the query entry points for the host. A structure sets the callbacks
// when it has been built; an entry point without a callback returns no hits.
#pragma once
#include "vq_core/core_export.h"
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

class VQ_EXPORT GasObject : public ResourceData {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// The box of the static structure; empty before it is built.
  virtual GMathBbox3<double> get_bbox() const = 0;
  /// The box at `time` under the context's motion blur; get_bbox() for a static structure.
  virtual GMathBbox3<double> get_bbox_at(const CtxEval& ctx, const double& time) const;
  /// Marks all motion data as stale: it is computed again by the next query that needs it. No query may be running.
  virtual void dirty_motion_blur();

  // Queries. Any number of threads at once, each with its own contexts (`ctx`, `shader`, `query`); none while the
  // structure is being built.
  //
  // Ray queries read from `query`: rays, ray_count, the active range, intervals, cluster (0: the whole), shading,
  // settings and filters; GeometryRayPacket sets all of them. They write counter, visits when set, and the results:
  // for each hit GeometryRaytraceCtx::push_intersection() is called. The active range is restored.
  //
  // The static forms query the geometry at rest and set span_stamp to 0. The motion forms also need
  // shader.motion_blur, interval times and spans; they write spans and span_stamp. Without motion blur they are the
  // same as the static forms.

  /// All hits. Needs ray_flags and `hits` or hit_callback, and no map (GeometryRayPacket::begin_all_hits). Writes
  /// `hits`, tallies and the stop flags. A context begun for nearest hits finds nothing.
  void ray_hit_static(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  /// The same at each ray's own time.
  void ray_hit_motion(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  /// The nearest hit of each ray. Needs a map whose records hold the rays' tfar (GeometryRayPacket::begin_nearest).
  /// Replaces the record of each ray with a nearer hit; begun for any hit, with the first one found. A context begun
  /// for all hits finds nothing.
  void ray_hit_nearest_static(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  /// The same at each ray's own time.
  void ray_hit_nearest_motion(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  /// The geometry at rest inside a frustum. Needs planes, mode, shading and, in a scene, kind. Adds to result and to
  /// the lists of points or objects; the caller clears them with clear_results().
  void frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const;
  /// The nearest item of each beam of the query, which was prepared with query.begin(). Writes the beams' records. Only
  /// GasPoint and GasParticleTree have this callback.
  void ray_frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryRayFrustumCtx& query) const;

 protected:
  GasObject() = default;
  GasObject(const GasObject&) = default;
  GasObject& operator=(const GasObject&) = default;

  /// One per entry point: the five of every structure, then the one of particles and points. Null: no hits.
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
