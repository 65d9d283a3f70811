// host/vq_module/module_scene_item.h
//
// An item with a transform: a matrix from its own space to the world, static or with keys.
#pragma once
#include <vector>

#include "vq_core/core_export.h"
#include "vq_core/core_string.h"
#include "vq_gmath/gmath_matrix.h"
#include "vq_of/module_base.h"

struct ModuleMatrixKey {
  double time = 0.0;
  GMathMatrix4x4<double> matrix;
};

class VQ_EXPORT ModuleSceneItem : public ModuleBase {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  explicit ModuleSceneItem(const CoreString& name) : name_(name) {}

  const CoreString& get_name() const { return name_; }

  /// Object to world, as last set or evaluated.
  const GMathMatrix4x4<double>& get_global_matrix() const { return matrix_; }
  /// World to object. Infinite or NaN entries when the matrix is not invertible.
  const GMathMatrix4x4<double>& get_inv_global_matrix() const { return inverse_; }
  /// The matrix at `time`: entry by entry linear between the keys around it, the first or last key's outside, the first
  /// key's for NaN. Without keys the static matrix. Thread-safe.
  GMathMatrix4x4<double> get_global_matrix_at(const double& time) const;
  bool is_keyframed() const { return keys_.size() > 1; }

  // Setters. Not to be called while another thread reads the item.

  /// Makes the item static.
  void set_global_matrix(const GMathMatrix4x4<double>& matrix);
  /// Replaces the keys and evaluates the matrix at `time`. Keys are sorted by time; of keys with equal times the last
  /// one is used, keys with a time that is not finite are left out. One key: static. No keys: nothing changes.
  void set_global_matrix_keys(std::vector<ModuleMatrixKey> keys, double time);
  /// Evaluates the matrix at `time`; does nothing without keys.
  void evaluate(double time);

 private:
  CoreString name_;
  std::vector<ModuleMatrixKey> keys_;
  // In cache lines of their own; those of a scene's object are followed by what else a ray reads of it.
  alignas(64) GMathMatrix4x4<double> inverse_;
  GMathMatrix4x4<double> matrix_;
};
