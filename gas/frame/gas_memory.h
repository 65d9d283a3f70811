// gas/frame/gas_memory.h
//
// Memory that grows during queries. The host is notified when the size differs by more than 5 % from the one last
// reported.
#pragma once
#include <atomic>

#include "vq_core/core_types.h"

class ResourceData;

class GasMemoryAccount {
 public:
  /// Sets both counters to `size`, without a report.
  void reset(u64 size);
  u64 get_current_size() const { return current_size_.load(std::memory_order_relaxed); }
  u64 get_advertised_size() const { return advertised_size_.load(std::memory_order_relaxed); }

  /// Records that a part of `structure` changed from old_size to new_size bytes. Calls advert_memory_changed() when the
  /// total differs from the size last reported by more than 5 % of the total. Thread-safe; one of several threads
  /// reports a change.
  void update(u64 old_size, u64 new_size, const ResourceData& structure);

 private:
  std::atomic<u64> advertised_size_{0};
  std::atomic<u64> current_size_{0};
};
