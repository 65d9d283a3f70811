// tools/vqgas/query_scene.h
//
// Geometries with their structures, and everything else that a query needs besides the rays. Primitives and shading
// groups are numbered through: those of the mesh, then those of each hair.
#pragma once
#include <memory>
#include <optional>
#include <vector>

#include "tools/vqgas/scene_part.h"
#include "tools/vqgas/scene_source.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_object.h"
#include "vq_geometry/geometry_ray_packet.h"
#include "vq_of/of_object_factory.h"
#include "vq_shading_variable/shading_variables.h"

class AppBase;

class QueryScene {
 public:
  /// Builds the structures on all threads of the application, which must outlive the scene. Throws InputError
  /// when a part is not sound or holds nothing that can be hit.
  QueryScene(AppBase& application, SceneSource&& source, const HairSettings& settings);
  QueryScene(const QueryScene&) = delete;
  QueryScene& operator=(const QueryScene&) = delete;

  /// From now on rays see what moves at their own times, which must lie in [open, close]. Without a call everything is
  /// at rest.
  void set_shutter(double open, double close);
  /// The times of all motion samples; a single one when nothing moves.
  const GMathTimeSampling& get_motion_sampling() const;

  AppBase& get_application() const { return application_; }
  const std::vector<std::unique_ptr<ScenePart>>& get_parts() const { return parts_; }
  /// Hair comes last.
  bool has_hair() const { return parts_.back()->get_hair() != nullptr; }
  uint get_primitive_count() const;
  uint get_kept_count() const;
  const std::vector<Color>& get_group_colors() const { return group_colors_; }
  const CoreString& get_group_name(uint group) const;
  /// Around everything, at all times that rays may ask for.
  GMathBbox3<double> get_bbox() const;
  /// Some hundred boxes a part (and sample) that hold everything more tightly than one.
  std::vector<GMathBbox3<double>> get_tight_boxes() const;
  double get_build_seconds() const { return build_seconds_; }

  /// The nearest hit of each ray of the packet. Each thread uses its own `shader`, prepared by prepare().
  /// @param visits  [ray count] raised by what each ray visits, or null to go faster
  void find_nearest(CtxShader& shader, GeometryRayPacket& packet, GeometryRayVisits* visits = nullptr) const;
  /// All hits of each ray, unsorted; hair is to be told of it when the scene is made.
  void find_all(CtxShader& shader, GeometryRayPacket& packet) const;
  /// Whether each ray hits anything at all. The packet is to stop its rays at the first hit.
  /// @param is_hit  [ray count], written
  void find_any(CtxShader& shader, GeometryRayPacket& packet, std::vector<u8>& is_hit) const;
  void prepare(CtxShader& shader) const { shader.motion_blur = motion_blur_ ? &*motion_blur_ : nullptr; }

  GeometrySurfacePoint get_surface_point(const GeometryIntersection& hit, double time) const {
    return hit.geometry->get_surface_point(hit, get_shape_time(time));
  }
  /// The part that was hit.
  const ScenePart& get_part(const GeometryIntersection& hit) const;
  /// The primitive's number in the scene.
  uint get_primitive(const GeometryIntersection& hit) const { return get_part(hit).first_primitive + hit.primitive; }
  /// What geometry is to be asked with for the moment of a ray: no time when everything is at rest.
  double get_shape_time(double time) const;

 private:
  void add_part(std::unique_ptr<ScenePart> part, const std::vector<Color>& group_colors);
  const CtxEval& get_thread_ctx() const;

  AppBase& application_;
  OfObjectFactory factory_;
  CtxEval ctx_;
  std::vector<std::unique_ptr<ScenePart>> parts_;
  std::vector<Color> group_colors_;
  std::optional<CtxMotionBlur> motion_blur_;
  Material material_;
  ShadingGroupLinks links_;
  std::vector<const ShadingGroupLinks*> group_links_;
  ShadingGroupTable shading_;
  double build_seconds_ = 0.0;
};
