#include "bench/bench_scene.h"

#include <algorithm>
#include <cmath>

#include "gas/gas_module_clusters.h"

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

BenchGridScene::BenchGridScene(BenchWorld& world, const GeometryObject& mesh, uint worker_count)
    : BenchStructure(world, worker_count) {
  build([&](AppProgressBar* progress) { structure_.create(world.ctx, &mesh, &mesh, progress); });
}

BenchObjectsScene::BenchObjectsScene(BenchWorld& world, const BenchObjects& objects,
                                     const std::vector<std::shared_ptr<PolyMesh>>& meshes, bool cut, uint worker_count)
    : BenchStructure(world, worker_count) {
  set_first_primitives(objects.first_triangles.data());
  for (const auto& mesh : meshes) {
    structures_.push_back(std::make_shared<GasGeometryBvh4>());
    build([&](AppProgressBar* progress) { structures_.back()->create(world.ctx, mesh.get(), mesh.get(), progress); });
  }
  const double last = objects.get_sample_count() - 1.0;
  for (const BenchObjects::Object& object : objects.objects) {
    const auto& structure = structures_[object.mesh];
    const ModuleClusterFunctions& functions =
        cut ? gas_get_cluster_functions(structure.get()) : ModuleSceneObject::get_whole_functions();
    objects_.push_back(
        std::make_unique<ModuleGeometry>(CoreString("object"), meshes[object.mesh], structure, functions));
    objects_.back()->set_shading_group(0, world.links);
    std::vector<ModuleMatrixKey> keys;
    for (const BenchMatrix& matrix : object.matrices)
      keys.push_back({last > 0.0 ? static_cast<double>(keys.size()) / last : 0.0, matrix});
    objects_.back()->set_global_matrix_keys(std::move(keys), 0.0);
  }
}

void BenchObjectsScene::create_tree() {
  CoreBasicArray<ModuleSceneObject*> pointers(static_cast<uint>(objects_.size()));
  for (uint k = 0; k < pointers.get_count(); ++k) pointers[k] = objects_[k].get();
  build([&](AppProgressBar* progress) { tree_.create(get_world().app, pointers, progress); });
}

u64 BenchObjectsScene::get_total_bytes() const {
  u64 bytes = tree_.get_memory_size();
  for (const auto& structure : structures_) bytes += structure->get_memory_size();
  return bytes;
}

BenchBundleScene::BenchBundleScene(BenchWorld& world, const BenchObjects& objects,
                                   const std::vector<std::shared_ptr<PolyMesh>>& meshes, uint worker_count)
    : BenchStructure(world, worker_count),
      objects_(objects),
      geometries_(static_cast<uint>(meshes.size())),
      kinds_(static_cast<uint>(objects.objects.size())),
      matrices_(kinds_.get_count()) {
  set_first_primitives(objects.first_triangles.data(), true);
  for (uint mesh = 0; mesh < meshes.size(); ++mesh) geometries_[mesh] = meshes[mesh].get();
  for (uint k = 0; k < kinds_.get_count(); ++k) {
    kinds_[k] = objects.objects[k].mesh;
    matrices_[k] = objects.objects[k].matrices.front();
  }
  if (!objects.has_motion()) return;
  // Called at the motion samples, which are those of the objects.
  const auto write_matrices = [](void* user, const double& time, BenchMatrix* matrices) {
    const auto& all = *static_cast<const BenchObjects*>(user);
    const auto sample = static_cast<std::size_t>(std::lround(time * (all.get_sample_count() - 1)));
    for (const BenchObjects::Object& object : all.objects) *matrices++ = object.matrices[sample];
  };
  bundle_.set_matrices_callback(write_matrices, const_cast<BenchObjects*>(&objects_));
}

void BenchBundleScene::create() {
  build([&](AppProgressBar* progress) {
    bundle_.create(get_world().app, geometries_, geometries_, kinds_, kinds_, {}, matrices_, {}, {}, {},
                   /*merge_shading_groups=*/true, progress);
  });
}

u64 BenchBundleScene::get_total_bytes() const {
  u64 bytes = bundle_.get_memory_size();
  for (uint slot = 0; slot < bundle_.get_slot_count(); ++slot) {
    if (const GasClusterable* structure = bundle_.get_slot_structure(slot)) bytes += structure->get_memory_size();
  }
  return bytes;
}

BenchHairScene::BenchHairScene(BenchWorld& world, const TubeMeshFast& tubes, bool oriented, uint worker_count)
    : BenchStructure(world, worker_count) {
  structure_.set_oriented_nodes(oriented);
  build([&](AppProgressBar* progress) { structure_.create(world.ctx, &tubes, &tubes, progress); });
}

void BenchStructure::trace(uint thread, const BenchRaySet& set, std::size_t first, std::size_t end, BenchHit* hits) {
  Worker& worker = *workers_[thread];
  while (first < end) {
    const uint count = fill_packet(worker, set, first, end);
    ask(worker, set, nullptr);
    read_hits(worker, hits + first, count);
    first += count;
  }
}

BenchStructure::MeanVisits BenchStructure::count_visits(const BenchRaySet& set) {
  Worker& worker = *workers_[0];
  std::vector<GeometryRayVisits> visits;
  MeanVisits sum;
  for (std::size_t first = 0; first < set.rays.size(); first += packet_size) {
    visits.assign(fill_packet(worker, set, first, set.rays.size()), {});
    ask(worker, set, visits.data());
    for (const GeometryRayVisits& ray : visits) {
      sum.nodes += ray.nodes;
      sum.leaves += ray.leaves;
    }
  }
  const double count = static_cast<double>(std::max<std::size_t>(1, set.rays.size()));
  return {sum.nodes / count, sum.leaves / count};
}

/// Fills the packet with the next rays of the set. Returns their number.
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

void BenchStructure::ask(Worker& worker, const BenchRaySet& set, GeometryRayVisits* visits) const {
  GeometryRaytraceCtx& query =
      set.any_hit ? worker.packet.begin_any_hit(world_.shading) : worker.packet.begin_nearest(world_.shading);
  query.visits = visits;
  if (set.times.empty()) {
    get_doors().ray_hit_nearest_static(worker.ctx, worker.shader, query);
  } else {
    get_doors().ray_hit_nearest_motion(worker.ctx, worker.shader, query);
  }
}

void BenchStructure::read_hits(Worker& worker, BenchHit* hits, uint count) const {
  for (uint ray = 0; ray < count; ++ray) {
    if (!worker.packet.has_hit(ray)) {
      hits[ray] = BenchHit();
      continue;
    }
    const GeometryIntersection& hit = worker.packet.get_nearest(ray);
    const auto get_object = [&] {
      return is_bundle_ ? hit.instance : worker.packet.get_nearest_path(ray)[0].object_index;
    };
    const u32 before = first_primitives_ != nullptr ? first_primitives_[get_object()] : 0;
    // The record of any hit has no distance.
    hits[ray] = {static_cast<float>(std::max(hit.distance, 0.0)), before + hit.primitive};
  }
}
