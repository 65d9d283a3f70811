// host/vq_geometry/poly_mesh.h
//
// A mesh of polygons. One primitive is one polygon, numbered as in the input; the parts of a hit are its triangles.
//
//   positions_          [vertex]                   at rest
//   motion_positions_   [vertex * samples + k]     the samples of a vertex are adjacent
//   polygon_vertices_   [corner]                   corners run through the polygons in order
//
//   only triangles      corners of polygon p are 3p, 3p + 1, 3p + 2; the four arrays below do not exist
//   otherwise           first_corner_ [polygon + 1], first_triangle_ [polygon + 1]
//                       triangle_vertices_ [3 * triangle]     vertices, read by ray tests
//                       triangle_corners_  [3 * triangle]     corners, index into corner_normals and UV maps
//
// Ray test: poly_mesh_ray.cpp. Frustum test: poly_mesh_frustum.cpp. Points on the surface: poly_mesh_surface.cpp.
#pragma once
#include <vector>

#include "vq_core/core_export.h"
#include "vq_core/core_memory.h"
#include "vq_geometry/geometry_object.h"
#include "vq_geometry/geometry_point_cloud.h"
#include "vq_geometry/geometry_uv_map.h"
#include "vq_gmath/gmath_time_sampling.h"

/// UV map of a mesh without maps, computed from the positions at rest. Both keep the proportions of the mesh.
enum class PolyMeshProjection : u8 {
  none,
  planar,  ///< along the shortest side of the bounding box
  cubic,   ///< each polygon along the axis nearest to its normal; the six directions side by side, 3 by 2
};

struct GeometryCandidate;

/// Input of PolyMesh::create(). Coordinates may be NaN or infinite; indices must be in range.
struct PolyMeshData {
  std::vector<GMathVec3<float>> positions;  ///< at rest
  std::vector<u32> polygon_sizes;           ///< corners per polygon; fewer than 3: kept as an invalid primitive
  std::vector<u32> polygon_vertices;        ///< one index into `positions` per corner
  std::vector<u32> polygon_groups;          ///< one index into `group_names` per polygon; empty: all 0
  std::vector<CoreString> group_names;      ///< empty: one group named "default"
  std::vector<u8> edge_visible;             ///< per corner, the edge to the next corner; empty: all visible
  std::vector<GMathVec3<float>> normals;    ///< vertex normals; empty: none
  std::vector<u32> corner_normals;          ///< one index into `normals` per corner; empty: none
  std::vector<GeometryUvMap> uv_maps;
  PolyMeshProjection uv_projection = PolyMeshProjection::none;  ///< when there are no `uv_maps`
  /// Sample k holds the positions at motion_begin + k * motion_step; linear between, constant outside. Empty: at rest
  /// at all times.
  std::vector<std::vector<GMathVec3<float>>> motion_positions;
  double motion_begin = 0.0;
  double motion_step = 1.0;
  uint render_mode = 0;
  /// From this number of triangles on, counted once for each motion sample, a GasGeometryBvh4 over this mesh alone
  /// keeps records of it: rays are faster, and the structure takes 36 bytes more a triangle and sample, 72 a polygon if
  /// one has more than three corners. Smaller meshes fit into a cache, and records would take its space.
  u32 least_recorded_triangles = 100'000;
  static constexpr u32 no_records = 0xFFFFFFFF;
  static constexpr u32 most_recorded_samples = 4;  ///< meshes with more motion samples have no records
};

