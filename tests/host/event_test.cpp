// The registry of names.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "vq_event/event_registry.h"

namespace {

TEST(EventRegistry, of_many_threads_with_two_names_for_one_hash_one_name_wins) {
  std::atomic<int> wins[2] = {};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&wins, i] { wins[i % 2] += event_debug_collisions(12345u, i % 2 ? "one" : "two"); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wins[0] + wins[1], 4);
  EXPECT_EQ(wins[0] * wins[1], 0);
}

}  // namespace
