#include "vq_curve/tube_mesh.h"

#include <algorithm>

#include "vq_core/core_class_info.h"

const CoreClassInfo& TubeMesh::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("TubeMesh", core_destroy_object, GeometryObject::class_info(), nullptr);
  return info;
}

double TubeMesh::get_build_parameter() const {
  const double segments = get_curves().get_segment_count(), curves = get_curves().get_curve_count();
  return 8.0 * std::max(segments / std::max(curves, 1.0), 1.0);
}
