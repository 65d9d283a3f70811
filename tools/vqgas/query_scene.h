// tools/vqgas/query_scene.h
//
// One mesh with its structure, and everything else that a query needs besides the rays.
#pragma once
#include <optional>
#include <string>
#include <vector>

#include "gas/gas_geometry_bvh4.h"
#include "tools/vqgas/mesh_builder.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_ray_packet.h"
#include "vq_geometry/poly_mesh.h"
#include "vq_of/of_object_factory.h"
#include "vq_shading_variable/shading_variables.h"

class AppBase;

class QueryScene {
 public:
  /// Builds the structure on all threads of the application, which must outlive the scene. `name` stands in errors.
  /// Throws InputError when the mesh is not sound or has no primitive with finite corners.
  QueryScene(AppBase& application, const std::string& name, MeshSource&& source);
  QueryScene(const QueryScene&) = delete;
  QueryScene& operator=(const QueryScene&) = delete;

  /// From now on rays see the mesh as it moves, at their own times, which must lie in [open, close]. Without a call the
  /// mesh is at rest.
  void set_shutter(double open, double close);
  bool is_moving() const { return motion_blur_.has_value(); }

  AppBase& get_application() const { return application_; }
  const PolyMesh& get_mesh() const { return mesh_; }
  const GasGeometryBvh4& get_structure() const { return structure_; }
  const CtxEval& get_ctx() const { return ctx_; }
  const Color& get_group_color(uint group) const { return group_colors_[group]; }
  /// Around everything, at all times that rays may ask for.
  GMathBbox3<double> get_bbox() const;
  /// Some hundred boxes that hold everything more tightly than one.
  std::vector<GMathBbox3<double>> get_tight_boxes() const;
  double get_build_seconds() const { return build_seconds_; }

  /// The nearest hit of each ray of the packet. Each thread uses its own `shader`, prepared by prepare().
  /// @param visits  [ray count] raised by what each ray visits, or null to go faster
  void find_nearest(CtxShader& shader, GeometryRayPacket& packet, GeometryRayVisits* visits = nullptr) const;
  /// All hits of each ray, unsorted.
  void find_all(CtxShader& shader, GeometryRayPacket& packet) const;
  void prepare(CtxShader& shader) const { shader.motion_blur = motion_blur_ ? &*motion_blur_ : nullptr; }
  GeometrySurfacePoint get_surface_point(const GeometryIntersection& hit, double time) const;

 private:
  const CtxEval& get_thread_ctx() const;

  AppBase& application_;
  OfObjectFactory factory_;
  CtxEval ctx_;
  std::vector<Color> group_colors_;
  PolyMesh mesh_;
  GasGeometryBvh4 structure_;
  std::optional<CtxMotionBlur> motion_blur_;
  Material material_;
  ShadingGroupLinks links_;
  std::vector<const ShadingGroupLinks*> group_links_;
  ShadingGroupTable shading_;
  double build_seconds_ = 0.0;
};
