#include <algorithm>
#include <cmath>

#include "tools/vqgas/commands/option_groups.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/number_list.h"

namespace {

/// Options, and those that are still to be read from text.
struct UvCall {
  UvOptions options;
  std::string projection, coloring = "geometry";
  std::vector<std::string> tiles;
};

UvTile read_tile(const std::string& text) {
  const std::vector<double> v = parse_numbers(text, ',');
  const auto is_valid = [](double value) {
    return std::fabs(value) <= double{most_uv_coordinate} && value == std::floor(value);
  };
  if (v.size() != 2 || !is_valid(v[0]) || !is_valid(v[1]))
    throw UsageError("--tile: '" + text + "' is not U,V in whole numbers");
  UvTile tile;
  tile.u = static_cast<int>(v[0]);
  tile.v = static_cast<int>(v[1]);
  return tile;
}

void complete_uv(UvCall& call) {
  UvOptions& options = call.options;
  if (call.projection == "planar") options.projection = PolyMeshProjection::planar;
  if (call.projection == "cubic") options.projection = PolyMeshProjection::cubic;
  options.coloring = call.coloring == "group" ? UvColoring::group : UvColoring::geometry;
  for (const std::string& text : call.tiles) {
    const UvTile tile = read_tile(text);
    if (std::find(options.tiles.begin(), options.tiles.end(), tile) == options.tiles.end())
      options.tiles.push_back(tile);
  }
  if (options.outputs.empty() && !options.has_info && options.json.empty())
    throw UsageError("uv: needs -o for a picture, or --info or --json for numbers");
  for (const std::string& output : options.outputs) {
    if (get_extension(output) != ".png" && get_extension(output) != ".exr" && get_extension(output) != ".svg")
      throw UsageError("-o: '" + output + "' ends in none of .png, .exr and .svg");
    if (get_extension(output) == ".svg" && !options.background.empty())
      throw UsageError("--background: '" + output + "' has lines only");
  }
}

void add_picture_options(CLI::App& command, UvCall& call) {
  UvOptions& options = call.options;
  command
      .add_option("-o,--output", options.outputs,
                  "NAME.png, NAME.exr or NAME.svg: the layout; of several tiles NAME.1001.png and so on. Repeatable")
      ->allow_extra_args(false)
      ->type_name("NAME");
  command
      .add_option("--tile", call.tiles,
                  "Draw this tile, whose lower left corner is (U, V); repeatable. Without it, all tiles in use")
      ->allow_extra_args(false)
      ->type_name("U,V");
  command.add_option("--size", options.size, "Pixels of a side")
      ->capture_default_str()
      ->check(is_whole_within(1, 16384));
  const auto is_width = [](const std::string& text) {
    const std::vector<double> values = parse_numbers(text, ',');
    return values.size() == 1 && values[0] > 0.0 && values[0] <= 100.0
               ? std::string()
               : "'" + text + "' is not a number of pixels above 0, up to 100";
  };
  command.add_option("--line-width", options.line_width, "Width of lines in pixels")
      ->capture_default_str()
      ->check(CLI::Validator(is_width, ""))
      ->type_name("PX");
  command.add_option("--color", call.coloring, "A color for each geometry, or for each shading group")
      ->capture_default_str()
      ->check(CLI::IsMember({"geometry", "group"}));
  command.add_option("--background", options.background, "Picture below the lines, in each tile; without it, nothing")
      ->type_name("IMAGE.png");
}

}  // namespace

Subcommand add_uv(CLI::App& app) {
  const auto call = std::make_shared<UvCall>();
  UvOptions& options = call->options;
  CLI::App* command = app.add_subcommand("uv", "Draw the UV layout of meshes, and report islands, overlaps and tiles");
  command->add_option("FILE", options.files, get_file_help())->required();
  CLI::Option* map =
      command->add_option("--map", options.map, "The UV map of this name; meshes without it are left out");
  command->add_flag("--first")->description("The first UV map of each mesh, which is the default")->excludes(map);
  command
      ->add_option("--project", call->projection,
                   "Give meshes without UV maps one: along the shortest side of their box, or each polygon along the "
                   "axis nearest to its normal")
      ->check(CLI::IsMember({"planar", "cubic"}));
  add_picture_options(*command, *call);
  command->add_flag("--info", options.has_info,
                    "Print maps, tiles, islands, flipped and overlapping polygons and unused space of each mesh");
  add_common_options(*command, options,
                     "Write the numbers of --info as JSON; - is standard output, instead of the table");
  command->footer(
      "u runs to the right, v upwards. A mesh that several objects show is drawn once.\n"
      "Example:\n  vqgas uv demo:amphora --color group --size 2048 -o layout.png -o layout.svg\n"
      "  vqgas uv scene.glb --map lightmap --background paint.png -o lightmap.png\n  vqgas uv scene.glb --info");
  return {command, [call] { complete_uv(*call); }, [call] { run_uv(call->options); }};
}
