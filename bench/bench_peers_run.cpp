#include "bench/bench_peers_run.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

namespace {

/// The state of a subject during all measurements.
class PeerRun {
 public:
  PeerRun(const PeerSettings& settings, const PeerSubject& subject)
      : settings_(settings), subject_(subject), report_(subject.describe()) {
    names_ = subject.get_libraries(settings.only_ours ? std::vector<std::string>() : settings.peers);
  }

  const PeerReport& run() {
    measure_builds();
    const uint most = *std::max_element(settings_.threads.begin(), settings_.threads.end());
    for (const std::string& name : names_)
      contenders_.push_back(subject_.make(name, settings_.get_build_clock(most), most));
    drop_absent();
    for (std::size_t k = 0; k < contenders_.size(); ++k) {
      const BenchTracer& tracer = *contenders_[k].tracer;
      report_.memory.push_back(
          {names_[k], tracer.get_tree_bytes(), tracer.get_record_bytes(), tracer.get_total_bytes()});
    }
    make_ray_sets();
    std::erase_if(sets_, [](const BenchRaySet& set) { return set.rays.empty(); });  // nothing hit, no bounces
    for (const BenchRaySet& set : sets_) {
      count_visits(set);
      for (const uint threads : settings_.threads) measure_set(set, threads);
    }
    std::erase_if(report_.builds, [](const PeerBuildRow& row) { return row.seconds.empty(); });
    return report_;
  }

 private:
  void drop_absent() {
    for (std::size_t k = contenders_.size(); k-- > 0;) {
      if (contenders_[k].tracer != nullptr) continue;
      contenders_.erase(contenders_.begin() + static_cast<std::ptrdiff_t>(k));
      names_.erase(names_.begin() + static_cast<std::ptrdiff_t>(k));
    }
  }

  void measure_builds() {
    for (const uint threads : settings_.threads) {
      std::vector<PeerBuildRow> builds, refits, ready;
      for (const std::string& name : names_) {
        builds.push_back({"", name, threads, {}});
        refits.push_back({"refit", name, threads, {}});
        ready.push_back({"refitted", name, threads, {}});
      }
      for (uint round = 0; round < settings_.build_rounds; ++round) {
        for (std::size_t k = 0; k < names_.size(); ++k) {
          // Threads of the former library may still wait busily.
          std::this_thread::sleep_for(std::chrono::milliseconds(50));
          const PeerContender built = subject_.make(names_[k], settings_.get_build_clock(threads), threads);
          if (built.tracer == nullptr) continue;
          builds[k].seconds.push_back(built.build_seconds);
          ready[k].seconds.push_back(built.build_seconds + built.refit_seconds);
          if (built.refit_seconds > 0.0) refits[k].seconds.push_back(built.refit_seconds);
        }
      }
      report_.builds.insert(report_.builds.end(), builds.begin(), builds.end());
      if (!subject_.has_motion()) continue;
      report_.builds.insert(report_.builds.end(), refits.begin(), refits.end());
      report_.builds.insert(report_.builds.end(), ready.begin(), ready.end());
    }
  }

  BenchTracer& get_ours() { return *contenders_[0].tracer; }
  bool is_wanted(const std::string& set) const {
    return std::find(settings_.sets.begin(), settings_.sets.end(), set) != settings_.sets.end();
  }

  void make_ray_sets() {
    BenchRaySet primary = bench_make_primary_rays(subject_.get_bbox(), settings_.size);
    if (subject_.has_motion()) bench_add_times(primary, settings_.seed + 3);
    std::vector<BenchHit> hits(primary.rays.size());
    bench_time_trace(settings_.get_clock(), get_ours(), primary, 1, hits);
    const BenchRaySet bounce = subject_.make_bounce_rays(primary, hits, settings_.seed);
    if (is_wanted("primary")) sets_.push_back(primary);
    if (is_wanted("bounce")) sets_.push_back(bounce);
    if (is_wanted("random")) {
      sets_.push_back(bench_make_random_rays(subject_.get_bbox(), settings_.size * settings_.size, settings_.seed + 1));
      if (subject_.has_motion()) bench_add_times(sets_.back(), settings_.seed + 4);
    }
    if (is_wanted("shadow") && !bounce.rays.empty())
      sets_.push_back(subject_.make_shadow_rays(primary, hits, bounce, settings_.seed + 2));
  }

