// bench/bench_peers_measure.h
//
// Timing of several libraries in one process. A round measures every library once, in turn; ratios are formed within a
// round, so that a temporary slowdown of the machine affects both sides of a ratio.
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
/// Spread of values[k] / other[k], two measurements of the same round.
BenchSpread bench_get_ratio(const std::vector<double>& values, const std::vector<double>& other);

/// Processor time excludes the time that other users of the machine take.
enum class BenchClock { wall, processor };

/// Seconds of one call. Processor time is that of all threads of the process, so it is for serial work only.
double bench_time(BenchClock clock, const std::function<void()>& work);

/// Seconds to trace the whole set; for processor time the mean of the workers. Workers take blocks of rays from a
/// common counter; a single worker is the calling thread.
double bench_time_trace(BenchClock clock, BenchTracer& tracer, const BenchRaySet& set, uint thread_count,
                        std::vector<BenchHit>& hits);

/// How often two libraries disagree about a set.
struct BenchDisagreement {
  std::size_t hit_count = 0;  ///< rays that the first library hits something with
  std::size_t hits = 0;       ///< rays that hit something in only one library
  std::size_t distances = 0;  ///< nearest hits whose distances differ by more than the tolerance
  /// Verdicts on these rays, if the subject gives any.
  struct Judged {
    std::size_t silhouettes = 0;     ///< the ray grazes, so rounding decides
    std::size_t ends = 0;            ///< the shapes of the libraries differ at their ends
    std::size_t missed_by_ours = 0;  ///< the peer's hit is right and nearer
    std::size_t missed_by_peer = 0;  ///< this library's hit is right and nearer
    std::size_t false_hits = 0;      ///< there is no surface at the hit
  };
  std::optional<Judged> judged;
};
/// @param get_tolerance  largest allowed difference of two distances
/// @param rays           the numbers of the rays that disagree are appended; may be null
BenchDisagreement bench_compare(const BenchRaySet& set, const std::vector<BenchHit>& ours,
                                const std::vector<BenchHit>& peer,
                                const std::function<double(double, double)>& get_tolerance,
                                std::vector<std::size_t>* rays = nullptr);
