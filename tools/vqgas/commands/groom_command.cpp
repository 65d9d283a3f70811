// tools/vqgas/commands/groom_command.cpp
#include <chrono>
#include <cstdio>
#include <new>

#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/commands/json_text.h"
#include "tools/vqgas/import/hair_file.h"
#include "tools/vqgas/scene/scene_flatten.h"
#include "tools/vqgas/scene/scene_load.h"
#include "tools/vqgas/source/groom.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/memory_limit.h"
#include "tools/vqgas/support/output_file.h"
#include "tools/vqgas/support/progress_display.h"
#include "vq_geometry/poly_mesh.h"

namespace {

/// Converts a density to a number of curves and checks the number.
GroomSettings complete_settings(const GroomOptions& options, double area) {
  GroomSettings settings = options.settings;
  // The file counts points in 32 bits, and a reader that makes cubic segments has three times as many.
  const double most = std::floor(1.4e9 / options.settings.points);
  const double curves = options.density ? *options.density * area : static_cast<double>(settings.curves);
  if (!(curves >= 0.5)) throw InputError(options.file, "has too small an area for a strand at this density");
  if (curves > most) throw InputError(options.file, "would get more than 1.4 thousand million points");
  settings.curves = static_cast<u64>(std::llround(curves));
  return settings;
}

CurveData grow(const GroomOptions& options, const GroomSurface& surface, const GroomSettings& settings,
               AppProgressBar* progress) {
  try {
    const MemoryLimit limit;
    return grow_fur(surface, settings, progress);
  } catch (const std::bad_alloc&) {
    throw InputError(options.file, "would get " + std::to_string(settings.curves * settings.points) +
                                       " points, more than there is memory for");
  }
}

}  // namespace

void run_groom(const GroomOptions& options) {
  check_outputs({options.output, options.json}, {options.file});
  PolyMesh mesh;
  make_surface_mesh(load_scene({options.file}, {}), options.file, "fur could grow on", mesh);
  const GroomSurface surface(mesh);
  if (surface.get_area() == 0.0) throw InputError(options.file, "has no area that fur could grow on");
  const GroomSettings settings = complete_settings(options, surface.get_area());

  StoppableApplication application(options.threads);
  ProgressDisplay display(application, !options.quiet);
  display.set_unit("strands");
  AppProgressBar* progress = application.create_progress_bar("Groom");
  const auto begin = std::chrono::steady_clock::now();
  const CurveData fur = grow(options, surface, settings, progress);
  progress->finish();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  write_hair(options.output, fur, "vqgas groom " + options.file);

  const u64 segments = settings.curves * (settings.points - 1);
  if (!options.json.empty()) {
    nlohmann::ordered_json report = begin_report("groom");
    report["file"] = options.file;
    report["written"] = options.output;
    report["strands"] = settings.curves;
    report["segments"] = segments;
    report["area"] = surface.get_area();
    report["diagonal"] = surface.get_diagonal();
    report["seconds"] = seconds;
    write_text_file(options.json, print_json_text(report));
  }
  if (options.quiet || options.json == "-") return;
  std::printf("%s\n%llu strands, %llu segments in %.2f s on %u threads; the mesh's area is %g, its diagonal %g\n",
              options.output.c_str(), static_cast<unsigned long long>(settings.curves),
              static_cast<unsigned long long>(segments), seconds, application.get_thread_count(), surface.get_area(),
              surface.get_diagonal());
}
