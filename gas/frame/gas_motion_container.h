// gas/frame/gas_motion_container.h
//
// The motion data of a structure, one record per motion-blur slot of the host, made on demand at stable addresses.
//
//   block_ --> { slots[ ] } --> MotionData { lock, stamp, ... }      readers: two acquire loads, no lock
//              replaced blocks stay on retired_ until no query can be reading them
//
// The number of slots changes while queries run, so a longer array is published as one new block; the block it replaces
// may still be in use by a reader and is freed only when the structure is rebuilt or destroyed. A new block is made
// only for more slots than ever before. With fewer slots, the records above the count free their data, because their
// descriptions no longer exist; the empty records remain for the next description that takes the slot.
#pragma once
#include <atomic>
#include <memory>
#include <span>
#include <vector>

#include "gas/frame/gas_guard.h"
#include "vq_core/core_types.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_sys/sys_thread_lock.h"

/// `Data` begins with a SysThreadLock `lock` and has an atomic `stamp` (0: never computed), clear(), and a constructor
/// from the owner. An optional static note_slots(const Owner&) is called after the number of slots changed.
template <class Data, class Owner>
class GasMotionContainer {
 public:
  explicit GasMotionContainer(Owner* owner) : owner_(owner) {}
  /// Records belong to one structure: a copy of the structure starts without any.
  GasMotionContainer(const GasMotionContainer&) = delete;
  GasMotionContainer& operator=(const GasMotionContainer&) = delete;

  /// The record of the description's slot, created if missing. Thread-safe; locks only when the host's slot count has
  /// changed. Throws std::bad_alloc, and then changes nothing.
  Data& get_or_create(const CtxMotionBlur& motion_blur) {
    follow_slot_count();
    return *block_.load(std::memory_order_acquire)->slots[motion_blur.get_slot()];
  }

  /// Creates a record for each of the host's slots; does nothing when there is no memory.
  void follow_slots() noexcept {
    gas_try([&] { follow_slot_count(); });
  }

  /// Makes every record stale and frees its data. No query may be running.
  void invalidate() {
    const SysThreadLockGuard guard(lock_);
    retired_.clear();
    for (const std::shared_ptr<Data>& data : get_records()) {
      const SysThreadLockGuard data_guard(data->lock);
      release(*data);
    }
  }

  /// Makes every record stale. Its data stays until it is replaced, unless the description no longer exists.
  void make_stale() {
    follow_slots();
    const SysThreadLockGuard guard(lock_);
    for (const std::shared_ptr<Data>& data : get_records()) data->stamp.store(0, std::memory_order_release);
  }

  /// Calls `visit(const Data&)` for the record of each of the host's slots, one at a time under its lock.
  template <class Visit>
  void visit_all(const Visit& visit) {
    follow_slots();
    const SysThreadLockGuard guard(lock_);
    for (const std::shared_ptr<Data>& data : get_records().first(slot_count_.load(std::memory_order_relaxed))) {
      const SysThreadLockGuard data_guard(data->lock);
      visit(*data);
    }
  }

 private:
  struct Block {
    std::vector<std::shared_ptr<Data>> slots;
  };

  void follow_slot_count() {
    if (slot_count_.load(std::memory_order_acquire) == CtxMotionBlur::get_slot_count()) return;
    const SysThreadLockGuard guard(lock_);
    // Read again under the lock: another thread may have resized meanwhile, to a count newer than the one seen above.
    resize(CtxMotionBlur::get_slot_count());
  }

  void resize(uint count) {
    const uint old_count = slot_count_.load(std::memory_order_relaxed);
    if (count > get_records().size()) grow(count);
    for (uint slot = count; slot < old_count; ++slot) release_unless_used(*current_->slots[slot], slot);
    slot_count_.store(count, std::memory_order_release);  // after the block that has room for it
    if constexpr (requires { Data::note_slots(*owner_); }) {
      if (count != old_count) Data::note_slots(*owner_);
    }
  }

  void grow(uint count) {
    auto block = std::make_unique<Block>();
    if (current_) block->slots = current_->slots;
    while (block->slots.size() < count) block->slots.push_back(std::make_shared<Data>(owner_));
    retired_.reserve(retired_.size() + 1);  // may throw: before the block is published
    block_.store(block.get(), std::memory_order_release);
    if (current_) retired_.push_back(std::move(current_));
    current_ = std::move(block);
  }

  /// A new description may have taken the slot since the slots were counted, and its queries use the record. The new
  /// description raises the slot count first; its queries refit under the record's lock. So they either refit after
  /// this release, or the count read here includes the slot.
  static void release_unless_used(Data& data, uint slot) {
    const SysThreadLockGuard guard(data.lock);
    if (slot >= CtxMotionBlur::get_slot_count()) release(data);
  }
  static void release(Data& data) {
    data.clear();
    data.stamp.store(0, std::memory_order_release);
  }

  std::span<const std::shared_ptr<Data>> get_records() const {
    return current_ ? std::span<const std::shared_ptr<Data>>(current_->slots)
                    : std::span<const std::shared_ptr<Data>>();
  }

  Owner* owner_;
  std::atomic<const Block*> block_{nullptr};
  std::atomic<uint> slot_count_{0};
  SysThreadLock lock_;  // guards what follows
  std::unique_ptr<Block> current_;
  std::vector<std::unique_ptr<Block>> retired_;
};
