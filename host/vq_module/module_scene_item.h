// host/vq_module/module_scene_item.h
//
// Something with a place in the scene: a matrix from its own space to the world, still or keyframed.
#pragma once
#include <vector>

#include "vq_core/core_base_type.h"
#include "vq_core/core_string.h"
#include "vq_gmath/gmath_matrix.h"

struct ModuleMatrixKey {
  double time = 0.0;
  GMathMatrix4x4<double> matrix;
};

class ModuleSceneItem : public CoreBaseObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  explicit ModuleSceneItem(const CoreString& name) : name_(name) {}

  const CoreString& get_name() const { return name_; }

  /// Object to world, as last set or evaluated.
  const GMathMatrix4x4<double>& get_global_matrix() const { return matrix_; }
  /// World to object. Infinite or NaN entries when the matrix cannot be inverted.
  const GMathMatrix4x4<double>& get_inv_global_matrix() const { return inverse_; }
  /// The matrix at `time`: entry by entry linear between the keys around it, the first or last key's outside, the first
  /// key's for NaN. Without keys the still matrix. Thread-safe.
  GMathMatrix4x4<double> get_global_matrix_at(const double& time) const;
  bool is_keyframed() const { return keys_.size() > 1; }

  // Not while anything reads the item.

  /// Stands still from now on.
  void set_global_matrix(const GMathMatrix4x4<double>& matrix);
  /// Moves from now on, and stands where it is at `time`. Keys are sorted by time; of those with equal times the last
  /// counts, those whose time is not finite are left out. A single key makes the item stand still there. Without keys
  /// the item stays as it is.
  void set_global_matrix_keys(std::vector<ModuleMatrixKey> keys, double time);
  /// Brings the current matrix to `time`; nothing for an item that stands still.
  void evaluate(double time);

 private:
  CoreString name_;
  GMathMatrix4x4<double> matrix_, inverse_;
  std::vector<ModuleMatrixKey> keys_;
};
