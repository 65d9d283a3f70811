// bench/bench_curves.cpp
//
// Time of the hot functions of hair: ray test and box of a segment, and one step at a node, over the segments of one
// groom.
#include <benchmark/benchmark.h>

#include "bench/bench_random.h"
#include "bench/bench_scene.h"
#include "gas/bvh/bvh_kernel_impl.h"

namespace {

constexpr uint case_count = 4096;

/// Grown and built once per program.
struct Fur {
  explicit Fur(CurveShape shape) : world(1), groom(bench_make_groom(BenchHairStyle::fur, shape, 200000, 0)) {
    bench_fill_tube_mesh(groom, tubes);
    scene = std::make_unique<BenchHairScene>(world, tubes, true, 0);
  }
  const GasBvh<4>& get_tree() const { return scene->get_structure().get_tree(); }

  BenchWorld world;
  BenchGroom groom;
  TubeMeshFast tubes;
  std::unique_ptr<BenchHairScene> scene;
};

const Fur& get_fur(CurveShape shape) {
  static const Fur linear(CurveShape::linear), cubic(CurveShape::cubic);
  return shape == CurveShape::linear ? linear : cubic;
}

GMathVec3<double> make_direction(BenchRandom& random) {
  const double x = random.get_unit() - 0.5, y = random.get_unit() - 0.5, z = random.get_unit() - 0.5;
  return GMathVec3<double>(x, y, z).get_normalized();
}

/// A ray in a random direction that passes a random ball of the segment at a distance of `radii` of its radii.
GMathBasicRay<double> make_ray(const Fur& fur, uint segment, double radii, BenchRandom& random) {
  const CurvePoint<double> ball = fur.groom.get_ball(segment, random.get_unit(), 0.0);
  const GMathVec3<double> direction = make_direction(random);
  const GMathVec3<double> aside = direction.cross(make_direction(random)).get_normalized();
  GMathBasicRay<double> ray;
  ray.set(ball.position + aside * (radii * ball.radius) - direction * 3.0, direction);
  return ray;
}

template <CurveShape shape>
struct Case {
  CurveSegment<shape> segment;
  GMathBasicRay<double> ray;
};
template <CurveShape shape>
std::vector<Case<shape>> make_cases(double radii) {
  const Fur& fur = get_fur(shape);
  const CurveSet& curves = fur.tubes.get_curves();
  BenchRandom random(7);
  std::vector<Case<shape>> cases;
  for (uint k = 0; k < case_count; ++k) {
    const uint segment = static_cast<uint>(random.get_next() % curves.get_segment_count());
    cases.push_back({curves.get_segment<shape>(segment, {}), make_ray(fur, segment, radii, random)});
  }
  return cases;
}

/// Argument: distance of the ray from the axis of the segment, in percent of the radius. Below 100 all rays hit.
template <CurveShape shape>
void hit_segment(benchmark::State& state) {
  const std::vector<Case<shape>> cases = make_cases<shape>(0.01 * static_cast<double>(state.range(0)));
  uint next = 0;
  std::size_t hit_count = 0;
  for (auto _ : state) {
    const Case<shape>& at = cases[next++ % case_count];
    CurveHit hit;
    hit_count += curve_hit_segment(at.ray, at.segment, 0.0, 1e30, hit);
    benchmark::DoNotOptimize(hit);
  }
  state.counters["hits"] = benchmark::Counter(static_cast<double>(hit_count), benchmark::Counter::kAvgIterations);
}
BENCHMARK(hit_segment<CurveShape::linear>)->Name("hit_segment/linear")->ArgName("radii%")->Arg(50)->Arg(300)->Arg(2000);
BENCHMARK(hit_segment<CurveShape::cubic>)->Name("hit_segment/cubic")->ArgName("radii%")->Arg(50)->Arg(300)->Arg(2000);

/// The box along the axes of another segment, as the builder measures it.
template <CurveShape shape>
void bbox_in_space(benchmark::State& state) {
  const std::vector<Case<shape>> cases = make_cases<shape>(0.0);
  std::vector<GMathLinearSpace3<double>> spaces;
  for (const Case<shape>& at : cases) spaces.push_back(curve_get_space(at.segment));
  uint next = 0;
  for (auto _ : state) {
    const uint at = next++ % case_count;
    benchmark::DoNotOptimize(curve_get_bbox_in_space(cases[at].segment, spaces[(at + 1) % case_count]));
  }
}
BENCHMARK(bbox_in_space<CurveShape::linear>)->Name("bbox_in_space/linear");
BENCHMARK(bbox_in_space<CurveShape::cubic>)->Name("bbox_in_space/cubic");

/// One traversal step at a node of one kind. The nodes fit the cache, so memory latency is excluded.
template <class Step>
void walk_nodes(benchmark::State& state, uint node_count, const Step& step) {
  const Fur& fur = get_fur(CurveShape::cubic);
  if (node_count == 0) return state.SkipWithError("the tree has no such nodes");
  BenchRandom random(8);
  const uint ray_count = 64;
  GeometryRayPacket packet;
  packet.resize(ray_count);
  std::vector<BvhOrientedRay> oriented;
  for (uint k = 0; k < ray_count; ++k) {
    const uint segment = static_cast<uint>(random.get_next() % fur.groom.get_segment_count());
    const GMathBasicRay<double> ray = make_ray(fur, segment, 0.0, random);
    packet.set_ray(k, ray.origin, ray.direction);
    oriented.push_back(bvh_load_oriented_ray(packet.get_ray(k), 0.0, DBL_MAX));
  }
  const GeometryRaytraceCtx& query = packet.begin_nearest(fur.world.shading);
  std::vector<BvhRay> rays;
  for (uint k = 0; k < ray_count; ++k)
    rays.push_back(bvh_load_ray<BvhTime::still>(query, k, 1e30f, fur.get_tree().box));
  uint next = 0;
  for (auto _ : state) {
    SimdF entry;
    const uint node = next % std::min(node_count, 512u), ray = next % ray_count;
    ++next;
    benchmark::DoNotOptimize(step(node, rays[ray], oriented[ray], entry));
    benchmark::DoNotOptimize(entry);
  }
}

void node_aligned(benchmark::State& state) {
  const GasBvh<4>& tree = get_fur(CurveShape::cubic).get_tree();
  walk_nodes(state, tree.aligned_count, [&](uint node, const BvhRay& ray, const BvhOrientedRay&, SimdF& entry) {
    return bvh_test_lanes(bvh_pick_planes(tree.aligned[node].lanes.planes, ray), ray, entry);
  });
}
BENCHMARK(node_aligned);

void node_quantized(benchmark::State& state) {
  const GasBvh<4>& tree = get_fur(CurveShape::cubic).get_tree();
  const GMathBbox3<float> frame = tree.box;
  walk_nodes(state, tree.quantized_count, [&](uint node, const BvhRay& ray, const BvhOrientedRay&, SimdF& entry) {
    BvhLanePlanes decoded;
    return bvh_test_lanes(bvh_decode_planes(tree.quantized[node].lanes.planes, frame, ray, decoded), ray, entry);
  });
}
BENCHMARK(node_quantized);

void node_oriented(benchmark::State& state) {
  const GasBvh<4>& tree = get_fur(CurveShape::cubic).get_tree();
  walk_nodes(state, tree.oriented_count, [&](uint node, const BvhRay&, const BvhOrientedRay& ray, SimdF& entry) {
    return bvh_test_oriented(tree.oriented[node], BvhUnitCubes{}, ray, entry);
  });
}
BENCHMARK(node_oriented);

}  // namespace

BENCHMARK_MAIN();
