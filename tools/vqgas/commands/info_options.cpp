#include "tools/vqgas/commands/option_groups.h"

Subcommand add_info(CLI::App& app) {
  const auto shared = std::make_shared<InfoOptions>();
  InfoOptions& options = *shared;
  CLI::App* command = app.add_subcommand("info", "Build the structure over each file and report its statistics");
  command->add_option("FILE", options.files, get_file_help())->required();
  add_frame_option(*command, options.frame);
  add_scene_options(*command, options);
  add_shape_options(*command, options.shapes);
  add_displace_options(*command, options.displace);
  add_common_options(*command, options, "Write the numbers as JSON; - is standard output, instead of the table");
  command->footer("Example:\n  vqgas info bunny.obj demo:terrain --threads 2 --json report.json");
  return {command, {}, [shared] { run_info(*shared); }};
}
