#include "tools/vqgas/scene/scene_load.h"

#include <cstdio>
#include <utility>

#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/import/hair_file.h"
#include "tools/vqgas/import/point_file.h"
#include "tools/vqgas/import/scatter_file.h"
#include "tools/vqgas/import/scene_import.h"
#include "tools/vqgas/scene/scene_scatter.h"
#include "tools/vqgas/support/interrupt.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_of/of_app.h"

namespace {

/// Adds the counts of what is already in the scene to the numbers in a file.
void shift(std::vector<ObjectSource>& objects, const SceneSource& scene) {
  const auto add = [](uint& number, std::size_t count) {
    if (number != core_invalid_index) number += static_cast<uint>(count);
  };
  for (ObjectSource& object : objects) {
    add(object.shape, scene.shapes.size());
    add(object.group, scene.groups.size());
    add(object.bundle, scene.bundles.size());
    add(object.cloud, scene.clouds.size());
  }
}

void set_default(std::string& text, const std::string& value) {
  if (text.empty()) text = value;
}

template <class T>
void append(std::vector<T>& to, std::vector<T>& from) {
  to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
}

SceneSource load_points(const std::string& name, const SceneLoading& loading) {
  PointReading reading;
  if (!loading.is_quiet) {
    reading.announce = [&](u64 points, u64 bytes) {
      constexpr u64 large = 256000000;
      if (bytes >= large)
        std::fprintf(stderr, "%s: %.1f million points will take %.2f GB, and as much for their structure\n",
                     name.c_str(), 1e-6 * static_cast<double>(points), 1e-9 * static_cast<double>(bytes));
    };
  }
  if (loading.application != nullptr) reading.progress = loading.application->create_progress_bar("Read points");
  SceneSource source;
  source.add_object("", read_points(name, reading));
  if (reading.progress != nullptr) reading.progress->finish();
  return source;
}

}  // namespace

void append_scene(SceneSource& scene, SceneSource&& more) {
  shift(more.objects, scene);
  for (std::vector<ObjectSource>& group : more.groups) shift(group, scene);
  for (BundleSource& bundle : more.bundles)
    for (uint& shape : bundle.shapes) shape += static_cast<uint>(scene.shapes.size());
  append(scene.shapes, more.shapes);
  append(scene.clouds, more.clouds);
  append(scene.groups, more.groups);
  append(scene.bundles, more.bundles);
  append(scene.objects, more.objects);
}

SceneSource load_file(const std::string& name, const SceneTimes& times, const SceneLoading& loading) {
  if (name.starts_with(demo_prefix)) return make_demo_scene(name.substr(demo_prefix.size()), loading.application);
  if (is_scatter_file(name)) return load_scatter(name, times, loading);
  if (is_point_file(name)) return load_points(name, loading);
  if (!is_hair_file(name)) return import_scene(name, times);
  SceneSource source;
  source.add_object("", read_hair(name));
  return source;
}

SceneSource load_scene(const std::vector<std::string>& names, const SceneTimes& times, const SceneLoading& loading) {
  SceneSource scene;
  for (const std::string& name : names) {
    throw_if_interrupted();
    SceneSource file = load_file(name, times, loading);
    for (ShapeSource& shape : file.shapes) std::visit([&](auto& source) { set_default(source.name, name); }, shape);
    for (PointSource& cloud : file.clouds) set_default(cloud.name, name);
    for (ObjectSource& object : file.objects) set_default(object.name, name);
    scene.files.push_back({name, file.shapes.size(), file.clouds.size(), std::move(file.notes)});
    append_scene(scene, std::move(file));
  }
  return scene;
}
