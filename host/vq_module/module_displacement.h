// host/vq_module/module_displacement.h
//
// The displacement of a shading group: a height function, and the bound by which boxes of displaced instances grow.
//
//   module --get_mesh(base mesh, matrix of an instance)--> DisplacedMesh, the instance's alternative geometry
#pragma once
#include <memory>

#include "vq_core/core_export.h"
#include "vq_geometry/displaced_mesh.h"
#include "vq_gmath/gmath_matrix.h"
#include "vq_module/module_scene_item.h"

class VQ_EXPORT ModuleDisplacement : public ModuleSceneItem {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// @param settings  heights and bound in world units: an instance that is twice as large has heights of the same size
  ModuleDisplacement(const CoreString& name, const DisplacedMeshSettings& settings)
      : ModuleSceneItem(name), settings_(settings) {}

  /// An inactive module displaces nothing. It becomes active when it has a height function.
  bool is_inactive() const { return inactive_ || settings_.height == nullptr; }
  void set_inactive(bool inactive) { inactive_ = inactive; }
  /// How far a point may move along a world axis.
  double get_bound(const unsigned int& /*axis*/) const { return settings_.bound; }
  const DisplacedMeshSettings& get_settings() const { return settings_; }

  /// The displaced mesh of an instance, in the space of `base`, which must outlive it. Heights are divided by the
  /// largest stretch of a world axis, so that no point moves farther than the bound along one.
  /// @param matrix  of the instance; finite and not singular. One that moves must not become larger than with this one:
  ///                heights follow its size, the bound does not
  /// @return null, with one sentence in `error`, as DisplacedMesh::create() fails
  std::unique_ptr<DisplacedMesh> get_mesh(const PolyMesh& base, const GMathMatrix4x4<double>& matrix,
                                          CoreString& error) const;

 private:
  DisplacedMeshSettings settings_;
  bool inactive_ = false;
};
