// bench/bench_name.h
//
// Names of generated meshes, hair and scenes: a kind and a number, as "fur-200k" or "giants-200".
#pragma once
#include <string>

#include "vq_core/core_types.h"

/// Divides "KIND-NUMBER"; k means thousands, m millions. False for any other name and for numbers outside 1 ..
/// 100 000 000.
inline bool bench_split_name(const std::string& name, std::string& kind, uint& number) {
  const std::size_t dash = name.find('-');
  if (dash == std::string::npos) return false;
  kind = name.substr(0, dash);
  std::string digits = name.substr(dash + 1);
  u64 unit = 1;
  if (digits.ends_with('k')) unit = 1000;
  if (digits.ends_with('m')) unit = 1000000;
  if (unit != 1) digits.pop_back();
  if (digits.empty() || digits.size() > 8 || digits.find_first_not_of("0123456789") != std::string::npos) return false;
  const u64 count = std::stoull(digits) * unit;
  if (count == 0 || count > 100000000) return false;
  number = static_cast<uint>(count);
  return true;
}
