#include "tools/vqgas/demo/demo_scenes.h"

#include "tools/vqgas/support/input_error.h"

namespace {

struct DemoScene {
  const char* name;
  SceneSource (*make)(OfApp* application);
};

template <MeshSource (*make)()>
SceneSource make_mesh_scene(OfApp* /*application*/) {
  SceneSource scene;
  scene.add_object("", make());
  return scene;
}

template <SceneSource (*make)()>
SceneSource make_small_scene(OfApp* /*application*/) {
  return make();
}

constexpr DemoScene scenes[] = {{"gallery", make_mesh_scene<make_demo_gallery>},
                                {"knot", make_mesh_scene<make_demo_knot>},
                                {"terrain", make_mesh_scene<make_demo_terrain>},
                                {"cliffs", make_small_scene<make_demo_cliffs>},
                                {"wave", make_mesh_scene<make_demo_wave>},
                                {"jelly", make_mesh_scene<make_demo_jelly>},
                                {"fur", make_small_scene<make_demo_fur>},
                                {"strands", make_small_scene<make_demo_strands>},
                                {"wind", make_small_scene<make_demo_wind>},
                                {"mills", make_small_scene<make_demo_mills>},
                                {"snow", make_small_scene<make_demo_snow>},
                                {"forest", make_small_scene<make_demo_forest>},
                                {"galaxy", make_demo_galaxy},
                                {"amphora", make_mesh_scene<make_demo_amphora>}};

}  // namespace

SceneSource make_demo_scene(const std::string& name, OfApp* application) {
  for (const DemoScene& scene : scenes) {
    if (name == scene.name) return scene.make(application);
  }
  throw InputError("demo:" + name, "no such scene; there are " + list_demo_scenes());
}

std::string list_demo_scenes() {
  std::string list;
  for (const DemoScene& scene : scenes) list += (list.empty() ? "" : ", ") + std::string(scene.name);
  return list;
}
