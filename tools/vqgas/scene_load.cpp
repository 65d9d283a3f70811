#include "tools/vqgas/scene_load.h"

#include <tuple>
#include <utility>

#include "tools/vqgas/demo_scenes.h"
#include "tools/vqgas/hair_file.h"
#include "tools/vqgas/input_error.h"
#include "tools/vqgas/mesh_import.h"

namespace {

SceneSource load_file(const std::string& name) {
  constexpr std::string_view prefix = "demo:";
  SceneSource source;
  if (name.starts_with(prefix)) return make_demo_scene(name.substr(prefix.size()));
  if (is_hair_file(name)) {
    source.hairs.push_back(read_hair(name));
  } else {
    source.mesh = import_mesh(name);
  }
  return source;
}

/// Begin, step and number of motion samples.
using SampleTimes = std::tuple<double, double, std::size_t>;

}  // namespace

SceneSource load_scene(const std::vector<std::string>& names) {
  SceneSource scene;
  std::vector<MeshSource> meshes;
  std::optional<SampleTimes> times;  // of what moves
  const auto fits = [&](const auto& data, std::size_t samples) {
    if (samples == 0) return true;
    const SampleTimes own(data.motion_begin, data.motion_step, samples);
    if (!times) times = own;
    return own == *times;
  };
  for (const std::string& name : names) {
    SceneSource file = load_file(name);
    bool is_sound = true;
    if (file.mesh) {
      file.mesh->name = name;
      is_sound = fits(file.mesh->data, file.mesh->data.motion_positions.size());
      meshes.push_back(std::move(*file.mesh));
    }
    for (HairSource& hair : file.hairs) {
      hair.name = name;
      is_sound = is_sound && fits(hair.data, hair.data.motion_points.size());
      scene.hairs.push_back(std::move(hair));
    }
    if (!is_sound) throw InputError(name, "moves at other sample times than the files before it");
  }
  if (meshes.size() == 1) scene.mesh = std::move(meshes.front());
  if (meshes.size() < 2) return scene;
  MeshBuilder builder;
  const std::string first_name = meshes.front().name;
  for (MeshSource& mesh : meshes) builder.append(std::exchange(mesh, {}));
  scene.mesh = builder.finish();
  scene.mesh->name = first_name;
  return scene;
}
