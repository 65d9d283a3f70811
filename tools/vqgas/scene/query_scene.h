// tools/vqgas/scene/query_scene.h
//
// A scene ready for queries: the shapes with their structures, the objects that show them, and the tree over these.
// Primitives and shading groups are numbered through, shape by shape; objects that show the same shape share its
// numbers.
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
#include "vq_geometry/geometry_ray_packet.h"
#include "vq_of/of_object_factory.h"

class AppBase;
class GeometryFrustumCtx;

/// A hit and the way to it. Valid until the packet's next query.
struct SceneHit {
  const GeometryIntersection* record;
  const GeometryHitTransform* transform;  ///< null: the geometry's space is the world
  std::span<const GeometryIntersectionPathElement> path;
  const SceneShape* shape;

  /// Numbers in the scene.
  uint get_primitive() const { return shape->first_primitive + record->primitive; }
  uint get_group() const { return shape->first_group + record->shading_group; }
};

class QueryScene {
 public:
  /// Builds everything on all threads of the application, which must outlive the scene. What moves stands where it is
  /// at `frame`, deforming shapes as they are at rest. Throws InputError when a shape is not sound or the scene holds
  /// nothing that can be hit.
  QueryScene(AppBase& application, SceneSource&& source, const HairSettings& settings, double frame = 0.0);
  QueryScene(const QueryScene&) = delete;
  QueryScene& operator=(const QueryScene&) = delete;

  /// From now on rays see what moves at their own times, which must lie in [open, close]. Deforming shapes are sampled
  /// where they have samples of their own at least.
  void set_shutter(const SceneTimes& times);
  const CtxMotionBlur* get_motion_blur() const { return motion_blur_ ? &*motion_blur_ : nullptr; }

  AppBase& get_application() const { return application_; }
  const std::vector<SceneShape>& get_shapes() const { return shapes_; }
  const SceneObjects& get_objects() const { return objects_; }
  /// Whether the file moves or deforms the object, be it at other times than it was read for.
  bool is_animated(uint object) const { return is_animated_[object] != 0; }
  bool has_hair() const;
  /// Of the shapes, each counted once.
  uint get_primitive_count() const;
  uint get_kept_count() const;
  const std::vector<Color>& get_group_colors() const { return group_colors_; }
  const CoreString& get_group_name(uint group) const;
  /// Around everything, at all times that rays may ask for.
  GMathBbox3<double> get_bbox() const;
  /// Boxes, and samples of them, that hold everything more tightly than one.
  std::vector<GMathBbox3<double>> get_tight_boxes() const;
  double get_build_seconds() const { return build_seconds_; }

  // Each thread uses its own `shader`, prepared by prepare().
  void prepare(CtxShader& shader) const { shader.motion_blur = get_motion_blur(); }

  /// The nearest hit of each ray of the packet.
  /// @param visits             [ray count] raised by what each ray visits, or null to go faster
  /// @param wants_end_matrices  for get_end_position()
  void find_nearest(CtxShader& shader, GeometryRayPacket& packet, GeometryRayVisits* visits = nullptr,
                    bool wants_end_matrices = false) const;
  /// All hits of each ray, unsorted; hair is to be told of it when the scene is made.
  void find_all(CtxShader& shader, GeometryRayPacket& packet) const;
  /// Whether each ray hits anything at all. The packet is to stop its rays at the first hit.
  /// @param is_hit  [ray count], written
  void find_any(CtxShader& shader, GeometryRayPacket& packet, std::vector<u8>& is_hit) const;
  /// A frustum query, answered at rest.
  void find_in_frustum(CtxShader& shader, GeometryFrustumCtx& query) const;

  /// The nearest hit of a ray. Nothing when it hit nothing.
  std::optional<SceneHit> get_nearest(GeometryRayPacket& packet, uint ray) const;
  /// One of the packet's hits.
  SceneHit get_hit(GeometryRayPacket& packet, const GeometryIntersection& record) const;
  /// In the world, at the time of the ray.
  GeometrySurfacePoint get_surface_point(const SceneHit& hit, double time) const {
    return geometry_get_hit_surface(*hit.record, hit.transform, get_shape_time(time));
  }
  /// Where the surface that a ray hit at `time` comes to by the next motion sample, and when that is. Only under a
  /// shutter, for hits found with end matrices.
  GMathVec3<double> get_end_position(const SceneHit& hit, double time, double& end_time) const;
  /// What geometry is to be asked with for the moment of a ray: no time when everything is at rest.
  double get_shape_time(double time) const;

 private:
  void build_shapes(std::vector<ShapeSource>& sources, const HairSettings& settings);
  void note_keys(const std::vector<ObjectSource>& objects);
  void check_files(const std::vector<SceneFile>& files) const;
  void add_shape(SceneShape&& shape, const std::vector<Color>& group_colors);
  const CtxEval& get_thread_ctx() const;

  AppBase& application_;
  OfObjectFactory factory_;
  CtxEval ctx_;
  Material material_;
  ShadingGroupTable shading_;  ///< empty: objects bring their own
  std::vector<SceneShape> shapes_;
  std::unordered_map<const GeometryObject*, const SceneShape*> shapes_by_geometry_;
  SceneObjects objects_;
  SceneObjects all_hits_objects_;  ///< without a tree where objects_ answer for all hits too
  std::vector<u8> is_animated_;
  std::vector<Color> group_colors_;
  std::optional<CtxMotionBlur> motion_blur_;
  /// Of all that moves from place to place; none: the first lies after the last.
  double first_key_ = std::numeric_limits<double>::infinity(), last_key_ = -first_key_;
  double build_seconds_ = 0.0;
};
