// host/vq_module/module_combiner.h
//
// A scene as one object of another scene: its structure is a scene tree over its own objects, whose matrices transform
// into the combiner's space.
#pragma once
#include <memory>
#include <vector>

#include "vq_core/core_export.h"
#include "vq_module/module_scene_object.h"

class VQ_EXPORT ModuleCombiner final : public ModuleSceneObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// @param objects    the objects of the structure; null entries allowed
  /// @param structure  a scene tree over exactly these objects; null: the combiner cannot be hit
  ModuleCombiner(const CoreString& name, std::vector<std::shared_ptr<ModuleSceneObject>> objects,
                 std::shared_ptr<const GasObject> structure);

  const std::vector<std::shared_ptr<ModuleSceneObject>>& get_objects() const { return objects_; }
  // Computed from all objects at each call; an object that is listed twice is counted twice.
  double get_geometry_count() const override;
  double get_primitive_count() const override;
  bool has_moving_shape() const override;

 private:
  std::vector<std::shared_ptr<ModuleSceneObject>> objects_;
  std::shared_ptr<const GasObject> owned_structure_;
};
