// host/vq_geometry/geometry_object.h
//
// The interface between a geometry and the structures: primitives with boxes, shading groups, ray and frustum tests. A
// program adds its own geometry by deriving from GeometryObject (examples/06_own_geometry.cpp).
//
// All virtual functions are const and are called from many threads at once, each with its own contexts. Primitives are
// numbered from 0 to get_primitive_count() - 1; a structure calls with valid numbers only. Coordinates are in the
// geometry's own space. Do not throw anything but std::bad_alloc.
#pragma once
#include "vq_core/core_array.h"
#include "vq_core/core_export.h"
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

/// A point of a surface as shading needs it, in the space of the geometry.
struct GeometrySurfacePoint {
  GMathVec3<double> position;
  GMathVec3<double> normal;  ///< unit length, of the face: its corners run counter-clockwise seen from the normal's tip
  GMathVec3<double> shading_normal;  ///< unit length, interpolated where the geometry has vertex normals
  GMathVec3<double> uv;              ///< of the first UV map; 0 without one
};

class VQ_EXPORT GeometryObject : public ResourceData {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  static constexpr uint render_mode_wireframe = 6;  ///< a value of get_render_mode()

  /// The number of primitives. Must not change while a structure uses the geometry.
  virtual uint get_primitive_count() const = 0;
  /// Names of the shading groups; at least one.
  virtual const CoreArray<CoreString>& get_shading_groups() const = 0;
  /// The primitive's index into get_shading_groups(). O(1): called in every leaf of a query.
  virtual uint get_primitive_shading_group(const uint& primitive) const = 0;
  /// Relative cost of testing one primitive against a ray; a triangle is 1. Used by the build only.
  virtual double get_build_parameter() const { return 1.0; }

  /// True if the shape changes over time. Static geometry needs none of the functions that end in _at.
  virtual bool has_motion() const { return false; }
  /// The same for the primitives of one shading group. True is always allowed when has_motion() is true.
  virtual bool has_shading_group_motion(const uint& /*group*/) const { return has_motion(); }

  /// The primitive's box at rest. It may be NaN or infinite, as the coordinates give it: structures leave out
  /// primitives whose box is not valid (gmath_is_valid_box).
  virtual GMathBbox3<double> get_primitive_bbox(const CtxEval& ctx, const uint& primitive) const = 0;
  /// The primitive's box at `time`. A structure calls this at the sample times of the context's motion blur and blends
  /// the boxes of two neighboring samples, bound by bound, in a straight line: the blended box must contain the
  /// primitive at all times between the two. If the primitive has motion keys between two samples, it leaves the
  /// blended box; then the boxes at both samples must be enlarged by the same amount. gmath_get_bbox_between_keys()
  /// does this. Without motion blur in the context: the box at `time` alone. Unless overridden, the box at rest.
  virtual GMathBbox3<double> get_primitive_bbox_at(const CtxEval& ctx, const double& time, const uint& primitive) const;
  /// The primitive's box at rest, measured along the axes of `space` (unit length, at right angles): from the smallest
  /// to the largest coordinate that GMathLinearSpace3::measure() gives of its points. Unless overridden, computed
  /// from the corners of get_primitive_bbox().
  virtual GMathBbox3<double> get_primitive_bbox_in_space(const CtxEval& ctx, const GMathLinearSpace3<double>& space,
                                                         const uint& primitive) const;
  /// The union of these boxes of several primitives, whose boxes at rest are valid. Most of the time of building a
  /// tree with oriented nodes may be spent here: override it to save the calls.
  virtual GMathBbox3<double> unite_primitive_bboxes_in_space(const CtxEval& ctx, const GMathLinearSpace3<double>& space,
                                                             const CoreBasicArray<uint>& primitives) const;
  /// The same as get_primitive_bbox_in_space() at `time`, enlarged for keys between samples as get_primitive_bbox_at().
  virtual GMathBbox3<double> get_primitive_bbox_in_space_at(const CtxEval& ctx, const double& time,
                                                            const GMathLinearSpace3<double>& space,
                                                            const uint& primitive) const;
  /// The frame in which the primitive's box is small: three axes of unit length, at right angles, the first along the
  /// primitive. The world's axes unless overridden.
  virtual GMathLinearSpace3<double> get_primitive_space(const CtxEval& ctx, const uint& primitive) const;
  /// The union of the valid boxes of all primitives at rest; empty without any. Override it to save the loop.
  virtual GMathBbox3<double> get_bbox(const CtxEval& ctx) const;
  /// The same for the boxes of get_primitive_bbox_at().
  virtual GMathBbox3<double> get_bbox_at(const CtxEval& ctx, const double& time) const;

