// tools/vqgas/commands/select_command.cpp
#include <algorithm>
#include <cstdio>
#include <limits>

#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/commands/json_text.h"
#include "tools/vqgas/import/point_write.h"
#include "tools/vqgas/render/render.h"
#include "tools/vqgas/render/select_picture.h"
#include "tools/vqgas/support/csv_field.h"
#include "tools/vqgas/support/held_messages.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/number_list.h"
#include "tools/vqgas/support/output_file.h"
#include "tools/vqgas/support/progress_display.h"

namespace {

Selection select(const QueryScene& scene, const SelectOptions& options, const Camera& camera) {
  GeometryFrustumCtx query;
  query.mode = static_cast<uint>(options.mode == GeometryFrustumMode::all ? options.mode : GeometryFrustumMode::any);
  if (options.box) {
    set_box_frustum(*options.box, query);
  } else {
    set_camera_frustum(CameraRays(camera, options.width, options.height), options.get_rect(), options.near, options.far,
                       query);
  }
  CtxShader shader;
  scene.find_in_frustum(shader, query);
  Selection selection{options.has_points(), query.get_objects(), {}};
  std::sort(selection.objects.begin(), selection.objects.end());
  if (!selection.has_points) return selection;
  std::erase_if(selection.objects, [&](uint object) {
    throw_if_interrupted();
    const std::vector<ScenePoint> found = scene.list_points(shader, query, object);
    selection.points.insert(selection.points.end(), found.begin(), found.end());
    return found.empty();
  });
  return selection;
}

const char* get_name(const QueryScene& scene, uint object) {
  return scene.get_objects().objects[object]->get_name().get_data();
}

std::string print_objects(const QueryScene& scene, const std::vector<uint>& objects) {
  std::string text = "object,name\n";
  for (const uint object : objects)
    text += std::to_string(object) + "," + print_csv_field(get_name(scene, object)) + "\n";
  return text;
}

std::string print_points(const std::vector<ScenePoint>& points, bool has_numbers) {
  std::string text = has_numbers ? "object,point,x,y,z\n" : "x,y,z\n";
  for (const ScenePoint& point : points) {
    if (has_numbers) text += std::to_string(point.object) + "," + std::to_string(point.point) + ",";
    const GMathVec3<double>& p = point.position;
    text += print_number(p.x) + "," + print_number(p.y) + "," + print_number(p.z) + "\n";
  }
  return text;
}

std::string print_json(const SelectOptions& options, const QueryScene& scene, const Camera& camera,
                       const Selection& selection) {
  nlohmann::ordered_json report = begin_report("select");
  report["files"] = options.files;
  if (!options.box) report["camera"] = print_camera(camera);
  report["mode"] = select_mode_names[static_cast<uint>(options.mode)];
  report["objects"] = scene.get_objects().objects.size();
  report["selected"] = nlohmann::ordered_json::array();
  for (const uint object : selection.objects)
    report["selected"].push_back({{"object", object}, {"name", get_name(scene, object)}});
  if (selection.has_points) report["points"] = nlohmann::ordered_json::array();
  for (const ScenePoint& point : selection.points)
    report["points"].push_back({{"object", point.object},
                                {"point", point.point},
                                {"position", {point.position.x, point.position.y, point.position.z}}});
  return print_json_text(report);
}

PointRows make_rows(const QueryScene& scene, const Selection& selection) {
  PointRows rows;
  for (uint object = 0; object < scene.get_objects().objects.size(); ++object)
    rows.object_names.emplace_back(get_name(scene, object));
  rows.rows.reserve(selection.points.size());
  for (const ScenePoint& point : selection.points)
    rows.rows.push_back({GMathVec3<float>(point.position), point.object, point.point,
                         point.cloud->colors.empty() ? core_invalid_index : point.cloud->colors[point.point]});
  return rows;
}

ScreenImage draw(const SelectOptions& options, const QueryScene& scene, const Camera& camera,
                 const Selection& selection) {
  RenderSettings settings;
  settings.width = options.width;
  settings.height = options.height;
  settings.layers = {Layer::object, Layer::normal, Layer::point};
  settings.camera = camera;
  AppProgressBar* progress = scene.get_application().create_progress_bar("Render");
  RayCounts counts;
  const Picture picture = render_picture(scene, settings, progress, counts);
  progress->finish();
  const std::optional<PictureRect> rect = options.box ? std::nullopt : std::optional(options.get_rect());
  return make_select_picture(picture, camera, selection, rect);
}

bool is_picture(const std::string& output) { return get_extension(output) == ".png"; }

void write_outputs(const SelectOptions& options, const QueryScene& scene, const Camera& camera,
                   const Selection& selection) {
  std::optional<ScreenImage> image;
  std::optional<PointRows> rows;
  for (const std::string& output : options.outputs) {
    if (is_picture(output)) {
      if (!image) image = draw(options, scene, camera, selection);
      write_png(output, *image);
    } else {
      if (!rows) rows = make_rows(scene, selection);
      write_points(output, *rows);
    }
  }
}

}  // namespace

PictureRect SelectOptions::get_rect() const {
  return rect.value_or(PictureRect{0.0, 0.0, static_cast<double>(width), static_cast<double>(height)});
}

void run_select(const SelectOptions& options) {
  std::vector<std::string> outputs = options.outputs;
  outputs.push_back(options.json);
  check_outputs(outputs, list_inputs(options, options.files));
  StoppableApplication application(options.threads);
  ProgressDisplay display(application, !options.quiet);
  HeldMessages messages;
  const SceneTimes times{options.frame, options.frame, {}, options.frames_per_second};
  SceneSource source = load_scene(options, options.files, times, application);
  check_effects(options.shapes, source);
  const QueryScene scene(application, std::move(source), options.shapes, options.frame);
  if (!options.quiet) messages.release();
  const Camera camera = options.choose_camera(scene.get_tight_boxes());
  const Selection selection = select(scene, options, camera);
  write_outputs(options, scene, camera, selection);
  if (!options.json.empty()) write_text_file(options.json, print_json(options, scene, camera, selection));
  if (!options.quiet && std::any_of(options.outputs.begin(), options.outputs.end(), is_picture))
    std::fprintf(stderr, "--camera %s\n", print_camera(camera).c_str());
  if (options.json == "-") return;
  const bool are_points_written = !std::all_of(options.outputs.begin(), options.outputs.end(), is_picture);
  if (!selection.has_points || are_points_written) {
    write_text_file("-", print_objects(scene, selection.objects));
  } else {
    write_text_file("-", print_points(selection.points, options.mode == GeometryFrustumMode::vertices));
  }
}
