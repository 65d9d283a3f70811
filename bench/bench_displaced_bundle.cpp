#include "bench/bench_displaced_bundle.h"

#include <cmath>
#include <cstdio>

#include "bench/bench_peers_measure.h"
#include "bench/bench_scene.h"
#include "vq_geometry/displaced_mesh.h"
#include "vq_module/module_displacement.h"

namespace {

/// Balls in rows of ten, displaced by one noise.
class DisplacedBalls final : public BenchStructure {
 public:
  DisplacedBalls(BenchWorld& world, uint count, uint worker_count) : BenchStructure(world, worker_count) {
    bench_fill_poly_mesh(bench_make_ball(400), base_);
    CoreBasicArray<uint> zeros(count), offsets(count);
    CoreBasicArray<GeometryObject*> geometries(1), displaced(count);
    CoreBasicArray<BenchMatrix> matrices(count);
    CoreArray<CoreVector<uint>> flags(count);
    CoreBasicArray<ModuleDisplacement*> modules(count);
    geometries[0] = &base_;
    CoreString error;
    for (uint k = 0; k < count; ++k) {
      zeros[k] = 0;
      offsets[k] = k;
      matrices[k] = BenchMatrix();
      matrices[k].m[0][3] = 3.0 * (k % 10);
      matrices[k].m[2][3] = 3.0 * (k / 10);
      flags[k].resize(1);
      flags[k][0] = 1;  // the displaced geometry instead of the base
      modules[k] = &displacement_;
      meshes_.push_back(displacement_.get_mesh(base_, matrices[k], error));
      displaced[k] = meshes_.back().get();
    }
    create_seconds = bench_time(BenchClock::wall, [&] {
      build([&](AppProgressBar* progress) {
        bundle_.create(world.app, geometries, geometries, displaced, {}, zeros, zeros, offsets, matrices, {}, {}, {},
                       std::move(flags), modules, /*merge_shading_groups=*/false, progress);
      });
    });
  }

  u64 get_tree_bytes() const override { return bundle_.get_memory_size(); }
  u64 get_total_bytes() const override {
    u64 bytes = bundle_.get_memory_size();
    for (const auto& mesh : meshes_) bytes += mesh->get_cache_bytes();
    return bytes;
  }
  uint count_built() const {
    uint built = 0;
    for (uint slot = 0; slot < bundle_.get_slot_count(); ++slot) built += bundle_.get_slot_structure(slot) != nullptr;
    return built;
  }

  double create_seconds = 0.0;

 private:
  const GasObject& get_doors() const override { return bundle_; }
  static DisplacedMeshSettings make_settings() {
    GeometryNoiseSettings noise;
    noise.seed = 3;
    noise.octaves = 4;
    noise.frequency = 3.0;
    noise.amplitude = 0.15;
    DisplacedMeshSettings settings;
    settings.height = std::make_shared<GeometryNoiseHeight>(noise);
    settings.bound = 0.15;
    settings.rate = 16;
    return settings;
  }

  PolyMesh base_;
  ModuleDisplacement displacement_{CoreString("noise"), make_settings()};
  std::vector<std::unique_ptr<DisplacedMesh>> meshes_;
  GasGeometryBundle bundle_;
};

void print_first_picture(uint instance_count, uint in_view, uint size, uint thread_count) {
  BenchWorld world(thread_count);
  DisplacedBalls balls(world, instance_count, thread_count);
  const double wide = 3.0 * std::min(10u, in_view), deep = 3.0 * std::ceil(in_view / 10.0);
  BenchRaySet rays;
  for (uint k = 0; k < size * size; ++k)
    rays.rays.push_back(bench_make_ray(
        {wide * (k % size + 0.5) / size - 1.5, 5.0, deep * (k / size + 0.5) / size - 1.5}, {0.0, -1.0, 0.0}));
  std::vector<BenchHit> hits(rays.rays.size());
  const double first = bench_time_trace(BenchClock::wall, balls, rays, thread_count, hits);
  const uint built = balls.count_built();
  const double second = bench_time_trace(BenchClock::wall, balls, rays, thread_count, hits);
  std::printf("  %9u %9u %9u %12.1f %12.1f %12.1f %9.2f\n", instance_count, in_view, built, 1e3 * balls.create_seconds,
              1e3 * first, 1e3 * second, 1e-6 * double(balls.get_total_bytes()));
}

}  // namespace

void bench_print_first_pictures(uint instance_count, uint size, uint thread_count) {
  std::printf("\ndisplaced instances of 400 triangles in 16 parts an edge, %u threads, %u x %u rays\n", thread_count,
              size, size);
  std::printf("  %9s %9s %9s %12s %12s %12s %9s\n", "instances", "in view", "built", "create ms", "picture ms",
              "again ms", "MB");
  print_first_picture(instance_count, instance_count, size, thread_count);
  print_first_picture(instance_count, std::max(1u, instance_count / 10), size, thread_count);
}
