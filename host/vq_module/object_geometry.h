// host/vq_module/object_geometry.h
//
// Objects of a scene as the primitives of a geometry, so that what holds geometries (a bundle) can hold a bundle, a
// scene or anything else that is an object. A ray that reaches a primitive continues in the object's structure; the
// objects' own matrices do not count. Hits carry the geometry of the inner structure.
#pragma once
#include <memory>
#include <vector>

#include "vq_core/core_export.h"
#include "vq_geometry/geometry_object.h"

class ModuleSceneObject;

class VQ_EXPORT ObjectGeometry final : public GeometryObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// @param objects  not null; must not change while a structure uses the geometry
  explicit ObjectGeometry(std::vector<std::shared_ptr<const ModuleSceneObject>> objects);

  uint get_primitive_count() const override { return static_cast<uint>(objects_.size()); }
  /// One group, which only says whether the objects are visible: their own groups have their own materials, or are
  /// looked up in the outer table from the outer offset on.
  const CoreArray<CoreString>& get_shading_groups() const override { return groups_; }
  uint get_primitive_shading_group(const uint& /*primitive*/) const override { return 0; }
  bool has_motion() const override;
  GMathBbox3<double> get_primitive_bbox(const CtxEval& ctx, const uint& primitive) const override;
  GMathBbox3<double> get_primitive_bbox_at(const CtxEval& ctx, const double& time,
                                           const uint& primitive) const override;
  void ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                         const uint& primitive) const override;
  /// Modes points and vertices add what the object's structure finds.
  void frustum_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                             const uint& primitive) const override;
  /// Never called: no hit has this geometry.
  GeometrySurfacePoint get_surface_point(const GeometryIntersection& /*hit*/, const double& /*time*/) const override {
    return {};
  }
  u64 get_memory_size() const override { return sizeof(*this) + objects_.capacity() * sizeof(objects_[0]); }

 private:
  std::vector<std::shared_ptr<const ModuleSceneObject>> objects_;
  CoreArray<CoreString> groups_;
};
