// tools/vqgas/scene/scene_objects.h
//
// From what a scene is made of to the host's scene objects and the tree over them.
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

/// Whether the item's matrix is finite and can be inverted: what has no place is left out of the tree.
bool has_place(const ModuleSceneItem& item);

/// Where the object is, and at rest where it is at `frame`. What has no place then, as what grows from nothing, stands
/// at the first key where it has one: else the tree would be without it at all times.
void set_place(ModuleSceneItem& item, const ObjectSource& source, double frame);

class SceneObjectMaker {
 public:
  /// What is given must outlive the maker, and `shapes` and the material of `links` all that it makes.
  /// @param links      what every shading group is shaded with
  /// @param frame      where objects that move stand for queries at rest
  SceneObjectMaker(AppBase& application, const std::vector<SceneShape>& shapes, const ShadingGroupLinks& links,
                   double frame)
      : application_(application), shapes_(shapes), links_(links), frame_(frame) {}

  /// @param for_all_hits  over the shapes' structures for all hits
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
