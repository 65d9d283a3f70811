// tools/vqgas/commands/scatter_command.cpp
#include <chrono>
#include <cmath>
#include <cstdio>
#include <new>

#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/commands/json_text.h"
#include "tools/vqgas/import/scatter_file.h"
#include "tools/vqgas/scene/scene_flatten.h"
#include "tools/vqgas/scene/scene_ground.h"
#include "tools/vqgas/scene/scene_load.h"
#include "tools/vqgas/scene/scene_scatter.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/memory_limit.h"
#include "tools/vqgas/support/output_file.h"
#include "tools/vqgas/support/progress_display.h"
#include "tools/vqgas/support/random.h"
#include "vq_geometry/poly_mesh.h"

namespace {

uint get_instance_count(const ScatterOptions& options, double area) {
  const double count = options.density ? std::round(*options.density * area) : double(options.count);
  if (!(count >= 1.0)) throw InputError(options.ground, "has too small an area for an instance at this density");
  if (count > most_scattered)
    throw InputError(options.ground, "would get more than " + std::to_string(most_scattered) + " instances");
  return static_cast<uint>(count);
}

SceneSource load_ground(const ScatterOptions& options) {
  if (is_scatter_file(options.ground)) throw InputError(options.ground, "is a scatter file: it cannot be the ground");
  SceneSource ground = load_scene({options.ground}, {});
  set_displacement(ground, options.ground, options.displace);
  return ground;
}

std::vector<GroomSurface::Root> spread(const ScatterOptions& options, const GroomSurface& surface, uint count,
                                       AppProgressBar* progress) {
  try {
    const MemoryLimit limit;
    return scatter_points(surface, count, options.placing.seed, progress);
  } catch (const std::bad_alloc&) {
    throw InputError(options.ground,
                     "would get " + std::to_string(count) + " instances, more than there is memory for");
  }
}

ScatterFile make_file(const ScatterOptions& options, const std::vector<GroomSurface::Root>& points) {
  ScatterFile file;
  if (!options.leaves_ground_out) {
    file.ground = options.ground;
    file.displacement = options.displace;
  }
  file.geometries = options.geometries;
  file.sway_degrees = options.sway_degrees;
  file.sway_period = options.sway_period;
  for (uint k = 0; k < points.size(); ++k) {
    const double choice = random_unit(hash_bits(k ^ hash_bits(options.placing.seed)), 15);
    file.instance_geometries.push_back(static_cast<uint>(choice * static_cast<double>(options.geometries.size())));
    file.matrices.push_back(place_instance(points[k], k, options.placing));
  }
  return file;
}

}  // namespace

void run_scatter(const ScatterOptions& options) {
  std::vector<std::string> inputs = options.geometries;
  inputs.push_back(options.ground);
  if (options.displace.is_file()) inputs.push_back(options.displace.height);
  check_outputs({options.output, options.json}, inputs);
  for (const std::string& input : inputs) print_scatter_name(options.output, input);          // for its errors
  for (const std::string& geometry : options.geometries) load_instanced_shape(geometry, {});  // for its errors
  const SceneSource ground = load_ground(options);
  PolyMesh mesh;
  std::vector<FlatPart> parts;
  make_surface_mesh(ground, options.ground, "instances could stand on", mesh, &parts);
  const GroomSurface surface(mesh);
  if (surface.get_area() == 0.0) throw InputError(options.ground, "has no area that instances could stand on");
  const DisplacedGround displaced(ground, std::move(parts));
  const uint count = get_instance_count(options, surface.get_area());

  StoppableApplication application(options.threads);
  const ProgressDisplay display(application, !options.quiet);
  AppProgressBar* progress = application.create_progress_bar("Scatter");
  const auto begin = std::chrono::steady_clock::now();
  std::vector<GroomSurface::Root> points = spread(options, surface, count, progress);
  progress->finish();
  displaced.move(points);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  write_scatter(options.output, make_file(options, points));

  if (!options.json.empty()) {
    nlohmann::ordered_json report = begin_report("scatter");
    report["ground"] = options.ground;
    report["geometries"] = options.geometries;
    report["written"] = options.output;
    report["instances"] = count;
    report["area"] = surface.get_area();
    report["seconds"] = seconds;
    write_text_file(options.json, print_json_text(report));
  }
  if (options.quiet || options.json == "-") return;
  std::printf("%s\n%u instances in %.2f s; the ground's area is %g\n", options.output.c_str(), count, seconds,
              surface.get_area());
}
