#include "vq_module/module_scene_item.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "vq_core/core_class_info.h"

namespace {

/// (1 - fraction) a + fraction b, all sixteen entries.
GMathMatrix4x4<double> blend(const GMathMatrix4x4<double>& a, const GMathMatrix4x4<double>& b, double fraction) {
  if (fraction == 0.0) return a;  // also where the next key is not finite
  GMathMatrix4x4<double> out;
  for (uint r = 0; r < 4; ++r)
    for (uint c = 0; c < 4; ++c) out.m[r][c] = (1.0 - fraction) * a.m[r][c] + fraction * b.m[r][c];
  return out;
}

}  // namespace

const CoreClassInfo& ModuleSceneItem::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("ModuleSceneItem", core_destroy_object, ModuleBase::class_info(), nullptr);
  return info;
}

GMathMatrix4x4<double> ModuleSceneItem::get_global_matrix_at(const double& time) const {
  if (keys_.empty()) return matrix_;
  if (!(time > keys_.front().time)) return keys_.front().matrix;
  if (time >= keys_.back().time) return keys_.back().matrix;
  const auto next = std::upper_bound(keys_.begin(), keys_.end(), time,
                                     [](double at, const ModuleMatrixKey& key) { return at < key.time; });
  const ModuleMatrixKey& former = *(next - 1);
  return blend(former.matrix, next->matrix, (time - former.time) / (next->time - former.time));
}

void ModuleSceneItem::set_global_matrix(const GMathMatrix4x4<double>& matrix) {
  keys_.clear();
  matrix_ = matrix;
  inverse_ = matrix.get_inverse();
}

void ModuleSceneItem::set_global_matrix_keys(std::vector<ModuleMatrixKey> keys, double time) {
  std::erase_if(keys, [](const ModuleMatrixKey& key) { return !std::isfinite(key.time); });
  if (keys.empty()) return;
  std::stable_sort(keys.begin(), keys.end(),
                   [](const ModuleMatrixKey& a, const ModuleMatrixKey& b) { return a.time < b.time; });
  // std::unique keeps the first of equal keys: in reverse order the last one.
  const auto first = std::unique(keys.rbegin(), keys.rend(), [](const ModuleMatrixKey& a, const ModuleMatrixKey& b) {
                       return a.time == b.time;
                     }).base();
  keys.erase(keys.begin(), first);
  keys_ = std::move(keys);
  evaluate(time);
}

void ModuleSceneItem::evaluate(double time) {
  if (keys_.empty()) return;
  matrix_ = get_global_matrix_at(time);
  inverse_ = matrix_.get_inverse();
}
