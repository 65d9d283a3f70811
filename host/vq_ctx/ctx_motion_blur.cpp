#include "vq_ctx/ctx_motion_blur.h"

#include <atomic>
#include <mutex>
#include <vector>

namespace {

/// Which slots are taken. A function-local object: descriptions may be made by static initializers.
struct SlotRegistry {
  std::mutex mutex;
  std::vector<bool> taken;
  std::atomic<uint> slot_count{0};

  static SlotRegistry& get() {
    static SlotRegistry registry;
    return registry;
  }
  uint take() {
    const std::lock_guard guard(mutex);
    uint slot = 0;
    while (slot < taken.size() && taken[slot]) ++slot;
    if (slot == taken.size()) taken.push_back(false);
    taken[slot] = true;
    slot_count.store(static_cast<uint>(taken.size()), std::memory_order_release);
    return slot;
  }
  void give_back(uint slot) {
    const std::lock_guard guard(mutex);
    taken[slot] = false;
    while (!taken.empty() && !taken.back()) taken.pop_back();
    slot_count.store(static_cast<uint>(taken.size()), std::memory_order_release);
  }
};

uint make_stamp() {
  static std::atomic<uint> last{0};
  uint stamp = 0;
  while (stamp == 0) stamp = last.fetch_add(1, std::memory_order_relaxed) + 1;  // 0 means "never computed"
  return stamp;
}

GMathTimeSampling make_sampling(double open, double close, uint sample_count) {
  if (!(close > open)) return {open, 0.0, 1};
  const uint count = sample_count < 2 ? 2 : sample_count;
  return {open, (close - open) / (count - 1), count};
}

}  // namespace

CtxMotionBlur::CtxMotionBlur(double open, double close, uint sample_count)
    : sampling_(make_sampling(open, close, sample_count)), slot_(SlotRegistry::get().take()), stamp_(make_stamp()) {}

CtxMotionBlur::~CtxMotionBlur() { SlotRegistry::get().give_back(slot_); }

void CtxMotionBlur::set_shutter(double open, double close, uint sample_count) {
  sampling_ = make_sampling(open, close, sample_count);
  stamp_ = make_stamp();
}

uint CtxMotionBlur::get_slot_count() { return SlotRegistry::get().slot_count.load(std::memory_order_acquire); }
