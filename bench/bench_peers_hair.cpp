#include "bench/bench_peers_hair.h"

#include <algorithm>

#include "bench/bench_groom_rays.h"

namespace {

constexpr const char* aligned_only = "aligned-only";
struct Kind {
  const char* name;
  const char* isa;
};
constexpr Kind kinds[] = {{"round-sse42", "sse4.2"}, {"round", ""}};

/// The rays with these numbers, for nearest hits.
BenchRaySet pick_rays(const BenchRaySet& set, const std::vector<std::size_t>& numbers) {
  BenchRaySet picked;
  for (const std::size_t ray : numbers) {
    picked.rays.push_back(set.rays[ray]);
    if (!set.times.empty()) picked.times.push_back(set.times[ray]);
  }
  return picked;
}

}  // namespace

std::vector<std::string> peer_get_hair_peers() {
  std::vector<std::string> names = {aligned_only};
  for (const Kind& kind : kinds) names.push_back(kind.name);
  return names;
}

PeerHair::PeerHair(BenchGroom groom) : groom_(std::move(groom)) { valid_ = bench_fill_tube_mesh(groom_, tubes_); }

PeerReport PeerHair::describe() const {
  PeerReport report;
  report.kind = "hair";
  report.name = groom_.name;
  report.primitives = "segments";
  report.primitive_count = groom_.get_segment_count();
  return report;
}

std::vector<std::string> PeerHair::get_libraries(const std::vector<std::string>& wanted) const {
  return peer_pick_libraries(peer_get_hair_peers(), wanted);
}

PeerContender PeerHair::make(const std::string& library, BenchClock clock, uint thread_count) const {
  for (const Kind& kind : kinds) {
    if (library != kind.name) continue;
    return PeerContender::make_embree(clock, kind.isa, thread_count, [&](EmbreeDevice& device) {
      return std::make_unique<EmbreeScene>(device,
                                           [&](RTCDevice made_on) { return embree_make_curves(made_on, groom_); });
    });
  }
  PeerContender made = PeerContender::make_ours(thread_count, static_cast<uint>(groom_.samples.size()));
  made.build_seconds = bench_time(clock, [&] {
    made.tracer = std::make_unique<BenchHairScene>(*made.world, tubes_, library != aligned_only, thread_count);
  });
  made.refit(clock, get_bbox());
  return made;
}

BenchRaySet PeerHair::make_bounce_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits, u64 seed) const {
  return bench_make_hair_bounce_rays(groom_, primary, hits, seed);
}

BenchRaySet PeerHair::make_shadow_rays(const BenchRaySet& primary, const std::vector<BenchHit>& hits,
                                       const BenchRaySet&, u64) const {
  return bench_make_light_rays(groom_, primary, hits);
}

BenchDisagreement PeerHair::compare(const BenchRaySet& set, BenchTracer& ours, const std::vector<BenchHit>& our_hits,
                                    BenchTracer& peer, const std::vector<BenchHit>& peer_hits) const {
  std::vector<std::size_t> numbers;
  BenchDisagreement found = bench_compare(
      set, our_hits, peer_hits, [&](double, double) { return 0.5 * groom_.root_radius; }, &numbers);
  const BenchRaySet rays = pick_rays(set, numbers);
  std::vector<BenchHit> first(numbers.size()), other(numbers.size());
  ours.trace(0, rays, 0, numbers.size(), first.data());
  peer.trace(0, rays, 0, numbers.size(), other.data());
  BenchDisagreement::Judged judged;
  for (std::size_t k = 0; k < numbers.size(); ++k) {
    const double time = rays.times.empty() ? 0.0 : double(rays.times[k]);
    switch (bench_judge(groom_, rays.rays[k], time, first[k], other[k])) {
      case BenchVerdict::silhouette:
        ++judged.silhouettes;
        break;
      case BenchVerdict::end:
        ++judged.ends;
        break;
      case BenchVerdict::missed_by_first:
        ++judged.missed_by_ours;
        break;
      case BenchVerdict::missed_by_other:
        ++judged.missed_by_peer;
        break;
      case BenchVerdict::false_hit:
        ++judged.false_hits;
        break;
    }
  }
  found.judged = judged;
  return found;
}
