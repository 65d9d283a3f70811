// bench/bench_traversal.cpp
//
// Time of queries over one knot. Rays are put into packets in advance: this is not measured.
#include <benchmark/benchmark.h>

#include <cmath>

#include "bench/bench_random.h"
#include "bench/bench_scene.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

constexpr uint triangles = 200000;
constexpr uint side = 256;  // primary rays; as many random ones

enum RayKind { primary, random_lines };

/// One knot, static or moving, with its contexts. Built once per program.
struct Knot {
  explicit Knot(bool moving) : world(1), mesh(bench_make_knot(triangles)), blur(0.0, 1.0, 4) {
    if (moving) {
      bench_add_motion(mesh, 4);
      world.ctx.set_motion_blur(&blur);
      shader.motion_blur = &blur;
    }
    bench_fill_poly_mesh(mesh, poly_mesh);
    scene = std::make_unique<BenchScene>(world, poly_mesh, 0);
  }
  const GasObject& get_structure() const { return scene->get_structure(); }

  BenchWorld world;
  BenchMesh mesh;
  CtxMotionBlur blur;
  CtxShader shader;
  PolyMesh poly_mesh;
  std::unique_ptr<BenchScene> scene;
};

Knot& get_knot(bool moving) {
  static Knot still(false), turning(true);
  return moving ? turning : still;
}

/// The rays as packets, at random times.
class Packets {
 public:
  Packets(const Knot& knot, RayKind kind) {
    const BenchRaySet set = kind == primary ? bench_make_primary_rays(knot.mesh.get_bbox(), side)
                                            : bench_make_random_rays(knot.mesh.get_bbox(), side * side, 1);
    BenchRandom random(2);
    packets_ = std::vector<GeometryRayPacket>(set.rays.size() / BenchScene::packet_size);
    for (std::size_t ray = 0; ray < packets_.size() * BenchScene::packet_size; ++ray) {
      GeometryRayPacket& packet = packets_[ray / BenchScene::packet_size];
      const uint index = ray % BenchScene::packet_size;
      if (index == 0) packet.resize(BenchScene::packet_size);
      packet.set_ray(index, GMathVec3<double>(set.rays[ray].origin), GMathVec3<double>(set.rays[ray].direction), 0.0,
                     DBL_MAX, random.get_unit());
    }
  }
  /// The next packet, in turn.
  GeometryRayPacket& get_next() { return packets_[next_++ % packets_.size()]; }

 private:
  std::vector<GeometryRayPacket> packets_;
  std::size_t next_ = 0;
};

void count_rays(benchmark::State& state) {
  state.counters["rays"] = benchmark::Counter(static_cast<double>(state.iterations()) * BenchScene::packet_size,
                                              benchmark::Counter::kIsRate);
}

void nearest(benchmark::State& state, RayKind kind) {
  Knot& knot = get_knot(false);
  Packets packets(knot, kind);
  for (auto _ : state)
    knot.get_structure().ray_hit_nearest_static(knot.world.ctx, knot.shader,
                                                packets.get_next().begin_nearest(knot.world.shading));
  count_rays(state);
}
BENCHMARK_CAPTURE(nearest, primary, primary);
BENCHMARK_CAPTURE(nearest, random, random_lines);

void all_hits(benchmark::State& state, RayKind kind) {
  Knot& knot = get_knot(false);
  Packets packets(knot, kind);
  for (auto _ : state)
    knot.get_structure().ray_hit_static(knot.world.ctx, knot.shader,
                                        packets.get_next().begin_all_hits(knot.world.shading));
  count_rays(state);
}
BENCHMARK_CAPTURE(all_hits, primary, primary);
BENCHMARK_CAPTURE(all_hits, random, random_lines);

void nearest_motion(benchmark::State& state, RayKind kind) {
  Knot& knot = get_knot(true);
  Packets packets(knot, kind);
  for (auto _ : state)
    knot.get_structure().ray_hit_nearest_motion(knot.world.ctx, knot.shader,
                                                packets.get_next().begin_nearest(knot.world.shading));
  count_rays(state);
}
BENCHMARK_CAPTURE(nearest_motion, primary, primary);
BENCHMARK_CAPTURE(nearest_motion, random, random_lines);

/// Four planes around a box at vertex `place` of the mesh, a hundredth of the mesh wide, without ends.
void add_beam(const Knot& knot, uint place, GeometryFrustumCtx& query) {
  const GMathVec3<double> center(knot.mesh.positions[place]);
  const double half = 0.005 * knot.mesh.get_bbox().get_extent().get_length();
  for (const GMathVec3<double>& axis : {GMathVec3<double>(1.0, 0.0, 0.0), GMathVec3<double>(0.0, 1.0, 0.0)}) {
    query.add_plane({center - axis * half, axis});
    query.add_plane({center + axis * half, -axis});
  }
}

/// A thin beam through the mesh, at a different vertex each time.
void frustum(benchmark::State& state, GeometryFrustumMode mode) {
  Knot& knot = get_knot(false);
  std::vector<std::unique_ptr<GeometryFrustumCtx>> queries;
  BenchRandom random(3);
  for (uint k = 0; k < 64; ++k) {
    queries.push_back(std::make_unique<GeometryFrustumCtx>());
    queries.back()->mode = static_cast<uint>(mode);
    queries.back()->shading = &knot.world.shading;
    add_beam(knot, static_cast<uint>(random.get_next() % knot.mesh.positions.size()), *queries.back());
  }
  std::size_t next = 0;
  for (auto _ : state) {
    GeometryFrustumCtx& query = *queries[next++ % queries.size()];
    query.result = {};
    query.get_points().clear();
    knot.get_structure().frustum_hit(knot.world.ctx, knot.shader, query);
    benchmark::DoNotOptimize(query.result.hit_count);
  }
}
BENCHMARK_CAPTURE(frustum, any, GeometryFrustumMode::any);
BENCHMARK_CAPTURE(frustum, all, GeometryFrustumMode::all);
BENCHMARK_CAPTURE(frustum, points, GeometryFrustumMode::points);

}  // namespace

BENCHMARK_MAIN();
