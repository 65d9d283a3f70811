#include "tools/vqgas/scene/scene_bundle.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>
#include <utility>

#include "tools/vqgas/scene/scene_objects.h"

namespace {

void bundle_list(SceneSource& scene, std::vector<ObjectSource>& objects, double frame) {
  std::unordered_map<uint, uint> shows;
  for (const ObjectSource& object : objects) ++shows[object.shape];
  shows.erase(core_invalid_index);
  const auto first_instance = std::stable_partition(objects.begin(), objects.end(), [&](const ObjectSource& object) {
    const auto found = shows.find(object.shape);
    return found == shows.end() || found->second < 2;
  });
  if (first_instance == objects.end()) return;
  BundleSource bundle;
  std::vector<std::shared_ptr<const ModuleSceneItem>> items;
  ObjectSource object{"bundle"};
  for (auto instance = first_instance; instance != objects.end(); ++instance) {
    const auto item = std::make_shared<ModuleSceneItem>(CoreString(instance->name.c_str()));
    set_matrix(*item, *instance, frame);
    bundle.shapes.push_back(instance->shape);
    bundle.matrices.push_back(item->get_global_matrix());
    items.push_back(item);
    object.is_animated |= instance->is_animated;
  }
  const bool is_moving = std::any_of(items.begin(), items.end(), [](const auto& item) { return item->is_keyframed(); });
  if (is_moving) bundle.motion = std::make_shared<ModuleKeyedSource>(std::move(items));
  object.bundle = static_cast<uint>(scene.bundles.size());
  objects.erase(first_instance, objects.end());
  objects.push_back(std::move(object));
  scene.bundles.push_back(std::move(bundle));
}

}  // namespace

void bundle_objects(SceneSource& scene, double frame) {
  for (std::vector<ObjectSource>& group : scene.groups) bundle_list(scene, group, frame);
  bundle_list(scene, scene.objects, frame);
}
