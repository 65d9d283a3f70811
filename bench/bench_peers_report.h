// bench/bench_peers_report.h
//
// Results of bench_peers, as text tables and as JSON.
#pragma once
#include <nlohmann/json.hpp>

#include "bench/bench_peers_measure.h"

/// Build times of one library for one subject.
struct PeerBuildRow {
  /// Empty: the build. "refit": the refit by the first motion query. "refitted": both together.
  std::string what;
  std::string library;
  uint thread_count = 1;
  std::vector<double> seconds;  ///< one per round
};

struct PeerMemoryRow {
  std::string library;
  u64 tree_bytes = 0, record_bytes = 0, total_bytes = 0;
};

/// Rates of one library for one set.
struct PeerTraceRow {
  std::string set, library;
  uint thread_count = 1;
  std::size_t ray_count = 0;
  std::vector<double> mrays;  ///< per second, one per round
  BenchDisagreement disagreement;
};

/// Nodes and leaves of this library's tree that a ray of a set visits.
struct PeerVisitsRow {
  std::string set, library;
  double nodes = 0.0, leaves = 0.0;  ///< means per ray
};

/// The unit of build times and bytes: per primitive, or in total.
enum class PeerScale { primitive, whole };

struct PeerReport {
  std::string kind, name;  ///< "mesh", "bunny.obj"
  std::string primitives;  ///< their name, in the plural
  uint primitive_count = 0;
  PeerScale scale = PeerScale::primitive;
  std::vector<PeerBuildRow> builds;
  std::vector<PeerMemoryRow> memory;
  std::vector<PeerVisitsRow> visits;
  std::vector<PeerTraceRow> traces;
};

struct PeerMachine {
  std::string compiler, processor, build, clock;
  u64 seed = 0;
  uint rounds = 0;
  uint size = 0;  ///< primary rays a side
};
PeerMachine peer_describe_machine();

/// The name of this library in all rows.
inline constexpr const char* peer_ours = "vq_gas";

void peer_print_machine(const PeerMachine& machine);
void peer_print_report(const PeerReport& report);
nlohmann::json peer_make_json(const PeerMachine& machine, const std::vector<PeerReport>& reports);
