// bench/bench_peers.cpp
//
// This library and a peer on the same meshes and the same rays, in one process:
//
//   bench_peers bunny.obj dragon.ply --threads 1,2 --json peers.json
//   bench_peers dragon.ply --sets bounce --only-ours --rounds 20        (under a profiler)
//
// Measures only: it fails on bad input, never on a time.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <fstream>
#include <iostream>

#include "bench/bench_mesh_file.h"
#include "bench/bench_peers_embree.h"
#include "bench/bench_peers_report.h"
#include "bench/bench_scene.h"

namespace {

struct Settings {
  std::vector<std::string> files;
  std::vector<std::string> sets = {"primary", "bounce", "random", "shadow"};
  std::vector<std::string> peers = {"user-sse42", "user", "tri-sse42", "tri"};
  std::vector<uint> threads = {1, 2};
  uint rounds = 7, build_rounds = 3, size = 1024;
  uint terrain_triangles = 8000000, knot_triangles = 200000;
  bool no_terrain = false, no_knot = false, only_ours = false, processor_time = false;
  u64 seed = 1;
  std::string json_path;

  BenchClock get_clock() const { return processor_time ? BenchClock::processor : BenchClock::wall; }
  /// A build on several threads hands out its work by itself, and so has no processor time of a worker.
  BenchClock get_build_clock(uint thread_count) const { return thread_count == 1 ? get_clock() : BenchClock::wall; }
  uint get_most_threads() const { return *std::max_element(threads.begin(), threads.end()); }
};

/// One library with its tree over one mesh.
struct Contender {
  std::string name;
  std::unique_ptr<BenchWorld> world;
  std::unique_ptr<EmbreeDevice> device;
  std::unique_ptr<BenchTracer> tracer;
  double build_seconds = 0.0;
};

Contender make_ours(BenchClock clock, const PolyMesh& mesh, uint thread_count) {
  Contender made;
  made.name = peer_ours;
  made.world = std::make_unique<BenchWorld>(thread_count);
  made.build_seconds =
      bench_time(clock, [&] { made.tracer = std::make_unique<BenchScene>(*made.world, mesh, thread_count); });
  return made;
}

/// Without a tracer when the peer does not run here.
Contender make_peer(BenchClock clock, const EmbreeKind& kind, const BenchMesh& mesh, uint thread_count) {
  Contender made;
  made.name = kind.name;
  made.device = std::make_unique<EmbreeDevice>(kind, thread_count);
  if (made.device->get() == nullptr) return made;
  auto scene = std::make_unique<EmbreeScene>(*made.device, kind, mesh);
  made.build_seconds = bench_time(clock, [&] { scene->commit(); });
  made.tracer = std::move(scene);
  return made;
}

/// A mesh on its way through all measurements.
class MeshRun {
 public:
  MeshRun(const Settings& settings, const BenchMesh& mesh) : settings_(settings), mesh_(mesh) {
    report_.mesh = mesh.name;
    report_.triangle_count = mesh.get_triangle_count();
    if (!settings.only_ours) {
      for (const EmbreeKind& kind : get_embree_kinds()) {
        if (std::find(settings.peers.begin(), settings.peers.end(), kind.name) != settings.peers.end())
          kinds_.push_back(kind);
      }
    }
  }

  bool run() {
    if (!bench_fill_poly_mesh(mesh_, poly_mesh_)) return false;
    measure_builds();
    const uint most = settings_.get_most_threads();
    const BenchClock clock = settings_.get_build_clock(most);
    contenders_.push_back(make_ours(clock, poly_mesh_, most));
    for (const EmbreeKind& kind : kinds_) contenders_.push_back(make_peer(clock, kind, mesh_, most));
    std::erase_if(contenders_, [](const Contender& contender) { return contender.tracer == nullptr; });
    for (const Contender& contender : contenders_) {
      const double count = mesh_.get_triangle_count();
      report_.memory.push_back({contender.name, static_cast<double>(contender.tracer->get_tree_bytes()) / count,
                                static_cast<double>(contender.tracer->get_total_bytes()) / count});
    }
    make_ray_sets();
    std::erase_if(sets_, [](const BenchRaySet& set) { return set.rays.empty(); });  // nothing hit, no bounces
    for (const BenchRaySet& set : sets_) {
      const BenchScene::MeanVisits visits = get_ours().count_visits(set);
      report_.visits.push_back({set.name, visits.nodes, visits.leaves});
      for (const uint threads : settings_.threads) measure_set(set, threads);
    }
    return true;
  }
  const PeerMeshReport& get_report() const { return report_; }

