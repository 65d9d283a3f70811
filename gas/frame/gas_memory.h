// gas/frame/gas_memory.h
//
// Sizes that change behind the host's back, because something grows lazily during queries, and are reported when they
// have drifted by more than a twentieth.
#pragma once
#include <atomic>

#include "vq_core/core_types.h"

class ResourceData;

class GasMemoryAccount {
 public:
  /// Both counters become `size`: nothing is reported.
  void reset(u64 size);
  u64 get_current_size() const { return current_size_.load(std::memory_order_relaxed); }
  u64 get_advertised_size() const { return advertised_size_.load(std::memory_order_relaxed); }

  /// Something of `structure` grew (or shrank) from old_size to new_size. Calls advert_memory_changed() when the total
  /// differs from the size last reported by more than a twentieth of the total. Thread-safe; of several threads that
  /// notice the same drift, one reports it.
  void update(u64 old_size, u64 new_size, const ResourceData& structure);

 private:
  std::atomic<u64> advertised_size_{0};
  std::atomic<u64> current_size_{0};
};
