// Files run in child processes, some hundred in each, so that a crash or a limit ends no more than a batch.
#pragma once
#include <array>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_seeds.h"

struct FuzzOptions {
  std::uint64_t seed = 1, first = 0, count = 1000;
  std::string keep;  ///< folder for the files that fail; empty: they are not kept
};

struct FuzzReport {
  std::array<std::uint64_t, 3> outcomes = {};  ///< by FuzzOutcome
  std::uint64_t broken = 0;                    ///< the importer crashed, and its guard ended the process with one line
  std::uint64_t failures = 0;                  ///< anything else
  double slowest_seconds = 0.0;                ///< of processor time
  std::uint64_t slowest_file = 0;
  std::uint64_t growth_bytes = 0;  ///< most by which a file raised the process's peak of memory
  std::uint64_t growth_file = 0;
};

inline constexpr int most_seconds = 2;  ///< of processor time, a file
inline constexpr std::uint64_t most_bytes = std::uint64_t{1} << 30;

/// Runs the files [first, first + count) of a kind, and prints each failure.
FuzzReport run_fuzz(const FuzzKind& kind, const FuzzOptions& options, const std::string& folder);
