#include "bench/bench_peers_mesh.h"

#include <algorithm>

namespace {

constexpr PeerMeshKind mesh_kinds[] = {{"user-sse42", embree_make_user_triangles, "sse4.2"},
                                       {"user", embree_make_user_triangles, ""},
                                       {"tri-sse42", embree_make_triangles, "sse4.2"},
                                       {"tri", embree_make_triangles, ""}};

// This library's structure on the grid tree; its mesh as the only object of a scene.
constexpr const char *grid_name = "grid", *in_scene_name = "in-scene";

}  // namespace

const PeerMeshKind* peer_find_mesh_kind(const std::string& name) {
  const auto* found =
      std::find_if(std::begin(mesh_kinds), std::end(mesh_kinds), [&](auto& kind) { return name == kind.name; });
  return found != std::end(mesh_kinds) ? found : nullptr;
}

double peer_get_mesh_offset(const GMathBbox3<double>& box) { return 1e-5 * box.get_extent().get_length(); }

std::vector<std::string> peer_get_mesh_peers() {
  std::vector<std::string> names = {grid_name, in_scene_name};
  for (const PeerMeshKind& kind : mesh_kinds) names.push_back(kind.name);
  return names;
}

PeerMesh::PeerMesh(BenchMesh mesh) : mesh_(std::move(mesh)) {
  bench_prepare_for_peers(mesh_);
  valid_ = bench_fill_poly_mesh(mesh_, *poly_mesh_);
  only_object_.objects.push_back({0, {BenchMatrix()}});
  only_object_.first_triangles = {0};
}

PeerReport PeerMesh::describe() const {
  PeerReport report;
  report.kind = "mesh";
  report.name = mesh_.name;
  report.primitives = "triangles";
  report.primitive_count = mesh_.get_triangle_count();
  return report;
}

std::vector<std::string> PeerMesh::get_libraries(const std::vector<std::string>& wanted) const {
  return peer_pick_libraries(peer_get_mesh_peers(), wanted);
}

PeerContender PeerMesh::make(const std::string& library, BenchClock clock, uint thread_count) const {
  if (const PeerMeshKind* kind = peer_find_mesh_kind(library); kind != nullptr) {
    return PeerContender::make_embree(clock, kind->isa, thread_count, [&](EmbreeDevice& device) {
      return std::make_unique<EmbreeScene>(device, [&](RTCDevice made_on) { return kind->make(made_on, mesh_); });
    });
  }
  PeerContender made = PeerContender::make_ours(thread_count, static_cast<uint>(mesh_.samples.size()));
  if (library == in_scene_name) {
    made.build_seconds = bench_time(clock, [&] {
      auto scene =
          std::make_unique<BenchObjectsScene>(*made.world, only_object_, std::vector{poly_mesh_}, true, thread_count);
      scene->create_tree();
      made.tracer = std::move(scene);
    });
  } else if (library == grid_name) {
    made.build_seconds = bench_time(
        clock, [&] { made.tracer = std::make_unique<BenchGridScene>(*made.world, *poly_mesh_, thread_count); });
  } else {
    made.build_seconds =
        bench_time(clock, [&] { made.tracer = std::make_unique<BenchScene>(*made.world, *poly_mesh_, thread_count); });
  }
  made.refit(clock, get_bbox());
  return made;
}

BenchRaySet PeerMesh::make_bounce_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits, u64 seed) const {
  const auto get_normal = [&](std::size_t ray) {
    const double time = primary.times.empty() ? 0.0 : double(primary.times[ray]);
    return mesh_.get_normal(hits[ray].primitive, time).get_normalized();
  };
  return bench_make_bounce_rays(primary, hits, get_normal, peer_get_mesh_offset(get_bbox()), seed);
}

BenchRaySet PeerMesh::make_shadow_rays(const BenchRaySet&, const std::vector<BenchHit>&, const BenchRaySet& bounce,
                                       u64 seed) const {
  return bench_make_shadow_rays(bounce, 0.5 * get_bbox().get_extent().get_length(), seed);
}

BenchDisagreement PeerMesh::compare(const BenchRaySet& set, BenchTracer&, const std::vector<BenchHit>& our_hits,
                                    BenchTracer&, const std::vector<BenchHit>& peer_hits) const {
  return bench_compare(set, our_hits, peer_hits, [](double a, double b) { return 1e-3 * std::max(a, b); });
}
