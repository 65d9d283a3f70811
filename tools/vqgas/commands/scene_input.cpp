#include <algorithm>

#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/scene/scene_bundle.h"
#include "tools/vqgas/scene/scene_load.h"
#include "tools/vqgas/support/input_error.h"

SceneSource load_scene(const SceneOptions& options, const std::vector<std::string>& files, const SceneTimes& times,
                       OfApp& application) {
  SceneSource scene = load_scene(files, times, {&application, options.quiet});
  displace_meshes(scene, options.displace);
  if (options.is_bundled) bundle_objects(scene, times.open);
  return scene;
}

std::string print_shape_settings(const ShapeSettings& shapes) {
  std::string text = "--structure default";
  if (shapes.structure) text = *shapes.structure == MeshStructure::grid ? "--structure grid" : "--structure bvh4";
  if (shapes.hair.is_linear) text += " --linear";
  if (shapes.hair.is_aligned_only) text += " --aligned-only";
  return text;
}

void check_effects(const ShapeSettings& shapes, const SceneSource& scene) {
  const bool has_hair = std::ranges::any_of(
      scene.shapes, [](const ShapeSource& shape) { return std::holds_alternative<HairSource>(shape); });
  const bool has_mesh = std::ranges::any_of(
      scene.shapes, [](const ShapeSource& shape) { return std::holds_alternative<MeshSource>(shape); });
  if (shapes.structure && !has_mesh) throw UsageError("--structure: has no effect without a mesh");
  if (shapes.hair.is_linear && !has_hair) throw UsageError("--linear: has no effect without hair");
  if (shapes.hair.is_aligned_only && !has_hair) throw UsageError("--aligned-only: has no effect without hair");
}

std::vector<std::string> list_inputs(const SceneOptions& options, std::vector<std::string> files) {
  if (options.displace.is_file()) files.push_back(options.displace.height);
  return files;
}
