// tools/vqgas/commands/trace_command.cpp
#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <tuple>

#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/commands/json_text.h"
#include "tools/vqgas/commands/query_lines.h"
#include "tools/vqgas/commands/trace_rays.h"
#include "tools/vqgas/scene/query_scene.h"
#include "tools/vqgas/support/csv_field.h"
#include "tools/vqgas/support/held_messages.h"
#include "tools/vqgas/support/number_list.h"
#include "tools/vqgas/support/output_file.h"
#include "tools/vqgas/support/parallel.h"
#include "tools/vqgas/support/progress_display.h"

namespace {

struct TraceHit {
  uint ray = 0;
  uint primitive = 0, group = 0;  // in the scene
  GeometryIntersection hit;
  GeometrySurfacePoint point;
  std::vector<uint> path;
  std::vector<const char*> names;  ///< of the objects of the path, the innermost last
};

TraceHit make_hit(const QueryScene& scene, const TraceRay& ray, uint number, const SceneHit& found) {
  TraceHit hit;
  hit.ray = number;
  hit.primitive = found.get_primitive();
  hit.group = found.get_group();
  hit.hit = *found.record;
  hit.point = scene.get_surface_point(found, ray.time);
  for (const GeometryIntersectionPathElement& element : found.path) {
    hit.path.push_back(element.object_index);
    hit.names.push_back(element.object->get_name().get_data());
  }
  if (const std::optional<uint> instance = found.get_instance()) hit.path.push_back(*instance);
  return hit;
}

/// Traces the rays [first, end) as a packet. The hits are sorted by ray, then distance, then path and primitive.
std::vector<TraceHit> trace_packet(const QueryScene& scene, const std::vector<TraceRay>& rays, uint first, uint end,
                                   bool all) {
  CtxShader shader;
  scene.prepare(shader);
  GeometryRayPacket packet;
  packet.resize(end - first);
  for (uint k = 0; k < end - first; ++k) {
    const TraceRay& ray = rays[first + k];
    packet.set_ray(k, ray.origin, ray.direction, ray.tnear, ray.tfar, ray.time);
  }
  std::vector<TraceHit> hits;
  const auto add = [&](uint k, const SceneHit& found) {
    hits.push_back(make_hit(scene, rays[first + k], first + k, found));
  };
  if (all) {
    scene.find_all(shader, packet);
    for (const GeometryHit& hit : packet.get_hits().get_hits()) add(hit.ray, scene.get_hit(packet, hit.hit));
  } else {
    scene.find_nearest(shader, packet);
    for (uint k = 0; k < end - first; ++k) {
      if (const std::optional<SceneHit> hit = scene.get_nearest(packet, k)) add(k, *hit);
    }
  }
  std::sort(hits.begin(), hits.end(), [](const TraceHit& a, const TraceHit& b) {
    if (a.ray != b.ray) return a.ray < b.ray;
    if (a.hit.distance != b.hit.distance) return a.hit.distance < b.hit.distance;
    return std::tie(a.path, a.primitive, a.hit.part) < std::tie(b.path, b.primitive, b.hit.part);
  });
  return hits;
}

std::vector<TraceHit> trace(const QueryScene& scene, const std::vector<TraceRay>& rays, bool all) {
  constexpr uint packet_size = 4096;
  std::vector<std::vector<TraceHit>> packets(rays.size() / packet_size + 1);
  const auto count = static_cast<uint>(rays.size());
  std::atomic<uint> done = 0;
  AppProgressBar* progress = scene.get_application().create_progress_bar("Trace");
  progress->begin_task("Trace", 1.0);
  progress->set_step_count(count);
  run_slices(&scene.get_application(), count, packet_size, [&](uint first, uint end) {
    packets[first / packet_size] = trace_packet(scene, rays, first, end, all);
    progress->step(done += end - first);
  });
  progress->finish();
  std::vector<TraceHit> hits;
  for (const std::vector<TraceHit>& packet : packets) hits.insert(hits.end(), packet.begin(), packet.end());
  return hits;
}

std::string join_names(const std::vector<const char*>& names) {
  std::string joined;
  for (const char* name : names) joined.append(joined.empty() ? "" : "/").append(name);
  return joined;
}

std::string print_csv(const std::vector<TraceHit>& hits, std::size_t ray_count) {
  std::string text = trace_csv_header;
  text += '\n';
  auto hit = hits.begin();
  for (std::size_t ray = 0; ray < ray_count; ++ray) {
    throw_if_interrupted();
    if (hit == hits.end() || hit->ray != ray) text.append(std::to_string(ray)).append(",,,,,,,,,,,,,,\n");
    for (; hit != hits.end() && hit->ray == ray; ++hit) {
      const GMathVec3<double>&n = hit->point.normal, &p = hit->point.position;
      text += std::to_string(ray);
      text.append(",").append(print_number(hit->hit.distance));
      text.append(",").append(std::to_string(hit->primitive));
      text.append(",").append(std::to_string(hit->group));
      for (const double value : {hit->hit.u, hit->hit.v, n.x, n.y, n.z, p.x, p.y, p.z})
        text.append(",").append(print_number(value));
      for (std::size_t level = 0; level < hit->path.size(); ++level)
        text.append(level == 0 ? "," : "/").append(std::to_string(hit->path[level]));
      text.append(",").append(print_csv_field(hit->names.back()));
      text.append(",").append(print_csv_field(join_names(hit->names)));
      text += '\n';
    }
  }
  return text;
}

/// {"file": ..., "rays": [{"ray": 0, "hits": [{...}, ...]}, ...]}
std::string print_json(const std::string& file, const QueryScene& scene, const std::vector<TraceHit>& hits,
                       std::size_t ray_count) {
  nlohmann::ordered_json report = begin_report("trace");
  report["file"] = file;
  report["rays"] = nlohmann::ordered_json::array();
  auto hit = hits.begin();
  for (std::size_t ray = 0; ray < ray_count; ++ray) {
    throw_if_interrupted();
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (; hit != hits.end() && hit->ray == ray; ++hit) {
      const GeometrySurfacePoint& point = hit->point;
      list.push_back({{"distance", hit->hit.distance},
                      {"primitive", hit->primitive},
                      {"group", hit->group},
                      {"group_name", scene.get_group_name(hit->group).get_data()},
                      {"object", hit->names.back()},
                      {"path", hit->path},
                      {"names", hit->names},
                      {"u", hit->hit.u},
                      {"v", hit->hit.v},
                      {"normal", {point.normal.x, point.normal.y, point.normal.z}},
                      {"position", {point.position.x, point.position.y, point.position.z}}});
    }
    report["rays"].push_back({{"ray", ray}, {"hits", std::move(list)}});
  }
  return print_json_text(report);
}

/// From the earliest to the latest time of the rays, with eight samples a frame.
SceneTimes get_times(const std::vector<TraceRay>& rays, double frames_per_second) {
  constexpr double samples_per_frame = 8.0, most_samples = 128.0;
  constexpr double infinity = std::numeric_limits<double>::infinity();
  double first = infinity, last = -infinity;
  for (const TraceRay& ray : rays) {
    if (!std::isfinite(ray.time)) continue;
    first = std::min(first, ray.time);
    last = std::max(last, ray.time);
  }
  SceneTimes times;
  times.frames_per_second = frames_per_second;
  if (!(first <= last)) return times;
  times.open = first;
  times.close = last;
  times.samples =
      1 + static_cast<uint>(std::clamp(std::ceil((last - first) * samples_per_frame), samples_per_frame, most_samples));
  return times;
}

}  // namespace

