// host/vq_curve/tube_mesh.h
//
// Few and large fibres: cables, pipes, branches. One primitive is a whole fibre, tested segment by segment. For
// structures that index heavy primitives by their world boxes.
#pragma once
#include "vq_curve/tube_geometry.h"

class TubeMesh final : public TubeGeometry<TubePrimitive::fibre> {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// No fibres.
  TubeMesh() = default;

  /// Eight triangles a segment, of as many segments as a fibre has on average.
  double get_build_parameter() const override;
};
