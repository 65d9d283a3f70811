// host/vq_curve/tube_mesh.h
//
// Few and large fibres: cables, pipes, branches. One primitive is a whole fibre, tested segment by segment; a hit's
// part is the segment within the fibre. For structures that index heavy primitives by their world boxes.
#pragma once
#include "vq_curve/curve_set.h"
#include "vq_geometry/geometry_object.h"
#include "vq_geometry/geometry_point_cloud.h"

class TubeMesh final : public GeometryObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// No fibres.
  TubeMesh();
  TubeMesh(const TubeMesh&) = delete;
  TubeMesh& operator=(const TubeMesh&) = delete;

  /// Replaces the fibres; as CurveSet::create().
  bool create(CurveData&& data, CoreString& error);

  u64 get_memory_size() const override;

  uint get_primitive_count() const override { return curves_.get_curve_count(); }
  const CoreArray<CoreString>& get_shading_groups() const override { return curves_.get_group_names(); }
  uint get_primitive_shading_group(const uint& primitive) const override { return curves_.get_curve_group(primitive); }
  /// Eight triangles a segment, of as many segments as a fibre has on average.
  double get_build_parameter() const override;
  bool has_motion() const override { return curves_.has_motion(); }
  bool has_shading_group_motion(const uint& group) const override { return curves_.has_group_motion(group); }

  // As those of TubeMeshFast, around all segments of a fibre. Inverted for a fibre without segments.
  GMathBbox3<double> get_primitive_bbox(const CtxEval& ctx, const uint& primitive) const override;
  GMathBbox3<double> get_primitive_bbox_at(const CtxEval& ctx, const double& time,
                                           const uint& primitive) const override;
  GMathBbox3<double> get_primitive_bbox_in_space(const CtxEval& ctx, const GMathLinearSpace3<double>& space,
                                                 const uint& primitive) const override;
  GMathBbox3<double> get_primitive_bbox_in_space_at(const CtxEval& ctx, const double& time,
                                                    const GMathLinearSpace3<double>& space,
                                                    const uint& primitive) const override;
  GMathLinearSpace3<double> get_primitive_space(const CtxEval& ctx, const uint& primitive) const override;

  /// One hit a segment and ray.
  void ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                         const uint& primitive) const override;
  void frustum_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                             const uint& primitive) const override;
  GeometrySurfacePoint get_surface_point(const GeometryIntersection& hit, const double& time) const override;

  /// The control points at rest.
  const GeometryPointCloud* get_point_cloud() const override { return &point_cloud_; }

  const CurveSet& get_curves() const { return curves_; }

 private:
  CurveSet curves_;
  CoreAlignedArray<GMathVec3<float>> cloud_positions_;
  GeometryPointCloud point_cloud_;
};
