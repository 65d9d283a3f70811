#include "bench/bench_peers_scene.h"

#include <algorithm>

#include "bench/bench_peers_mesh.h"

namespace {

constexpr const char *whole = "whole", *objects_name = "objects";

}  // namespace

std::vector<std::string> peer_get_scene_peers() {
  std::vector<std::string> names = peer_get_mesh_peers();
  names.insert(names.begin(), {whole, objects_name});
  return names;
}

PeerScene::PeerScene(BenchObjects objects, bool is_bundle) : objects_(std::move(objects)), is_bundle_(is_bundle) {
  for (BenchMesh& mesh : objects_.meshes) {
    bench_prepare_for_peers(mesh);
    meshes_.push_back(std::make_shared<PolyMesh>());
    valid_ = bench_fill_poly_mesh(mesh, *meshes_.back()) && valid_;
  }
}

PeerReport PeerScene::describe() const {
  PeerReport report;
  report.kind = is_bundle_ ? "bundle" : "scene";
  report.name = objects_.name + " of " + std::to_string(objects_.meshes.size()) + " meshes";
  if (is_bundle_) {
    report.name += ", " + std::to_string(objects_.get_triangle_count()) + " triangles as shown";
    report.primitives = "instances";
    report.primitive_count = static_cast<uint>(objects_.objects.size());
    return report;
  }
  report.primitives = "triangles";
  report.primitive_count = objects_.get_triangle_count();
  report.scale = PeerScale::whole;
  return report;
}

std::vector<std::string> PeerScene::get_libraries(const std::vector<std::string>& wanted) const {
  std::vector<std::string> peers = peer_get_scene_peers();
  std::erase(peers, is_bundle_ ? whole : objects_name);
  std::erase_if(peers, [](const std::string& name) {
    return name != whole && name != objects_name && peer_find_mesh_kind(name) == nullptr;  // the grid, for meshes
  });
  return peer_pick_libraries(peers, wanted);
}

PeerContender PeerScene::make(const std::string& library, BenchClock clock, uint thread_count) const {
  if (const PeerMeshKind* kind = peer_find_mesh_kind(library); kind != nullptr) {
    const auto describe = [&](EmbreeDevice& device) {
      return std::make_unique<EmbreeScene>(device, objects_, kind->make);
    };
    return PeerContender::make_embree(clock, kind->isa, thread_count, describe, is_bundle_);
  }
  PeerContender made = is_bundle_ && library != objects_name ? make_bundle(clock, thread_count)
                                                             : make_objects(library, clock, thread_count);
  made.refit(clock, get_bbox());
  return made;
}

PeerContender PeerScene::make_objects(const std::string& library, BenchClock clock, uint thread_count) const {
  PeerContender made = PeerContender::make_ours(thread_count, has_motion() ? objects_.get_sample_count() : 0);
  std::unique_ptr<BenchObjectsScene> scene;
  const double definition_seconds = bench_time(clock, [&] {
    scene = std::make_unique<BenchObjectsScene>(*made.world, objects_, meshes_, library != whole, thread_count);
  });
  made.build_seconds = bench_time(clock, [&] { scene->create_tree(); }) + (is_bundle_ ? definition_seconds : 0.0);
  made.tracer = std::move(scene);
  return made;
}

PeerContender PeerScene::make_bundle(BenchClock clock, uint thread_count) const {
  PeerContender made = PeerContender::make_ours(thread_count, has_motion() ? objects_.get_sample_count() : 0);
  auto scene = std::make_unique<BenchBundleScene>(*made.world, objects_, meshes_, thread_count);
  made.build_seconds = bench_time(clock, [&] { scene->create(); });
  made.tracer = std::move(scene);
  return made;
}

BenchRaySet PeerScene::make_bounce_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits, u64 seed) const {
  const auto get_normal = [&](std::size_t ray) {
    return objects_.get_normal(hits[ray].primitive, primary.times.empty() ? 0.0 : double(primary.times[ray]));
  };
  return bench_make_bounce_rays(primary, hits, get_normal, peer_get_mesh_offset(get_bbox()), seed);
}

BenchRaySet PeerScene::make_shadow_rays(const BenchRaySet&, const std::vector<BenchHit>&, const BenchRaySet& bounce,
                                        u64 seed) const {
  return bench_make_shadow_rays(bounce, 0.5 * get_bbox().get_extent().get_length(), seed);
}

BenchDisagreement PeerScene::compare(const BenchRaySet& set, BenchTracer&, const std::vector<BenchHit>& our_hits,
                                     BenchTracer&, const std::vector<BenchHit>& peer_hits) const {
  // Embree transforms rays into an object's space in single precision.
  const double rounding = 1e-6 * get_bbox().get_extent().get_length();
  return bench_compare(set, our_hits, peer_hits, [&](double a, double b) { return 1e-3 * std::max(a, b) + rounding; });
}
