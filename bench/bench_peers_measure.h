// bench/bench_peers_measure.h
//
// Timing of several libraries in one process. A round measures every library once, one after the other; ratios are
// formed within a round, so that what slows the machine for a while slows both sides of a ratio.
#pragma once
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "bench/bench_tracer.h"

struct BenchSpread {
  double median = 0.0, least = 0.0, most = 0.0;
};
BenchSpread bench_get_spread(std::vector<double> values);
/// Of values[k] / other[k]: each pair from the same round.
BenchSpread bench_get_ratio(const std::vector<double>& values, const std::vector<double>& other);

/// What a second is. On a machine that others use as well, processor time leaves out their share.
enum class BenchClock { wall, processor };

/// Seconds of one call on this clock; processor time is that of all threads of the process, so of serial work only.
double bench_time(BenchClock clock, const std::function<void()>& work);

/// Seconds for answering the whole set; in processor time, the workers' mean. Workers take blocks of rays from a common
/// counter; a single worker is the calling thread itself.
double bench_time_trace(BenchClock clock, BenchTracer& tracer, const BenchRaySet& set, uint thread_count,
                        std::vector<BenchHit>& hits);

/// How far two libraries disagree about one set.
struct BenchDisagreement {
  std::size_t hit_count = 0;  ///< of the first
  std::size_t hits = 0;       ///< rays that only one of them found to hit something
  std::size_t distances = 0;  ///< nearest hits whose distances differ by more than the tolerance
  /// What a closer look at each of these rays found; without one there is none.
  struct Judged {
    std::size_t silhouettes = 0;     ///< the ray grazes: rounding decides
    std::size_t ends = 0;            ///< of shapes that differ at their ends
    std::size_t missed_by_ours = 0;  ///< the peer's hit is right and nearer
    std::size_t missed_by_peer = 0;  ///< this library's is
    std::size_t false_hits = 0;      ///< nothing is there
  };
  std::optional<Judged> judged;
};
/// @param get_tolerance  of two distances: how much they may differ
/// @param rays           the numbers of the rays that disagree are appended; may be null
BenchDisagreement bench_compare(const BenchRaySet& set, const std::vector<BenchHit>& ours,
                                const std::vector<BenchHit>& peer,
                                const std::function<double(double, double)>& get_tolerance,
                                std::vector<std::size_t>* rays = nullptr);