  /// Tests one primitive against every ray of the query's active range (first_ray to last_ray, inclusive) and calls
  /// query.push_intersection() for each hit. It must skip rays of an all-hits query for which query.is_stopped() is
  /// true. Use double precision. The rays' times are in query.spans; when spans is null or span_stamp is 0, test the
  /// geometry at rest. Leave the query's current primitive (its geometry, shading group and instance) as found.
  virtual void ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                 const uint& primitive) const = 0;
  /// Bytes of a primitive's record, a multiple of 4: a copy of what its ray test reads, which structures keep in the
  /// order of their leaves. 0: the geometry has no records. Records are written by the structure's create() and
  /// dirty_motion_blur(); what they hold must not change at other times.
  virtual uint get_record_size() const { return 0; }
  /// Writes get_record_size() bytes. `record` is aligned to 4 bytes, not to more. Thread-safe.
  virtual void write_record(const uint& /*primitive*/, void* /*record*/) const {}
  /// ray_hit_primitive() with the primitive's record; gives the same hits.
  virtual void ray_hit_record(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, const uint& primitive,
                              const void* /*record*/) const {
    ray_hit_primitive(ctx, shader, query, primitive);
  }
  /// Tests one primitive at rest against the query's planes and writes query.result. Mode any: if it touches the
  /// frustum, add 1 to hit_count and set finished. Mode all: if it is inside, add 1 to hit_count, else set outside.
  /// Modes points and vertices: set query.mask[point] to 1 for each of its points inside, below mask.size().
  virtual void frustum_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                                     const uint& primitive) const = 0;
  /// Position, normals and texture coordinates of a hit that ray_hit_primitive() pushed, at `time` (ignored by static
  /// geometry). Read from `hit`: primitive, part, u, v.
  virtual GeometrySurfacePoint get_surface_point(const GeometryIntersection& hit, const double& time) const = 0;

  /// The points for the frustum modes points and vertices; null: none. The view must be valid as long as the geometry.
  virtual const GeometryPointCloud* get_point_cloud() const { return nullptr; }
  /// How the geometry is rendered: render_mode_wireframe, or another value for surfaces.
  virtual uint get_render_mode() const { return 0; }

  /// The number of UV maps.
  virtual uint get_uv_count() const { return 0; }
  /// Writes the index of the UV map called `name`. False, with `index` unchanged, when there is none.
  virtual bool get_uv_map_index(const CoreString& name, uint& index) const;
  /// UV map `index`; null when there is none, or when it is procedural: without indices, evaluated by get_polygon_uv().
  virtual const GeometryUvMap* get_uv_map(uint index) const;

  // Polygons. Geometry of another kind has none and keeps the defaults.

  virtual uint get_polygon_count() const { return 0; }
  /// The number of corners of a polygon.
  virtual uint get_polygon_vertex_count(uint polygon) const;
  /// The polygon's index into get_shading_groups().
  virtual uint get_polygon_shading_group(uint polygon) const { return get_primitive_shading_group(polygon); }
  /// The vertex number at corner `corner` of a polygon.
  virtual uint get_polygon_vertex(uint polygon, uint corner) const;
  /// False for a polygon that cannot be hit, for example with fewer than three corners.
  virtual bool is_polygon_valid(uint polygon) const;
  /// True if wireframes draw the edge from corner `corner` to the next.
  virtual bool is_edge_visible(uint polygon, uint corner) const;
  /// The proximity of a hit to the nearest visible edge of its polygon: 1 on the edge, 0 at the inner point farthest
  /// from all visible edges. 0 without edges.
  virtual double get_edge_proximity(const GeometryIntersection& hit) const;
  /// The texture coordinates of UV map `map` at a point of a polygon. A triangle has its corners at uvw = (0, 0), (1,
  /// 0), (0, 1), a quadrilateral at (0, 0), (1, 0), (1, 1), (0, 1); w is 0. 0 without such a map.
  virtual GMathVec3<float> get_polygon_uv(const CtxEval& ctx, uint map, uint polygon,
                                          const GMathVec3<double>& uvw) const;
};
