#include "tools/vqgas/scene/scene_load.h"

#include <utility>

#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/import/hair_file.h"
#include "tools/vqgas/import/scene_import.h"
#include "tools/vqgas/support/interrupt.h"

namespace {

SceneSource load_file(const std::string& name, const SceneTimes& times) {
  constexpr std::string_view prefix = "demo:";
  if (name.starts_with(prefix)) return make_demo_scene(name.substr(prefix.size()));
  if (!is_hair_file(name)) return import_scene(name, times);
  SceneSource source;
  source.add_object("", read_hair(name));
  return source;
}

void shift(std::vector<ObjectSource>& objects, uint shapes, uint groups) {
  for (ObjectSource& object : objects) {
    if (object.shape != core_invalid_index) object.shape += shapes;
    if (object.group != core_invalid_index) object.group += groups;
  }
}

void set_default(std::string& text, const std::string& value) {
  if (text.empty()) text = value;
}

template <class T>
void append(std::vector<T>& to, std::vector<T>& from) {
  to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
}

}  // namespace

SceneSource load_scene(const std::vector<std::string>& names, const SceneTimes& times) {
  SceneSource scene;
  for (const std::string& name : names) {
    throw_if_interrupted();
    SceneSource file = load_file(name, times);
    const auto shapes = static_cast<uint>(scene.shapes.size()), groups = static_cast<uint>(scene.groups.size());
    shift(file.objects, shapes, groups);
    for (std::vector<ObjectSource>& group : file.groups) shift(group, shapes, groups);
    for (ShapeSource& shape : file.shapes) std::visit([&](auto& source) { set_default(source.name, name); }, shape);
    for (ObjectSource& object : file.objects) set_default(object.name, name);
    scene.files.push_back({name, file.shapes.size()});
    append(scene.shapes, file.shapes);
    append(scene.groups, file.groups);
    append(scene.objects, file.objects);
  }
  return scene;
}
