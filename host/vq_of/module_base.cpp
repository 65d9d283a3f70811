#include "vq_of/module_base.h"

#include "vq_core/core_class_info.h"

const CoreClassInfo& ModuleBase::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("ModuleBase", core_destroy_object, CoreBaseObject::class_info(), nullptr);
  return info;
}
