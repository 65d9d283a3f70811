// tools/vqgas/commands/select_command.cpp
#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>

#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/render/render.h"
#include "tools/vqgas/render/select_picture.h"
#include "tools/vqgas/scene/scene_bundle.h"
#include "tools/vqgas/scene/scene_load.h"
#include "tools/vqgas/support/csv_field.h"
#include "tools/vqgas/support/held_messages.h"
#include "tools/vqgas/support/output_file.h"
#include "tools/vqgas/support/progress_display.h"

namespace {

std::vector<uint> select(const QueryScene& scene, const SelectOptions& options, const Camera& camera) {
  GeometryFrustumCtx query;
  query.mode = static_cast<uint>(options.is_all_mode ? GeometryFrustumMode::all : GeometryFrustumMode::any);
  if (options.box) {
    set_box_frustum(*options.box, query);
  } else {
    set_camera_frustum(CameraRays(camera, options.width, options.height), options.get_rect(), options.near, options.far,
                       query);
  }
  CtxShader shader;
  scene.find_in_frustum(shader, query);
  std::vector<uint> objects = query.get_objects();
  std::sort(objects.begin(), objects.end());
  return objects;
}

std::string print_csv(const QueryScene& scene, const std::vector<uint>& selected) {
  std::string text = "object,name\n";
  for (const uint object : selected)
    text += std::to_string(object) + "," + print_csv_field(scene.get_objects().objects[object]->get_name().get_data()) +
            "\n";
  return text;
}

std::string print_json(const SelectOptions& options, const QueryScene& scene, const std::vector<uint>& selected) {
  nlohmann::ordered_json report;
  report["files"] = options.files;
  report["mode"] = options.is_all_mode ? "all" : "any";
  report["objects"] = scene.get_objects().objects.size();
  report["selected"] = nlohmann::ordered_json::array();
  for (const uint object : selected)
    report["selected"].push_back(
        {{"object", object}, {"name", scene.get_objects().objects[object]->get_name().get_data()}});
  return report.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

void write_picture(const SelectOptions& options, const QueryScene& scene, const Camera& camera,
                   const std::vector<uint>& selected) {
  RenderSettings settings;
  settings.width = options.width;
  settings.height = options.height;
  settings.layers = {Layer::object, Layer::normal};
  settings.camera = camera;
  AppProgressBar* progress = scene.get_application().create_progress_bar("Render");
  RayCounts counts;
  const Picture picture = render_picture(scene, settings, progress, counts);
  progress->finish();
  const std::optional<PictureRect> rect = options.box ? std::nullopt : std::optional(options.get_rect());
  write_png(options.output, make_select_picture(picture, camera, selected, rect));
}

}  // namespace

PictureRect SelectOptions::get_rect() const {
  return rect.value_or(PictureRect{0.0, 0.0, static_cast<double>(width), static_cast<double>(height)});
}

void run_select(const SelectOptions& options) {
  check_outputs({options.output, options.json}, list_inputs(options, options.files));
  StoppableApplication application(options.threads);
  ProgressDisplay display(application, is_progress_visible(options.quiet));
  HeldMessages messages;
  const SceneTimes times{options.frame, options.frame, {}, options.frames_per_second};
  SceneSource source = load_scene(options.files, times, {&application, options.quiet});
  displace_meshes(source, options.displace);
  if (options.is_bundled) bundle_objects(source, options.frame);
  const QueryScene scene(application, std::move(source), options.shapes, options.frame);
  if (!options.quiet) messages.release();
  const double aspect = double(options.width) / options.height;
  const Camera camera = options.camera ? *options.camera : frame_boxes(options.view, scene.get_tight_boxes(), aspect);
  const std::vector<uint> selected = select(scene, options, camera);
  if (!options.output.empty()) write_picture(options, scene, camera, selected);
  if (!options.json.empty()) write_text_file(options.json, print_json(options, scene, selected));
  if (options.json != "-") write_text_file("-", print_csv(scene, selected));
}
