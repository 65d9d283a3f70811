#include "vq_module/module_geometry.h"

#include <utility>

#include "vq_core/core_class_info.h"
#include "vq_gas_base/gas_object.h"
#include "vq_geometry/geometry_object.h"

const CoreClassInfo& ModuleGeometry::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("ModuleGeometry", core_destroy_object, ModuleSceneObject::class_info(), nullptr);
  return info;
}

ModuleGeometry::ModuleGeometry(const CoreString& name, std::shared_ptr<const GeometryObject> geometry,
                               std::shared_ptr<const GasObject> structure, const ModuleClusterFunctions& functions)
    : ModuleSceneObject(name),
      groups_(geometry != nullptr ? geometry->get_shading_groups().get_count() : 0),
      geometry_(std::move(geometry)),
      owned_structure_(std::move(structure)) {
  set_structure(owned_structure_.get(), functions);
  set_shading_table(&groups_.get_table());
}

double ModuleGeometry::get_primitive_count() const {
  return geometry_ != nullptr ? geometry_->get_primitive_count() : 0.0;
}

bool ModuleGeometry::has_moving_shape() const { return geometry_ != nullptr && geometry_->has_motion(); }
