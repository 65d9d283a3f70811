#include "tools/vqgas/mesh_load.h"

#include "tools/vqgas/demo_scenes.h"
#include "tools/vqgas/input_error.h"
#include "tools/vqgas/mesh_import.h"

MeshSource load_mesh(const std::string& name) {
  constexpr std::string_view prefix = "demo:";
  if (name.starts_with(prefix)) return make_demo_scene(name.substr(prefix.size()));
  return import_mesh(name);
}

MeshSource load_meshes(const std::vector<std::string>& names) {
  if (names.size() == 1) return load_mesh(names.front());
  MeshBuilder builder;
  for (const std::string& name : names) {
    if (!builder.append(load_mesh(name)))
      throw InputError(name, "moves at other sample times than the files before it");
  }
  return builder.finish();
}
