#include "tools/vqgas/scene/scene_scatter.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "tools/vqgas/import/scatter_file.h"
#include "tools/vqgas/scene/scene_displace.h"
#include "tools/vqgas/scene/scene_flatten.h"
#include "tools/vqgas/scene/scene_load.h"
#include "tools/vqgas/source/scatter.h"
#include "tools/vqgas/support/input_error.h"

namespace {

bool is_one_shape(const SceneSource& scene) {
  if (scene.shapes.size() != 1 || scene.objects.size() != 1 || scene.objects.front().shape != 0) return false;
  const std::vector<ModuleMatrixKey>& keys = scene.objects.front().keys;
  return keys.empty() || (keys.size() == 1 && keys.front().matrix == GMathMatrix4x4<double>());
}

/// Files that refer to other files could refer to each other.
SceneSource load_part(const std::string& name, const SceneTimes& times, const SceneLoading& loading) {
  if (is_scatter_file(name)) throw InputError(name, "is a scatter file itself");
  return load_file(name, times, loading);
}

/// Adds where in the scatter file a name comes from to the errors of its file.
template <class Load>
auto load_named(const std::string& scatter, const std::string& what, const Load& load) {
  try {
    return load();
  } catch (const InputError& error) {
    throw InputError(scatter, what + ": " + error.what());
  }
}

SceneSource load_ground(const std::string& name, const ScatterFile& file, const SceneTimes& times,
                        const SceneLoading& loading) {
  return load_named(name, "ground", [&] {
    SceneSource ground = load_part(file.ground, times, loading);
    set_displacement(ground, file.ground, file.displacement);
    return ground;
  });
}

}  // namespace

ShapeSource load_instanced_shape(const std::string& name, const SceneTimes& times) {
  SceneSource scene = load_part(name, times, {});
  ShapeSource shape;
  if (is_one_shape(scene)) {
    shape = std::move(scene.shapes.front());
  } else {
    const auto is_hair = [](const ShapeSource& source) { return std::holds_alternative<HairSource>(source); };
    if (std::any_of(scene.shapes.begin(), scene.shapes.end(), is_hair))
      throw InputError(name, "holds more than one hair, or hair and meshes: it cannot have instances");
    shape = flatten_scene(scene, times.open);
    if (std::get<MeshSource>(shape).data.polygon_sizes.empty()) throw InputError(name, "holds no mesh to place");
  }
  std::visit([&](auto& source) { source.name = name; }, shape);
  return shape;
}

SceneSource load_scatter(const std::string& name, const SceneTimes& times, const SceneLoading& loading) {
  ScatterFile file = read_scatter(name);
  SceneSource scene;
  if (!file.ground.empty()) append_scene(scene, load_ground(name, file, times, loading));
  BundleSource& bundle = scene.bundles.emplace_back();
  const auto first_shape = static_cast<uint>(scene.shapes.size());
  for (std::size_t k = 0; k < file.geometries.size(); ++k)
    scene.shapes.push_back(load_named(name, "geometry " + std::to_string(k),
                                      [&] { return load_instanced_shape(file.geometries[k], times); }));
  for (const uint geometry : file.instance_geometries) bundle.shapes.push_back(first_shape + geometry);
  bundle.matrices = std::move(file.matrices);
  ObjectSource object{std::filesystem::path(name).stem().string()};
  object.bundle = static_cast<uint>(scene.bundles.size() - 1);
  if (file.sway_degrees > 0.0) {
    const std::vector<double> degrees(bundle.matrices.size(), file.sway_degrees);
    bundle.motion = make_sway(bundle.matrices, degrees, {file.sway_period, 0.0});
    object.is_animated = true;
  }
  scene.objects.push_back(std::move(object));
  return scene;
}
