// bench/bench_peers_run.h
//
// All measurements of all libraries on one subject (mesh, hair or scene): builds, memory, ray sets.
#pragma once
#include <memory>

#include "bench/bench_peers_embree.h"
#include "bench/bench_peers_report.h"
#include "bench/bench_scene.h"
#include "vq_ctx/ctx_motion_blur.h"

struct PeerSettings {
  std::vector<std::string> sets = {"primary", "bounce", "random", "shadow"};
  std::vector<std::string> peers;  ///< each subject ignores those that it does not know
  std::vector<uint> threads = {1, 2};
  uint rounds = 7, build_rounds = 3, size = 1024;
  bool only_ours = false, processor_time = false;
  u64 seed = 1;

  BenchClock get_clock() const { return processor_time ? BenchClock::processor : BenchClock::wall; }
  /// Wall time for a build on several threads: it distributes its own work, so the threads' processor time is unknown.
  BenchClock get_build_clock(uint thread_count) const { return thread_count == 1 ? get_clock() : BenchClock::wall; }
};

/// One library with its tree over one subject.
struct PeerContender {
  std::unique_ptr<CtxMotionBlur> motion_blur;
  std::unique_ptr<BenchWorld> world;
  std::unique_ptr<EmbreeDevice> device;
  std::unique_ptr<BenchTracer> tracer;  ///< null if the library does not run on this machine
  double build_seconds = 0.0;
  double refit_seconds = 0.0;  ///< of the refit by the first motion query

  /// Makes Embree's device and the scene that `describe` returns, and builds it.
  /// @param counts_describe  its time is a part of the build's
  static PeerContender make_embree(BenchClock clock, const std::string& isa, uint thread_count,
                                   const std::function<std::unique_ptr<EmbreeScene>(EmbreeDevice&)>& describe,
                                   bool counts_describe = false);
  /// Makes a world, with motion blur if there are samples.
  static PeerContender make_ours(uint thread_count, uint sample_count);
  /// Measures the first motion query; does nothing without motion blur.
  void refit(BenchClock clock, const GMathBbox3<double>& box);
};

/// This library, then those of `peers` that are in `wanted`.
std::vector<std::string> peer_pick_libraries(const std::vector<std::string>& peers,
                                             const std::vector<std::string>& wanted);

class PeerSubject {
 public:
  virtual ~PeerSubject() = default;
  /// A report with name and size, and without rows.
  virtual PeerReport describe() const = 0;
  /// All libraries for the subject: this library first, then those of `wanted`.
  virtual std::vector<std::string> get_libraries(const std::vector<std::string>& wanted) const = 0;
  virtual PeerContender make(const std::string& library, BenchClock clock, uint thread_count) const = 0;

  virtual GMathBbox3<double> get_bbox() const = 0;
  virtual bool has_motion() const { return false; }
  virtual BenchRaySet make_bounce_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits,
                                       u64 seed) const = 0;
  virtual BenchRaySet make_shadow_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits,
                                       const BenchRaySet& bounce, u64 seed) const = 0;
  virtual BenchDisagreement compare(const BenchRaySet& set, BenchTracer& ours, const std::vector<BenchHit>& our_hits,
                                    BenchTracer& peer, const std::vector<BenchHit>& peer_hits) const = 0;

 protected:
  PeerSubject() = default;
  PeerSubject(const PeerSubject&) = delete;
  PeerSubject& operator=(const PeerSubject&) = delete;
};

PeerReport peer_measure(const PeerSettings& settings, const PeerSubject& subject);
