#include "tools/vqgas/commands/option_groups.h"

namespace {

void add_second_options(CLI::App& command, ReportOptions::Second& second) {
  command
      .add_option("--with", second.files,
                  "A second scene beside the first, of this file; repeatable. With a --with-... option and without "
                  "it: the same scene built in another way")
      ->allow_extra_args(false)
      ->type_name("FILE");
  const auto set_structure = [&second](const std::string& name) {
    second.structure = name == "grid" ? MeshStructure::grid : MeshStructure::bvh4;
  };
  command.add_option_function<std::string>("--with-structure", set_structure, "--structure of the second scene")
      ->check(CLI::IsMember({"bvh4", "grid"}));
  command.add_flag("--with-linear", second.is_linear, "--linear for the second scene");
  command.add_flag("--with-aligned-only", second.is_aligned_only, "--aligned-only for the second scene");
  command.add_flag("--with-bundle", second.is_bundled, "--bundle for the second scene");
}

}  // namespace

Subcommand add_report(CLI::App& app) {
  const auto shared = std::make_shared<ReportOptions>();
  ReportOptions& options = *shared;
  CLI::App* command = app.add_subcommand(
      "report", "Build the structures of a scene and write a page that shows their trees, for a browser");
  command->add_option("FILE", options.files, get_file_help())->required();
  command
      ->add_option("-o,--output", options.output,
                   "The page: one HTML file, which needs no network; - is standard output")
      ->required()
      ->type_name("PAGE.html");
  command
      ->add_option("--size-limit", options.size_limit,
                   "Megabytes of the page at most; levels and geometry of large scenes are thinned")
      ->capture_default_str()
      ->check(is_number_within(1.0, 200.0))
      ->type_name("MB");
  add_frame_option(*command, options.frame);
  add_scene_options(*command, options);
  add_shape_options(*command, options.shapes);
  add_displace_options(*command, options.displace);
  add_second_options(*command, options.second);
  command->add_option("--threads", options.threads, "Threads to work with; without it, as many as the machine runs")
      ->check(is_whole_within(1, 1024));
  command->add_flag("--quiet", options.quiet, "No progress, no messages");
  command->footer(
      "All other options of the scene hold for both scenes.\n"
      "Example:\n  vqgas report bunny.obj -o bunny.html\n"
      "  vqgas report bunny.obj --with-structure grid -o bunny.html\n"
      "  vqgas report bunny.obj --with dragon.ply -o both.html");
  return {command, {}, [shared] { run_report(*shared); }};
}
