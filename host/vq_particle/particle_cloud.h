// host/vq_particle/particle_cloud.h
//
// Particles: points in space, each with a radius. As points they are found by frustums and beams (GasPoint); as balls
// they are primitives for any structure over a geometry. One primitive is one particle.
//
//   positions         [particle]          x, y, z (12 B) at rest; point_cloud_ is a view of them
//   radii             [particle]          a single one when all are equal
//   motion_positions  [sample][particle]  absent at rest
#pragma once
#include <vector>

#include "vq_core/core_array.h"
#include "vq_core/core_export.h"
#include "vq_curve/curve_segment.h"
#include "vq_geometry/geometry_object.h"
#include "vq_geometry/geometry_point_cloud.h"
#include "vq_gmath/gmath_time_sampling.h"

class AppBase;

/// Input of ParticleCloud::create(). Coordinates and radii may be NaN or infinite: such particles are never found; as
/// points, those with such radii are.
struct ParticleData {
  std::vector<GMathVec3<float>> positions;  ///< at rest
  std::vector<float> radii;                 ///< one per particle; one: for all; none: 0. Negative ones become 0
  /// Sample k holds the positions at motion_begin + k * motion_step; linear between, constant outside. Empty: at rest
  /// at all times.
  std::vector<std::vector<GMathVec3<float>>> motion_positions;
  double motion_begin = 0.0;
  double motion_step = 1.0;
};

class VQ_EXPORT ParticleCloud : public GeometryObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// No particles.
  ParticleCloud();
  ParticleCloud(const ParticleCloud&) = delete;
  ParticleCloud& operator=(const ParticleCloud&) = delete;

  /// Replaces the particles by `data`, which is moved, not copied. No other thread may use the cloud.
  /// @return false, with one sentence in `error` and the cloud unchanged, when sizes disagree
  bool create(ParticleData&& data, CoreString& error);

  /// The number of points that a point structure indexes: at most that of get_point_cloud(), which it calls next. A
  /// cloud that computes its points when they are needed overrides both. Neither may change while a structure uses it.
  virtual uint get_point_count(const AppBase& app, const CtxEval& ctx) const;
  const GeometryPointCloud* get_point_cloud() const override { return &point_cloud_; }
  /// `particle` below get_primitive_count().
  float get_radius(uint particle) const;

  // The balls, as every geometry. All belong to one shading group, "default".

  uint get_primitive_count() const override { return point_cloud_.get_count(); }
  const CoreArray<CoreString>& get_shading_groups() const override { return group_names_; }
  uint get_primitive_shading_group(const uint& /*primitive*/) const override { return 0; }
  bool has_motion() const override { return !data_.motion_positions.empty(); }
  GMathBbox3<double> get_primitive_bbox(const CtxEval& ctx, const uint& primitive) const override;
  GMathBbox3<double> get_primitive_bbox_at(const CtxEval& ctx, const double& time,
                                           const uint& primitive) const override;
  void ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                         const uint& primitive) const override;
  void frustum_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                             const uint& primitive) const override;
  GeometrySurfacePoint get_surface_point(const GeometryIntersection& hit, const double& time) const override;
  u64 get_memory_size() const override;

 private:
  using Ball = CurveSegment<CurveShape::linear>;

  /// The particle as a curve without length, whose tests are those of a ball. NaN: at rest.
  Ball get_ball(uint particle, double time) const;

  ParticleData data_;
  GMathTimeSampling motion_sampling_;
  CoreArray<CoreString> group_names_;
  GeometryPointCloud point_cloud_;
};
