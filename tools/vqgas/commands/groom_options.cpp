#include "tools/vqgas/commands/option_groups.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"

Subcommand add_groom(CLI::App& app) {
  const auto shared = std::make_shared<GroomOptions>();
  GroomOptions& options = *shared;
  GroomSettings& settings = options.settings;
  CLI::App* command = app.add_subcommand("groom", "Grow fur on a mesh and write it as a hair file");
  command->add_option("MESH", options.file, "Scene or mesh file, or built-in scene, at rest")->required();
  command->add_option("-o,--output", options.output, "Hair file, of the cyHair format")
      ->required()
      ->type_name("NAME.hair");
  CLI::Option* count = command->add_option("--strands", settings.curves, "How many strands, whatever the mesh's size")
                           ->capture_default_str()
                           ->check(is_whole_within(1, 0xFFFFFFFF));
  command->add_option("--density", options.density, "Instead: strands per unit of area, in the mesh's own units")
      ->check(is_positive_number())
      ->excludes(count);
  const auto add_number = [&](const char* name, auto& value, const char* help, double low, double high) {
    command->add_option(name, value, help)->capture_default_str()->check(is_number_within(low, high));
  };
  const auto add_whole = [&](const char* name, uint& value, const char* help, u64 low, u64 high) {
    command->add_option(name, value, help)->capture_default_str()->check(is_whole_within(low, high));
  };
  add_number("--length", settings.length, "Of the longest strands, in diagonals of the mesh's box", 0.0, 1000.0);
  add_number("--thickness", settings.thickness, "Diameter at the root, in diagonals; tips have a tenth", 0.0, 1000.0);
  add_whole("--points", settings.points, "Points of each strand; the segments between are one less", 2, 65536);
  add_number("--curl", settings.curl, "Windings: 0 none, 1 tight locks", 0.0, 100.0);
  add_number("--lean", settings.lean, "How far neighbors bend to the same side", 0.0, 100.0);
  add_number("--gravity", settings.gravity, "How far strands hang down, towards -y", -100.0, 100.0);
  add_number("--clump", settings.clump, "How far tufts draw together: 0 not at all, 1 in a point", 0.0, 1.0);
  add_whole("--seed", settings.seed, "Of the random numbers", 0, 0xFFFFFFFF);
  command->add_flag("--flip", settings.is_flipped, "Grow against the normals: for meshes that are wound inside out");
  add_common_options(*command, options, "Write a report as JSON; - is standard output");
  command->footer(
      "Roots are spread evenly over the area. The same call writes the same bytes for any number of threads.\n"
      "Example:\n  vqgas groom bunny.obj -o fur.hair --strands 200000 --length 0.04 --curl 0.5 --seed 7\n"
      "  vqgas render bunny.obj fur.hair -o furry.png");
  const auto check = [shared] {
    if (get_extension(shared->output) != ".hair")
      throw UsageError("-o: '" + shared->output + "' does not end in .hair");
  };
  return {command, check, [shared] { run_groom(*shared); }};
}
