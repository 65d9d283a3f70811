#include "fuzz/fuzz_files.h"

#include <cmath>
#include <fstream>
#include <new>
#include <stdexcept>

#include "tools/vqgas/image/image_png.h"
#include "tools/vqgas/scene/query_scene.h"
#include "tools/vqgas/scene/scene_displace.h"
#include "tools/vqgas/scene/scene_load.h"
#include "tools/vqgas/support/held_messages.h"
#include "tools/vqgas/support/input_error.h"

namespace {

constexpr const char* quad_obj =
    "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nf 1/1 2/2 3/3 4/4\n";

constexpr std::size_t most_pixels = 65536;  // structures over more would take most of the time

/// Toward the middle of the scene from several sides; toward its corner if it has no finite box.
void set_rays(GeometryRayPacket& packet, const QueryScene& scene) {
  const GMathBbox3<double> box = scene.get_bbox();
  const GMathVec3<double> extent = box.get_extent();
  const double size = std::isfinite(extent.get_length()) ? extent.get_length() : 1.0;
  const GMathVec3<double> middle = std::isfinite(extent.get_length()) ? box.min + extent * 0.45 : box.min;
  const GMathVec3<double> directions[] = {{0, 0, -1}, {1, 0, 0}, {0.3, -1, 0.2}, {-0.5, 0.4, 0.7}};
  packet.resize(4);
  for (uint ray = 0; ray < 4; ++ray)
    packet.set_ray(ray, middle - directions[ray] * (2.0 * size), directions[ray], 0.0, 1e30, 0.3 * ray);
}

void shoot_rays(const QueryScene& scene) {
  CtxShader shader;
  scene.prepare(shader);
  GeometryRayPacket packet;
  set_rays(packet, scene);
  scene.find_nearest(shader, packet);
  for (uint ray = 0; ray < 4; ++ray)
    if (const auto hit = scene.get_nearest(packet, ray)) scene.get_surface_point(*hit, 0.3 * ray);
  set_rays(packet, scene);
  scene.find_all(shader, packet);
  for (const GeometryHit& hit : packet.get_hits().get_hits())
    scene.get_surface_point(scene.get_hit(packet, hit.hit), 0);
}

void cast_beam(const QueryScene& scene) {
  GeometryRayFrustumBeam beam;
  const GMathVec3<double> corners[4] = {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1}};
  if (!beam.set_perspective({0.5, 0.5, 5}, {0, 0, -1}, corners, 0.0, 100.0)) throw std::logic_error("no beam");
  GeometryRayFrustumRecord record;
  GeometryRayFrustumCtx query;
  query.begin(&beam, &record, 1);
  CtxShader shader;
  scene.find_points(shader, query);
  scene.get_point(record);
}

void query(OfApp& application, SceneSource&& source, const SceneTimes& times) {
  ShapeSettings settings;
  settings.hair.has_all_hits_queries = true;
  QueryScene scene(application, std::move(source), settings);
  scene.get_tight_boxes();
  shoot_rays(scene);
  if (scene.has_points()) cast_beam(scene);
  scene.set_shutter(times);
  shoot_rays(scene);
}

/// As a background, and as heights of a mesh if it is gray.
void use_image(OfApp& application, const std::string& folder, const std::string& path, const SceneTimes& times) {
  read_color_png(path);
  try {
    if (read_gray_png(path).values.size() > most_pixels) return;
  } catch (const InputError&) {
    return;
  }
  SceneSource source = load_scene({folder + "/quad.obj"}, times);
  displace_meshes(source, {.height = path, .bound = 0.1, .rate = 2, .cache = 1});
  query(application, std::move(source), times);
}

/// An error is one line without control characters and begins with the file.
void check_fault(const std::string& fault, const std::string& folder) {
  if (!fault.starts_with(folder)) throw std::logic_error("the error does not begin with the file: " + fault);
  for (const char c : fault)
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') throw std::logic_error("not one plain line: " + fault);
  constexpr std::size_t most_letters = 1000;
  if (fault.size() > most_letters) throw std::logic_error("a line of " + std::to_string(fault.size()) + " letters");
}

}  // namespace

void write_fuzz_companions(const std::string& folder) {
  std::ofstream(folder + "/quad.obj") << quad_obj;
  std::ofstream(folder + "/tuft.curves") << "0 0 0 0.1\n0 0 1 0.1\n";
}

FuzzOutcome use_fuzz_file(OfApp& application, const std::string& folder, const std::string& path) {
  const HeldMessages messages;
  const SceneTimes times{0.0, 1.0, 3};
  try {
    if (path.ends_with(".png")) {
      use_image(application, folder, path, times);
    } else {
      query(application, load_scene({path}, times), times);
    }
    return FuzzOutcome::accepted;
  } catch (const InputError& error) {
    check_fault(error.what(), folder);
    const bool is_limited = std::string(error.what()).find("memory") != std::string::npos;
    return is_limited ? FuzzOutcome::limited : FuzzOutcome::refused;
  } catch (const std::bad_alloc&) {
    return FuzzOutcome::limited;
  }
}
