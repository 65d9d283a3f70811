// bench/bench_builder.cpp
//
// Time to build a structure, in total and by stage. The items are the triangles of the knot.
#include <benchmark/benchmark.h>

#include <numeric>

#include "bench/bench_peers_measure.h"
#include "bench/bench_scene.h"
#include "gas/bvh/gas_bvh_motion.h"
#include "vq_gas_base/gas_bvh_split.h"

namespace {

constexpr int million = 1000000;

/// The knot as the library's mesh, with the boxes of its triangles.
struct Items {
  explicit Items(uint triangle_count) : world(1) {
    bench_fill_poly_mesh(bench_make_knot(triangle_count), mesh);
    order.resize(mesh.get_primitive_count());
    std::iota(order.begin(), order.end(), 0u);
    kept.resize(order.size());
    boxes.resize(order.size());
    compute_boxes();
  }
  uint get_count() const { return static_cast<uint>(order.size()); }
  void compute_boxes() {
    GasGeometryBase::compute_bboxes(world.ctx, mesh, order.data(), 0, get_count(), boxes.data(), kept.data(), nullptr);
  }

  BenchWorld world;
  PolyMesh mesh;
  std::vector<uint> order, kept;
  std::vector<GMathBbox3<float>> boxes;
};

/// create() as a whole. Arguments: triangles, threads.
void create_structure(benchmark::State& state) {
  const Items items(static_cast<uint>(state.range(0)));
  BenchWorld world(static_cast<uint>(state.range(1)));
  for (auto _ : state) benchmark::DoNotOptimize(BenchScene(world, items.mesh, 0).get_tree_bytes());
  state.SetItemsProcessed(state.iterations() * items.get_count());
}
BENCHMARK(create_structure)
    ->ArgNames({"triangles", "threads"})
    ->ArgsProduct({{million / 10, million}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

/// 512 x 512 rays straight down onto 2 % of a terrain's area.
BenchRaySet look_down(const GMathBbox3<double>& box) {
  constexpr uint size = 512;
  BenchRaySet set;
  const GMathVec3<double> center = box.get_center(), side = box.get_extent() * std::sqrt(0.02);
  for (uint pixel = 0; pixel < size * size; ++pixel) {
    const double x = (pixel % size + 0.5) / size - 0.5, z = (pixel / size + 0.5) / size - 0.5;
    const GMathVec3<double> eye{center.x + x * side.x, box.max.y + 1.0, center.z + z * side.z};
    set.rays.push_back(bench_make_ray(eye, {0.0, -1.0, 0.0}));
  }
  return set;
}

/// From the mesh to the first picture: create(), then the nearest hits of rays onto 2 % of a terrain. Arguments:
/// triangles, threads.
template <class Scene>
void show_first_picture(benchmark::State& state) {
  const BenchMesh terrain = bench_make_terrain(static_cast<uint>(state.range(0)));
  const uint threads = static_cast<uint>(state.range(1));
  PolyMesh mesh;
  bench_fill_poly_mesh(terrain, mesh);
  const BenchRaySet rays = look_down(terrain.get_bbox());
  std::vector<BenchHit> hits(rays.rays.size());
  BenchWorld world(threads);
  double create_seconds = 0.0;
  u64 bytes = 0;
  for (auto _ : state) {
    std::unique_ptr<Scene> scene;
    create_seconds += bench_time(BenchClock::wall, [&] { scene = std::make_unique<Scene>(world, mesh, threads); });
    bench_time_trace(BenchClock::wall, *scene, rays, threads, hits);
    bytes = scene->get_tree_bytes();
  }
  state.counters["create"] = benchmark::Counter(create_seconds, benchmark::Counter::kAvgIterations);
  state.counters["bytes/triangle"] = double(bytes) / mesh.get_primitive_count();
}
BENCHMARK_TEMPLATE(show_first_picture, BenchScene)
    ->ArgNames({"triangles", "threads"})
    ->Args({8 * million, 2})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_TEMPLATE(show_first_picture, BenchGridScene)
    ->ArgNames({"triangles", "threads"})
    ->Args({8 * million, 2})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void prepare_boxes(benchmark::State& state) {
  Items items(static_cast<uint>(state.range(0)));
  for (auto _ : state) {
    items.compute_boxes();
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * items.get_count());
}
BENCHMARK(prepare_boxes)->Arg(million / 10)->Arg(million)->Unit(benchmark::kMillisecond);

/// One split of one set. The order is restored each time, because a strategy that splits its own last result would
/// predict every branch; the copy costs little compared to the split.
void split_set(benchmark::State& state) {
  const Items items(million);
  std::vector<uint> order(items.order);
  GasBvhSplitCtx ctx;
  ctx.order = order.data();
  ctx.item_boxes = items.boxes.data();
  ctx.item_count = items.get_count();
  ctx.free_lanes = 4;
  GasBvhSplitSetGeom set, left, right;
  set.first = items.get_count() / 3;
  set.count = static_cast<uint>(state.range(0));
  set.box = ctx.compute_items_bbox(set, nullptr);
  set.area = set.box.get_half_area();
  ctx.item_box = set.box;
  GasBvhSplitAligned split;
  bool aligned = true;
  for (auto _ : state) {
    std::copy_n(items.order.begin() + set.first, set.count, order.begin() + set.first);
    benchmark::DoNotOptimize(split.split(ctx, set, left, right, aligned, nullptr));
  }
  state.SetItemsProcessed(state.iterations() * set.count);
}
BENCHMARK(split_set)->Arg(8)->Arg(64)->Arg(4096)->Arg(million / 2);

void refit_sample(benchmark::State& state) {
  Items items(static_cast<uint>(state.range(0)));
  const BenchScene scene(items.world, items.mesh, 0);
  GasBvhMotion<4> motion;
  if (!motion.set_samples(scene.get_structure().get_tree(), 2)) return state.SkipWithError("no memory");
  for (auto _ : state) {
    if (!motion.update_sample(1, items.boxes, nullptr)) return state.SkipWithError("refit refused");
  }
  state.SetItemsProcessed(state.iterations() * items.get_count());
}
BENCHMARK(refit_sample)->Arg(million / 10)->Arg(million)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
