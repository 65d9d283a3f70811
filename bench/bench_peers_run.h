// bench/bench_peers_run.h
//
// All libraries on one subject (a mesh, a groom), through all measurements: builds, memory, ray sets.
#pragma once
#include <memory>

#include "bench/bench_peers_embree.h"
#include "bench/bench_peers_report.h"
#include "bench/bench_scene.h"
#include "vq_ctx/ctx_motion_blur.h"

struct PeerSettings {
  std::vector<std::string> sets = {"primary", "bounce", "random", "shadow"};
  std::vector<std::string> peers;  ///< each subject takes those that it knows
  std::vector<uint> threads = {1, 2};
  uint rounds = 7, build_rounds = 3, size = 1024;
  bool only_ours = false, processor_time = false;
  u64 seed = 1;

  BenchClock get_clock() const { return processor_time ? BenchClock::processor : BenchClock::wall; }
  /// A build on several threads hands out its work by itself, and so has no processor time of a worker.
  BenchClock get_build_clock(uint thread_count) const { return thread_count == 1 ? get_clock() : BenchClock::wall; }
};

/// One library with its tree over one subject.
struct PeerContender {
  std::unique_ptr<CtxMotionBlur> motion_blur;
  std::unique_ptr<BenchWorld> world;
  std::unique_ptr<EmbreeDevice> device;
  std::unique_ptr<BenchTracer> tracer;  ///< null when the library does not run here
  double build_seconds = 0.0;
  double refit_seconds = 0.0;  ///< of what the first query in motion does besides

  /// With Embree's device and what `describe` makes on it, built.
  static PeerContender make_embree(BenchClock clock, const std::string& isa, uint thread_count,
                                   const std::function<std::unique_ptr<EmbreeScene>(EmbreeDevice&)>& describe);
  /// With a world, under motion blur when there are samples.
  static PeerContender make_ours(uint thread_count, uint sample_count);
  /// Measures a first query in motion; without motion blur nothing.
  void refit(BenchClock clock, const GMathBbox3<double>& box);
};

/// This library, then those of its peers that are wanted.
std::vector<std::string> peer_pick_libraries(const std::vector<std::string>& peers,
                                             const std::vector<std::string>& wanted);

class PeerSubject {
 public:
  virtual ~PeerSubject() = default;
  /// Name and size; the rows are empty.
  virtual PeerReport describe() const = 0;
  /// Everything that can answer for the subject: this library first, then those of `wanted`.
  virtual std::vector<std::string> get_libraries(const std::vector<std::string>& wanted) const = 0;
  virtual PeerContender make(const std::string& library, BenchClock clock, uint thread_count) const = 0;

  virtual GMathBbox3<double> get_bbox() const = 0;
  virtual bool has_motion() const { return false; }
  virtual BenchRaySet make_bounce_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits,
                                       u64 seed) const = 0;
  virtual BenchRaySet make_shadow_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits,
                                       const BenchRaySet& bounce, u64 seed) const = 0;
  /// Whether this library may be asked for any hit as all hits, stopped at the first.
  virtual bool allows_first_of_all() const { return true; }
  virtual BenchDisagreement compare(const BenchRaySet& set, BenchTracer& ours, const std::vector<BenchHit>& our_hits,
                                    BenchTracer& peer, const std::vector<BenchHit>& peer_hits) const = 0;

 protected:
  PeerSubject() = default;
  PeerSubject(const PeerSubject&) = delete;
  PeerSubject& operator=(const PeerSubject&) = delete;
};

PeerReport peer_measure(const PeerSettings& settings, const PeerSubject& subject);
