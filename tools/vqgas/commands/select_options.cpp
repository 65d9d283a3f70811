#include <algorithm>
#include <cmath>

#include "tools/vqgas/commands/option_groups.h"
#include "tools/vqgas/import/point_write.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/number_list.h"

namespace {

/// Options, and those that are still to be read from text.
struct SelectCall {
  SelectOptions options;
  ViewTexts view;
  std::string mode = "any", rect, box;
};

void read_rect(const std::string& text, SelectOptions& options) {
  const std::vector<double> v = parse_numbers(text, ',');
  const bool valid = v.size() == 4 && std::isfinite(v[0] + v[1] + v[2] + v[3]) && v[0] < v[2] && v[1] < v[3];
  if (!valid) throw UsageError("--rect: '" + text + "' is not LEFT,TOP,RIGHT,BOTTOM with a width and a height");
  options.rect = PictureRect{v[0], v[1], v[2], v[3]};
}

void read_box(const std::string& text, SelectOptions& options) {
  std::string numbers = text;
  std::replace(numbers.begin(), numbers.end(), '/', ',');
  const std::vector<double> v = parse_numbers(numbers, ',');
  bool valid = v.size() == 6;
  for (std::size_t axis = 0; valid && axis < 3; ++axis)
    valid = std::isfinite(v[axis]) && std::isfinite(v[axis + 3]) && v[axis] <= v[axis + 3];
  if (!valid) throw UsageError("--box: '" + text + "' is not x,y,z/x,y,z, the lower corner first");
  options.box = GMathBbox3<double>({v[0], v[1], v[2]}, {v[3], v[4], v[5]});
}

void complete_select(const CLI::App& command, SelectCall& call) {
  SelectOptions& options = call.options;
  complete_view(command, call.view, options);
  const auto mode = std::ranges::find(select_mode_names, call.mode);
  options.mode = static_cast<GeometryFrustumMode>(mode - select_mode_names.begin());
  if (!call.rect.empty()) read_rect(call.rect, options);
  if (!call.box.empty()) read_box(call.box, options);
  if (!(options.near <= options.far)) throw UsageError("--near and --far: nothing lies between them");
  for (const std::string& output : options.outputs) {
    if (get_extension(output) == ".png") continue;
    if (!is_point_output(output)) throw UsageError("-o: '" + output + "' ends in none of .png, .csv and .ply");
    if (!options.has_points()) throw UsageError("-o: '" + output + "' needs --mode points or vertices");
  }
}

}  // namespace

Subcommand add_select(CLI::App& app) {
  const auto call = std::make_shared<SelectCall>();
  SelectOptions& options = call->options;
  CLI::App* command = app.add_subcommand("select",
                                         "List the scene's objects or points in a rectangle of a picture, or in a box, "
                                         "as CSV with the header\nobject,name");
  command->add_option("FILE", options.files, get_file_help())->required();
  command
      ->add_option(
          "--mode", call->mode,
          "any: objects that the space touches; all: those that lie wholly in it; of clouds: those with any, or "
          "all points in it. points: the points of clouds in it, as x,y,z; vertices: as object,point,x,y,z")
      ->capture_default_str()
      ->check(CLI::IsMember(std::vector<std::string>(select_mode_names.begin(), select_mode_names.end())));
  CLI::Option* rect =
      command->add_option("--rect", call->rect, "Rectangle of the picture, in pixels; without it the whole picture")
          ->type_name("LEFT,TOP,RIGHT,BOTTOM");
  CLI::Option* near =
      command->add_option("--near", options.near, "Nothing less deep than this along the view")->capture_default_str();
  CLI::Option* far = command->add_option("--far", options.far, "Nothing deeper than this along the view");
  command->add_option("--box", call->box, "Instead of a rectangle: a box in space")
      ->type_name("x,y,z/x,y,z")
      ->excludes(rect)
      ->excludes(near)
      ->excludes(far);
  add_view_options(*command, options, call->view);
  command
      ->add_option(
          "-o,--output", options.outputs,
          "NAME.png: picture that shows what was selected; NAME.csv or NAME.ply: the selected points with their "
          "colors, which are then not listed. Repeatable")
      ->allow_extra_args(false)
      ->type_name("NAME");
  add_frame_option(*command, options.frame);
  add_scene_options(*command, options);
  add_shape_options(*command, options.shapes);
  add_displace_options(*command, options.displace);
  add_common_options(*command, options, "Write the list as JSON as well; - is standard output, instead of CSV");
  command->footer(
      "Objects count from 0 in the order of the files. Deforming shapes of built-in scenes are static.\n"
      "Example:\n  vqgas select scene.glb --rect 100,100,400,300 --mode all -o selected.png\n"
      "  vqgas select scan.ply --box 0,0,0/1,1,1 --mode points -o part.ply -o part.png");
  return {command, [command, call] { complete_select(*command, *call); }, [call] { run_select(call->options); }};
}
