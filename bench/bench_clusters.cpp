// bench/bench_clusters.cpp
//
// Time to divide a knot into clusters, and to compute their boxes and weights. Argument: number of clusters requested.
#include <benchmark/benchmark.h>

#include "bench/bench_scene.h"

namespace {

/// A knot of a million triangles. Built once a program.
struct Knot {
  Knot() : world(1) {
    bench_fill_poly_mesh(bench_make_knot(1000000), mesh);
    scene = std::make_unique<BenchScene>(world, mesh, 0);
  }
  CoreVector<void*> get_clusters(uint count) const {
    CoreVector<void*> clusters;
    scene->get_structure().get_clusters(clusters, count, 0.5f);
    return clusters;
  }

  BenchWorld world;
  PolyMesh mesh;
  std::unique_ptr<BenchScene> scene;
};

const Knot& get_knot() {
  static const Knot knot;
  return knot;
}

void get_clusters(benchmark::State& state) {
  const Knot& knot = get_knot();
  uint count = 0;
  for (auto _ : state) count = knot.get_clusters(static_cast<uint>(state.range(0))).get_count();
  state.counters["clusters"] = count;
}
BENCHMARK(get_clusters)->Arg(16)->Arg(64)->Arg(1024);

void get_clusters_bboxes(benchmark::State& state) {
  const CoreVector<void*> clusters = get_knot().get_clusters(static_cast<uint>(state.range(0)));
  std::vector<GMathBbox3<float>> boxes(clusters.get_count());
  for (auto _ : state) {
    get_knot().scene->get_structure().get_clusters_bboxes(clusters.as_array(), boxes.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(get_clusters_bboxes)->Arg(16)->Arg(1024);

void get_clusters_weights(benchmark::State& state) {
  const CoreVector<void*> clusters = get_knot().get_clusters(static_cast<uint>(state.range(0)));
  std::vector<float> weights(clusters.get_count());
  for (auto _ : state) {
    get_knot().scene->get_structure().get_clusters_weights(clusters.as_array(), weights.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(get_clusters_weights)->Arg(16)->Arg(1024)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
