#include "bench/bench_peers_measure.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <ctime>
#include <numeric>
#include <thread>

namespace {

double read_clock(clockid_t id) {
  timespec now{};
  clock_gettime(id, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

}  // namespace

BenchSpread bench_get_spread(std::vector<double> values) {
  if (values.empty()) return {};
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  const double median = values.size() % 2 == 1 ? values[middle] : 0.5 * (values[middle - 1] + values[middle]);
  return {median, values.front(), values.back()};
}

BenchSpread bench_get_ratio(const std::vector<double>& values, const std::vector<double>& other) {
  std::vector<double> ratios;
  for (std::size_t round = 0; round < values.size(); ++round) ratios.push_back(values[round] / other[round]);
  return bench_get_spread(ratios);
}

double bench_time(BenchClock clock, const std::function<void()>& work) {
  const clockid_t id = clock == BenchClock::wall ? CLOCK_MONOTONIC : CLOCK_PROCESS_CPUTIME_ID;
  const double begin = read_clock(id);
  work();
  return read_clock(id) - begin;
}

double bench_time_trace(BenchClock clock, BenchTracer& tracer, const BenchRaySet& set, uint thread_count,
                        std::vector<BenchHit>& hits) {
  constexpr std::size_t block = 4096;
  std::atomic<std::size_t> next = 0;
  std::vector<double> worker_seconds(thread_count);
  const auto run = [&](uint thread) {
    const double begin = read_clock(CLOCK_THREAD_CPUTIME_ID);
    for (std::size_t first = next.fetch_add(block); first < set.rays.size(); first = next.fetch_add(block))
      tracer.trace(thread, set, first, std::min(first + block, set.rays.size()), hits.data());
    worker_seconds[thread] = read_clock(CLOCK_THREAD_CPUTIME_ID) - begin;
  };
  const double wall_seconds = bench_time(BenchClock::wall, [&] {
    std::vector<std::thread> others;
    for (uint thread = 1; thread < thread_count; ++thread) others.emplace_back(run, thread);
    run(0);
    for (std::thread& other : others) other.join();
  });
  if (clock == BenchClock::wall) return wall_seconds;
  return std::accumulate(worker_seconds.begin(), worker_seconds.end(), 0.0) / thread_count;
}

BenchDisagreement bench_compare(const BenchRaySet& set, const std::vector<BenchHit>& ours,
                                const std::vector<BenchHit>& peer,
                                const std::function<double(double, double)>& get_tolerance,
                                std::vector<std::size_t>* rays) {
  BenchDisagreement found;
  for (std::size_t ray = 0; ray < set.rays.size(); ++ray) {
    const double distance = ours[ray].distance, other = peer[ray].distance;
    const bool hits_differ = ours[ray].is_hit() != peer[ray].is_hit();
    const bool distances_differ = !hits_differ && ours[ray].is_hit() && !set.any_hit &&
                                  std::fabs(distance - other) > get_tolerance(distance, other);
    if (ours[ray].is_hit()) ++found.hit_count;
    if (hits_differ) ++found.hits;
    if (distances_differ) ++found.distances;
    if (rays != nullptr && (hits_differ || distances_differ)) rays->push_back(ray);
  }
  return found;
}
