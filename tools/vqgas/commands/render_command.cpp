// tools/vqgas/commands/render_command.cpp
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <numeric>

#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/commands/json_text.h"
#include "tools/vqgas/image/image_exr.h"
#include "tools/vqgas/image/layer_display.h"
#include "tools/vqgas/render/grid_parts.h"
#include "tools/vqgas/render/render.h"
#include "tools/vqgas/support/held_messages.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/output_file.h"
#include "tools/vqgas/support/progress_display.h"
#include "tools/vqgas/support/quote.h"

namespace {

SceneTimes get_times(const RenderOptions& options) {
  const double frame = options.frame.value_or(0.0);
  const Shutter shutter = options.shutter.value_or(Shutter());
  return {frame + shutter.open, frame + shutter.close, options.motion_samples, options.frames_per_second};
}

RenderSettings make_settings(const RenderOptions& options, const SceneTimes& times, const QueryScene& scene) {
  RenderSettings settings;
  settings.width = options.width;
  settings.height = options.height;
  settings.samples = options.samples;
  settings.layers = options.layers;
  settings.has_floor = options.has_floor;
  settings.point_size = options.point_size;
  settings.shutter_open = times.open;
  settings.shutter_close = times.close;
  settings.camera = options.choose_camera(scene.get_tight_boxes());
  return settings;
}

/// NAME.png for beauty, or for a single layer; NAME.LAYER.png for the others.
std::string get_png_name(const std::string& name, Layer layer, bool is_single) {
  if (layer == Layer::beauty || is_single) return name;
  return name.substr(0, name.size() - 3) + get_layer_name(layer) + ".png";
}

/// A picture file: all layers (EXR), or one (PNG).
struct PictureFile {
  std::string name;
  std::optional<Layer> layer;
};

std::vector<PictureFile> list_picture_files(const RenderOptions& options) {
  std::vector<PictureFile> files;
  for (const std::string& name : options.outputs) {
    if (get_extension(name) == ".exr") {
      files.push_back({name, std::nullopt});
      continue;
    }
    for (const Layer layer : options.layers)
      files.push_back({get_png_name(name, layer, options.layers.size() == 1), layer});
  }
  return files;
}

void check_render_outputs(const RenderOptions& options, const std::vector<PictureFile>& pictures) {
  std::vector<std::string> outputs = {options.json};
  for (const PictureFile& file : pictures) outputs.push_back(file.name);
  check_outputs(outputs, list_inputs(options, options.files));
}

void write_pictures(const std::vector<PictureFile>& files, const Picture& picture, const QueryScene& scene,
                    bool has_legend) {
  for (const PictureFile& file : files) {
    if (!file.layer) {
      write_exr(file.name, picture);
      continue;
    }
    const PictureLayer& layer = *picture.find(*file.layer);
    write_png(file.name, make_screen_image(picture, layer, scene.get_group_colors(), scene.has_hair(), has_legend));
  }
}

/// Mean number of nodes and leaves that a ray of the layer heat visits.
struct MeanVisits {
  double nodes = 0.0, leaves = 0.0;
  explicit MeanVisits(const PictureLayer& heat)
      : nodes(get_mean(heat.channels[0])), leaves(get_mean(heat.channels[1])) {}
  static double get_mean(const PictureChannel& channel) {
    return std::accumulate(channel.values.begin(), channel.values.end(), 0.0) / double(channel.values.size());
  }
};

/// The picture and how it came about, without the overview.
struct RenderResult {
  Picture picture;
  RayCounts rays;
  double seconds = 0.0;
  GridPartCounts grid;
  DisplacedMemory displaced;
};

RenderResult render(const QueryScene& scene, const RenderSettings& settings) {
  AppProgressBar* progress = scene.get_application().create_progress_bar("Render");
  RayCounts rays;
  const auto begin = std::chrono::steady_clock::now();
  Picture picture = render_picture(scene, settings, progress, rays);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  progress->finish();
  return {std::move(picture), rays, seconds, count_grid_parts(scene), scene.get_displaced_memory()};
}

/// Replaces the layer parts by one seen from the camera of the overview.
void render_overview(const ViewOptions& overview, const QueryScene& scene, RenderSettings settings, GridParts& parts,
                     Picture& picture) {
  parts.hide_unbuilt();
  settings.layers = {Layer::parts};
  settings.camera = overview.choose_camera(scene.get_tight_boxes());
  *picture.find(Layer::parts) = *render(scene, settings).picture.find(Layer::parts);
}

nlohmann::ordered_json make_report(const RenderOptions& options, const SceneTimes& times, const QueryScene& scene,
                                   const RenderResult& result, const std::vector<PictureFile>& written,
                                   const Camera& camera) {
  const RayCounts& rays = result.rays;
  nlohmann::ordered_json report = begin_report("render");
  report["files"] = options.files;
  report["objects"] = scene.get_objects().objects.size();
  report["primitives"] = scene.get_primitive_count();
  report["kept"] = scene.get_kept_count();
  report["threads"] = scene.get_application().get_thread_count();
  report["build_seconds"] = scene.get_build_seconds();
  report["picture"] = {{"width", options.width}, {"height", options.height}, {"samples", options.samples}};
  report["camera"] = print_camera(camera);
  for (const Layer layer : options.layers) report["layers"].push_back(get_layer_name(layer));
  report["render_seconds"] = result.seconds;
  report["rays"] = {
      {"camera", rays.camera}, {"shadow", rays.shadow}, {"ambient", rays.ambient}, {"all_hits", rays.all_hits}};
  if (rays.beams > 0) report["beams"] = rays.beams;
  report["mrays_per_second"] = result.seconds > 0.0 ? 1e-6 * double(rays.get_sum()) / result.seconds : 0.0;
  if (const PictureLayer* heat = result.picture.find(Layer::heat)) {
    const MeanVisits visits(*heat);
    report["visits_per_ray"] = {{"nodes", visits.nodes}, {"leaves", visits.leaves}};
  }
  if (result.grid.parts > 0) report["grid"] = {{"parts", result.grid.parts}, {"built", result.grid.built}};
  if (const DisplacedMemory& memory = result.displaced; memory.micro_triangles > 0) {
    report["displaced"] = {{"micro_triangles", memory.micro_triangles},
                           {"cache_bytes", memory.cache_bytes},
                           {"peak_cache_bytes", memory.peak_cache_bytes},
                           {"cache_limit_bytes", memory.cache_limit}};
  }
  if (const CtxMotionBlur* motion_blur = scene.get_motion_blur()) {
    report["shutter"] = {times.open, times.close};
    report["motion_samples"] = motion_blur->get_sample_count();
  }
  for (const PictureFile& file : written) report["written"].push_back(file.name);
  return report;
}

bool has_layer(const RenderOptions& options, Layer layer) {
  return std::find(options.layers.begin(), options.layers.end(), layer) != options.layers.end();
}

bool has_grid(const SceneSource& source, const ShapeSettings& settings) {
  return std::any_of(source.shapes.begin(), source.shapes.end(), [&](const ShapeSource& shape) {
    const MeshSource* mesh = std::get_if<MeshSource>(&shape);
    return mesh != nullptr && settings.choose_structure(*mesh) == MeshStructure::grid;
  });
}

void print_summary(const RenderOptions& options, const QueryScene& scene, const RenderResult& result) {
  const RayCounts& rays = result.rays;
  const char* kind = rays.beams == 0 ? "rays" : rays.get_sum() == 0 ? "beams" : "queries";
  const double million = 1e-6 * double(rays.get_sum() + rays.beams);
  std::printf("%u x %u pixels, %.2f million %s in %.2f s (%.2f M%s/s on %u threads), structure built in %.2f s\n",
              options.width, options.height, million, kind, result.seconds, million / result.seconds, kind,
              scene.get_application().get_thread_count(), scene.get_build_seconds());
  if (const PictureLayer* heat = result.picture.find(Layer::heat)) {
    const MeanVisits visits(*heat);
    std::printf("heat: %.1f nodes and %.1f leaves visited per ray\n", visits.nodes, visits.leaves);
  }
  if (result.grid.parts > 0) std::printf("grid: built %u of %u parts\n", result.grid.built, result.grid.parts);
  if (const DisplacedMemory& memory = result.displaced; memory.micro_triangles > 0)
    std::printf("displaced: %.2f million micro-triangles, %.2f MB of them cached, %.2f MB at most, limit %.0f MB\n",
                1e-6 * static_cast<double>(memory.micro_triangles), 1e-6 * static_cast<double>(memory.cache_bytes),
                1e-6 * static_cast<double>(memory.peak_cache_bytes), 1e-6 * static_cast<double>(memory.cache_limit));
}

/// Renders one picture. Returns its camera.
Camera render_frame(const RenderOptions& options) {
  const std::vector<PictureFile> files = list_picture_files(options);
  check_render_outputs(options, files);
  const SceneTimes times = get_times(options);
  StoppableApplication application(options.threads);
  ProgressDisplay display(application, !options.quiet);
  SceneSource source = load_scene(options, options.files, times, application);
  check_effects(options.shapes, source);
  if (options.point_size > 0.0 && source.clouds.empty()) throw UsageError("--point-size: there are no points");
  for (const SceneFile& file : source.files) {
    if (!options.quiet && !file.notes.not_shown.empty())
      std::fprintf(stderr, "vqgas: %s: %s of the file are not shown\n", file.name.c_str(),
                   join_words(file.notes.not_shown).c_str());
  }
  for (ShapeSource& shape : source.shapes) {
    MeshSource* mesh = std::get_if<MeshSource>(&shape);
    if (mesh != nullptr && !mesh->displacement) complete_normals(mesh->data, crease_degrees);
  }
  if (has_layer(options, Layer::parts) && !has_grid(source, options.shapes))
    throw UsageError("--layers parts: needs meshes on a grid; add --structure grid");
  HeldMessages messages;
  ShapeSettings shapes = options.shapes;
  const auto counts = std::count(options.layers.begin(), options.layers.end(), Layer::count);
  shapes.hair.has_all_hits_queries = counts > 0;
  shapes.hair.has_nearest_queries = std::ssize(options.layers) > counts;
  QueryScene scene(application, std::move(source), shapes, times.open);
  if (!options.quiet) messages.release();
  if (options.frame || options.shutter) {
    scene.set_shutter(times);
    scene.get_bbox();  // refits moving structures before the rays are timed
  }

  RenderSettings settings = make_settings(options, times, scene);
  std::optional<GridParts> parts;
  if (has_layer(options, Layer::parts)) settings.parts = &parts.emplace(scene);
  display.set_unit("pixels");
  RenderResult result = render(scene, settings);
  if (options.overview) render_overview(*options.overview, scene, settings, *parts, result.picture);

  write_pictures(files, result.picture, scene, options.has_legend);
  if (!options.json.empty()) {
    const nlohmann::ordered_json report = make_report(options, times, scene, result, files, settings.camera);
    write_text_file(options.json, print_json_text(report));
  }
  if (options.quiet || options.json == "-") return settings.camera;
  throw_if_interrupted();
  for (const PictureFile& file : files) std::printf("%s\n", file.name.c_str());
  print_summary(options, scene, result);
  std::printf("--camera %s\n", print_camera(settings.camera).c_str());
  return settings.camera;
}

/// The options of one frame of a sequence: its number stands before the extension of each output.
RenderOptions choose_frame(const RenderOptions& options, uint frame) {
  char number[16];
  std::snprintf(number, sizeof(number), ".%04u", frame);
  RenderOptions chosen = options;
  chosen.frame = frame;
  for (std::string& name : chosen.outputs) name.insert(name.rfind('.'), number);
  return chosen;
}

}  // namespace

void run_render(const RenderOptions& options) {
  if (!options.frames) {
    render_frame(options);
    return;
  }
  for (uint frame = options.frames->first; frame <= options.frames->last; ++frame)  // all names, before any work
    check_render_outputs(choose_frame(options, frame), list_picture_files(choose_frame(options, frame)));
  std::optional<Camera> camera = options.camera;
  for (uint frame = options.frames->first; frame <= options.frames->last; ++frame) {
    RenderOptions chosen = choose_frame(options, frame);
    chosen.camera = camera;
    camera = render_frame(chosen);
  }
}
