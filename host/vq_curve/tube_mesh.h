// host/vq_curve/tube_mesh.h
//
// Few and large curves: cables, pipes, branches. One primitive is a whole curve, tested segment by segment. For
// structures with boxes along the world's axes.
#pragma once
#include "vq_core/core_export.h"
#include "vq_curve/tube_geometry.h"

class VQ_EXPORT TubeMesh final : public TubeGeometry<TubePrimitive::curve> {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// No curves.
  TubeMesh() = default;

  /// A segment costs about eight triangles; times the mean number of segments per curve.
  double get_build_parameter() const override;
};
