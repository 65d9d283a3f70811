// bench/bench_peers_scene.h
//
// A scene of objects that share meshes as a subject: this library's scene tree and Embree's instances.
#pragma once
#include "bench/bench_peers_run.h"

/// Names of the peers for scenes: "whole" is this library with one leaf per object; then the peers for meshes, of which
/// Embree makes instances.
std::vector<std::string> peer_get_scene_peers();

class PeerScene final : public PeerSubject {
 public:
  explicit PeerScene(BenchObjects objects);
  /// False if the library's mesh rejects the input.
  bool is_valid() const { return valid_; }

  PeerReport describe() const override;
  std::vector<std::string> get_libraries(const std::vector<std::string>& wanted) const override;
  /// The build time excludes the structures of the meshes.
  PeerContender make(const std::string& library, BenchClock clock, uint thread_count) const override;
  GMathBbox3<double> get_bbox() const override { return objects_.get_bbox(); }
  bool has_motion() const override { return objects_.has_motion(); }
  BenchRaySet make_bounce_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits, u64 seed) const override;
  BenchRaySet make_shadow_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits, const BenchRaySet& bounce,
                               u64 seed) const override;
  BenchDisagreement compare(const BenchRaySet& set, BenchTracer& ours, const std::vector<BenchHit>& our_hits,
                            BenchTracer& peer, const std::vector<BenchHit>& peer_hits) const override;

 private:
  BenchObjects objects_;
  std::vector<std::shared_ptr<PolyMesh>> meshes_;
  bool valid_ = true;
};
