// Records per motion-blur slot while slots come and go.
#include "gas/frame/gas_motion_container.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <thread>

#include "support/test_scale.h"

namespace {

struct Owner {
  std::atomic<int> living{0};
};

/// Holds, once computed, the stamp of its description in every word.
struct Record {
  explicit Record(Owner* owner) : owner(owner) { ++owner->living; }
  ~Record() { --owner->living; }
  void clear() { words.fill(0); }

  SysThreadLock lock;
  std::array<uint, 16> words{};
  Owner* owner;
  std::atomic<uint> stamp{0};
};

using Container = GasMotionContainer<Record, Owner>;
using Shutter = std::unique_ptr<CtxMotionBlur>;

Shutter open_shutter() { return std::make_unique<CtxMotionBlur>(0.0, 1.0, 2); }

/// As a structure does it: tested without the lock, again under it.
Record& refit(Container& container, const CtxMotionBlur& shutter) {
  Record& record = container.get_or_create(shutter);
  if (record.stamp.load(std::memory_order_acquire) == shutter.get_stamp()) return record;
  const SysThreadLockGuard guard(record.lock);
  if (record.stamp.load(std::memory_order_relaxed) == shutter.get_stamp()) return record;
  record.words.fill(shutter.get_stamp());
  record.stamp.store(shutter.get_stamp(), std::memory_order_release);
  return record;
}

bool is_refitted_for(const Record& record, const CtxMotionBlur& shutter) {
  for (const uint word : record.words)
    if (word != shutter.get_stamp()) return false;
  return true;
}

uint count_records(Container& container) {
  uint count = 0;
  container.visit_all([&](const Record&) { ++count; });
  return count;
}

}  // namespace

TEST(GasMotionContainer, grows_and_shrinks_with_the_slots) {
  Owner owner;
  {
    Container container(&owner);
    container.invalidate();  // nothing yet
    const Shutter a = open_shutter(), b = open_shutter();
    Shutter c = open_shutter();
    Record& first = refit(container, *a);
    Record& third = refit(container, *c);
    EXPECT_NE(&first, &third);
    EXPECT_EQ(container.get_or_create(*b).stamp, 0u);
    EXPECT_EQ(count_records(container), 3u);

    c.reset();
    EXPECT_EQ(&container.get_or_create(*a), &first) << "no record moves";
    EXPECT_EQ(count_records(container), 2u);
    EXPECT_EQ(third.stamp, 0u) << "what a removed record computed is freed at once";
    EXPECT_EQ(third.words[0], 0u);
    EXPECT_TRUE(is_refitted_for(first, *a));

    for (int k = 0; k < 100; ++k) {
      const Shutter passing = open_shutter();
      EXPECT_TRUE(is_refitted_for(refit(container, *passing), *passing));
    }
    EXPECT_EQ(owner.living, 3) << "shutters that come and go leave nothing behind";

    container.make_stale();
    EXPECT_TRUE(first.stamp == 0 && first.words[0] != 0);
    refit(container, *a);
    container.invalidate();
    EXPECT_TRUE(first.stamp == 0 && first.words[0] == 0);
  }
  EXPECT_EQ(owner.living, 0);
}

// Two threads keep querying with shutters that live throughout; others open and close shutters of their own and query
// with them. A record must always hold what was computed for the shutter that asks.
TEST(GasMotionContainer, serves_readers_while_shutters_come_and_go) {
  Owner owner;
  Container container(&owner);
  const Shutter steady[] = {open_shutter(), open_shutter()};
  const uint rounds = scaled(100'000, 5'000);
  std::atomic<uint> wrong{0}, openers{2};
  const auto query = [&](const CtxMotionBlur& shutter) {
    if (!is_refitted_for(refit(container, shutter), shutter)) ++wrong;
  };
  const auto open_and_close = [&] {
    for (uint k = 0; k < rounds; ++k) {
      const Shutter mine = open_shutter();
      for (uint again = 0; again < 3; ++again) query(*mine);
    }
    --openers;
  };
  const auto read = [&](uint which) {
    while (openers > 0) query(*steady[which]);
  };
  const auto measure = [&] {
    while (openers > 0) {
      count_records(container);
      std::this_thread::yield();
    }
  };
  std::thread threads[] = {std::thread(open_and_close), std::thread(open_and_close), std::thread(read, 0),
                           std::thread(read, 1), std::thread(measure)};
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0u);
}
