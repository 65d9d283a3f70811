// tools/vqgas/scene/query_scene.h
//
// A scene ready for queries: shapes and clouds with their structures, objects, and the trees over the objects.
// Primitives and shading groups are numbered consecutively, shape by shape; objects that show the same shape share its
// numbers. Points are numbered from 0 in each cloud.
//
//   rays              tree of the scene       meshes, hair
//   beams             tree of the particles   points
//   frustums          both
#pragma once
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "tools/vqgas/scene/scene_objects.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_hit_surface.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_geometry/geometry_ray_frustum_ctx.h"
#include "vq_geometry/geometry_ray_packet.h"
#include "vq_of/of_app.h"

class GeometryFrustumCtx;

/// A hit with its instance path. Valid until the packet's next query.
struct SceneHit {
  const GeometryIntersection* record;
  const GeometryHitTransform* transform;  ///< null: identity
  std::span<const GeometryIntersectionPathElement> path;
  const SceneShape* shape;

  /// Numbers in the scene.
  uint get_primitive() const { return shape->first_primitive + record->primitive; }
  uint get_group() const {
    return shape->first_group + shape->geometry->get_primitive_shading_group(record->primitive);
  }
  /// Number of the instance within its bundle; none outside of bundles.
  std::optional<uint> get_instance() const {
    return record->depth > 0 ? std::optional(record->instance) : std::nullopt;
  }
};

/// A point that a beam or a frustum has found.
struct ScenePoint {
  uint object, point;  ///< numbers of the object, and of the point in its cloud
  const SceneCloud* cloud;
  GMathVec3<double> position;  ///< in the world
};

class QueryScene {
 public:
  /// Builds all structures on all threads of the application, which must outlive the scene. Until set_shutter() the
  /// scene is static: moving objects have their matrices at `frame`, deforming shapes their static points. Throws
  /// InputError when a shape is invalid or a file has no valid primitive, Interrupted after a stop request.
  QueryScene(OfApp& application, SceneSource&& source, const ShapeSettings& settings, double frame = 0.0);
  QueryScene(const QueryScene&) = delete;
  QueryScene& operator=(const QueryScene&) = delete;

  /// Makes the following queries moving: each ray has its own time, in [open, close]. Deforming shapes are sampled at
  /// least at their own sample times.
  void set_shutter(const SceneTimes& times);
  const CtxMotionBlur* get_motion_blur() const { return motion_blur_ ? &*motion_blur_ : nullptr; }

  OfApp& get_application() const { return application_; }
  const std::vector<SceneShape>& get_shapes() const { return shapes_; }
  const std::vector<SceneCloud>& get_clouds() const { return clouds_; }
  /// The cloud that the object shows; null for other objects.
  const SceneCloud* get_cloud(uint object) const { return object_clouds_[object]; }
  const SceneObjects& get_objects() const { return objects_; }
  /// True if the file moves or deforms the object, possibly at other times than those of the scene.
  bool is_animated(uint object) const { return is_animated_[object] != 0; }
  bool has_hair() const;
  /// True if rays, or beams, can find anything.
  bool has_surfaces() const { return !objects_.tree->get_tree().is_empty(); }
  bool has_points() const { return !objects_.particles->get_valid_indices().is_empty(); }
  /// Sums over the shapes, each counted once.
  uint get_primitive_count() const;
  uint get_kept_count() const;
  DisplacedMemory get_displaced_memory() const;
  const std::vector<Color>& get_group_colors() const { return group_colors_; }
  const CoreString& get_group_name(uint group) const;
  /// Bounds of all objects at all times of the shutter.
  GMathBbox3<double> get_bbox() const;
  /// World boxes of parts of all objects at all motion samples, much tighter than one box.
  std::vector<GMathBbox3<double>> get_tight_boxes() const;
  double get_build_seconds() const { return build_seconds_; }

  // Each thread uses its own `shader`, prepared by prepare().
  void prepare(CtxShader& shader) const { shader.motion_blur = get_motion_blur(); }