  void count_visits(const BenchRaySet& set) {
    for (std::size_t k = 0; k < contenders_.size(); ++k) {
      auto* structure = dynamic_cast<BenchStructure*>(contenders_[k].tracer.get());
      if (structure == nullptr) continue;
      const BenchStructure::MeanVisits visits = structure->count_visits(set);
      report_.visits.push_back({set.name, names_[k], visits.nodes, visits.leaves});
    }
  }

  void measure_set(const BenchRaySet& set, uint threads) {
    std::vector<std::vector<BenchHit>> hits(contenders_.size(), std::vector<BenchHit>(set.rays.size()));
    std::vector<PeerTraceRow> rows;
    for (std::size_t k = 0; k < contenders_.size(); ++k) {
      rows.push_back({set.name, names_[k], threads, set.rays.size(), {}, {}});
      // Not timed: fills caches and scratch, and writes every page of `hits` once.
      bench_time_trace(settings_.get_clock(), *contenders_[k].tracer, set, threads, hits[k]);
      rows[k].disagreement = subject_.compare(set, get_ours(), hits[0], *contenders_[k].tracer, hits[k]);
    }
    for (uint round = 0; round < settings_.rounds; ++round) {
      for (std::size_t k = 0; k < contenders_.size(); ++k) {
        const double seconds = bench_time_trace(settings_.get_clock(), *contenders_[k].tracer, set, threads, hits[k]);
        rows[k].mrays.push_back(1e-6 * static_cast<double>(set.rays.size()) / seconds);
      }
    }
    report_.traces.insert(report_.traces.end(), rows.begin(), rows.end());
  }

  const PeerSettings& settings_;
  const PeerSubject& subject_;
  std::vector<std::string> names_;  ///< of the contenders
  std::vector<PeerContender> contenders_;
  std::vector<BenchRaySet> sets_;
  PeerReport report_;
};

}  // namespace

PeerContender PeerContender::make_embree(BenchClock clock, const std::string& isa, uint thread_count,
                                         const std::function<std::unique_ptr<EmbreeScene>(EmbreeDevice&)>& describe,
                                         bool counts_describe) {
  PeerContender made;
  made.device = std::make_unique<EmbreeDevice>(isa, thread_count);
  if (made.device->get() == nullptr) return made;
  std::unique_ptr<EmbreeScene> scene;
  const double describe_seconds = bench_time(clock, [&] { scene = describe(*made.device); });
  made.build_seconds = bench_time(clock, [&] { scene->commit(); }) + (counts_describe ? describe_seconds : 0.0);
  made.tracer = std::move(scene);
  return made;
}

PeerContender PeerContender::make_ours(uint thread_count, uint sample_count) {
  PeerContender made;
  made.world = std::make_unique<BenchWorld>(thread_count);
  if (sample_count == 0) return made;
  made.motion_blur = std::make_unique<CtxMotionBlur>(0.0, 1.0, sample_count);
  made.world->ctx.set_motion_blur(made.motion_blur.get());
  return made;
}

void PeerContender::refit(BenchClock clock, const GMathBbox3<double>& box) {
  if (motion_blur == nullptr) return;
  BenchRaySet first_query = bench_make_primary_rays(box, 1);
  bench_add_times(first_query, 1);
  BenchHit hit;
  refit_seconds = bench_time(clock, [&] { tracer->trace(0, first_query, 0, 1, &hit); });
}

std::vector<std::string> peer_pick_libraries(const std::vector<std::string>& peers,
                                             const std::vector<std::string>& wanted) {
  std::vector<std::string> names = {peer_ours};
  for (const std::string& name : peers) {
    if (std::find(wanted.begin(), wanted.end(), name) != wanted.end()) names.push_back(name);
  }
  return names;
}

PeerReport peer_measure(const PeerSettings& settings, const PeerSubject& subject) {
  return PeerRun(settings, subject).run();
}
