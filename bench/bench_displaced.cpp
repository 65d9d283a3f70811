// bench/bench_displaced.cpp
//
// The same displaced surface three times: as a DisplacedMesh on the grid with a cache that holds all of it, the same
// with a cache of 64 MB (primary rays only: others compute the same tiles again and again), and with all
// micro-triangles in a PolyMesh under the four-wide tree. Each runs in a process of its own, for its peak memory.
//
//   bench_displaced [TRIANGLES [RATE [ROUNDS]]]
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <thread>

#include "bench/bench_peers_measure.h"
#include "bench/bench_scene.h"
#include "vq_geometry/displaced_mesh.h"

namespace {

constexpr uint thread_count = 2, picture_size = 512, random_count = 65536;
constexpr u64 small_cache = u64{64} << 20;

struct Settings {
  uint triangles = 20000, rate = 32, rounds = 5;
  u64 cache_bytes = 0;
};

void displace(const Settings& settings, const PolyMesh& base, const GMathBbox3<double>& box, DisplacedMesh& mesh) {
  const double diagonal = box.get_extent().get_length();
  GeometryNoiseSettings noise;
  noise.octaves = 5;
  noise.frequency = 12.0 / diagonal;
  noise.amplitude = 0.02 * diagonal;
  DisplacedMeshSettings displacement;
  displacement.height = std::make_shared<GeometryNoiseHeight>(noise);
  displacement.bound = noise.amplitude;
  displacement.rate = settings.rate;
  displacement.cache_bytes = settings.cache_bytes;
  CoreString error;
  if (mesh.create(base, displacement, error)) return;
  std::fprintf(stderr, "%s\n", error.get_data());
  std::exit(1);
}

/// All micro-triangles of a displaced mesh of triangles, patch by patch.
PolyMeshData tessellate(const DisplacedMesh& mesh, uint rate) {
  const std::size_t patches = mesh.get_primitive_count(), patch_vertices = std::size_t{rate + 1} * (rate + 2) / 2;
  PolyMeshData data;
  data.positions.resize(patches * patch_vertices);
  data.polygon_sizes.assign(patches * rate * rate, 3);
  data.polygon_vertices.resize(3 * patches * rate * rate);
  const auto fill = [&](std::size_t patch) {
    const double at_rest = std::numeric_limits<double>::quiet_NaN();
    GMathVec3<float>* position = &data.positions[patch * patch_vertices];
    u32* corner = &data.polygon_vertices[3 * patch * rate * rate];
    u32 vertex = static_cast<u32>(patch * patch_vertices);
    for (uint i = 0; i <= rate; ++i) {
      const uint row = rate - i + 1;  // vertices in this row; the next has one less
      for (uint j = 0; j < row; ++j, ++vertex) {
        *position++ = GMathVec3<float>(mesh.get_micro_vertex(static_cast<uint>(patch), 0, i, j, at_rest));
        if (i < rate && j + 1 < row)
          for (const u32 k : {vertex, vertex + row, vertex + 1}) *corner++ = k;
        if (i < rate && j + 2 < row)
          for (const u32 k : {vertex + row + 1, vertex + 1, vertex + row}) *corner++ = k;
      }
    }
  };
  std::atomic<std::size_t> next{0};
  std::vector<std::thread> threads;
  for (uint thread = 0; thread < thread_count; ++thread)
    threads.emplace_back([&] {
      for (std::size_t patch = next++; patch < patches; patch = next++) fill(patch);
    });
  for (std::thread& thread : threads) thread.join();
  return data;
}

/// In a process of its own: makes the structure, then prints times, rates and what was hit.
void measure(const Settings& settings, bool as_mesh) {
  const BenchMesh knot = bench_make_knot(settings.triangles);
  PolyMesh base, full;
  bench_fill_poly_mesh(knot, base);
  BenchWorld world(thread_count);
  auto displaced = std::make_unique<DisplacedMesh>();
  std::unique_ptr<BenchStructure> scene;
  BenchRaySet sets[] = {bench_make_primary_rays(knot.get_bbox(), picture_size),
                        bench_make_random_rays(knot.get_bbox(), random_count, 1)};
  std::vector<BenchHit> hits(sets[0].rays.size());
  double build_seconds = 0.0, picture_seconds = 0.0;
  const auto build = [&] {
    displace(settings, base, knot.get_bbox(), *displaced);
    if (!as_mesh) {
      scene = std::make_unique<BenchGridScene>(world, *displaced, thread_count);
      return;
    }
    CoreString error;
    PolyMeshData data = tessellate(*displaced, settings.rate);
    displaced = nullptr;
    if (full.create(std::move(data), error)) scene = std::make_unique<BenchScene>(world, full, thread_count);
  };
  const double processor_seconds = bench_time(BenchClock::processor, [&] {
    build_seconds = bench_time(BenchClock::wall, build);
    if (scene != nullptr) picture_seconds = bench_time_trace(BenchClock::wall, *scene, sets[0], thread_count, hits);
  });
  if (scene == nullptr) return;
  std::printf("first picture after %.2f s, %.2f s of it the build (processor time of all threads %.2f s)",
              build_seconds + picture_seconds, build_seconds, processor_seconds);
  for (const BenchRaySet& set : sets) {
    if (&set != sets && settings.cache_bytes == small_cache && !as_mesh) break;
    hits.resize(set.rays.size());
    std::vector<double> rates;
    for (uint round = 0; round <= settings.rounds; ++round) {
      const double seconds = bench_time_trace(BenchClock::processor, *scene, set, thread_count, hits);
      if (round > 0) rates.push_back(1e-6 * static_cast<double>(set.rays.size()) / seconds);
    }
    const BenchSpread spread = bench_get_spread(rates);
    double sum = 0.0;
    for (const BenchHit& hit : hits) sum += hit.is_hit() ? static_cast<double>(hit.distance) : 0.0;
    std::printf("; %s %.3f [%.3f..%.3f] Mrays/s, distances %.9g in sum", set.name.c_str(), spread.median, spread.least,
                spread.most, sum);
  }
}

/// False if the measurement failed.
bool measure_in_child(const char* name, const Settings& settings, bool as_mesh) {
  std::printf("%s: ", name);
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    measure(settings, as_mesh);
    std::fflush(stdout);
    _exit(0);
  }
  int status = 0;
  rusage usage{};
  if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0) return false;
  std::printf("; peak memory %.2f GB\n", 1024e-9 * static_cast<double>(usage.ru_maxrss));
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Settings settings;
  uint* const numbers[] = {&settings.triangles, &settings.rate, &settings.rounds};
  for (int k = 1; k < argc && k <= 3; ++k) *numbers[k - 1] = static_cast<uint>(std::strtoul(argv[k], nullptr, 10));
  std::printf(
      "knot of %u triangles, rate %u: %.1f million micro-triangles; %u threads, rates by processor time, medians of %u "
      "rounds\n",
      settings.triangles, settings.rate, 1e-6 * settings.triangles * settings.rate * settings.rate, thread_count,
      settings.rounds);
  settings.cache_bytes = u64{1} << 40;
  bool is_measured = measure_in_child("displaced, all cached", settings, false);
  settings.cache_bytes = small_cache;
  is_measured = measure_in_child("displaced, 64 MB cached", settings, false) && is_measured;
  return measure_in_child("tessellated", settings, true) && is_measured ? 0 : 1;
}