  /// The nearest hit of each ray of the packet.
  /// @param visits             [ray count] visited nodes and leaves are added; null is faster
  /// @param has_end_matrices   computes the matrices that get_end_position() needs
  void find_nearest(CtxShader& shader, GeometryRayPacket& packet, GeometryRayVisits* visits = nullptr,
                    bool has_end_matrices = false) const;
  /// All hits of each ray, unsorted. For hair the scene must be made with HairSettings::has_all_hits_queries.
  void find_all(CtxShader& shader, GeometryRayPacket& packet) const;
  /// Whether each ray hits anything at all: GeometryRayPacket::has_hit().
  void find_any(CtxShader& shader, GeometryRayPacket& packet) const;
  /// The nearest point of each beam. Particle objects are static, at the frame of the scene.
  void find_points(CtxShader& shader, GeometryRayFrustumCtx& query) const {
    objects_.particles->ray_frustum_hit(get_thread_ctx(), shader, query);
  }
  /// What a beam has found, if anything.
  std::optional<ScenePoint> get_point(const GeometryRayFrustumRecord& record) const;
  /// The points of an object inside a frustum, by their numbers. None for an object without a cloud.
  std::vector<ScenePoint> list_points(CtxShader& shader, const GeometryFrustumCtx& query, uint object) const;

  /// A frustum query of the static scene, in mode any or all.
  void find_in_frustum(CtxShader& shader, GeometryFrustumCtx& query) const;

  /// The nearest hit of a ray, or none.
  std::optional<SceneHit> get_nearest(GeometryRayPacket& packet, uint ray) const;
  /// One of the packet's hits.
  SceneHit get_hit(GeometryRayPacket& packet, const GeometryIntersection& record) const;
  /// Surface point of a hit in world space, at the time of the ray.
  GeometrySurfacePoint get_surface_point(const SceneHit& hit, double time) const {
    return geometry_get_hit_surface(*hit.record, hit.transform, get_shape_time(time));
  }
  /// Where rays to the light start: PolyMesh::get_smooth_position() of meshes, the surface point of others.
  GMathVec3<double> get_smooth_position(const SceneHit& hit, double time, bool is_behind) const;
  /// Position at the next motion sample of the surface point that a ray hit at `time`, and the time of that sample.
  /// Only with a shutter, for hits found with end matrices.
  GMathVec3<double> get_end_position(const SceneHit& hit, double time, double& end_time) const;
  /// The time to evaluate geometry at for a ray: NaN when the scene is static.
  double get_shape_time(double time) const;

 private:
  void build_shapes(SceneSource& source, const ShapeSettings& settings);
  void build_clouds(SceneSource& source);
  void note_clouds(const SceneSource& source);
  void set_bundle_structures();
  void note_keys(const std::vector<ObjectSource>& objects);
  void check_files(const std::vector<SceneFile>& files) const;
  void add_shape(SceneShape&& shape, const std::vector<Color>& group_colors);
  const CtxEval& get_thread_ctx() const;
  void answer_nearest(CtxShader& shader, GeometryRaytraceCtx& query) const;

  OfApp& application_;
  CtxEval ctx_;
  Material material_;
  ShadingGroupTable shading_;  ///< empty: objects have their own
  std::vector<SceneShape> shapes_;
  std::unordered_map<const GeometryObject*, const SceneShape*> shapes_by_geometry_;
  std::vector<SceneCloud> clouds_;
  SceneObjects objects_;
  SceneObjects all_hits_objects_;                 ///< its tree is null when objects_ serves queries for all hits too
  std::vector<const SceneCloud*> object_clouds_;  ///< [object]
  std::unordered_map<u64, uint> numbers_;         ///< of particle objects, by their address
  std::vector<u8> is_animated_;
  std::vector<Color> group_colors_;
  std::optional<CtxMotionBlur> motion_blur_;
  /// Times of the first and last key of all objects; without keys first > last.
  double first_key_ = std::numeric_limits<double>::infinity(), last_key_ = -first_key_;
  double build_seconds_ = 0.0;
};