 private:
  void measure_builds() {
    for (const uint threads : settings_.threads) {
      const BenchClock clock = settings_.get_build_clock(threads);
      const std::size_t first_row = report_.builds.size();
      for (uint round = 0; round < settings_.build_rounds; ++round) {
        for (std::size_t k = 0; k <= kinds_.size(); ++k) {
          const Contender built =
              k == 0 ? make_ours(clock, poly_mesh_, threads) : make_peer(clock, kinds_[k - 1], mesh_, threads);
          if (round == 0) report_.builds.push_back({built.name, threads, {}});
          if (built.tracer != nullptr)
            report_.builds[first_row + k].mprims.push_back(1e-6 * mesh_.get_triangle_count() / built.build_seconds);
        }
      }
    }
  }

  BenchScene& get_ours() { return static_cast<BenchScene&>(*contenders_[0].tracer); }
  bool is_wanted(const std::string& set) const {
    return std::find(settings_.sets.begin(), settings_.sets.end(), set) != settings_.sets.end();
  }

  void make_ray_sets() {
    const BenchRaySet primary = bench_make_primary_rays(mesh_, settings_.size);
    std::vector<BenchHit> hits(primary.rays.size());
    bench_time_trace(settings_.get_clock(), get_ours(), primary, 1, hits);
    const BenchRaySet bounce = bench_make_bounce_rays(mesh_, primary, hits, settings_.seed);
    if (is_wanted("primary")) sets_.push_back(primary);
    if (is_wanted("bounce")) sets_.push_back(bounce);
    if (is_wanted("random"))
      sets_.push_back(bench_make_random_rays(mesh_, settings_.size * settings_.size, settings_.seed + 1));
    if (is_wanted("shadow") && !bounce.rays.empty()) {
      sets_.push_back(bench_make_shadow_rays(mesh_, bounce, settings_.seed + 2));
      choose_any_hit_query(sets_.back());
    }
  }

  /// Both ways of asking are open to a program, so the comparison takes the faster.
  void choose_any_hit_query(const BenchRaySet& set) {
    std::vector<BenchHit> hits(set.rays.size());
    double best[2] = {1e30, 1e30};
    for (uint round = 0; round < 3; ++round) {
      for (const BenchAnyHitQuery query : {BenchAnyHitQuery::nearest, BenchAnyHitQuery::first_of_all}) {
        get_ours().set_any_hit_query(query);
        double& least = best[static_cast<uint>(query)];
        least = std::min(least, bench_time_trace(settings_.get_clock(), get_ours(), set, 1, hits));
      }
    }
    const bool nearest = best[0] <= best[1];
    get_ours().set_any_hit_query(nearest ? BenchAnyHitQuery::nearest : BenchAnyHitQuery::first_of_all);
    char times[96];
    const double mrays = 1e-6 * static_cast<double>(set.rays.size());
    std::snprintf(times, sizeof times, " (nearest %.3f, all hits %.3f Mrays/s)", mrays / best[0], mrays / best[1]);
    report_.any_hit_query =
        (nearest ? "the nearest hit within the interval" : "all hits, stopped at the first") + std::string(times);
  }

  void measure_set(const BenchRaySet& set, uint threads) {
    std::vector<std::vector<BenchHit>> hits(contenders_.size(), std::vector<BenchHit>(set.rays.size()));
    std::vector<PeerTraceRow> rows;
    for (std::size_t k = 0; k < contenders_.size(); ++k) {
      rows.push_back({set.name, contenders_[k].name, threads, set.rays.size(), {}, {}});
      bench_time_trace(settings_.get_clock(), *contenders_[k].tracer, set, threads,
                       hits[k]);  // warms caches and scratch, touches `hits`
      rows[k].disagreement = bench_compare(set, hits[0], hits[k]);
    }
    for (uint round = 0; round < settings_.rounds; ++round) {
      for (std::size_t k = 0; k < contenders_.size(); ++k) {
        const double seconds = bench_time_trace(settings_.get_clock(), *contenders_[k].tracer, set, threads, hits[k]);
        rows[k].mrays.push_back(1e-6 * static_cast<double>(set.rays.size()) / seconds);
      }
    }
    report_.traces.insert(report_.traces.end(), rows.begin(), rows.end());
  }

