// host/vq_curve/tube_mesh_fast.h
//
// Hair and fur: many thin fibres. One primitive is one segment of a fibre, a solid with round ends (curve_segment.h),
// so that a structure with oriented boxes can follow the fibre. Primitives run through the fibres in order.
#pragma once
#include "vq_curve/curve_set.h"
#include "vq_geometry/geometry_object.h"
#include "vq_geometry/geometry_point_cloud.h"

class TubeMeshFast final : public GeometryObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// No fibres.
  TubeMeshFast();
  TubeMeshFast(const TubeMeshFast&) = delete;
  TubeMeshFast& operator=(const TubeMeshFast&) = delete;

  /// Replaces the fibres; as CurveSet::create().
  bool create(CurveData&& data, CoreString& error);

  u64 get_memory_size() const override;

  uint get_primitive_count() const override { return curves_.get_segment_count(); }
  const CoreArray<CoreString>& get_shading_groups() const override { return curves_.get_group_names(); }
  uint get_primitive_shading_group(const uint& primitive) const override;
  /// A segment costs about eight triangles.
  double get_build_parameter() const override { return 8.0; }
  bool has_motion() const override { return curves_.has_motion(); }
  bool has_shading_group_motion(const uint& group) const override { return curves_.has_group_motion(group); }

  // Boxes hold the solid and are rounded outwards to single precision, so that converting them loses nothing. NaN for a
  // segment with a NaN coordinate or radius.
  GMathBbox3<double> get_primitive_bbox(const CtxEval& ctx, const uint& primitive) const override;
  GMathBbox3<double> get_primitive_bbox_at(const CtxEval& ctx, const double& time,
                                           const uint& primitive) const override;
  GMathBbox3<double> get_primitive_bbox_in_space(const CtxEval& ctx, const GMathLinearSpace3<double>& space,
                                                 const uint& primitive) const override;
  GMathBbox3<double> get_primitive_bbox_in_space_at(const CtxEval& ctx, const double& time,
                                                    const GMathLinearSpace3<double>& space,
                                                    const uint& primitive) const override;
  GMathLinearSpace3<double> get_primitive_space(const CtxEval& ctx, const uint& primitive) const override;

  /// One hit a segment and ray: the first crossing of the segment's surface within the ray's interval.
  void ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                         const uint& primitive) const override;
  /// Modes any and all look at the segment's control balls; points and vertices mark the control points inside.
  void frustum_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                             const uint& primitive) const override;
  /// The normal points away from the fibre; uv holds (u, v, 0) with u counted along the whole fibre from 0 to 1.
  GeometrySurfacePoint get_surface_point(const GeometryIntersection& hit, const double& time) const override;
  /// The direction of the fibre at a hit, of unit length: what fibre shading models want.
  GMathVec3<double> get_tangent(const GeometryIntersection& hit, const double& time) const;

  /// The control points at rest.
  const GeometryPointCloud* get_point_cloud() const override { return &point_cloud_; }

  const CurveSet& get_curves() const { return curves_; }

 private:
  CurveSet curves_;
  std::vector<u32> segment_groups_;  ///< [segment]; empty when there is one group
  CoreAlignedArray<GMathVec3<float>> cloud_positions_;
  GeometryPointCloud point_cloud_;
};
