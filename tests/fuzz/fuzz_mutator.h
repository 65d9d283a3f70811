#pragma once
#include <cstdint>

#include "fuzz/fuzz_seeds.h"

struct FuzzFile {
  std::string extension;
  std::string bytes;
};

/// File `number` of a kind: a seed with one to four faults. The same for the same arguments, on any machine.
FuzzFile make_fuzz_file(const FuzzKind& kind, std::uint64_t random_seed, std::uint64_t number);
