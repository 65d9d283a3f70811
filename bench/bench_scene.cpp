#include "bench/bench_scene.h"

#include <algorithm>

BenchStructure::BenchStructure(BenchWorld& world, uint worker_count) : world_(world) {
  for (uint worker = 0; worker < worker_count; ++worker) workers_.push_back(std::make_unique<Worker>(world.ctx));
}

void BenchStructure::build(const std::function<void(AppProgressBar*)>& create) {
  AppProgressBar* progress = world_.app.create_progress_bar("Build");
  create(progress);
  progress->finish();
}

BenchScene::BenchScene(BenchWorld& world, const PolyMesh& mesh, uint worker_count)
    : BenchStructure(world, worker_count) {
  build([&](AppProgressBar* progress) { structure_.create(world.ctx, &mesh, &mesh, progress); });
}

BenchHairScene::BenchHairScene(BenchWorld& world, const TubeMeshFast& tubes, bool oriented, uint worker_count)
    : BenchStructure(world, worker_count) {
  structure_.set_oriented_nodes(oriented);
  build([&](AppProgressBar* progress) { structure_.create(world.ctx, &tubes, &tubes, progress); });
}

void BenchStructure::trace(uint thread, const BenchRaySet& set, std::size_t first, std::size_t end, BenchHit* hits) {
  Worker& worker = *workers_[thread];
  const bool first_of_all = set.any_hit && any_hit_query_ == BenchAnyHitQuery::first_of_all;
  while (first < end) {
    const uint count = fill_packet(worker, set, first, end);
    if (first_of_all) {
      trace_first_of_all(worker, set, hits + first, count);
    } else {
      trace_nearest(worker, set, hits + first, count);
    }
    first += count;
  }
}

BenchStructure::MeanVisits BenchStructure::count_visits(const BenchRaySet& set) {
  Worker& worker = *workers_[0];
  std::vector<GeometryRayVisits> visits;
  MeanVisits sum;
  for (std::size_t first = 0; first < set.rays.size(); first += packet_size) {
    visits.assign(fill_packet(worker, set, first, set.rays.size()), {});
    GeometryRaytraceCtx& query = worker.packet.begin_nearest(world_.shading);
    query.visits = visits.data();
    ask_nearest(worker, set, query);
    for (const GeometryRayVisits& ray : visits) {
      sum.nodes += ray.nodes;
      sum.leaves += ray.leaves;
    }
  }
  const double count = static_cast<double>(std::max<std::size_t>(1, set.rays.size()));
  return {sum.nodes / count, sum.leaves / count};
}

/// The next rays of the set, at most a packet of them. Returns how many.
uint BenchStructure::fill_packet(Worker& worker, const BenchRaySet& set, std::size_t first, std::size_t end) {
  const uint count = static_cast<uint>(std::min<std::size_t>(packet_size, end - first));
  worker.packet.resize(count);
  for (uint ray = 0; ray < count; ++ray) {
    const BenchRay& from = set.rays[first + ray];
    worker.packet.set_ray(ray, GMathVec3<double>(from.origin), GMathVec3<double>(from.direction), from.tnear, from.tfar,
                          set.times.empty() ? 0.0 : set.times[first + ray],
                          set.any_hit ? GMathRay::shadow : GMathRay::camera);
  }
  return count;
}

void BenchStructure::ask_nearest(Worker& worker, const BenchRaySet& set, GeometryRaytraceCtx& query) const {
  if (set.times.empty()) {
    get_doors().ray_hit_nearest_static(worker.ctx, worker.shader, query);
  } else {
    get_doors().ray_hit_nearest_motion(worker.ctx, worker.shader, query);
  }
}

void BenchStructure::trace_nearest(Worker& worker, const BenchRaySet& set, BenchHit* hits, uint count) const {
  GeometryRaytraceCtx& query = worker.packet.begin_nearest(world_.shading);
  ask_nearest(worker, set, query);
  for (uint ray = 0; ray < count; ++ray) {
    const GeometryIntersection& hit = worker.packet.get_nearest(ray);
    hits[ray] = hit.geometry != nullptr ? BenchHit{static_cast<float>(hit.distance), hit.primitive} : BenchHit();
  }
}

void BenchStructure::trace_first_of_all(Worker& worker, const BenchRaySet& set, BenchHit* hits, uint count) const {
  worker.packet.set_stop_rule(1);
  GeometryRaytraceCtx& query = worker.packet.begin_all_hits(world_.shading);
  if (set.times.empty()) {
    get_doors().ray_hit_static(worker.ctx, worker.shader, query);
  } else {
    get_doors().ray_hit_motion(worker.ctx, worker.shader, query);
  }
  for (uint ray = 0; ray < count; ++ray) hits[ray] = BenchHit();
  for (const GeometryHit& hit : worker.packet.get_hits().get_hits())
    hits[hit.ray] = {static_cast<float>(hit.hit.distance), hit.hit.primitive};
}
