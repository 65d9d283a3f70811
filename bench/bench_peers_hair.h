// bench/bench_peers_hair.h
//
// Hair as a subject: this library's structure with oriented boxes, the same without, Embree's round curves.
#pragma once
#include "bench/bench_peers_run.h"

/// Names of the peers for hair; "aligned-only" is this library without oriented nodes.
std::vector<std::string> peer_get_hair_peers();

class PeerHair final : public PeerSubject {
 public:
  explicit PeerHair(BenchGroom groom);
  /// False if the library rejects the groom.
  bool is_valid() const { return valid_; }

  PeerReport describe() const override;
  std::vector<std::string> get_libraries(const std::vector<std::string>& wanted) const override;
  PeerContender make(const std::string& library, BenchClock clock, uint thread_count) const override;
  GMathBbox3<double> get_bbox() const override { return groom_.get_bbox(); }
  bool has_motion() const override { return !groom_.samples.empty(); }
  BenchRaySet make_bounce_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits, u64 seed) const override;
  BenchRaySet make_shadow_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits, const BenchRaySet& bounce,
                               u64 seed) const override;
  /// Distances disagree if they differ by more than half the greatest radius. For rays that disagree about any hit the
  /// verdict is based on the nearest hits within their intervals.
  BenchDisagreement compare(const BenchRaySet& set, BenchTracer& ours, const std::vector<BenchHit>& our_hits,
                            BenchTracer& peer, const std::vector<BenchHit>& peer_hits) const override;

 private:
  BenchGroom groom_;
  TubeMeshFast tubes_;
  bool valid_ = false;
};
