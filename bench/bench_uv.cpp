// bench/bench_uv.cpp
//
// GasUvTree: a layout of charts, built, and drawn by one lookup a pixel. Beside it a rasterizer that loops over the
// edges and the pixels of each, which is what a program would do that draws whole pictures only; it cannot answer for
// one point. Both give the coverage of the same lines.
//
//   bench_uv [EDGES [SIZE [THREADS [ROUNDS]]]]
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "bench/bench_peers_measure.h"
#include "bench/bench_random.h"
#include "bench/bench_scene.h"
#include "gas/gas_uv_tree.h"
#include "vq_module/module_geometry.h"
#include "vq_of/of_object.h"

namespace {

using Point = GMathVec3<float>;

/// Square grids of quadrilaterals, each turned at random, in cells of the unit square.
std::shared_ptr<PolyMesh> make_charts(uint edge_count) {
  constexpr uint cells = 4;  // a side
  const uint side = std::max(1u, static_cast<uint>(std::sqrt(edge_count / (2.0 * cells * cells))));
  BenchRandom random(1);
  PolyMeshData data;
  GeometryUvMap map;
  map.name = "uv";
  for (uint chart = 0; chart < cells * cells; ++chart) {
    const double angle = 1.5707963 * random.get_unit(), scale = 0.66 / (cells * side);
    const double turn_x = scale * std::cos(angle), turn_y = scale * std::sin(angle);
    const u32 first = static_cast<u32>(map.positions.size());
    for (uint row = 0; row <= side; ++row) {
      for (uint column = 0; column <= side; ++column) {
        const double x = column - 0.5 * side + 0.3 * random.get_unit(), y = row - 0.5 * side + 0.3 * random.get_unit();
        map.positions.emplace_back(static_cast<float>((chart % cells + 0.5) / cells + x * turn_x - y * turn_y),
                                   static_cast<float>((chart / cells + 0.5) / cells + x * turn_y + y * turn_x), 0.0f);
      }
    }
    for (uint row = 0; row < side; ++row) {
      for (uint column = 0; column < side; ++column) {
        const u32 corner = first + row * (side + 1) + column;
        data.polygon_sizes.push_back(4);
        for (const u32 vertex : {corner, corner + 1, corner + side + 2, corner + side + 1})
          data.polygon_vertices.push_back(vertex);
      }
    }
  }
  map.corner_positions = data.polygon_vertices;
  data.positions = map.positions;
  data.uv_maps.push_back(std::move(map));
  auto mesh = std::make_shared<PolyMesh>();
  CoreString error;
  if (!mesh->create(std::move(data), error)) std::abort();
  return mesh;
}

/// Square picture of the unit square, one coverage a pixel, and lines of two pixels' tolerance.
struct Picture {
  explicit Picture(uint size)
      : size(size), tolerance(1.0f / static_cast<float>(size)), coverage(std::size_t{size} * size) {}
  double get_center(uint pixel) const { return (pixel + 0.5) / size; }

