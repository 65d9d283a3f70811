// bench/bench_peers_mesh.h
//
// A mesh, static or moving, as a subject: this library's mesh structure and Embree's triangles.
#pragma once
#include "bench/bench_peers_run.h"

/// A peer for meshes.
struct PeerMeshKind {
  const char* name;
  EmbreeMeshMaker make;
  const char* isa;
};
/// Null for an unknown name.
const PeerMeshKind* peer_find_mesh_kind(const std::string& name);
std::vector<std::string> peer_get_mesh_peers();

/// Offset of bounce rays from the surface: more than the rounding of single-precision coordinates of this size.
double peer_get_mesh_offset(const GMathBbox3<double>& box);

class PeerMesh final : public PeerSubject {
 public:
  explicit PeerMesh(BenchMesh mesh);
  /// False if the library's mesh rejects the input.
  bool is_valid() const { return valid_; }

  PeerReport describe() const override;
  std::vector<std::string> get_libraries(const std::vector<std::string>& wanted) const override;
  PeerContender make(const std::string& library, BenchClock clock, uint thread_count) const override;
  GMathBbox3<double> get_bbox() const override { return mesh_.get_bbox(); }
  bool has_motion() const override { return !mesh_.samples.empty(); }
  BenchRaySet make_bounce_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits, u64 seed) const override;
  BenchRaySet make_shadow_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits, const BenchRaySet& bounce,
                               u64 seed) const override;
  BenchDisagreement compare(const BenchRaySet& set, BenchTracer& ours, const std::vector<BenchHit>& our_hits,
                            BenchTracer& peer, const std::vector<BenchHit>& peer_hits) const override;

 private:
  BenchMesh mesh_;
  std::shared_ptr<PolyMesh> poly_mesh_ = std::make_shared<PolyMesh>();
  BenchObjects only_object_;  ///< shows the mesh; has no meshes of its own
  bool valid_ = false;
};
