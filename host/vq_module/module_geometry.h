// host/vq_module/module_geometry.h
//
// A geometry object of a scene: shape and structure, which several objects may share, and the object's own materials
// and visible shading groups.
#pragma once
#include <memory>

#include "vq_core/core_export.h"
#include "vq_module/module_scene_object.h"
#include "vq_module/module_shading_groups.h"

class GeometryObject;

class VQ_EXPORT ModuleGeometry : public ModuleSceneObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// @param geometry   the geometry of the structure; null: no groups, no primitives. Its groups have the empty
  ///                   material: nothing is hit before set_shading_group()
  /// @param structure  built over the geometry; null: the object cannot be hit
  /// @param functions  clusters of the structure, none of the four null; must outlive the object
  ModuleGeometry(const CoreString& name, std::shared_ptr<const GeometryObject> geometry,
                 std::shared_ptr<const GasObject> structure, const ModuleClusterFunctions& functions);
  ModuleGeometry(const ModuleGeometry&) = delete;
  ModuleGeometry& operator=(const ModuleGeometry&) = delete;

  /// Sets the links of shading group `group`. Not to be called while another thread reads the object. A group that the
  /// geometry does not have is ignored.
  void set_shading_group(uint group, const ShadingGroupLinks& links) { groups_.set_links(group, links); }
  /// Groups that are not visible cannot be hit. All are visible at first.
  void set_shading_group_visibility(uint group, bool visible) { groups_.set_visibility(group, visible); }

  const GeometryObject* get_geometry(const bool& /*evaluate*/ = true) const { return geometry_.get(); }
  bool get_shading_group_visibility(const uint& group) const { return groups_.is_visible(group); }
  uint get_shading_group_count() const override { return groups_.get_count(); }
  double get_geometry_count() const override { return 1.0; }
  double get_primitive_count() const override;
  bool has_moving_shape() const override;

 private:
  ModuleShadingGroups groups_;  // first: rays read it
  std::shared_ptr<const GeometryObject> geometry_;
  std::shared_ptr<const GasObject> owned_structure_;
};
