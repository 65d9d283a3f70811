// gas/gas_bundle_slots.h
//
// The structures below a bundle, each made by the first thread that needs it. Included by the bundle's own sources.
//
//   slot   structure: null, or published with release    is_tried: the build is over, also if there is no structure
//          lock: held by the thread that builds
#pragma once
#include <atomic>
#include <memory>

#include "gas/gas_clusterable.h"
#include "vq_sys/sys_thread_lock.h"

struct GasBundleSlot {
  std::atomic<const GasClusterable*> structure{nullptr};
  std::atomic<bool> is_tried{false};
  uint first_instance = core_invalid_index;  ///< the lowest instance that uses the slot
  SysThreadLock lock;
  std::unique_ptr<const GasClusterable> owned;
};

struct GasBundleSlots {
  /// Throws std::bad_alloc.
  explicit GasBundleSlots(uint count) : count(count), items(std::make_unique<GasBundleSlot[]>(count)) {}

  /// The structure of a slot. Unless the build was tried before, `build` makes it: a std::unique_ptr, null if there is
  /// none. If `build` throws, the slot stays unbuilt.
  template <class Build>
  const GasClusterable* get_or_build(uint index, const Build& build) {
    GasBundleSlot& slot = items[index];
    if (const GasClusterable* structure = slot.structure.load(std::memory_order_acquire)) return structure;
    if (slot.is_tried.load(std::memory_order_acquire)) return slot.structure.load(std::memory_order_acquire);
    const SysThreadLockGuard guard(slot.lock);
    if (!slot.is_tried.load(std::memory_order_relaxed)) {
      slot.owned = build();
      slot.structure.store(slot.owned.get(), std::memory_order_release);
      slot.is_tried.store(true, std::memory_order_release);
    }
    return slot.owned.get();
  }

  uint count;
  std::unique_ptr<GasBundleSlot[]> items;
};
