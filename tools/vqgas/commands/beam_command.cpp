#include <atomic>

#include "tools/vqgas/commands/beam_input.h"
#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/commands/json_text.h"
#include "tools/vqgas/commands/query_lines.h"
#include "tools/vqgas/scene/query_scene.h"
#include "tools/vqgas/scene/scene_load.h"
#include "tools/vqgas/support/held_messages.h"
#include "tools/vqgas/support/number_list.h"
#include "tools/vqgas/support/output_file.h"
#include "tools/vqgas/support/parallel.h"
#include "tools/vqgas/support/progress_display.h"

namespace {

std::vector<GeometryRayFrustumBeam> get_beams(const BeamOptions& options) {
  const auto parse = [&](const std::string& text, GeometryRayFrustumBeam& beam) {
    return parse_beam(text, options.is_parallel, beam);
  };
  return get_queries<GeometryRayFrustumBeam>(options.beams, "beams", options.quiet, beam_form, parse);
}

std::vector<GeometryRayFrustumRecord> cast(const QueryScene& scene, const std::vector<GeometryRayFrustumBeam>& beams,
                                           double edge) {
  constexpr uint slice = 4096;
  std::vector<GeometryRayFrustumRecord> records(beams.size());
  const auto count = static_cast<uint>(beams.size());
  std::atomic<uint> done = 0;
  AppProgressBar* progress = scene.get_application().create_progress_bar("Cast beams");
  progress->begin_task("Cast beams", 1.0);
  progress->set_step_count(count);
  run_slices(&scene.get_application(), count, slice, [&](uint first, uint end) {
    CtxShader shader;
    GeometryRayFrustumCtx query;
    query.edge = edge;
    query.begin(beams.data() + first, records.data() + first, end - first);
    scene.find_points(shader, query);
    progress->step(done += end - first);
  });
  progress->finish();
  return records;
}

std::string print_csv(const QueryScene& scene, const std::vector<GeometryRayFrustumRecord>& records) {
  std::string text = std::string(beam_csv_header) + "\n";
  for (std::size_t beam = 0; beam < records.size(); ++beam) {
    text += std::to_string(beam);
    if (const std::optional<ScenePoint> point = scene.get_point(records[beam])) {
      text.append(",").append(std::to_string(point->object)).append(",").append(std::to_string(point->point));
      for (const double value :
           {records[beam].t, records[beam].weight, point->position.x, point->position.y, point->position.z})
        text.append(",").append(print_number(value));
    } else {
      text += ",,,,,,,";
    }
    text += '\n';
  }
  return text;
}

std::string print_json(const BeamOptions& options, const QueryScene& scene,
                       const std::vector<GeometryRayFrustumRecord>& records) {
  nlohmann::ordered_json report = begin_report("beam");
  report["files"] = options.files;
  report["beams"] = nlohmann::ordered_json::array();
  for (std::size_t beam = 0; beam < records.size(); ++beam) {
    nlohmann::ordered_json& added = report["beams"].emplace_back(nlohmann::ordered_json{{"beam", beam}});
    const std::optional<ScenePoint> point = scene.get_point(records[beam]);
    if (!point) continue;
    added["object"] = point->object;
    added["name"] = scene.get_objects().objects[point->object]->get_name().get_data();
    added["point"] = point->point;
    added["t"] = records[beam].t;
    added["weight"] = records[beam].weight;
    added["position"] = {point->position.x, point->position.y, point->position.z};
  }
  return print_json_text(report);
}

}  // namespace

void run_beam(const BeamOptions& options) {
  std::vector<std::string> inputs = options.files;
  if (options.beams.empty()) inputs.push_back("-");
  check_outputs({options.json}, inputs);
  const std::vector<GeometryRayFrustumBeam> beams = get_beams(options);
  StoppableApplication application(options.threads);
  ProgressDisplay display(application, !options.quiet);
  HeldMessages messages;
  const SceneTimes times{options.frame, options.frame, {}, options.frames_per_second};
  const QueryScene scene(application, load_scene(options.files, times, {&application, options.quiet}), {},
                         options.frame);
  if (!options.quiet) messages.release();
  display.set_unit("beams");
  const std::vector<GeometryRayFrustumRecord> records = cast(scene, beams, options.edge);
  write_answers(
      options.json, options.format, [&] { return print_json(options, scene, records); },
      [&] { return print_csv(scene, records); });
}
