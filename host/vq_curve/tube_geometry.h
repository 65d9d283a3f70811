// host/vq_curve/tube_geometry.h
//
// Curves as a geometry. The kind of primitive is a template parameter:
//
//   segment   TubeMeshFast   one segment; a hit's part is 0
//   curve     TubeMesh       all segments of a curve; a hit's part is the segment within the curve
#pragma once
#include "vq_core/core_export.h"
#include "vq_curve/curve_set.h"
#include "vq_geometry/geometry_object.h"

class CtxMotionBlur;

enum class VQ_EXPORT TubePrimitive { segment, curve };

template <TubePrimitive kind>
class VQ_EXPORT TubeGeometry : public GeometryObject {
 public:
  TubeGeometry(const TubeGeometry&) = delete;
  TubeGeometry& operator=(const TubeGeometry&) = delete;

  /// Replaces the curves; as CurveSet::create().
  bool create(CurveData&& data, CoreString& error) { return curves_.create(std::move(data), error); }
  const CurveSet& get_curves() const { return curves_; }

  u64 get_memory_size() const override { return sizeof(*this) + curves_.get_array_bytes(); }

  uint get_primitive_count() const override {
    return kind == TubePrimitive::segment ? curves_.get_segment_count() : curves_.get_curve_count();
  }
  const CoreArray<CoreString>& get_shading_groups() const override { return curves_.get_group_names(); }
  uint get_primitive_shading_group(const uint& primitive) const override {
    return kind == TubePrimitive::segment ? curves_.get_segment_group(primitive) : curves_.get_curve_group(primitive);
  }
  bool has_motion() const override { return curves_.has_motion(); }
  bool has_shading_group_motion(const uint& group) const override { return curves_.has_group_motion(group); }

  // Boxes contain the solid and are rounded outwards to single precision, so that converting them is exact. Segments
  // with a NaN or infinite value are left out; the box is NaN without other segments. A NaN time means the curves at
  // rest, here and below. Boxes at a time are enlarged for motion keys between the samples of the context's motion
  // blur.
  GMathBbox3<double> get_primitive_bbox(const CtxEval& ctx, const uint& primitive) const override;
  GMathBbox3<double> get_primitive_bbox_at(const CtxEval& ctx, const double& time,
                                           const uint& primitive) const override;
  GMathBbox3<double> get_primitive_bbox_in_space(const CtxEval& ctx, const GMathLinearSpace3<double>& space,
                                                 const uint& primitive) const override;
  GMathBbox3<double> unite_primitive_bboxes_in_space(const CtxEval& ctx, const GMathLinearSpace3<double>& space,
                                                     const CoreBasicArray<uint>& primitives) const override;
  GMathBbox3<double> get_primitive_bbox_in_space_at(const CtxEval& ctx, const double& time,
                                                    const GMathLinearSpace3<double>& space,
                                                    const uint& primitive) const override;
  /// Along the primitive at rest; the world's axes for one without segments.
  GMathLinearSpace3<double> get_primitive_space(const CtxEval& ctx, const uint& primitive) const override;

  /// At most one hit per segment and ray: the first crossing of the segment's surface within the ray's interval.
  void ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                         const uint& primitive) const override;
  /// A record holds the control points of a segment.
  uint get_record_size() const override;
  void write_record(const uint& primitive, void* record) const override;
  void ray_hit_record(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, const uint& primitive,
                      const void* record) const override;
  /// Modes any and all test the solid at rest; points and vertices mark the control points inside.
  void frustum_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                             const uint& primitive) const override;
  /// The normal points away from the curve; uv holds (u, |v|, 0) with u counted along the whole curve from 0 to 1.
  GeometrySurfacePoint get_surface_point(const GeometryIntersection& hit, const double& time) const override;
  /// The direction of the curve at a hit, of unit length, for hair shading models.
  GMathVec3<double> get_tangent(const GeometryIntersection& hit, const double& time) const;

  /// The control points at rest.
  const GeometryPointCloud* get_point_cloud() const override { return &curves_.get_point_cloud(); }

  // For layouts of texture coordinates, a segment is a quadrilateral along and around the curve, with corners of its
  // own. The one UV map is procedural, the same as that of get_surface_point().
  uint get_uv_count() const override { return 1; }
  uint get_polygon_count() const override { return curves_.get_segment_count(); }
  uint get_polygon_vertex_count(uint /*polygon*/) const override { return 4; }
  uint get_polygon_vertex(uint polygon, uint corner) const override { return 4 * polygon + corner; }
  bool is_polygon_valid(uint /*polygon*/) const override { return true; }
  bool is_edge_visible(uint /*polygon*/, uint /*corner*/) const override { return true; }
  uint get_polygon_shading_group(uint polygon) const override { return curves_.get_segment_group(polygon); }
  GMathVec3<float> get_polygon_uv(const CtxEval& ctx, uint map, uint polygon,
                                  const GMathVec3<double>& uvw) const override;

 protected:
  TubeGeometry() = default;

 private:
  struct SegmentRange {
    uint first, end;
  };
  SegmentRange get_segments(uint primitive) const {
    if constexpr (kind == TubePrimitive::segment) return {primitive, primitive + 1};
    return {curves_.get_first_segment(primitive), curves_.get_first_segment(primitive + 1)};
  }
  GMathBbox3<double> compute_bbox(uint primitive, double time, const GMathLinearSpace3<double>* space,
                                  const CtxMotionBlur* motion_blur) const;
  /// The box of the solid at `time`, not rounded; NaN without a valid segment. A null space means the world's axes.
  GMathBbox3<double> unite_segments(uint primitive, double time, const GMathLinearSpace3<double>* space) const;
  CurveSurfacePoint compute_surface_point(const GeometryIntersection& hit, double time) const;
  /// Counted along the whole curve from 0 to 1, for `u` from 0 to 1 along a segment.
  double get_curve_u(uint segment, double u) const;
  template <CurveShape shape>
  void test_rays(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint primitive) const;
  template <CurveShape shape>
  static void test_ray(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint ray,
                       const CurveSegment<shape>& segment, uint primitive, uint part);
  void mark_points(GeometryFrustumCtx& query, SegmentRange segments) const;

  CurveSet curves_;
};
