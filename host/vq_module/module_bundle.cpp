#include "vq_module/module_bundle.h"

#include <algorithm>
#include <utility>

#include "vq_core/core_class_info.h"
#include "vq_gas_base/gas_object.h"
#include "vq_geometry/geometry_object.h"

const CoreClassInfo& ModuleBundle::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("ModuleBundle", core_destroy_object, ModuleSceneObject::class_info(), nullptr);
  return info;
}

ModuleBundle::ModuleBundle(const CoreString& name, Contents contents, std::shared_ptr<const GasObject> structure,
                           const ModuleClusterFunctions& functions)
    : ModuleSceneObject(name),
      groups_(contents.shading_group_count),
      contents_(std::move(contents)),
      owned_structure_(std::move(structure)) {
  set_structure(owned_structure_.get(), functions);
  if (groups_.get_count() > 0) set_shading_table(&groups_.get_table());
}

bool ModuleBundle::has_moving_shape() const {
  return contents_.matrix_source != nullptr || contents_.is_moving ||
         std::any_of(contents_.geometries.begin(), contents_.geometries.end(),
                     [](const auto& geometry) { return geometry != nullptr && geometry->has_motion(); });
}