void run_trace(const TraceOptions& options) {
  std::vector<std::string> inputs = list_inputs(options, {options.file});
  if (options.rays.empty()) inputs.push_back("-");
  check_outputs({options.json}, inputs);
  const std::vector<TraceRay> rays =
      get_queries<TraceRay>(options.rays, "rays", options.quiet, trace_ray_form, parse_trace_ray);
  StoppableApplication application(options.threads);
  ProgressDisplay display(application, !options.quiet);
  HeldMessages messages;
  ShapeSettings shapes = options.shapes;
  shapes.hair.has_nearest_queries = !options.all;
  shapes.hair.has_all_hits_queries = options.all;
  const SceneTimes times = get_times(rays, options.frames_per_second);
  SceneSource source = load_scene(options, {options.file}, times, application);
  check_effects(options.shapes, source);
  QueryScene scene(application, std::move(source), shapes);
  if (!options.quiet) messages.release();
  const bool has_times = std::any_of(rays.begin(), rays.end(), [](const TraceRay& ray) { return ray.has_time; });
  if (has_times) scene.set_shutter(times);
  display.set_unit("rays");
  const std::vector<TraceHit> hits = trace(scene, rays, options.all);
  write_answers(
      options.json, options.format, [&] { return print_json(options.file, scene, hits, rays.size()); },
      [&] { return print_csv(hits, rays.size()); });
}
