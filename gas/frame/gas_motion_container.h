// gas/frame/gas_motion_container.h
//
// What a structure keeps per motion-blur slot of the host: records made on demand, at addresses that stay.
//
//   block_ --> { count, slots[count] } --> MotionData { lock, stamp, ... }      readers: one acquire load, no lock
//              replaced blocks wait on retired_ until no query can be reading them
//
// The number of slots changes while queries run, so a grown array is published as one new block; the block it replaces
// may still be in a reader's hands and is freed only when the structure is rebuilt or destroyed. Records that shrinking
// removes free what they computed at once: their slots belong to descriptions that no longer exist, so no query can be
// using it; the empty records go with their block.
#pragma once
#include <atomic>
#include <memory>
#include <vector>

#include "vq_core/core_types.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_sys/sys_thread_lock.h"

/// `Data` begins with a SysThreadLock `lock` and has an atomic `stamp` (0: never computed), clear(), and a constructor
/// from the owner.
template <class Data, class Owner>
class GasMotionContainer {
 public:
  explicit GasMotionContainer(Owner* owner) : owner_(owner) {}
  /// Records belong to one structure: a copy of the structure starts without any.
  GasMotionContainer(const GasMotionContainer&) = delete;
  GasMotionContainer& operator=(const GasMotionContainer&) = delete;

  /// The record of the description's slot, made if need be. Thread-safe; locks only when the host's slot count changed.
  Data& get(const CtxMotionBlur& motion_blur) {
    const Block* block = get_current_block();
    return *block->slots[motion_blur.get_slot()];
  }

  /// Makes every record stale and frees what it computed. No query may be running.
  void invalidate() {
    const SysThreadLockGuard guard(lock_);
    retired_.clear();
    if (!current_) return;
    for (const std::shared_ptr<Data>& data : current_->slots) release(*data);
  }

  /// Makes every record stale; what was computed stays until it is replaced.
  void make_stale() {
    const SysThreadLockGuard guard(lock_);
    if (!current_) return;
    for (const std::shared_ptr<Data>& data : current_->slots) data->stamp.store(0, std::memory_order_release);
  }

  /// Calls `visit(const Data&)` for each record, one at a time under its lock, after bringing their number up to date.
  template <class Visit>
  void visit_all(const Visit& visit) {
    get_current_block();
    const SysThreadLockGuard guard(lock_);
    for (const std::shared_ptr<Data>& data : current_->slots) {
      const SysThreadLockGuard data_guard(data->lock);
      visit(*data);
    }
  }

 private:
  struct Block {
    std::vector<std::shared_ptr<Data>> slots;
  };

  const Block* get_current_block() {
    const Block* block = block_.load(std::memory_order_acquire);
    if (block != nullptr && block->slots.size() == CtxMotionBlur::get_slot_count()) return block;
    const SysThreadLockGuard guard(lock_);
    // Read again under the lock: another thread may have resized meanwhile, to a count newer than the one seen above.
    resize(CtxMotionBlur::get_slot_count());
    return current_.get();
  }

  void resize(std::size_t count) {
    if (current_ && current_->slots.size() == count) return;
    auto block = std::make_unique<Block>();
    if (current_) {
      block->slots = current_->slots;
      for (std::size_t slot = count; slot < block->slots.size(); ++slot) release_unless_used(*block->slots[slot], slot);
    }
    block->slots.resize(count);
    for (std::shared_ptr<Data>& data : block->slots) {
      if (!data) data = std::make_shared<Data>(owner_);
    }
    block_.store(block.get(), std::memory_order_release);
    if (current_) retired_.push_back(std::move(current_));
    current_ = std::move(block);
  }

  static void release(Data& data) {
    const SysThreadLockGuard guard(data.lock);
    clear(data);
  }
  /// Since the slots were counted, a new description may have taken this one and its queries found the record in the
  /// block that is being replaced. They refit under the record's lock, and the description raised the count before: so
  /// either they come after the clearing, or the count shows them here. A record in use is left to its block.
  static void release_unless_used(Data& data, std::size_t slot) {
    const SysThreadLockGuard guard(data.lock);
    if (slot >= CtxMotionBlur::get_slot_count()) clear(data);
  }
  static void clear(Data& data) {
    data.clear();
    data.stamp.store(0, std::memory_order_release);
  }

  Owner* owner_;
  std::atomic<const Block*> block_{nullptr};
  SysThreadLock lock_;  // guards what follows
  std::unique_ptr<Block> current_;
  std::vector<std::unique_ptr<Block>> retired_;
};
