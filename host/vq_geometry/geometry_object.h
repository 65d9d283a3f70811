// host/vq_geometry/geometry_object.h
//
// Geometry as the structures see it: primitives with boxes, shading groups and tests. Everything is const and may be
// called from many threads at once, each with its own contexts.
#pragma once
#include "vq_core/core_array.h"
#include "vq_core/core_string.h"
#include "vq_gmath/gmath_bbox.h"
#include "vq_gmath/gmath_linear_space.h"
#include "vq_resource/resource_data.h"

class CtxEval;
class CtxShader;
class GeometryFrustumCtx;
class GeometryPointCloud;
class GeometryRaytraceCtx;
struct GeometryIntersection;
struct GeometryUvMap;

/// What a picture needs to know of a point on a surface, in the space of the geometry.
struct GeometrySurfacePoint {
  GMathVec3<double> position;
  GMathVec3<double> normal;          ///< unit length, of the face as wound (counter-clockwise seen from its tip)
  GMathVec3<double> shading_normal;  ///< unit length, interpolated where the geometry has vertex normals
  GMathVec3<double> uv;              ///< of the first UV map; 0 without one
};

class GeometryObject : public ResourceData {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  static constexpr uint render_mode_wireframe = 6;

  virtual uint get_primitive_count() const = 0;
  /// Names of the shading groups; at least one.
  virtual const CoreArray<CoreString>& get_shading_groups() const = 0;
  virtual uint get_primitive_shading_group(const uint& primitive) const = 0;
  /// Relative cost of testing one primitive against a ray; a triangle is 1.
  virtual double get_build_parameter() const { return 1.0; }

  virtual bool has_motion() const { return false; }
  virtual bool has_shading_group_motion(const uint& /*group*/) const { return has_motion(); }

  /// The primitive's box at rest. Whatever the coordinates give: it may be NaN or infinite.
  virtual GMathBbox3<double> get_primitive_bbox(const CtxEval& ctx, const uint& primitive) const = 0;
  /// The primitive's box at `time`. A structure calls this at the sample times of the context's motion blur and blends
  /// the boxes of two neighboring samples, bound by bound, in a straight line: the blended box must hold the primitive
  /// at all times between the two. Where the primitive does not move in a straight line between them, because it has
  /// keys of its own there, the boxes at both samples must be larger by what sticks out, computed the same way at
  /// either; gmath_get_bbox_between_keys() does so. Without motion blur in the context, the box at `time` alone.
  virtual GMathBbox3<double> get_primitive_bbox_at(const CtxEval& ctx, const double& time, const uint& primitive) const;
  /// The primitive's box at rest, measured along the axes of `space` (unit length, at right angles): from the smallest
  /// to the largest coordinate that GMathLinearSpace3::measure() gives of its points. Unless overridden, that of the
  /// corners of get_primitive_bbox().
  virtual GMathBbox3<double> get_primitive_bbox_in_space(const CtxEval& ctx, const GMathLinearSpace3<double>& space,
                                                         const uint& primitive) const;
  /// The same at `time`, with room for keys as get_primitive_bbox_at() has it.
  virtual GMathBbox3<double> get_primitive_bbox_in_space_at(const CtxEval& ctx, const double& time,
                                                            const GMathLinearSpace3<double>& space,
                                                            const uint& primitive) const;
  /// The frame in which the primitive's box is small: three axes of unit length, at right angles, the first along the
  /// primitive. The world's axes unless overridden.
  virtual GMathLinearSpace3<double> get_primitive_space(const CtxEval& ctx, const uint& primitive) const;
  virtual GMathBbox3<double> get_bbox(const CtxEval& ctx) const;
  /// Around the boxes of get_primitive_bbox_at().
  virtual GMathBbox3<double> get_bbox_at(const CtxEval& ctx, const double& time) const;

  /// Tests one primitive against every ray of the query's active range and pushes the hits. Rays of an all-hits query
  /// whose stop flag is set are passed over. Double precision. Rays carry their time in the query's spans; without
  /// spans the geometry is at rest.
  virtual void ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                 const uint& primitive) const = 0;
  /// Tests one primitive against the query's planes. Mode any: hit_count and finished when it touches; all: hit_count
  /// when all its vertices are inside, else outside; points and vertices: marks its vertices that are inside.
  virtual void frustum_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                                     const uint& primitive) const = 0;
  /// Position, normals and texture coordinates of a recorded hit, at `time` (ignored by what does not move).
  virtual GeometrySurfacePoint get_surface_point(const GeometryIntersection& hit, const double& time) const = 0;

  virtual const GeometryPointCloud* get_point_cloud() const { return nullptr; }
  virtual uint get_render_mode() const { return 0; }

  virtual uint get_uv_count() const { return 0; }
  /// False when no map has that name.
  virtual bool get_uv_map_index(const CoreString& name, uint& index) const;
  virtual const GeometryUvMap* get_uv_map(uint index) const;

  virtual uint get_polygon_count() const { return 0; }
  virtual uint get_polygon_vertex_count(uint polygon) const;
  virtual uint get_polygon_vertex(uint polygon, uint corner) const;
  virtual bool is_polygon_valid(uint polygon) const;
  /// Whether wireframes draw the edge from corner `corner` to the next.
  virtual bool is_edge_visible(uint polygon, uint corner) const;
  /// How near a hit lies to the nearest visible edge of its polygon: 1 on the edge, 0 as far from it as an inner point
  /// can be. Geometry without edges answers 0.
  virtual double get_edge_proximity(const GeometryIntersection& hit) const;
};
