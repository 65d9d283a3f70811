#include "bench/bench_peers_mesh.h"

#include <algorithm>

namespace {

struct Kind {
  const char* name;
  RTCGeometry (*make)(RTCDevice, const BenchMesh&);
  const char* isa;
};
constexpr Kind kinds[] = {{"user-sse42", embree_make_user_triangles, "sse4.2"},
                          {"user", embree_make_user_triangles, ""},
                          {"tri-sse42", embree_make_triangles, "sse4.2"},
                          {"tri", embree_make_triangles, ""}};

}  // namespace

std::vector<std::string> peer_get_mesh_peers() {
  std::vector<std::string> names;
  for (const Kind& kind : kinds) names.push_back(kind.name);
  return names;
}

PeerMesh::PeerMesh(BenchMesh mesh) : mesh_(std::move(mesh)) {
  mesh_.positions.reserve(mesh_.positions.size() + 1);  // the peer reads four bytes past the last position
  valid_ = bench_fill_poly_mesh(mesh_, poly_mesh_);
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
  std::vector<std::string> names = {peer_ours};
  for (const Kind& kind : kinds) {
    if (std::find(wanted.begin(), wanted.end(), kind.name) != wanted.end()) names.push_back(kind.name);
  }
  return names;
}

PeerContender PeerMesh::make(const std::string& library, BenchClock clock, uint thread_count) const {
  for (const Kind& kind : kinds) {
    if (library == kind.name)
      return PeerContender::make_embree(clock, kind.isa, thread_count,
                                        [&](RTCDevice device) { return kind.make(device, mesh_); });
  }
  PeerContender made;
  made.world = std::make_unique<BenchWorld>(thread_count);
  made.build_seconds =
      bench_time(clock, [&] { made.tracer = std::make_unique<BenchScene>(*made.world, poly_mesh_, thread_count); });
  return made;
}

BenchRaySet PeerMesh::make_bounce_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits, u64 seed) const {
  // Off the surface by more than the rounding of single-precision coordinates of this size.
  const double offset = 1e-5 * get_bbox().get_extent().get_length();
  return bench_make_bounce_rays(
      primary, hits, [&](std::size_t ray) { return mesh_.get_normal(hits[ray].primitive).get_normalized(); }, offset,
      seed);
}

BenchRaySet PeerMesh::make_shadow_rays(const BenchRaySet&, const std::vector<BenchHit>&, const BenchRaySet& bounce,
                                       u64 seed) const {
  return bench_make_shadow_rays(bounce, 0.5 * get_bbox().get_extent().get_length(), seed);
}

BenchDisagreement PeerMesh::compare(const BenchRaySet& set, BenchTracer&, const std::vector<BenchHit>& our_hits,
                                    BenchTracer&, const std::vector<BenchHit>& peer_hits) const {
  return bench_compare(set, our_hits, peer_hits, [](double a, double b) { return 1e-3 * std::max(a, b); });
}
