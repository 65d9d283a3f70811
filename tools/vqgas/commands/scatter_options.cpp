#include <cmath>

#include "tools/vqgas/commands/option_groups.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/number_list.h"

namespace {

/// Options, and those that are still to be read from text.
struct ScatterCall {
  ScatterOptions options;
  std::string scale;
};

void complete_scatter(ScatterCall& call) {
  ScatterOptions& options = call.options;
  const std::string& scale = call.scale;
  if (get_extension(options.output) != ".json") throw UsageError("-o: '" + options.output + "' does not end in .json");
  if (scale.empty()) return;
  const std::vector<double> v = parse_numbers(scale, ',');
  if (v.size() != 2 || !std::isfinite(v[0] + v[1]) || !(v[0] > 0.0) || v[0] > v[1])
    throw UsageError("--scale: '" + scale + "' is not MIN,MAX with MIN above 0 and not above MAX");
  options.placing.least_scale = v[0];
  options.placing.greatest_scale = v[1];
}

}  // namespace

Subcommand add_scatter(CLI::App& app) {
  const auto call = std::make_shared<ScatterCall>();
  ScatterOptions& options = call->options;
  CLI::App* command = app.add_subcommand("scatter", "Place instances on a surface, evenly, and write a scatter file");
  command->add_option("GEOMETRY", options.geometries, "What is placed: mesh, scene and hair files, or built-in scenes")
      ->required();
  command->add_option("--on", options.ground, "The ground: a scene or mesh file, or a built-in scene, at rest")
      ->required()
      ->type_name("GROUND");
  command->add_option("-o,--output", options.output, "Scatter file")->required()->type_name("NAME.json");
  CLI::Option_group* amount = command->add_option_group("Amount");
  amount->add_option("--count", options.count, "How many instances")->check(is_whole_within(1, most_scattered));
  amount->add_option("--density", options.density, "Instead: instances per unit of area, in the ground's own units")
      ->check(is_positive_number());
  amount->require_option(1);
  command->add_option("--seed", options.placing.seed, "Of the random numbers")->capture_default_str();
  command->add_option("--scale", call->scale, "Sizes of the instances, between these")
      ->type_name("MIN,MAX")
      ->default_str("1,1");
  const auto set_align = [&options](const std::string& name) { options.placing.is_aligned = name == "normal"; };
  command->add_option_function<std::string>("--align", set_align, "Where y of an instance points")
      ->check(CLI::IsMember({"normal", "up"}))
      ->default_str("up");
  command->add_option("--jitter", options.placing.tilt_degrees, "Degrees by which instances lean from there, at most")
      ->capture_default_str()
      ->check(is_number_within(0.0, 180.0));
  command->add_option("--sway", options.sway_degrees, "Degrees by which instances sway to each side, in motion")
      ->capture_default_str()
      ->check(is_number_within(0.0, 90.0));
  command->add_option("--period", options.sway_period, "Frames from one side to the other and back")
      ->capture_default_str()
      ->check(is_positive_number());
  add_displacement_options(*command, options.displace, "the ground");
  command->add_flag("--no-ground", options.leaves_ground_out, "Do not name the ground in the file");
  add_common_options(*command, options, "Write a report as JSON; - is standard output");
  command->footer(
      "The origin of each instance stands on the ground; it is turned around its own y at random. "
      "The same call writes\nthe same bytes. All subcommands read the file: the instances are one object of the "
      "scene.\n"
      "Example:\n  vqgas scatter fern.obj tuft.hair --on hill.obj --count 20000 --scale 0.5,1.5 --sway 4 "
      "-o ferns.json\n"
      "  vqgas render ferns.json --shutter 0,2 -o ferns.png");
  return {command, [call] { complete_scatter(*call); }, [call] { run_scatter(call->options); }};
}
