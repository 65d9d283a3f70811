// tools/vqgas/commands/info_command.cpp
#include <cstdio>
#include <optional>

#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/commands/info_report.h"
#include "tools/vqgas/commands/json_text.h"
#include "tools/vqgas/support/held_messages.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/output_file.h"

namespace {

SceneReport examine(const std::string& file, const InfoOptions& options) {
  StoppableApplication application(options.threads);
  ProgressDisplay display(application, !options.quiet);
  SceneSource source =
      load_scene(options, {file}, {options.frame, options.frame, {}, options.frames_per_second}, application);
  if (options.files.size() == 1) check_effects(options.shapes, source);
  display.take_task_seconds();  // of reading: the report is on the build
  display.set_unit("primitives");
  const SceneFileNotes notes = source.files.front().notes;
  HeldMessages messages;
  const QueryScene scene(application, std::move(source), options.shapes, options.frame);
  if (!options.quiet) messages.release();
  SceneReport report = make_scene_report(file, scene, display.take_task_seconds());
  report.notes = notes;
  return report;
}

}  // namespace

void run_info(const InfoOptions& options) {
  check_outputs({options.json}, list_inputs(options, options.files));
  nlohmann::ordered_json json = nlohmann::ordered_json::array();
  std::optional<InputError> fault;  // the last one; former ones are printed
  for (const std::string& file : options.files) {
    try {
      const SceneReport report = examine(file, options);
      json.push_back(make_report_json(report));
      throw_if_interrupted();
      if (options.json == "-") continue;
      print_report(report);
      flush_standard_output();
    } catch (const InputError& error) {
      if (fault) std::fprintf(stderr, "vqgas: %s\n", fault->what());
      fault.emplace(error);
    }
  }
  if (!options.json.empty()) write_text_file(options.json, print_json_text(json));
  if (fault) throw *fault;
}
