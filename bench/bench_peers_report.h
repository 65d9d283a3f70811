// bench/bench_peers_report.h
//
// What bench_peers found, as a table to read and as JSON.
#pragma once
#include <nlohmann/json.hpp>

#include "bench/bench_peers_measure.h"

/// One library building one subject.
struct PeerBuildRow {
  /// Empty: the build; "refit": what the first query in motion does besides; "refitted": both.
  std::string what;
  std::string library;
  uint thread_count = 1;
  std::vector<double> seconds;  ///< one a round
};

struct PeerMemoryRow {
  std::string library;
  u64 tree_bytes = 0, total_bytes = 0;
};

/// One library answering one set.
struct PeerTraceRow {
  std::string set, library;
  uint thread_count = 1;
  std::size_t ray_count = 0;
  std::vector<double> mrays;  ///< per second, one a round
  BenchDisagreement disagreement;
};

/// How much of a tree of this library a ray of a set walks through.
struct PeerVisitsRow {
  std::string set, library;
  double nodes = 0.0, leaves = 0.0;  ///< means a ray
};

/// What builds and bytes are told by: a primitive, or all that there is.
enum class PeerScale { primitive, whole };

struct PeerReport {
  std::string kind, name;  ///< "mesh", "bunny.obj"
  std::string primitives;  ///< what they are, in the plural
  uint primitive_count = 0;
  PeerScale scale = PeerScale::primitive;
  std::string any_hit_query;  ///< how this library was asked for any hit
  std::vector<PeerBuildRow> builds;
  std::vector<PeerMemoryRow> memory;
  std::vector<PeerVisitsRow> visits;
  std::vector<PeerTraceRow> traces;
};

struct PeerMachine {
  std::string compiler, processor, build, clock;
  u64 seed = 0;
  uint rounds = 0;
};
PeerMachine peer_describe_machine();

/// The name of this library in all rows.
inline constexpr const char* peer_ours = "vq_gas";

void peer_print_machine(const PeerMachine& machine);
void peer_print_report(const PeerReport& report);
nlohmann::json peer_make_json(const PeerMachine& machine, const std::vector<PeerReport>& reports);
