// bench/bench_peers.cpp
//
// Measures this library and a peer with the same rays on the same meshes, hair or scenes, in one process:
//
//   bench_peers bunny.obj dragon.ply --threads 1,2 --json peers.json
//   bench_peers dragon.ply --sets bounce --only-ours --rounds 20        (under a profiler)
//   bench_peers --mesh terrain-8m,speck-1m,needles-1m
//   bench_peers --hair fur-200k,fur-5m --motion 0,2,8
//   bench_peers --scene swarm-10k,giants-200 --motion 0,2,8
//   bench_peers --bundle plants-200k,swarm-10k,giants-200 --motion 0,2,8
//
// It fails on bad input, never on a time.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>

#include "bench/bench_displaced_bundle.h"
#include "bench/bench_mesh_file.h"
#include "bench/bench_peers_hair.h"
#include "bench/bench_peers_mesh.h"
#include "bench/bench_peers_scene.h"

namespace {

struct Settings {
  PeerSettings measure;
  std::vector<std::string> files, meshes, hair, scenes, bundles, curves = {"cubic", "linear"};
  std::vector<uint> motion = {0};
  uint displaced_instances = 0;
  std::string json_path;
};

void add_options(CLI::App& app, Settings& settings) {
  app.add_option("files", settings.files, "Mesh files (OBJ, PLY, ...)");
  app.add_option("--sets", settings.measure.sets, "Ray sets")
      ->delimiter(',')
      ->check(CLI::IsMember({"primary", "bounce", "random", "shadow"}))
      ->capture_default_str();
  std::vector<std::string> peers = peer_get_scene_peers();
  for (const std::string& peer : peer_get_hair_peers()) peers.push_back(peer);
  settings.measure.peers = peers;
  app.add_option(
         "--peers", settings.measure.peers,
         "Peers. Meshes and scenes: Embree user geometry or built-in triangles, at SSE4.2 or its best. Meshes: this "
         "library on the grid tree, or as the only object of a scene. Scenes: this "
         "library with one leaf per object; of a bundle, with one object per instance. Hair: this library without "
         "oriented nodes, Embree's round curves at "
         "SSE4.2 or its best")
      ->delimiter(',')
      ->check(CLI::IsMember(peers))
      ->capture_default_str();
  app.add_option("--threads", settings.measure.threads, "Thread counts")
      ->delimiter(',')
      ->check(CLI::Range(1, 256))
      ->capture_default_str();
  app.add_option("--rounds", settings.measure.rounds, "Rounds of each ray set")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  app.add_option("--build-rounds", settings.measure.build_rounds, "Rounds of the builds; 0 leaves them out")
      ->capture_default_str();
  app.add_option("--size", settings.measure.size, "Primary rays a side; as many random rays")
      ->check(CLI::Range(1, 16384))
      ->capture_default_str();
  app.add_option(
         "--mesh", settings.meshes,
         "Meshes to make: terrain, knot, ball, speck (a tiny dense ball on a wide terrain) or needles (long thin "
         "slanted boxes) and the number of triangles, as terrain-8m")
      ->delimiter(',');
  app.add_option("--hair", settings.hair,
                 "Grooms to grow: fur, straight or curly and the number of segments, as fur-200k,curly-5m")
      ->delimiter(',');
  app.add_option("--curves", settings.curves, "What the hair's segments are")
      ->delimiter(',')
      ->check(CLI::IsMember({"cubic", "linear"}))
      ->capture_default_str();
  app.add_option("--scene", settings.scenes,
                 "Scenes to make: swarm, giants or plants and the number of objects, as swarm-10k,giants-200")
      ->delimiter(',');
  app.add_option(
         "--bundle", settings.bundles,
         "The same as bundles of instances, as plants-200k,swarm-10k; the build includes the meshes' structures")
      ->delimiter(',');
  app.add_option("--displaced", settings.displaced_instances,
                 "Time the first picture of a bundle of so many displaced instances, all of them in view or a tenth")
      ->check(CLI::Range(10, 100000));
  app.add_option("--motion", settings.motion, "Motion samples, 0 for static subjects; one run each")
      ->delimiter(',')
      ->check(CLI::IsMember({0, 2, 3, 4, 5, 6, 7, 8}))
      ->capture_default_str();
  app.add_flag("--only-ours", settings.measure.only_ours, "No peers");
  app.add_flag("--processor-time", settings.measure.processor_time,
               "Count the threads' own processor time: for machines that others use as well");
  app.add_option("--seed", settings.measure.seed, "Seed of the random rays")->capture_default_str();
  app.add_option("--json", settings.json_path, "Write the results to this file (- for standard output)");
}

template <class Subject>
bool measure(const Settings& settings, const Subject& subject, std::vector<PeerReport>& reports) {
  if (!subject.is_valid()) {
    std::cerr << subject.describe().name << ": cannot be measured\n";
    return false;
  }
  reports.push_back(peer_measure(settings.measure, subject));
  peer_print_report(reports.back());
  return true;
}

std::string get_motion_text(uint samples) {
  return samples == 0 ? "" : ", " + std::to_string(samples) + " motion samples";
}

bool measure_mesh(const Settings& settings, const BenchMesh& mesh, std::vector<PeerReport>& reports) {
  for (const uint samples : settings.motion) {
    BenchMesh moving = mesh;
    if (samples > 0) bench_add_motion(moving, samples);
    moving.name += get_motion_text(samples);
    if (!measure(settings, PeerMesh(std::move(moving)), reports)) return false;
  }
  return true;
}

bool measure_mesh(const Settings& settings, const std::string& name, std::vector<PeerReport>& reports) {
  BenchMesh mesh;
  if (bench_make_mesh(name, mesh)) return measure_mesh(settings, mesh, reports);
  std::cerr << name << ": a mesh is named like terrain-8m, knot-200k, ball-1k, speck-1m or needles-1m\n";
  return false;
}

bool measure_hair(const Settings& settings, const std::string& name, std::vector<PeerReport>& reports) {
  BenchHairStyle style{};
  uint segment_count = 0;
  if (!bench_read_groom_name(name, style, segment_count)) {
    std::cerr << name << ": a groom is named like fur-200k, straight-5m or curly-1000\n";
    return false;
  }
  for (const std::string& curve : settings.curves) {
    for (const uint samples : settings.motion) {
      BenchGroom groom =
          bench_make_groom(style, curve == "linear" ? CurveShape::linear : CurveShape::cubic, segment_count, samples);
      groom.name = name + " " + curve + get_motion_text(samples);
      if (!measure(settings, PeerHair(std::move(groom)), reports)) return false;
    }
  }
  return true;
}

bool measure_scene(const Settings& settings, const std::string& name, bool is_bundle,
                   std::vector<PeerReport>& reports) {
  BenchSceneStyle style{};
  uint object_count = 0;
  if (!bench_read_scene_name(name, style, object_count)) {
    std::cerr << name << ": a scene is named like swarm-10k, giants-200 or plants-200k\n";
    return false;
  }
  for (const uint samples : settings.motion) {
    BenchObjects objects = bench_make_objects(style, object_count, samples);
    objects.name = name + get_motion_text(samples);
    if (!measure(settings, PeerScene(std::move(objects), is_bundle), reports)) return false;
  }
  return true;
}

bool write_json(const std::string& path, const nlohmann::json& value) {
  if (path == "-") {
    std::cout << value.dump(1) << '\n';
    return true;
  }
  std::ofstream file(path);
  file << value.dump(1) << '\n';
  if (!file.flush()) std::cerr << path << ": cannot write\n";
  return static_cast<bool>(file);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Measures this library beside a peer on the same rays.");
  Settings settings;
  add_options(app, settings);
  CLI11_PARSE(app, argc, argv);

  PeerMachine machine = peer_describe_machine();
  machine.seed = settings.measure.seed;
  machine.rounds = settings.measure.rounds;
  machine.size = settings.measure.size;
  machine.clock = settings.measure.processor_time ? "processor time" : "wall time";
  peer_print_machine(machine);
  std::vector<PeerReport> reports;
  for (const std::string& path : settings.files) {
    BenchMesh mesh;
    std::string fault;
    if (!bench_load_mesh(path, mesh, fault)) {
      std::cerr << path << ": " << fault << '\n';
      return 1;
    }
    if (!measure_mesh(settings, mesh, reports)) return 1;
  }
  for (const std::string& name : settings.meshes) {
    if (!measure_mesh(settings, name, reports)) return 1;
  }
  for (const std::string& name : settings.hair) {
    if (!measure_hair(settings, name, reports)) return 1;
  }
  for (const std::string& name : settings.scenes) {
    if (!measure_scene(settings, name, false, reports)) return 1;
  }
  for (const std::string& name : settings.bundles) {
    if (!measure_scene(settings, name, true, reports)) return 1;
  }
  if (settings.displaced_instances > 0)
    bench_print_first_pictures(settings.displaced_instances, settings.measure.size, settings.measure.threads.back());
  if (!settings.json_path.empty() && !write_json(settings.json_path, peer_make_json(machine, reports))) return 1;
  return 0;
}
