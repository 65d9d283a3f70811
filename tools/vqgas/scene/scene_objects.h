// tools/vqgas/scene/scene_objects.h
//
// From the sources of objects to the host's scene objects and the tree over them.
#pragma once
#include <memory>
#include <vector>

#include "gas/gas_scene_tree.h"
#include "tools/vqgas/scene/scene_shape.h"
#include "vq_module/module_scene_object.h"
#include "vq_shading_variable/shading_variables.h"

struct SceneObjects {
  std::vector<std::shared_ptr<ModuleSceneObject>> objects;
  std::shared_ptr<GasSceneTree> tree;
};

/// True if the item's matrix is finite and invertible; the tree leaves out other objects.
bool has_invertible_matrix(const ModuleSceneItem& item);

/// Sets the item's keys, and its static matrix from `frame`. If that is not invertible, as for an object that grows
/// from zero, the static matrix is that of the first invertible key: else the tree would leave the object out at all
/// times.
void set_matrix(ModuleSceneItem& item, const ObjectSource& source, double frame);

class SceneObjectMaker {
 public:
  /// All arguments must outlive the maker; `shapes` and the material of `links` also all objects made.
  /// @param links      of every shading group
  /// @param frame      of the static matrices of moving objects
  SceneObjectMaker(AppBase& application, const std::vector<SceneShape>& shapes, const ShadingGroupLinks& links,
                   double frame)
      : application_(application), shapes_(shapes), links_(links), frame_(frame) {}

  /// @param for_all_hits  use the shapes' structures for all hits
  SceneObjects make(const SceneSource& source, bool for_all_hits, AppProgressBar* progress) const;

 private:
  using ObjectList = std::vector<std::shared_ptr<ModuleSceneObject>>;

  SceneObjects make_list(const std::vector<ObjectSource>& sources, const std::vector<SceneObjects>& groups,
                         bool for_all_hits, AppProgressBar* progress) const;
  std::shared_ptr<ModuleSceneObject> make_object(const ObjectSource& source, const std::vector<SceneObjects>& groups,
                                                 bool for_all_hits) const;

  AppBase& application_;
  const std::vector<SceneShape>& shapes_;
  const ShadingGroupLinks links_;
  const double frame_;
};
