// host/vq_module/module_bundle.h
//
// A bundle of instances as one object of a scene: the structure, what it is made of, and the materials of all shading
// groups of its geometries, in the numbering of the bundle's shading group offsets.
#pragma once
#include <memory>
#include <vector>

#include "vq_core/core_export.h"
#include "vq_module/module_scene_object.h"
#include "vq_module/module_shading_groups.h"

class GeometryObject;
class ModuleMatrixSource;

class VQ_EXPORT ModuleBundle final : public ModuleSceneObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// What the bundle's structure refers to, kept as long as the module lives, and what it holds.
  struct Contents {
    std::vector<std::shared_ptr<const GeometryObject>> geometries;
    std::shared_ptr<const ModuleMatrixSource> matrix_source;  ///< of the bundle's matrices callback; may be null
    uint shading_group_count = 0;                             ///< 0: the outer object's materials count
    double geometry_count = 0.0;                              ///< instances in the structure
    double primitive_count = 0.0;                             ///< of all of them
    bool is_moving = false;                                   ///< instances move by a callback of another kind
  };
  /// @param structure  of the bundle; null: the object cannot be hit
  /// @param functions  clusters of the structure; must outlive the object
  ModuleBundle(const CoreString& name, Contents contents, std::shared_ptr<const GasObject> structure,
               const ModuleClusterFunctions& functions);

  /// As ModuleGeometry's.
  void set_shading_group(uint group, const ShadingGroupLinks& links) { groups_.set_links(group, links); }
  void set_shading_group_visibility(uint group, bool visible) { groups_.set_visibility(group, visible); }

  uint get_shading_group_count() const override { return groups_.get_count(); }
  double get_geometry_count() const override { return contents_.geometry_count; }
  double get_primitive_count() const override { return contents_.primitive_count; }
  /// True if an instance moves or one of the geometries does.
  bool has_moving_shape() const override;

 private:
  ModuleShadingGroups groups_;  // first: rays read it
  Contents contents_;
  std::shared_ptr<const GasObject> owned_structure_;
};
