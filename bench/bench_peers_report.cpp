#include "bench/bench_peers_report.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>

namespace {

using nlohmann::json;

/// This library's row in the same set and on as many threads; null without one.
const PeerTraceRow* find_ours(const PeerReport& report, const PeerTraceRow& row) {
  for (const PeerTraceRow& other : report.traces) {
    if (other.library == peer_ours && other.set == row.set && other.thread_count == row.thread_count) return &other;
  }
  return nullptr;
}

const PeerBuildRow* find_ours(const PeerReport& report, const PeerBuildRow& row) {
  for (const PeerBuildRow& other : report.builds) {
    if (other.library == peer_ours && other.what == row.what && other.thread_count == row.thread_count) return &other;
  }
  return nullptr;
}

std::string format_spread(const BenchSpread& spread) {
  char text[64];
  std::snprintf(text, sizeof text, "%7.3f [%.3f..%.3f]", spread.median, spread.least, spread.most);
  return text;
}

/// This library's rate over the row's; empty for its own rows.
template <class Row>
std::string format_ratio(const PeerReport& report, const Row& row, const std::vector<double>& rates,
                         std::vector<double> Row::*member) {
  const Row* ours = find_ours(report, row);
  if (row.library == peer_ours || ours == nullptr) return "";
  return format_spread(bench_get_ratio(ours->*member, rates));
}

/// Geometric mean over the sets of the median ratios to each library, per thread count.
std::map<std::pair<uint, std::string>, double> get_mean_ratios(const PeerReport& report) {
  std::map<std::pair<uint, std::string>, std::pair<double, uint>> sums;
  for (const PeerTraceRow& row : report.traces) {
    const PeerTraceRow* ours = find_ours(report, row);
    if (row.library == peer_ours || ours == nullptr) continue;
    auto& [sum, count] = sums[{row.thread_count, row.library}];
    sum += std::log(bench_get_ratio(ours->mrays, row.mrays).median);
    ++count;
  }
  std::map<std::pair<uint, std::string>, double> means;
  for (const auto& [key, sum] : sums) means[key] = std::exp(sum.first / sum.second);
  return means;
}

json make_spread_json(const std::vector<double>& values) {
  const BenchSpread spread = bench_get_spread(values);
  return {{"median", spread.median}, {"least", spread.least}, {"most", spread.most}, {"rounds", values}};
}

json make_judged_json(const BenchDisagreement::Judged& judged) {
  return {{"silhouettes", judged.silhouettes},
          {"ends", judged.ends},
          {"missed_by_ours", judged.missed_by_ours},
          {"missed_by_peer", judged.missed_by_peer},
          {"false_hits", judged.false_hits}};
}

json make_subject_json(const PeerReport& report) {
  json builds = json::array(), memory = json::array(), traces = json::array(), visits = json::array(),
       means = json::array();
  for (const PeerBuildRow& row : report.builds) {
    builds.push_back(
        {{"library", row.library}, {"threads", row.thread_count}, {"mprims", make_spread_json(row.mprims)}});
    if (!row.what.empty()) builds.back()["what"] = row.what;
  }
  for (const PeerMemoryRow& row : report.memory)
    memory.push_back({{"library", row.library}, {"tree_bytes", row.tree_bytes}, {"total_bytes", row.total_bytes}});
  for (const PeerTraceRow& row : report.traces) {
    json entry = {{"set", row.set},
                  {"library", row.library},
                  {"threads", row.thread_count},
                  {"rays", row.ray_count},
                  {"mrays", make_spread_json(row.mrays)}};
    if (const PeerTraceRow* ours = find_ours(report, row); row.library != peer_ours && ours != nullptr) {
      entry["ratio"] = bench_get_ratio(ours->mrays, row.mrays).median;
      entry["disagree_hits"] = row.disagreement.hits;
      entry["disagree_distances"] = row.disagreement.distances;
      if (row.disagreement.judged) entry["judged"] = make_judged_json(*row.disagreement.judged);
    }
    traces.push_back(entry);
  }
  for (const PeerVisitsRow& row : report.visits)
    visits.push_back({{"set", row.set}, {"library", row.library}, {"nodes", row.nodes}, {"leaves", row.leaves}});
  for (const auto& [key, mean] : get_mean_ratios(report))
    means.push_back({{"threads", key.first}, {"library", key.second}, {"ratio", mean}});
  return {{report.kind, report.name},
          {report.primitives, report.primitive_count},
          {"any_hit_query", report.any_hit_query},
          {"builds", builds},
          {"memory", memory},
          {"traces", traces},
          {"visits", visits},
          {"mean_ratios", means}};
}

}  // namespace