class VQ_EXPORT PolyMesh final : public GeometryObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// An empty mesh.
  PolyMesh();
  PolyMesh(const PolyMesh&) = delete;
  PolyMesh& operator=(const PolyMesh&) = delete;

  /// Replaces the mesh. No other thread may use it. O(corners), and about O(n log n) for a polygon of n corners. A
  /// polygon whose edges cross is cut into triangles that may overlap and reach outside of it; see
  /// poly_mesh_triangulate.h.
  /// @return false, with one sentence in `error` and the mesh unchanged, when sizes disagree or an index is out of
  ///         range; false with an empty mesh when there is no memory
  bool create(PolyMeshData&& data, CoreString& error);

  u64 get_memory_size() const override;

  uint get_primitive_count() const override { return polygon_count_; }
  const CoreArray<CoreString>& get_shading_groups() const override { return group_names_; }
  uint get_primitive_shading_group(const uint& primitive) const override {
    return polygon_groups_.empty() ? 0 : polygon_groups_[primitive];
  }
  bool has_motion() const override { return motion_positions_.get_count() != 0; }
  /// True if a motion sample of a vertex of the group's polygons differs from its position at rest.
  bool has_shading_group_motion(const uint& group) const override;

  /// NaN for a polygon with fewer than three corners or a NaN coordinate.
  GMathBbox3<double> get_primitive_bbox(const CtxEval& ctx, const uint& primitive) const override;
  /// The box of the vertices at `time`, enlarged for motion keys between the samples of the context's motion blur. NaN:
  /// the mesh at rest.
  GMathBbox3<double> get_primitive_bbox_at(const CtxEval& ctx, const double& time,
                                           const uint& primitive) const override;
  GMathBbox3<double> get_bbox(const CtxEval& /*ctx*/) const override { return bbox_; }

  void ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                         const uint& primitive) const override;
  /// A record holds the positions of the corners of the polygon's first triangle, of the first two in a mesh of larger
  /// polygons: [triangle][motion sample][corner].
  uint get_record_size() const override {
    return record_parts_ * record_samples_ * static_cast<uint>(3 * sizeof(GMathVec3<float>));
  }
  void write_record(const uint& primitive, void* record) const override;
  void ray_hit_record(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, const uint& primitive,
                      const void* record) const override;
  void frustum_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                             const uint& primitive) const override;
  /// NaN: the mesh at rest. Vertex normals are the input's at all times.
  GeometrySurfacePoint get_surface_point(const GeometryIntersection& hit, const double& time) const override;

  /// Where rays to the light start, so that the flat triangles of a smooth surface do not shadow their neighbors: the
  /// hit's position, moved out to the planes through the triangle's corners at right angles to their normals. The
  /// position itself without vertex normals, and where the surface is hollow.
  /// Source: Johannes Hanika, Hacking the Shadow Terminator, Ray Tracing Gems II, 2021.
  /// @param is_behind  the rays leave on the side that the vertex normals point away from
  GMathVec3<double> get_smooth_position(const GeometryIntersection& hit, const double& time, bool is_behind) const;

  /// The vertices at rest.
  const GeometryPointCloud* get_point_cloud() const override { return &point_cloud_; }
  uint get_render_mode() const override { return render_mode_; }
  uint get_uv_count() const override {
    if (uv_maps_.empty()) return uv_projection_ == PolyMeshProjection::none ? 0 : 1;
    return static_cast<uint>(uv_maps_.size());
  }
  const GeometryUvMap* get_uv_map(uint index) const override {
    return index < uv_maps_.size() ? &uv_maps_[index] : nullptr;
  }

  uint get_polygon_count() const override { return polygon_count_; }
  uint get_polygon_vertex_count(uint polygon) const override {
    return get_first_corner(polygon + 1) - get_first_corner(polygon);
  }
  uint get_polygon_vertex(uint polygon, uint corner) const override {
    return polygon_vertices_[get_first_corner(polygon) + corner];
  }
  /// At least three corners.
  bool is_polygon_valid(uint polygon) const override { return get_polygon_vertex_count(polygon) >= 3; }
  bool is_edge_visible(uint polygon, uint corner) const override {
    return edge_visible_.empty() || edge_visible_[get_first_corner(polygon) + corner] != 0;
  }
  /// Measured at rest: on triangles by barycentric weights, on larger polygons by distances.
  double get_edge_proximity(const GeometryIntersection& hit) const override;
  /// Of a polygon of more than four corners, the corners 0, 1 and 2 as a triangle.
  GMathVec3<float> get_polygon_uv(const CtxEval& ctx, uint map, uint polygon,
                                  const GMathVec3<double>& uvw) const override;

  uint get_vertex_count() const { return static_cast<uint>(positions_.get_count()); }
  const GMathVec3<float>& get_position(uint vertex) const { return positions_[vertex]; }
  /// The position of a vertex in motion sample `sample` of get_motion_sampling(). Only with has_motion().
  const GMathVec3<float>& get_motion_position(uint vertex, uint sample) const {
    return motion_positions_[std::size_t{vertex} * motion_sampling_.get_sample_count() + sample];
  }
  /// The position of a vertex at `time`; NaN: at rest.
  GMathVec3<double> get_position_at(double time, uint vertex) const;

  /// The polygon's first corner among all corners; `polygon` may be get_polygon_count().
  uint get_first_corner(uint polygon) const { return is_all_triangles() ? 3 * polygon : first_corner_[polygon]; }
  bool is_all_triangles() const { return !first_corner_; }
  /// The number of triangles of a polygon; part k of a hit is triangle k.
  uint get_part_count(uint polygon) const {
    return is_all_triangles() ? 1 : first_triangle_[polygon + 1] - first_triangle_[polygon];
  }
  /// The polygon's first triangle among those of all polygons; `polygon` may be get_polygon_count().
  uint get_first_part(uint polygon) const { return is_all_triangles() ? polygon : first_triangle_[polygon]; }
  /// The three vertices of a triangle.
  const u32* get_part_vertices(uint polygon, uint part) const {
    return is_all_triangles() ? polygon_vertices_.get() + std::size_t{3} * polygon
                              : triangle_vertices_.get() + std::size_t{3} * (first_triangle_[polygon] + part);
  }
  /// The three corners of a triangle, among all corners.
  GMathVec3<u32> get_part_corners(uint polygon, uint part) const;
  /// The times of the motion samples.
  const GMathTimeSampling& get_motion_sampling() const { return motion_sampling_; }

 private:
  /// How positions at a time are computed: the positions at rest, or a blend of two motion samples.
  struct MotionBlend {
    bool rest = true;
    uint first = 0;
    uint step = 0;  ///< from the first to the second sample: 0 with a single one
    double fraction = 0.0;

    GMathVec3<double> mix(const GMathVec3<float>& a, const GMathVec3<float>& b) const {
      return GMathVec3<double>(a) * (1.0 - fraction) + GMathVec3<double>(b) * fraction;
    }
  };
  struct AtRest;
  struct InMotion;

  MotionBlend get_motion_blend(double time) const;
  MotionBlend get_motion_blend(const CtxShader& shader, const GeometryRaytraceCtx& query, uint ray) const;
  GMathVec3<double> get_moved_position(const MotionBlend& blend, uint vertex) const {
    if (blend.rest) return GMathVec3<double>(positions_[vertex]);
    const GMathVec3<float>* sample =
        motion_positions_.get() + std::size_t{vertex} * motion_sampling_.get_sample_count() + blend.first;
    return blend.mix(sample[0], sample[blend.step]);
  }
  bool store(PolyMeshData&& data);
  bool store_polygons(const PolyMeshData& data);
  bool triangulate();
  bool store_motion(const PolyMeshData& data);
  void find_group_motion();
  void clear();
  bool touches_frustum(const GeometryFrustumCtx& query, uint primitive) const;
  bool lies_in_frustum(const GeometryFrustumCtx& query, uint primitive) const;
  std::vector<GMathVec3<double>> get_inner_points(uint polygon) const;
  double get_triangle_edge_proximity(const GeometryIntersection& hit) const;
  double get_polygon_edge_proximity(const GeometryIntersection& hit) const;
  GMathBbox3<double> compute_bbox(uint primitive, double time) const;
  GMathVec3<double> get_projected_uv(uint polygon, const GMathVec3<double>& position) const;
  template <bool has_record>
  void test_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint primitive,
                      const GMathVec3<float>* record) const;
  template <bool has_record>
  void test_moving(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint primitive,
                   const GMathVec3<float>* record) const;
  template <bool all_triangles, bool has_record, class Positions>
  void test_active(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint primitive,
                   const GMathVec3<float>* record) const;
  template <bool all_triangles, bool has_record, class Positions>
  void test_rays(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint primitive,
                 const GMathVec3<float>* record) const;
  template <bool all_triangles, bool has_record, class Positions>
  void test_ray(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint primitive,
                const GMathVec3<float>* record, uint ray) const;
  template <class Positions>
  void push_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint ray,
                const GeometryCandidate& hit) const;
  template <class GetPosition>
  bool is_known(const GeometryRaytraceCtx& query, uint ray, const GeometryCandidate& hit,
                GetPosition get_position) const;

  CoreAlignedArray<GMathVec3<float>> positions_;
  CoreAlignedArray<u32> polygon_vertices_;
  CoreAlignedArray<u32> first_corner_;
  CoreAlignedArray<u32> first_triangle_;
  CoreAlignedArray<u32> triangle_vertices_;
  CoreAlignedArray<u32> triangle_corners_;
  CoreAlignedArray<GMathVec3<float>> motion_positions_;
  GMathTimeSampling motion_sampling_;
  uint polygon_count_ = 0;
  uint record_parts_ = 0;    ///< triangles in a record; 0: no records
  uint record_samples_ = 1;  ///< positions of a corner in a record
  uint render_mode_ = 0;
  PolyMeshProjection uv_projection_ = PolyMeshProjection::none;

  std::vector<u32> polygon_groups_;
  CoreArray<CoreString> group_names_;
  std::vector<u8> group_motion_;
  std::vector<u8> edge_visible_;
  std::vector<GMathVec3<float>> normals_;
  std::vector<u32> corner_normals_;
  std::vector<GeometryUvMap> uv_maps_;
  GeometryPointCloud point_cloud_;
  GMathBbox3<double> bbox_;
};