  const Settings& settings_;
  const BenchMesh& mesh_;
  std::vector<EmbreeKind> kinds_;
  PolyMesh poly_mesh_;
  std::vector<Contender> contenders_;
  std::vector<BenchRaySet> sets_;
  PeerMeshReport report_;
};

void add_options(CLI::App& app, Settings& settings) {
  app.add_option("files", settings.files, "Mesh files (OBJ, PLY, ...)");
  app.add_option("--sets", settings.sets, "Ray sets")
      ->delimiter(',')
      ->check(CLI::IsMember({"primary", "bounce", "random", "shadow"}))
      ->capture_default_str();
  app.add_option("--peers", settings.peers, "Peers: Embree user geometry or built-in triangles, at SSE4.2 or its best")
      ->delimiter(',')
      ->check(CLI::IsMember({"user-sse42", "user", "tri-sse42", "tri"}))
      ->capture_default_str();
  app.add_option("--threads", settings.threads, "Thread counts")
      ->delimiter(',')
      ->check(CLI::Range(1, 256))
      ->capture_default_str();
  app.add_option("--rounds", settings.rounds, "Rounds of each ray set")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  app.add_option("--build-rounds", settings.build_rounds, "Rounds of the builds; 0 leaves them out")
      ->capture_default_str();
  app.add_option("--size", settings.size, "Primary rays a side; as many random rays")
      ->check(CLI::Range(1, 16384))
      ->capture_default_str();
  app.add_option("--terrain", settings.terrain_triangles, "Triangles of the generated terrain")
      ->check(CLI::Range(2, 200000000))
      ->capture_default_str();
  app.add_option("--knot", settings.knot_triangles, "Triangles of the generated knot")
      ->check(CLI::Range(96, 200000000))
      ->capture_default_str();
  app.add_flag("--no-terrain", settings.no_terrain, "Leave out the terrain");
  app.add_flag("--no-knot", settings.no_knot, "Leave out the knot");
  app.add_flag("--only-ours", settings.only_ours, "No peers");
  app.add_flag("--processor-time", settings.processor_time,
               "Count the threads' own processor time: for machines that others use as well");
  app.add_option("--seed", settings.seed, "Seed of the random rays")->capture_default_str();
  app.add_option("--json", settings.json_path, "Write the results to this file (- for standard output)");
}

bool measure_mesh(const Settings& settings, BenchMesh mesh, std::vector<PeerMeshReport>& reports) {
  mesh.positions.reserve(mesh.positions.size() + 1);  // the peer reads four bytes past the last position
  MeshRun run(settings, mesh);
  if (!run.run()) {
    std::cerr << mesh.name << ": not a mesh\n";
    return false;
  }
  peer_print_report(run.get_report());
  reports.push_back(run.get_report());
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
  machine.seed = settings.seed;
  machine.rounds = settings.rounds;
  machine.clock = settings.processor_time ? "processor time" : "wall time";
  peer_print_machine(machine);
  std::vector<PeerMeshReport> reports;
  for (const std::string& path : settings.files) {
    BenchMesh mesh;
    std::string fault;
    if (!bench_load_mesh(path, mesh, fault)) {
      std::cerr << path << ": " << fault << '\n';
      return 1;
    }
    if (!measure_mesh(settings, std::move(mesh), reports)) return 1;
  }
  if (!settings.no_knot && !measure_mesh(settings, bench_make_knot(settings.knot_triangles), reports)) return 1;
  if (!settings.no_terrain && !measure_mesh(settings, bench_make_terrain(settings.terrain_triangles), reports))
    return 1;
  if (!settings.json_path.empty() && !write_json(settings.json_path, peer_make_json(machine, reports))) return 1;
  return 0;
}
