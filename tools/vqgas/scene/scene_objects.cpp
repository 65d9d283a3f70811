#include "tools/vqgas/scene/scene_objects.h"

#include <cmath>

#include "gas/gas_module_clusters.h"
#include "vq_app_base/app_base.h"
#include "vq_geometry/geometry_object.h"
#include "vq_module/module_combiner.h"
#include "vq_module/module_geometry.h"

bool has_invertible_matrix(const ModuleSceneItem& item) {
  const double determinant = item.get_global_matrix().get_determinant();
  return determinant != 0.0 && std::isfinite(determinant);
}

void set_matrix(ModuleSceneItem& item, const ObjectSource& source, double frame) {
  const std::vector<ModuleMatrixKey>& keys = source.keys;
  if (keys.size() == 1) item.set_global_matrix(keys.front().matrix);
  if (keys.size() < 2) return;
  item.set_global_matrix_keys(keys, frame);
  for (std::size_t k = 0; k < keys.size() && !has_invertible_matrix(item); ++k) item.evaluate(keys[k].time);
}

SceneObjects SceneObjectMaker::make(const SceneSource& source, bool for_all_hits, AppProgressBar* progress) const {
  std::size_t object_count = source.objects.size();
  for (const std::vector<ObjectSource>& group : source.groups) object_count += group.size();
  std::vector<SceneObjects> groups;
  const auto make_part = [&](const std::vector<ObjectSource>& part) {
    const double share = static_cast<double>(part.size()) / static_cast<double>(object_count);
    if (progress != nullptr) progress->begin_task("Build scene tree", share);
    SceneObjects made = make_list(part, groups, for_all_hits, progress);
    if (progress != nullptr) progress->end_task();
    return made;
  };
  for (const std::vector<ObjectSource>& group : source.groups) groups.push_back(make_part(group));
  return make_part(source.objects);
}

SceneObjects SceneObjectMaker::make_list(const std::vector<ObjectSource>& sources,
                                         const std::vector<SceneObjects>& groups, bool for_all_hits,
                                         AppProgressBar* progress) const {
  SceneObjects made;
  CoreBasicArray<ModuleSceneObject*> objects(static_cast<uint>(sources.size()));
  for (uint index = 0; index < sources.size(); ++index) {
    made.objects.push_back(make_object(sources[index], groups, for_all_hits));
    objects[index] = made.objects.back().get();
  }
  made.tree = std::make_shared<GasSceneTree>();
  made.tree->create(application_, objects, progress);
  return made;
}

std::shared_ptr<ModuleSceneObject> SceneObjectMaker::make_object(const ObjectSource& source,
                                                                 const std::vector<SceneObjects>& groups,
                                                                 bool for_all_hits) const {
  const CoreString name(source.name.c_str());
  std::shared_ptr<ModuleSceneObject> object;
  if (source.shape < shapes_.size()) {
    const SceneShape& shape = shapes_[source.shape];
    const auto& structure = for_all_hits ? shape.all_hits_structure : shape.structure;
    const auto made =
        std::make_shared<ModuleGeometry>(name, shape.geometry, structure, gas_get_cluster_functions(structure.get()));
    for (uint group = 0; group < made->get_shading_group_count(); ++group) made->set_shading_group(group, links_);
    object = made;
  } else {
    const SceneObjects& group = groups[source.group];
    object = std::make_shared<ModuleCombiner>(name, group.objects, group.tree);
  }
  set_matrix(*object, source, frame_);
  return object;
}
