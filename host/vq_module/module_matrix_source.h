// host/vq_module/module_matrix_source.h
//
// Where the matrices of a bundle's instances come from while they move.
//
//   bundle --callback(source, time)--> get_matrices(time): one matrix to world per instance
#pragma once
#include <memory>
#include <vector>

#include "vq_core/core_export.h"
#include "vq_module/module_scene_item.h"

class VQ_EXPORT ModuleMatrixSource {
 public:
  ModuleMatrixSource() = default;
  ModuleMatrixSource(const ModuleMatrixSource&) = delete;
  ModuleMatrixSource& operator=(const ModuleMatrixSource&) = delete;
  virtual ~ModuleMatrixSource() = default;

  /// Writes the matrix of each instance at `time`. Called from many threads at once.
  virtual void get_matrices(double time, GMathMatrix4x4<double>* matrices) const = 0;
  /// The form in which a bundle calls it; `source` is a ModuleMatrixSource.
  static void callback(void* source, const double& time, GMathMatrix4x4<double>* matrices) {
    static_cast<const ModuleMatrixSource*>(source)->get_matrices(time, matrices);
  }
};

/// Instances that follow the matrices of scene items, with their keys.
class VQ_EXPORT ModuleKeyedSource final : public ModuleMatrixSource {
 public:
  explicit ModuleKeyedSource(std::vector<std::shared_ptr<const ModuleSceneItem>> items) : items_(std::move(items)) {}
  void get_matrices(double time, GMathMatrix4x4<double>* matrices) const override;

 private:
  std::vector<std::shared_ptr<const ModuleSceneItem>> items_;
};

/// The motion of one instance, in turns around an axis through `center`, after its matrix at rest.
struct ModuleInstanceTurn {
  GMathMatrix4x4<double> rest;
  GMathVec3<double> center;
  GMathVec3<double> axis = {0, 1, 0};  ///< unit length
  GMathVec3<double> velocity;          ///< rigid motion: added per unit of time
  double rate = 0.0;                   ///< rigid motion and orbits: radians per unit of time
  double swing = 0.0;                  ///< swaying: largest angle, in radians
  double period = 1.0;                 ///< swaying: units of time from one side to the other and back; above 0
  double phase = 0.0;                  ///< swaying: radians
};

/// Instances that turn at a constant rate, sway to and fro, and move straight on; all may be combined. A rigid body
/// turns around its own origin, an orbit has its center elsewhere, a plant sways around a horizontal axis at its foot.
class VQ_EXPORT ModuleTurnSource final : public ModuleMatrixSource {
 public:
  explicit ModuleTurnSource(std::vector<ModuleInstanceTurn> turns) : turns_(std::move(turns)) {}
  void get_matrices(double time, GMathMatrix4x4<double>* matrices) const override;
  /// The matrix of one instance.
  static GMathMatrix4x4<double> get_matrix(const ModuleInstanceTurn& turn, double time);

 private:
  std::vector<ModuleInstanceTurn> turns_;
};
