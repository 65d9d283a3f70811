#include "gas/frame/gas_memory.h"

#include <cstdlib>

#include "gas/frame/gas_guard.h"
#include "vq_resource/resource_data.h"

void GasMemoryAccount::reset(u64 size) {
  current_size_.store(size, std::memory_order_relaxed);
  advertised_size_.store(size, std::memory_order_relaxed);
}

void GasMemoryAccount::update(u64 old_size, u64 new_size, const ResourceData& structure) {
  const u64 total = current_size_.fetch_add(new_size - old_size, std::memory_order_relaxed) + (new_size - old_size);
  u64 advertised = advertised_size_.load(std::memory_order_relaxed);
  const auto signed_total = static_cast<std::int64_t>(total);
  if (std::llabs(static_cast<std::int64_t>(advertised) - signed_total) <= signed_total / 20) return;
  if (advertised_size_.compare_exchange_strong(advertised, total, std::memory_order_relaxed))
    gas_try([&] { structure.advert_memory_changed(); });
}
