#include <algorithm>

#include "tools/vqgas/commands/option_groups.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"

namespace {

/// Options, and those that are still to be read from text.
struct CompareCall {
  CompareOptions options;
  ViewTexts view;
  std::string with;
};

/// The settings of A, changed by the options of the text.
ShapeSettings read_other_shapes(const std::string& text, const ShapeSettings& shapes) {
  ShapeSettings other = shapes;
  CLI::App parser;
  add_shape_options(parser, other);
  try {
    parser.parse(text);
  } catch (const CLI::ParseError& error) {
    throw UsageError("--with: '" + text + "': " + error.what());
  }
  return other;
}

void complete_compare(const CLI::App& command, CompareCall& call) {
  CompareOptions& options = call.options;
  complete_view(command, call.view, options);
  if (options.second.empty()) options.second = options.first;
  options.other_shapes = read_other_shapes(call.with, options.shapes);
  if (!options.output.empty() && get_extension(options.output) != ".png")
    throw UsageError("-o: '" + options.output + "' does not end in .png");
}

}  // namespace

Subcommand add_compare(CLI::App& app) {
  const auto call = std::make_shared<CompareCall>();
  CompareOptions& options = call->options;
  CLI::App* command = app.add_subcommand(
      "compare", "Trace the same rays through two files, or one file with two settings, and compare hits and cost");
  command->add_option("A", options.first, get_file_help())->required();
  command->add_option("B", options.second, "The other file; without it A, with the options of --with");
  command
      ->add_option("--with", call->with,
                   "Options of B's structures in one text, such as \"--structure grid\": --structure, --linear and "
                   "--aligned-only. The others are those of A")
      ->type_name("OPTIONS");
  command->add_option("-o,--output", options.output, "NAME.png: how the rays of the picture agree, a color each")
      ->type_name("NAME");
  command->add_option("--rays", options.rays, "Random rays between points of the box around both")
      ->capture_default_str()
      ->check(is_whole_within(0, 100000000));
  command->add_option("--seed", options.seed, "Of the random rays")->capture_default_str();
  command
      ->add_option("--tolerance", options.tolerance,
                   "Distances are the same up to this fraction of the diagonal of the box around both")
      ->capture_default_str()
      ->check(is_number_within(0.0, 1.0));
  add_view_options(*command, options, call->view);
  add_frame_option(*command, options.frame);
  add_scene_options(*command, options);
  add_shape_options(*command, options.shapes);
  add_displace_options(*command, options.displace);
  add_common_options(*command, options, "Write a report as JSON; - is standard output, instead of the table");
  command->footer(
      "Points are left out. The rates are those of a second run, when a grid has built the parts that rays reach.\n"
      "Example:\n  vqgas compare bunny.obj --with \"--structure grid\"\n"
      "  vqgas compare bunny.obj bunny.ply -o difference.png");
  return {command, [command, call] { complete_compare(*command, *call); }, [call] { run_compare(call->options); }};
}
