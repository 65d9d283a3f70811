#include "tools/vqgas/demo_scenes.h"

#include "tools/vqgas/input_error.h"

namespace {

struct DemoScene {
  const char* name;
  MeshSource (*make)();
};

constexpr DemoScene scenes[] = {{"gallery", make_demo_gallery},
                                {"knot", make_demo_knot},
                                {"terrain", make_demo_terrain},
                                {"wave", make_demo_wave},
                                {"jelly", make_demo_jelly}};

}  // namespace

MeshSource make_demo_scene(const std::string& name) {
  for (const DemoScene& scene : scenes) {
    if (name == scene.name) return scene.make();
  }
  throw InputError("demo:" + name, "no such scene; there are " + list_demo_scenes());
}

std::string list_demo_scenes() {
  std::string list;
  for (const DemoScene& scene : scenes) list += (list.empty() ? "" : ", ") + std::string(scene.name);
  return list;
}
