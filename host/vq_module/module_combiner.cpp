#include "vq_module/module_combiner.h"

#include <algorithm>
#include <utility>

#include "vq_core/core_class_info.h"
#include "vq_gas_base/gas_object.h"

const CoreClassInfo& ModuleCombiner::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("ModuleCombiner", core_destroy_object, ModuleSceneObject::class_info(), nullptr);
  return info;
}

ModuleCombiner::ModuleCombiner(const CoreString& name, std::vector<std::shared_ptr<ModuleSceneObject>> objects,
                               std::shared_ptr<const GasObject> structure)
    : ModuleSceneObject(name), objects_(std::move(objects)), owned_structure_(std::move(structure)) {
  set_structure(owned_structure_.get(), get_whole_functions());
}

double ModuleCombiner::get_geometry_count() const {
  double count = 0.0;
  for (const auto& object : objects_)
    if (object != nullptr) count += object->get_geometry_count();
  return count;
}

double ModuleCombiner::get_primitive_count() const {
  double count = 0.0;
  for (const auto& object : objects_)
    if (object != nullptr) count += object->get_primitive_count();
  return count;
}

bool ModuleCombiner::has_moving_shape() const {
  return std::any_of(objects_.begin(), objects_.end(), [](const auto& object) {
    return object != nullptr && (object->get_flags() & ModuleSceneObject::moving) != 0;
  });
}
