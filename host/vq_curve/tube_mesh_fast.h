// host/vq_curve/tube_mesh_fast.h
//
// Hair and fur: many thin curves. One primitive is one segment of a curve, a solid with round ends (curve_segment.h),
// for a structure with oriented boxes. Primitives are numbered along the curves, curve by curve.
#pragma once
#include "vq_core/core_export.h"
#include "vq_curve/tube_geometry.h"

class VQ_EXPORT TubeMeshFast final : public TubeGeometry<TubePrimitive::segment> {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// No curves.
  TubeMeshFast() = default;

  /// A segment costs about eight triangles.
  double get_build_parameter() const override { return 8.0; }
};
