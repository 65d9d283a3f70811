#include "vq_module/module_displacement.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "vq_core/core_class_info.h"

namespace {

/// The heights of another function, multiplied by a factor.
class ScaledHeight final : public GeometryHeight {
 public:
  ScaledHeight(std::shared_ptr<const GeometryHeight> height, double factor)
      : height_(std::move(height)), factor_(factor) {}
  double get_height(const GeometryHeightPoint& point) const override { return height_->get_height(point) * factor_; }
  bool uses_uv() const override { return height_->uses_uv(); }
  bool check(CoreString& error) const override { return height_->check(error); }
  /// The function itself belongs to the module.
  u64 get_memory_size() const override { return sizeof(*this); }

 private:
  std::shared_ptr<const GeometryHeight> height_;
  double factor_;
};

/// The longest row of the upper 3x3: a vector of length 1 has no coordinate beyond it in world space.
double get_largest_stretch(const GMathMatrix4x4<double>& matrix) {
  double largest = 0.0;
  for (const auto& row : {matrix.m[0], matrix.m[1], matrix.m[2]})
    largest = std::max(largest, std::hypot(row[0], row[1], row[2]));
  return largest;
}

}  // namespace

const CoreClassInfo& ModuleDisplacement::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("ModuleDisplacement", core_destroy_object, ModuleSceneItem::class_info(), nullptr);
  return info;
}

std::unique_ptr<DisplacedMesh> ModuleDisplacement::get_mesh(const PolyMesh& base, const GMathMatrix4x4<double>& matrix,
                                                            CoreString& error) const {
  const double factor = 1.0 / get_largest_stretch(matrix);
  DisplacedMeshSettings local = settings_;
  if (factor != 1.0 && settings_.height != nullptr)
    local.height = std::make_shared<ScaledHeight>(settings_.height, factor);
  local.bound = settings_.bound * factor;
  auto mesh = std::make_unique<DisplacedMesh>();
  if (!mesh->create(base, local, error)) mesh.reset();
  return mesh;
}
