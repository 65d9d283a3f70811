// host/vq_gas_base/gas_lazy_state.h
//
// What queries make when they first need it: one thread makes it, others that need it wait for this one thing.
#pragma once
#include <atomic>

#include "vq_core/core_types.h"

class GasLazyState {
 public:
  /// Pairs with the release store at the end of ensure(): what was made is then visible.
  bool is_made() const { return state_.load(std::memory_order_acquire) == made; }
  /// No other thread may use the object.
  void reset() { state_.store(unmade, std::memory_order_relaxed); }

  /// Calls `make` unless it was done, on one thread at a time. False if it throws: the next call tries again. Throws
  /// nothing.
  template <class Make>
  bool ensure(const Make& make) noexcept {
    for (;;) {
      u32 state = unmade;
      if (state_.compare_exchange_strong(state, being_made, std::memory_order_acquire)) break;
      if (state == made) return true;
      state_.wait(being_made, std::memory_order_acquire);
    }
    bool is_done = true;
    try {
      make();
    } catch (...) {
      is_done = false;
    }
    state_.store(is_done ? made : unmade, std::memory_order_release);
    state_.notify_all();
    return is_done;
  }

 private:
  enum State : u32 { unmade, being_made, made };
  std::atomic<u32> state_{unmade};
};