PeerMachine peer_describe_machine() {
  PeerMachine machine;
#ifdef __clang__
  machine.compiler = "clang " __clang_version__;
#else
  machine.compiler = "g++ " __VERSION__;
#endif
#ifdef NDEBUG
  machine.build = "optimised";
#else
  machine.build = "with assertions: its times mean nothing";
#endif
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with("model name")) continue;
    machine.processor = line.substr(line.find(':') + 2);
    break;
  }
  return machine;
}

void peer_print_machine(const PeerMachine& machine) {
  std::printf("%s, %s, %s; seed %llu, %s, medians [least..most] of %u rounds\n", machine.processor.c_str(),
              machine.compiler.c_str(), machine.build.c_str(), static_cast<unsigned long long>(machine.seed),
              machine.clock.c_str(), machine.rounds);
}

void peer_print_report(const PeerReport& report) {
  std::printf("\n%s, %u %s\n", report.name.c_str(), report.primitive_count, report.primitives.c_str());
  if (!report.builds.empty())
    std::printf("  %-8s %-12s %3s  %-24s  %s\n", "build", "library", "thr", "Mprim/s", "ratio");
  for (const PeerBuildRow& row : report.builds) {
    std::printf("  %-8s %-12s %3u  %-24s  %s\n", row.what.c_str(), row.library.c_str(), row.thread_count,
                format_spread(bench_get_spread(row.mprims)).c_str(),
                format_ratio(report, row, row.mprims, &PeerBuildRow::mprims).c_str());
  }
  std::printf("  %-8s %-12s      %-24s  %s\n", "memory", "library", "tree bytes/primitive", "total");
  for (const PeerMemoryRow& row : report.memory)
    std::printf("  %-8s %-12s      %7.2f %16s  %7.2f\n", "", row.library.c_str(), row.tree_bytes, "", row.total_bytes);
  std::printf("  %-8s %-12s %3s  %-24s  %-24s  %s\n", "rays", "library", "thr", "Mrays/s", "ratio",
              "disagree: hits/distances of hits");
  for (const PeerTraceRow& row : report.traces) {
    std::printf("  %-8s %-12s %3u  %-24s  %-24s", row.set.c_str(), row.library.c_str(), row.thread_count,
                format_spread(bench_get_spread(row.mrays)).c_str(),
                format_ratio(report, row, row.mrays, &PeerTraceRow::mrays).c_str());
    if (row.library != peer_ours)
      std::printf("  %zu/%zu of %zu", row.disagreement.hits, row.disagreement.distances, row.disagreement.hit_count);
    if (row.disagreement.judged && row.library != peer_ours) {
      const BenchDisagreement::Judged& judged = *row.disagreement.judged;
      std::printf(": %zu silhouettes, %zu ends, %zu missed here, %zu there, %zu false", judged.silhouettes, judged.ends,
                  judged.missed_by_ours, judged.missed_by_peer, judged.false_hits);
    }
    std::printf("\n");
  }
  for (const PeerVisitsRow& row : report.visits)
    std::printf("  a ray of %s visits %.2f nodes and %.2f leaves of %s\n", row.set.c_str(), row.nodes, row.leaves,
                row.library.c_str());
  for (const auto& [key, mean] : get_mean_ratios(report))
    std::printf("  geometric mean of the ratios: %s %u thr %.3f\n", key.second.c_str(), key.first, mean);
  if (!report.any_hit_query.empty())
    std::printf("  any hit was asked of %s as %s\n", peer_ours, report.any_hit_query.c_str());
  std::fflush(stdout);
}

nlohmann::json peer_make_json(const PeerMachine& machine, const std::vector<PeerReport>& reports) {
  json subjects = json::array();
  for (const PeerReport& report : reports) subjects.push_back(make_subject_json(report));
  return {{"compiler", machine.compiler},
          {"processor", machine.processor},
          {"build", machine.build},
          {"seed", machine.seed},
          {"clock", machine.clock},
          {"rounds", machine.rounds},
          {"meshes", subjects}};
}
