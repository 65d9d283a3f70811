#include "bench/bench_peers_report.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>

namespace {

using nlohmann::json;

/// This library's row for the same set and number of threads; null if there is none.
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

/// Ratio of this library's speed to the row's, by round; empty for its own rows.
std::optional<BenchSpread> get_ratio(const PeerReport& report, const PeerTraceRow& row) {
  const PeerTraceRow* ours = find_ours(report, row);
  if (row.library == peer_ours || ours == nullptr) return std::nullopt;
  return bench_get_ratio(ours->mrays, row.mrays);
}
std::optional<BenchSpread> get_ratio(const PeerReport& report, const PeerBuildRow& row) {
  const PeerBuildRow* ours = find_ours(report, row);
  if (row.library == peer_ours || ours == nullptr) return std::nullopt;
  return bench_get_ratio(row.seconds, ours->seconds);
}
template <class Row>
std::string format_ratio(const PeerReport& report, const Row& row) {
  const std::optional<BenchSpread> ratio = get_ratio(report, row);
  return ratio ? format_spread(*ratio) : "";
}

/// Million primitives per second, or milliseconds in total.
std::vector<double> get_build_values(const PeerReport& report, const PeerBuildRow& row) {
  std::vector<double> values;
  for (const double seconds : row.seconds) {
    const bool whole = report.scale == PeerScale::whole;
    values.push_back(whole ? 1e3 * seconds : 1e-6 * report.primitive_count / seconds);
  }
  return values;
}
/// Bytes per primitive, or in total.
double get_bytes(const PeerReport& report, u64 bytes) {
  return static_cast<double>(bytes) / (report.scale == PeerScale::whole ? 1.0 : report.primitive_count);
}

/// Geometric mean over the sets of the median ratios, for each library and number of threads.
std::map<std::pair<uint, std::string>, double> get_mean_ratios(const PeerReport& report) {
  std::map<std::pair<uint, std::string>, std::pair<double, uint>> sums;
  for (const PeerTraceRow& row : report.traces) {
    const std::optional<BenchSpread> ratio = get_ratio(report, row);
    if (!ratio) continue;
    auto& [sum, count] = sums[{row.thread_count, row.library}];
    sum += std::log(ratio->median);
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
    builds.push_back({{"library", row.library},
                      {"threads", row.thread_count},
                      {report.scale == PeerScale::whole ? "milliseconds" : "mprims",
                       make_spread_json(get_build_values(report, row))}});
    if (!row.what.empty()) builds.back()["what"] = row.what;
  }
  for (const PeerMemoryRow& row : report.memory)
    memory.push_back({{"library", row.library},
                      {"tree_bytes", get_bytes(report, row.tree_bytes)},
                      {"record_bytes", get_bytes(report, row.record_bytes)},
                      {"total_bytes", get_bytes(report, row.total_bytes)}});
  for (const PeerTraceRow& row : report.traces) {
    json entry = {{"set", row.set},
                  {"library", row.library},
                  {"threads", row.thread_count},
                  {"rays", row.ray_count},
                  {"mrays", make_spread_json(row.mrays)}};
    if (const std::optional<BenchSpread> ratio = get_ratio(report, row); ratio) {
      entry["ratio"] = ratio->median;
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
  return {{report.kind, report.name}, {report.primitives, report.primitive_count},
          {"builds", builds},         {"memory", memory},
          {"traces", traces},         {"visits", visits},
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
  const bool whole = report.scale == PeerScale::whole;
  if (!report.builds.empty())
    std::printf("  %-8s %-12s %3s  %-24s  %s\n", "build", "library", "thr", whole ? "ms" : "Mprim/s", "ratio");
  for (const PeerBuildRow& row : report.builds) {
    std::printf("  %-8s %-12s %3u  %-24s  %s\n", row.what.c_str(), row.library.c_str(), row.thread_count,
                format_spread(bench_get_spread(get_build_values(report, row))).c_str(),
                format_ratio(report, row).c_str());
  }
  std::printf("  %-8s %-12s      %-24s  %s\n", "memory", "library", whole ? "tree bytes" : "tree bytes/primitive",
              "total");
  for (const PeerMemoryRow& row : report.memory)
    std::printf("  %-8s %-12s      %*.*f %*s  %*.*f\n", "", row.library.c_str(), whole ? 10 : 7, whole ? 0 : 2,
                get_bytes(report, row.tree_bytes), whole ? 13 : 16, "", whole ? 10 : 7, whole ? 0 : 2,
                get_bytes(report, row.total_bytes));
  std::printf("  %-8s %-12s %3s  %-24s  %-24s  %s\n", "rays", "library", "thr", "Mrays/s", "ratio",
              "disagree: hits/distances of hits");
  for (const PeerTraceRow& row : report.traces) {
    std::printf("  %-8s %-12s %3u  %-24s  %-24s", row.set.c_str(), row.library.c_str(), row.thread_count,
                format_spread(bench_get_spread(row.mrays)).c_str(), format_ratio(report, row).c_str());
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
  std::fflush(stdout);
}

nlohmann::json peer_make_json(const PeerMachine& machine, const std::vector<PeerReport>& reports) {
  json subjects = json::array();
  for (const PeerReport& report : reports) subjects.push_back(make_subject_json(report));
  return {{"compiler", machine.compiler}, {"processor", machine.processor},
          {"build", machine.build},       {"seed", machine.seed},
          {"clock", machine.clock},       {"rounds", machine.rounds},
          {"size", machine.size},         {"meshes", subjects}};
}
