#include <algorithm>
#include <cmath>

#include "tools/vqgas/commands/option_groups.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/number_list.h"

namespace {

/// Options, and those that are still to be read from text.
struct RenderCall {
  RenderOptions options;
  ViewTexts view;
  std::string shutter, frames, overview;
  std::vector<std::string> layers = {"beauty"};
};

void add_picture_options(CLI::App& command, RenderCall& call) {
  RenderOptions& options = call.options;
  command
      .add_option("-o,--output", options.outputs, "NAME.png (one file a layer) or NAME.exr (all layers); repeatable")
      ->required()
      ->allow_extra_args(false)
      ->type_name("NAME");
  add_view_options(command, options, call.view);
  command.add_flag("--legend", options.has_legend,
                   "Add what the colors mean below the pictures of heat, count, motion and instance-depth, which makes "
                   "them higher");
  command.add_option("--samples", options.samples, "Rays per pixel of beauty")
      ->capture_default_str()
      ->check(is_whole_within(1, 65536));
  command.add_option("--layers", call.layers, "Any of " + list_layers())
      ->delimiter(',')
      ->allow_extra_args(false)
      ->capture_default_str()
      ->type_name("LAYER,...");
}

void add_motion_options(CLI::App& command, RenderCall& call) {
  RenderOptions& options = call.options;
  command
      .add_option("--frame", options.frame,
                  "Show the scene at this frame; without it and a shutter, deforming meshes and hair are static")
      ->type_name("F")
      ->check(is_finite_number());
  command
      .add_option("--frames", call.frames,
                  "Render each of these frames, with the camera of the first, to NAME.0001.png and so on")
      ->type_name("FIRST-LAST")
      ->excludes("--frame");
  command
      .add_option("--shutter", call.shutter,
                  "Motion blur between these times, in frames from --frame on (built-in scenes move from 0 to 1)")
      ->type_name("OPEN,CLOSE");
  command
      .add_option("--motion-samples", options.motion_samples,
                  "Samples of motion over the shutter, at least; without it, as many as look smooth")
      ->check(is_whole_within(2, 1024))
      ->type_name("N");
}

void read_layers(const std::vector<std::string>& names, RenderOptions& options) {
  options.layers.clear();
  for (const std::string& name : names) {
    Layer layer;
    if (!find_layer(name, layer)) throw UsageError("--layers: there is no layer '" + name + "'");
    if (std::find(options.layers.begin(), options.layers.end(), layer) == options.layers.end())
      options.layers.push_back(layer);
  }
}

void read_shutter(const std::string& text, RenderOptions& options) {
  const std::vector<double> values = parse_numbers(text, ',');
  const bool valid =
      values.size() == 2 && std::isfinite(values[0]) && std::isfinite(values[1]) && values[0] <= values[1];
  if (!valid) throw UsageError("--shutter: '" + text + "' is not OPEN,CLOSE with OPEN not after CLOSE");
  options.shutter = Shutter{values[0], values[1]};
}

void read_frames(const std::string& text, RenderOptions& options) {
  const std::vector<double> values = parse_numbers(text, '-');
  const auto is_frame = [](double value) { return value >= 0.0 && value <= 999999.0 && value == std::floor(value); };
  if (values.size() != 2 || !is_frame(values[0]) || !is_frame(values[1]) || values[0] > values[1])
    throw UsageError("--frames: '" + text + "' is not FIRST-LAST in whole numbers up to 999999, FIRST not after LAST");
  if (!options.json.empty()) throw UsageError("--frames: has no report; leave --json out");
  options.frames = FrameRange{static_cast<uint>(values[0]), static_cast<uint>(values[1])};
}

void read_overview(const std::string& text, RenderOptions& options) {
  if (std::ranges::find(options.layers, Layer::parts) == options.layers.end())
    throw UsageError("--overview: needs --layers parts");
  ViewOptions& overview = options.overview.emplace(options);
  overview.view = text;
  overview.camera.reset();
  if (text.find('/') == std::string::npos) return;
  overview.camera = parse_camera(text, "--overview");
  overview.camera->up_axis = options.up_axis;
}

/// Options that would change nothing are mistakes.
void check_effects(const CLI::App& command, const RenderOptions& options) {
  const auto has_any = [&](std::initializer_list<Layer> layers) {
    return std::ranges::find_first_of(options.layers, layers) != options.layers.end();
  };
  const auto is_png = [](const std::string& output) { return get_extension(output) == ".png"; };
  for (const char* option : {"--floor", "--samples"})
    if (command.count(option) > 0 && !has_any({Layer::beauty}))
      throw UsageError(std::string(option) + ": has no effect without the layer beauty");
  if (options.motion_samples && !(options.shutter && options.shutter->open < options.shutter->close))
    throw UsageError("--motion-samples: has no effect without --shutter and a time in it");
  if (options.has_legend && std::ranges::none_of(options.outputs, is_png))
    throw UsageError("--legend: has no effect without a PNG picture");
  if (options.has_legend && !has_any({Layer::heat, Layer::count, Layer::motion, Layer::instance_depth}))
    throw UsageError("--legend: has no effect without one of the layers heat, count, motion and instance-depth");
}

void complete_render(const CLI::App& command, RenderCall& call) {
  RenderOptions& options = call.options;
  complete_view(command, call.view, options);
  read_layers(call.layers, options);
  if (!call.overview.empty()) read_overview(call.overview, options);
  if (!call.shutter.empty()) read_shutter(call.shutter, options);
  if (!call.frames.empty()) read_frames(call.frames, options);
  check_effects(command, options);
  for (const std::string& output : options.outputs) {
    if (get_extension(output) != ".png" && get_extension(output) != ".exr")
      throw UsageError("-o: '" + output + "' ends neither in .png nor in .exr");
  }
}

}  // namespace

Subcommand add_render(CLI::App& app) {
  const auto call = std::make_shared<RenderCall>();
  RenderOptions& options = call->options;
  CLI::App* command = app.add_subcommand("render", "Render the files, together, to PNG and EXR pictures");
  command->add_option("FILE", options.files, get_file_help())->required();
  add_picture_options(*command, *call);
  add_motion_options(*command, *call);
  command
      ->add_option("--overview", call->overview,
                   "See the layer parts from this view or camera instead, after the rays of the picture: parts that "
                   "they have not built are gray")
      ->check([](const std::string& text) { return text.find('/') == text.npos ? is_view()(text) : std::string(); })
      ->type_name("VIEW|CAMERA");
  command
      ->add_option("--point-size", options.point_size,
                   "Diameter of points in pixels; without it by their radius, or, if the file has none, as wide as "
                   "closes the gaps between them: 1 to 6 pixels")
      ->check(is_positive_number())
      ->type_name("PX");
  add_scene_options(*command, options);
  command->add_flag("--floor", options.has_floor, "Stand the scene on an endless floor (beauty only)");
  add_shape_options(*command, options.shapes);
  add_displace_options(*command, options.displace);
  add_common_options(*command, options, "Write a report as JSON; - is standard output");
  command->footer(
      "Example:\n  vqgas render bunny.obj --view front --layers beauty,depth,heat -o bunny.png -o bunny.exr\n"
      "  vqgas render demo:wave --shutter 0,0.5 --samples 64 -o wave.png\n"
      "  vqgas render bunny.obj fur.hair --layers beauty,heat -o furry.png");
  return {command, [command, call] { complete_render(*command, *call); }, [call] { run_render(call->options); }};
}
