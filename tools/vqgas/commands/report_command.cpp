// tools/vqgas/commands/report_command.cpp
#include <algorithm>

#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/commands/info_report.h"
#include "tools/vqgas/report/page_data.h"
#include "tools/vqgas/report/page_write.h"
#include "tools/vqgas/support/held_messages.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/output_file.h"

namespace {

/// One column of the page.
struct ReportColumn : SceneOptions {
  std::vector<std::string> files;
};

std::vector<ReportColumn> list_columns(const ReportOptions& options) {
  std::vector<ReportColumn> columns = {{options, options.files}};
  const ReportOptions::Second& second = options.second;
  if (!second.exists()) return columns;
  ReportColumn column = columns.front();
  if (!second.files.empty()) column.files = second.files;
  if (second.structure) column.shapes.structure = second.structure;
  column.shapes.hair.is_linear |= second.is_linear;
  column.shapes.hair.is_aligned_only |= second.is_aligned_only;
  column.is_bundled |= second.is_bundled;
  columns.push_back(std::move(column));
  return columns;
}

/// As a shell reads it.
std::string quote_argument(const std::string& text) {
  const auto is_plain = [](unsigned char letter) {
    return std::isalnum(letter) != 0 || std::string_view("._-/:,=+").find(char(letter)) != std::string_view::npos;
  };
  if (!text.empty() && std::all_of(text.begin(), text.end(), is_plain)) return text;
  std::string quoted = "'";
  for (const char letter : text) quoted += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
  return quoted + "'";
}

std::string print_settings(const ReportColumn& column) {
  std::string text;
  if (column.shapes.structure)
    text += *column.shapes.structure == MeshStructure::grid ? " --structure grid" : " --structure bvh4";
  if (column.shapes.hair.is_linear) text += " --linear";
  if (column.shapes.hair.is_aligned_only) text += " --aligned-only";
  if (column.is_bundled) text += " --bundle";
  const DisplaceOptions& displace = column.displace;
  if (!displace.height.empty()) {
    text += " --displace " + quote_argument(displace.height) + " --rate " + std::to_string(displace.rate);
    if (displace.bound) text += " --bound " + nlohmann::ordered_json(*displace.bound).dump();
  }
  return text.empty() ? text : text.substr(1);
}

PageHeading make_heading(const ReportOptions& options, const ReportColumn& column) {
  PageHeading heading;
  for (const std::string& file : column.files) heading.name += (heading.name.empty() ? "" : " + ") + file;
  heading.settings = print_settings(column);
  // `trace` reads one file, at frame 0.
  if (column.files.size() == 1 && options.frame == 0.0)
    heading.command = quote_argument(column.files.front()) + (heading.settings.empty() ? "" : " " + heading.settings);
  return heading;
}

nlohmann::ordered_json make_column(const ReportOptions& options, const ReportColumn& column, u64 most_bytes) {
  StoppableApplication application(options.threads);
  ProgressDisplay display(application, !options.quiet);
  SceneSource source =
      load_scene(column, column.files, {options.frame, options.frame, {}, options.frames_per_second}, application);
  check_effects(column.shapes, source);
  display.take_task_seconds();  // of reading: the page shows the build
  display.set_unit("primitives");
  HeldMessages messages;
  const QueryScene scene(application, std::move(source), column.shapes, options.frame);
  if (!options.quiet) messages.release();
  const PageHeading heading = make_heading(options, column);
  const SceneReport report = make_scene_report(heading.name, scene, display.take_task_seconds());
  display.set_unit("");
  AppProgressBar* progress = application.create_progress_bar("Write report");
  nlohmann::ordered_json data = make_page_data(scene, report, heading, most_bytes, progress);
  progress->finish();
  return data;
}

}  // namespace

void run_report(const ReportOptions& options) {
  const std::vector<ReportColumn> columns = list_columns(options);
  std::vector<std::string> inputs = options.files;
  inputs.insert(inputs.end(), options.second.files.begin(), options.second.files.end());
  check_outputs({options.output}, list_inputs(options, inputs));
  // Arrays take four letters for three bytes; tables and the page itself are left a quarter of a megabyte and more.
  const double array_letters = 0.97 * (1e6 * options.size_limit) - 250e3;
  const u64 most_bytes = static_cast<u64>(0.75 * array_letters / static_cast<double>(columns.size()));
  nlohmann::ordered_json data;
  data["size_limit"] = options.size_limit;
  std::string title;
  for (const ReportColumn& column : columns) {
    data["columns"].push_back(make_column(options, column, most_bytes));
    const std::string name = data["columns"].back()["name"];
    title += (title.empty() ? "" : " | ") + name;
  }
  const std::string page = print_page(title, data);
  throw_if_interrupted();
  write_text_file(options.output, page);
}
