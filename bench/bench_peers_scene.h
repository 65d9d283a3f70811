// bench/bench_peers_scene.h
//
// A scene of objects that share meshes as a subject: this library's scene tree, or a bundle of instances, and Embree's
// instances.
#pragma once
#include "bench/bench_peers_run.h"

/// Names of the peers for scenes: "whole" is this library with one leaf per object; "objects", for bundles, with one
/// object per instance; then the peers for meshes, of which Embree makes instances.
std::vector<std::string> peer_get_scene_peers();

class PeerScene final : public PeerSubject {
 public:
  /// @param is_bundle  this library makes a bundle of instances; sizes are per instance
  PeerScene(BenchObjects objects, bool is_bundle);
  /// False if the library's mesh rejects the input.
  bool is_valid() const { return valid_; }

  PeerReport describe() const override;
  std::vector<std::string> get_libraries(const std::vector<std::string>& wanted) const override;
  /// The build time excludes the structures of the meshes and the definition of objects; that of a bundle, and of its
  /// peers, includes them.
  PeerContender make(const std::string& library, BenchClock clock, uint thread_count) const override;
  GMathBbox3<double> get_bbox() const override { return objects_.get_bbox(); }
  bool has_motion() const override { return objects_.has_motion(); }
  BenchRaySet make_bounce_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits, u64 seed) const override;
  BenchRaySet make_shadow_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits, const BenchRaySet& bounce,
                               u64 seed) const override;
  BenchDisagreement compare(const BenchRaySet& set, BenchTracer& ours, const std::vector<BenchHit>& our_hits,
                            BenchTracer& peer, const std::vector<BenchHit>& peer_hits) const override;

 private:
  PeerContender make_objects(const std::string& library, BenchClock clock, uint thread_count) const;
  PeerContender make_bundle(BenchClock clock, uint thread_count) const;

  BenchObjects objects_;
  bool is_bundle_;
  std::vector<std::shared_ptr<PolyMesh>> meshes_;
  bool valid_ = true;
};
