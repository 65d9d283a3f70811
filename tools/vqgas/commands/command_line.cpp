#include "tools/vqgas/commands/command_line.h"

#include <iostream>

#include "tools/vqgas/commands/option_groups.h"
#include "tools/vqgas/support/input_error.h"

std::vector<std::string> list_inputs(const SceneOptions& options, std::vector<std::string> files) {
  if (options.displace.is_file()) files.push_back(options.displace.height);
  return files;
}

int run_command_line(int argc, char** argv) {
  CLI::App app("Builds ray-tracing structures over meshes, hair and points and shows what they answer.", "vqgas");
  app.set_version_flag("--version", "vqgas " VQGAS_VERSION);
  app.require_subcommand(1);
  const Subcommand subcommands[] = {add_info(app),   add_render(app), add_trace(app),   add_beam(app),
                                    add_select(app), add_groom(app),  add_scatter(app), add_uv(app)};
  const auto get_chosen = [&]() -> const Subcommand& {
    return *std::ranges::find_if(subcommands, [](const Subcommand& entry) { return entry.command->parsed(); });
  };
  try {
    app.parse(argc, argv);
    if (get_chosen().complete) get_chosen().complete();
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  } catch (const UsageError& error) {
    std::cerr << "vqgas: " << error.what() << "\nRun with --help for more information.\n";
    return 2;
  }
  get_chosen().run();
  return 0;
}
