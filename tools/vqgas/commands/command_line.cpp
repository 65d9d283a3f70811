#include "tools/vqgas/commands/command_line.h"

#include <iostream>
#include <span>

#include "tools/vqgas/commands/manual.h"
#include "tools/vqgas/commands/option_groups.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/quote.h"

namespace {

/// A first argument that is neither an option nor a subcommand: the parser would only say that one is required.
void check_subcommand(int argc, char** argv, std::span<const Subcommand> subcommands) {
  if (argc < 2 || argv[1][0] == '-') return;
  std::string names;
  for (const Subcommand& entry : subcommands) {
    if (entry.command->get_name() == argv[1]) return;
    names.append(names.empty() ? "" : ", ").append(entry.command->get_name());
  }
  throw UsageError(quote(argv[1]) + " is no subcommand; there are " + names);
}

}  // namespace

int run_command_line(int argc, char** argv) {
  CLI::App app("Builds ray-tracing structures over meshes, hair and points and shows what they answer.", "vqgas");
  app.set_version_flag("--version", "vqgas " VQGAS_VERSION);
  app.require_subcommand(1);
  const auto write = [&app](const std::string& folder) {
    write_manual(app, folder);
    throw CLI::Success();
  };
  app.add_option_function<std::string>("--write-manual", write)->group("")->trigger_on_parse();  // for the build
  const Subcommand subcommands[] = {add_info(app), add_report(app), add_render(app), add_trace(app),
                                    add_beam(app), add_select(app), add_groom(app),  add_scatter(app),
                                    add_uv(app),   add_compare(app)};
  const auto get_chosen = [&]() -> const Subcommand& {
    return *std::ranges::find_if(subcommands, [](const Subcommand& entry) { return entry.command->parsed(); });
  };
  try {
    check_subcommand(argc, argv, subcommands);
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
