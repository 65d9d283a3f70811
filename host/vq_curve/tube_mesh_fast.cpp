#include "vq_curve/tube_mesh_fast.h"

#include "vq_core/core_class_info.h"

const CoreClassInfo& TubeMeshFast::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("TubeMeshFast", core_destroy_object, GeometryObject::class_info(), nullptr);
  return info;
}