  uint size;
  float tolerance;
  std::vector<float> coverage;
};

void draw_lookups(const GasUvTree& tree, const BenchWorld& world, uint threads, Picture& picture) {
  constexpr uint tile = 32;
  const uint tiles = (picture.size + tile - 1) / tile;
  std::atomic<uint> next = 0;
  const auto work = [&] {
    CtxEval ctx(world.app.get_factory());
    CtxShader shader;
    shader.hit_threshold = -1.0;
    GMathRay ray;
    ray.set({0, 0, 0}, {0, 0, 1});
    GeometryRayInterval interval;
    interval.extent = picture.tolerance;
    GeometryRaytraceCtx query;
    query.rays = reinterpret_cast<const u8*>(&ray);
    query.ray_count = 1;
    query.intervals = &interval;
    for (uint k = next++; k < tiles * tiles; k = next++) {
      const uint first_x = k % tiles * tile, first_y = k / tiles * tile;
      for (uint y = first_y; y < std::min(first_y + tile, picture.size); ++y) {
        for (uint x = first_x; x < std::min(first_x + tile, picture.size); ++x) {
          ray.origin.x = picture.get_center(x);
          ray.origin.y = picture.get_center(y);
          picture.coverage[std::size_t{y} * picture.size + x] = tree.ray_hit(ctx, shader, query);
        }
      }
    }
  };
  std::vector<std::thread> others;
  for (uint k = 1; k < threads; ++k) others.emplace_back(work);
  work();
  for (std::thread& other : others) other.join();
}

void draw_edges(const GeometryUvMapData& map, Picture& picture) {
  std::fill(picture.coverage.begin(), picture.coverage.end(), 1.0f);
  const float t = picture.tolerance, size = static_cast<float>(picture.size);
  const auto clamp = [&](float value) { return static_cast<int>(std::clamp(value, 0.0f, size)); };
  for (const GeometryUvEdge& edge : map.edges) {
    const Point &a = map.uvs[edge.first], &b = map.uvs[edge.second];
    const float low_x = std::min(a.x, b.x) - t, high_x = std::max(a.x, b.x) + t;
    const float low_y = std::min(a.y, b.y) - t, high_y = std::max(a.y, b.y) + t;
    for (int y = clamp(low_y * size - 1.0f); y < clamp(high_y * size + 1.0f); ++y) {
      for (int x = clamp(low_x * size - 1.0f); x < clamp(high_x * size + 1.0f); ++x) {
        const GMathVec2<float> point{static_cast<float>(picture.get_center(x)),
                                     static_cast<float>(picture.get_center(y))};
        if (point.x < low_x || point.x > high_x || point.y < low_y || point.y > high_y) continue;
        const float d = GasUvTree::get_distance_from_point_to_line(point, a, b);
        picture.coverage[std::size_t(y) * picture.size + x] *= std::min(d / t, 1.0f);
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const auto get = [&](int k, unsigned long otherwise) {
    return static_cast<uint>(argc > k ? std::strtoul(argv[k], nullptr, 10) : otherwise);
  };
  const uint edges = get(1, 1'000'000), size = get(2, 4096), threads = get(3, 2), rounds = get(4, 3);
  if (edges == 0 || size == 0 || threads == 0 || rounds == 0) {
    std::fprintf(stderr, "bench_uv [EDGES [SIZE [THREADS [ROUNDS]]]]: all above 0\n");
    return 2;
  }
  BenchWorld world(threads);
  const std::shared_ptr<PolyMesh> mesh = make_charts(edges);
  ModuleGeometry module("charts", mesh, nullptr, ModuleClusterFunctions());
  OfObject item("charts", &module);
  CoreSet<OfObject*> items;
  items.add(&item);
  GasUvTree tree;
  tree.update(world.app, items, true, CoreString());
  std::vector<double> builds, lookups, rasters;
  Picture looked_up(size), rasterized(size);
  for (uint round = 0; round < rounds; ++round) {
    builds.push_back(bench_time(BenchClock::wall, [&] { tree.build(); }));
    lookups.push_back(bench_time(BenchClock::wall, [&] { draw_lookups(tree, world, threads, looked_up); }));
    rasters.push_back(bench_time(BenchClock::wall, [&] { draw_edges(tree.get_uv_maps()[0], rasterized); }));
  }
  float largest = 0.0f;
  u64 drawn = 0;
  for (std::size_t k = 0; k < looked_up.coverage.size(); ++k) {
    largest = std::max(largest, std::fabs(looked_up.coverage[k] - rasterized.coverage[k]));
    drawn += looked_up.coverage[k] < 1.0f;
  }
  const auto print = [](const char* name, const std::vector<double>& seconds) {
    const BenchSpread spread = bench_get_spread(seconds);
    std::printf("%-32s %8.3f s [%.3f..%.3f]\n", name, spread.median, spread.least, spread.most);
  };
  const double count = tree.get_leaves().get_count();
  std::printf("%.0f edges, %u x %u pixels, %u threads, medians of %u rounds\n", count, size, size, threads, rounds);
  print("build", builds);
  print("a lookup a pixel", lookups);
  print("rasterizer, one thread", rasters);
  std::printf("%.1f bytes an edge; %llu pixels with a line; largest difference %.2g\n",
              static_cast<double>(tree.get_memory_size()) / count, static_cast<unsigned long long>(drawn), largest);
  return 0;
}
